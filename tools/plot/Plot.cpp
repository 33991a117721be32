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

#include "tools/commands.h"
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
    std::vector<char*> arguments;
    std::ranges::transform(words, std::back_inserter(arguments),
                           [](std::string& word) { return word.data(); });
    arguments.push_back(nullptr);
    return arguments;
}

void addReading(Words& words, const module::Reading& reading) {
    const auto& [maxSize, skip, swap] = reading.intake;
    words.insert(words.end(), {"--layout", reading.layout ? reading.layout->name : "auto",
                               "--max-size", fmt::to_string(maxSize), "--skip",
                               fmt::to_string(skip), "--swap", fmt::to_string(swap), "--error",
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

}  // namespace

bool isPictureName(const std::string& name) {
    const std::string kind = kindOf(name);
    return kind == ".png" || kind == ".svg" || kind == ".pdf";
}

std::vector<std::string> pictureNames(const PlotOptions& options) {
    constexpr std::string_view stem = "{stem}";
    std::vector<std::string> names;
    std::map<std::string, std::string> inputOf;
    for (const std::string& input : options.inputs) {
        std::string name = options.output;
        if (const std::size_t at = name.find(stem); at != std::string::npos) {
            name.replace(at, stem.size(), input == "-" ? "stdin" : fs::path(input).stem().string());
        }
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

int runPlot(const PlotOptions& given) {
    PlotOptions options = given;
    files::InputSources sources;
    sources.paths = std::exchange(options.inputs, {});
    for (const files::Input& input : files::gatherInputs(sources)) {
        // What holds nothing is told by who draws, with the others.
        options.inputs.push_back(input.path);
    }
    Words words = program();
    addReading(words, options.reading);
    const std::pair<bool, const char*> flags[] = {
        {options.sharedScale, "--shared-scale"},
        {options.damaged, "--damaged"},
        {text::terminal().verbosity == text::Verbosity::Quiet, "--quiet"}};
    for (const auto& [isSet, flag] : flags) {
        if (isSet) {
            words.emplace_back(flag);
        }
    }
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

std::vector<std::uint8_t> drawDifferences(const module::Diagnosis& a, const module::Diagnosis& b,
                                          const compare::CompareOptions& options) {
    const SharedFile ofA(a.file);
    const SharedFile ofB(b.file);
    const SharedFile picture;
    Words words = program();
    addReading(words, options.reading);
    for (const auto& [name, tolerance] : options.tolerances.absolute) {
        words.insert(words.end(), {"--tolerance", fmt::format("{}", tolerance)});
    }
    words.insert(words.end(), {"--differences", "--", kindOf(options.output).substr(1),
                               options.paths[0], ofA.path(), options.paths[1], ofB.path()});
    const int status = runInto(picture, std::move(words));
    const off_t size = lseek(picture.descriptor(), 0, SEEK_END);
    std::vector<std::uint8_t> bytes(status == 0 && size > 0 ? static_cast<std::size_t>(size) : 0);
    if (bytes.empty() || pread(picture.descriptor(), bytes.data(), bytes.size(), 0) != size) {
        throw text::Refused(options.output,
                            WIFSIGNALED(status)
                                ? fmt::format("not drawn: ended by signal {}", WTERMSIG(status))
                                : "not drawn");
    }
    return bytes;
}

}  // namespace calcut::plot
