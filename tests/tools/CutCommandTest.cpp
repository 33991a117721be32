// No use of the command loses a file or mixes two modules.
#include "tools/Command.h"

using namespace command;

TEST(CutCommand, NeverWritesToWhatItReads) {
    const TempDir dir;
    make(dir, "--size 16x12 -o dump");
    ASSERT_EQ(shell(dir,
                    "mkdir cut link hard own all all/x; cp dump cut/qov.spc; "
                    "cp dump link/real; ln -s real link/lensdata.dat; "
                    "cp dump hard/real; ln hard/real hard/signature.bin; cp dump own/qov.spc; "
                    "cp dump r.csv; cp dump x.png; ln -s x.png y.png; cp dump all/x/qov.spc; "
                    "echo dump >list.json; $C cut dump --out many; cp dump many/dump/qov.spc")
                  .status,
              0);
    const auto before = tree(dir.path());
    const std::vector<std::string> lines = {
        "cut cut/qov.spc cut",
        "cut link/real link --force",
        "cut hard/real hard",
        "cut - cut <cut/qov.spc",
        "cut dump own",
        "cut dump r.csv --out all --report r.csv",
        "cut --files-from list.json --out all --report list.json",
        "cut all/x/qov.spc all/x --force",
        "cut dump --out many",
        "plot x.png -o y.png",
        "make -o dump"};
    for (const std::string& words : lines) {
        const Outcome result = run(dir, words);
        EXPECT_EQ(result.status, 1) << words;
        auto after = tree(dir.path());
        after[dir / ".out"] = before.at(dir / ".out");
        after[dir / ".err"] = before.at(dir / ".err");
        EXPECT_EQ(after, before) << words << result.err;
    }
    EXPECT_EQ(run(dir, "cut dump own --force").status, 0);
}

TEST(CutCommand, AFailedCutLeavesTheEarlierFilesWhole) {
    const TempDir dir;
    make(dir, "--layout korveline --signature 40 --seed 1 -o old");
    make(dir, "--seed 2 -o new");
    writeBytes(dir / "bad", flipped(readBytes(dir / "new"), 9 * 8));
    ASSERT_EQ(shell(dir, "mkdir out; mkfifo pipe; $C cut old out").status, 0);
    const auto before = tree(dir / "out");
    // Units of 512 bytes; the lens file fits into the smallest, the calibration into none.
    for (const char* limit : {"1", "8", "100", "400"}) {
        const Outcome result = shell(dir, std::string("(ulimit -f ") + limit + "; $C cut new out)");
        EXPECT_EQ(result.status, 1) << limit;
        EXPECT_TRUE(matches(result.err, "cannot write qov.spc")) << result.err;
        EXPECT_EQ(tree(dir / "out"), before) << limit;
    }
    EXPECT_TRUE(matches(run(dir, "cut bad out").err, "earlier cut is still in out"));
    EXPECT_EQ(tree(dir / "out"), before);
    const Outcome fifo = runAndSignal(dir, "cut - out <>pipe", dir / "pipe", SIGINT);
    EXPECT_EQ(fifo.status, -SIGINT);
    EXPECT_EQ(tree(dir / "out"), before);
    // The other module's signature does not stay beside the new files, and that is said.
    const Outcome cut = run(dir, "cut new out");
    EXPECT_EQ(cut.status, 0);
    EXPECT_TRUE(matches(cut.err, "signature.bin.*removed")) << cut.err;
    EXPECT_EQ(tree(dir / "out").size(), 2U);
}

TEST(CutCommand, VerifyComparesByteForByte) {
    const TempDir dir;
    make(dir, "--layout korveline --signature 40 --size 16x12 -o dump");
    ASSERT_EQ(shell(dir, "mkdir out; $C cut dump out").status, 0);
    EXPECT_EQ(run(dir, "cut --verify out dump").status, 0);
    for (const std::string name : {"qov.spc", "lensdata.dat", "signature.bin"}) {
        const Bytes good = readBytes(dir / ("out/" + name));
        const std::vector<std::pair<Bytes, std::string>> damages = {
            {flipped(good, 17 * 8), "differs at byte 17 "},
            {prefix(good, good.size() - 1), "differs at byte " + std::to_string(good.size() - 1)},
            {bytes(good, 0), "differs at byte " + std::to_string(good.size())},
            {{}, "is empty"}};
        for (const auto& [damaged, message] : damages) {
            writeBytes(dir / ("out/" + name), damaged);
            const Outcome result = run(dir, "cut --verify out dump");
            EXPECT_EQ(result.status, 1);
            EXPECT_NE(result.err.find("out/" + name + ": " + message), std::string::npos)
                << result.err;
        }
        fs::remove(dir / ("out/" + name));
        EXPECT_TRUE(matches(run(dir, "cut --verify out dump").err, name + ": is missing"));
        writeBytes(dir / ("out/" + name), good);
    }
    make(dir, "--layout korveline --size 16x12 -o unsigned");
    EXPECT_TRUE(
        matches(run(dir, "cut --verify out unsigned").err, "signature.bin: is superfluous"));
}

TEST(CutCommand, CutsManyAndNamesTheBadOnes) {
    const TempDir dir;
    fs::create_directories(dir / "more/.hidden");
    make(dir, "--size 24x18 -o one.bin");
    make(dir, "--layout korveline --size 24x18 --signature 9 -o two.bin");
    make(dir, "--size 24x18 --seed 7 -o more/one.bin");  // the stem once more
    writeBytes(dir / "more/readme.txt", bytes("no dump"));
    writeBytes(dir / "more/.hidden/x.bin", bytes("no dump"));
    writeBytes(dir / "empty.bin", {});
    writeBytes(dir / "short,\"er.bin", prefix(readBytes(dir / "one.bin"), 100));
    writeBytes(dir / "list", bytes("two.bin\nshort,\"er.bin\n\nmore/one.bin\nmissing.bin"));
    const std::vector<bool> good = {true, false, true, false, true, false};
    for (const std::string words :
         {"one.bin empty.bin two.bin 'short,\"er.bin' more/one.bin missing.bin -j 1",
          "one.bin empty.bin two.bin 'short,\"er.bin' more missing.bin -j 3 --glob '*.bin'",
          "one.bin empty.bin -j 2 --files-from list",
          "one.bin empty.bin --files-from - <list -q"}) {
        fs::remove_all(dir / "out");
        const Outcome result = run(dir, "cut " + words + " --out out --report report.json");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err.find('\r'), std::string::npos);  // no progress bar off a terminal
        EXPECT_EQ(result.out.empty(), words.find("-q") != std::string::npos);
        std::vector<std::string> folders;
        for (const auto& entry : fs::directory_iterator(dir / "out")) {
            EXPECT_TRUE(fs::exists(entry.path() / "lensdata.dat"));
            folders.push_back(entry.path().filename().string());
        }
        EXPECT_EQ(folders.size(), 3U);  // nothing of the failed ones, nothing temporary
        EXPECT_EQ(std::count(folders.begin(), folders.end(), "more-one"), 1) << words;
        const auto report = nlohmann::json::parse(text(dir / "report.json"));
        EXPECT_EQ(report.at("cut"), 3);
        EXPECT_EQ(report.at("failed"), 3);
        for (std::size_t i = 0; i < good.size(); ++i) {
            const nlohmann::json& row = report.at("dumps").at(i);
            EXPECT_EQ(row.at("result") == "cut", good[i]) << row;
            EXPECT_EQ(row.at("reason").is_null(), good[i]) << row;
            for (const char* key : {"fx", "k3", "maskedPixels"}) {
                EXPECT_EQ(row.at(key).is_number(), good[i]) << row;
            }
        }
        EXPECT_EQ(report["dumps"][2]["layout"], "korveline");
        EXPECT_EQ(report["dumps"][3]["fault"]["name"], "payload-outside") << report["dumps"][3];
    }
    ASSERT_EQ(run(dir, "cut 'short,\"er.bin' one.bin --out csv --report report.csv").status, 1);
    const std::string table = text(dir / "report.csv");
    EXPECT_TRUE(matches(table, "^file,layout,result,reason,masked pixels,fx,fy,cx,cy,k1.*\r\n"));
    EXPECT_TRUE(matches(table, "\n\"short,\"\"er.bin\",v7,failed,.*,payload-outside,12,")) << table;
    EXPECT_TRUE(matches(table, "\none.bin,v7,cut,,[0-9]+,.*,csv/one,")) << table;
}

TEST(CutCommand, AFolderKeepsItsOwner) {
    const TempDir dir;
    ASSERT_EQ(shell(dir, "mkdir l1 l2 out").status, 0);
    make(dir, "--size 16x12 --seed 1 -o l1/m.bin");
    make(dir, "--size 16x12 --seed 2 -o l2/m.bin");
    ASSERT_EQ(run(dir, "cut l1/m.bin --out s").status, 0);
    const auto before = tree(dir / "s");
    const Outcome other = run(dir, "cut l2/m.bin --out s");
    EXPECT_EQ(other.status, 1);
    EXPECT_TRUE(matches(other.out, "s/m holds the cut of .*l1/m.bin; --force")) << other.out;
    EXPECT_EQ(tree(dir / "s"), before);
    // Both at once: the first keeps its folder; and each alone finds its own again.
    ASSERT_EQ(run(dir, "cut l1/m.bin l2/m.bin --out s").status, 0);
    ASSERT_EQ(run(dir, "cut l2/m.bin --out s").status, 0);
    EXPECT_EQ(run(dir, "cut --verify s/m l1/m.bin").status, 0);
    EXPECT_EQ(run(dir, "cut --verify s/l2-m l2/m.bin").status, 0);
    // A dump that fails now, and a folder with something else in it.
    writeBytes(dir / "l2/m.bin", flipped(readBytes(dir / "l2/m.bin"), 9 * 8));
    const Outcome failed = run(dir, "cut l2/m.bin --out s --report r.json");
    EXPECT_TRUE(matches(failed.out, "earlier cut is still in s/l2-m")) << failed.out;
    EXPECT_TRUE(nlohmann::json::parse(text(dir / "r.json"))["dumps"][0]["earlierCut"].get<bool>());
    writeBytes(dir / "s/m/notes", bytes("mine"));
    EXPECT_EQ(run(dir, "cut l1/m.bin --out s --force").status, 1);
    EXPECT_TRUE(fs::exists(dir / "s/m/notes"));
    fs::remove(dir / "s/m/notes");
    make(dir, "--size 16x12 --seed 3 -o l3.bin");
    fs::rename(dir / "l3.bin", dir / "m.bin");
    EXPECT_EQ(run(dir, "cut m.bin --out s --force").status, 0);
    EXPECT_EQ(run(dir, "cut --verify s/m m.bin").status, 0);
}

TEST(CutCommand, AnInterruptedBatchLosesNothing) {
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        const TempDir dir;
        make(dir, "--size 16x12 --seed 1 -o a.bin");
        make(dir, "--size 16x12 --seed 2 -o b.bin");
        ASSERT_EQ(shell(dir, "mkfifo pipe").status, 0);
        // The pipe has a writer that writes nothing.
        const Outcome result =
            runAndSignal(dir, "cut a.bin pipe b.bin -j 1 --out s --report r.json 3<>pipe",
                         dir / "s/a/cut.json", signal);
        EXPECT_EQ(result.status, -signal) << result.err;
        const auto report = nlohmann::json::parse(text(dir / "r.json"));
        EXPECT_EQ(report["dumps"][0]["result"], "cut");
        EXPECT_EQ(report["dumps"].size(), signal == SIGKILL ? 1U : 3U);
        for (std::size_t i = 1; i < report["dumps"].size(); ++i) {
            EXPECT_EQ(report["dumps"][i]["result"], "not reached");
        }
        EXPECT_EQ(shell(dir, "ls -A s").out, "a\n");
        const Outcome resumed = run(dir, "cut a.bin b.bin --out s --resume --report r.json");
        EXPECT_EQ(resumed.status, 0);
        const auto second = nlohmann::json::parse(text(dir / "r.json"));
        EXPECT_EQ(second["dumps"][0]["result"], "kept");
        EXPECT_EQ(second["dumps"][0]["fx"], report["dumps"][0]["fx"]);
        EXPECT_EQ(second["dumps"][1]["result"], "cut");
        writeBytes(dir / "s/a/qov.spc", {1, 2, 3});
        EXPECT_EQ(run(dir, "cut a.bin --out s --resume").status, 0);
        EXPECT_EQ(run(dir, "cut --verify s/a a.bin").status, 0);
    }
}
