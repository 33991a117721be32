#include "cutter/EEPROMReaderBase.h"

#include <utility>

EEPROMReaderBase::EEPROMReaderBase() = default;

EEPROMReaderBase::~EEPROMReaderBase() = default;

void EEPROMReaderBase::loadFile(std::string path) {
    const InputFile file(path);
    requireContent(file);
    ByteBuffer content(static_cast<std::size_t>(file.size()));
    file.read(content.data(), content.size());
    data_ = std::move(content);
    cursor_ = data_.data();
}

void EEPROMReaderBase::releaseMemory() {
    ByteBuffer().swap(data_);
    cursor_ = nullptr;
}

void EEPROMReaderBase::resetIterator() {
    cursor_ = data_.data();
}
