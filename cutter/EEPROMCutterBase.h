#pragma once

#include <cstddef>
#include <string>

#include "cutter/ByteBuffer.h"
#include "cutter/IEEPROMCutter.h"

/// What the cutters of all layouts share.
class CALCUT_EXPORT EEPROMCutterBase : public IEEPROMCutter {
  public:
    EEPROMCutterBase();
    ~EEPROMCutterBase() override;

    void setInputFile(std::string inputFile) override;
    void setOutputPath(std::string outputPath) override;
    /// A fresh zero-filled record that belongs to the caller.
    EEPROMMetaInformation* getMetaInformation() override;

  protected:
    /// A zero-filled record. Nobody releases it: it belongs to nobody once the cut is over.
    CALCUT_INTERNAL static EEPROMMetaInformation* newMetaInformation();
    /// writeIntrinsics of every layout. Makes a record when no execute has.
    CALCUT_INTERNAL bool writeLensFile(const ByteBuffer& calibration);
    /// Composes a log line of type error; always false.
    CALCUT_INTERNAL static bool fail(const char* message);
    /// Path of the calibration file, with the progress line about the block that goes there.
    [[nodiscard]] CALCUT_INTERNAL std::string startCalibrationFile(unsigned int blockId,
                                                                   std::size_t bytes) const;

    std::string inputFile_;
    std::string outputPath_;
    EEPROMMetaInformation* metaInformation_ = nullptr;  ///< null until execute; never released
};
