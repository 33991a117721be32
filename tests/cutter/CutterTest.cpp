#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <set>
#include <stdexcept>
#include <tuple>

#include "calcut/cutter.h"
#include "calcut/vantric_rx.h"
#include "cutter/EEPROMKorvelineCutter.h"
#include "cutter/EEPROMv7Cutter.h"
#include "cutter/layouts.h"
#include "fixtures.h"
#include "RecordingLog.h"

using namespace fixtures;
using calcut::image::Layout;

namespace {

constexpr std::uint16_t untouched = 0xBEEF;

struct Cut {
    int result = -1;
    EEPROMMetaInformation meta = {};
    std::vector<recording::Line> lines;
};

Cut cut(int layout, const std::string& dump, const std::string& outputPath) {
    Cut cut;
    cut.meta.zeroMaskCount = untouched;
    recording::takeLines();
    cut.result = cutEEPROMContent(layout, dump.c_str(), outputPath.c_str(), &cut.meta);
    cut.lines = recording::takeLines();
    return cut;
}

Cut cutImage(int layout, const Bytes& image, const TempDir& out) {
    const TempDir in;
    writeBytes(in / "dump", image);
    return cut(layout, in / "dump", out.path());
}

Bytes signedPayload(const Bytes& calibration, int length) {
    Bytes area(127);
    std::iota(area.begin(), area.end(), std::uint8_t{0x80});
    return bytes(calibration, length, area);
}

using Names = std::vector<std::string>;

using Parameters = std::array<float, CALCUT_LENS_PARAMETER_COUNT>;

// Floats 1, 2, 3, ... as many as fit, and the bytes of one more.
Bytes lensFile(std::size_t size) {
    std::vector<float> values(size / 4 + 1);
    std::iota(values.begin(), values.end(), 1.0F);
    const auto* raw = reinterpret_cast<const std::uint8_t*>(values.data());
    return {raw, raw + size};
}

}  // namespace

TEST(Cut, RefusesUnknownLayoutsBeforeAnythingElse) {
    for (const int layout : {-1, 2, 7, 1 << 30}) {
        const Cut result = cut(layout, "/nowhere", "/nowhere");
        EXPECT_EQ(result.result, 1);
        EXPECT_EQ(result.meta.zeroMaskCount, untouched);
        EXPECT_TRUE(result.lines.empty());
    }
    EEPROMMetaInformation meta;
    EXPECT_EQ(cutEEPROMContent(0, nullptr, "/tmp", &meta), 1);
    EXPECT_EQ(cutEEPROMContent(0, "/tmp", nullptr, &meta), 1);
}

TEST(Cut, WritesTheFilesOfBothLayouts) {
    const Bytes calibration = minimalPacked();
    Bytes lensFile;
    for (int i = 0; i < 9; ++i) {
        lensFile = bytes(lensFile, 0, 0, 0x80, 0x3F);  // 1.0
    }
    using Case = std::tuple<int, Bytes, Bytes>;
    const Bytes area = signedPayload(calibration, 127);
    const Bytes shortSignature = signedPayload(calibration, 1);
    for (const auto& [layout, image, signature] :
         {Case{0, v7Image(calibration), {}}, Case{0, bytes(v7Image(calibration), "trailing"), {}},
          Case{1, korvelineImage(calibration, 0), {}},
          Case{1, korvelineImage(calibration, 23, 0x3000), {}},
          Case{1, korvelineImage(shortSignature, 22), {0x80}},
          Case{1, korvelineImage(area, 28), Bytes(area.end() - 127, area.end())}}) {
        const TempDir out;
        const Cut result = cutImage(layout, image, out);
        EXPECT_EQ(result.result, 0);
        EXPECT_EQ(result.meta.zeroMaskCount, 1);
        EXPECT_EQ(Bytes(result.meta.reserved, result.meta.reserved + 36), Bytes(36));
        const bool isSigned = !signature.empty();
        const std::size_t size = calibration.size() + (isSigned ? 128 : 0);
        const std::string line = "Writing block id " + std::string(isSigned ? "37" : "7") + " to " +
                                 out.path() + "/qov.spc (" + std::to_string(size) + " bytes).\n";
        EXPECT_EQ(result.lines, (std::vector<recording::Line>{{skarbo::info, line}}));
        EXPECT_EQ(readBytes(out / "qov.spc"), calibration);
        EXPECT_EQ(readBytes(out / "lensdata.dat"), lensFile);
        EXPECT_EQ(out.names().size(), isSigned ? 3U : 2U);
        EXPECT_TRUE(!isSigned || readBytes(out / "signature.bin") == signature);
    }
}

// The lens parameters come from the whole payload: this one ends inside what the area takes away.
TEST(Cut, DecodesASignedPayloadWithItsSignatureArea) {
    const Bytes open = prefix(minimalPacked(), minimalPacked().size() - 1);
    const Bytes payload = bytes(open, 128, 0, 127, Bytes(127, 9), 255);
    const TempDir out;
    EXPECT_EQ(cutImage(1, korvelineImage(payload, 22), out).result, 0);
    EXPECT_EQ(readBytes(out / "qov.spc"), bytes(open, 128, 0, 127));
    EXPECT_EQ(readBytes(out / "lensdata.dat").size(), 36U);
    EXPECT_EQ(readBytes(out / "signature.bin"), Bytes(9, 9));
}

TEST(Cut, ReportsEachFailureAndLeavesWhatWasWrittenBefore) {
    const Bytes noise = bytes("no calibration");
    const Bytes onlySigned = signedPayload({}, 5);
    const Bytes signed0 = signedPayload(minimalPacked(), 0);
    const Bytes signed128 = signedPayload(minimalPacked(), 128);
    const Bytes v7 = v7Image(minimalPacked());
    const Names spc = {"qov.spc"};
    const Names two = {"lensdata.dat", "qov.spc"};
    const Names three = {"lensdata.dat", "qov.spc", "signature.bin"};
    using Case = std::tuple<const char*, int, Bytes, Names, Names, std::uint16_t>;
    const std::vector<Case> cases = {
        {"v7 image refused", 0, bytes("QOVRIX"), {"File is corrupted"}, {}, untouched},
        {"v7 image in the other layout", 1, v7, {"Invalid file format"}, {}, untouched},
        {"v7 empty", 0, v7Image({}), {"Could not write data block"}, spc, 0},
        {"v7 noise", 0, v7Image(noise), {"Could not write data intrinsics"}, spc, 0},
        {"empty", 1, korvelineImage({}, 0), {"Could not write tango.bin"}, spc, 0},
        {"noise", 1, korvelineImage(noise, 0), {"Could not write intrinsics"}, spc, 0},
        {"area", 1, korvelineImage(onlySigned, 28), {"Could not write tango.bin"}, spc, 0},
        {"no room for a signature", 1, korvelineImage(Bytes(127, 1), 28), {}, {}, untouched},
        {"length 0", 1, korvelineImage(signed0, 28), {"Could not write signature"}, three, 1},
        {"length 128", 1, korvelineImage(signed128, 28), {"Could not write signature"}, two, 1},
    };
    for (const auto& [name, layout, image, errors, files, count] : cases) {
        SCOPED_TRACE(name);
        const TempDir out;
        const Cut result = cutImage(layout, image, out);
        EXPECT_EQ(result.result, 1);
        EXPECT_EQ(recording::errorsIn(result.lines), errors);
        EXPECT_EQ(out.names(), files);
        EXPECT_EQ(result.meta.zeroMaskCount, count);
    }
}

TEST(Cut, FailsWhereAFileCannotBeOpened) {
    const Bytes v7 = v7Image(minimalPacked());
    const Bytes korveline = korvelineImage(signedPayload(minimalPacked(), 9), 28);
    // A directory stands where this file should go.
    using Case = std::tuple<int, const char*, std::string, std::uint16_t>;
    for (const auto& [layout, blocked, error, count] :
         {Case{0, "qov.spc", "Could not write data block", 0},
          Case{0, "lensdata.dat", "Could not write data intrinsics", 1},
          Case{1, "qov.spc", "Could not write tango.bin", 0},
          Case{1, "lensdata.dat", "Could not write intrinsics", 1},
          Case{1, "signature.bin", "Could not write signature", 1}}) {
        const TempDir out;
        std::filesystem::create_directory(out / blocked);
        const Cut result = cutImage(layout, layout == 0 ? v7 : korveline, out);
        EXPECT_EQ(result.result, 1);
        EXPECT_EQ(result.lines.back().second, error + "\n");
        EXPECT_EQ(result.meta.zeroMaskCount, count) << blocked;
    }
    const TempDir in;
    writeBytes(in / "dump", v7);
    const Cut missing = cut(0, in / "dump", in / "nowhere");
    EXPECT_EQ(missing.result, 1);
    EXPECT_EQ(missing.meta.zeroMaskCount, 0);  // copied, though nothing was counted
    // A separator at the end is kept: plain concatenation.
    const Cut doubled = cut(0, in / "dump", in.path() + "/");
    EXPECT_EQ(doubled.result, 0);
    EXPECT_NE(doubled.lines[0].second.find("//qov.spc"), std::string::npos);
}

TEST(Cut, CountsTheMaskOverTheSensorAndNoFurther) {
    using Case = std::tuple<std::uint16_t, std::uint16_t, std::uint32_t, std::uint16_t>;
    for (const auto& [columns, rows, pixel, count] :
         {Case{224, 172, 0, 38528}, Case{224, 172, 1, 0}, Case{240, 172, 0, 38528},
          Case{5, 1, 0, 5}}) {
        calcut::writer::Calibration calibration =
            calcut::writer::makeCalibration({.columns = columns, .rows = rows, .frequencies = 1});
        calibration.mask.assign(calibration.mask.size(), pixel);
        const TempDir out;
        const Cut result = cutImage(0, v7Image(calcut::writer::packCalibration(calibration)), out);
        EXPECT_EQ(result.result, 0);
        EXPECT_EQ(result.meta.zeroMaskCount, count);
    }
}

// A handler of a host that throws, in front of the library's own.
class ThrowingHandler {
  public:
    ThrowingHandler() {
        vantric_clearCalibrationHandlers();
        VantricCalibrationHandler handler = vantric_getRXCalibrationHandler();
        handler.readCalibration = [](const std::uint8_t*, std::size_t,
                                     VantricCalibration*) -> RXReadResult { throw 1; };
        vantric_registerCalibrationHandler(&handler);
    }
    ~ThrowingHandler() { vantric_clearCalibrationHandlers(); }
};

TEST(Cut, FailsWhereAHandlerOfTheHostThrows) {
    const ThrowingHandler registered;
    const Bytes packed = minimalPacked();
    const TempDir out;
    const Cut result = cutImage(0, v7Image(packed), out);
    EXPECT_EQ(result.result, 1);
    EXPECT_EQ(result.meta.zeroMaskCount, untouched);
    EXPECT_EQ(out.names(), Names{"qov.spc"});
    VantricCalibration* record = nullptr;
    EXPECT_THROW(vantric_readCalibration(packed.data(), packed.size(), &record), int);
    EXPECT_EQ(record, nullptr);
}

TEST(Layouts, DescribeTheirHeadersWithoutGaps) {
    std::set<std::string_view> names;
    for (const Layout& layout : calcut::image::layouts) {
        SCOPED_TRACE(layout.name);
        EXPECT_TRUE(names.insert(layout.name).second && names.insert(layout.magic).second);
        std::size_t end = 0;
        for (const calcut::image::Field& field : layout.fields) {
            EXPECT_EQ(field.offset, end) << field.name;
            end += field.size;
        }
        EXPECT_EQ(end, layout.headerSize);
        const calcut::image::Field& length = layout.fields[layout.lengthField];
        EXPECT_EQ(layout.maxPayload, (std::uint64_t{1} << 8 * length.size) - 1);
        EXPECT_EQ(calcut::image::layoutOf(layout.number), &layout);
        // A header of zeros behind the magic is of the layout, in a version that is not.
        Bytes header = bytes(layout.magic);
        header.resize(layout.headerSize);
        const auto refusal = layout.locate(header, 0).refusal;
        ASSERT_TRUE(refusal);
        EXPECT_EQ(refusal->cause, calcut::image::Cause::wrongVersion);
        EXPECT_EQ(refusal->offset, layout.fields[layout.versionField].offset);
        header.pop_back();
        EXPECT_EQ(layout.locate(header, 0).refusal->cause, calcut::image::Cause::headerCutShort);
    }
}

TEST(Cutter, KeepsItsRecords) {
    EEPROMv7Cutter v7;
    EEPROMKorvelineCutter korveline;
    EXPECT_EQ(v7.getMetaInformation(), nullptr);
    EXPECT_EQ(korveline.getMetaInformation(), nullptr);
    EXPECT_THROW(korveline.writeFile(37, Bytes(127)), std::length_error);
    EXPECT_THROW(korveline.writeSignature(Bytes(127)), std::out_of_range);

    const TempDir dir;
    writeBytes(dir / "dump", v7Image(minimalPacked()));
    v7.setInputFile(dir / "dump");
    v7.setOutputPath(dir.path());
    ASSERT_TRUE(v7.execute());
    const EEPROMMetaInformation* first = v7.getMetaInformation();
    ASSERT_TRUE(v7.execute());
    EXPECT_NE(v7.getMetaInformation(), first);  // a new record for each run, the old one stays
    EXPECT_EQ(first->zeroMaskCount, 1);

    // The base's own version hands out a zero-filled record and keeps nothing.
    EEPROMMetaInformation* own = v7.EEPROMCutterBase::getMetaInformation();
    EXPECT_EQ(own->zeroMaskCount, 0);
    EXPECT_NE(v7.getMetaInformation(), own);
    delete own;
}

TEST(LensParameters, ComeInTheOrderOfTheCamerasModel) {
    const TempDir dir;
    for (const std::size_t size : {36U, 40U, 4000U}) {
        writeBytes(dir / "lens", lensFile(size));
        for (const unsigned layout : {0U, 1U}) {
            Parameters parameters;
            parameters.fill(-1.0F);
            EXPECT_EQ(readLensParameters(layout, (dir / "lens").c_str(), parameters.data()), 0);
            EXPECT_EQ(parameters, (Parameters{3, 4, 1, 2, 7, 8, 5, 6, 9, 0}));
        }
    }
}

TEST(LensParameters, AreLeftAloneByEveryFailure) {
    const TempDir dir;
    Parameters parameters;
    parameters.fill(-1.0F);
    const auto fails = [&](unsigned layout, const char* path, std::size_t messages) {
        recording::takeLines();
        EXPECT_EQ(readLensParameters(layout, path, parameters.data()), 1);
        EXPECT_EQ(recording::takeErrors(),
                  std::vector<std::string>(messages, "Could not lens parameter file"));
    };
    for (std::size_t size = 0; size < 64; ++size) {
        if (size < 36 || size % 4 != 0) {
            writeBytes(dir / "lens", lensFile(size));
            fails(0, (dir / "lens").c_str(), 1);
        }
    }
    fails(1, (dir / "missing").c_str(), 1);
    fails(1, dir.path().c_str(), 1);
    fails(1, nullptr, 1);
    fails(2, (dir / "missing").c_str(), 0);
    fails(0xFFFFFFFFU, nullptr, 0);
    EXPECT_EQ(parameters, (Parameters{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1}));
}
