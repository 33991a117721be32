// Hidden files and folders that come before what takes its place, and locks between commands.
#pragma once

#include <functional>
#include <string>

namespace calcut::files {

/// Closes a file with the object.
class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    [[nodiscard]] int get() const { return descriptor_; }
    int release();

  private:
    int descriptor_;
};

/// Keeps a folder to this command. The constructor waits, with a warning, while another one has it;
/// it throws Refused when a signal ends the wait or the folder cannot be opened. On file systems
/// without such locks it lets everyone in.
class FolderLock {
  public:
    explicit FolderLock(const std::string& folder);

  private:
    FileDescriptor folder_;
};

/// A new file or folder with a hidden name that nobody else has, locked while this exists. It stays
/// when the object goes.
class Temporary {
  public:
    enum class Kind { File, Folder };
    /// Throws Refused with the path of the folder it is made in.
    Temporary(const std::string& parent, Kind kind);

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] int descriptor() const { return file_.get(); }

  private:
    std::string path_;
    FileDescriptor file_;
};

/// Calls remove for each temporary file or folder that a dead run left in a folder: its lock is
/// free.
void forEachLeftover(const std::string& folder,
                     const std::function<void(const std::string& path)>& remove);

/// Renames, unless something has the new name already (EEXIST). Returns errno, or 0 for success.
int moveWithoutReplacing(const std::string& from, const std::string& to);

}  // namespace calcut::files
