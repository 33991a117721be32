// Allocations that fail on demand. Programs with Faults.cpp are linked with --wrap for malloc,
// calloc and free, so the library's own calls and all of operator new pass through here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace reliability {

/// One allocation that is to be refused.
struct Refusal {
    std::uint64_t which;      ///< the first one is 1
    std::size_t* failedSize;  ///< gets its bytes; a parent process may share the memory

    /// Runs work, in which it is refused and what is allocated is counted.
    void in(const std::function<void()>& work) const;
};

/// Memory that was allocated in such work and not released since, without blocks of that size.
std::size_t liveBlocksExcept(std::size_t size);

}  // namespace reliability
