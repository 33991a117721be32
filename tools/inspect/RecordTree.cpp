#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "calcut/cutter.h"
#include "tools/dump/Names.h"
#include "tools/dump/Tables.h"
#include "tools/inspect/Tree.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

/// Pixels whose mask a cut counts.
constexpr std::uint64_t cutMaskPixels = std::uint64_t{CALCUT_SENSOR_COLUMNS} * CALCUT_SENSOR_ROWS;

Json floats(std::span<const float> values) {
    Json list = Json::array();
    for (const float value : values) {
        list.push_back(jsonFloat(value));
    }
    return list;
}

Json lensTree(const VantricCalibration& record) {
    Json lens;
    for (std::size_t i = 0; i < lensNames.size() && record.lensParameters; ++i) {
        lens[lensNames[i]] = jsonFloat(record.lensParameters[i]);
    }
    return lens;
}

/// Text of a record's 65-byte buffer; a text without terminator ends with the buffer.
Json textTree(const char* buffer) {
    return escapeBytes({buffer, strnlen(buffer, VANTRIC_TEXT_BYTES)});
}

Json wigglingTree(const VantricWigglingTable& table) {
    const std::size_t entries = std::min<std::size_t>(table.capacity, VANTRIC_WIGGLING_ENTRIES);
    return {{"header", table.header},
            {"first", floats({table.first, entries})},
            {"second", std::span(table.second, entries)},
            {"third", floats({table.third, entries})}};
}

Json frequencyTree(const Diagnosis& about, unsigned index) {
    const VantricFrequencyRecord& source = about.record->frequencies[index];
    const auto ifRead = [&about, index](std::uint32_t block, const Json& tree) {
        return orNull(about.wasRead(frequencyBlock(index, block)), tree);
    };
    const auto values = [](const float* data, std::uint8_t count) {
        return floats({data, std::min<std::size_t>(count, VANTRIC_FREQUENCY_VALUES)});
    };
    return {{"index", index},
            {"id", source.frequencyId},
            {"scalar", ifRead(RX_FREQUENCY_SCALAR, jsonFloat(source.scalar))},
            {"valuesA", ifRead(RX_FREQUENCY_VALUES_A, values(source.valuesA, source.countA))},
            {"valuesB", ifRead(RX_FREQUENCY_VALUES_B, values(source.valuesB, source.countB))},
            {"wigglingA", ifRead(RX_FREQUENCY_WIGGLING_A, wigglingTree(source.wigglingA))},
            {"wigglingB", ifRead(RX_FREQUENCY_WIGGLING_B, wigglingTree(source.wigglingB))}};
}

Json straylightTree(const VantricCalibration& record) {
    // Making the PSF puts an origin point in front of the profile; shown are the file's.
    const std::size_t points =
        std::min<std::size_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    const std::size_t skip = record.psf != nullptr && points > 0 ? 1 : 0;
    return {{"scale", jsonFloat(record.straylightScale)},
            {"exponent", jsonFloat(record.straylightExponent)},
            {"offset", jsonFloat(record.straylightOffset)},
            {"centre", jsonFloat(record.straylightCentre)},
            {"psfWidth", record.psfWidth},
            {"psfHeight", record.psfHeight},
            {"radius", floats({record.straylightRadius + skip, points - skip})},
            {"value", floats({record.straylightValue + skip, points - skip})}};
}

}  // namespace

Json recordTree(const Diagnosis& about) {
    if (!about.record) {
        return nullptr;
    }
    const VantricCalibration& record = *about.record;
    const auto ifRead = [&about](std::uint32_t block, const Json& tree) {
        return orNull(about.wasRead(block), tree);
    };
    // There may be no memory for a mask.
    const bool hasMask = about.wasRead(RX_BLOCK_MASK) && record.pixelMask != nullptr;
    const std::uint64_t pixels =
        hasMask ? std::uint64_t{record.imagerArea.columns} * record.imagerArea.rows : 0;
    const auto maskedUpTo = [&record](std::uint64_t end) {
        return std::count(record.pixelMask, record.pixelMask + end, std::uint8_t{0});
    };
    const std::size_t idBytes = std::min<std::size_t>(record.idBytesSize, VANTRIC_ID_BYTES);
    Json frequencies = Json::array();
    // Records are filled by id, so a calibration that leaves one out has a gap.
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (about.wasRead(frequencyBlock(k, RX_FREQUENCY_ID))) {
            frequencies.push_back(frequencyTree(about, k));
        }
    }
    Json custom = Json::array();
    for (const Table& field : customTablesOf(about)) {
        custom.push_back(
            {{"id", record.firstCustomFieldId + custom.size()}, {"hex", hexText(field.bytes)}});
    }
    return {{"columns", record.imagerArea.columns},
            {"rows", record.imagerArea.rows},
            {"auxFlag", ifRead(RX_BLOCK_AUX_FLAG, record.auxFlag)},
            {"lens", ifRead(RX_BLOCK_LENS_PARAMETERS, lensTree(record))},
            {"text0", ifRead(RX_BLOCK_DATE, textTree(record.text0))},
            {"text1", ifRead(RX_BLOCK_TEXT1, textTree(record.text1))},
            {"text2", ifRead(RX_BLOCK_TEXT2, textTree(record.text2))},
            {"idBytes", hexText({record.idBytes, about.wasRead(RX_BLOCK_ID_BYTES) ? idBytes : 0U})},
            {"idCodes", ifRead(RX_BLOCK_ID_CODES, std::array{record.idCode0, record.idCode1})},
            {"maskedPixels", ifRead(RX_BLOCK_MASK, maskedUpTo(pixels))},
            {"zeroMaskCount", ifRead(RX_BLOCK_MASK, maskedUpTo(std::min(pixels, cutMaskPixels)))},
            {"frequencies", frequencies},
            {"straylight", ifRead(RX_BLOCK_STRAYLIGHT, straylightTree(record))},
            {"custom", custom},
            {"customStatus", statusName(about.customStatus)}};
}

}  // namespace calcut::tools
