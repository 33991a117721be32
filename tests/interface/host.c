// A host in C as one should be: cuts a dump into a directory with libcalcut.so, reads the
// calibration back, and uses its record and a curve. It looks before it cuts.
//
//   c_host DUMP DIRECTORY
#include <calcut/cutter.h>
#include <calcut/status.h>
#include <calcut/vantric.h>
#include <calcut/vantric_rx.h>
#include <calcut/version.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// Ends the program, for what follows builds on it.
#define EXPECT(condition) expect(condition, #condition, __LINE__)

static void expect(int holds, const char* condition, int line) {
    if (!holds) {
        fprintf(stderr, "host.c:%d: %s\n", line, condition);
        exit(1);
    }
}

// Functions of the host's that happen to bear names of the library's: its bounds check, and one
// that every read goes through. The library must not call them.
static void expectNoCall(void) {
    fprintf(stderr, "host.c: the library called a function of its host\n");
    exit(1);
}

uint32_t vantric_canRead(const VantricStream* stream, uint64_t count) {
    (void)stream;
    (void)count;
    expectNoCall();
    return VANTRIC_OK;
}

int32_t vantric_dispatchGetNumPixels(const uint8_t* data, size_t size) {
    (void)data;
    (void)size;
    expectNoCall();
    return 0;
}

// A handler of the host's own is put together from the library's functions, and must be recognised.
static void useHandler(void) {
    const VantricCalibrationHandler own = vantric_getRXCalibrationHandler();
    EXPECT(own.supports == vantric_supportsRXCalibration);
    EXPECT(own.readCalibration == vantric_readRXHandlerCalibration);
    EXPECT(own.readCustomFields == vantric_readRXCustomFields);
    EXPECT(own.calcPsfAndDirections == vantric_calcRXPsfAndDirections);
    EXPECT(own.getCalibrationType == vantric_getRXCalibrationType);
    EXPECT(own.getNumPixels == vantric_getRXNumPixels);
    EXPECT(vantric_registerCalibrationHandler(&own) == 1);
    EXPECT(vantric_registerCalibrationHandler(&own) == 0);
}

static void useFields(const uint8_t* data, size_t size, VantricCalibration* record) {
    float lens[VANTRIC_LENS_PARAMETERS];
    EXPECT(vantric_getFieldSize(VANTRIC_FIELD_LENS_PARAMETERS, record) == (int32_t)sizeof lens);
    EXPECT(vantric_getField(VANTRIC_FIELD_LENS_PARAMETERS, record, lens) == VANTRIC_OK);
    EXPECT(lens[VANTRIC_LENS_FX] == record->lensParameters[VANTRIC_LENS_FX]);
    VantricImagerArea area;
    EXPECT(vantric_getFieldSize(VANTRIC_FIELD_IMAGER_AREA, record) == (int32_t)sizeof area);
    EXPECT(vantric_getField(VANTRIC_FIELD_IMAGER_AREA, record, &area) == VANTRIC_OK);
    EXPECT(area.columns == record->imagerArea.columns && area.rows == record->imagerArea.rows);

    EXPECT(vantric_readCustomFields(data, size, record) == VANTRIC_OK);
    for (uint32_t k = 0; k < vantric_getNumCustomFields(record); ++k) {
        uint8_t value[255];
        const uint32_t id = record->firstCustomFieldId + k;
        EXPECT(vantric_getFieldSize(id, record) == record->customFields[k].size);
        EXPECT(vantric_getField(id, record, value) == VANTRIC_OK);
        EXPECT(memcmp(value, record->customFields[k].data, record->customFields[k].size) == 0);
    }
    EXPECT(record->customFieldCount > 0);
    EXPECT(vantric_readCustomFields(data, size, record) == VANTRIC_ERR_INVALID_ARGUMENT);
}

// Pixels that the mask of the record excludes.
static unsigned useRecord(const uint8_t* data, size_t size) {
    VantricCalibration* record = NULL;
    EXPECT(vantric_readCalibration(data, size, &record) == VANTRIC_OK);
    const size_t pixels = (size_t)record->imagerArea.columns * record->imagerArea.rows;
    EXPECT((int32_t)pixels == vantric_getRXNumPixels(data, size));
    unsigned masked = 0;
    for (size_t i = 0; i < pixels; ++i) {
        const float* ray = record->directions + 3 * i;
        EXPECT(fabsf(ray[0] * ray[0] + ray[1] * ray[1] + ray[2] * ray[2] - 1.0F) < 1e-5F);
        masked += record->pixelMask[i] == 0;
    }
    EXPECT(record->psf != NULL && record->psf[0] == record->straylightCentre);
    EXPECT(record->text0[0] == ' ' && record->text0[1] == '(');
    useFields(data, size, record);
    VantricCalibration* copy = vantric_copyCalibration(record);
    EXPECT(copy != NULL && copy->directions != NULL && copy->directions != record->directions);
    EXPECT(memcmp(copy->directions, record->directions, pixels * 12) == 0);
    vantric_freeCalibration(copy);
    vantric_freeCalibration(record);
    return masked;
}

static void useNames(void) {
    // Every code from 0 up to the last one; 1 and beyond the last one are gaps.
    for (uint32_t code = 0x80000000; code <= 0x8000000D; ++code) {
        const int named = code != 0x80000001 && code <= VANTRIC_WARN_PARTIAL;
        EXPECT((strncmp(vantric_statusName(code), "VANTRIC_", 8) == 0) == named);
        for (uint32_t other = 0x80000000; named && other < code; ++other) {
            EXPECT(strcmp(vantric_statusName(code), vantric_statusName(other)) != 0);
        }
    }
    EXPECT(strcmp(vantric_statusName(VANTRIC_OK), "VANTRIC_OK") == 0);
    char version[32];
    snprintf(version, sizeof version, "%d.%d.%d", CALCUT_VERSION_MAJOR, CALCUT_VERSION_MINOR,
             CALCUT_VERSION_PATCH);
    EXPECT(strcmp(version, CALCUT_VERSION_STRING) == 0 && strcmp(version, BUILT_VERSION) == 0);
    EXPECT(CALCUT_VERSION_NUMBER >= 10000);
}

int main(int argc, char** argv) {
    EXPECT(argc == 3);
    useNames();
    useHandler();
    // A dump that is missing or empty would end the process.
    FILE* file = fopen(argv[1], "rb");
    EXPECT(file != NULL && fgetc(file) != EOF);
    fclose(file);
    EEPROMMetaInformation meta;
    EXPECT(cutEEPROMContent(CALCUT_LAYOUT_V7, argv[1], argv[2], &meta) == 0);
    char path[4096];
    float parameters[CALCUT_LENS_PARAMETER_COUNT];
    snprintf(path, sizeof path, "%s/" CALCUT_LENS_FILE, argv[2]);
    EXPECT(readLensParameters(CALCUT_LAYOUT_V7, path, parameters) == 0);
    EXPECT(parameters[CALCUT_LENS_FX] > 0.0F && parameters[CALCUT_LENS_RESERVED] == 0.0F);

    static uint8_t data[65536];  // more than this dump's calibration
    snprintf(path, sizeof path, "%s/" CALCUT_CALIBRATION_FILE, argv[2]);
    file = fopen(path, "rb");
    EXPECT(file != NULL);
    const size_t size = fread(data, 1, sizeof data, file);
    fclose(file);
    EXPECT(vantric_getCalibrationType(data, size) == 3);
    EXPECT(useRecord(data, size) == meta.zeroMaskCount && meta.zeroMaskCount > 0);
    const float nodes[3] = {0.0F, 1.0F, 2.0F};
    VantricPoly* line = vantric_createPolyHandle(nodes, nodes, 3);
    EXPECT(vantric_cinterpol(line, 1.5F) == 1.5F && isnan(vantric_cinterpol(line, 3.0F)));
    vantric_freePoly(line);
    return 0;
}
