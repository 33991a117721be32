#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// A file to read from. Its size is 0 when it cannot be opened, is empty, or has no size of its own
/// (a directory, pipe or socket; opening a pipe could hang the host).
class InputFile {
  public:
    explicit InputFile(const std::string& path);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    [[nodiscard]] std::uint64_t size() const { return size_; }

    /// Sets the first count bytes. Those that the file turns out not to have, because it shrank
    /// meanwhile, become zero. Once for each file.
    void read(std::uint8_t* to, std::size_t count) const;

  private:
    int file_;
    std::uint64_t size_ = 0;
};

/// Creates or truncates a file and writes size bytes. The result only says whether it could be
/// opened, which a pipe or socket never can: a device that fills up later is not the cut's failure.
bool writeWholeFile(const std::string& path, const void* bytes, std::size_t size);
