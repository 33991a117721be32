// Directories, devices and files that are not what a cut expects.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "calcut/cutter.h"
#include "Child.h"
#include "cutter/EEPROMKorvelineCutter.h"
#include "cutter/EEPROMv7Cutter.h"
#include "fixtures.h"

using namespace reliability;
using fixtures::Bytes;
namespace fs = std::filesystem;

namespace {

// A file that another process cuts short between the moment its size is asked for and the moment
// it is read.
const char* shrinkingFile = nullptr;
off_t shrunkSize = 0;

}  // namespace

// The standard library reads files through this name, so the program's own definition comes first.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t read(int file, void* buffer, size_t count) {
    if (shrinkingFile != nullptr) {
        const int result = ::truncate(shrinkingFile, shrunkSize);
        shrinkingFile = nullptr;
        if (result != 0) {
            return -1;
        }
    }
    return ::syscall(SYS_read, file, buffer, count);
}

namespace {

const Bytes& image() {
    static const Bytes bytes = fixtures::v7Image(fixtures::smallPacked());
    return bytes;
}

int cut(const std::string& dump, const std::string& out, EEPROMMetaInformation* meta = nullptr) {
    return cutEEPROMContent(CALCUT_LAYOUT_V7, dump.c_str(), out.c_str(), meta);
}

class Files : public ::testing::Test {
  protected:
    Files() {
        fs::permissions(directory.path(), fs::perms::all);  // another user works in here
        fixtures::writeBytes(dump, image());
        fs::create_directory(out);
        fs::permissions(out, fs::perms::all);
    }

    fixtures::TempDir directory;
    std::string dump = directory / "dump";
    std::string out = directory / "out";
};

TEST_F(Files, OutputsThatCannotBeMade) {
    struct Case {
        const char* name;
        std::function<void()> prepare;
        std::vector<std::string> written;  // regular files in the output directory afterwards
    };
    const std::vector<Case> cases = {
        {"directory missing", [&] { fs::remove(out); }, {}},
        {"directory is a file",
         [&] {
             fs::remove(out);
             fixtures::writeBytes(out, {1});
         },
         {}},
        {"directory read-only", [&] { fs::permissions(out, fs::perms(0555)); }, {}},
        {"calibration file is a directory", [&] { fs::create_directory(out + "/qov.spc"); }, {}},
        {"calibration file read-only",
         [&] {
             fixtures::writeBytes(out + "/qov.spc", {});
             fs::permissions(out + "/qov.spc", fs::perms(0444));
         },
         {"qov.spc"}},
        {"lens file is a directory",
         [&] { fs::create_directory(out + "/lensdata.dat"); },
         {"qov.spc"}},
        {"path too long",
         [&] {
             fs::remove(out);
             out += "/" + std::string(5000, 'x');
         },
         {}},
    };
    for (const Case& each : cases) {
        out = directory / "out";
        fs::remove_all(out);
        fs::create_directory(out);
        fs::permissions(out, fs::perms::all);
        each.prepare();
        const Outcome outcome = inChild(
            [&]() -> std::string {
                dropPrivileges();
                return cut(dump, out) == 1 ? "" : "was cut";
            },
            20);
        EXPECT_TRUE(outcome.wentWell()) << each.name << ": " << outcome.message << outcome.signal;
        std::vector<std::string> written;
        std::error_code missing;
        for (const auto& entry : fs::directory_iterator(out, missing)) {
            if (entry.is_regular_file()) {
                written.push_back(entry.path().filename().string());
            }
        }
        EXPECT_EQ(written, each.written) << each.name;
        fs::permissions(directory / "out", fs::perms::all, missing);
    }
}

TEST_F(Files, SignatureFileThatCannotBeMade) {
    calcut::writer::KorvelineOptions options;
    options.signature = Bytes(32, 7);
    fixtures::writeBytes(dump,
                         calcut::writer::makeKorvelineImage(fixtures::smallPacked(), options));
    fs::create_directory(out + "/signature.bin");
    EEPROMMetaInformation meta;
    std::memset(&meta, 0xA5, sizeof meta);
    EXPECT_EQ(cutEEPROMContent(CALCUT_LAYOUT_KORVELINE, dump.c_str(), out.c_str(), &meta), 1);
    EXPECT_TRUE(fs::is_regular_file(out + "/lensdata.dat"));
    EXPECT_EQ(meta.reserved[0], 0);  // the image itself was accepted
}

// Only opening a file counts; what a device does not take is not the cut's failure.
TEST_F(Files, FullDevice) {
    fs::create_symlink("/dev/full", out + "/qov.spc");
    EXPECT_EQ(cut(dump, out), 0);
    EXPECT_EQ(fs::file_size(out + "/lensdata.dat"), 36U);
    fs::create_symlink("/dev/full", directory / "full.dat");
    float parameters[CALCUT_LENS_PARAMETER_COUNT];
    EXPECT_EQ(readLensParameters(0, (directory / "full.dat").c_str(), parameters), 1);
}

TEST_F(Files, DumpsThatCannotBeRead) {
    const std::string odd = directory / "odd";
    struct Case {
        const char* name;
        std::function<void()> make;
        bool asAnotherUser = false;
    };
    const std::vector<Case> cases = {
        {"missing", [] {}},
        {"empty", [&] { fixtures::writeBytes(odd, {}); }},
        {"directory", [&] { fs::create_directory(odd); }},
        {"pipe", [&] { ASSERT_EQ(::mkfifo(odd.c_str(), 0666), 0); }},
        {"unreadable",
         [&] {
             fixtures::writeBytes(odd, image());
             fs::permissions(odd, fs::perms::none);
         },
         true},
        {"in an unreadable directory",
         [&] {
             fs::create_directory(odd);
             fs::permissions(odd, fs::perms::none);
         },
         true},
        {"endless loop of links", [&] { fs::create_symlink(odd, odd); }},
        {"character device", [&] { fs::create_symlink("/dev/zero", odd); }},
        {"socket",
         [&] {
             const int file = ::socket(AF_UNIX, SOCK_STREAM, 0);
             sockaddr_un address = {AF_UNIX, {}};
             odd.copy(address.sun_path, sizeof address.sun_path - 1);
             ASSERT_EQ(::bind(file, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
             ::close(file);
         }},
    };
    for (const Case& each : cases) {
        each.make();
        const std::string path =
            std::string(each.name) == "in an unreadable directory" ? odd + "/dump" : odd;
        const Outcome cutting = inChild(
            [&]() -> std::string {
                if (each.asAnotherUser) {
                    dropPrivileges();
                }
                return "result " + std::to_string(cut(path, out));
            },
            20);
        EXPECT_TRUE(cutting.aborted()) << each.name << ": " << cutting.message << cutting.signal;
        const Outcome reading = inChild(
            [&]() -> std::string {
                if (each.asAnotherUser) {
                    dropPrivileges();
                }
                float parameters[CALCUT_LENS_PARAMETER_COUNT];
                return readLensParameters(0, path.c_str(), parameters) == 1 ? ""
                                                                            : "lens file was read";
            },
            20);
        EXPECT_TRUE(reading.wentWell()) << each.name << ": " << reading.message << reading.signal;
        std::error_code ignored;
        fs::permissions(odd, fs::perms::all, fs::perm_options::replace | fs::perm_options::nofollow,
                        ignored);
        fs::remove_all(odd);
        EXPECT_TRUE(fs::is_empty(out));
    }
}

// The deliberate end of the process for a block that no reader of this library yields.
TEST_F(Files, BlocksOfUnknownId) {
    for (const unsigned id : {0U, 6U, 8U, 36U, 38U}) {
        const Outcome v7 = inChild(
            [&]() -> std::string {
                EEPROMv7Cutter cutter;
                cutter.setOutputPath(out);
                return cutter.writeFile(id, image()) ? "was written" : "was refused";
            },
            20);
        const Outcome korveline = inChild(
            [&]() -> std::string {
                EEPROMKorvelineCutter cutter;
                cutter.setOutputPath(out);
                return cutter.writeFile(id, image()) ? "was written" : "was refused";
            },
            20);
        EXPECT_TRUE(v7.aborted()) << id << v7.message;
        EXPECT_TRUE(korveline.aborted()) << id << korveline.message;
    }
    EXPECT_TRUE(fs::is_empty(out));
}

TEST_F(Files, DumpLargerThanMemoryAllows) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs the address space that this test takes away";
#endif
    constexpr std::uintmax_t size = std::uintmax_t{64} << 30;
    fs::resize_file(dump, size);
    const Outcome outcome = inChild([&]() -> std::string {
        const rlimit limit = {rlim_t{4} << 30, rlim_t{4} << 30};
        ::setrlimit(RLIMIT_AS, &limit);
        const std::unique_ptr<void, decltype(&std::free)> probe(std::malloc(size / 2), &std::free);
        if (probe != nullptr) {
            return "no limit";  // an emulator does not pass it on
        }
        return cut(dump, out) == 1 ? "" : "was cut";
    });
    if (outcome.message == "no limit") {
        GTEST_SKIP() << "the address space cannot be limited here";
    }
    EXPECT_TRUE(outcome.wentWell()) << outcome.message << outcome.signal;
    EXPECT_TRUE(fs::is_empty(out));
}

TEST_F(Files, DumpThatShrinksWhileItIsRead) {
    for (const off_t size : {off_t{0}, off_t{1}, off_t{66}, off_t{67}, off_t{300},
                             static_cast<off_t>(image().size()) - 1}) {
        const Outcome outcome = inChild(
            [&]() -> std::string {
                fixtures::writeBytes(dump, image());
                shrinkingFile = dump.c_str();
                shrunkSize = size;
                const int result = cut(dump, out);
                if (shrinkingFile != nullptr) {
                    return "the file was not read";
                }
                // Missing bytes are zeros, so the image is refused, never half used.
                return result == 1 ? "" : "result " + std::to_string(result);
            },
            20);
        EXPECT_TRUE(outcome.wentWell()) << size << ": " << outcome.message << outcome.signal;
        EXPECT_TRUE(fs::is_empty(out)) << size;
    }
}

TEST_F(Files, LensFileThatShrinksWhileItIsRead) {
    const Outcome outcome = inChild(
        [&]() -> std::string {
            fixtures::writeBytes(dump, Bytes(36, 1));
            shrinkingFile = dump.c_str();
            shrunkSize = 3;
            float parameters[CALCUT_LENS_PARAMETER_COUNT];
            const int result = readLensParameters(0, dump.c_str(), parameters);
            return result == 0 || result == 1 ? "" : "result " + std::to_string(result);
        },
        20);
    EXPECT_TRUE(outcome.wentWell()) << outcome.message << outcome.signal;
}

TEST_F(Files, LinksAreFollowed) {
    fs::create_symlink(dump, directory / "link");
    EXPECT_EQ(cut(directory / "link", out), 0);
    EXPECT_TRUE(fs::is_regular_file(out + "/lensdata.dat"));
}

}  // namespace
