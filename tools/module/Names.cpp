#include "tools/module/Names.h"

#include <map>

#include <fmt/format.h>

#include "calcut/status.h"

namespace calcut::module {

namespace {

constexpr std::array singleBlocks = {
    "auxiliary flag", "lens parameters", "pixel mask",       "pixel values", "date",
    "text 1",         "text 2",          "identifier bytes", "id codes",     "straylight profile"};

constexpr std::array frequencyBlocks = {"frequency id", "pixel table", "values A",  "values B",
                                        "scalar",       "wiggling A",  "wiggling B"};

constexpr std::array kinds = {"raw",   "uint16",      "uint32",      "int32",
                              "float", "packed uint", "packed float"};

}  // namespace

std::string statusName(std::uint32_t status) {
    const std::string_view name = vantric_statusName(status);
    return name.starts_with("VANTRIC_") ? std::string(name) : fmt::format("{:#010x}", status);
}

const char* statusText(std::string_view name) {
    // Of what a read can return.
    static const std::map<std::string_view, const char*> texts = {
        {"VANTRIC_OK", "read"},
        {"VANTRIC_ERR_NOT_SUPPORTED", "not a calibration that can be read"},
        {"VANTRIC_ERR_END_OF_DATA", "the data ends inside a header or payload"},
        {"VANTRIC_ERR_INVALID_ARGUMENT", "the straylight model is empty"},
        {"VANTRIC_ERR_VALUE_UNSET", "the block is present, but its value is the unset mark"},
        {"VANTRIC_ERR_BUFFER_TOO_SMALL",
         "larger than its place in the calibration, or not enough memory"},
        {"VANTRIC_ERR_COUNT_TOO_SMALL", "fewer elements than required"},
        {"VANTRIC_ERR_INVALID_DATA", "wrong order, kind, width or size"},
        {"VANTRIC_ERR_FIELD_EMPTY", "a required block is missing"},
        {"VANTRIC_ERR_ALREADY_SET", "already present"},
    };
    const auto found = texts.find(name);
    return found != texts.end() ? found->second : "no status, but the pixel count that was refused";
}

std::string blockName(std::uint32_t id) {
    if (id < singleBlocks.size()) {
        return singleBlocks[id];
    }
    const std::uint32_t fromFrequencies = id - RX_BLOCK_FIRST_FREQUENCY;
    if (id >= RX_BLOCK_FIRST_FREQUENCY &&
        fromFrequencies < frequencyBlocks.size() * VANTRIC_FREQUENCIES) {
        return fmt::format("frequency {}: {}", fromFrequencies / frequencyBlocks.size(),
                           frequencyBlocks[fromFrequencies % frequencyBlocks.size()]);
    }
    return id == VANTRIC_RX_END_MARKER   ? "end marker"
           : id >= RX_BLOCK_FIRST_CUSTOM ? "custom block"
                                         : "unknown";
}

std::string blockLabel(std::uint32_t id) {
    return fmt::format("block {} ({})", id, blockName(id));
}

const char* kindName(std::uint64_t kind) {
    return kind < kinds.size() ? kinds[kind] : "unknown";
}

const char* outcomeName(vantric::BlockOutcome outcome) {
    // In the order of the outcomes; custom blocks are read, too.
    constexpr std::array names = {"read", "read", "ignored", "failed", "not reached"};
    return names.at(static_cast<std::size_t>(outcome));
}

}  // namespace calcut::module
