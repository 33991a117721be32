#include "tools/export/TableFiles.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

#include <fmt/format.h>

namespace calcut::tools {

namespace {

std::string shapeText(const Table& table) {
    if (!table.isImage) {
        return fmt::format("({},)", table.columns);
    }
    return table.channels == 1
               ? fmt::format("({}, {})", table.rows, table.columns)
               : fmt::format("({}, {}, {})", table.rows, table.columns, table.channels);
}

/// value = low + step * (sample - first); below first are values that are not finite.
struct Samples {
    static constexpr unsigned most = 65535;
    double low = 0.0;
    double step = 0.0;
    unsigned first = 0;

    [[nodiscard]] unsigned of(double value) const {
        if (!std::isfinite(value)) {
            return 0;
        }
        return first + (step > 0.0 ? static_cast<unsigned>(std::lround((value - low) / step)) : 0U);
    }
};

Samples samplesFor(const Table& table, unsigned channel) {
    Samples samples;
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        const double value = table[at];
        if (std::isfinite(value)) {
            low = std::min(low, value);
            high = std::max(high, value);
        } else {
            samples.first = 1;
        }
    }
    if (low <= high) {
        samples.low = low;
        samples.step = (high - low) / (Samples::most - samples.first);
    }
    return samples;
}

std::string meaningOf(const Samples& samples) {
    return samples.first == 0 ? fmt::format("value = {} + {} * sample", samples.low, samples.step)
                              : fmt::format("value = {} + {} * (sample - 1); sample 0: not finite",
                                            samples.low, samples.step);
}

}  // namespace

std::string npyText(const Table& table) {
    const bool little = std::endian::native == std::endian::little;
    const char* type = !table.isImage || !table.bytes.empty() ? "|u1" : little ? "<f4" : ">f4";
    std::string header = fmt::format("{{'descr': '{}', 'fortran_order': False, 'shape': {}, }}",
                                     type, shapeText(table));
    // Magic, version and the header's length, then data at a multiple of 64.
    constexpr std::size_t before = 10;
    constexpr std::size_t alignment = 64;
    const std::size_t used = (before + header.size() + 1) % alignment;
    header.append(used == 0 ? 0 : alignment - used, ' ').append("\n");
    std::string text("\x93NUMPY\x01\x00", 8);
    text += static_cast<char>(header.size() & 0xFF);
    text += static_cast<char>(header.size() >> 8);
    text += header;
    text.append(reinterpret_cast<const char*>(table.bytes.data()), table.bytes.size());
    text.append(reinterpret_cast<const char*>(table.floats.data()), table.floats.size_bytes());
    return text;
}

std::string csvText(const Table& table, unsigned channel) {
    std::string text;
    std::size_t column = 0;
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        fmt::format_to(std::back_inserter(text), "{}", table[at]);
        column = (column + 1) % table.columns;
        text += column == 0 ? '\n' : ',';
    }
    return text;
}

std::string pgmText(const Table& table, unsigned channel) {
    const Samples samples = samplesFor(table, channel);
    std::string text = fmt::format("P5\n# {}: {}\n{} {}\n{}\n", table.title, meaningOf(samples),
                                   table.columns, table.rows, Samples::most);
    text.reserve(text.size() + 2 * table.size() / table.channels);
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        const unsigned sample = samples.of(table[at]);
        text += static_cast<char>(sample >> 8);
        text += static_cast<char>(sample & 0xFF);
    }
    return text;
}

}  // namespace calcut::tools
