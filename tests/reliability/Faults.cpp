#include "Faults.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>

namespace {

using reliability::Tally;

struct Live {
    void* block;
    std::size_t size;
};

thread_local Tally* armed = nullptr;
thread_local std::uint64_t failingOne = 0;
thread_local std::array<Live, 4096> live = {};

bool refused(std::size_t size) {
    if (armed == nullptr || ++armed->allocations != failingOne) {
        return false;
    }
    armed->failedSize = size;
    return true;
}

void* noted(void* block, std::size_t size) {
    if (armed != nullptr && block != nullptr) {
        auto* place = std::find_if(live.begin(), live.end(),
                                   [](const Live& entry) { return entry.block == nullptr; });
        if (place == live.end()) {
            std::abort();
        }
        *place = {block, size};
    }
    return block;
}

void forget(const void* block) {
    auto* place = std::find_if(live.begin(), live.end(),
                               [&](const Live& entry) { return entry.block == block; });
    if (block != nullptr && place != live.end()) {
        *place = {nullptr, 0};
    }
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);

void* __wrap_malloc(std::size_t size) {
    return refused(size) ? nullptr : noted(__real_malloc(size), size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return refused(count * size) ? nullptr : noted(__real_calloc(count, size), count * size);
}

void __wrap_free(void* block) {
    forget(block);
    __real_free(block);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

void* operator new(std::size_t size) {
    void* block = __wrap_malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    __wrap_free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    __wrap_free(block);
}

namespace reliability {

Armed::Armed(Tally& tally, std::uint64_t failAt) {
    tally = {0, 0};
    failingOne = failAt;
    armed = &tally;
}

Armed::~Armed() {
    armed = nullptr;
}

std::size_t liveBlocks() {
    return liveBlocksExcept(0);
}

std::size_t liveBlocksExcept(std::size_t size) {
    return static_cast<std::size_t>(std::count_if(live.begin(), live.end(), [&](const Live& entry) {
        return entry.block != nullptr && (size == 0 || entry.size != size);
    }));
}

}  // namespace reliability
