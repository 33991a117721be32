#include "tools/export/Export.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <limits>
#include <system_error>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/files/OutputFile.h"
#include "tools/module/Module.h"
#include "tools/module/Tables.h"
#include "tools/module/Tree.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::exporting {

namespace {

constexpr int lensSchema = 1;

// --------------------------------------------------------------------------------------- tables --

/// NumPy's format 1.0: (rows, columns), (rows, columns, 3), or (n,) for plain bytes.
std::string npyText(const module::Table& table) {
    const bool little = std::endian::native == std::endian::little;
    const char* type = !table.isImage || !table.bytes.empty() ? "|u1" : little ? "<f4" : ">f4";
    const std::string shape =
        table.isImage ? fmt::format("{}, {}{}", table.rows, table.columns,
                                    table.channels == 1 ? "" : fmt::format(", {}", table.channels))
                      : fmt::format("{},", table.columns);
    std::string header =
        fmt::format("{{'descr': '{}', 'fortran_order': False, 'shape': ({}), }}", type, shape);
    // Magic, version and the header's length, then data at a multiple of 64.
    constexpr std::size_t before = 10;
    constexpr std::size_t alignment = 64;
    header.resize((before + header.size() + alignment) / alignment * alignment - before - 1, ' ');
    header += '\n';
    std::string text("\x93NUMPY\x01\x00", 8);
    text += static_cast<char>(header.size() & 0xFF);
    text += static_cast<char>(header.size() >> 8);
    text += header;
    text.append(reinterpret_cast<const char*>(table.bytes.data()), table.bytes.size());
    text.append(reinterpret_cast<const char*>(table.floats.data()), table.floats.size_bytes());
    return text;
}

/// One channel, a line for each row of the image; floats with the fewest digits that read back.
std::string csvText(const module::Table& table, unsigned channel) {
    std::string text;
    std::size_t column = 0;
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        fmt::format_to(std::back_inserter(text), "{}", table[at]);
        column = (column + 1) % table.columns;
        text += column == 0 ? '\n' : ',';
    }
    return text;
}

/// One channel as a grey picture of 16 bits; a comment says what its samples mean.
std::string pgmText(const module::Table& table, unsigned channel) {
    constexpr unsigned most = 65535;
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    std::size_t finite = 0;
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        const double value = table[at];
        low = std::isfinite(value) ? std::min(low, value) : low;
        high = std::isfinite(value) ? std::max(high, value) : high;
        finite += std::isfinite(value) ? 1 : 0;
    }
    // value = low + step * (sample - first); below first are values that are not finite.
    const unsigned first = finite == table.size() / table.channels ? 0 : 1;
    low = finite == 0 ? 0.0 : low;
    const double step = finite == 0 ? 0.0 : (high - low) / (most - first);
    std::string text =
        fmt::format("P5\n# {}: value = {} + {} * {}\n{} {}\n{}\n", table.title, low, step,
                    first == 0 ? "sample" : "(sample - 1); sample 0: not finite", table.columns,
                    table.rows, most);
    text.reserve(text.size() + 2 * table.size() / table.channels);
    for (std::size_t at = channel; at < table.size(); at += table.channels) {
        const double value = table[at];
        const long above =
            step > 0.0 && std::isfinite(value) ? std::lround((value - low) / step) : 0;
        const unsigned sample = std::isfinite(value) ? first + static_cast<unsigned>(above) : 0;
        text += static_cast<char>(sample >> 8);
        text += static_cast<char>(sample & 0xFF);
    }
    return text;
}

// ------------------------------------------------------------------------------------- the lens --

// The model of the others is the one that rays are computed with (radial k1, k2, k3, tangential p1,
// p2, lengths in pixels, pixel centres at whole numbers), so the numbers go over as they are.

std::array<float, VANTRIC_LENS_PARAMETERS> lensOf(const VantricCalibration& record) {
    std::array<float, VANTRIC_LENS_PARAMETERS> lens{};
    std::copy_n(record.lensParameters, lens.size(), lens.begin());
    return lens;
}

/// A number that every YAML reader takes for a float: with a point, and names for what has none.
std::string yamlFloat(float value) {
    if (!std::isfinite(value)) {
        return std::isnan(value) ? ".NaN" : value < 0 ? "-.Inf" : ".Inf";
    }
    std::string text = fmt::format("{}", value);
    if (text.find('.') == std::string::npos) {
        text.insert(std::min(text.find('e'), text.size()), ".0");
    }
    return text;
}

std::string yamlMatrix(fmt::string_view format, const char* name, std::size_t rows,
                       std::initializer_list<float> values) {
    std::vector<std::string> texts(values.size());
    std::ranges::transform(values, texts.begin(), yamlFloat);
    return fmt::format(fmt::runtime(format), name, rows, values.size() / rows,
                       fmt::join(texts, ", "));
}

std::string yamlSize(const VantricCalibration& record) {
    return fmt::format("image_width: {}\nimage_height: {}\n", record.imagerArea.columns,
                       record.imagerArea.rows);
}

/// A name that needs no quotes, of the file's.
std::string cameraName(std::string_view source) {
    std::string name(source.substr(source.find_last_of('/') + 1));
    if (name == "-") {
        return "camera";
    }
    name = name.substr(0, name.find_last_of('.'));
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return "camera_" + name;
}

/// For OpenCV's cv::FileStorage.
std::string opencvText(const VantricCalibration& record) {
    const auto [fx, fy, cx, cy, k1, k2, p1, p2, k3] = lensOf(record);
    const char* format = "{}: !!opencv-matrix\n   rows: {}\n   cols: {}\n   dt: d\n   data: [{}]\n";
    return "%YAML:1.0\n---\n" + yamlSize(record) +
           yamlMatrix(format, "camera_matrix", 3, {fx, 0, cx, 0, fy, cy, 0, 0, 1}) +
           yamlMatrix(format, "distortion_coefficients", 1, {k1, k2, p1, p2, k3});
}

/// A camera_info file of ROS, model plumb_bob.
std::string rosText(std::string_view source, const VantricCalibration& record) {
    const auto [fx, fy, cx, cy, k1, k2, p1, p2, k3] = lensOf(record);
    const char* format = "{}:\n  rows: {}\n  cols: {}\n  data: [{}]\n";
    return yamlSize(record) + "camera_name: " + cameraName(source) + "\n" +
           yamlMatrix(format, "camera_matrix", 3, {fx, 0, cx, 0, fy, cy, 0, 0, 1}) +
           "distortion_model: plumb_bob\n" +
           yamlMatrix(format, "distortion_coefficients", 1, {k1, k2, p1, p2, k3}) +
           yamlMatrix(format, "rectification_matrix", 3, {1, 0, 0, 0, 1, 0, 0, 0, 1}) +
           yamlMatrix(format, "projection_matrix", 3, {fx, 0, cx, 0, 0, fy, cy, 0, 0, 0, 1, 0});
}

/// With the names of inspect --json.
std::string lensJsonText(std::string_view source, const module::Diagnosis& module) {
    const text::Json record = module::recordTree(module);
    text::Json faults = text::Json::array();
    for (const module::Finding& fault : module.faults) {
        faults.push_back(module::describe(fault));
    }
    return text::jsonText({{"schema", lensSchema},
                           {"file", source},
                           {"faults", faults},
                           {"columns", record["columns"]},
                           {"rows", record["rows"]},
                           {"model", "plumb_bob"},
                           {"lens", record["lens"]}},
                          2) +
           '\n';
}

// ------------------------------------------------------------------------------------ the files --

/// A file to be; its text is made when its turn comes, for a large module's files together would
/// take much memory.
std::vector<ExportFile> tableFiles(const module::Diagnosis& module, ExportFormat format) {
    std::vector<module::Table> tables = module::tablesOf(module);
    std::ranges::copy(module::customTablesOf(module), std::back_inserter(tables));
    auto* const text = format == ExportFormat::Csv ? csvText : pgmText;
    const char* ending = format == ExportFormat::Csv ? ".csv" : ".pgm";
    std::vector<ExportFile> files;
    for (const module::Table& table : tables) {
        if (format == ExportFormat::Npy) {
            files.push_back({table.name + ".npy", [table] { return npyText(table); }});
            continue;
        }
        for (unsigned channel = 0; channel < table.channels; ++channel) {
            const std::string part = module::channelName(table, channel);
            const std::string name = table.name + (part.empty() ? "" : "_") + part + ending;
            files.push_back({name, [=] { return text(table, channel); }});
        }
    }
    return files;
}

/// The text with a comment about the first fault of the dump, where the format has comments.
std::string marked(std::string text, const module::Diagnosis& module, ExportFormat format) {
    std::string_view before;
    switch (format) {
        case ExportFormat::Npy:
        case ExportFormat::Json:
            return text;
        case ExportFormat::Pgm:
            before = "P5\n";
            break;
        case ExportFormat::OpencvYaml:
            before = "%YAML:1.0\n---\n";
            break;
        default:
            break;
    }
    return module.intact()
               ? text
               : text.insert(before.size(), fmt::format("# damaged dump: {}\n",
                                                        module::describe(module.faults.front())));
}

void makeDirectory(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        std::filesystem::create_directory(path, error);
    } else if (!std::filesystem::is_directory(path, error)) {
        error = std::make_error_code(std::errc::not_a_directory);
    }
    if (error) {
        throw text::Refused(path, error.message());
    }
}

}  // namespace

std::vector<ExportFile> filesOf(const module::Diagnosis& module, const ExportOptions& options) {
    switch (options.format) {
        case ExportFormat::OpencvYaml:
            return {{"opencv_camera.yaml", [&] { return opencvText(*module.record); }}};
        case ExportFormat::RosYaml:
            return {{"camera_info.yaml", [&] { return rosText(options.input, *module.record); }}};
        case ExportFormat::Json:
            return {{"lens.json", [&] { return lensJsonText(options.input, module); }}};
        default:
            return tableFiles(module, options.format);
    }
}

int runExport(const ExportOptions& options) {
    const auto module =
        module::loadModule(options.input, options.layout, options.maxSize,
                           options.damaged ? module::Faults::tolerated : module::Faults::refused);
    if (!module->diagnosis.wasRead(RX_BLOCK_LENS_PARAMETERS)) {
        throw text::Refused(options.input, "has no lens parameters that read");
    }
    makeDirectory(options.directory);
    const std::vector<ExportFile> files = filesOf(module->diagnosis, options);
    for (const ExportFile& file : files) {
        const std::string path = options.directory + "/" + file.name;
        files::checkWritable(path, {options.input}, options.force);
    }
    const text::InterruptGuard guard;
    for (const ExportFile& file : files) {
        const std::string path = options.directory + "/" + file.name;
        const std::string text = marked(file.text(), module->diagnosis, options.format);
        if (text::InterruptGuard::interrupted()) {
            return exitFailed;
        }
        files::writeOutput(path, text);
        text::print(fmt::format("wrote {}  {} bytes\n", text::escapePath(path), text.size()));
    }
    return exitOk;
}

}  // namespace calcut::exporting
