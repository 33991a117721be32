#include "tools/dump/Names.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <fmt/format.h>

#include "calcut/status.h"

namespace calcut::tools {

namespace {

struct StatusText {
    std::uint32_t code;
    const char* text;
};

constexpr std::array statusTexts = {
    StatusText{VANTRIC_OK, "read"},
    StatusText{VANTRIC_ERR_UNKNOWN_FIELD, "no such field"},
    StatusText{VANTRIC_ERR_FIELD_NOT_READ, "the custom field has not been read"},
    StatusText{VANTRIC_ERR_NOT_SUPPORTED, "not a calibration that can be read"},
    StatusText{VANTRIC_ERR_END_OF_DATA, "the data ends inside a header or payload"},
    StatusText{VANTRIC_ERR_INVALID_ARGUMENT, "the straylight model is empty"},
    StatusText{VANTRIC_ERR_VALUE_UNSET, "the block is present, but its value is the unset mark"},
    StatusText{VANTRIC_ERR_BUFFER_TOO_SMALL,
               "larger than its place in the calibration, or not enough memory"},
    StatusText{VANTRIC_ERR_COUNT_TOO_SMALL, "fewer elements than required"},
    StatusText{VANTRIC_ERR_INVALID_DATA, "wrong order, kind, width or size"},
    StatusText{VANTRIC_ERR_FIELD_EMPTY, "a required block is missing"},
    StatusText{VANTRIC_ERR_ALREADY_SET, "already present"},
    StatusText{VANTRIC_WARN_PARTIAL, "only partly read"},
};

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

const char* statusText(std::uint32_t status) {
    const auto* known =
        std::find_if(statusTexts.begin(), statusTexts.end(),
                     [status](const StatusText& entry) { return entry.code == status; });
    return known == statusTexts.end() ? "unknown status" : known->text;
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
    if (id == VANTRIC_RX_END_MARKER) {
        return "end marker";
    }
    return id >= RX_BLOCK_FIRST_CUSTOM ? "custom block" : "unknown";
}

std::string blockLabel(std::uint32_t id) {
    return fmt::format("block {} ({})", id, blockName(id));
}

const char* kindName(std::uint64_t kind) {
    return kind < kinds.size() ? kinds[kind] : "unknown";
}

const char* outcomeName(vantric::BlockOutcome outcome) {
    switch (outcome) {
        case vantric::BlockOutcome::read:
        case vantric::BlockOutcome::custom:
            return "read";
        case vantric::BlockOutcome::unknown:
            return "ignored";
        case vantric::BlockOutcome::failed:
            return "failed";
        case vantric::BlockOutcome::notReached:
            return "not reached";
    }
    return "";
}

std::string byteCount(std::uint64_t count) {
    return fmt::format("{} byte{}", count, count == 1 ? "" : "s");
}

}  // namespace calcut::tools
