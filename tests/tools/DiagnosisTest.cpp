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
#include "tools/Dumps.h"
#include "tools/inspect/Inspect.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/Layout.h"
#include "tools/module/Tree.h"
#include "tools/text/Escape.h"
#include "tools/text/Lines.h"

using namespace dumps;
using namespace calcut;
using vantric::Wanted;

namespace {

// Cuts in process, in a folder in memory where there is one.
int cut(const Bytes& dump, module::Layout layout) {
    static const TempDir folder(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp");
    if (layout.image == nullptr) {
        return 1;
    }
    writeBytes(folder / "dump", dump);
    EEPROMMetaInformation meta;
    return cutEEPROMContent(layout.image->number, (folder / "dump").c_str(), folder.path().c_str(),
                            &meta);
}

}  // namespace

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
        std::optional<module::Layout> layout{};
    };
    const std::vector<Case> faults = {
        {"image-header-cut-short", prefix(image, 66), 66},
        {"version", patched(image, 6, {6}), 6},
        {"version", patched(plain(good), 15, {1}), 13},
        {"checksum", flipped(image, 100 * 8), 8},
        {"payload-outside", prefix(image, image.size() - 1), 12},
        {"empty-payload", v7({}), 12},
        {"empty-payload", plain({}), 56},
        {"empty-payload", patched(plain({}), 52, Bytes(4)), 56},  // below the base address
        {"no-room-for-signature", patched(withArea({}), 52, Bytes(4)), 56},
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
        {"magic", bytes("KORVELINX", Bytes(95)), 8, none, ok, korvelineLayout},
        {"blank", Bytes(300, 0xFF), 0},
        {"blank", Bytes(300, 0), 0, none, ok, v7Layout},
        {"wrong-layout", image, 0, none, ok, korvelineLayout},
        {"wrong-layout", image, 0, none, ok, module::Layout::Packed},
        {"swapped-pairs", bytes("OQRVNI", 0, 7), 0},
        {"swapped-words", bytes("VROKNILE", 9, 9, 9, "E"), 0},
        {"lens-file", lens, 0},
        {"bytes-before-image", bytes(Bytes(5), image), 5},
        {"gzip", bytes(0x1F, 0x8B, 8, 0, Bytes(20)), 0},
        {"xxd", bytes("00000000: 514f 5652 494e 0700  QOVRIN..\n"), 0},
        {"intel-hex", bytes(":10000000514F5652494E0700E4A5A5A5\n"), 0},
        {"s-record", bytes("S1130000514F5652494E0700E4A5A5A5A5\n"), 0},
        {"plain-hex",
         bytes("514f5652494e0700\n514f5652494e0700\n514f5652494e0700\n"
               "514f5652494e0700\n"),
         0},
        {"base64", bytes("UU9WUklOBwDkpaWlpaWlpaWlpaWlpaWlpaWlpaWlpaWlpaWlpaWlpaWlpaWlpaU=\n"), 0},
        {"calibration-inside", flipped(image, 3 * 8), 3},
    };
    const auto withLens = [](std::size_t at, float value) {
        auto calibration = smallCalibration();
        calibration.lens.at(at) = value;
        return v7Image(packCalibration(calibration));
    };
    const std::vector<Case> warnings = {
        {"focal-ratio", withLens(VANTRIC_LENS_FX, 1.3F * smallCalibration().lens[1]), anywhere, 1},
        {"folded", withLens(VANTRIC_LENS_K1, -0.9F), anywhere, 1},
        {"half-masked", v7(patched(good, 61, {1})), 67 + block2, 2},
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
        const module::Layout layout = tried.layout.value_or(module::classify(tried.dump));
        const module::Diagnosis diagnosis = module::diagnose(tried.dump, layout, Wanted::cut);
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
    const module::Diagnosis diagnosis =
        module::diagnose(packed, module::Layout::Packed, Wanted::cut);
    EXPECT_TRUE(diagnosis.intact());
    EXPECT_EQ(module::whyNotCut(diagnosis)->name, "bare-calibration");
}
