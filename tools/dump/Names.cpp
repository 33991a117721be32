#include "tools/dump/Names.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

namespace calcut::tools {

namespace {

struct Status {
    std::uint32_t code;
    const char* name;
    const char* text;
};

constexpr std::array statuses = {
    Status{VANTRIC_OK, "VANTRIC_OK", "read"},
    Status{VANTRIC_ERR_UNKNOWN_FIELD, "VANTRIC_ERR_UNKNOWN_FIELD", "no such field"},
    Status{VANTRIC_ERR_FIELD_NOT_READ, "VANTRIC_ERR_FIELD_NOT_READ",
           "the custom field has not been read"},
    Status{VANTRIC_ERR_NOT_SUPPORTED, "VANTRIC_ERR_NOT_SUPPORTED",
           "not a calibration that can be read"},
    Status{VANTRIC_ERR_END_OF_DATA, "VANTRIC_ERR_END_OF_DATA",
           "the data ends inside a header or payload"},
    Status{VANTRIC_ERR_INVALID_ARGUMENT, "VANTRIC_ERR_INVALID_ARGUMENT",
           "the straylight model is empty"},
    Status{VANTRIC_ERR_VALUE_UNSET, "VANTRIC_ERR_VALUE_UNSET",
           "the block is present, but its value is the unset mark"},
    Status{VANTRIC_ERR_BUFFER_TOO_SMALL, "VANTRIC_ERR_BUFFER_TOO_SMALL",
           "larger than its place in the calibration, or not enough memory"},
    Status{VANTRIC_ERR_COUNT_TOO_SMALL, "VANTRIC_ERR_COUNT_TOO_SMALL",
           "fewer elements than required"},
    Status{VANTRIC_ERR_INVALID_DATA, "VANTRIC_ERR_INVALID_DATA",
           "wrong order, kind, width or size"},
    Status{VANTRIC_ERR_FIELD_EMPTY, "VANTRIC_ERR_FIELD_EMPTY", "a required block is missing"},
    Status{VANTRIC_ERR_ALREADY_SET, "VANTRIC_ERR_ALREADY_SET", "already present"},
    Status{VANTRIC_WARN_PARTIAL, "VANTRIC_WARN_PARTIAL", "only partly read"},
};

const Status* findStatus(std::uint32_t code) {
    const auto* found = std::find_if(statuses.begin(), statuses.end(),
                                     [code](const Status& status) { return status.code == code; });
    return found == statuses.end() ? nullptr : found;
}

constexpr std::array singleBlocks = {
    "auxiliary flag", "lens parameters", "pixel mask",       "pixel values", "date",
    "text 1",         "text 2",          "identifier bytes", "id codes",     "straylight profile"};

constexpr std::array frequencyBlocks = {"frequency id", "pixel table", "values A",  "values B",
                                        "scalar",       "wiggling A",  "wiggling B"};

constexpr std::array kinds = {"raw",   "uint16",      "uint32",      "int32",
                              "float", "packed uint", "packed float"};

}  // namespace

std::string statusName(std::uint32_t status) {
    const Status* known = findStatus(status);
    return known != nullptr ? known->name : fmt::format("{:#010x}", status);
}

const char* statusText(std::uint32_t status) {
    const Status* known = findStatus(status);
    return known != nullptr ? known->text : "unknown status";
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
