#pragma once

#include <cstdint>
#include <string>

#include "calcut/export.h"
#include "cutter/DataBlock.h"

/// Hands out the blocks of a dump. The order of the operations is part of the binary interface.
/// Readers live on the stack of one cut and are never destroyed through this interface.
class CALCUT_EXPORT IEEPROMReader {
  public:
    IEEPROMReader() = default;
    IEEPROMReader(const IEEPROMReader&) = delete;
    IEEPROMReader& operator=(const IEEPROMReader&) = delete;

    virtual void loadFile(std::string path) = 0;
    virtual void releaseMemory() = 0;
    virtual DataBlock getDataBlock(unsigned short id) = 0;
    virtual DataBlock getNextDataBlock() = 0;
    virtual bool hasMoreBlocks() = 0;
    virtual void resetIterator() = 0;

  protected:
    ~IEEPROMReader() = default;
};
