#include "WorkerPool.h"

#include <fcntl.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <system_error>
#include <vector>

#include <fmt/format.h>

namespace calcut::tools {

namespace {

// Parent to worker: the item's number. Worker to parent: the result's length, then the result.
using ItemNumber = std::uint64_t;
using ResultLength = std::uint64_t;

// Told apart from every other end of a worker, whose exit statuses are 0 and signals.
constexpr int terminatedExit = 86;

constexpr int keptBytes = 32 << 20;

volatile std::sig_atomic_t interrupted = 0;

void noteInterrupt(int /*signal*/) {
    interrupted = 1;
}

// Blocking calls are to return when the signal comes, so no SA_RESTART.
class InterruptGuard {
  public:
    InterruptGuard() {
        interrupted = 0;
        struct sigaction action {};
        action.sa_handler = noteInterrupt;
        sigaction(SIGINT, &action, &interrupt_);
        sigaction(SIGTERM, &action, &terminate_);
    }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
    ~InterruptGuard() {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGTERM, &terminate_, nullptr);
    }

  private:
    struct sigaction interrupt_ {};
    struct sigaction terminate_ {};
};

bool readAll(int descriptor, void* bytes, std::size_t size) {
    auto* to = static_cast<char*>(bytes);
    while (size > 0) {
        const ssize_t got = read(descriptor, to, size);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        to += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool writeAll(int descriptor, const void* bytes, std::size_t size) {
    const auto* from = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t put = write(descriptor, from, size);
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            return false;
        }
        from += put;
        size -= static_cast<std::size_t>(put);
    }
    return true;
}

constexpr std::size_t noItem = std::numeric_limits<std::size_t>::max();

struct Worker {
    pid_t process = -1;
    int requests = -1;
    int results = -1;
    std::size_t item = noItem;
};

[[noreturn]] void serve(int requests, int results, const ItemWork& work) {
    // An interrupt on the terminal reaches the whole group; what is in work is to be finished.
    (void)std::signal(SIGINT, SIG_IGN);
    (void)std::signal(SIGTERM, SIG_DFL);
    std::set_terminate([] { _exit(terminatedExit); });
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
#ifdef __GLIBC__
    // Every item takes and returns the same megabytes; giving them back to the system in between
    // would cost more than the work itself.
    mallopt(M_MMAP_THRESHOLD, keptBytes);
    mallopt(M_TRIM_THRESHOLD, keptBytes);
#endif
    ItemNumber item = 0;
    while (readAll(requests, &item, sizeof item)) {
        const std::string result = work(static_cast<std::size_t>(item));
        const ResultLength length = result.size();
        if (!writeAll(results, &length, sizeof length) ||
            !writeAll(results, result.data(), result.size())) {
            break;
        }
    }
    _exit(0);
}

std::string deathOf(int status) {
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        return fmt::format("killed by signal {} ({})", signal, strsignal(signal));
    }
    return WEXITSTATUS(status) == terminatedExit
               ? std::string("std::terminate was called")
               : fmt::format("exit status {}", WEXITSTATUS(status));
}

class Pool {
  public:
    Pool(std::size_t count, const ItemWork& work, const ItemDone& done)
        : count_(count), work_(work), done_(done) {}
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() {
        for (Worker& worker : workers_) {
            retire(worker);
        }
    }

    bool run(unsigned workers) {
        const std::size_t wanted = std::min<std::size_t>(std::max(1U, workers), count_);
        while (workers_.size() < wanted && start()) {
        }
        if (workers_.empty() && count_ > 0) {
            throw std::system_error(errno, std::generic_category(),
                                    "cannot start a worker process");
        }
        while (!workers_.empty()) {
            serveResults();
        }
        return interrupted == 0 || next_ == count_;
    }

  private:
    // Starts a worker and gives it an item. errno tells why not.
    bool start() {
        std::array<int, 2> requests{};
        std::array<int, 2> results{};
        if (pipe2(requests.data(), O_CLOEXEC) != 0) {
            return false;
        }
        if (pipe2(results.data(), O_CLOEXEC) != 0) {
            close(requests[0]);
            close(requests[1]);
            return false;
        }
        // Nothing buffered may be written a second time by a child.
        (void)std::fflush(nullptr);
        const pid_t process = fork();
        if (process == 0) {
            close(requests[1]);
            close(results[0]);
            // A worker that held another one's pipe open would keep its end from being noticed.
            for (const Worker& other : workers_) {
                close(other.requests);
                close(other.results);
            }
            serve(requests[0], results[1], work_);
        }
        const int error = errno;
        close(requests[0]);
        close(results[1]);
        if (process < 0) {
            close(requests[1]);
            close(results[0]);
            errno = error;
            return false;
        }
        workers_.push_back({process, requests[1], results[0], noItem});
        assign(workers_.back());
        return true;
    }

    // A worker without a next item is told to end by the end of its pipe.
    void assign(Worker& worker) {
        worker.item = noItem;
        if (next_ == count_ || interrupted != 0) {
            return;
        }
        worker.item = next_++;
        const ItemNumber item = worker.item;
        // Should the worker be gone, the end of its results tells.
        (void)writeAll(worker.requests, &item, sizeof item);
    }

    static int retire(Worker& worker) {
        close(worker.requests);
        close(worker.results);
        int status = 0;
        while (waitpid(worker.process, &status, 0) < 0 && errno == EINTR) {
        }
        return status;
    }

    void serveResults() {
        std::vector<pollfd> waits;
        for (const Worker& worker : workers_) {
            waits.push_back({worker.results, POLLIN, 0});
        }
        if (poll(waits.data(), waits.size(), -1) < 0) {
            if (errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), "cannot wait for workers");
            }
            return;
        }
        // From the back, because workers leave the list.
        for (std::size_t i = waits.size(); i-- > 0;) {
            if (waits[i].revents != 0) {
                takeResult(i);
            }
        }
    }

    void takeResult(std::size_t index) {
        Worker& worker = workers_[index];
        const std::size_t item = worker.item;
        ResultLength length = 0;
        std::string result;
        bool alive = readAll(worker.results, &length, sizeof length);
        if (alive) {
            result.resize(length);
            alive = readAll(worker.results, result.data(), result.size());
        }
        if (alive) {
            assign(worker);
            if (worker.item == noItem) {
                remove(index);
            }
            done_(item, result, "");
            return;
        }
        const std::string death = deathOf(remove(index));
        done_(item, "", death);
        if (next_ < count_ && interrupted == 0 && !start() && workers_.empty()) {
            throw std::system_error(errno, std::generic_category(),
                                    "cannot start a worker process again");
        }
    }

    int remove(std::size_t index) {
        Worker worker = workers_[index];
        workers_.erase(workers_.begin() + static_cast<std::ptrdiff_t>(index));
        return retire(worker);
    }

    std::size_t count_;
    const ItemWork& work_;
    const ItemDone& done_;
    std::size_t next_ = 0;
    std::vector<Worker> workers_;
};

}  // namespace

bool runInWorkers(std::size_t count, unsigned workers, const ItemWork& work, const ItemDone& done) {
    const InterruptGuard guard;
    Pool pool(count, work, done);
    return pool.run(workers);
}

}  // namespace calcut::tools
