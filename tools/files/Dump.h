// A file as the command takes it in: loaded once, with a limit, never by opening what can block.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace calcut::files {

using ByteView = std::span<const std::uint8_t>;

/// What can be a dump, unless --max-size says otherwise.
inline constexpr std::uint64_t defaultMaxSize = std::uint64_t{256} << 20;

/// Identity of a file on this machine, through links too.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileIdentity&) const = default;
};

/// The content of a file.
struct Dump {
    std::vector<std::uint8_t> bytes;
    std::optional<FileIdentity> identity{};  ///< none for standard input
};

/// Reads a file, or standard input for "-". At most maxSize + 1 bytes are ever read, whatever kind
/// of file it is. Nothing is opened that could block for its writer: a FIFO that nobody writes to
/// and a socket are refused. Throws Refused with the path: "No such file or directory", "is a
/// directory", "is empty", "is larger than 256 MiB, the limit for a dump (--max-size)", ...
enum class Kinds : std::uint8_t { Any, OnlyRegular };
Dump loadDump(const std::string& path, std::uint64_t maxSize = defaultMaxSize,
              Kinds kinds = Kinds::Any);

}  // namespace calcut::files
