// The tree of a file and its text, and how files are taken in.
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "tools/Dumps.h"
#include "tools/inspect/Inspect.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"
#include "tools/module/Tree.h"
#include "tools/text/Escape.h"
#include "tools/text/Lines.h"
#include "tools/text/Terminal.h"

using namespace dumps;
using namespace calcut;
using vantric::Wanted;

// Each value under its own name, against what the dump was made of.
TEST(Inspect, ShowsEachValueUnderItsName) {
    const auto made = smallCalibration();
    const Bytes packed = packCalibration(made);
    const Bytes dump = korvelineImage(bytes(packed, signatureArea(3)), signedType);
    const module::Diagnosis about = module::diagnose(dump, korvelineLayout, Wanted::everything);
    const std::string path = "a\n\xC3\xA9";
    const text::Json tree = module::inspectTree(about, path);
    const text::Json& record = tree["record"];
    const std::array lens = {"fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3"};
    const std::string text = inspect::textOf(about, path, {});
    for (std::size_t i = 0; i < lens.size(); ++i) {
        EXPECT_EQ(record["lens"][lens[i]].get<float>(), made.lens.at(i)) << lens[i];
        const std::size_t line = text.find(std::string("\n  ") + lens[i] + " ");
        EXPECT_EQ(std::stof(text.substr(line + 5)), made.lens.at(i)) << lens[i];
    }
    EXPECT_EQ(record["text1"], *made.text1);
    EXPECT_EQ(record["text2"], *made.text2);
    EXPECT_EQ(record["idBytes"], text::hexText(*made.idBytes));
    EXPECT_EQ(record["idCodes"], text::Json(*made.idCodes));
    EXPECT_EQ(record["auxFlag"], made.auxFlag);
    const auto masked = std::count(made.mask.begin(), made.mask.end(), 0U);
    EXPECT_EQ(record["maskedPixels"].get<std::ptrdiff_t>(), masked);
    EXPECT_EQ(record["zeroMaskCount"].get<std::ptrdiff_t>(), masked);
    for (std::size_t k = 0; k < made.frequencies.size(); ++k) {
        const text::Json& shown = record["frequencies"][k];
        const auto& frequency = made.frequencies[k];
        EXPECT_EQ(shown["id"], frequency.id);
        EXPECT_EQ(shown["valuesA"], text::Json(frequency.valuesA));
        EXPECT_EQ(shown["valuesB"], text::Json(frequency.valuesB));
        EXPECT_EQ(shown["scalar"].is_null(), !frequency.scalar.has_value());
        EXPECT_EQ(shown["wigglingA"]["first"], text::Json(frequency.wigglingA.first));
        EXPECT_EQ(shown["wigglingA"]["third"], text::Json(frequency.wigglingA.third));
        EXPECT_EQ(shown["wigglingB"]["first"], text::Json(frequency.wigglingB.first));
    }
    // Each key spelt as docs/inspect-json.md has it.
    const auto keysOf = [](const text::Json& object) {
        std::string keys;
        for (const auto& [key, value] : object.items()) {
            keys += (keys.empty() ? "" : " ") + key;
        }
        return keys;
    };
    EXPECT_EQ(keysOf(record),
              "columns rows auxFlag lens text0 text1 text2 idBytes idCodes maskedPixels "
              "zeroMaskCount frequencies straylight custom customStatus");
    EXPECT_EQ(keysOf(record["lens"]), "fx fy cx cy k1 k2 p1 p2 k3");
    EXPECT_EQ(keysOf(record["frequencies"][0]),
              "index id scalar valuesA valuesB wigglingA wigglingB");
    for (const char* table : {"wigglingA", "wigglingB"}) {
        EXPECT_EQ(keysOf(record["frequencies"][0][table]), "header first second third");
    }
    EXPECT_EQ(keysOf(record["straylight"]),
              "scale exponent offset centre psfWidth psfHeight radius value");
    const text::Json& straylight = record["straylight"];
    EXPECT_EQ(straylight["scale"].get<float>(), made.straylight->scale);
    EXPECT_EQ(straylight["centre"].get<float>(), made.straylight->centre);
    EXPECT_EQ(straylight["radius"], text::Json(made.straylight->radius));
    EXPECT_EQ(straylight["value"], text::Json(made.straylight->value));
    for (std::size_t i = 0; i < made.custom.size(); ++i) {
        EXPECT_EQ(record["custom"][i]["hex"], text::hexText(made.custom[i]));
    }
    EXPECT_EQ(tree["image"]["signature"]["hex"], "c5c5c5");
    EXPECT_EQ(tree["image"]["storedCrc"], tree["image"]["computedCrc"]);
    EXPECT_EQ(tree["calibration"]["bytes"], packed.size());
    EXPECT_EQ(tree["calibration"]["endMarker"], korvelineHeader + packed.size() - 1);
    EXPECT_EQ(tree["calibration"]["header"]["columns"], 8);
    const auto [low, high] = std::minmax_element(made.lens.begin(), made.lens.end());
    EXPECT_EQ(tree["calibration"]["blocks"][1]["range"]["min"].get<float>(), *low);
    EXPECT_EQ(tree["calibration"]["blocks"][1]["range"]["max"].get<float>(), *high);
    EXPECT_TRUE(text.starts_with("a\\x0a\xC3\xA9: korveline image"));
}

// Colours stand as their numbers in front of what they colour.
TEST(Inspect, ExplainsWhatItShows) {
    const Bytes good = minimal();
    const auto with = [&good](std::size_t at, const Bytes& block) {
        return v7Image(inserted(good, at, block));
    };
    const Bytes whole = korvelineImage(bytes(smallPacked(), signatureArea(3)), signedType);
    const struct {
        Bytes dump;
        std::vector<const char*> lines;
    } cases[] = {
        {whole,
         {"payload +[0-9]+ bytes at byte 104", "computed CRC-32 +<1>0x[0-9a-f]{8}  matches",
          "signature +3 bytes\n +c5c5c5", "sensor +8 columns x [0-9]+ rows, [0-9]+ pixels",
          "[0-9]+  255  end marker", "<3>Record", "image area +8 x [0-9]+ pixels",
          "fx +[0-9.]+ pixels", "k1 +[-0-9.]+", "text 1 +\".+\"",
          "id codes +0x[0-9a-f]{4}  0x[0-9a-f]{4}", "masked pixels +[0-9]+ of [0-9]+",
          "frequency 0 +id [0-9]+",
          "  wiggling A +header 0x[0-9a-f]{8} \\([-+0-9.e]+\\), entries: [1-5]",
          "straylight +scale .*, exponent .*, offset .*, centre .*", "  PSF +[0-9]+ x [0-9]+ .*",
          "custom 128 +[0-9a-f]+", "read +VANTRIC_OK \\(0x00000000: read\\)", "verdict +<1>reads"}},
        {flipped(v7Image(good), 100 * 8),
         {"computed CRC-32 +<0>0x[0-9a-f]{8}  does not match", "<3>Record"}},
        {prefix(v7Image(good), 180),
         {"payload +[0-9]+ bytes at byte 67, not all inside the file",
          "<3>Record, as far as it was read"}},
        {v7Image(patched(good, block1 + 1, {3})),
         {"failing block +1 \\(lens parameters\\)",
          "read +VANTRIC_ERR_INVALID_DATA \\(0x80000009: wrong order, .*\\)"}},
        {v7Image(patched(good, 7, Bytes(4, 255))), {"read +0xfffe0001 \\(.*no status.*\\)"}},
        {v7Image(patched(good, 34, bytes(0x80, 0, 0, 0))),
         {"k1 +-inf", ".* 1  lens parameters .*, 1 not finite  read"}},
        {v7Image(bytes(good, "abc")), {"3 bytes behind the end marker"}},
        {with(block16, bytes(10, 0, 249, 0, 0, 0, 0)), {"ignored +an id below 128 .*"}},
        {with(endMarker, bytes(128, 5, 1, 8, Bytes(4))),
         {"custom fields +not readable: VANTRIC_ERR_BUFFER_TOO_SMALL \\(larger .*\\)"}},
    };
    const text::TextStyle style{0, [](text::Colour colour, std::string_view text) {
                                    return fmt::format("<{}>{}", static_cast<int>(colour), text);
                                }};
    for (const auto& [dump, lines] : cases) {
        const std::string text = inspect::textOf(
            module::diagnose(dump, module::classify(dump), Wanted::everything), "", style);
        for (const char* line : lines) {
            EXPECT_TRUE(firstMatch(text, std::string("\n *") + line + "\n")) << line << "\n"
                                                                             << text;
        }
    }
}

TEST(Inspect, FitsTheTerminal) {
    const Bytes dump = korvelineImage(bytes(smallPacked(), signatureArea(127)), signedType);
    const module::Diagnosis about = module::diagnose(dump, korvelineLayout, Wanted::everything);
    const std::string wide = inspect::textOf(about, "dump", {});
    EXPECT_NE(wide.find("payload at"), std::string::npos);
    for (const std::size_t width : {64U, 80U, 100U, 132U}) {
        std::istringstream lines(inspect::textOf(about, "dump", {width, nullptr}));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), width) << line;
            EXPECT_FALSE(line.ends_with(' ')) << line;
        }
    }
    // What is wrapped is measured and broken in characters.
    text::Lines lines({64, nullptr});
    lines.item("name", text::hexText(Bytes(21)) + "\xC3\xA9\xC3\xA9");
    EXPECT_TRUE(lines.take().ends_with("0\xC3\xA9\n" + std::string(21, ' ') + "\xC3\xA9\n"));
}

TEST(Dump, IsLoadedOnceWithinTheLimitAndNeverWaitedFor) {
    const TempDir dir;
    writeBytes(dir / "good", Bytes(1000, 1));
    writeBytes(dir / "empty", {});
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", (dir / "socket").c_str());
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    close(listener);
    const std::vector<std::tuple<std::string, std::uint64_t, const char*>> cases = {
        {dir / "good", 1000, ""},
        {dir / "good", 999, "is larger than 999 bytes, the limit for a dump (--max-size)"},
        {dir / "missing", 1000, "No such file or directory"},
        {dir / "empty", 1000, "is empty"},
        {dir.path(), 1000, "is a directory"},
        {dir / "pipe", 1000, "is a pipe that nobody writes to"},
        {dir / "socket", 1000, "is a socket"},
        {"/dev/null", 1000, "is empty"},
        {"/dev/zero", 1 << 20, "is larger than 1 MiB, the limit for a dump (--max-size)"},
    };
    for (const auto& [path, limit, error] : cases) {
        std::string refusal;
        try {
            EXPECT_FALSE(files::loadDump(path, {.maxSize = limit}).empty()) << path;
        } catch (const text::Refused& refused) {
            refusal = refused.what();
        }
        EXPECT_EQ(refusal, error) << path;
    }
    // A pipe that somebody does write to.
    const int writer = open((dir / "pipe").c_str(), O_RDWR);
    ASSERT_EQ(write(writer, "abc", 3), 3);
    const pid_t child = fork();
    if (child == 0) {
        waitUntilAtRest(getppid());
        (void)!write(writer, "def", 3);
        _exit(0);
    }
    close(writer);
    EXPECT_EQ(files::loadDump(dir / "pipe"), bytes("abcdef"));
}

TEST(Escape, KeepsNamesAndStopsControls) {
    const std::vector<std::pair<std::string, std::string>> paths = {
        {"plain", "plain"},
        {"\xC3\xA9\xE2\x82\xAC", "\xC3\xA9\xE2\x82\xAC"},
        {"a\x1B[2Jb", "a\\x1b[2Jb"},
        {"\xC2\x9B", "\\xc2\\x9b"},
        {"\xFF\xC3", "\\xff\\xc3"},
        {"\xE2\x80\xAE", "\\xe2\\x80\\xae"},
        {"\xD8\x9C", "\\xd8\\x9c"},
        {"\xC0\xAF", "\\xc0\\xaf"},
        {"\xF0\x9F\x93\xB7", "\xF0\x9F\x93\xB7"},
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"}};
    for (const auto& [path, shown] : paths) {
        EXPECT_EQ(text::escapePath(path), shown);
    }
    EXPECT_EQ(text::escapeBytes("a\\b\xC3\n"), "a\\\\b\\xc3\\x0a");
}
