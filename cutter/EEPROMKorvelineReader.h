#pragma once

#include <memory>

#include "cutter/EEPROMReaderBase.h"

struct KorvelineHeader;

/// Reader of the Korveline layout.
class CALCUT_EXPORT EEPROMKorvelineReader final : public EEPROMReaderBase {
  public:
    EEPROMKorvelineReader();
    ~EEPROMKorvelineReader();

    /// Not supported: throws a bool of value false.
    DataBlock getDataBlock(unsigned short id) override;
    /// The image's payload: id 37 when it ends with a signature area, else 7. Throws a bool of
    /// value false for a bad image; the cursor then stays.
    DataBlock getNextDataBlock() override;
    /// Not supported: throws a bool of value false.
    bool hasMoreBlocks() override;

  private:
    std::unique_ptr<KorvelineHeader> header_;
};
