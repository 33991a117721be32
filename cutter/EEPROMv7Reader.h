#pragma once

#include "cutter/EEPROMReaderBase.h"

/// Reader of the v7 layout.
class CALCUT_EXPORT EEPROMv7Reader final : public EEPROMReaderBase {
  public:
    EEPROMv7Reader();
    ~EEPROMv7Reader();

    /// Not supported: throws a bool of value false.
    DataBlock getDataBlock(unsigned short id) override;
    /// The record at the cursor, id 7. Throws a bool of value false for a bad image; the cursor
    /// then stays.
    DataBlock getNextDataBlock() override;
    /// Not supported: throws a bool of value false.
    bool hasMoreBlocks() override;
};
