// A host with a calibration format of its own, whose reader returns a plain status. Valid as C and
// as C++.
#include <calcut/vantric.h>
#include <stdio.h>

static int supportsMine(const uint8_t* data, size_t size) {
    return size == 2 && data[0] == 'M';
}

static uint32_t readMine(const uint8_t* data, size_t size, VantricCalibration* record) {
    (void)size;
    record->pixelMask[0] = data[1];
    return VANTRIC_OK;
}

// The handler's slot wants a status and a block to blame; 255 blames none.
static RXReadResult adapt(const uint8_t* data, size_t size, VantricCalibration* record) {
    const RXReadResult result = {readMine(data, size, record), 255};
    return result;
}

static uint32_t myType(void) {
    return 1000;
}

static int32_t myPixels(const uint8_t* data, size_t size) {
    (void)data;
    (void)size;
    return 1;
}

int main(void) {
    const VantricCalibrationHandler mine = {supportsMine, adapt, NULL, NULL, myType, myPixels};
    const uint8_t data[] = {'M', 7};
    VantricCalibration* record = NULL;
    if (vantric_registerCalibrationHandler(&mine) != 1 ||
        vantric_readCalibration(data, sizeof data, &record) != VANTRIC_OK) {
        return 1;
    }
    printf("type %u, mask %d\n", vantric_getCalibrationType(data, sizeof data),
           record->pixelMask[0]);
    vantric_freeCalibration(record);
    return 0;
}
