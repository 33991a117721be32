#include "Child.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

#if defined(CALCUT_COVERAGE)
extern "C" void __gcov_dump();
#endif

namespace reliability {

namespace {

// A child that does not return from main keeps its counts to itself otherwise.
void writeCoverage([[maybe_unused]] int signal) {
#if defined(CALCUT_COVERAGE)
    __gcov_dump();
    if (signal != 0) {
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
#endif
}

void prepare(unsigned seconds) {
#if defined(CALCUT_COVERAGE)
    std::signal(SIGABRT, writeCoverage);
#endif
    const rlimit noCore = {0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(null, STDERR_FILENO);
    ::alarm(seconds);
}

std::string messageOf(const std::function<std::string()>& work) {
    try {
        return work();
    } catch (const std::exception& failure) {
        return std::string("exception: ") + failure.what();
    }
}

std::string readAll(int file) {
    std::string text;
    char part[512];
    for (ssize_t count; (count = ::read(file, part, sizeof part)) > 0;) {
        text.append(part, static_cast<std::size_t>(count));
    }
    return text;
}

}  // namespace

bool Outcome::aborted() const {
    return signal == SIGABRT;
}

std::string Outcome::text() const {
    return "signal " + std::to_string(signal) + ", exit code " + std::to_string(exitCode) + ", " +
           message;
}

Outcome inChild(const std::function<std::string()>& work, unsigned seconds) {
    int ends[2];
    if (::pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    static_cast<void>(std::fflush(stdout));
    const pid_t child = ::fork();
    if (child == 0) {
        prepare(seconds);
        const std::string message = messageOf(work);
        static_cast<void>(std::fflush(stdout));
        writeCoverage(0);
        const ssize_t written = ::write(ends[1], message.data(), message.size());
        ::_exit(written == static_cast<ssize_t>(message.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    Outcome outcome;
    outcome.message = readAll(ends[0]);
    ::close(ends[0]);
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) {
        throw std::runtime_error("no child process");
    }
    outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    return outcome;
}

void dropPrivileges() {
    constexpr uid_t nobody = 65534;
    if (::getuid() == 0 && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
        throw std::runtime_error("cannot become another user");
    }
}

MemoryUse memoryUse() {
    std::ifstream status("/proc/self/status");
    MemoryUse use = {0, 0};
    for (std::string key; status >> key;) {
        std::size_t kibibytes = 0;
        if (key == "VmRSS:" && status >> kibibytes) {
            use.now = kibibytes * 1024;
        } else if (key == "VmHWM:" && status >> kibibytes) {
            use.peak = kibibytes * 1024;
        }
    }
    return use;
}

}  // namespace reliability
