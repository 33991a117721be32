#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>

#include <fmt/format.h>

#include "tools/export/Export.h"
#include "tools/module/Findings.h"
#include "tools/module/Tree.h"

namespace calcut::exporting {

namespace {

constexpr int lensSchema = 1;

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

}  // namespace

std::vector<File> opencvFiles(const Subject& subject) {
    return {{"opencv_camera.yaml", [=] { return opencvText(*subject.module.record); }}};
}

std::vector<File> rosFiles(const Subject& subject) {
    return {{"camera_info.yaml", [=] { return rosText(subject.source, *subject.module.record); }}};
}

std::vector<File> jsonFiles(const Subject& subject) {
    return {{"lens.json", [=] { return lensJsonText(subject.source, subject.module); }}};
}

}  // namespace calcut::exporting
