// How two modules differ, in process: what a comparison may not miss, and what it may not invent.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <tuple>

#include "fixtures.h"
#include "tools/compare/Compare.h"
#include "tools/module/Layout.h"
#include "tools/module/Tables.h"

using namespace fixtures;
using namespace calcut;

namespace {

using calcut::writer::Calibration;
using Change = std::function<void(Calibration&)>;

module::Diagnosis diagnosisOf(const Bytes& file) {
    return module::diagnose(file, module::classify(file), vantric::Wanted::everything);
}

text::Json compared(const Bytes& a, const Bytes& b, const compare::Tolerances& tolerances = {}) {
    const module::Diagnosis ofA = diagnosisOf(a), ofB = diagnosisOf(b);
    return compare::treeOf({ofA, ofB, tolerances}, {"a", "b"});
}

std::string textOf(const Bytes& a, const Bytes& b, std::size_t width = 0,
                   const compare::Tolerances& tolerances = {}) {
    const module::Diagnosis ofA = diagnosisOf(a), ofB = diagnosisOf(b);
    return compare::textOf({ofA, ofB, tolerances}, {"a", "b"}, {width, nullptr});
}

Bytes packed(const Change& change, unsigned valueBits = 0) {
    Calibration calibration = smallCalibration();
    change(calibration);
    return calcut::writer::packCalibration(calibration, {.valueBits = valueBits});
}

void unchanged(Calibration& /*calibration*/) {}

text::Json tableOf(const text::Json& tree, const std::string& name) {
    for (const text::Json& table : tree["tables"]) {
        if (table["name"] == name) {
            return table;
        }
    }
    return nullptr;
}

}  // namespace

TEST(Compare, EveryBitThatStillReadsIsADifference) {
    // 36 pixels: no flipped bit makes another spelling of the same count.
    const Bytes original = calcut::writer::packCalibration(
        calcut::writer::makeCalibration({.columns = 9, .rows = 4, .frequencies = 1}));
    const module::Diagnosis about = diagnosisOf(original);
    EXPECT_TRUE(compared(original, original)["equal"].get<bool>());
    EXPECT_TRUE(compared(original, v7Image(original))["equal"].get<bool>());
    unsigned seen = 0;
    for (std::size_t bit = 0; bit < 8 * original.size(); ++bit) {
        const Bytes changed = flipped(original, bit);
        if (const module::Diagnosis other = diagnosisOf(changed); other.status == VANTRIC_OK) {
            ++seen;
            const compare::Comparison comparison(bit % 2 == 0 ? about : other,
                                                 bit % 2 == 0 ? other : about, {});
            EXPECT_FALSE(comparison.equal) << "bit " << bit;
        }
    }
    EXPECT_GT(seen, 1000U);
}

TEST(Compare, WhereAndByHowMuch) {
    const Bytes original = packed(unchanged);
    // The only table that differs, or none; the only other value that does, or none.
    using Case = std::tuple<Change, const char*, const char*>;
    const std::vector<Case> cases = {
        {[](Calibration& c) { c.mask[9] ^= 1; }, "mask", nullptr},
        {[](Calibration& c) { c.pixelValues[9] += 0.5F; }, "pixel_values", nullptr},
        {[](Calibration& c) { c.frequencies[1].pixelTable[9] -= 0.5F; }, "frequency_1_pixel_table",
         nullptr},
        {[](Calibration& c) { c.text1 = "another"; }, nullptr, "text1"},
        {[](Calibration& c) { c.custom[1].back() ^= 1; }, nullptr, "custom.129"},
        {[](Calibration& c) { c.frequencies[0].valuesB[1] += 1.0F; }, nullptr,
         "frequencies.0.valuesB.1"},
    };
    for (const auto& [change, name, value] : cases) {
        const text::Json tree = compared(original, packed(change));
        SCOPED_TRACE(tree);
        EXPECT_FALSE(tree["equal"].get<bool>());
        for (const text::Json& table : tree["tables"]) {
            const bool expected = name != nullptr && table["name"] == name;
            EXPECT_EQ(table["differs"].get<bool>(), expected);
            EXPECT_EQ(table["differing"], expected ? 1 : 0);
            if (expected) {
                const double size = table["max"]["difference"].get<double>();
                EXPECT_EQ(table["max"]["column"], 1);
                EXPECT_EQ(table["max"]["row"], 1);
                EXPECT_FLOAT_EQ(table["rms"].get<float>(),
                                static_cast<float>(std::abs(size) / std::sqrt(32.0)));
                EXPECT_EQ(size < 0, name != std::string("pixel_values"));
            }
        }
        ASSERT_EQ(tree["values"].size(), value == nullptr ? 0U : 1U);
        EXPECT_TRUE(value == nullptr || tree["values"][0]["name"] == value);
    }
}

TEST(Compare, AHundredPixelValues) {
    const auto wide = [](bool changed) {
        return packed([changed](Calibration& c) {
            c.columns = 40;
            c.rows = 30;
            c.mask.assign(1200, 1);
            c.pixelValues.assign(1200, 1.0F);
            for (auto& frequency : c.frequencies) {
                frequency.pixelTable.assign(1200, 0.0F);
            }
            for (std::size_t i = 0; changed && i < 100; ++i) {
                c.pixelValues[12 * i] = 1.5F;
            }
        });
    };
    const text::Json tree = compared(wide(false), wide(true));
    EXPECT_EQ(tableOf(tree, "pixel_values")["differing"], 100);
    EXPECT_NE(textOf(wide(false), wide(true)).find("100 of 1200"), std::string::npos);
    // Other sizes are told, not compared.
    const text::Json sizes = compared(packed(unchanged), wide(false));
    EXPECT_FALSE(sizes["equal"].get<bool>());
    EXPECT_TRUE(tableOf(sizes, "mask")["differing"].is_null());
    EXPECT_NE(textOf(packed(unchanged), wide(false), 80).find("A: 8 x 4, B: 40 x 30"),
              std::string::npos);
}

TEST(Compare, ToleranceAppliesToValuesNotToHowTheyAreStored) {
    const Bytes original = packed(unchanged);
    const Bytes shifted = packed([](Calibration& c) { c.pixelValues[3] += 0.25F; });
    const Bytes coarse = packed(unchanged, 12);
    const Bytes text = packed([](Calibration& c) { c.text2 = "another"; });
    const Bytes fewer = packed([](Calibration& c) { c.frequencies.pop_back(); });
    const Bytes lens = packed([](Calibration& c) { c.lens[0] *= 1.01F; });
    using Words = std::vector<const char*>;
    using Case = std::tuple<Bytes, Words, Words, bool>;
    for (const auto& [other, tolerances, relative, equal] :
         {Case{shifted, {}, {}, false},
          {shifted, {"0.2"}, {}, false},
          {shifted, {"0.25"}, {}, true},
          {shifted, {"pixel_values=0.25"}, {}, true},
          {shifted, {"1e9", "pixel_values=0.2"}, {}, false},
          {shifted, {"frequency_0_pixel_table=1"}, {}, false},
          {coarse, {}, {}, false},
          {coarse, {"0.01"}, {}, true},
          {text, {"1e9"}, {"1e9"}, false},
          {fewer, {"1e9"}, {}, false},
          {original, {"0"}, {}, true},
          {lens, {"rays=1"}, {"0.009"}, false},
          {lens, {"rays=1"}, {"0.011"}, true},
          {lens, {"rays=1"}, {"lens=0.011"}, true},
          {lens, {"rays=1"}, {"0.02", "lens=0.009"}, false}}) {
        compare::Tolerances given;
        for (const char* word : tolerances) {
            ASSERT_FALSE(compare::addTolerance(given.absolute, word).has_value()) << word;
        }
        for (const char* word : relative) {
            ASSERT_FALSE(compare::addTolerance(given.relative, word).has_value()) << word;
        }
        EXPECT_EQ(compared(original, other, given)["equal"], equal)
            << textOf(original, other, 0, given);
    }
    for (const char* word : {"", "-1", "nan", "inf", "1x", "psf=", "mask=1", "psfs=1", "=1"}) {
        compare::Tolerances given;
        EXPECT_TRUE(compare::addTolerance(given.absolute, word).has_value()) << word;
    }
}

// Long texts of modules that differ in everything, and one that can only be compared in part.
TEST(Compare, TextBeginsWithTheVerdictAndFits) {
    const Bytes original = packed(unchanged);
    const Bytes other = packed([](Calibration& c) {
        c.columns = 4;
        c.rows = 8;
        c.text1 = std::string(63, 'x');
        c.custom = {Bytes(255, 7)};
        c.lens[0] *= -1e-7F;
    });
    for (const std::size_t width : {64U, 80U, 120U}) {
        const std::string text = textOf(original, other, width);
        EXPECT_TRUE(text.starts_with("  verdict            different\n  A ")) << text;
        EXPECT_TRUE(firstMatch(text, "\n  tables +[1-9] of [1-9]+ differ\n")) << text;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), width) << line;
        }
    }
    // What matters most stays.
    const Bytes shifted = packed([](Calibration& c) { c.pixelValues[3] += 0.25F; });
    const std::string narrow = textOf(original, shifted, 64);
    EXPECT_TRUE(firstMatch(narrow, "pixel values +1 of 32 .* 0\\.0441[0-9]+ +\\+0\\.25\n"))
        << narrow;
}

TEST(Compare, WhatIsNotFinite) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> a = {nan, inf, nan, inf, 1.0F, 0.0F};
    const std::vector<float> b = {nan, inf, 1.0F, -inf, 3.0F, -0.0F};
    const auto table = [](const std::vector<float>& values) {
        return module::Table{"t", "t", 6, 1, 1, {}, values};
    };
    const module::TableDifference difference =
        module::differenceOf(table(a), table(b), {.absolute = 1.0});
    // The root of the mean square is that of the four that can be measured.
    EXPECT_EQ(std::tuple(difference.differing, difference.unmeasured, difference.max,
                         difference.maxAt, difference.rms, difference.mean),
              std::tuple(3, 2, 2.0, 4, 1.0, 0.5));
}

TEST(Compare, ExitStatuses) {
    const TempDir dir;
    writeBytes(dir / "a.png", smallPacked());
    writeBytes(dir / "b", packed([](Calibration& c) { c.text1 = "another"; }));
    writeBytes(dir / "broken", prefix(smallPacked(), 100));
    const auto draw = [](const auto&, const auto&,
                         const compare::CompareOptions& options) -> Bytes {
        throw text::Refused(options.output, "not drawn");
    };
    using Case = std::tuple<const char*, const char*, const char*, int>;
    for (const auto& [a, b, output, status] :
         {Case{"a.png", "a.png", "", 0}, Case{"a.png", "b", "", 1}, Case{"a.png", "missing", "", 2},
          Case{"broken", "a.png", "", 2}, Case{"b", "a.png", "a.png", 2},
          Case{"b", "a.png", "no/x.png", 2}, Case{"b", "a.png", "x.png", 2}}) {
        compare::CompareOptions options;
        options.paths = {dir / a, dir / b};
        options.output = *output == '\0' ? "" : dir / output;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(compare::runCompare(options, draw), status) << a << " " << b << " " << output;
        EXPECT_EQ(testing::internal::GetCapturedStdout().empty(), status == 2);
        EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), status != 2);
    }
    EXPECT_EQ(readBytes(dir / "a.png"), smallPacked());
}

TEST(Compare, ManyWithOne) {
    const TempDir dir;
    const auto golden = packed(unchanged);
    writeBytes(dir / "golden", golden);
    std::filesystem::create_directory(dir / "line");
    writeBytes(dir / "line/=a,b", golden);
    writeBytes(dir / "line/c", packed([](Calibration& c) {
                   c.pixelValues[3] += 0.25F;
                   c.lens[1] += 2.0F;
               }));
    writeBytes(dir / "line/d", prefix(golden, 100));
    compare::CompareOptions options;
    options.to = dir / "golden";
    options.paths = {dir / "line", dir / "missing"};
    options.report = dir / "report.csv";
    const auto run = [&options] {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = compare::runCompare(options, nullptr);
        return std::tuple(status, testing::internal::GetCapturedStdout(),
                          testing::internal::GetCapturedStderr());
    };
    const auto [status, out, err] = run();
    EXPECT_EQ(status, compare::exitNotCompared);
    EXPECT_TRUE(firstMatch(out, "line/c +different +1 +2 +0 ")) << out;
    EXPECT_NE(out.find("4 dumps: 1 equal, 1 different, 2 not compared"), std::string::npos) << out;
    EXPECT_NE(err.find("line/d: block 3 (pixel values) is cut short"), std::string::npos) << err;
    const Bytes bytes = readBytes(options.report);
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) {
        rows.push_back(line);
    }
    ASSERT_EQ(rows.size(), 5U);
    EXPECT_TRUE(rows[0].starts_with("file,result,reason,fx,fy,cx,cy,k1,k2,p1,p2,k3,lens mean,"))
        << rows[0];
    EXPECT_NE(rows[0].find(",pixel_values mean,pixel_values rms,pixel_values max,"),
              std::string::npos);
    EXPECT_TRUE(rows[1].starts_with("\"" + dir.path() + "/line/=a,b\",equal,,0,0,0,")) << rows[1];
    EXPECT_TRUE(
        firstMatch(rows[2], "/line/c,different,,0,2,0,0,0,0,0,0,0,0.2222222[0-9]*,0.6666667,2,"))
        << rows[2];
    EXPECT_NE(rows[2].find(",0.0078124995,0.044194173,0.24999999,"), std::string::npos) << rows[2];
    const auto fields = [](const std::string& row) {
        return std::count(row.begin(), row.end(), ',');
    };
    EXPECT_EQ(fields(rows[2]), fields(rows[0]));
    EXPECT_TRUE(firstMatch(rows[3], "/line/d,not compared,\"block 3 .*\"\r$")) << rows[3];
    // Its own report is replaced, no other file, and none that is read.
    EXPECT_EQ(std::get<0>(run()), compare::exitNotCompared);
    writeBytes(dir / "other.csv", golden);
    for (const std::string& taken : {dir / "other.csv", dir / "golden"}) {
        options.report = taken;
        EXPECT_EQ(std::get<1>(run()), "");
        EXPECT_EQ(readBytes(taken), golden);
    }
    options.force = true;
    options.report = dir / "line/c";
    const Bytes read = readBytes(options.report);
    EXPECT_EQ(std::get<1>(run()), "");
    EXPECT_EQ(readBytes(options.report), read);
    options.paths = {dir / "line/=a,b"};
    options.report = dir / "other.csv";
    EXPECT_EQ(std::get<0>(run()), 0);
    EXPECT_NE(readBytes(options.report), golden);
}
