#pragma once

#include <string>

#include "cutter/IEEPROMCutter.h"

/// A zero-filled record. Nobody releases it: it belongs to nobody once the cut is over.
EEPROMMetaInformation* newMetaInformation();

/// What the cutters of all layouts share. Only what hosts call is defined elsewhere than here.
class CALCUT_EXPORT EEPROMCutterBase : public IEEPROMCutter {
  public:
    EEPROMCutterBase();
    ~EEPROMCutterBase() override;

    void setInputFile(std::string inputFile) override;
    void setOutputPath(std::string outputPath) override;
    /// A fresh zero-filled record that belongs to the caller.
    EEPROMMetaInformation* getMetaInformation() override;

  protected:
    /// The record to fill in; a new one when no execute has made it.
    EEPROMMetaInformation& meta() {
        if (metaInformation_ == nullptr) {
            metaInformation_ = newMetaInformation();
        }
        return *metaInformation_;
    }

    std::string inputFile_;
    std::string outputPath_;
    EEPROMMetaInformation* metaInformation_ = nullptr;  ///< null until execute; never released
};
