#include "cutter/EEPROMCutterBase.h"

// Kept out of line so that the leak checker can name it.
[[gnu::noinline]] EEPROMMetaInformation* newMetaInformation() {
    return new EEPROMMetaInformation();
}

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
