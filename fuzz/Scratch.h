#pragma once

#include <string>

#include "targets.h"

namespace fuzz {

/// A directory for one dump and the files cut from it: in memory where there is such a place, gone
/// at the end of the process.
class Scratch {
  public:
    static const Scratch& ofThisProcess();

    Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch();

    [[nodiscard]] std::string dump() const { return path_ + "/dump.bin"; }
    [[nodiscard]] std::string out() const { return path_ + "/out"; }

    /// Removes the files of the last cut.
    void clear() const;
    void putDump(const Bytes& image) const;

  private:
    std::string path_;
};

}  // namespace fuzz
