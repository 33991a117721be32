#include <gtest/gtest.h>

#include <stdexcept>

#include "cutter/EEPROMKorvelineCutter.h"
#include "cutter/EEPROMv7Cutter.h"
#include "fixtures.h"
#include "RecordingLog.h"

using namespace fixtures;

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

std::string progress(int id, const TempDir& out, std::size_t bytes) {
    return "Writing block id " + std::to_string(id) + " to " + out.path() + "/qov.spc (" +
           std::to_string(bytes) + " bytes).\n";
}

Bytes signedPayload(const Bytes& calibration, int length) {
    Bytes payload = calibration;
    payload.push_back(static_cast<std::uint8_t>(length));
    for (int i = 0; i < 127; ++i) {
        payload.push_back(static_cast<std::uint8_t>(0x80 + i));
    }
    return payload;
}

using Names = std::vector<std::string>;

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
    const Bytes lens = bytes(0, 0, 0x80, 0x3F);  // 1.0, nine times
    Bytes lensFile;
    for (int i = 0; i < 9; ++i) {
        lensFile.insert(lensFile.end(), lens.begin(), lens.end());
    }
    struct Case {
        int layout;
        Bytes image;
        int id;
        std::size_t payload;
        Bytes signature;
    };
    const Bytes area = signedPayload(calibration, 127);
    const std::vector<Case> cases = {
        {0, v7Image(calibration), 7, calibration.size(), {}},
        {0, bytes(v7Image(calibration), "trailing"), 7, calibration.size(), {}},
        {1, korvelineImage(calibration, 0), 7, calibration.size(), {}},
        {1, korvelineImage(calibration, 23, 0x3000), 7, calibration.size(), {}},
        {1,
         korvelineImage(signedPayload(calibration, 1), 22),
         37,
         calibration.size() + 128,
         {0x80}},
        {1, korvelineImage(area, 28), 37, calibration.size() + 128,
         Bytes(area.end() - 127, area.end())},
    };
    for (const Case& item : cases) {
        const TempDir out;
        const Cut result = cutImage(item.layout, item.image, out);
        EXPECT_EQ(result.result, 0);
        EXPECT_EQ(result.meta.zeroMaskCount, 1);
        EXPECT_EQ(Bytes(result.meta.reserved, result.meta.reserved + 36), Bytes(36));
        ASSERT_EQ(result.lines.size(), 1U);
        EXPECT_EQ(result.lines[0].first, skarbo::info);
        EXPECT_EQ(result.lines[0].second, progress(item.id, out, item.payload));
        EXPECT_EQ(readBytes(out / "qov.spc"), calibration);
        EXPECT_EQ(readBytes(out / "lensdata.dat"), lensFile);
        if (item.signature.empty()) {
            EXPECT_EQ(out.names(), (Names{"lensdata.dat", "qov.spc"}));
        } else {
            EXPECT_EQ(readBytes(out / "signature.bin"), item.signature);
        }
    }
}

TEST(Cut, ReportsEachFailureAndLeavesWhatWasWrittenBefore) {
    const Bytes calibration = minimalPacked();
    const Bytes noise = bytes("no calibration");
    const Bytes shortSigned(127, 1);
    struct Case {
        const char* name;
        int layout;
        Bytes image;
        std::vector<std::string> errors;
        Names files;
        std::uint16_t count;
    };
    const std::vector<Case> cases = {
        {"v7 image refused", 0, bytes("QOVRIX"), {"File is corrupted"}, {}, untouched},
        {"v7 image in the other layout",
         1,
         v7Image(calibration),
         {"Invalid file format"},
         {},
         untouched},
        {"v7 empty payload", 0, v7Image({}), {"Could not write data block"}, {"qov.spc"}, 0},
        {"v7 not a calibration",
         0,
         v7Image(noise),
         {"Could not write data intrinsics"},
         {"qov.spc"},
         0},
        {"korveline empty payload",
         1,
         korvelineImage({}, 0),
         {"Could not write tango.bin"},
         {"qov.spc"},
         0},
        {"korveline not a calibration",
         1,
         korvelineImage(noise, 0),
         {"Could not write intrinsics"},
         {"qov.spc"},
         0},
        {"nothing but a signature area",
         1,
         korvelineImage(signedPayload({}, 5), 28),
         {"Could not write tango.bin"},
         {"qov.spc"},
         0},
        {"no room for a signature area", 1, korvelineImage(shortSigned, 28), {}, {}, untouched},
        {"signature of length 0",
         1,
         korvelineImage(signedPayload(calibration, 0), 28),
         {"Could not write signature"},
         {"lensdata.dat", "qov.spc", "signature.bin"},
         1},
        {"signature longer than its area",
         1,
         korvelineImage(signedPayload(calibration, 128), 28),
         {"Could not write signature"},
         {"lensdata.dat", "qov.spc"},
         1},
    };
    for (const Case& item : cases) {
        SCOPED_TRACE(item.name);
        const TempDir out;
        const TempDir in;
        writeBytes(in / "dump", item.image);
        EEPROMMetaInformation meta = {};
        meta.zeroMaskCount = untouched;
        recording::takeLines();
        EXPECT_EQ(cutEEPROMContent(item.layout, (in / "dump").c_str(), out.path().c_str(), &meta),
                  1);
        EXPECT_EQ(recording::takeErrors(), item.errors);
        EXPECT_EQ(out.names(), item.files);
        EXPECT_EQ(meta.zeroMaskCount, item.count);
    }
}

TEST(Cut, FailsWhereAFileCannotBeOpened) {
    const Bytes calibration = minimalPacked();
    const Bytes v7 = v7Image(calibration);
    const Bytes korveline = korvelineImage(signedPayload(calibration, 9), 28);
    struct Case {
        int layout;
        const char* blocked;  ///< a directory stands where this file should go
        const char* error;
        std::uint16_t count;
    };
    for (const Case& item : {Case{0, "qov.spc", "Could not write data block", 0},
                             Case{0, "lensdata.dat", "Could not write data intrinsics", 1},
                             Case{1, "qov.spc", "Could not write tango.bin", 0},
                             Case{1, "lensdata.dat", "Could not write intrinsics", 1},
                             Case{1, "signature.bin", "Could not write signature", 1}}) {
        const TempDir out;
        std::filesystem::create_directory(out / item.blocked);
        const Cut result = cutImage(item.layout, item.layout == 0 ? v7 : korveline, out);
        EXPECT_EQ(result.result, 1);
        EXPECT_EQ(result.lines.back().second, std::string(item.error) + "\n");
        EXPECT_EQ(result.meta.zeroMaskCount, item.count) << item.blocked;
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

TEST(Cut, EndsTheProcessOnADumpThatIsNotThere) {
    const TempDir out;
    EEPROMMetaInformation meta;
    for (const int layout : {0, 1}) {
        EXPECT_DEATH(cutEEPROMContent(layout, "", out.path().c_str(), &meta), "");
    }
}

TEST(Cut, CountsTheMaskOverTheSensorAndNoFurther) {
    struct Case {
        std::uint16_t columns, rows;
        std::uint32_t pixel;
        std::uint16_t count;
    };
    for (const Case& item : {Case{224, 172, 0, 38528}, Case{224, 172, 1, 0},
                             Case{240, 172, 0, 38528}, Case{5, 1, 0, 5}}) {
        calcut::writer::CalibrationOptions options;
        options.columns = item.columns;
        options.rows = item.rows;
        options.frequencies = 1;
        calcut::writer::Calibration calibration = calcut::writer::makeCalibration(options);
        calibration.mask.assign(calibration.mask.size(), item.pixel);
        const TempDir out;
        const Cut result = cutImage(0, v7Image(calcut::writer::packCalibration(calibration)), out);
        EXPECT_EQ(result.result, 0);
        EXPECT_EQ(result.meta.zeroMaskCount, item.count);
    }
}

TEST(Cutter, KeepsItsRecordsAndDiesOnForeignBlocks) {
    EEPROMv7Cutter v7;
    EEPROMKorvelineCutter korveline;
    EXPECT_EQ(v7.getMetaInformation(), nullptr);
    EXPECT_EQ(korveline.getMetaInformation(), nullptr);
    EXPECT_DEATH(v7.writeFile(37, {}), "");
    EXPECT_DEATH(v7.writeFile(7 + 65536, {}), "");
    EXPECT_DEATH(korveline.writeFile(8, {}), "");
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
