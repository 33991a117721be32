#pragma once

#include <string>

#include "calcut/cutter.h"

/// Cuts one dump into its output files. The order of the operations is part of the binary
/// interface.
class CALCUT_EXPORT IEEPROMCutter {
  public:
    IEEPROMCutter() = default;
    IEEPROMCutter(const IEEPROMCutter&) = delete;
    IEEPROMCutter& operator=(const IEEPROMCutter&) = delete;
    virtual ~IEEPROMCutter() = default;

    virtual void setInputFile(std::string inputFile) = 0;
    /// Directory without a trailing separator.
    virtual void setOutputPath(std::string outputPath) = 0;
    /// True when every file could be opened and had content. Readers' exceptions pass through.
    virtual bool execute() = 0;
    virtual EEPROMMetaInformation* getMetaInformation() = 0;
};
