#include "cutter/EEPROMCutterBase.h"

#include "cutter/LensData.h"
#include "cutter/SkarLog.h"

EEPROMCutterBase::EEPROMCutterBase() = default;

EEPROMCutterBase::~EEPROMCutterBase() = default;

// Copies: a caller with an allocator of its own keeps its buffer.
void EEPROMCutterBase::setInputFile(std::string inputFile) {
    inputFile_.assign(inputFile.data(), inputFile.size());
}

void EEPROMCutterBase::setOutputPath(std::string outputPath) {
    outputPath_.assign(outputPath.data(), outputPath.size());
}

EEPROMMetaInformation* EEPROMCutterBase::getMetaInformation() {
    return newMetaInformation();
}

// Kept out of line so that the leak checker can name it.
[[gnu::noinline]] EEPROMMetaInformation* EEPROMCutterBase::newMetaInformation() {
    return new EEPROMMetaInformation();
}

bool EEPROMCutterBase::writeLensFile(const ByteBuffer& calibration) {
    if (metaInformation_ == nullptr) {
        metaInformation_ = newMetaInformation();
    }
    return writeLensData(calibration, outputPath_, *metaInformation_);
}

bool EEPROMCutterBase::fail(const char* message) {
    skarbo::SkarLog log(skarbo::error);
    log << message;
    return false;
}

std::string EEPROMCutterBase::startCalibrationFile(unsigned int blockId, std::size_t bytes) const {
    std::string path = outputPath_ + "/" CALCUT_CALIBRATION_FILE;
    skarbo::SkarLog log(skarbo::info);
    log << "Writing block id " << std::to_string(blockId) << " to " << path << " ("
        << std::to_string(bytes) << " bytes).";
    return path;
}
