#include "tools/terminal/Interrupt.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>

namespace calcut::tools {

namespace {

constexpr std::array<int, 3> watched = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> noted = 0;
static_assert(std::atomic<int>::is_always_lock_free);

std::array<struct sigaction, watched.size()> former;

void note(int signal) {
    noted = signal;
}

}  // namespace

InterruptGuard::InterruptGuard() {
    noted = 0;
    for (std::size_t i = 0; i < watched.size(); ++i) {
        struct sigaction action {};
        action.sa_handler = note;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigaction(watched[i], nullptr, &former[i]);
        if (former[i].sa_handler != SIG_IGN) {
            sigaction(watched[i], &action, nullptr);
        }
    }
}

InterruptGuard::~InterruptGuard() {
    for (std::size_t i = 0; i < watched.size(); ++i) {
        sigaction(watched[i], &former[i], nullptr);
    }
}

bool InterruptGuard::interrupted() {
    return noted != 0;
}

void InterruptGuard::raiseNoted() {
    if (noted != 0) {
        (void)std::raise(noted);
    }
}

}  // namespace calcut::tools
