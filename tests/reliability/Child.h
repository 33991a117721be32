// Work that may end its process, hang or eat memory, done in a child process.
#pragma once

#include <functional>
#include <string>

namespace reliability {

struct Outcome {
    int signal = 0;       ///< that ended the child; 0 when it exited
    int exitCode = 0;     ///< nonzero when a sanitizer found something
    std::string message;  ///< what work returned; empty when all was well

    [[nodiscard]] bool aborted() const;
    [[nodiscard]] bool wentWell() const { return signal == 0 && exitCode == 0 && message.empty(); }
    [[nodiscard]] std::string text() const;  ///< all three
};

/// Runs work in a forked child, which is ended after seconds. Its error output is dropped.
Outcome inChild(const std::function<std::string()>& work, unsigned seconds = 60);

/// Gives up root's rights, which no file permission stops. For use in a child.
void dropPrivileges();

/// Bytes of memory in use by this process, and the most that ever were.
struct MemoryUse {
    std::size_t now;
    std::size_t peak;
};
MemoryUse memoryUse();

// Whether memory figures say something about the library: not with a sanitizer's shadow memory or
// an emulator's caches in the same process.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(CALCUT_EMULATED)
constexpr bool measuresMemory = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool measuresMemory = false;
#else
constexpr bool measuresMemory = true;
#endif
#else
constexpr bool measuresMemory = true;
#endif

}  // namespace reliability
