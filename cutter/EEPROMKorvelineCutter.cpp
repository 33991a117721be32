#include "cutter/EEPROMKorvelineCutter.h"

#include "cutter/cutDump.h"
#include "cutter/LensData.h"

namespace {

const calcut::image::Layout& layout() {
    return calcut::image::layouts[CALCUT_LAYOUT_KORVELINE];
}

}  // namespace

EEPROMKorvelineCutter::EEPROMKorvelineCutter() = default;

EEPROMKorvelineCutter::~EEPROMKorvelineCutter() = default;

bool EEPROMKorvelineCutter::execute() {
    metaInformation_ = newMetaInformation();
    return cutDump(layout(), inputFile_, outputPath_, *metaInformation_);
}

EEPROMMetaInformation* EEPROMKorvelineCutter::getMetaInformation() {
    return metaInformation_;
}

bool EEPROMKorvelineCutter::writeFile(unsigned int blockId, const ByteBuffer& data) {
    return writeBlock(layout(), outputPath_, blockId, data, meta());
}

bool EEPROMKorvelineCutter::writeIntrinsics(const ByteBuffer& data) {
    return writeLensData(data, outputPath_, meta());
}

bool EEPROMKorvelineCutter::writeSignature(const ByteBuffer& data) {
    return ::writeSignature(layout(), outputPath_, data);
}
