#include "tools/inspect/Inspect.h"

#include <utility>

#include <fmt/format.h>

#include "calibration/packed/Block.h"
#include "tools/files/Inputs.h"
#include "tools/module/Names.h"
#include "tools/module/RecordFields.h"
#include "tools/module/Stored.h"
#include "tools/module/Tables.h"
#include "tools/module/Tree.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::inspect {

namespace {

using module::Diagnosis;

void writeImage(text::Lines& out, const Diagnosis& about) {
    out.heading("Image header");
    std::vector<text::Row> rows;
    for (const module::ImageField& field : module::imageFieldsOf(about)) {
        rows.push_back({{fmt::to_string(field.is.offset), field.is.name, field.text}});
    }
    out.table({{"offset", true}, {"field"}, {"value"}}, std::move(rows));
    const image::Record& image = about.image;
    if (image.hasHeader) {
        const bool inside = about.payload.size() == image.payloadLength;
        out.item("payload",
                 fmt::format("{} bytes at byte {}{}", image.payloadLength, image.payloadOffset,
                             inside ? "" : ", not all inside the file"));
        out.item("stored CRC-32", fmt::format("{:#010x}", image.storedCrc));
    }
    if (image.computedCrc) {
        const bool matches = image.computedCrc == image.storedCrc;
        out.item(
            "computed CRC-32",
            fmt::format("{:#010x}  {}", *image.computedCrc, matches ? "matches" : "does not match"),
            matches ? text::Colour::Green : text::Colour::Red);
    }
    if (const auto signature = module::signatureOf(about)) {
        out.item("signature", fmt::format("{} bytes", *about.signatureLength));
        out.hexItem("", text::hexText(*signature));
    }
}

// ---------------------------------------------------------------------------------- calibration --

/// A text as it is stored, else the smallest and the largest value.
std::string valuesText(const Diagnosis& about, const vantric::BlockSighting& block,
                       const std::optional<module::Range>& range) {
    const bool isText = block.header.id == RX_BLOCK_TEXT1 || block.header.id == RX_BLOCK_TEXT2;
    if (!range) {
        return {};
    }
    if (isText && block.header.kind == RX_KIND_RAW) {
        constexpr std::size_t shown = 28;
        const auto bytes = about.file.subspan(block.payloadOffset, block.payloadSize);
        const bool fits = bytes.size() <= shown;
        return module::quotedBytes(bytes.first(fits ? bytes.size() : shown)) + (fits ? "" : "...");
    }
    const std::string low = module::textOf(range->min);
    const std::string high = module::textOf(range->max);
    std::string text = low == high ? low : fmt::format("{} to {}", low, high);
    if (range->infinite != 0) {
        text += fmt::format("{}{} not finite", text.empty() ? "" : ", ", range->infinite);
    }
    return text;
}

void writeBlocks(text::Lines& out, const Diagnosis& about) {
    out.heading("Blocks");
    bool ignored = false;
    std::vector<text::Row> rows;
    const auto ranges = module::rangesOf(about);
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        const vantric::BlockSighting& block = about.blocks[i];
        const RXBlockHeader& header = block.header;
        const bool fixedPoint = header.kind == RX_KIND_PACKED_FLOAT;
        ignored = ignored || block.outcome == vantric::BlockOutcome::unknown;
        rows.push_back(
            {{fmt::to_string(block.offset), fmt::to_string(header.id), module::blockName(header.id),
              module::kindName(header.kind), fmt::to_string(header.count),
              vantric::isPacked(header.kind) ? fmt::to_string(header.bits) : "",
              fixedPoint ? fmt::format("{}, {}", header.scale, header.offset) : "",
              fmt::to_string(block.payloadOffset), fmt::to_string(block.payloadSize),
              valuesText(about, block, ranges[i]), module::outcomeName(block.outcome)}});
    }
    if (about.endMarker) {
        rows.push_back({{fmt::to_string(*about.endMarker), fmt::to_string(VANTRIC_RX_END_MARKER),
                         module::blockName(VANTRIC_RX_END_MARKER)}});
    }
    out.table({{"offset", true, 7},
               {"id", true},
               {"what"},
               {"kind", false, 5},
               {"count", true, 6},
               {"bits", true, 4},
               {"scale, offset", false, 2},
               {"payload at", true, 1},
               {"bytes", true, 3},
               {"values", false, 8},
               {"read"}},
              std::move(rows));
    if (ignored) {
        out.item("ignored",
                 "an id below 128 that the reader does not know. It takes the next block header "
                 "right behind that block's header; the payload is not skipped.");
    }
    if (const std::uint64_t trailing = about.trailingBytes(); trailing != 0) {
        out.item(text::byteCount(trailing) + " behind the end marker", "");
    }
}

void writeCalibration(text::Lines& out, const Diagnosis& about) {
    out.heading("Packed calibration");
    out.item("at", fmt::format("byte {}, {} bytes", about.payloadOffset,
                               about.payload.size() - about.signatureAreaSize));
    if (about.header) {
        const auto [version, columns, rows] = *about.header;
        out.item("version", fmt::to_string(version));
        out.item("sensor", fmt::format("{} columns x {} rows, {} pixels", columns, rows,
                                       std::uint64_t{columns} * rows));
        writeBlocks(out, about);
    }
}

// --------------------------------------------------------------------------------------- record --

/// Each label with the values behind it. What the dump does not have, and empty lists, are left
/// out.
void writeFields(text::Lines& out, std::span<const module::Field> fields, const Diagnosis& about,
                 std::optional<unsigned> frequency = {}) {
    for (std::size_t i = 0; i < fields.size();) {
        const module::Field& first = fields[i];
        std::string line;
        bool isHex = false;
        do {
            const module::Field& field = fields[i++];
            const text::Json value =
                field.label == nullptr ? text::Json() : valueOf(field, about, frequency);
            const std::string text = module::textOf(value, field.shown);
            isHex = isHex || field.shown == module::Shown::hex;
            line +=
                text.empty() && (isHex || !value.is_string()) ? "" : field.lead + text + field.unit;
        } while (i < fields.size() && fields[i].label != nullptr && *fields[i].label == '\0');
        if (!line.empty()) {
            const std::string label = fmt::format(fmt::runtime(first.label), frequency.value_or(0));
            isHex ? out.hexItem(label, line) : out.item(label, line);
        }
    }
}

void writeRecord(text::Lines& out, const Diagnosis& about) {
    out.heading(about.status == VANTRIC_OK ? "Record" : "Record, as far as it was read");
    writeFields(out, module::recordFields, about);
    for (const unsigned k : module::frequenciesOf(about)) {
        writeFields(out, module::frequencyFields, about, k);
    }
    writeFields(out, module::straylightFields, about);
    for (const module::Table& custom : module::customTablesOf(about)) {
        out.hexItem(custom.title, text::hexText(custom.bytes));
    }
    if (about.customStatus != VANTRIC_OK) {
        const std::string status = module::statusName(about.customStatus);
        out.item("custom fields",
                 fmt::format("not readable: {} ({})", status, module::statusText(status)));
    }
}

// --------------------------------------------------------------------------------------- result --

void writeResult(text::Lines& out, const Diagnosis& about) {
    out.heading("Result");
    if (about.status) {
        const std::string status = module::statusName(*about.status);
        out.item("read", fmt::format("{} ({:#010x}: {})", status, *about.status,
                                     module::statusText(status)));
        if (about.failedBlockId) {
            out.item("failing block", fmt::format("{} ({})", *about.failedBlockId,
                                                  module::blockName(*about.failedBlockId)));
        }
    } else {
        out.item("read", "not attempted");
    }
    for (const module::Finding& fault : about.faults) {
        out.item("fault", describe(fault), text::Colour::Red);
    }
    for (const module::Finding& warning : about.warnings) {
        out.item("warning", describe(warning), text::Colour::Yellow);
    }
    if (about.intact()) {
        out.item("verdict", "reads", text::Colour::Green);
    }
}

std::string titleOf(const module::Layout& layout) {
    return layout == module::Layout::Unknown  ? "neither image nor calibration"
           : layout == module::Layout::Packed ? "packed calibration"
                                              : std::string(layout.name) + " image";
}

}  // namespace

std::string textOf(const Diagnosis& about, std::string_view path, const text::TextStyle& style) {
    text::Lines out(style);
    out.line(fmt::format("{}: {}, {} bytes",
                         out.painted(text::Colour::Bold, text::escapePath(path)),
                         titleOf(about.layout), about.file.size()));
    if (about.layout.image != nullptr) {
        writeImage(out, about);
    }
    if (about.payload.size() > about.signatureAreaSize) {
        writeCalibration(out, about);
    }
    if (about.record) {
        writeRecord(out, about);
    }
    writeResult(out, about);
    return out.take();
}

int runInspect(const InspectOptions& options) {
    const std::vector<files::Input> inputs = files::gatherInputs({.paths = options.paths});
    // A folder gives a list, however many dumps it holds.
    const bool single =
        options.paths.size() == 1 && inputs[0].path == options.paths[0] && !inputs[0].refusal;
    const bool quiet = text::terminal().verbosity == text::Verbosity::Quiet;
    bool good = true;
    text::Json all = text::Json::array();
    const auto tell = [&](text::Json tree) {
        if (options.jsonl) {
            text::writeStdout(text::jsonText(tree) + "\n");
        } else if (options.json) {
            all.push_back(std::move(tree));
        }
    };
    const auto show = [&](const files::Input& input) {
        const auto file = module::loadModule(input, options.reading, module::Faults::untold);
        file->lookAtTables();
        const Diagnosis& about = file->diagnosis;
        good = good && about.intact() && !(options.strict && !about.warnings.empty());
        if (options.json || options.jsonl) {
            tell(module::inspectTree(about, input.path));
        } else if (!quiet) {
            text::writeStdout(&input == inputs.data() ? "" : "\n");
            text::writeStdout(textOf(about, input.path, text::styleOfStdout()));
        } else if (!about.intact()) {
            text::printError(input.path, module::describe(about.faults.front()));
        }
    };
    const auto failed = [&](const files::Input& input, const std::string& reason) {
        tell({{"schema", module::inspectSchema}, {"file", input.path}, {"error", reason}});
        good = false;
    };
    files::forEachInput(inputs, show, failed);
    // A single file that could not be loaded is no object.
    if (options.json && !(single && all[0].contains("error"))) {
        text::writeStdout(text::jsonText(single ? all[0] : all, 2) + "\n");
    }
    return good ? exitOk : exitFailed;
}

}  // namespace calcut::inspect
