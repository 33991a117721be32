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

std::uint64_t EEPROMReaderBase::cursor() const {
    return cursor_ == nullptr ? data_.size() : static_cast<std::uint64_t>(cursor_ - data_.data());
}

DataBlock EEPROMReaderBase::take(const calcut::image::Record& record) {
    if (record.refusal) {
        {
            skarbo::SkarLog log(skarbo::error);
            log << record.refusal->message;
        }
        throw false;
    }
    cursor_ = data_.data() + record.next;
    DataBlock block{record.blockId, {}};
    if (record.payloadLength != 0) {
        const std::uint8_t* payload = data_.data() + record.payloadOffset;
        block.data.assign(payload, payload + record.payloadLength);
    }
    return block;
}
