#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <span>

#include <nlohmann/json.hpp>

#include "calcut/cutter.h"
#include "tools/dump/Names.h"
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
    const auto ifRead = [&](std::uint32_t block, auto&& tree) {
        const std::uint32_t first = RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * index;
        return about.wasRead(first + block) ? Json(tree()) : Json(nullptr);
    };
    const auto values = [](const float* data, std::uint8_t count) {
        return floats({data, std::min<std::size_t>(count, VANTRIC_FREQUENCY_VALUES)});
    };
    return {{"index", index},
            {"id", source.frequencyId},
            {"scalar", ifRead(RX_FREQUENCY_SCALAR, [&] { return jsonFloat(source.scalar); })},
            {"valuesA",
             ifRead(RX_FREQUENCY_VALUES_A, [&] { return values(source.valuesA, source.countA); })},
            {"valuesB",
             ifRead(RX_FREQUENCY_VALUES_B, [&] { return values(source.valuesB, source.countB); })},
            {"wigglingA",
             ifRead(RX_FREQUENCY_WIGGLING_A, [&] { return wigglingTree(source.wigglingA); })},
            {"wigglingB",
             ifRead(RX_FREQUENCY_WIGGLING_B, [&] { return wigglingTree(source.wigglingB); })}};
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

Json customTree(const Diagnosis& about) {
    Json list = Json::array();
    if (about.status != VANTRIC_OK || about.customStatus != VANTRIC_OK) {
        return list;
    }
    for (std::uint32_t k = 0; k < about.record->customFieldCount; ++k) {
        const VantricCustomField& field = about.record->customFields[k];
        list.push_back({{"id", about.record->firstCustomFieldId + k},
                        {"hex", hexText({field.data, field.data == nullptr ? 0U : field.size})}});
    }
    return list;
}

}  // namespace

Json jsonFloat(float value) {
    if (std::isinf(value)) {
        return value < 0 ? "-inf" : "inf";
    }
    return value;
}

Json recordTree(const Diagnosis& about) {
    if (!about.record) {
        return nullptr;
    }
    const VantricCalibration& record = *about.record;
    const auto ifRead = [&about](std::uint32_t block, auto&& tree) {
        return about.wasRead(block) ? Json(tree()) : Json(nullptr);
    };
    const std::uint64_t pixels = std::uint64_t{record.imagerArea.columns} * record.imagerArea.rows;
    const auto maskedUpTo = [&record](std::uint64_t end) {
        if (record.pixelMask == nullptr) {
            return std::ptrdiff_t{0};  // no memory for it
        }
        return std::count(record.pixelMask, record.pixelMask + end, std::uint8_t{0});
    };
    Json tree;
    tree["columns"] = record.imagerArea.columns;
    tree["rows"] = record.imagerArea.rows;
    tree["auxFlag"] = ifRead(RX_BLOCK_AUX_FLAG, [&] { return record.auxFlag; });
    tree["lens"] = ifRead(RX_BLOCK_LENS_PARAMETERS, [&] { return lensTree(record); });
    tree["text0"] = ifRead(RX_BLOCK_DATE, [&] { return textTree(record.text0); });
    tree["text1"] = ifRead(RX_BLOCK_TEXT1, [&] { return textTree(record.text1); });
    tree["text2"] = ifRead(RX_BLOCK_TEXT2, [&] { return textTree(record.text2); });
    const std::size_t idBytes = std::min<std::size_t>(record.idBytesSize, VANTRIC_ID_BYTES);
    tree["idBytes"] = hexText({record.idBytes, about.wasRead(RX_BLOCK_ID_BYTES) ? idBytes : 0U});
    tree["idCodes"] = ifRead(RX_BLOCK_ID_CODES, [&] {
        return std::array{record.idCode0, record.idCode1};
    });
    tree["maskedPixels"] = ifRead(RX_BLOCK_MASK, [&] { return maskedUpTo(pixels); });
    tree["zeroMaskCount"] =
        ifRead(RX_BLOCK_MASK, [&] { return maskedUpTo(std::min(pixels, cutMaskPixels)); });
    Json& frequencies = tree["frequencies"] = Json::array();
    // Records are filled by id, so a calibration that leaves one out has a gap.
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (about.wasRead(RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * k)) {
            frequencies.push_back(frequencyTree(about, k));
        }
    }
    tree["straylight"] = ifRead(RX_BLOCK_STRAYLIGHT, [&] { return straylightTree(record); });
    tree["custom"] = customTree(about);
    tree["customStatus"] = statusName(about.customStatus);
    return tree;
}

}  // namespace calcut::tools
