#include "tools/export/LensFiles.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/inspect/Tree.h"

namespace calcut::tools {

namespace {

constexpr int lensSchema = 1;

/// A number that every YAML reader takes for a float: with a point, and names for what has none.
std::string yamlFloat(float value) {
    if (std::isnan(value)) {
        return ".NaN";
    }
    if (std::isinf(value)) {
        return value < 0 ? "-.Inf" : ".Inf";
    }
    std::string text = fmt::format("{}", value);
    if (text.find('.') == std::string::npos) {
        text.insert(std::min(text.find('e'), text.size()), ".0");
    }
    return text;
}

template <class Values>
std::string yamlList(const Values& values) {
    std::string text;
    for (const float value : values) {
        text += (text.empty() ? "" : ", ") + yamlFloat(value);
    }
    return "[" + text + "]";
}

std::string yamlSize(const LensFile& lens) {
    const VantricImagerArea& area = lens.module.record->imagerArea;
    return fmt::format("image_width: {}\nimage_height: {}\n", area.columns, area.rows);
}

std::array<float, 9> cameraMatrix(const LensFile& lens) {
    const float* p = lens.module.record->lensParameters;
    return {p[VANTRIC_LENS_FX],
            0,
            p[VANTRIC_LENS_CX],
            0,
            p[VANTRIC_LENS_FY],
            p[VANTRIC_LENS_CY],
            0,
            0,
            1};
}

std::array<float, 5> distortion(const LensFile& lens) {
    const float* p = lens.module.record->lensParameters;
    return {p[VANTRIC_LENS_K1], p[VANTRIC_LENS_K2], p[VANTRIC_LENS_P1], p[VANTRIC_LENS_P2],
            p[VANTRIC_LENS_K3]};
}

/// A name that needs no quotes, of the file's.
std::string cameraName(const LensFile& lens) {
    std::string name(lens.source.substr(lens.source.find_last_of('/') + 1));
    if (name == "-") {
        return "camera";
    }
    name = name.substr(0, name.find_last_of('.'));
    std::replace_if(
        name.begin(), name.end(),
        [](char c) {
            return !((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'));
        },
        '_');
    return "camera_" + name;
}

}  // namespace

std::string opencvText(const LensFile& lens) {
    const auto matrix = [](const char* name, int rows, int columns, const std::string& data) {
        return fmt::format("{}: !!opencv-matrix\n   rows: {}\n   cols: {}\n   dt: d\n   data: {}\n",
                           name, rows, columns, data);
    };
    return "%YAML:1.0\n---\n" + yamlSize(lens) +
           matrix("camera_matrix", 3, 3, yamlList(cameraMatrix(lens))) +
           matrix("distortion_coefficients", 1, 5, yamlList(distortion(lens)));
}

std::string rosText(const LensFile& lens) {
    const auto matrix = [](const char* name, int rows, int columns, const std::string& data) {
        return fmt::format("{}:\n  rows: {}\n  cols: {}\n  data: {}\n", name, rows, columns, data);
    };
    const float* p = lens.module.record->lensParameters;
    const std::array<float, 9> identity = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const std::array<float, 12> projection = {p[VANTRIC_LENS_FX],
                                              0,
                                              p[VANTRIC_LENS_CX],
                                              0,
                                              0,
                                              p[VANTRIC_LENS_FY],
                                              p[VANTRIC_LENS_CY],
                                              0,
                                              0,
                                              0,
                                              1,
                                              0};
    return yamlSize(lens) + "camera_name: " + cameraName(lens) + "\n" +
           matrix("camera_matrix", 3, 3, yamlList(cameraMatrix(lens))) +
           "distortion_model: plumb_bob\n" +
           matrix("distortion_coefficients", 1, 5, yamlList(distortion(lens))) +
           matrix("rectification_matrix", 3, 3, yamlList(identity)) +
           matrix("projection_matrix", 3, 4, yamlList(projection));
}

std::string lensJsonText(const LensFile& lens) {
    Json tree;
    tree["schema"] = lensSchema;
    tree["file"] = lens.source;
    Json record = recordTree(lens.module);
    for (const char* key : {"columns", "rows"}) {
        tree[key] = record[key];
    }
    tree["model"] = "plumb_bob";
    tree["lens"] = record["lens"];
    return tree.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace calcut::tools
