#include "cutter/EEPROMv7Reader.h"

#include "cutter/v7Image.h"

EEPROMv7Reader::EEPROMv7Reader() = default;

EEPROMv7Reader::~EEPROMv7Reader() = default;

DataBlock EEPROMv7Reader::getDataBlock(unsigned short /*id*/) {
    throw false;
}

bool EEPROMv7Reader::hasMoreBlocks() {
    throw false;
}

DataBlock EEPROMv7Reader::getNextDataBlock() {
    return take(calcut::image::v7::locate(data_, cursor()));
}
