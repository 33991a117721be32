// The tables of a record under the names that files, reports and people have for them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/dump/Diagnosis.h"

namespace calcut::tools {

/// Points into the record it comes from. Either bytes or floats are set; elements lie row by row,
/// the channels of one beside each other.
struct Table {
    std::string name;   ///< "pixel_values"; unique in its record, fit for a file name
    std::string title;  ///< "pixel values"
    std::uint32_t columns = 0;
    std::uint32_t rows = 0;
    unsigned channels = 1;  ///< 3 for rays: x, y, z
    std::span<const std::uint8_t> bytes{};
    std::span<const float> floats{};
    bool isImage = true;  ///< else one row of plain bytes, without a shape

    [[nodiscard]] std::size_t size() const { return bytes.empty() ? floats.size() : bytes.size(); }
    [[nodiscard]] float operator[](std::size_t at) const {
        return bytes.empty() ? floats[at] : static_cast<float>(bytes[at]);
    }
};

/// "x", "y", "z" of a table with channels; empty for one without.
const char* channelName(const Table& table, unsigned channel);

/// Mask, pixel values, the pixel table of each frequency, rays and PSF, as far as the record has
/// them.
std::vector<Table> tablesOf(const Diagnosis& about);

/// The table of that name, or null.
const Table* tableNamed(const std::vector<Table>& tables, const std::string& name);

/// The custom fields as rows of bytes.
std::vector<Table> customTablesOf(const Diagnosis& about);

}  // namespace calcut::tools
