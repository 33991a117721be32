// Files that the command writes: never one that it also reads, never half a one.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace calcut::files {

/// Identity of a file on this machine.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileIdentity&) const = default;
};

/// Which file an input's path leads to, through links, and what "-" reads; nothing when there is
/// none.
std::optional<FileIdentity> identityOf(const std::string& path);

/// Throws Refused where no file of this path may be written, as far as can be told before the work:
/// it is one of the inputs (the same file, through links too), a directory, in a folder that cannot
/// be written, or (unless forced) a file that exists. Nothing is opened.
void checkWritable(const std::string& path, const std::vector<std::string>& inputs, bool force);

/// The first bytes of a regular file; nothing where none can be read.
std::optional<std::string> startOf(const std::string& path, std::size_t size);

/// Whether a report may take a path unasked: a file there is empty or begins like an earlier report
/// (a pattern of fnmatch for its first 64 bytes). What is no regular file cannot be lost.
bool isFreeForReport(const std::string& path, const std::vector<std::string>& patterns);

/// Writes a file, or standard output for "-". A regular file gets its name only when it is
/// complete; links, devices and pipes that have a reader are written where they are. Throws Refused
/// when that fails, as it does for a socket.
void writeOutput(const std::string& path, std::string_view text);
inline void writeOutput(const std::string& path, std::span<const std::uint8_t> bytes) {
    writeOutput(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

/// Writes all of a text to a descriptor. Returns errno, or 0 for success.
int writeAll(int descriptor, std::string_view text);

/// Makes a directory unless it is there. Returns errno, or 0 for success.
int makeDirectory(const std::string& path);

/// Opens a file with these flags, without waiting for the reader of a pipe, and writes a text
/// there. Returns errno, or 0 for success.
int writeInto(const std::string& path, int flags, std::string_view text);

/// Waits until a file's bytes, or a directory's names, are on the disk. Returns errno, or 0 for
/// success, also where the file system has nothing to wait for.
int syncToDisk(const std::string& path);

}  // namespace calcut::files
