#include "cutter/EEPROMv7Cutter.h"

#include "cutter/cutDump.h"
#include "cutter/LensData.h"

namespace {

const calcut::image::Layout& layout() {
    return calcut::image::layouts[CALCUT_LAYOUT_V7];
}

}  // namespace

EEPROMv7Cutter::EEPROMv7Cutter() = default;

EEPROMv7Cutter::~EEPROMv7Cutter() = default;

bool EEPROMv7Cutter::execute() {
    metaInformation_ = newMetaInformation();
    return cutDump(layout(), inputFile_, outputPath_, *metaInformation_);
}

EEPROMMetaInformation* EEPROMv7Cutter::getMetaInformation() {
    return metaInformation_;
}

bool EEPROMv7Cutter::writeFile(unsigned int blockId, const ByteBuffer& data) {
    return writeBlock(layout(), outputPath_, blockId, data, meta());
}

bool EEPROMv7Cutter::writeIntrinsics(const ByteBuffer& data) {
    return writeLensData(data, outputPath_, meta());
}
