// Nothing damaged, stale or spoiled passes a batch in silence.
#include <sys/file.h>

#include <fcntl.h>

#include <thread>

#include "tools/Command.h"

using namespace command;

namespace {

using nlohmann::json;

std::string rowsOf(const json& report, const char* key) {
    std::string all;
    for (const json& row : report.at("dumps")) {
        all +=
            (all.empty() ? "" : " ") + (row[key].is_string() ? row[key].get<std::string>() : "-");
    }
    return all;
}

json reportIn(const TempDir& dir, const std::string& name = "r.json") {
    return json::parse(text(dir / name));
}

// Two modules that differ in everything, the second one with a signature.
void makePair(const TempDir& dir) {
    ASSERT_EQ(shell(dir, "mkdir l1 l2").status, 0);
    make(dir, "--size 16x12 --seed 1 -o l1/m.bin");
    make(dir, "--layout korveline --signature 9 --size 16x12 --seed 2 -o l2/m.bin");
}

std::map<std::string, Bytes> cutIn(const std::string& folder) {
    std::map<std::string, Bytes> files;
    for (const auto& [path, content] : tree(folder)) {
        if (!path.ends_with("cut.json")) {
            files[fs::path(path).filename().string()] = content;
        }
    }
    return files;
}

}  // namespace

TEST(CutBatch, AFolderWithoutDumpsIsARow) {
    const TempDir dir;
    makePair(dir);
    ASSERT_EQ(shell(dir,
                    "mkdir none; echo x >l1/x.txt; printf '\\357\\273\\277l2\\r\\n' >list; "
                    "printf '\\377\\376l\\0002\\000' >wide")
                  .status,
              0);
    EXPECT_EQ(run(dir, "cut none l1 --files-from list --out out --report r.json").status, 1);
    EXPECT_EQ(rowsOf(reportIn(dir), "result"), "failed cut failed cut");
    EXPECT_EQ(reportIn(dir)["dumps"][0]["reason"], "holds no files");
    const Outcome glob = run(dir, "cut l1 --glob '*.\x1b[2J' --out out --report r.json");
    EXPECT_EQ(glob.status, 1);
    EXPECT_EQ(reportIn(dir)["dumps"][0]["reason"], "holds no file named *.\\x1b[2J");
    EXPECT_EQ((glob.out + glob.err).find('\x1b'), std::string::npos);
    EXPECT_TRUE(matches(run(dir, "cut --files-from wide --out out").err, "wide: is UTF-16"));
}

TEST(CutBatch, ResumeComparesContent) {
    const TempDir dir;
    makePair(dir);
    ASSERT_EQ(run(dir, "cut l1 l2 --out out").status, 0);
    const auto whole = tree(dir / "out");
    const auto sum = json::parse(text(dir / "out/l2-m/cut.json"))["files"]["signature.bin"];
    EXPECT_EQ(sum["bytes"], 9);
    EXPECT_TRUE(matches(sum["crc32"].get<std::string>(), "^0x[0-9a-f]{8}$"));
    const Bytes spc = readBytes(dir / "out/l2-m/qov.spc");
    const Bytes lens = readBytes(dir / "out/l2-m/lensdata.dat");
    // Also what a loss of power leaves: files without content, or full of zeros.
    const std::vector<std::pair<std::string, Bytes>> damages = {
        {"qov.spc", flipped(spc, 8 * 40)},
        {"qov.spc", Bytes(spc.size())},
        {"qov.spc", {}},
        {"lensdata.dat", flipped(lens, 0)},
        {"lensdata.dat", prefix(lens, lens.size() - 1)},
        {"signature.bin", Bytes(9, 1)},
    };
    for (const auto& [name, damaged] : damages) {
        writeBytes(dir / ("out/l2-m/" + name), damaged);
        EXPECT_EQ(run(dir, "cut --verify l1 l2 --out out --report r.json").status, 1);
        EXPECT_EQ(rowsOf(reportIn(dir), "result"), "equal failed") << name;
        EXPECT_TRUE(matches(reportIn(dir)["dumps"][1]["reason"], name)) << reportIn(dir);
        const Outcome repaired = run(dir, "cut l1 l2 --out out --resume --report r.json");
        EXPECT_EQ(rowsOf(reportIn(dir), "result"), "kept repaired") << name;
        EXPECT_TRUE(matches(repaired.out, "0 cut, 1 kept, 1 repaired, 0 failed")) << repaired.out;
        EXPECT_EQ(tree(dir / "out"), whole) << name;
    }
    // A note that was lost with the rest is nobody's.
    for (const Bytes& blank : {Bytes(), Bytes(300)}) {
        writeBytes(dir / "out/l2-m/cut.json", blank);
        writeBytes(dir / "out/l2-m/qov.spc", {});
        EXPECT_EQ(run(dir, "cut l1 l2 --out out --resume --name '{path}'").status, 0);
        EXPECT_EQ(tree(dir / "out"), whole);
    }
    const Outcome equal = run(dir, "cut --verify --out out l1 l2");
    EXPECT_TRUE(matches(equal.out, "2 equal, 0 failed")) << equal.out;
    EXPECT_EQ(tree(dir / "out"), whole);
    EXPECT_EQ(run(dir, "cut --verify --out missing l1").status, 1);
    EXPECT_FALSE(fs::exists(dir / "missing"));
}

TEST(CutBatch, FoldersTakeNamesFromTemplates) {
    const TempDir dir;
    makePair(dir);
    const json tree = inspect(dir, "l1/m.bin", 0);
    const std::vector<std::pair<std::string, std::string>> names = {
        {"{path}", "l1-m"}, {"a-{stem}", "a-m"}, {".{stem}", "_m"}, {"{serial}", "SN89121888"}};
    for (const auto& [pattern, name] : names) {
        EXPECT_EQ(run(dir, "cut l1/m.bin --out out --name '" + pattern + "'").status, 0);
        EXPECT_TRUE(fs::exists(dir / ("out/" + name + "/cut.json"))) << pattern;
    }
    // Of two that come to one name, neither is cut, and each names the other.
    EXPECT_EQ(run(dir, "cut l1 l2 --out two --name '{stem}' --report r.json").status, 1);
    EXPECT_EQ(rowsOf(reportIn(dir), "reason"),
              "two/m would be the folder of l2/m.bin, too two/m would be the folder of l1/m.bin, "
              "too");
    EXPECT_TRUE(fs::is_empty(dir / "two"));
    for (const char* pattern : {"{text3}", "{stem", "a/{stem}", "{"}) {
        EXPECT_EQ(run(dir, std::string("cut l1 --out out --name '") + pattern + "'").status, 2);
    }
}

TEST(CutBatch, AReportReplacesOnlyAnEarlierOne) {
    const TempDir dir;
    makePair(dir);
    for (const std::string name : {"r.csv", "r.json"}) {
        const std::string to = " --out out --report " + name;
        ASSERT_EQ(run(dir, "cut l1" + to).status, 0);
        const std::string earlier = text(dir / name);
        // The run fails before it has any input, and yet the earlier report is gone.
        EXPECT_EQ(run(dir, "cut --files-from missing" + to).status, 1);
        EXPECT_EQ(text(dir / name).find("m.bin"), std::string::npos);
        EXPECT_EQ(run(dir, "cut l1" + to).status, 0);
        EXPECT_EQ(text(dir / name), earlier);
        writeBytes(dir / name, bytes("mine, all mine"));
        const Outcome refused = run(dir, "cut l1" + to);
        EXPECT_TRUE(matches(refused.err, name + ": exists; --force replaces it")) << refused.err;
        EXPECT_EQ(text(dir / name), "mine, all mine");
        EXPECT_EQ(run(dir, "cut . --out out2 --force --report " + name).status, 1);
        EXPECT_EQ(text(dir / name), "mine, all mine");  // it was among the inputs
        EXPECT_EQ(run(dir, "cut l1 --force" + to).status, 0);
        EXPECT_EQ(text(dir / name), earlier);
    }
    const auto before = tree(dir / "out");
    for (const char* inside : {"out/m/cut.json", "out/m/r.csv", "out/../out/m/x.json"}) {
        const Outcome result = run(dir, std::string("cut l1 --out out --force --report ") + inside);
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(matches(result.err, "in the folder of a module")) << result.err;
        EXPECT_EQ(tree(dir / "out"), before);
    }
    const Outcome table = run(dir, "cut l1 l2 --out out --report -");
    EXPECT_EQ(lines(table.out), 3U);
    EXPECT_TRUE(matches(table.out, "^file,layout,result,")) << table.out;
}

TEST(CutBatch, WhatLeavesTheTerminalIsEscaped) {
    const TempDir dir;
    makePair(dir);
    const std::vector<std::pair<std::string, std::string>> names = {
        {"=HYPERLINK(1)", "\\x3dHYPERLINK(1)"},
        {"+1", "\\x2b1"},
        {"@SUM", "\\x40SUM"},
        {"c\xC2\x9B"
         "2J",
         "c\\xc2\\x9b2J"},
        {"r\xE2\x80\xAE"
         "l",
         "r\\xe2\\x80\\xael"},
        {"b\xFF", "b\\xff"},
        {"\xC3\xA9", "\xC3\xA9"}};
    std::string words;
    for (const auto& [name, shown] : names) {
        fs::copy(dir / "l1/m.bin", dir / name);
        words += " '" + name + "'";
    }
    for (const std::string report : {"r.csv", "r.json"}) {
        EXPECT_EQ(run(dir, "cut --out out --report " + report + words).status, 0);
    }
    const std::string table = text(dir / "r.csv");
    const json rows = reportIn(dir)["dumps"];
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto& [name, shown] = names[i];
        EXPECT_NE(table.find("\n" + shown + ",v7,cut"), std::string::npos) << table;
        // Only a spreadsheet computes.
        const bool formula = name.find_first_of("=+-@") == 0;
        EXPECT_EQ(rows[i]["file"], formula ? name : shown);
    }
    // A path that is no UTF-8 is found again.
    EXPECT_EQ(run(dir, "cut --out out --resume --report r.json" + words).status, 0);
    EXPECT_EQ(rowsOf(reportIn(dir), "result"), "kept kept kept kept kept kept kept");
    EXPECT_EQ(inspect(dir, "'" + names[3].first + "'", 0)["file"], names[3].second);
}

TEST(CutBatch, AHostileNoteIsTheCutOfAnUnknownDump) {
    const TempDir dir;
    makePair(dir);
    ASSERT_EQ(run(dir, "cut l1 l2 --out out").status, 0);
    const std::string nested(200'000, '[');
    const std::vector<std::string> lines = {
        "printf '%s' '" + nested.substr(0, 60'000) + "' >NOTE",
        "{ printf '{\"source\":'; head -c 8000000 /dev/zero | tr '\\0' '['; } >NOTE",
        "truncate -s 2G NOTE",
        "echo '{\"source\":[]}' >NOTE",
        "echo '{\"source\":\"x\",\"bytes\":{},\"files\":7}' >NOTE",
        "echo null >NOTE"};
    for (std::string line : lines) {
        line.replace(line.find("NOTE"), 4, "out/l1-m/cut.json");
        ASSERT_EQ(shell(dir, line).status, 0);
        const Outcome result = shell(
            dir, "(ulimit -t 5; $C cut l1 l2 --out out --resume --name '{path}' --report r.json)");
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_EQ(rowsOf(reportIn(dir), "result"), "failed kept");
        EXPECT_TRUE(matches(reportIn(dir)["dumps"][0]["reason"], "the cut of .*--force"));
    }
    // Somebody has the other end of the pipe, and writes nothing.
    ASSERT_EQ(shell(dir, "rm out/l1-m/cut.json; mkfifo out/l1-m/cut.json").status, 0);
    EXPECT_EQ(shell(dir, "$C cut l1 l2 --out out --name '{path}' 3<>out/l1-m/cut.json").status, 1);
}

TEST(CutBatch, LeftoversOfDeadRunsGo) {
    const TempDir dir;
    makePair(dir);
    const std::string dead = "/.calcut-part-0badf00d";
    for (const std::string words : {"cut l1 --out out --resume", "cut l1/m.bin out"}) {
        ASSERT_EQ(run(dir, "cut l1 --out out").status, 0);
        fs::create_directories(dir / ("out" + dead + "/new"));
        writeBytes(dir / ("out" + dead + "/new/qov.spc"), {1, 2, 3});
        // That of a run that goes on stays.
        fs::create_directories(dir / "out/.calcut-part-alive");
        EXPECT_EQ(shell(dir, "flock out/.calcut-part-alive $C " + words).status, 0);
        EXPECT_FALSE(fs::exists(dir / ("out" + dead))) << words;
        EXPECT_TRUE(fs::exists(dir / "out/.calcut-part-alive")) << words;
    }
    // The only copy of an earlier cut is not removed by others.
    fs::create_directories(dir / ("out" + dead + "/earlier"));
    writeBytes(dir / ("out" + dead + "/earlier/qov.spc"), {1, 2, 3});
    const Outcome told = run(dir, "cut l1 --out out");
    EXPECT_TRUE(matches(told.err, dead.substr(1) + ": .* holds an earlier cut")) << told.err;
    EXPECT_TRUE(fs::exists(dir / ("out" + dead + "/earlier/qov.spc")));
    writeBytes(dir / dead.substr(1), {1});
    EXPECT_EQ(run(dir, "make -o x.bin").status, 0);
    EXPECT_FALSE(fs::exists(dir / dead.substr(1)));
}

TEST(CutBatch, ASecondCommandWaits) {
    for (const std::string words : {"cut l1/m.bin out", "cut l1 --out out"}) {
        const TempDir dir;
        makePair(dir);
        fs::create_directory(dir / "out");
        const int lock = open((dir / "out").c_str(), O_RDONLY | O_DIRECTORY);
        ASSERT_EQ(flock(lock, LOCK_EX), 0);
        EXPECT_EQ(runAndSignal(dir, words, dir / ".err", SIGINT).status, -SIGINT);
        EXPECT_TRUE(fs::is_empty(dir / "out"));
        Outcome result;
        std::thread second([&] { result = run(dir, words); });
        while (text(dir / ".err").find("waiting") == std::string::npos) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(fs::is_empty(dir / "out"));
        close(lock);
        second.join();
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_FALSE(fs::is_empty(dir / "out"));
    }
}

// Pairs of commands, several at a time: whatever is left belongs to one of the modules.
TEST(CutBatch, TwoAtOnceNeverMixModules) {
    const TempDir dir;
    makePair(dir);
    ASSERT_EQ(shell(dir, "mkdir 1 2; $C cut l1/m.bin 1 && $C cut l2/m.bin 2").status, 0);
    const std::map<std::string, Bytes> cuts[] = {cutIn(dir / "1"), cutIn(dir / "2")};
    struct Form {
        std::string first, second;
        std::string cut;  // where it is
        bool bothSucceed;
    };
    const Form forms[] = {
        {"cut l1/m.bin $o", "cut l2/m.bin $o", "", true},
        {"cut l1/m.bin --out $o", "cut l2/m.bin --out $o", "/m", false},
        {"cut l1/m.bin --out $o --force", "cut l2/m.bin --out $o --force", "/m", true},
        {"cut l1/m.bin --out $o --force", "cut l2/m.bin $o/m", "/m", true}};
    constexpr int lanes = 4;
    constexpr int rounds = 20;
    for (const Form& form : forms) {
        std::string line;
        for (int lane = 0; lane < lanes; ++lane) {
            line += "(for i in $(seq " + std::to_string(rounds) + "); do o=o" +
                    std::to_string(lane) + "-$i; rm -rf $o; mkdir -p $o" + form.cut + "; ($C " +
                    form.first + " -q; echo $? >>$o.status) & ($C " + form.second +
                    " -q; echo $? >>$o.status); wait; done) & ";
        }
        ASSERT_EQ(shell(dir, line + "wait").status, 0);
        for (int at = 0; at < lanes * rounds; ++at) {
            const std::string out =
                dir / ("o" + std::to_string(at % lanes) + "-" + std::to_string(at / lanes + 1));
            const auto left = cutIn(out + form.cut);
            EXPECT_TRUE(left == cuts[0] || left == cuts[1]) << out << form.first;
            const std::string statuses = text(out + ".status");
            EXPECT_EQ(statuses == "0\n0\n", form.bothSucceed) << statuses << form.first;
            EXPECT_EQ(std::count(statuses.begin(), statuses.end(), '0'), form.bothSucceed ? 2 : 1);
            fs::remove(out + ".status");
        }
    }
}

TEST(CutBatch, WantOfMemoryIsARow) {
    const TempDir dir;
    // Sanitizers need more room than that.
    if (shell(dir, "(ulimit -v 300000; $C --version)").status != 0) {
        GTEST_SKIP();
    }
    make(dir, "--size 640x480 -o dump");
    ASSERT_EQ(shell(dir, "mkdir in; for i in $(seq 24); do cp dump in/$i; done").status, 0);
    for (int kib = 100'000; kib <= 400'000; kib += 25'000) {
        const Outcome result = shell(dir, "(ulimit -v " + std::to_string(kib) +
                                              "; $C cut in --out out -j 16 --report r.json)");
        EXPECT_TRUE(result.status == 0 || result.status == 1) << kib << result.err;
        EXPECT_EQ(reportIn(dir)["dumps"].size(), 24U) << kib << result.err;
        EXPECT_FALSE(matches(rowsOf(reportIn(dir), "result"), "not reached")) << kib;
    }
}
