#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "cutter/ByteBuffer.h"

/// The first bytes of a file, at most limit of them (0: all), and its whole size. Both are empty
/// for a file that cannot be opened, is empty, or has no size of its own (a directory, pipe or
/// socket; opening a pipe could hang the host). Bytes that the file turns out not to have, because
/// it shrank meanwhile, are zero.
struct FileContent {
    ByteBuffer bytes;
    std::uint64_t size = 0;
};
FileContent readFile(const std::string& path, std::size_t limit);

/// All bytes of a file; empty as above.
ByteBuffer readWholeFile(const std::string& path);

/// Creates or truncates a file and writes size bytes. The result only says whether it could be
/// opened, which a pipe or socket never can: a device that fills up later is not the cut's failure.
bool writeWholeFile(const std::string& path, const void* bytes, std::size_t size);
