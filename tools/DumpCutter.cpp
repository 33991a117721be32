#include "DumpCutter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <type_traits>

#include <fmt/format.h>

namespace calcut::tools {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t lensFileSize = VANTRIC_LENS_PARAMETERS * sizeof(float);

std::string errnoText() {
    return std::generic_category().message(errno);
}

// The library's own way of joining.
std::string inside(const std::string& directory, const char* name) {
    return directory + "/" + name;
}

int layoutNumber(Layout layout) {
    return layout == Layout::Korveline ? CALCUT_LAYOUT_KORVELINE : CALCUT_LAYOUT_V7;
}

// What the library must have written for this image.
std::vector<WrittenFile> expectedFiles(const Image& image) {
    std::vector<WrittenFile> files{{calibrationFile, image.calibration.size()},
                                   {lensFile, lensFileSize}};
    if (image.signatureArea) {
        files.push_back({signatureFile, image.signature.size()});
    }
    return files;
}

// A refusal that the image does not explain must come from a file that cannot be opened.
std::string whyNotWritten(const Image& image, const std::string& directory) {
    for (const WrittenFile& file : expectedFiles(image)) {
        const std::string path = inside(directory, file.name.c_str());
        std::FILE* opened = std::fopen(path.c_str(), "ab");
        if (opened == nullptr) {
            return fmt::format("cannot write {}: {}", path, errnoText());
        }
        (void)std::fclose(opened);
    }
    return "the library refused it, though nothing is found to be wrong with it";
}

// The library does not report a disk that fills up; the sizes do.
std::string whyIncomplete(const std::vector<WrittenFile>& files, const std::string& directory) {
    for (const WrittenFile& file : files) {
        const std::string path = inside(directory, file.name.c_str());
        struct stat status {};
        if (stat(path.c_str(), &status) != 0) {
            return fmt::format("{} was not written: {}", path, errnoText());
        }
        if (static_cast<std::uint64_t>(status.st_size) != file.size) {
            return fmt::format("{} has {} of {} bytes (is the disk full?)", path, status.st_size,
                               file.size);
        }
    }
    return {};
}

void cutLoaded(CutResult& result, ByteView bytes, const std::string& dump,
               const std::string& directory) {
    if (result.layout == Layout::Packed) {
        result.reason = "is a bare packed calibration, not a dump: there is nothing to cut";
        return;
    }
    const Image image = parseImage(bytes, result.layout);
    if (result.layout == Layout::Unknown) {
        result.reason = describe(*image.fault);
        return;
    }
    const int number = layoutNumber(result.layout);
    EEPROMMetaInformation meta{};
    if (cutEEPROMContent(number, dump.c_str(), directory.c_str(), &meta) != 0) {
        const std::optional<Fault> fault = diagnose(bytes, result.layout);
        result.reason = fault ? describe(*fault) : whyNotWritten(image, directory);
        return;
    }
    result.files = expectedFiles(image);
    result.reason = whyIncomplete(result.files, directory);
    if (!result.reason.empty()) {
        return;
    }
    result.maskedPixels = meta.zeroMaskCount;
    const std::string lensPath = inside(directory, lensFile);
    if (readLensParameters(static_cast<unsigned>(number), lensPath.c_str(), result.lens.data()) !=
        0) {
        result.reason = lensPath + " cannot be read back";
    }
}

// True when the directory holds nothing but what a cut writes.
bool isEarlierCut(const fs::path& directory) {
    const fs::directory_iterator entries(directory);
    return std::all_of(fs::begin(entries), fs::end(entries), [](const fs::directory_entry& entry) {
        const fs::path name = entry.path().filename();
        return entry.is_regular_file() &&
               (name == calibrationFile || name == lensFile || name == signatureFile);
    });
}

// Throws fs::filesystem_error.
std::string moveIntoPlace(const std::string& temporary, const std::string& directory) {
    if (!fs::exists(fs::symlink_status(directory))) {
        fs::rename(temporary, directory);
        return {};
    }
    if (!fs::is_directory(fs::symlink_status(directory)) || !isEarlierCut(directory)) {
        return directory + " exists and is no earlier cut; it is left alone";
    }
    const std::string earlier = temporary + ".earlier";
    fs::rename(directory, earlier);
    fs::rename(temporary, directory);
    fs::remove_all(earlier);
    return {};
}

}  // namespace

std::string whyNoOutput(const std::string& directory) {
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) {
        return errnoText();
    }
    if (!S_ISDIR(status.st_mode)) {
        return "is not a directory";
    }
    return access(directory.c_str(), W_OK | X_OK) == 0 ? std::string() : errnoText();
}

CutResult cutDump(const std::string& dump, std::optional<Layout> layout,
                  const std::string& directory) {
    CutResult result;
    result.layout = layout.value_or(Layout::Unknown);
    try {
        const LoadedFile file = loadFile(dump, Source::RegularFile);
        if (!file.error.empty()) {
            result.reason = file.error;
            return result;
        }
        result.layout = layout.value_or(classify(file.bytes));
        cutLoaded(result, file.bytes, dump, directory);
    } catch (const std::bad_alloc&) {
        result.reason = "not enough memory";
    }
    return result;
}

CutResult cutDumpIntoNew(const std::string& dump, std::optional<Layout> layout,
                         const std::string& directory, const std::string& temporary) {
    CutResult result;
    try {
        fs::create_directory(temporary);
        result = cutDump(dump, layout, temporary);
        if (result.cut()) {
            result.reason = moveIntoPlace(temporary, directory);
        }
    } catch (const fs::filesystem_error& error) {
        result.reason = fmt::format("cannot write {}: {}", directory, error.code().message());
    }
    if (!result.cut()) {
        std::error_code ignored;
        fs::remove_all(temporary, ignored);
    }
    return result;
}

// Both ends are the same program, so numbers go as they lie in memory.
namespace {

class Sender {
  public:
    template <typename T>
    void number(const T& value) {
        static_assert(std::is_trivially_copyable_v<T>);
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void text(const std::string& value) {
        number(value.size());
        bytes_ += value;
    }
    [[nodiscard]] const std::string& bytes() const { return bytes_; }

  private:
    std::string bytes_;
};

class Receiver {
  public:
    explicit Receiver(const std::string& bytes) : bytes_(bytes) {}

    template <typename T>
    void number(T& value) {
        static_assert(std::is_trivially_copyable_v<T>);
        bytes_.copy(reinterpret_cast<char*>(&value), sizeof value, position_);
        position_ += sizeof value;
    }
    void text(std::string& value) {
        std::size_t size = 0;
        number(size);
        value = bytes_.substr(position_, size);
        position_ += size;
    }

  private:
    const std::string& bytes_;
    std::size_t position_ = 0;
};

}  // namespace

std::string serialise(const CutResult& result) {
    Sender out;
    out.number(result.layout);
    out.text(result.reason);
    out.number(result.maskedPixels);
    out.number(result.lens);
    out.number(result.files.size());
    for (const WrittenFile& file : result.files) {
        out.text(file.name);
        out.number(file.size);
    }
    return out.bytes();
}

CutResult deserialise(const std::string& bytes) {
    Receiver in(bytes);
    CutResult result;
    in.number(result.layout);
    in.text(result.reason);
    in.number(result.maskedPixels);
    in.number(result.lens);
    std::size_t files = 0;
    in.number(files);
    result.files.resize(files);
    for (WrittenFile& file : result.files) {
        in.text(file.name);
        in.number(file.size);
    }
    return result;
}

}  // namespace calcut::tools
