// Nothing damaged, stale or spoiled passes a batch in silence.
#include "tools/Modules.h"

using namespace command;

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
    // Nor does it take a name that a dump could have.
    EXPECT_EQ(shell(dir, "mkdir m; $C cut m l2 --out own --report r.json").status, 1);
    EXPECT_EQ(rowsOf(reportIn(dir), "folder"), "own/m");
}

TEST(CutBatch, ResumeComparesContent) {
    const TempDir dir;
    makePair(dir);
    ASSERT_EQ(run(dir, "cut l1 l2 --out out").status, 0);
    const auto whole = tree(dir / "out");
    const json masked = json::parse(text(dir / "out/l2-m/cut.json"))["maskedPixels"];
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
        const Outcome verified = run(dir, "cut --verify l1 l2 --out out --report r.json");
        EXPECT_EQ(verified.err, "calcut: 1 of 2 dumps was not equal to its cut\n");
        EXPECT_EQ(rowsOf(reportIn(dir), "result"), "equal failed") << name;
        EXPECT_FALSE(reportIn(dir)["dumps"][1]["earlierCut"].get<bool>());
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
    // What a note says of the mask is not believed.
    ASSERT_EQ(
        shell(dir, "sed -i 's/\\(maskedPixels\": \\).*,/\\166000,/' out/l2-m/cut.json").status, 0);
    EXPECT_EQ(run(dir, "cut l2 --out out --resume --report r.json").status, 0);
    EXPECT_EQ(reportIn(dir)["dumps"][0]["maskedPixels"], masked);
    EXPECT_EQ(run(dir, "cut l2 --out out").status, 0);
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
    // A folder that would be --out itself.
    EXPECT_EQ(run(dir, "cut l1 --out out --name ' ' --report r.json").status, 1);
    EXPECT_EQ(rowsOf(reportIn(dir), "reason"), "--name leaves its folder without a name");
    EXPECT_EQ(shell(dir, "cp l1/m.bin ..bin; $C cut ..bin --out out").status, 0);
    EXPECT_TRUE(fs::exists(dir / "out/_/cut.json"));
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
        const Outcome second = shell(dir, "flock " + name + " $C cut l2" + to);
        EXPECT_TRUE(matches(second.err, name + ": another command writes it")) << second.err;
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
    const Outcome table = shell(dir, "cd out/m; $C cut ../../l1 ../../l2 --out .. --report -");
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
