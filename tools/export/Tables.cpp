#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "tools/export/Export.h"
#include "tools/module/Tables.h"
#include "tools/text/Terminal.h"

namespace calcut::exporting {

namespace {

/// NumPy's format 1.0: (rows, columns), (rows, columns, 3), or (n,) for plain bytes.
std::string npyText(const module::Table& table) {
    const bool little = std::endian::native == std::endian::little;
    const bool isBytes = table.isImage ? !table.bytes.empty() : table.size() == table.bytes.size();
    const std::string type =
        isBytes ? "|u1" : (little ? "<" : ">") + std::string(table.words.empty() ? "f4" : "u4");
    const std::string shape =
        table.isImage ? fmt::format("{}, {}{}", table.rows, table.columns,
                                    table.channels == 1 ? "" : fmt::format(", {}", table.channels))
                      : fmt::format("{},", table.columns);
    std::string header =
        fmt::format("{{'descr': '{}', 'fortran_order': False, 'shape': ({}), }}", type, shape);
    // Magic, version and the header's length, then data at a multiple of 64.
    constexpr std::size_t before = 10;
    constexpr std::size_t alignment = 64;
    const std::size_t end = (before + header.size() + alignment) / alignment * alignment;
    header = fmt::format("{:<{}}\n", header, end - before - 1);
    std::string text("\x93NUMPY\x01\x00", 8);
    text += static_cast<char>(header.size() & 0xFF);
    text += static_cast<char>(header.size() >> 8);
    text += header;
    text.append(reinterpret_cast<const char*>(table.bytes.data()), table.bytes.size());
    text.append(reinterpret_cast<const char*>(table.floats.data()), table.floats.size_bytes());
    text.append(reinterpret_cast<const char*>(table.words.data()), table.words.size_bytes());
    return text;
}

/// One channel, a line for each row of the image; floats with the fewest digits that read back.
std::string csvText(const module::Table& table, unsigned channel) {
    std::string text;
    std::size_t column = 0;
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        if (table.words.empty()) {
            fmt::format_to(std::back_inserter(text), "{}", table[at]);
        } else {
            fmt::format_to(std::back_inserter(text), "{}", table.words[at]);
        }
        column = (column + 1) % table.columns;
        text += column == 0 ? '\n' : ',';
    }
    return text;
}

/// One channel as a grey picture of 16 bits; a comment says what its samples mean. A PSF spans many
/// decades and is shown by its logarithm.
std::string pgmText(const module::Table& table, unsigned channel) {
    constexpr unsigned most = 65535;
    const bool logarithmic = table.name == "psf";
    const auto shown = [&](std::size_t at) {
        const double value = table[at];
        return logarithmic ? std::log10(value) : value;  // not finite below 0, and at it
    };
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    std::size_t finite = 0;
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        const double value = shown(at);
        low = std::isfinite(value) ? std::min(low, value) : low;
        high = std::isfinite(value) ? std::max(high, value) : high;
        finite += std::isfinite(value) ? 1 : 0;
    }
    // value = low + step * (sample - first); below first are values that are not finite.
    const unsigned first = finite == table.size() / table.channels ? 0 : 1;
    low = finite == 0 ? 0.0 : low;
    const double step = finite == 0 ? 0.0 : (high - low) / (most - first);
    std::string text = fmt::format("P5\n# {}: {} = {} + {} * {}\n{} {}\n{}\n", table.title,
                                   logarithmic ? "log10(value)" : "value", low, step,
                                   first == 0 ? "sample" : "(sample - 1); sample 0: not finite",
                                   table.columns, table.rows, most);
    text.reserve(text.size() + 2 * table.size() / table.channels);
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        const double value = shown(at);
        const long above =
            step > 0.0 && std::isfinite(value) ? std::lround((value - low) / step) : 0;
        const unsigned sample = std::isfinite(value) ? first + static_cast<unsigned>(above) : 0;
        text += static_cast<char>(sample >> 8);
        text += static_cast<char>(sample & 0xFF);
    }
    return text;
}

/// The lowest bytes of a number, the lowest first.
std::string littleEndian(std::uint64_t number, std::size_t bytes) {
    std::string text;
    for (; text.size() < bytes; number >>= 8) {
        text += static_cast<char>(number & 0xFF);
    }
    return text;
}

/// A ZIP archive (APPNOTE 6.3) of NumPy arrays, stored as they are.
std::string npzText(const std::vector<File>& arrays) {
    std::string archive;
    std::string directory;
    for (const File& array : arrays) {
        const std::string content = array.text();
        constexpr unsigned stored = 20;                // version that extracts it
        constexpr unsigned firstOfJanuary1980 = 0x21;  // the same bytes whenever it is written
        const std::uint32_t crc =
            crc32Of(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
        const std::string size = littleEndian(content.size(), 4);
        const std::string common =
            fmt::format("{}{}{}{}{}{}{}{}", littleEndian(stored, 2), littleEndian(0, 6),
                        littleEndian(firstOfJanuary1980, 2), littleEndian(crc, 4), size, size,
                        littleEndian(array.name.size(), 2), littleEndian(0, 2));
        if (archive.size() + content.size() > std::numeric_limits<std::uint32_t>::max()) {
            throw text::Refused("", "too large for an .npz file; --as npy has no such limit");
        }
        directory += fmt::format("PK\1\2{}{}{}{}{}", littleEndian(stored, 2), common,
                                 littleEndian(0, 10), littleEndian(archive.size(), 4), array.name);
        archive += fmt::format("PK\3\4{}{}", common, array.name);
        archive += content;
    }
    const std::string entries = littleEndian(arrays.size(), 2);
    return fmt::format("{}{}PK\5\6{}{}{}{}{}{}", archive, directory, littleEndian(0, 4), entries,
                       entries, littleEndian(directory.size(), 4), littleEndian(archive.size(), 4),
                       littleEndian(0, 2));
}

std::vector<module::Table> allTablesOf(const module::Diagnosis& module) {
    std::vector<module::Table> tables = module::tablesOf(module);
    std::ranges::copy(module::listsOf(module), std::back_inserter(tables));
    std::ranges::copy(module::customTablesOf(module), std::back_inserter(tables));
    return tables;
}

/// A file for each channel of each table.
std::vector<File> channelFiles(const module::Diagnosis& module, const char* ending,
                               std::string (*text)(const module::Table& table, unsigned channel),
                               bool withLists) {
    std::vector<File> files;
    for (const module::Table& table : allTablesOf(module)) {
        const bool isList = !table.isImage && table.bytes.empty();
        for (unsigned channel = 0; channel < table.channels && (withLists || !isList); ++channel) {
            const std::string part = module::channelName(table, channel);
            const std::string name = table.name + (part.empty() ? "" : "_") + part + ending;
            files.push_back({name, [=] { return text(table, channel); }});
        }
    }
    return files;
}

std::vector<File> npyFiles(const Subject& subject) {
    std::vector<File> files;
    for (const module::Table& table : allTablesOf(subject.module)) {
        files.push_back({table.name + ".npy", [table] { return npyText(table); }});
    }
    return files;
}

std::vector<File> npzFiles(const Subject& subject) {
    return {{"module.npz", [arrays = npyFiles(subject)] { return npzText(arrays); }}};
}

std::vector<File> csvFiles(const Subject& subject) {
    return channelFiles(subject.module, ".csv", csvText, true);
}

std::vector<File> pgmFiles(const Subject& subject) {
    return channelFiles(subject.module, ".pgm", pgmText, false);
}

constexpr Format all[] = {
    {"npy", "NumPy arrays (rows, columns), rays (rows, columns, 3), lists and custom fields (n,)",
     npyFiles, nullptr},
    {"npz", "the same arrays in one file, module.npz", npzFiles, nullptr},
    {"csv", "a line for each row of the image; rays as three files, _x, _y and _z", csvFiles, ""},
    {"pgm",
     "grey pictures of 16 bits, that of the PSF logarithmic; a comment says which values "
     "they mean",
     pgmFiles, "P5\n"},
    {"opencv-yaml",
     "the lens for cv::FileStorage: camera_matrix and distortion_coefficients k1 k2 "
     "p1 p2 k3, lengths in pixels",
     opencvFiles, "%YAML:1.0\n---\n"},
    {"ros-yaml", "the lens as camera_info.yaml of ROS, model plumb_bob", rosFiles, ""},
    {"json", "the lens as lens.json, with the names of calcut inspect --json", jsonFiles, nullptr},
};

}  // namespace

const std::span<const Format> formats = all;

}  // namespace calcut::exporting
