#include <cstring>
#include <sstream>
#include <tuple>

#include "tools/Command.h"

using namespace command;

TEST(Command, OneLineForEachMistake) {
    const TempDir dir;
    make(dir, "--size 16x12 -o good");
    fs::create_directory(dir / "out");
    fs::create_directory(dir / "none");
    writeBytes(dir / "empty", {});
    writeBytes(dir / "noise", bytes("neither one nor the other layout"));
    writeBytes(dir / "checksum", flipped(readBytes(dir / "good"), 200 * 8));
    writeBytes(dir / "nothing", v7Image(bytes("no calibration in here")));
    ASSERT_EQ(shell(dir,
                    "truncate -s 10G huge; mkfifo pipe out/lensdata.dat; mkdir fifo; "
                    "mv out/lensdata.dat fifo/qov.spc; printf 'x' >'esc\033[31m\n'; "
                    "mkdir odd; mkdir odd/'\033'; ln -s loop odd/'\033'/loop")
                  .status,
              0);
    // With the pattern of the one line on standard error.
    const std::vector<std::tuple<const char*, int, const char*>> cases = {
        {"cut missing out", 1, "missing: No such file"},
        {"cut empty out", 1, "empty: .*empty"},
        {"cut out out", 1, "out: .*directory"},
        {"cut good nowhere", 1, "nowhere: No such file"},
        {"cut good --out no/where", 1, "no/where: No such file"},
        {"cut good empty", 1, "empty: .*directory"},
        {"cut noise out", 1, "noise: unknown magic at byte 0.*QOVRIN.*KORVELINE"},
        {"cut --layout korveline good out", 1, "good: .*magic.*KORVELINE"},
        {"cut checksum out", 1, "checksum: .*CRC-32.*byte 8"},
        {"cut nothing out", 1, "nothing: .*byte 67"},
        {"cut --layout v8 good out", 2, "--layout"},
        {"cut", 2, "DUMP"},
        {"cut good", 2, "DUMP"},
        {"cut good --verify out more", 2, "--verify"},
        {"cut good out --jobs 2", 2, "--out"},
        {"cut none --out all -q", 1, "1 of 1 dumps was not cut"},
        {"cut good --out all --report all.txt", 2, "csv or .json"},
        {"cut - --out all", 1, "standard input"},
        {"cut --files-from missing --out all", 1, "missing: No such file"},
        {"cut huge out", 1, "huge: .*256 MiB.*--max-size"},
        {"cut /dev/zero out", 1, "256 MiB"},
        {"cut - out </dev/zero", 1, "256 MiB"},
        {"inspect --max-size 1K good", 1, "1 KiB"},
        {"cut pipe out", 1, "pipe"},
        {"cut good fifo", 1, "qov.spc is not a regular file"},
        {"make", 2, "--output|-o"},
        {"make --size 0x5 -o x", 2, "--size"},
        {"make --size 5x-5 -o x", 2, "--size"},
        {"make --frequencies 9 -o x", 2, "--frequencies"},
        {"make --custom 6 -o x", 2, "--custom"},
        {"make --signature 3 -o x", 2, "--signature"},
        {"make --seed -1 -o x", 2, "--seed"},
        {"make -o nowhere/x", 1, "nowhere/x: No such file"},
        {"make -o good", 1, "good: exists; --force"},
        {"make -o pipe", 1, "pipe: nobody reads"},
        {"make -o - >/dev/full", 1, "standard output: No space"},
        {"inspect good >/dev/full", 1, "standard output: No space"},
        {"inspect -q checksum good", 1, "checksum: CRC-32 mismatch"},
        {"cut empty good", 1, "empty: is empty\n"},
        {"cut '' out", 2, "empty"},
        {"inspect missing", 1, "missing: No such file"},
        {"inspect \"$(printf 'e\\033[31m')\"", 1, "e.x1b.31m: No such file"},
        {"cut esc* out", 1, "esc.x1b.31m.x0a: "},
        {"compare --to good good --report \"$(echo odd/*)/loop/x.csv\"", 2, "Too many levels"},
        {"compare --to good good --report x.json", 2, "is a CSV"},
        {"frobnicate", 2, "frobnicate \\(calcut"},
        {"inspekt good", 2, "did you mean inspect"},
        {"", 2, "subcommand"},
    };
    for (const auto& [words, status, pattern] : cases) {
        const Outcome result = run(dir, words);
        EXPECT_EQ(result.status, status) << words;
        EXPECT_EQ(lines(result.err), 1U) << words << "\n" << result.err;
        EXPECT_FALSE(matches(result.err, "\033")) << words;
        EXPECT_TRUE(matches(result.err, pattern)) << words << "\n" << result.err;
        EXPECT_EQ(result.out, "") << words;
    }
    EXPECT_TRUE(fs::is_empty(dir / "out"));
}

TEST(Command, HelpFitsATerminalAndCompletes) {
    const TempDir dir;
    for (const std::string name : {"cut", "inspect", "plot", "compare", "export", "make"}) {
        const Outcome help = run(dir, name + " --help");
        EXPECT_EQ(help.status, 0);
        EXPECT_NE(help.out.find("Usage: calcut " + name + " "), std::string::npos) << help.out;
        EXPECT_NE(help.out.find("  calcut " + name + " "), std::string::npos) << "no example";
        EXPECT_EQ(firstMatch(help.out, "\n([^\n]{101,})").value_or(""), "") << name;
        EXPECT_EQ(run(dir, "help " + name).out, help.out);
        EXPECT_EQ(run(dir, name + " --help >/dev/full").status, 1);
    }
    EXPECT_EQ(run(dir, "help").out, run(dir, "--help").out);
    EXPECT_EQ(run(dir, "help nothing").status, 2);
    for (const auto& [words, at, expected] :
         {std::tuple("ma", 1, "make"), std::tuple("export --as r", 3, "ros-yaml"),
          std::tuple("cut --layout = k", 4, "korveline"), std::tuple("help insp", 2, "inspect"),
          std::tuple("make --straylight", 2, "--straylight-exponent")}) {
        const std::string ask =
            std::string("C=\"$C\" bash -c 'calcut() { $C \"$@\"; }; . " CALCUT_COMPLETION
                        "; COMP_WORDS=(calcut ") +
            words + ") COMP_CWORD=" + std::to_string(at) + "; _calcut; echo \"${COMPREPLY[*]}\"'";
        EXPECT_EQ(shell(dir, ask).out, std::string(expected) + "\n") << words;
    }
    for (const char* words : {"-V", "--version"}) {
        EXPECT_EQ(run(dir, words).out, "calcut " CALCUT_VERSION "\n");
    }
}

TEST(Command, ReadsWhatItsAdviceNames) {
    const TempDir dir;
    make(dir, "--size 16x12 --seed 3 -o good");
    const Bytes good = readBytes(dir / "good");
    Bytes pairs = good;
    Bytes fours = good;
    for (const auto& [bytes, group] : {std::tuple(&pairs, 2), std::tuple(&fours, 4)}) {
        for (auto at = bytes->begin(); bytes->end() - at >= group; at += group) {
            std::reverse(at, at + group);
        }
    }
    fs::create_directories(dir / "odd");
    writeBytes(dir / "odd/behind", bytes(Bytes(7, 0x20), good));
    writeBytes(dir / "odd/pairs", pairs);
    writeBytes(dir / "odd/words", fours);
    fs::create_directory(dir / "empty");
    EXPECT_TRUE(inspect(dir, "empty", 1).is_array());
    // One object on each line, whatever is read.
    const Outcome odd = run(dir, "inspect odd missing empty good --jsonl");
    EXPECT_EQ(odd.status, 1);
    std::istringstream lines(odd.out);
    std::vector<nlohmann::json> found;
    for (std::string line; std::getline(lines, line);) {
        found.push_back(nlohmann::json::parse(line));
    }
    ASSERT_EQ(found.size(), 6U) << odd.out;
    EXPECT_TRUE(found[5].at("intact").get<bool>());
    EXPECT_EQ(found[3].at("error"), "No such file or directory");
    EXPECT_EQ(found[4].at("error"), "holds no files");
    for (std::size_t i = 0; i < 3; ++i) {
        const std::string file = found[i].at("file");
        const auto option =
            firstMatch(found[i].at("faults").at(0).at("advice"), "(--(skip|swap) [0-9])");
        ASSERT_TRUE(option) << found[i];
        fs::create_directory(dir / "out");
        EXPECT_EQ(run(dir, "cut " + file + " out " + *option).status, 0) << file;
        EXPECT_EQ(run(dir, "compare good out/qov.spc").status, 0) << file;
        fs::remove_all(dir / "out");
    }
    EXPECT_EQ(run(dir, "inspect good --skip 999999999").err,
              "calcut: good: has no bytes behind those of --skip\n");
}

TEST(Command, CutsWhatItMakes) {
    const TempDir dir;
    for (const std::string& words : std::vector<std::string>{
             "--layout v7", "--layout korveline", "--layout korveline --signature 64",
             "--size 33x21 --frequencies 8 --custom 5 --table-bits 0",
             "--no-straylight --custom 0"}) {
        make(dir, words + " -o dump --seed 5 --force");
        fs::remove_all(dir / "out");
        fs::create_directory(dir / "out");
        const Outcome result = run(dir, "cut - out <dump");
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(matches(result.out, "masked pixels: +[0-9]+"));
        const bool isSigned = words.find("signature") != std::string::npos;
        EXPECT_EQ(tree(dir / "out").size(), isSigned ? 3U : 2U);
        EXPECT_TRUE(!isSigned || readBytes(dir / "out/signature.bin").size() == 64);
        // The numbers read back to the floats of the file.
        const Bytes lens = readBytes(dir / "out/lensdata.dat");
        std::size_t at = 0;
        for (const std::string name : {"fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3"}) {
            const auto shown = firstMatch(result.out, name + " +([^ \n]+)");
            ASSERT_TRUE(shown) << name;
            float value = 0.0F;
            std::memcpy(&value, lens.data() + at, sizeof value);
            EXPECT_EQ(std::strtof(shown->c_str(), nullptr), value) << name;
            at += sizeof value;
        }
        EXPECT_TRUE(inspect(dir, "dump", 0).at("intact").get<bool>());
        EXPECT_EQ(inspect(dir, "out/qov.spc", 0).at("layout"), "packed");
    }
    const std::string same = run(dir, "make --seed 9 -o -").out;
    EXPECT_EQ(same, run(dir, "make --seed 9 --layout auto -o - -q").out);
    EXPECT_NE(same, run(dir, "make --seed 10 -o -").out);
    EXPECT_EQ(run(dir, "make --bare -o -").out, run(dir, "make --layout packed -o -").out);
}

TEST(Command, FitsTheTerminalAndObeysItsColours) {
    const TempDir dir;
    make(dir, "--size 16x12 -o a-dump-with-a-name-that-is-far-longer-than-need-be.bin");
    writeBytes(dir / "bad.bin", bytes("neither one nor the other layout"));
    const Outcome result = shell(
        dir,
        "TERM=xterm script -qc 'stty cols 60; '\"$C\"' cut --color never *.bin --out s' /dev/null");
    EXPECT_TRUE(matches(result.out, "unknown magic")) << result.out;
    std::istringstream shown(result.out);
    for (std::string line; std::getline(shown, line);) {
        // Behind what a progress line has erased, and with the carriage return.
        const std::size_t erased = line.rfind("\033[K");
        EXPECT_LE(line.size() - (erased == std::string::npos ? 0 : erased + 3), 61U) << line;
    }
    for (const std::string words : {"", "--color auto", "--color=always", "--color never"}) {
        const Outcome cut = run(dir, "cut bad.bin --out s " + words);
        const bool colours = words == "--color=always";
        EXPECT_EQ(matches(cut.out, "\033"), colours) << words;
        EXPECT_EQ(matches(cut.err, "\033"), colours) << words;
    }
}

TEST(Command, InspectShowsTheFaultWhereItIs) {
    const TempDir dir;
    make(dir, "--size 16x12 -o good");
    EXPECT_EQ(inspect(dir, "good", 0).at("image").at("fields")[1].at("value"), 7);
    // A wrong kind in the lens block; the bare calibration has no checksum to hide it.
    const Bytes good = readBytes(dir / "good");
    writeBytes(dir / "bad", patched(Bytes(good.begin() + 67, good.end()), 16, {0}));
    EXPECT_FALSE(inspect(dir, "bad", 1).at("intact").get<bool>());
    const Outcome shown = run(dir, "inspect bad");
    EXPECT_EQ(shown.status, 1);
    EXPECT_TRUE(matches(shown.out, "VANTRIC_ERR_INVALID_DATA")) << shown.out;
    EXPECT_TRUE(matches(shown.out, "fault.*byte 1[56]")) << shown.out;
}

TEST(Command, PlotDrawsOrSaysWhyNot) {
    const TempDir dir;
    make(dir, "--size 32x24 -o good");
    EXPECT_EQ(run(dir, "plot good -o sheet.gif").status, 2);
    const Outcome drawn = run(dir, "plot good -o sheet.png");
    if (drawn.err.find("calcut-plot is not installed") == std::string::npos) {
        EXPECT_EQ(drawn.status, 0) << drawn.err;
        EXPECT_EQ(text(dir / "sheet.png").substr(0, 8), "\x89PNG\r\n\x1a\n");
        return;
    }
    EXPECT_EQ(drawn.status, 1);
    EXPECT_EQ(run(dir, "compare good good -o sheet.png").status, 2);
    EXPECT_FALSE(std::filesystem::exists(dir / "sheet.png"));
}
