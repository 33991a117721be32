#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "calcut/vantric.h"

// malloc and free for sizes that a file decides: 64 bits wide, checked, never 0.

namespace vantric {

struct FreeDeleter {
    void operator()(void* memory) const noexcept { std::free(memory); }
};

/// Memory from malloc until it is handed to a record.
template <class T>
using Owned = std::unique_ptr<T, FreeDeleter>;

/// count elements, not initialised, or null.
template <class T>
T* allocate(std::uint64_t count) {
    if (count > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T)) {
        return nullptr;
    }
    const auto bytes = static_cast<std::size_t>(count) * sizeof(T);
    return static_cast<T*>(std::malloc(bytes == 0 ? 1 : bytes));
}

/// count elements of zero bytes, or null. The pages of large blocks are not touched.
template <class T>
T* allocateZeroed(std::uint64_t count) {
    if (count > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T)) {
        return nullptr;
    }
    return static_cast<T*>(
        std::calloc(count == 0 ? 1 : static_cast<std::size_t>(count), sizeof(T)));
}

/// A small array of zeros, or null. Cheaper than calloc, which takes several times the instructions
/// of malloc for blocks of this size in glibc.
template <class T, std::size_t count>
T* allocateZeroedArray() {
    T* array = allocate<T>(count);
    if (array != nullptr) {
        constexpr std::array<T, count> zeros = {};
        std::memcpy(array, zeros.data(), sizeof zeros);  // a memset would become a calloc again
    }
    return array;
}

/// For memory without which the library cannot go on: aborts for null.
template <class T>
T* orAbort(T* memory) {
    if (memory == nullptr) {
        std::abort();
    }
    return memory;
}

/// Copies count elements when both sides exist.
template <class T>
void copyElements(T* to, const T* from, std::uint64_t count) {
    if (to != nullptr && from != nullptr && count != 0) {
        std::memcpy(to, from, static_cast<std::size_t>(count) * sizeof(T));
    }
}

}  // namespace vantric
