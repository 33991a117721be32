#pragma once

namespace calcut::bench {

/// The compiler has to assume that all memory is read and written here.
inline void clobberMemory() {
    asm volatile("" : : : "memory");
}

/// The compiler has to compute value and to assume that it is used.
template <class Value>
void keep(const Value& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace calcut::bench
