// What the command finds out about damage that no check of the library names.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "calcut/cutter.h"
#include "cutter/CRC32.h"
#include "tools/Dumps.h"
#include "tools/module/Diagnosis.h"

using namespace dumps;
using namespace calcut;
using vantric::Wanted;

// Every bit of the payload and of the stored checksum, and bursts of every width.
TEST(Findings, NamesTheFlippedBits) {
    const Bytes image = v7Image(smallPacked());
    const auto checksumFault = [](const Bytes& dump) {
        const module::Diagnosis diagnosis = module::diagnose(dump, v7Layout, Wanted::cut);
        return diagnosis.faults.empty() ? "" : module::describe(diagnosis.faults[0]);
    };
    const auto expectNamed = [&](const Bytes& dump, std::size_t first, const char* words) {
        const std::string place = fmt::format("bit {} of byte {} ", first % 8, first / 8);
        const std::string text = checksumFault(dump);
        ASSERT_NE(text.find(words), std::string::npos) << text;
        ASSERT_NE(text.find(place), std::string::npos) << place << "\n" << text;
    };
    for (std::size_t bit = 8 * 8; bit < image.size() * 8; ++bit) {
        if (bit / 8 < 12 || bit / 8 >= v7Header) {
            expectNamed(flipped(image, bit), bit,
                        bit / 8 < 12 ? "one flipped bit of the stored checksum explains it"
                                     : "one flipped bit explains it");
        }
    }
    for (unsigned width = 2; width <= 8; ++width) {
        const std::size_t bit = 8 * 200 + width;
        expectNamed(flipped(flipped(image, bit), bit + width - 1), bit,
                    fmt::format("flipped bits explain it, within {} from", width).c_str());
    }
    // By chance, other damage looks like one flipped bit as often as is said.
    EXPECT_EQ(module::findFlippedBits(0x12345678, 65536).has_value(), false);
    EXPECT_EQ(module::findFlippedBits(crc32Of(image.data(), 1), 1 << 24).has_value(), false);
}

TEST(Findings, ExplainsWrongChecksumsByPagesAndRepeats) {
    const Bytes image = v7Image(packCalibration(writer::makeCalibration({})));
    const auto text = [](const Bytes& dump) {
        return module::describe(module::diagnose(dump, v7Layout, Wanted::cut).faults.at(0));
    };
    EXPECT_NE(text(patched(image, 40000, Bytes(256, 0xFF)))
                  .find("a blank page is inside the payload, 256 bytes of 0xff from byte 40000 on"),
              std::string::npos);
    EXPECT_EQ(text(patched(image, 40000, Bytes(255, 0x00))).find("blank"), std::string::npos);
    for (std::size_t line = 256; line <= 65536; line *= 4) {
        Bytes stuck = image;
        for (std::size_t at = 0; at < stuck.size(); ++at) {
            stuck[at] = image[at & ~line];
        }
        EXPECT_NE(text(stuck).find(fmt::format("second piece of {} bytes repeats", line)),
                  std::string::npos)
            << text(stuck);
    }
}

// What somebody would see in a picture of a table, one table at a time.
TEST(Findings, WarnsOfTablesThatCannotBeRight) {
    const writer::Calibration good = writer::makeCalibration({});
    const auto warningsOf = [](const writer::Calibration& calibration, unsigned bits = 12) {
        const Bytes packed = packCalibration(calibration, {.valueBits = bits});
        module::Module module(packed, module::Layout::Packed, Wanted::everything);
        module.lookAtTables();
        return allOf(module.diagnosis);
    };
    const std::size_t middle = std::size_t{CALCUT_SENSOR_COLUMNS} * 86 + 112;
    struct Case {
        const char* words;
        void (*damage)(std::vector<float>& table, std::size_t middle);
    };
    const Case cases[] = {
        {"has one value", [](auto& table, auto) { std::ranges::fill(table, 0.25F); }},
        {"has a region of one value",
         [](auto& table, auto at) {
             for (std::size_t row = 0; row < 9; ++row) {
                 std::fill_n(&table[at + row * CALCUT_SENSOR_COLUMNS], 8, 0.F);
             }
         }},
        {"deviations", [](auto& table, auto at) { table[at] = 1e4F; }},
    };
    for (const Case& tried : cases) {
        SCOPED_TRACE(tried.words);
        writer::Calibration inValues = good;
        tried.damage(inValues.pixelValues, middle);
        EXPECT_NE(warningsOf(inValues, 0).find("pixel values " + std::string()), std::string::npos);
        EXPECT_NE(warningsOf(inValues, 0).find(tried.words), std::string::npos);
        writer::Calibration inFrequency = good;
        tried.damage(inFrequency.frequencies[1].pixelTable, middle);
        EXPECT_NE(warningsOf(inFrequency, 0).find("frequency 1: pixel table "), std::string::npos);
        // Where the mask says so, nothing is wrong.
        for (std::size_t at = 0; at < good.mask.size(); ++at) {
            if (inValues.pixelValues[at] != good.pixelValues[at]) {
                inValues.mask[at] = 0;
            }
        }
        EXPECT_EQ(warningsOf(inValues, 0).find("pixel values"), std::string::npos);
    }
}

TEST(Findings, WarnsOfNoMadeModule) {
    std::uint64_t seed = 1;
    for (const auto& [columns, rows] :
         {std::pair{224, 172}, {172, 224}, {64, 48}, {16, 12}, {320, 8}, {8, 8}, {4, 1}, {1, 64}}) {
        for (const unsigned bits : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 8U, 10U, 12U, 16U, 24U, 31U}) {
            writer::CalibrationOptions options;
            options.columns = static_cast<std::uint16_t>(columns);
            options.rows = static_cast<std::uint16_t>(rows);
            options.seed = seed++;
            module::Module module(packCalibration(makeCalibration(options), {.valueBits = bits}),
                                  module::Layout::Packed, Wanted::everything);
            module.lookAtTables();
            EXPECT_EQ(allOf(module.diagnosis), "")
                << columns << "x" << rows << " " << bits << " bits, seed " << options.seed;
        }
    }
}
