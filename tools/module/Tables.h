// The tables of a record under the names that files, reports and people have for them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"

namespace calcut::module {

/// Points into the record it comes from. One of bytes, floats and words is set; elements lie row by
/// row, the channels of one beside each other.
struct Table {
    std::string name;   ///< "pixel_values"; unique in its record, fit for a file name
    std::string title;  ///< "pixel values"
    std::uint32_t columns = 0;
    std::uint32_t rows = 0;
    unsigned channels = 1;  ///< 3 for rays: x, y, z
    std::span<const std::uint8_t> bytes{};
    std::span<const float> floats{};
    std::span<const std::uint32_t> words{};
    bool isImage = true;  ///< else one row of plain bytes or numbers, without a shape

    [[nodiscard]] std::size_t size() const { return bytes.size() + floats.size() + words.size(); }
    /// Of bytes or floats.
    [[nodiscard]] float operator[](std::size_t at) const {
        return bytes.empty() ? floats[at] : static_cast<float>(bytes[at]);
    }
};

/// "frequency_0_pixel_table"
std::string pixelTableName(unsigned frequency);

/// "x", "y", "z" of a table with channels; empty for one without.
const char* channelName(const Table& table, unsigned channel);

/// Mask, pixel values, the pixel table of each frequency, rays and PSF, as far as the record has
/// them.
std::vector<Table> tablesOf(const Diagnosis& about);

/// The table of that name, or null.
const Table* tableNamed(const std::vector<Table>& tables, const std::string& name);

/// Values A and B, scalar and wiggling tables of each frequency, as far as the record has them.
std::vector<Table> listsOf(const Diagnosis& about);

/// The custom fields as rows of bytes.
std::vector<Table> customTablesOf(const Diagnosis& about);

/// Differences are the second value less the first, in double precision, which holds each exactly
/// enough to be 0 only for equal values. NaN equals NaN, an infinity itself.
struct TableDifference {
    std::uint64_t elements = 0;    ///< pixels, whatever their channels
    std::uint64_t differing = 0;   ///< with any channel beyond the tolerance
    std::uint64_t unmeasured = 0;  ///< of those: not finite on one side, so in neither of the below
    double mean = 0.0;             ///< over all values whose difference is finite
    double rms = 0.0;              ///< likewise
    double max = 0.0;              ///< the difference of largest magnitude, with its sign
    std::uint64_t maxAt = 0;       ///< its index among the values
};

/// How far apart values may be that count as equal.
struct Tolerance {
    double absolute = 0.0;
    double relative = 0.0;  ///< of the magnitude of the first value; added to the other
};

/// Whether two values are further apart than the tolerance.
bool differs(float a, float b, const Tolerance& tolerance = {});

/// For tables of equal shape. Bytes take no tolerance.
TableDifference differenceOf(const Table& a, const Table& b, const Tolerance& tolerance = {});

/// Whether they can be compared element by element.
bool sameShape(const Table& a, const Table& b);

}  // namespace calcut::module
