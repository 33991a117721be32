#include "Faults.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>

namespace {

struct Live {
    void* block;
    std::size_t size;
};

const reliability::Refusal* armed = nullptr;
std::uint64_t allocations = 0;
std::array<Live, 4096> live = {};

Live* find(const void* block) {
    return std::find_if(live.begin(), live.end(),
                        [&](const Live& entry) { return entry.block == block; });
}

bool refused(std::size_t size) {
    if (armed == nullptr || ++allocations != armed->which) {
        return false;
    }
    *armed->failedSize = size;
    return true;
}

void* noted(void* block, std::size_t size) {
    if (armed != nullptr && block != nullptr) {
        Live* place = find(nullptr);
        if (place == live.end()) {
            std::abort();
        }
        *place = {block, size};
    }
    return block;
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
    if (Live* place = find(block); block != nullptr && place != live.end()) {
        *place = {};
    }
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

void Refusal::in(const std::function<void()>& work) const {
    armed = this;
    work();
    armed = nullptr;
}

std::size_t liveBlocksExcept(std::size_t size) {
    return static_cast<std::size_t>(std::count_if(live.begin(), live.end(), [&](const Live& entry) {
        return entry.block != nullptr && entry.size != size;
    }));
}

}  // namespace reliability
