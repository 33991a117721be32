// Allocations that fail on demand. Programs with Faults.cpp are linked with --wrap for malloc,
// calloc and free, so the library's own calls and all of operator new pass through here.
#pragma once

#include <cstddef>
#include <cstdint>

namespace reliability {

/// What happened to the allocations; lies in memory that a parent process shares.
struct Tally {
    std::uint64_t allocations;  ///< tried while armed
    std::uint64_t failedSize;   ///< bytes of the one that was refused; 0 when none was
};

/// Counts every allocation of this thread and, unless failAt is 0, refuses the failAt-th.
class Armed {
  public:
    Armed(Tally& tally, std::uint64_t failAt);
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
    ~Armed();
};

/// Memory that was allocated while armed and has not been released since.
std::size_t liveBlocks();
/// The same, without blocks of that size.
std::size_t liveBlocksExcept(std::size_t size);

}  // namespace reliability
