#include "Scratch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fuzz {

namespace {

std::string parent() {
    const char* chosen = std::getenv("TMPDIR");
    if (chosen != nullptr) {
        return chosen;
    }
    return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

}  // namespace

const Scratch& Scratch::ofThisProcess() {
    static const Scratch scratch;
    return scratch;
}

Scratch::Scratch() : path_(parent() + "/calcut-fuzz-XXXXXX") {
    require(::mkdtemp(path_.data()) != nullptr, "a scratch directory can be made");
    std::filesystem::create_directory(out());
}

Scratch::~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void Scratch::clear() const {
    for (const char* name : {"/qov.spc", "/lensdata.dat", "/signature.bin"}) {
        ::unlink((out() + name).c_str());
    }
}

void Scratch::putDump(const Bytes& image) const {
    const int file = ::open(dump().c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    const ssize_t written = ::write(file, image.data(), image.size());
    ::close(file);
    require(written == static_cast<ssize_t>(image.size()), "a dump can be written");
}

}  // namespace fuzz
