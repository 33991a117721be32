#include "tools/cut/CutJson.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/dump/Names.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

// Keys in the order they are set; floats in their own shortest form, not in that of a double.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

// File names need not be UTF-8, JSON has to be.
std::string textOf(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string crcText(std::uint32_t crc) {
    return fmt::format("{:#010x}", crc);
}

Json findingJson(const Finding& finding) {
    return {{"name", finding.name},
            {"offset", finding.offset},
            {"status", finding.status == VANTRIC_OK ? Json() : Json(statusName(finding.status))},
            {"text", describe(finding)}};
}

}  // namespace

std::string toJson(const Owner& owner) {
    Json json = {{"schema", cutSchema},
                 {"calcut", CALCUT_VERSION},
                 {"source", owner.source},
                 {"bytes", owner.size},
                 {"crc32", crcText(owner.crc)},
                 {"layout", owner.layout},
                 {"maskedPixels", owner.maskedPixels}};
    for (const Owner::File& file : owner.files) {
        json["files"][file.name] = file.size;
    }
    return textOf(json, 2) + "\n";
}

std::optional<Owner> ownerFromJson(const std::string& text) {
    try {
        const Json json = Json::parse(text);
        Owner owner;
        owner.source = json.at("source");
        owner.size = json.at("bytes");
        owner.crc = static_cast<std::uint32_t>(
            std::stoul(json.at("crc32").get<std::string>(), nullptr, 16));
        owner.layout = json.at("layout");
        owner.maskedPixels = json.at("maskedPixels");
        for (const auto& [name, size] : json.at("files").items()) {
            owner.files.push_back({name, size});
        }
        return owner;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string toJson(const CutResult& result) {
    Json json;
    json["file"] = result.dump;
    json["folder"] = result.folder;
    json["layout"] = layoutName(result.layout);
    json["bytes"] = result.loaded ? Json(result.size) : Json();
    json["crc32"] = result.loaded ? Json(crcText(result.crc)) : Json();
    json["result"] = outcomeName(result.outcome);
    json["reason"] = result.good() ? Json() : Json(result.reason);
    json["fault"] = result.fault ? findingJson(*result.fault) : Json();
    json["earlierCut"] = result.earlierCut;
    json["warnings"] = Json::array();
    for (const Finding& warning : result.warnings) {
        json["warnings"].push_back(findingJson(warning));
    }
    const bool good = result.good();
    for (std::size_t i = 0; i < result.texts.size(); ++i) {
        json[fmt::format("text{}", i)] = good ? Json(escapeBytes(result.texts[i])) : Json();
    }
    json["idBytes"] = good ? Json(hexText(result.idBytes)) : Json();
    json["maskedPixels"] = good ? Json(result.maskedPixels) : Json();
    for (std::size_t i = 0; i < lensNames.size(); ++i) {
        json[lensNames[i]] = good ? Json(result.lens[i]) : Json();
    }
    return textOf(json, -1);
}

}  // namespace calcut::tools
