// How two modules differ, in process: what a comparison may not miss, and what it may not invent.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <tuple>

#include "fixtures.h"
#include "tools/compare/Compare.h"
#include "tools/compare/CompareTree.h"
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

text::Json compared(const Bytes& a, const Bytes& b, std::optional<double> tolerance = {}) {
    return compare::compareTree({"a", diagnosisOf(a)}, {"b", diagnosisOf(b)}, tolerance);
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
            const text::Json tree = bit % 2 == 0
                                        ? compare::compareTree({"a", about}, {"b", other}, {})
                                        : compare::compareTree({"a", other}, {"b", about}, {});
            EXPECT_FALSE(tree["equal"].get<bool>()) << "bit " << bit;
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
    EXPECT_NE(compare::compareText(tree, {}).find("100 of 1200"), std::string::npos);
    // Other sizes are told, not compared.
    const text::Json sizes = compared(packed(unchanged), wide(false));
    EXPECT_FALSE(sizes["equal"].get<bool>());
    EXPECT_TRUE(tableOf(sizes, "mask")["differing"].is_null());
    EXPECT_NE(compare::compareText(sizes, {}).find("A: 8 x 4, B: 40 x 30"), std::string::npos);
}

TEST(Compare, ToleranceAppliesToValuesNotToHowTheyAreStored) {
    const Bytes original = packed(unchanged);
    const Bytes shifted = packed([](Calibration& c) { c.pixelValues[3] += 0.25F; });
    const Bytes coarse = packed(unchanged, 12);
    const Bytes text = packed([](Calibration& c) { c.text2 = "another"; });
    const Bytes fewer = packed([](Calibration& c) { c.frequencies.pop_back(); });
    using Case = std::tuple<Bytes, std::optional<double>, bool>;
    for (const auto& [other, tolerance, equal] :
         {Case{shifted, {}, false}, Case{shifted, 0.2, false}, Case{shifted, 0.25, true},
          Case{coarse, {}, false}, Case{coarse, 0.01, true}, Case{text, 1e9, false},
          Case{fewer, 1e9, false}, Case{original, 0.0, true}}) {
        const text::Json tree = compared(original, other, tolerance);
        EXPECT_EQ(tree["equal"], equal) << tree;
    }
}

TEST(Compare, WhatIsNotFinite) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<float> a = {nan, inf, nan, inf, 1.0F, 0.0F};
    const std::vector<float> b = {nan, inf, 1.0F, -inf, 3.0F, -0.0F};
    const auto table = [](const std::vector<float>& values) {
        return module::Table{"t", "t", 6, 1, 1, {}, values};
    };
    const module::TableDifference difference = module::differenceOf(table(a), table(b), 1.0);
    // The root of the mean square is that of the four that can be measured.
    EXPECT_EQ(std::tuple(difference.differing, difference.unmeasured, difference.max,
                         difference.maxAt, difference.rms),
              std::tuple(3, 2, 2.0, 4, 1.0));
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
        options.a = dir / a;
        options.b = dir / b;
        options.output = *output == '\0' ? "" : dir / output;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(compare::runCompare(options, draw), status) << a << " " << b << " " << output;
        EXPECT_EQ(testing::internal::GetCapturedStdout().empty(), status == 2);
        EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), status != 2);
    }
    EXPECT_EQ(readBytes(dir / "a.png"), smallPacked());
}
