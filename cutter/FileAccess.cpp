#include "cutter/FileAccess.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ios>
#include <system_error>

namespace {

// A pipe is not even opened before another process comes, and what passes through has no size.
bool holdsNoBytes(const std::string& path) {
    std::error_code ignored;
    switch (std::filesystem::status(path, ignored).type()) {
        case std::filesystem::file_type::directory:
        case std::filesystem::file_type::fifo:
        case std::filesystem::file_type::socket:
            return true;
        default:
            return false;
    }
}

}  // namespace

FileContent readFile(const std::string& path, std::size_t limit) {
    FileContent content;
    if (holdsNoBytes(path)) {
        return content;
    }
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff end = file.is_open() ? static_cast<std::streamoff>(file.tellg()) : 0;
    if (end <= 0) {
        return content;
    }
    content.size = static_cast<std::uint64_t>(end);
    const std::uint64_t wanted =
        limit == 0 ? content.size : std::min<std::uint64_t>(limit, content.size);
    content.bytes.resize(static_cast<std::size_t>(wanted));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(content.bytes.data()), static_cast<std::streamsize>(wanted));
    return content;
}

ByteBuffer readWholeFile(const std::string& path) {
    return readFile(path, 0).bytes;
}

bool writeWholeFile(const std::string& path, const void* bytes, std::size_t size) {
    if (holdsNoBytes(path)) {
        return false;
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.is_open()) {
        return false;
    }
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    file.close();
    return true;
}
