#include "cutter/EEPROMCutterBase.h"

#include <utility>

#include "cutter/SkarLog.h"

EEPROMCutterBase::EEPROMCutterBase() = default;

EEPROMCutterBase::~EEPROMCutterBase() = default;

void EEPROMCutterBase::setInputFile(std::string inputFile) {
    inputFile_ = std::move(inputFile);
}

void EEPROMCutterBase::setOutputPath(std::string outputPath) {
    outputPath_ = std::move(outputPath);
}

EEPROMMetaInformation* EEPROMCutterBase::getMetaInformation() {
    return newMetaInformation();
}

// Kept out of line so that the leak checker can name it.
[[gnu::noinline]] EEPROMMetaInformation* EEPROMCutterBase::newMetaInformation() {
    return new EEPROMMetaInformation();
}

bool EEPROMCutterBase::fail(const char* message) {
    skarbo::SkarLog log(skarbo::error);
    log << message;
    return false;
}

std::string EEPROMCutterBase::startCalibrationFile(unsigned int blockId, std::size_t bytes) const {
    std::string path = outputPath_ + "/qov.spc";
    skarbo::SkarLog log(skarbo::info);
    log << "Writing block id " << std::to_string(blockId) << " to " << path << " ("
        << std::to_string(bytes) << " bytes).";
    return path;
}
