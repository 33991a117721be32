#include "tools/module/Tables.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include <fmt/format.h>

namespace calcut::module {

std::string pixelTableName(unsigned frequency) {
    return fmt::format("frequency_{}_pixel_table", frequency);
}

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
    const auto add = [&tables](std::string name, std::string title, std::uint32_t columns,
                               std::uint32_t rows, const float* values, unsigned channels = 1) {
        const std::size_t size = std::size_t{columns} * rows * channels;
        tables.push_back(
            {std::move(name), std::move(title), columns, rows, channels, {}, {values, size}});
    };
    const auto [columnOfSensor, rowOfSensor, columns, rows] = record.imagerArea;
    if (about.wasRead(RX_BLOCK_MASK)) {
        tables.push_back({"mask", "mask", columns, rows, 1, about.mask()});
    }
    if (about.wasRead(RX_BLOCK_PIXEL_VALUES)) {
        add("pixel_values", "pixel values", columns, rows, record.pixelValues);
    }
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (about.wasRead(frequencyBlock(k, RX_FREQUENCY_PIXEL_TABLE))) {
            add(pixelTableName(k), fmt::format("frequency {}: pixel table", k), columns, rows,
                record.frequencies[k].pixelTable);
        }
    }
    if (record.directions != nullptr) {
        add("rays", "rays", columns, rows, record.directions, 3);
    }
    if (record.psf != nullptr) {
        add("psf", "PSF", record.psfWidth, record.psfHeight, record.psf);
    }
    return tables;
}

const Table* tableNamed(const std::vector<Table>& tables, const std::string& name) {
    const auto found = std::find_if(tables.begin(), tables.end(),
                                    [&name](const Table& table) { return table.name == name; });
    return found == tables.end() ? nullptr : &*found;
}

std::vector<Table> listsOf(const Diagnosis& about) {
    std::vector<Table> lists;
    for (unsigned k = 0; about.record && k < VANTRIC_FREQUENCIES; ++k) {
        const VantricFrequencyRecord& record = about.record->frequencies[k];
        const auto add = [&](const char* name, std::span<const float> floats,
                             std::span<const std::uint32_t> words = {}) {
            Table& list = lists.emplace_back();
            list.name = fmt::format("frequency_{}_{}", k, name);
            list.title = fmt::format("frequency {}: {}", k, name);
            list.floats = floats;
            list.words = words;
            list.columns = static_cast<std::uint32_t>(list.size());
            list.rows = 1;
            list.isImage = false;
        };
        if (about.wasRead(frequencyBlock(k, RX_FREQUENCY_VALUES_A))) {
            add("values_a", {record.valuesA, record.countA});
        }
        if (about.wasRead(frequencyBlock(k, RX_FREQUENCY_VALUES_B))) {
            add("values_b", {record.valuesB, record.countB});
        }
        if (about.wasRead(frequencyBlock(k, RX_FREQUENCY_SCALAR))) {
            add("scalar", {&record.scalar, 1});
        }
        for (const auto& [block, letter, table] :
             {std::tuple(RX_FREQUENCY_WIGGLING_A, 'a', &record.wigglingA),
              std::tuple(RX_FREQUENCY_WIGGLING_B, 'b', &record.wigglingB)}) {
            if (about.wasRead(frequencyBlock(k, block))) {
                const std::size_t size =
                    std::min<std::size_t>(table->capacity, VANTRIC_WIGGLING_ENTRIES);
                add(fmt::format("wiggling_{}_first", letter).c_str(), {table->first, size});
                add(fmt::format("wiggling_{}_second", letter).c_str(), {}, {table->second, size});
                add(fmt::format("wiggling_{}_third", letter).c_str(), {table->third, size});
            }
        }
    }
    return lists;
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
        Table& table = tables.emplace_back();
        table.name = fmt::format("custom_{}", id);
        table.title = fmt::format("custom {}", id);
        table.columns = size;
        table.rows = 1;
        table.bytes = {field.data, size};
        table.isImage = false;
    }
    return tables;
}

bool differs(float a, float b, const Tolerance& tolerance) {
    if (a == b || (std::isnan(a) && std::isnan(b))) {
        return false;
    }
    // Not finite on one side: beyond every tolerance.
    const double allowed = tolerance.absolute + tolerance.relative * std::abs(double{a});
    return !std::isfinite(a) || !(std::abs(double{b} - double{a}) <= allowed);
}

TableDifference differenceOf(const Table& a, const Table& b, const Tolerance& tolerance) {
    TableDifference result;
    result.elements = a.size() / a.channels;
    const Tolerance allowed = a.bytes.empty() ? tolerance : Tolerance{};
    double sum = 0.0;
    double squares = 0.0;
    std::uint64_t measured = 0;
    for (std::size_t element = 0; element < result.elements; ++element) {
        bool any = false;
        bool anyUnmeasured = false;
        for (std::size_t at = element * a.channels; at < (element + 1) * a.channels; ++at) {
            const bool equal = !differs(a[at], b[at]);
            const double difference = equal ? 0.0 : double{b[at]} - double{a[at]};
            any = any || (!equal && differs(a[at], b[at], allowed));
            if (!std::isfinite(difference)) {
                anyUnmeasured = true;
                continue;
            }
            sum += difference;
            squares += difference * difference;
            ++measured;
            if (std::abs(difference) > std::abs(result.max)) {
                result.max = difference;
                result.maxAt = at;
            }
        }
        result.differing += any ? 1 : 0;
        result.unmeasured += anyUnmeasured ? 1 : 0;
    }
    if (measured != 0) {
        result.mean = sum / static_cast<double>(measured);
        result.rms = std::sqrt(squares / static_cast<double>(measured));
    }
    return result;
}

bool sameShape(const Table& a, const Table& b) {
    return a.columns == b.columns && a.rows == b.rows && a.channels == b.channels;
}

}  // namespace calcut::module
