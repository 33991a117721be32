// Runs that are killed, that meet each other, or that fail half way lose no file.
#include <fcntl.h>
#include <sys/file.h>

#include <thread>

#include "tools/Modules.h"

using namespace command;

TEST(CutSafety, LeftoversOfDeadRunsGo) {
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

TEST(CutSafety, ASecondCommandWaits) {
    for (const std::string words : {"cut l1/m.bin out", "cut l1 --out out"}) {
        const TempDir dir;
        makePair(dir);
        fs::create_directory(dir / "out");
        const int lock = open((dir / "out").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_EQ(flock(lock, LOCK_EX), 0);
        EXPECT_EQ(runAndSignal(dir, words, dir / ".err", SIGINT).status, -SIGINT);
        EXPECT_TRUE(fs::is_empty(dir / "out"));
        writeBytes(dir / ".err", {});
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
TEST(CutSafety, TwoAtOnceNeverMixModules) {
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

// On a file system without exchange, whatever rename fails: the earlier cut is back, or it is told
// where it lies.
TEST(CutSafety, AFailedMoveLosesNothing) {
    const TempDir dir;
    makePair(dir);
    const std::string preload =
        "LD_PRELOAD=" CALCUT_RENAMES " ASAN_OPTIONS=verify_asan_link_order=0 RENAMES=";
    for (const std::string words : {"cut l2/m.bin out/m", "cut l2/m.bin --out out --force"}) {
        bool succeeded = false;
        for (int renames = 0; !succeeded; ++renames) {
            ASSERT_LT(renames, 10) << words;
            ASSERT_EQ(shell(dir, "rm -rf out; $C cut l1 --out out").status, 0);
            const auto before = cutIn(dir / "out/m");
            const Outcome result = shell(dir, preload + std::to_string(renames) + " $C " + words);
            succeeded = result.status == 0;
            if (succeeded) {
                EXPECT_EQ(shell(dir, "rm -f out/m/cut.json; ls -A out out/m").out,
                          "out:\nm\n\nout/m:\nlensdata.dat\nqov.spc\nsignature.bin\n");
                EXPECT_EQ(run(dir, "cut --verify out/m l2/m.bin").status, 0);
                continue;
            }
            const auto place =
                firstMatch(result.out + result.err, "out/[m/]*\\.calcut-part-[0-9a-f]+/earlier");
            if (!place) {
                EXPECT_EQ(cutIn(dir / "out/m"), before) << words << renames << result.err;
                continue;
            }
            auto left = cutIn(dir / *place);
            if (fs::exists(dir / "out/m")) {
                left.merge(cutIn(dir / "out/m"));
            }
            std::erase_if(left, [](const auto& file) { return file.second.empty(); });  // folders
            EXPECT_EQ(left, before) << words << renames << result.err;
        }
    }
    // Another module's cut comes at the last moment, and cannot go back.
    ASSERT_EQ(shell(dir, "rm -rf out; $C cut l1 --out out; $C cut l2 --out other").status, 0);
    const auto foreign = cutIn(dir / "other/m");
    const Outcome result = shell(dir, "FOREIGN=other/m " + preload + "9 $C cut l1 --out out");
    const auto place = firstMatch(result.out, "the earlier cut is in (out/[^ ]*/earlier)");
    ASSERT_TRUE(place) << result.out;
    EXPECT_EQ(cutIn(dir / *place), foreign);
}

TEST(CutSafety, WantOfMemoryIsARow) {
    const TempDir dir;
    // Sanitizers and emulators need more room than that.
    if (std::string(CALCUT_COMMAND).find("qemu") != std::string::npos ||
        shell(dir, "(ulimit -v 300000; $C --version)").status != 0) {
        GTEST_SKIP();
    }
    make(dir, "--size 640x480 -o dump");
    ASSERT_EQ(shell(dir, "mkdir in; for i in $(seq 24); do cp dump in/$i; done").status, 0);
    for (int kib = 100'000; kib <= 400'000; kib += 25'000) {
        const Outcome result = shell(dir, "(ulimit -v " + std::to_string(kib) +
                                              "; $C cut in --out out -j 16 --report r.json" +
                                              (kib % 50'000 != 0 ? " --name '{id}-{stem}')" : ")"));
        EXPECT_TRUE(result.status == 0 || result.status == 1) << kib << result.err;
        EXPECT_EQ(reportIn(dir)["dumps"].size(), 24U) << kib << result.err;
        EXPECT_EQ(reportIn(dir)["total"], 24) << kib;
        EXPECT_FALSE(matches(rowsOf(reportIn(dir), "result"), "not reached")) << kib;
    }
    const Outcome shown =
        shell(dir, "truncate -s 250M huge; (ulimit -v 250000; $C inspect --jsonl huge dump)");
    EXPECT_EQ(lines(shown.out), 2U) << shown.err;
    EXPECT_EQ(shown.err, "calcut: huge: not enough memory\n");
}
