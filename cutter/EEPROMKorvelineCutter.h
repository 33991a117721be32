#pragma once

#include "cutter/ByteBuffer.h"
#include "cutter/EEPROMCutterBase.h"

/// Cutter of the Korveline layout: "qov.spc", "lensdata.dat" and, for a signed record,
/// "signature.bin".
class CALCUT_EXPORT EEPROMKorvelineCutter final : public EEPROMCutterBase {
  public:
    EEPROMKorvelineCutter();
    ~EEPROMKorvelineCutter() override;

    bool execute() override;
    /// The record of the last execute (or of a write without one); null before.
    EEPROMMetaInformation* getMetaInformation() override;

    /// Writes "qov.spc" and what follows from it. An id other than 7 and 37 ends the process; a
    /// signed block without room for its signature area throws std::length_error.
    bool writeFile(unsigned int blockId, const ByteBuffer& data);
    /// Writes "lensdata.dat" and counts the masked pixels in the meta information.
    bool writeIntrinsics(const ByteBuffer& data);
    /// Writes "signature.bin" from the area at the end of data; false for an empty signature, and
    /// for one longer than the area (then no file is made). Throws std::out_of_range when data is
    /// shorter than the area.
    bool writeSignature(const ByteBuffer& data);
};
