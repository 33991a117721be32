#pragma once

#include <cstdint>
#include <string>

#include "cutter/IEEPROMReader.h"

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

    /// Composes a log line of type error and throws a bool of value false.
    [[noreturn]] CALCUT_INTERNAL static void refuse(const char* message);

    ByteBuffer data_;                       ///< the dump
    const std::uint8_t* cursor_ = nullptr;  ///< next record in data_
};
