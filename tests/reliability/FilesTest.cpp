// Directories, devices and files that are not what a cut expects.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include "calcut/cutter.h"
#include "Child.h"
#include "cutter/EEPROMKorvelineCutter.h"
#include "cutter/EEPROMv7Cutter.h"
#include "fixtures.h"

using namespace fixtures;
using namespace reliability;
namespace fs = std::filesystem;

namespace {

// A file that another process cuts short between the moment its size is asked for and the moment
// it is read.
const char* shrinkingFile = nullptr;
off_t shrunkSize = 0;

// What a program that the host started in the middle of a cut would inherit.
bool watching = false;
int used = 0;
int inherited = 0;

void watch(int file) {
    if (watching) {
        ++used;
        inherited += (::fcntl(file, F_GETFD) & FD_CLOEXEC) == 0 ? 1 : 0;
    }
}

}  // namespace

// The library reads and writes through these names; the program's own definitions come first.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t read(int file, void* buffer, size_t count) {
    if (shrinkingFile != nullptr) {
        const int result = ::truncate(shrinkingFile, shrunkSize);
        shrinkingFile = nullptr;
        if (result != 0) {
            return -1;
        }
    }
    watch(file);
    return ::syscall(SYS_read, file, buffer, count);
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t write(int file, const void* buffer, size_t count) {
    watch(file);
    return ::syscall(SYS_write, file, buffer, count);
}

namespace {

class Files : public ::testing::Test {
  protected:
    Files() {
        fs::permissions(directory.path(), fs::perms::all);  // another user works in here
        writeBytes(dump, image);
        makeOut();
    }

    void makeOut() const {
        fs::remove_all(out);
        fs::create_directory(out);
        fs::permissions(out, fs::perms::all);
    }

    void shell(const std::string& line) const {
        ASSERT_EQ(std::system(("cd " + directory.path() + " && { " + line + "; }").c_str()), 0);
    }

    [[nodiscard]] static std::string cut(const std::string& file, const std::string& to) {
        const int result = cutEEPROMContent(CALCUT_LAYOUT_V7, file.c_str(), to.c_str(), nullptr);
        return result == 0 ? "was cut" : result == 1 ? "was refused" : "wrong result";
    }

    [[nodiscard]] static std::string readLens(const std::string& file) {
        float parameters[CALCUT_LENS_PARAMETER_COUNT];
        const int result = readLensParameters(0, file.c_str(), parameters);
        return result == 0 ? "was read" : result == 1 ? "was refused" : "wrong result";
    }

    const Bytes image = v7Image(smallPacked());
    const TempDir directory;
    const std::string dump = directory / "dump";
    const std::string out = directory / "out";
};

TEST_F(Files, OutputsThatCannotBeMade) {
    const std::string file = out + "/qov.spc";
    const std::string tooLong = out + "/" + std::string(5000, 'x');
    const char* const preparations[] = {"rmdir out",
                                        "rmdir out; echo 1 >out",
                                        "chmod 555 out",
                                        "touch out/qov.spc; chmod 444 out/qov.spc",
                                        "mkfifo -m 666 out/qov.spc",
                                        ":"};
    for (std::size_t i = 0; i < std::size(preparations); ++i) {
        makeOut();
        shell(preparations[i]);
        const Outcome outcome = inChild([&] {
            dropPrivileges();
            return cut(dump, i == 5 ? tooLong : out);
        });
        EXPECT_EQ(outcome.message, "was refused") << i << ": " << outcome.text();
        EXPECT_FALSE(fs::exists(out + "/lensdata.dat")) << i;
        EXPECT_EQ(fs::exists(file), i == 3 || i == 4) << i;
    }
}

// Only opening a file counts; what a device does not take is not the cut's failure. Links are
// followed.
TEST_F(Files, FullDeviceAndLinks) {
    fs::create_symlink("/dev/full", out + "/qov.spc");
    fs::create_symlink(dump, directory / "link");
    EXPECT_EQ(cut(directory / "link", out), "was cut");
    EXPECT_EQ(fs::file_size(out + "/lensdata.dat"), 36U);
    fs::create_symlink("/dev/full", directory / "full.dat");
    EXPECT_EQ(readLens(directory / "full.dat"), "was refused");
}

TEST_F(Files, AreClosedOnExec) {
    watching = true;
    const std::string cutting = cut(dump, out);
    const std::string reading = readLens(out + "/lensdata.dat");
    watching = false;
    EXPECT_EQ(cutting + " and " + reading, "was cut and was read");
    EXPECT_GE(used, 4);
    EXPECT_EQ(inherited, 0);
}

TEST_F(Files, DumpsThatCannotBeRead) {
    const std::string odd = directory / "odd";
    const int file = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {AF_UNIX, {}};
    (directory / "socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(file, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(file);
    for (const std::string make :
         {":", ": >odd", "mkdir odd", "mkfifo -m 666 odd", "cp dump odd; chmod 0 odd",
          "mkdir odd; chmod 0 odd", "ln -s odd odd", "ln -s /dev/zero odd", "mv socket odd"}) {
        shell(make);
        const bool closed = make.ends_with("chmod 0 odd");  // to another user
        const std::string path = make.starts_with("mkdir odd;") ? odd + "/dump" : odd;
        const auto asUser = [&](const std::function<std::string()>& work) {
            if (closed) {
                dropPrivileges();
            }
            return work();
        };
        const Outcome cutting = inChild([&] { return asUser([&] { return cut(path, out); }); });
        EXPECT_TRUE(cutting.aborted()) << make << ": " << cutting.text();
        const Outcome reading = inChild([&] { return asUser([&] { return readLens(path); }); });
        EXPECT_EQ(reading.message, "was refused") << make << ": " << reading.text();
        if (closed) {
            fs::permissions(odd, fs::perms::all);
        }
        fs::remove_all(odd);
        EXPECT_TRUE(fs::is_empty(out));
    }
}

// The deliberate end of the process for a block that no reader of this library yields.
TEST_F(Files, BlocksOfUnknownId) {
    EEPROMv7Cutter v7;
    EEPROMKorvelineCutter korveline;
    const auto aborts = [&](auto& cutter, unsigned id) {
        cutter.setOutputPath(out);
        return inChild([&] { return cutter.writeFile(id, Bytes(200)) ? "written" : "refused"; })
            .aborted();
    };
    for (const unsigned id : {0U, 6U, 8U, 36U, 38U, 7U + 65536U}) {
        EXPECT_TRUE(aborts(v7, id) && aborts(korveline, id)) << id;
    }
    EXPECT_TRUE(aborts(v7, 37));
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
        return probe != nullptr ? "no limit" : cut(dump, out);
    });
    if (outcome.message == "no limit") {
        GTEST_SKIP() << "the address space cannot be limited here: emulators do not pass it on";
    }
    EXPECT_EQ(outcome.message, "was refused") << outcome.text();
    EXPECT_TRUE(fs::is_empty(out));
}

// Missing bytes are zeros, so an image is refused, never half used.
TEST_F(Files, FilesThatShrinkWhileTheyAreRead) {
    const auto shrinking = [&](off_t size, const Bytes& whole, const auto& use) {
        const Outcome outcome = inChild([&]() -> std::string {
            writeBytes(dump, whole);
            shrinkingFile = dump.c_str();
            shrunkSize = size;
            const std::string result = use();
            return shrinkingFile == nullptr ? result : "the file was not read";
        });
        return outcome.signal == 0 && outcome.exitCode == 0 ? outcome.message : outcome.text();
    };
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{66}, std::size_t{67},
                                   std::size_t{300}, image.size() - 1}) {
        EXPECT_EQ(shrinking(static_cast<off_t>(size), image, [&] { return cut(dump, out); }),
                  "was refused")
            << size;
        EXPECT_TRUE(fs::is_empty(out)) << size;
    }
    const std::string lens = shrinking(3, Bytes(36, 1), [&] { return readLens(dump); });
    EXPECT_TRUE(lens == "was read" || lens == "was refused") << lens;
}

}  // namespace
