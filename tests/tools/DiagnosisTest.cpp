// What the command makes of a file, in process: the same library objects cut it and explain it.
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "calcut/cutter.h"
#include "cutter/CRC32.h"
#include "fixtures.h"
#include "tools/dump/Diagnosis.h"
#include "tools/inspect/Text.h"
#include "tools/terminal/Escape.h"

using namespace fixtures;
using namespace calcut::tools;
using vantric::Wanted;

namespace {

constexpr std::size_t v7Header = 67;
constexpr std::size_t korvelineHeader = 104;
constexpr std::uint8_t plainType = 7, signedType = 22;

// The minimal calibration, its principal point inside the image; offsets of its blocks.
Bytes minimal() {
    Bytes packed = minimalPacked();
    packed[30] = 0;  // cy = 0
    return packed;
}
constexpr std::size_t block1 = 15, block2 = 54, block16 = 81, block21 = 145, block22 = 164,
                      endMarker = 183;

Bytes inserted(Bytes bytes, std::size_t at, const Bytes& what) {
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), what.begin(), what.end());
    return bytes;
}

Bytes signatureArea(std::uint8_t length) {
    return bytes(length, Bytes(127, 0xC5));
}

// Cuts in process, in a folder in memory where there is one.
int cut(const Bytes& dump, Layout layout) {
    static const TempDir folder(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp");
    if (layout != Layout::V7 && layout != Layout::Korveline) {
        return 1;
    }
    writeBytes(folder / "dump", dump);
    EEPROMMetaInformation meta;
    return cutEEPROMContent(layout == Layout::V7 ? 0 : 1, (folder / "dump").c_str(),
                            folder.path().c_str(), &meta);
}

std::string allOf(const Diagnosis& diagnosis) {
    std::string text;
    for (const auto* list : {&diagnosis.faults, &diagnosis.warnings}) {
        for (const Finding& finding : *list) {
            text += describe(finding) + "\n";
        }
    }
    return text;
}

struct Kind {
    const char* name;
    Layout layout;
    Bytes dump;
    std::size_t payload;    ///< offset; the payload ends with the file
    std::size_t crcOffset;  ///< of the image's checksum
};

std::vector<Kind> kinds() {
    return {
        {"v7", Layout::V7, v7Image(smallPacked()), v7Header, 8},
        {"korveline", Layout::Korveline, korvelineImage(minimal(), plainType), korvelineHeader, 58},
        {"signed", Layout::Korveline,
         korvelineImage(bytes(minimal(), signatureArea(64)), signedType), korvelineHeader, 58},
        {"packed", Layout::Packed, minimal(), 0, 0}};
}

Bytes repaired(Bytes dump, const Kind& kind) {
    if (kind.payload != 0 && dump.size() >= kind.payload) {
        putLittle32(dump, kind.crcOffset,
                    crc32Of(dump.data() + kind.payload, dump.size() - kind.payload));
    }
    return dump;
}

// A truncated image whose length says so.
Bytes shortened(const Kind& kind, std::size_t size) {
    Bytes dump = prefix(kind.dump, size);
    const std::size_t length = size - std::min(size, kind.payload);
    if (kind.layout == Layout::V7 && size >= kind.payload) {
        putLittle32(dump, 12, static_cast<std::uint32_t>(length));
    } else if (kind.layout == Layout::Korveline && size >= kind.payload) {
        dump = patched(dump, 56, bytes(length, length >> 8));
    }
    return repaired(std::move(dump), kind);
}

}  // namespace

// For every truncation and every flipped bit of a dump of each kind, with a checksum that matches;
// without it, for every bit of the header and some behind it.
TEST(Diagnosis, SaysIntactExactlyWhenACutSucceeds) {
    const auto check = [](const Kind& kind, const Bytes& dump, std::size_t at) {
        if (dump.empty()) {
            return;  // refused when it is loaded
        }
        const Diagnosis shown = diagnose(dump, kind.layout, Wanted::everything);
        const Diagnosis asCut = diagnose(dump, kind.layout, Wanted::cut);
        ASSERT_EQ(asCut.cuttable(), cut(dump, kind.layout) == 0) << kind.name << " " << at << "\n"
                                                                 << allOf(asCut);
        ASSERT_EQ(allOf(asCut), allOf(shown)) << kind.name << " " << at;
        ASSERT_EQ(whyNotCut(asCut).has_value(), !asCut.cuttable());
        if (at % 7 == 0) {
            ASSERT_FALSE(textOf(inspectTree(shown, "dump"), {}).empty());
        }
    };
    for (const Kind& kind : kinds()) {
        ASSERT_EQ(allOf(diagnose(kind.dump, kind.layout, Wanted::cut)), "") << kind.name;
        ASSERT_EQ(diagnose(kind.dump, kind.layout, Wanted::cut).cuttable(),
                  kind.layout != Layout::Packed);
        for (std::size_t size = 0; size < kind.dump.size(); ++size) {
            check(kind, prefix(kind.dump, size), size);
            check(kind, shortened(kind, size), size);
        }
        for (std::size_t bit = 0; bit < kind.dump.size() * 8; ++bit) {
            const Bytes damaged = flipped(kind.dump, bit);
            check(kind, repaired(damaged, kind), bit);
            if (bit / 8 < kind.payload || bit % 61 == 0) {
                check(kind, damaged, bit);
            }
        }
    }
}

TEST(Diagnosis, NamesTheCause) {
    const Bytes good = minimal();
    const Bytes image = v7Image(good);
    const auto v7 = [](const Bytes& packed) { return v7Image(packed); };
    const auto plain = [](const Bytes& payload) { return korvelineImage(payload, plainType); };
    const auto withArea = [](const Bytes& payload) { return korvelineImage(payload, signedType); };
    const auto with = [&](std::size_t at, const Bytes& block) {
        return v7Image(inserted(minimal(), at, block));
    };
    auto straylight = smallCalibration();
    straylight.straylight->psfWidth = 1U << 14;
    straylight.straylight->psfHeight = 1U << 13;
    Bytes custom;
    for (int id = 128; id < 134; ++id) {
        custom = bytes(custom, id, 0, 1, "c");
    }
    Bytes lens;
    for (const float value : {150.F, 150.F, 111.F, 85.F, -.2F, .1F, 0.F, 0.F, 0.F}) {
        lens = bytes(lens, Bytes(4));
        std::memcpy(&lens[lens.size() - 4], &value, 4);
    }
    constexpr std::uint32_t none = 255;
    constexpr std::uint64_t anywhere = UINT64_MAX;
    struct Case {
        const char* name;
        Bytes dump;
        std::uint64_t offset;
        std::uint32_t block = none, status = ok;
        std::optional<Layout> layout{};
    };
    const std::vector<Case> faults = {
        {"image-header-cut-short", prefix(image, 66), 66},
        {"version", patched(image, 6, {6}), 6},
        {"version", patched(plain(good), 15, {1}), 13},
        {"checksum", flipped(image, 100 * 8), 8},
        {"payload-outside", prefix(image, image.size() - 1), 12},
        {"empty-payload", v7({}), 12},
        {"empty-payload", plain({}), 56},
        {"no-room-for-signature", withArea(Bytes(127)), 56},
        {"only-signature", withArea(signatureArea(1)), 56},
        {"signature-empty", withArea(bytes(good, signatureArea(0))), 104 + 184},
        {"signature-too-long", withArea(bytes(good, signatureArea(128))), 104 + 184},
        {"calibration-header-cut-short", v7(prefix(good, 10)), 67, none, notSupported},
        {"calibration-magic", v7(bytes("no calibration here")), 67, none, notSupported},
        {"calibration-version", v7(patched(good, 6, {2})), 67 + 6, none, notSupported},
        {"no-pixels", v7(patched(good, 8, {0})), 67 + 7, none, invalidData},
        {"too-many-pixels", v7(patched(good, 7, Bytes(4, 255))), 67 + 7, none, 0xFFFE0001},
        {"calibration-cut-short", v7(prefix(good, endMarker)), 67 + endMarker, none, endOfData},
        {"unknown-kind", v7(patched(good, block1 + 1, {7})), 67 + block1 + 1, 1, invalidData},
        {"block-order", v7(patched(good, block16, {1})), 67 + block16, 1, invalidData},
        {"block-kind", v7(patched(good, block1 + 1, {3})), 67 + block1 + 1, 1, invalidData},
        {"too-few-elements", v7(patched(good, block1 + 2, {8})), 67 + block1 + 2, 1, countTooSmall},
        {"block-too-large", v7(patched(good, block1 + 2, {10})), 67 + block1 + 2, 1, tooSmall},
        {"block-cut-short", v7(prefix(good, 180)), 67 + block22 + 3, 22, endOfData},
        {"block-width", v7(patched(good, block2 + 3, {0})), 67 + block2 + 3, 2, invalidData},
        {"block-content", v7(patched(good, block21 + 2, {3})), 67 + block21 + 2, 21, invalidData},
        {"too-many-custom-blocks", with(endMarker, custom), 67 + endMarker + 20, 133, tooSmall},
        {"missing-block", v7(bytes(prefix(good, block22), 255)), 67 + block22, 22, fieldEmpty},
        {"block-without-frequency", with(endMarker, bytes(24, 4, 4, Bytes(16))), 67 + endMarker, 24,
         fieldEmpty},
        {"value-unset", with(block16, bytes(8, 1, 2, 255, 255, 0, 1)), 67 + block16, 8, valueUnset},
        {"psf-too-large", v7(packCalibration(straylight)), anywhere, 9, tooSmall},
        {"unknown-block", with(block16, bytes(10, 0, 4, 1, 2, 3, 4)), 67 + block16, 10},
        // One without payload is not to blame.
        {"missing-block", v7(bytes(prefix(good, block22), 72, 0, 249, 0, 0, 0, 0, 255)),
         67 + block22 + 7, 22, fieldEmpty},
        {"unknown-magic", bytes("neither one nor the other"), 0},
        {"magic", bytes("KORVELINX", Bytes(95)), 0, none, ok, Layout::Korveline},
        {"blank", Bytes(300, 0xFF), 0},
        {"blank", Bytes(300, 0), 0, none, ok, Layout::V7},
        {"wrong-layout", image, 0, none, ok, Layout::Korveline},
        {"wrong-layout", image, 0, none, ok, Layout::Packed},
        {"swapped-pairs", bytes("OQRVNI", 0, 7), 0},
        {"swapped-words", bytes("VROKNILE", 9, 9, 9, "E"), 0},
        {"lens-file", lens, 0},
        {"bytes-before-image", bytes(Bytes(5), image), 5},
        {"calibration-inside", flipped(image, 0), 67},
    };
    const std::vector<Case> warnings = {
        {"unknown-block", with(block16, bytes(10, 0, 249, 0, 0, 0, 0)), 67 + block16, 10},
        {"focal-length", v7(patched(good, 18, Bytes(4))), 67 + 18, 1},
        {"focal-length", v7(patched(good, 22, bytes(128, 0, 0, 0))), 67 + 18, 1},
        {"centre", v7(patched(good, 26, bytes(0x42, 0, 0, 0))), 67 + 26, 1},
        {"centre", v7(minimalPacked()), 67 + 26, 1},
        {"all-masked", v7(patched(good, 61, {0})), 67 + block2, 2},
        {"custom-fields", with(endMarker, bytes(128, 5, 1, 8, Bytes(4))), 67 + endMarker, 128,
         tooSmall},
        {"custom-fields", with(endMarker, bytes(140, 0, 1, 8)), 67 + endMarker, 140, invalidData},
        {"trailing-bytes", v7(bytes(good, "abc")), 67 + 184},
        {"trailing-bytes", plain(bytes(good, Bytes(127))), 104 + 184},
        {"uncut-signature", plain(bytes(good, Bytes(128))), 104 + 184},
        {"ends-in-signature", withArea(bytes(good, Bytes(21))), 104 + endMarker},
    };
    const auto check = [&](const Case& tried, bool isWarning) {
        SCOPED_TRACE(tried.name);
        const Layout layout = tried.layout.value_or(classify(tried.dump));
        const Diagnosis diagnosis = diagnose(tried.dump, layout, Wanted::cut);
        SCOPED_TRACE(allOf(diagnosis));
        EXPECT_EQ(diagnosis.faults.empty(), isWarning);
        EXPECT_EQ(cut(tried.dump, layout) == 0, isWarning);
        const auto& list = isWarning ? diagnosis.warnings : diagnosis.faults;
        ASSERT_FALSE(list.empty());
        EXPECT_TRUE(!isWarning || list.size() == 1);
        EXPECT_EQ(list[0].name, tried.name);
        EXPECT_EQ(list[0].offset, tried.offset == anywhere ? list[0].offset : tried.offset);
        EXPECT_EQ(list[0].blockId.value_or(none), tried.block);
        EXPECT_EQ(list[0].status, tried.status);
        EXPECT_EQ(list[0].what.find('{'), std::string::npos);
        EXPECT_FALSE(list[0].advice.empty());
    };
    for (const Case& tried : faults) {
        check(tried, false);
    }
    for (const Case& tried : warnings) {
        check(tried, true);
    }
}

TEST(Diagnosis, ABareCalibrationReadsButCannotBeCut) {
    const Bytes packed = minimal();
    const Diagnosis diagnosis = diagnose(packed, Layout::Packed, Wanted::cut);
    EXPECT_TRUE(diagnosis.intact());
    EXPECT_EQ(whyNotCut(diagnosis)->name, "bare-calibration");
}

// Each value under its own name, against what the dump was made of.
TEST(Inspect, ShowsEachValueUnderItsName) {
    const auto made = smallCalibration();
    const Bytes packed = packCalibration(made);
    const Bytes dump = korvelineImage(bytes(packed, signatureArea(3)), signedType);
    const Json tree =
        inspectTree(diagnose(dump, Layout::Korveline, Wanted::everything), "a\n\xC3\xA9");
    const Json& record = tree["record"];
    const std::array lens = {"fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3"};
    const std::string text = textOf(tree, {});
    for (std::size_t i = 0; i < lens.size(); ++i) {
        EXPECT_EQ(record["lens"][lens[i]].get<float>(), made.lens.at(i)) << lens[i];
        const std::size_t line = text.find(std::string("\n  ") + lens[i] + " ");
        EXPECT_EQ(std::stof(text.substr(line + 5)), made.lens.at(i)) << lens[i];
    }
    EXPECT_EQ(record["text1"], *made.text1);
    EXPECT_EQ(record["text2"], *made.text2);
    EXPECT_EQ(record["idBytes"], hexText(*made.idBytes));
    EXPECT_EQ(record["idCodes"], Json(*made.idCodes));
    EXPECT_EQ(record["auxFlag"], made.auxFlag);
    const auto masked = std::count(made.mask.begin(), made.mask.end(), 0U);
    EXPECT_EQ(record["maskedPixels"].get<std::ptrdiff_t>(), masked);
    EXPECT_EQ(record["zeroMaskCount"].get<std::ptrdiff_t>(), masked);
    for (std::size_t k = 0; k < made.frequencies.size(); ++k) {
        const Json& shown = record["frequencies"][k];
        const auto& frequency = made.frequencies[k];
        EXPECT_EQ(shown["id"], frequency.id);
        EXPECT_EQ(shown["valuesA"], Json(frequency.valuesA));
        EXPECT_EQ(shown["valuesB"], Json(frequency.valuesB));
        EXPECT_EQ(shown["scalar"].is_null(), !frequency.scalar.has_value());
        EXPECT_EQ(shown["wigglingA"]["first"], Json(frequency.wigglingA.first));
        EXPECT_EQ(shown["wigglingA"]["third"], Json(frequency.wigglingA.third));
        EXPECT_EQ(shown["wigglingB"]["first"], Json(frequency.wigglingB.first));
    }
    const Json& straylight = record["straylight"];
    EXPECT_EQ(straylight["scale"].get<float>(), made.straylight->scale);
    EXPECT_EQ(straylight["centre"].get<float>(), made.straylight->centre);
    EXPECT_EQ(straylight["radius"], Json(made.straylight->radius));
    EXPECT_EQ(straylight["value"], Json(made.straylight->value));
    for (std::size_t i = 0; i < made.custom.size(); ++i) {
        EXPECT_EQ(record["custom"][i]["hex"], hexText(made.custom[i]));
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
    const TextStyle style{0, [](Colour colour, std::string_view text) {
                              return fmt::format("<{}>{}", static_cast<int>(colour), text);
                          }};
    for (const auto& [dump, lines] : cases) {
        const std::string text =
            textOf(inspectTree(diagnose(dump, classify(dump), Wanted::everything), ""), style);
        for (const char* line : lines) {
            EXPECT_TRUE(firstMatch(text, std::string("\n *") + line + "\n")) << line << "\n"
                                                                             << text;
        }
    }
}

TEST(Inspect, FitsTheTerminal) {
    const Bytes dump = korvelineImage(bytes(smallPacked(), signatureArea(127)), signedType);
    const Json tree = inspectTree(diagnose(dump, Layout::Korveline, Wanted::everything), "dump");
    const std::string wide = textOf(tree, {});
    EXPECT_NE(wide.find("payload at"), std::string::npos);
    for (const std::size_t width : {64U, 80U, 100U, 132U}) {
        std::istringstream lines(textOf(tree, {width, nullptr}));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), width) << line;
            EXPECT_FALSE(line.ends_with(' ')) << line;
        }
    }
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
        const Dump dump = loadDump(path, limit);
        EXPECT_EQ(dump.error, error) << path;
        EXPECT_EQ(dump.bytes.empty(), !dump.error.empty()) << path;
    }
    // A pipe that somebody does write to.
    const int writer = open((dir / "pipe").c_str(), O_RDWR);
    ASSERT_EQ(write(writer, "abc", 3), 3);
    const pid_t child = fork();
    if (child == 0) {
        usleep(20000);
        (void)!write(writer, "def", 3);
        _exit(0);
    }
    close(writer);
    EXPECT_EQ(loadDump(dir / "pipe").bytes, bytes("abcdef"));
}

TEST(Escape, KeepsNamesAndStopsControls) {
    const std::vector<std::pair<std::string, std::string>> paths = {
        {"plain", "plain"},
        {"\xC3\xA9\xE2\x82\xAC", "\xC3\xA9\xE2\x82\xAC"},
        {"a\x1B[2Jb", "a\\x1b[2Jb"},
        {"\xC2\x9B", "\\xc2\\x9b"},
        {"\xFF\xC3", "\\xff\\xc3"},
        {"\xE2\x80\xAE", "\\xe2\\x80\\xae"},
        {"\xC0\xAF", "\\xc0\\xaf"},
        {"\xF0\x9F\x93\xB7", "\xF0\x9F\x93\xB7"},
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"}};
    for (const auto& [path, shown] : paths) {
        EXPECT_EQ(escapePath(path), shown);
    }
    EXPECT_EQ(escapeBytes("a\\b\xC3\n"), "a\\\\b\\xc3\\x0a");
}
