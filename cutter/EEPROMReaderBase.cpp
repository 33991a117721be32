#include "cutter/EEPROMReaderBase.h"

#include <utility>

#include "cutter/FileAccess.h"
#include "cutter/SkarLog.h"

EEPROMReaderBase::EEPROMReaderBase() = default;

EEPROMReaderBase::~EEPROMReaderBase() = default;

void EEPROMReaderBase::loadFile(std::string path) {
    ByteBuffer content = readWholeFile(path);
    if (content.empty()) {
        {
            skarbo::SkarLog log(skarbo::error);
            log << "Could not read EEPROM file";
        }
        // Deliberate: with no exception in flight this ends the process. A host that asks for a
        // cut without a dump has lost its module.
        throw;
    }
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

void EEPROMReaderBase::refuse(const char* message) {
    {
        skarbo::SkarLog log(skarbo::error);
        log << message;
    }
    throw false;
}
