#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <regex>

#include "fixtures.h"

using namespace fixtures;

namespace {

struct Outcome {
    int status = -1;
    std::string out, err;
};

std::string text(const std::string& path) {
    const Bytes bytes = readBytes(path);
    return {bytes.begin(), bytes.end()};
}

// Runs calcut with the words of a shell line, inside dir.
Outcome run(const TempDir& dir, const std::string& words) {
    const std::string line =
        "cd " + dir.path() + " && " + CALCUT_COMMAND + " " + words + " >.out 2>.err </dev/null";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text(dir / ".out"), text(dir / ".err")};
}

std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

void make(const TempDir& dir, const std::string& words) {
    const Outcome result = run(dir, "make " + words);
    ASSERT_EQ(result.status, 0) << result.err;
}

nlohmann::json inspect(const TempDir& dir, const std::string& file, int status) {
    const Outcome result = run(dir, "inspect --json " + file);
    EXPECT_EQ(result.status, status) << result.err;
    return nlohmann::json::parse(result.out);
}

}  // namespace

TEST(Command, OneLineForEachMistake) {
    const TempDir dir;
    make(dir, "--size 16x12 -o good");
    std::filesystem::create_directory(dir / "out");
    writeBytes(dir / "empty", {});
    writeBytes(dir / "noise", bytes("neither one nor the other layout"));
    writeBytes(dir / "checksum", flipped(readBytes(dir / "good"), 200 * 8));
    writeBytes(dir / "nothing", v7Image(bytes("no calibration in here")));
    struct Case {
        const char* words;
        int status;
        const char* pattern;  ///< of the one line on standard error
    };
    const std::vector<Case> cases = {
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
        {"cut good", 2, "."},
        {"make", 2, "--output|-o"},
        {"make --size 0x5 -o x", 2, "--size"},
        {"make --frequencies 9 -o x", 2, "--frequencies"},
        {"make --custom 6 -o x", 2, "--custom"},
        {"make --signature 3 -o x", 2, "--signature"},
        {"make -o nowhere/x", 1, "nowhere/x: No such file"},
        {"inspect missing", 1, "missing: No such file"},
        {"frobnicate", 2, "frobnicate"},
        {"", 2, "subcommand"},
    };
    for (const auto& [words, status, pattern] : cases) {
        const Outcome result = run(dir, words);
        EXPECT_EQ(result.status, status) << words;
        EXPECT_EQ(lines(result.err), 1U) << words << "\n" << result.err;
        EXPECT_TRUE(std::regex_search(result.err, std::regex(pattern))) << result.err;
        EXPECT_EQ(result.out, "") << words;
    }
}

TEST(Command, HelpShowsAnExampleForEachSubcommand) {
    const TempDir dir;
    for (const char* name : {"make", "cut", "inspect", "plot"}) {
        const Outcome result = run(dir, std::string(name) + " --help");
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.out.find(std::string("calcut ") + name + " "), std::string::npos)
            << result.out;
    }
    EXPECT_NE(run(dir, "--version").out.find(CALCUT_VERSION), std::string::npos);
}

TEST(Command, CutsWhatItMakes) {
    const TempDir dir;
    for (const std::string& words : std::vector<std::string>{
             "--layout v7", "--layout korveline", "--layout korveline --signature 64",
             "--size 33x21 --frequencies 8 --custom 5 --table-bits 0",
             "--no-straylight --custom 0"}) {
        make(dir, words + " -o dump --seed 5");
        std::filesystem::remove_all(dir / "out");
        std::filesystem::create_directory(dir / "out");
        const Outcome result = run(dir, "cut dump out");
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(std::regex_search(result.out, std::regex("masked pixels: +[0-9]+")));
        for (const char* name : {"cx", "cy", "fx", "fy", "p1", "p2", "k1", "k2", "k3"}) {
            EXPECT_TRUE(std::regex_search(result.out, std::regex(std::string(name) + " +-?[0-9]")));
        }
        const bool isSigned = words.find("signature") != std::string::npos;
        EXPECT_EQ(std::filesystem::exists(dir / "out/signature.bin"), isSigned);
        EXPECT_TRUE(!isSigned || readBytes(dir / "out/signature.bin").size() == 64);
        // The numbers read back to the floats of the file.
        std::smatch match;
        ASSERT_TRUE(std::regex_search(result.out, match, std::regex("fx +(\\S+)")));
        float fx = 0.0F;
        const Bytes lens = readBytes(dir / "out/lensdata.dat");
        std::memcpy(&fx, lens.data(), sizeof fx);
        EXPECT_EQ(std::strtof(match[1].str().c_str(), nullptr), fx);
        EXPECT_TRUE(inspect(dir, "dump", 0).at("intact").get<bool>());
        EXPECT_EQ(inspect(dir, "out/qov.spc", 0).at("layout"), "packed");
    }
}

TEST(Command, MakesTheSameBytesForTheSameOptions) {
    const TempDir dir;
    make(dir, "--seed 9 -o a");
    make(dir, "--seed 10 -o c");
    EXPECT_NE(readBytes(dir / "a"), readBytes(dir / "c"));
    EXPECT_EQ(run(dir, "make --seed 9 -o -").out, text(dir / "a"));
}

TEST(Command, CutsManyAndNamesTheBadOnes) {
    const TempDir dir;
    std::filesystem::create_directory(dir / "more");
    make(dir, "--size 24x18 -o one.bin");
    make(dir, "--layout korveline --size 24x18 --signature 9 -o two.bin");
    make(dir, "--size 24x18 --seed 7 -o more/one.bin");  // the stem once more
    writeBytes(dir / "empty.bin", {});                   // ends the library's process
    writeBytes(dir / "short,\"er.bin", prefix(readBytes(dir / "one.bin"), 100));
    const std::string dumps = "one.bin empty.bin two.bin 'short,\"er.bin' more/one.bin missing.bin";
    for (const char* jobs : {"1", "3"}) {
        std::filesystem::remove_all(dir / "out");
        const Outcome result =
            run(dir, "cut " + dumps + " --out out --jobs " + jobs + " --report report.json");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err.find('\r'), std::string::npos);  // no progress bar off a terminal
        int folders = 0;
        for (const auto& entry : std::filesystem::directory_iterator(dir / "out")) {
            EXPECT_TRUE(std::filesystem::exists(entry.path() / "lensdata.dat"));
            ++folders;
        }
        EXPECT_EQ(folders, 3);  // nothing of the failed ones, nothing temporary
        const auto report = nlohmann::json::parse(text(dir / "report.json"));
        const nlohmann::json& rows = report.at("dumps");
        ASSERT_EQ(rows.size(), 6U);
        const bool good[] = {true, false, true, false, true, false};
        for (std::size_t i = 0; i < 6; ++i) {
            const nlohmann::json& row = rows[i];
            EXPECT_EQ(row.at("result") == "cut", good[i]) << row;
            EXPECT_EQ(row.at("reason").is_null(), good[i]) << row;
            EXPECT_EQ(row.at("fx").is_number(), good[i]) << row;
        }
        EXPECT_EQ(rows[2].at("layout"), "korveline");
    }
    const Outcome csv = run(dir, "cut 'short,\"er.bin' one.bin --out csv --report report.csv");
    EXPECT_EQ(csv.status, 1);
    const std::string table = text(dir / "report.csv");
    EXPECT_EQ(table.rfind("file,layout,result,reason,masked", 0), 0U) << table;
    EXPECT_NE(table.find("\"short,\"\"er.bin\""), std::string::npos) << table;
    EXPECT_EQ(run(dir, "cut one.bin two.bin --out csv").status, 0);
}

TEST(Command, InspectShowsTheFaultWhereItIs) {
    const TempDir dir;
    make(dir, "--size 16x12 -o good");
    const Bytes good = readBytes(dir / "good");
    const nlohmann::json whole = inspect(dir, "good", 0);
    EXPECT_EQ(whole.at("image").at("fields")[1].at("value"), 7);

    writeBytes(dir / "bad", flipped(good, 9 * 8 + 4));
    EXPECT_FALSE(inspect(dir, "bad", 1).at("intact").get<bool>());
    const Outcome shown = run(dir, "inspect bad");
    EXPECT_NE(shown.out.find("byte 8"), std::string::npos) << shown.out;
    EXPECT_EQ(shown.out.find('\033'), std::string::npos);  // no colours off a terminal

    // A wrong kind in the lens block; the bare calibration has no checksum to hide it.
    Bytes packed(good.begin() + 67, good.end());
    packed[11 + 4 + 1] = 0;
    writeBytes(dir / "bad", packed);
    const Outcome kind = run(dir, "inspect bad");
    EXPECT_EQ(kind.status, 1);
    EXPECT_NE(kind.out.find("VANTRIC_ERR_INVALID_DATA"), std::string::npos) << kind.out;
    EXPECT_TRUE(std::regex_search(kind.out, std::regex("fault.*byte 1[56]"))) << kind.out;
}

// Whatever a file holds: an exit status of 0 or 1, and JSON that parses.
TEST(Command, InspectSurvivesEveryKindOfDamage) {
    const TempDir dir;
    const Bytes small = smallPacked();
    for (std::size_t size = 0; size < small.size(); size += 17) {
        writeBytes(dir / "cut", prefix(small, size));
        const Outcome result = run(dir, "inspect --json cut");
        EXPECT_EQ(result.status, 1) << size;
        EXPECT_TRUE(result.out.empty() || nlohmann::json::accept(result.out)) << size;
    }
    for (std::size_t i = 0; i < small.size(); i += 23) {
        writeBytes(dir / "changed", v7Image(flipped(small, i * 8 + i % 8)));
        const Outcome result = run(dir, "inspect --json changed");
        EXPECT_TRUE(result.status == 0 || result.status == 1) << i;
        EXPECT_TRUE(nlohmann::json::accept(result.out)) << i;
    }
    writeBytes(dir / "huge", bytes("QOVRXF", 1, 255, 255, 255, 255, 2, 5, 255, 31, 0, 0));
    EXPECT_EQ(run(dir, "inspect huge").status, 1);
}

TEST(Command, PlotDrawsOrSaysWhyNot) {
    const TempDir dir;
    make(dir, "--size 32x24 --frequencies 8 -o good");
    const Outcome png = run(dir, "plot good -o sheet.png");
    if (png.err.find("Cairo") != std::string::npos) {
        EXPECT_EQ(png.status, 1);
        EXPECT_EQ(lines(png.err), 1U);
        return;
    }
    ASSERT_EQ(png.status, 0) << png.err;
    EXPECT_EQ(text(dir / "sheet.png").substr(0, 8), "\x89PNG\r\n\x1a\n");
    ASSERT_EQ(run(dir, "plot good -o sheet.svg").status, 0);
    EXPECT_NE(text(dir / "sheet.svg").find("<svg"), std::string::npos);
    EXPECT_EQ(run(dir, "plot good -o sheet.gif").status, 2);
    writeBytes(dir / "noise", bytes("noise"));
    const Outcome noise = run(dir, "plot noise -o noise.png");
    EXPECT_EQ(noise.status, 1);
    EXPECT_EQ(lines(noise.err), 1U);
    EXPECT_FALSE(std::filesystem::exists(dir / "noise.png"));
    for (const char* options : {"--no-straylight --size 4x1", "--layout korveline --size 9x9"}) {
        make(dir, std::string(options) + " -o other");
        EXPECT_EQ(run(dir, "plot other -o other.png").status, 0) << options;
    }
}
