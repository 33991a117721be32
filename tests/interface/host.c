// A host in C: cuts a dump into a directory with libcalcut.so, reads the calibration back, and uses
// its record, blocks and a curve.
//
//   c_host DUMP DIRECTORY
#include <calcut/cutter.h>
#include <calcut/vantric.h>
#include <calcut/vantric_rx.h>
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

static void useRecord(const uint8_t* data, size_t size) {
    VantricCalibration* record = NULL;
    EXPECT(vantric_readCalibration(data, size, &record) == VANTRIC_OK);
    const size_t pixels = (size_t)record->imagerArea.columns * record->imagerArea.rows;
    EXPECT((int32_t)pixels == vantric_getRXNumPixels(data, size));
    for (size_t i = 0; i < pixels; ++i) {
        const float* ray = record->directions + 3 * i;
        EXPECT(fabsf(ray[0] * ray[0] + ray[1] * ray[1] + ray[2] * ray[2] - 1.0F) < 1e-5F);
    }
    EXPECT(record->psf != NULL && record->psf[0] == record->straylightCentre);

    float lens[VANTRIC_LENS_PARAMETERS];
    EXPECT(vantric_getFieldSize(0, record) == (int32_t)sizeof lens);
    EXPECT(vantric_getField(0, record, lens) == VANTRIC_OK);
    EXPECT(memcmp(lens, record->lensParameters, sizeof lens) == 0);
    EXPECT(vantric_readCustomFields(data, size, record) == VANTRIC_OK);
    for (uint32_t k = 0; k < vantric_getNumCustomFields(record); ++k) {
        uint8_t value[255];
        const uint32_t id = record->firstCustomFieldId + k;
        EXPECT(vantric_getFieldSize(id, record) == record->customFields[k].size);
        EXPECT(vantric_getField(id, record, value) == VANTRIC_OK);
        EXPECT(memcmp(value, record->customFields[k].data, record->customFields[k].size) == 0);
    }
    VantricCalibration* copy = vantric_copyCalibration(record);
    EXPECT(copy != NULL && copy->directions != NULL && copy->directions != record->directions);
    EXPECT(memcmp(copy->directions, record->directions, pixels * 12) == 0);
    vantric_freeCalibration(copy);
    vantric_freeCalibration(record);
}

static void useBlocks(const uint8_t* data, size_t size) {
    VantricStream stream = vantric_createStreamFromData(data, size);
    RXHeader header;
    RXBlockHeader block = {0, RX_KIND_RAW, 0, 0, 0.0F, 0.0F};
    unsigned blocks = 0;
    EXPECT(vantric_readRXHeader(&stream, &header) == VANTRIC_OK);
    while (vantric_readRXBlockHeader(&stream, &header, &block) == VANTRIC_OK &&
           block.id != VANTRIC_RX_END_MARKER) {
        stream.position += vantric_getRXPackedBlockSize(&block);
        ++blocks;
    }
    EXPECT(blocks > 10 && stream.position == size);
}

int main(int argc, char** argv) {
    EXPECT(argc == 3);
    EEPROMMetaInformation meta;
    EXPECT(cutEEPROMContent(CALCUT_LAYOUT_V7, argv[1], argv[2], &meta) == 0);
    EXPECT(meta.reserved[0] == 0);
    char path[4096];
    float parameters[CALCUT_LENS_PARAMETER_COUNT];
    snprintf(path, sizeof path, "%s/lensdata.dat", argv[2]);
    EXPECT(readLensParameters(CALCUT_LAYOUT_V7, path, parameters) == 0);
    EXPECT(parameters[2] > 0.0F && parameters[9] == 0.0F);

    static uint8_t data[65536];  // more than this dump's calibration
    snprintf(path, sizeof path, "%s/qov.spc", argv[2]);
    FILE* file = fopen(path, "rb");
    EXPECT(file != NULL);
    const size_t size = fread(data, 1, sizeof data, file);
    fclose(file);
    EXPECT(vantric_getCalibrationType(data, size) == 3);
    useRecord(data, size);
    useBlocks(data, size);
    const float nodes[3] = {0.0F, 1.0F, 2.0F};
    VantricPoly* line = vantric_createPolyHandle(nodes, nodes, 3);
    EXPECT(vantric_cinterpol(line, 1.5F) == 1.5F && isnan(vantric_cinterpol(line, 3.0F)));
    vantric_freePoly(line);
    return 0;
}
