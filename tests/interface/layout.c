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
typedef VantricWigglingTable Wiggling;
typedef VantricFrequencyRecord Frequency;
typedef VantricCalibration Record;
typedef RXBlockExpectation Expected;
typedef VantricCalibrationHandler Handler;
typedef RXTableEntry Entry;
typedef RXBlockTable Table;
CHECK(sizeof(Wiggling) == 40 && AT(Wiggling, capacity, 0) && AT(Wiggling, first, 8) &&
      AT(Wiggling, second, 16) && AT(Wiggling, third, 24) && AT(Wiggling, header, 32));
CHECK(sizeof(Frequency) == 136 && AT(Frequency, frequencyId, 0) && AT(Frequency, pixelTable, 8) &&
      AT(Frequency, countA, 16) && AT(Frequency, valuesA, 24) && AT(Frequency, countB, 32) &&
      AT(Frequency, valuesB, 40) && AT(Frequency, scalar, 48) && AT(Frequency, wigglingA, 56) &&
      AT(Frequency, wigglingB, 96));
CHECK(sizeof(VantricCustomField) == 16 && AT(VantricCustomField, data, 0) &&
      AT(VantricCustomField, size, 8));
CHECK(sizeof(Record) == 304 && AT(Record, version, 0) && AT(Record, calibrationType, 2) &&
      AT(Record, text0, 8) && AT(Record, text1, 16) && AT(Record, text2, 24) &&
      AT(Record, idBytes, 32) && AT(Record, idBytesSize, 40) && AT(Record, imagerArea, 44) &&
      AT(Record, directions, 64) && AT(Record, lensParameterCount, 72) &&
      AT(Record, lensParameters, 80) && AT(Record, idCode0, 88) && AT(Record, idCode1, 90) &&
      AT(Record, straylightScale, 92) && AT(Record, straylightRadius, 96) &&
      AT(Record, straylightValue, 152) && AT(Record, straylightExponent, 208) &&
      AT(Record, straylightOffset, 212) && AT(Record, straylightCentre, 216) &&
      AT(Record, psfWidth, 220) && AT(Record, psfHeight, 224) &&
      AT(Record, straylightPointCount, 228) && AT(Record, psf, 232) && AT(Record, auxFlag, 240) &&
      AT(Record, pixelMask, 248) && AT(Record, pixelValues, 256) &&
      AT(Record, frequencyCount, 264) && AT(Record, frequencies, 272) &&
      AT(Record, customFieldCount, 280) && AT(Record, customFields, 288) &&
      AT(Record, firstCustomFieldId, 296) && AT(Record, customFieldReserved, 297));
CHECK(sizeof(RXReadResult) == 8 && AT(RXReadResult, status, 0) &&
      AT(RXReadResult, failedBlockId, 4));
CHECK(sizeof(Handler) == 48 && AT(Handler, supports, 0) && AT(Handler, readCalibration, 8) &&
      AT(Handler, readCustomFields, 16) && AT(Handler, calcPsfAndDirections, 24) &&
      AT(Handler, getCalibrationType, 32) && AT(Handler, getNumPixels, 40));
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
CHECK(sizeof(Expected) == 20 && AT(Expected, required, 0) && AT(Expected, kindA, 4) &&
      AT(Expected, kindB, 8) && AT(Expected, seen, 12) && AT(Expected, status, 16));
CHECK(sizeof(Entry) == 56 && AT(Entry, id, 0) && AT(Entry, destination, 8) &&
      AT(Entry, destinationSize, 16) && AT(Entry, countField, 24) && AT(Entry, expectedCount, 32) &&
      AT(Entry, copy, 40) && AT(Entry, expectation, 48));
CHECK(sizeof(Table) == 80 && AT(Table, isFrequencyBlock, 0) && AT(Table, context, 8) &&
      AT(Table, entries, 16) && AT(Table, count, 24) && AT(Table, capacity, 32) &&
      AT(Table, validateBlock, 40) && AT(Table, expectations, 48) &&
      AT(Table, expectationSize, 56) && AT(Table, firstCustomBlockId, 64) &&
      AT(Table, validateWholeCalibration, 72));
