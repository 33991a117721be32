// A file as the command takes it in: loaded once, with a limit, never by opening what can block.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace calcut::files {

using ByteView = std::span<const std::uint8_t>;

/// What is taken of a file.
struct Intake {
    std::uint64_t maxSize = std::uint64_t{256} << 20;  ///< larger files are refused
    std::uint64_t skip = 0;                            ///< so many bytes at the start are left out
    std::size_t swap = 1;  ///< then the bytes of each group of so many are turned around
};

/// Reads a file, or standard input for "-". At most intake.maxSize + 1 bytes are ever read,
/// whatever kind of file it is. Bytes behind the last whole group stay as they are. Nothing is
/// opened that could block for its writer: a FIFO that nobody writes to and a socket are refused.
/// Throws Refused with the path: "No such file or directory", "is a directory", "is empty", "is
/// larger than 256 MiB, the limit for a dump (--max-size)", ...
enum class Kinds : std::uint8_t { Any, OnlyRegular };
std::vector<std::uint8_t> loadDump(const std::string& path, const Intake& intake = {},
                                   Kinds kinds = Kinds::Any);

}  // namespace calcut::files
