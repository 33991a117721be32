// The layout of every public record on a 64-bit machine, and the numbers behind names, by which
// hosts that were compiled earlier, and foreign-function interfaces, reach the fields. Compiled as
// C11, C++17 and C++20.
#include <stddef.h>

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "calcut/version.h"

#ifdef __cplusplus
#define CHECK(condition) static_assert(condition, #condition)
#else
#define CHECK(condition) _Static_assert(condition, #condition)
#endif
#define AT(type, member, offset) (offsetof(type, member) == (offset))

CHECK(sizeof(EEPROMMetaInformation) == 38 && AT(EEPROMMetaInformation, reserved, 0) &&
      AT(EEPROMMetaInformation, zeroMaskCount, 36));
CHECK(CALCUT_LENS_CX == 0 && CALCUT_LENS_CY == 1 && CALCUT_LENS_FX == 2 && CALCUT_LENS_FY == 3 &&
      CALCUT_LENS_P1 == 4 && CALCUT_LENS_P2 == 5 && CALCUT_LENS_K1 == 6 && CALCUT_LENS_K2 == 7 &&
      CALCUT_LENS_K3 == 8 && CALCUT_LENS_RESERVED + 1 == CALCUT_LENS_PARAMETER_COUNT);
CHECK(VANTRIC_LENS_FX == 0 && VANTRIC_LENS_FY == 1 && VANTRIC_LENS_CX == 2 &&
      VANTRIC_LENS_CY == 3 && VANTRIC_LENS_K1 == 4 && VANTRIC_LENS_K2 == 5 &&
      VANTRIC_LENS_P1 == 6 && VANTRIC_LENS_P2 == 7 &&
      VANTRIC_LENS_K3 + 1 == VANTRIC_LENS_PARAMETERS);
CHECK(VANTRIC_FIELD_LENS_PARAMETERS == 0 && VANTRIC_FIELD_TEXT1 == 1 && VANTRIC_FIELD_TEXT2 == 2 &&
      VANTRIC_FIELD_IMAGER_AREA == 3 && VANTRIC_FIELD_ID_BYTES == 4 && VANTRIC_FIELD_ID_CODES == 5);
CHECK(sizeof(VantricImagerArea) == 16 && AT(VantricImagerArea, areaX, 0) &&
      AT(VantricImagerArea, areaY, 4) && AT(VantricImagerArea, columns, 8) &&
      AT(VantricImagerArea, rows, 12));
CHECK(sizeof(VantricWigglingTable) == 40 && AT(VantricWigglingTable, capacity, 0) &&
      AT(VantricWigglingTable, first, 8) && AT(VantricWigglingTable, second, 16) &&
      AT(VantricWigglingTable, third, 24) && AT(VantricWigglingTable, header, 32));
CHECK(sizeof(VantricFrequencyRecord) == 136 && AT(VantricFrequencyRecord, frequencyId, 0) &&
      AT(VantricFrequencyRecord, pixelTable, 8) && AT(VantricFrequencyRecord, countA, 16) &&
      AT(VantricFrequencyRecord, valuesA, 24) && AT(VantricFrequencyRecord, countB, 32) &&
      AT(VantricFrequencyRecord, valuesB, 40) && AT(VantricFrequencyRecord, scalar, 48) &&
      AT(VantricFrequencyRecord, wigglingA, 56) && AT(VantricFrequencyRecord, wigglingB, 96));
CHECK(sizeof(VantricCustomField) == 16 && AT(VantricCustomField, data, 0) &&
      AT(VantricCustomField, size, 8));
CHECK(sizeof(VantricCalibration) == 304 && AT(VantricCalibration, version, 0) &&
      AT(VantricCalibration, calibrationType, 2) && AT(VantricCalibration, text0, 8) &&
      AT(VantricCalibration, text1, 16) && AT(VantricCalibration, text2, 24) &&
      AT(VantricCalibration, idBytes, 32) && AT(VantricCalibration, idBytesSize, 40) &&
      AT(VantricCalibration, imagerArea, 44) && AT(VantricCalibration, directions, 64) &&
      AT(VantricCalibration, lensParameterCount, 72) &&
      AT(VantricCalibration, lensParameters, 80) && AT(VantricCalibration, idCode0, 88) &&
      AT(VantricCalibration, idCode1, 90) && AT(VantricCalibration, straylightScale, 92) &&
      AT(VantricCalibration, straylightRadius, 96) &&
      AT(VantricCalibration, straylightValue, 152) &&
      AT(VantricCalibration, straylightExponent, 208) &&
      AT(VantricCalibration, straylightOffset, 212) &&
      AT(VantricCalibration, straylightCentre, 216) && AT(VantricCalibration, psfWidth, 220) &&
      AT(VantricCalibration, psfHeight, 224) && AT(VantricCalibration, straylightPointCount, 228) &&
      AT(VantricCalibration, psf, 232) && AT(VantricCalibration, auxFlag, 240) &&
      AT(VantricCalibration, pixelMask, 248) && AT(VantricCalibration, pixelValues, 256) &&
      AT(VantricCalibration, frequencyCount, 264) && AT(VantricCalibration, frequencies, 272) &&
      AT(VantricCalibration, customFieldCount, 280) && AT(VantricCalibration, customFields, 288) &&
      AT(VantricCalibration, firstCustomFieldId, 296) &&
      AT(VantricCalibration, customFieldReserved, 297));
CHECK(sizeof(RXReadResult) == 8 && AT(RXReadResult, status, 0) &&
      AT(RXReadResult, failedBlockId, 4));
CHECK(sizeof(VantricCalibrationHandler) == 48 && AT(VantricCalibrationHandler, supports, 0) &&
      AT(VantricCalibrationHandler, readCalibration, 8) &&
      AT(VantricCalibrationHandler, readCustomFields, 16) &&
      AT(VantricCalibrationHandler, calcPsfAndDirections, 24) &&
      AT(VantricCalibrationHandler, getCalibrationType, 32) &&
      AT(VantricCalibrationHandler, getNumPixels, 40));
CHECK(sizeof(VantricPoly) == 32 && AT(VantricPoly, x, 0) && AT(VantricPoly, y, 8) &&
      AT(VantricPoly, slope, 16) && AT(VantricPoly, count, 24));
CHECK(sizeof(VantricStream) == 24 && AT(VantricStream, data, 0) && AT(VantricStream, position, 8) &&
      AT(VantricStream, size, 16));
CHECK(sizeof(RXHeader) == 8 && AT(RXHeader, version, 0) && AT(RXHeader, columns, 4) &&
      AT(RXHeader, rows, 6));
CHECK(sizeof(RXKind) == 4);
CHECK(sizeof(RXBlockHeader) == 24 && AT(RXBlockHeader, id, 0) && AT(RXBlockHeader, kind, 4) &&
      AT(RXBlockHeader, count, 8) && AT(RXBlockHeader, bits, 12) && AT(RXBlockHeader, scale, 16) &&
      AT(RXBlockHeader, offset, 20));
CHECK(sizeof(RXBlockExpectation) == 20 && AT(RXBlockExpectation, required, 0) &&
      AT(RXBlockExpectation, kindA, 4) && AT(RXBlockExpectation, kindB, 8) &&
      AT(RXBlockExpectation, seen, 12) && AT(RXBlockExpectation, status, 16));
CHECK(sizeof(RXTableEntry) == 56 && AT(RXTableEntry, id, 0) && AT(RXTableEntry, destination, 8) &&
      AT(RXTableEntry, destinationSize, 16) && AT(RXTableEntry, countField, 24) &&
      AT(RXTableEntry, expectedCount, 32) && AT(RXTableEntry, copy, 40) &&
      AT(RXTableEntry, expectation, 48));
CHECK(sizeof(RXBlockTable) == 80 && AT(RXBlockTable, isFrequencyBlock, 0) &&
      AT(RXBlockTable, context, 8) && AT(RXBlockTable, entries, 16) &&
      AT(RXBlockTable, count, 24) && AT(RXBlockTable, capacity, 32) &&
      AT(RXBlockTable, validateBlock, 40) && AT(RXBlockTable, expectations, 48) &&
      AT(RXBlockTable, expectationSize, 56) && AT(RXBlockTable, firstCustomBlockId, 64) &&
      AT(RXBlockTable, validateWholeCalibration, 72));
