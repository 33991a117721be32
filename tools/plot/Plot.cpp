#include "tools/plot/Plot.h"

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>

#include <fmt/format.h>

#include "tools/files/Inputs.h"
#include "tools/files/OutputFile.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::plot {

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

/// How calcut-plot is called, which lies beside the command or in ../libexec/calcut. CALCUT_PYTHON
/// names another interpreter than the one it was installed for.
Words program() {
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (const fs::path& path :
         {folder / "calcut-plot", folder / "../libexec/calcut/calcut-plot"}) {
        if (fs::exists(path, error)) {
            const char* python = std::getenv("CALCUT_PYTHON");
            return python != nullptr && *python != '\0' ? Words{python, path} : Words{path};
        }
    }
    throw text::Refused(
        "",
        "calcut-plot is not installed (Debian: apt-get install python3-calcut; or build calcut "
        "with its Python module)");
}

[[noreturn]] void refuseToRun(const Words& words, int error) {
    throw text::Refused(words.front(),
                        "{}; drawing needs Python (Debian: apt-get install python3 "
                        "python3-numpy python3-matplotlib)",
                        text::errnoText(error));
}

std::vector<char*> argumentsOf(Words& words) {
    std::vector<char*> arguments(words.size() + 1);
    std::ranges::transform(words, arguments.begin(), [](std::string& word) { return word.data(); });
    return arguments;
}

void addCommon(Words& words, const std::optional<module::Layout>& layout) {
    words.insert(words.end(), {"--layout", layout ? layout->name : "auto", "--error",
                               text::paint(stderr, text::Colour::Red, "calcut:")});
}

/// A file in memory that a child process finds under its path.
class SharedFile {
  public:
    explicit SharedFile(files::ByteView bytes = {}) : descriptor_(memfd_create("calcut", 0)) {
        const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        const int error = descriptor_ < 0 ? errno : files::writeAll(descriptor_, text);
        if (error != 0) {
            throw text::Refused("", "no room for a picture: {}", text::errnoText(error));
        }
    }
    SharedFile(const SharedFile&) = delete;
    SharedFile& operator=(const SharedFile&) = delete;
    ~SharedFile() { (void)close(descriptor_); }

    [[nodiscard]] int descriptor() const { return descriptor_; }
    [[nodiscard]] std::string path() const { return fmt::format("/proc/self/fd/{}", descriptor_); }

  private:
    int descriptor_;
};

/// Runs a program with its standard output in the file. Returns what waitpid tells.
int runInto(const SharedFile& file, Words words) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, file.descriptor(), STDOUT_FILENO);
    pid_t child = 0;
    const int error = posix_spawnp(&child, words.front().c_str(), &actions, nullptr,
                                   argumentsOf(words).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        refuseToRun(words, error);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

std::string kindOf(const std::string& name) {
    return name == "-" ? ".png" : fs::path(name).extension().string();
}

std::string pictureOf(const std::string& input, std::string name) {
    constexpr std::string_view pattern = "{stem}";
    const std::string stem = files::stemOf(input);
    for (std::size_t at = 0; (at = name.find(pattern, at)) != std::string::npos;
         at += stem.size()) {
        name.replace(at, pattern.size(), stem);
    }
    return name;
}

bool isPicture(const std::string& path) {
    constexpr std::size_t looked = 5;
    const std::string start = files::startOf(path, looked).value_or("");
    return start.starts_with("\x89PNG") || start == "<?xml" || start.starts_with("%PDF");
}

/// Pictures of an earlier run that lie in a folder of dumps are no inputs.
std::vector<files::Input> inputsOf(const PlotOptions& options) {
    files::InputSources sources{.paths = options.inputs};
    std::string last = "-";
    for (const files::Input& input : files::gatherInputs(sources)) {
        const std::string picture = pictureOf(input.path, options.output);
        if (picture != last && isPicture(picture)) {
            sources.leftOut.push_back(picture);
        }
        last = picture;
    }
    return files::gatherInputs(sources);
}

/// The picture of each input. Several inputs can be drawn into one file only where it has pages.
std::vector<std::string> pictureNames(const PlotOptions& options) {
    std::vector<std::string> names;
    std::map<std::string, std::string> inputOf;
    for (const std::string& input : options.inputs) {
        const std::string name = pictureOf(input, options.output);
        const auto [other, isNew] = inputOf.try_emplace(name, input);
        if (!isNew && kindOf(name) != ".pdf") {
            throw text::Refused(name,
                                "{} and {} would both be drawn into it (several dumps need "
                                "{{stem}} in the name, or a .pdf)",
                                text::escapePath(other->second), text::escapePath(input));
        }
        names.push_back(name);
    }
    return names;
}

}  // namespace

bool isPictureName(const std::string& name) {
    const std::string kind = kindOf(name);
    return kind == ".png" || kind == ".svg" || kind == ".pdf";
}

int runPlot(const PlotOptions& given) {
    PlotOptions options = given;
    options.inputs.clear();
    std::size_t refused = 0;
    for (const files::Input& input : inputsOf(given)) {
        if (input.refusal) {
            text::printError(input.path, *input.refusal);
            ++refused;
        } else {
            options.inputs.push_back(input.path);
        }
    }
    if (options.inputs.empty()) {
        return exitFailed;
    }
    Words words = program();
    addCommon(words, options.reading.layout);
    const auto& [maxSize, skip, swap] = options.reading.intake;
    words.insert(words.end(),
                 {"--max-size", fmt::to_string(maxSize), "--skip", fmt::to_string(skip), "--swap",
                  fmt::to_string(swap), "--failed", fmt::to_string(refused)});
    const auto addFlag = [&words](bool isSet, const char* flag) {
        words.insert(words.end(), isSet ? 1 : 0, flag);
    };
    addFlag(options.sharedScale, "--shared-scale");
    addFlag(options.damaged, "--damaged");
    addFlag(text::terminal().verbosity == text::Verbosity::Quiet, "--quiet");
    words.emplace_back("--");
    const std::vector<std::string> names = pictureNames(options);
    for (std::size_t i = 0; i < names.size(); ++i) {
        files::checkWritable(names[i], options.inputs, options.force);
        words.insert(words.end(), {names[i], options.inputs[i]});
    }
    text::finishStdout();
    execvp(words.front().c_str(), argumentsOf(words).data());
    refuseToRun(words, errno);
}

std::vector<std::uint8_t> drawDifferences(const Differences& of) {
    const SharedFile ofA(of.a.file);
    const SharedFile ofB(of.b.file);
    const SharedFile picture;
    Words words = program();
    addCommon(words, of.layout);
    if (of.tolerance) {
        words.insert(words.end(), {"--tolerance", fmt::format("{}", *of.tolerance)});
    }
    words.insert(words.end(), {"--differences", "--", kindOf(of.output).substr(1), of.paths[0],
                               ofA.path(), of.paths[1], ofB.path()});
    const int status = runInto(picture, std::move(words));
    const off_t size = lseek(picture.descriptor(), 0, SEEK_END);
    std::vector<std::uint8_t> bytes(status == 0 && size > 0 ? static_cast<std::size_t>(size) : 0);
    if (bytes.empty() || pread(picture.descriptor(), bytes.data(), bytes.size(), 0) != size) {
        throw text::Refused(of.output,
                            WIFSIGNALED(status)
                                ? fmt::format("not drawn: ended by signal {}", WTERMSIG(status))
                                : "not drawn");
    }
    return bytes;
}

}  // namespace calcut::plot
