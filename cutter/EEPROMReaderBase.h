#pragma once

#include <cstdint>
#include <string>

#include "cutter/DumpChecks.h"
#include "cutter/IEEPROMReader.h"

/// Loading of the dump, and the block iterator, which the readers of all layouts share.
/// Only what hosts call is defined elsewhere than here.
class CALCUT_EXPORT EEPROMReaderBase : public IEEPROMReader {
  public:
    /// Loads the whole file. A missing, unreadable or empty file ends the process.
    void loadFile(std::string path) override;
    void releaseMemory() override;
    void resetIterator() override;

  protected:
    EEPROMReaderBase();
    ~EEPROMReaderBase();

    /// Index of the cursor in data_; the end when there is no cursor.
    [[nodiscard]] std::uint64_t cursor() const {
        return cursor_ == nullptr ? data_.size()
                                  : static_cast<std::uint64_t>(cursor_ - data_.data());
    }
    /// The block of a record, with the cursor moved behind it. Throws as requireAccepted does.
    DataBlock take(const calcut::image::Record& record) {
        requireAccepted(record);
        cursor_ = data_.data() + record.next;
        const calcut::image::Bytes payload = payloadOf(data_, record);
        return {record.blockId, {payload.begin(), payload.end()}};
    }

    ByteBuffer data_;                       ///< the dump
    const std::uint8_t* cursor_ = nullptr;  ///< next record in data_
};
