// Loaded before the C library: a file system that knows neither exchange nor a rename that replaces
// nothing, and on which only the first RENAMES renames succeed. With FOREIGN, the folder of that
// name takes the place of the first one that is exchanged, just before, and no later exchange
// succeeds.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

extern "C" {

int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
              unsigned flags) noexcept {
    static const char* foreign = std::getenv("FOREIGN");
    const auto exchange = [&](const char* name) {
        return static_cast<int>(syscall(SYS_renameat2, fromFolder, name, toFolder, to, flags));
    };
    if (flags == RENAME_EXCHANGE && foreign != nullptr &&
        exchange(std::exchange(foreign, nullptr)) == 0) {
        return exchange(from);
    }
    errno = EINVAL;
    return -1;
}

int rename(const char* from, const char* to) noexcept {
    static int left = std::getenv("RENAMES") != nullptr ? std::atoi(std::getenv("RENAMES")) : 1000;
    if (left-- <= 0) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, -100, from, -100, to, 0));
}

}  // extern "C"
