#include "tools/dump/Tables.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace calcut::tools {

const char* channelName(const Table& table, unsigned channel) {
    constexpr const char* names[] = {"x", "y", "z"};
    return table.channels == std::size(names) ? names[channel] : "";
}

std::vector<Table> tablesOf(const Diagnosis& about) {
    std::vector<Table> tables;
    if (!about.record) {
        return tables;
    }
    const VantricCalibration& record = *about.record;
    const std::uint32_t columns = record.imagerArea.columns;
    const std::uint32_t rows = record.imagerArea.rows;
    const std::size_t pixels = std::size_t{columns} * rows;
    const auto addFloats = [&](std::string name, std::string title, const float* values) {
        tables.push_back(
            {std::move(name), std::move(title), columns, rows, 1, {}, {values, pixels}});
    };
    if (about.wasRead(RX_BLOCK_MASK)) {
        tables.push_back({"mask", "mask", columns, rows, 1, {record.pixelMask, pixels}, {}});
    }
    if (about.wasRead(RX_BLOCK_PIXEL_VALUES)) {
        addFloats("pixel_values", "pixel values", record.pixelValues);
    }
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (about.wasRead(RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * k +
                          RX_FREQUENCY_PIXEL_TABLE)) {
            addFloats(fmt::format("frequency_{}_pixel_table", k),
                      fmt::format("frequency {}: pixel table", k),
                      record.frequencies[k].pixelTable);
        }
    }
    if (record.directions != nullptr) {
        constexpr unsigned channels = 3;
        tables.push_back(
            {"rays", "rays", columns, rows, channels, {}, {record.directions, channels * pixels}});
    }
    if (record.psf != nullptr) {
        tables.push_back({"psf",
                          "PSF",
                          record.psfWidth,
                          record.psfHeight,
                          1,
                          {},
                          {record.psf, std::size_t{record.psfWidth} * record.psfHeight}});
    }
    return tables;
}

const Table* tableNamed(const std::vector<Table>& tables, const std::string& name) {
    const auto found = std::find_if(tables.begin(), tables.end(),
                                    [&name](const Table& table) { return table.name == name; });
    return found == tables.end() ? nullptr : &*found;
}

std::vector<Table> customTablesOf(const Diagnosis& about) {
    std::vector<Table> tables;
    if (about.status != VANTRIC_OK || about.customStatus != VANTRIC_OK) {
        return tables;
    }
    for (std::uint32_t k = 0; k < about.record->customFieldCount; ++k) {
        const VantricCustomField& field = about.record->customFields[k];
        const std::uint32_t id = about.record->firstCustomFieldId + k;
        const std::uint32_t size = field.data == nullptr ? 0U : field.size;
        tables.push_back({fmt::format("custom_{}", id),
                          fmt::format("custom {}", id),
                          size,
                          1,
                          1,
                          {field.data, size},
                          {},
                          false});
    }
    return tables;
}

}  // namespace calcut::tools
