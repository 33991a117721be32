#pragma once

#include <cstdint>
#include <string>

#include "cutter/IEEPROMReader.h"
#include "cutter/imageRecord.h"

/// Loading of the dump, and the block iterator, which the readers of all layouts share.
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
    [[nodiscard]] CALCUT_INTERNAL std::uint64_t cursor() const;
    /// The block of a record, with the cursor moved behind it; for a refused record composes the
    /// log line of type error and throws a bool of value false.
    CALCUT_INTERNAL DataBlock take(const calcut::image::Record& record);

    ByteBuffer data_;                       ///< the dump
    const std::uint8_t* cursor_ = nullptr;  ///< next record in data_
};
