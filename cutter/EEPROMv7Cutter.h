#pragma once

#include "cutter/ByteBuffer.h"
#include "cutter/EEPROMCutterBase.h"

/// Cutter of the v7 layout: "qov.spc" and "lensdata.dat".
class CALCUT_EXPORT EEPROMv7Cutter final : public EEPROMCutterBase {
  public:
    EEPROMv7Cutter();
    ~EEPROMv7Cutter() override;

    bool execute() override;
    /// The record of the last execute (or of a write without one); null before.
    EEPROMMetaInformation* getMetaInformation() override;

    /// Writes "qov.spc" and what follows from it. An id other than 7 ends the process.
    bool writeFile(unsigned int blockId, const ByteBuffer& data);
    /// Writes "lensdata.dat" and counts the masked pixels in the meta information.
    bool writeIntrinsics(const ByteBuffer& data);
};
