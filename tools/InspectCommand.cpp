// calcut inspect: what a dump holds, block by block, and why it does not read when it does not.
#include <fmt/format.h>
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "CalibrationReport.h"
#include "commands.h"
#include "Output.h"
#include "StatusNames.h"

namespace calcut::tools {

namespace {

// Floats keep their own width, so that they are printed with the fewest digits that read back.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool,
                                  std::int64_t, std::uint64_t, float>;

std::string quoted(const std::string& bytes) {
    return '"' + escapeBytes(bytes) + '"';
}

std::string codeText(std::uint32_t status) {
    return fmt::format("{} (0x{:08x}: {})", statusName(status), status, statusText(status));
}

// ----------------------------------------------------------------------------------------- text --

/// Rows of cells, printed in aligned columns. The first row is the heading.
class TextTable {
  public:
    /// alignments: one character a column, '<' or '>'.
    explicit TextTable(std::string alignments) : alignments_(std::move(alignments)) {}

    void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

    void print() const {
        std::vector<std::size_t> widths(alignments_.size(), 0);
        for (const std::vector<std::string>& cells : rows_) {
            for (std::size_t i = 0; i < cells.size(); ++i) {
                widths[i] = std::max(widths[i], cells[i].size());
            }
        }
        for (std::size_t at = 0; at < rows_.size(); ++at) {
            std::string line;
            for (std::size_t i = 0; i < rows_[at].size(); ++i) {
                const std::string& cell = rows_[at][i];
                line += alignments_[i] == '>' ? fmt::format("  {:>{}}", cell, widths[i])
                                              : fmt::format("  {:<{}}", cell, widths[i]);
            }
            line.erase(line.find_last_not_of(' ') + 1);
            fmt::print("{}\n", at == 0 ? paint(stdout, Colour::Dim, line) : line);
        }
    }

  private:
    std::string alignments_;
    std::vector<std::vector<std::string>> rows_;
};

void heading(const std::string& text) {
    fmt::print("\n{}\n", paint(stdout, Colour::Bold, text));
}

void item(const std::string& name, const std::string& value) {
    fmt::print("  {:<18} {}\n", name, value);
}

/// Bytes as hexadecimal lines of 32 bytes.
void hexItem(const std::string& name, ByteView bytes) {
    constexpr std::size_t perLine = 32;
    item(name, hexText(bytes.first(std::min(perLine, bytes.size()))));
    for (std::size_t at = perLine; at < bytes.size(); at += perLine) {
        item("", hexText(bytes.subspan(at, std::min(perLine, bytes.size() - at))));
    }
}

std::string rangeText(const ValueRange& range) {
    std::string text;
    if (range.finite > 0) {
        const auto number = [&range](double value) {
            return range.whole ? fmt::format("{}", static_cast<std::int64_t>(value))
                               : fmt::format("{}", static_cast<float>(value));
        };
        text = range.low < range.high
                   ? fmt::format("{} to {}", number(range.low), number(range.high))
                   : number(range.low);
    }
    if (range.notFinite > 0) {
        text += fmt::format("{}{} infinite", text.empty() ? "" : ", ", range.notFinite);
    }
    return text;
}

template <typename Value>
std::string listText(const std::vector<Value>& values) {
    return fmt::format("{}", fmt::join(values, "  "));
}

bool isPacked(const RXBlockHeader& header) {
    return header.kind == RX_KIND_PACKED_UINT || header.kind == RX_KIND_PACKED_FLOAT;
}

void printImage(const CalibrationReport& report) {
    const Image& image = report.image;
    if (!image.fields.empty()) {
        heading("Image header");
        TextTable table("><<");
        table.row({"offset", "field", "value"});
        for (const ImageField& field : image.fields) {
            table.row({fmt::format("{}", field.offset), field.name, fieldText(field)});
        }
        table.print();
    }
    if (image.payloadOffset) {
        item("payload",
             fmt::format("{} bytes at byte {}{}", image.payloadLength, *image.payloadOffset,
                         image.payloadInside ? "" : ", not all inside the file"));
    }
    if (image.storedCrc) {
        item("stored CRC-32", fmt::format("0x{:08x}", *image.storedCrc));
    }
    if (image.computedCrc) {
        item("computed CRC-32", fmt::format("0x{:08x}  {}", *image.computedCrc,
                                            image.storedCrc == image.computedCrc
                                                ? paint(stdout, Colour::Green, "matches")
                                                : paint(stdout, Colour::Red, "does not match")));
    }
    if (image.signatureLength) {
        item("signature", fmt::format("{} bytes", *image.signatureLength));
        if (!image.signature.empty()) {
            hexItem("", image.signature);
        }
    }
}

void printBlocks(const CalibrationReport& report) {
    heading("Blocks");
    TextTable table(">><<>><>><<");
    table.row({"offset", "id", "what", "kind", "count", "bits", "scale, offset", "payload at",
               "bytes", "values", "read"});
    for (const BlockReport& block : report.blocks) {
        const RXBlockHeader& header = block.header;
        table.row({fmt::format("{}", block.offset), fmt::format("{}", header.id), block.name,
                   kindName(header.kind), fmt::format("{}", header.count),
                   isPacked(header) ? fmt::format("{}", header.bits) : "",
                   header.kind == RX_KIND_PACKED_FLOAT
                       ? fmt::format("{}, {}", header.scale, header.offset)
                       : "",
                   fmt::format("{}", block.payloadOffset), fmt::format("{}", block.payloadBytes),
                   block.range ? rangeText(*block.range) : "", outcomeName(block.outcome)});
    }
    if (report.walk.endMarker) {
        const std::uint64_t at = report.image.calibrationOffset + report.walk.endOffset;
        table.row({fmt::format("{}", at), fmt::format("{}", VANTRIC_RX_END_MARKER), "end marker"});
    }
    table.print();
    if (std::any_of(report.blocks.begin(), report.blocks.end(), [](const BlockReport& block) {
            return block.outcome == BlockOutcome::Ignored;
        })) {
        fmt::print(
            "  ignored: an id below 128 that the reader does not know. It takes the next "
            "block header right\n  behind that block's header; the payload is not "
            "skipped.\n");
    }
    if (report.trailingBytes > 0) {
        fmt::print("  {} bytes behind the end marker\n", report.trailingBytes);
    }
}

void printWiggling(const std::string& name, const std::optional<WigglingReport>& wiggling) {
    if (!wiggling) {
        return;
    }
    item(name, fmt::format("header 0x{:08x} ({}), entries: {}", wiggling->header,
                           std::bit_cast<float>(wiggling->header), wiggling->third.size()));
    item("    first", listText(wiggling->first));
    item("    second", listText(wiggling->second));
    item("    third", listText(wiggling->third));
}

void printFrequency(const FrequencyReport& frequency) {
    item(fmt::format("frequency {}", frequency.index), fmt::format("id {}", frequency.id));
    if (frequency.scalar) {
        item("  scalar", fmt::format("{}", *frequency.scalar));
    }
    if (!frequency.valuesA.empty()) {
        item("  values A", listText(frequency.valuesA));
    }
    if (!frequency.valuesB.empty()) {
        item("  values B", listText(frequency.valuesB));
    }
    printWiggling("  wiggling A", frequency.wigglingA);
    printWiggling("  wiggling B", frequency.wigglingB);
}

void printStraylight(const StraylightReport& straylight) {
    item("straylight", fmt::format("scale {}, exponent {}, offset {}, centre {}", straylight.scale,
                                   straylight.exponent, straylight.offset, straylight.centre));
    item("  PSF", fmt::format("{} x {} elements", straylight.psfWidth, straylight.psfHeight));
    item("  radius", listText(straylight.radius));
    item("  value", listText(straylight.value));
}

void printRecord(const CalibrationReport& report) {
    const RecordReport& record = *report.record;
    heading(report.status == VANTRIC_OK ? "Record" : "Record, as far as it was read");
    const std::uint64_t pixels = std::uint64_t{record.columns} * record.rows;
    item("image area", fmt::format("{} x {} pixels", record.columns, record.rows));
    if (record.auxFlag) {
        item("aux flag", fmt::format("{}", *record.auxFlag));
    }
    if (record.lens) {
        for (std::size_t i = 0; i < lensParameterNames.size(); ++i) {
            item(lensParameterNames[i],
                 fmt::format("{}{}", (*record.lens)[i], i < 4 ? " pixels" : ""));
        }
    }
    for (const auto& [name, text] :
         {std::pair{"text 0", &record.text0}, std::pair{"text 1", &record.text1},
          std::pair{"text 2", &record.text2}}) {
        if (text->has_value()) {
            item(name, quoted(**text));
        }
    }
    if (!record.idBytes.empty()) {
        hexItem("id bytes", record.idBytes);
    }
    if (record.idCodes) {
        item("id codes",
             fmt::format("0x{:04x}  0x{:04x}", (*record.idCodes)[0], (*record.idCodes)[1]));
    }
    if (record.pixelMask != nullptr) {
        item("masked pixels", fmt::format("{} of {}", record.maskedPixels, pixels));
        if (record.zeroMaskCount != record.maskedPixels) {
            item("  as cut reports", fmt::format("{}", record.zeroMaskCount));
        }
    }
    for (const FrequencyReport& frequency : record.frequencies) {
        printFrequency(frequency);
    }
    if (record.straylight) {
        printStraylight(*record.straylight);
    }
    for (const CustomReport& custom : record.custom) {
        hexItem(fmt::format("custom {}", custom.blockId), custom.bytes);
    }
    if (record.customStatus != VANTRIC_OK) {
        item("custom fields", "not readable: " + codeText(record.customStatus));
    }
}

void printText(const CalibrationReport& report) {
    const Image& image = report.image;
    fmt::print("{}: {}, {} bytes\n", paint(stdout, Colour::Bold, escapePath(report.path)),
               image.layout == Layout::Unknown  ? "neither image nor calibration"
               : image.layout == Layout::Packed ? "packed calibration"
                                                : fmt::format("{} image", layoutName(image.layout)),
               report.file.size());
    printImage(report);
    if (!image.calibration.empty()) {
        heading("Packed calibration");
        item("at",
             fmt::format("byte {}, {} bytes", image.calibrationOffset, image.calibration.size()));
        if (report.walk.headerStatus == VANTRIC_OK) {
            const RXHeader& header = report.walk.header;
            item("version", fmt::format("{}", header.version));
            item("sensor", fmt::format("{} columns x {} rows, {} pixels", header.columns,
                                       header.rows, std::uint64_t{header.columns} * header.rows));
            printBlocks(report);
        }
    }
    if (report.record) {
        printRecord(report);
    }
    heading("Result");
    if (report.status) {
        item("read", codeText(*report.status));
        if (report.failedBlockId != VANTRIC_RX_END_MARKER) {
            item("failing block",
                 fmt::format("{} ({})", report.failedBlockId, blockName(report.failedBlockId)));
        }
    } else {
        item("read", "not attempted");
    }
    for (const Fault& fault : report.faults) {
        item("fault", paint(stdout, Colour::Red, describe(fault)));
    }
    if (report.intact()) {
        item("verdict", paint(stdout, Colour::Green, "reads"));
    }
}

// ----------------------------------------------------------------------------------------- JSON --

/// JSON knows no infinities and no NaN: "inf", "-inf" and null.
Json jsonFloat(float value) {
    if (std::isnan(value)) {
        return nullptr;
    }
    if (std::isinf(value)) {
        return value < 0 ? "-inf" : "inf";
    }
    return value;
}

Json jsonFloats(std::span<const float> values) {
    Json list = Json::array();
    for (const float value : values) {
        list.push_back(jsonFloat(value));
    }
    return list;
}

template <typename Value>
Json jsonOptional(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json jsonImage(const CalibrationReport& report) {
    const Image& image = report.image;
    Json json;
    Json& fields = json["fields"] = Json::array();
    for (const ImageField& field : image.fields) {
        Json& entry = fields.emplace_back();
        entry["offset"] = field.offset;
        entry["name"] = field.name;
        entry["hex"] = hexText(field.bytes);
        const bool number =
            (field.format == FieldFormat::Number || field.format == FieldFormat::Hex) &&
            field.bytes.size() == field.size && field.size <= 8;
        entry["value"] = number ? Json(field.number()) : Json(nullptr);
        entry["examined"] = field.examined;
    }
    json["storedCrc"] = jsonOptional(image.storedCrc);
    json["computedCrc"] = jsonOptional(image.computedCrc);
    if (image.payloadOffset) {
        Json& payload = json["payload"];
        payload["offset"] = *image.payloadOffset;
        payload["bytes"] = image.payloadLength;
        payload["inside"] = image.payloadInside;
    } else {
        json["payload"] = nullptr;
    }
    if (image.signatureLength) {
        Json& signature = json["signature"];
        signature["bytes"] = *image.signatureLength;
        signature["hex"] = hexText(image.signature);
    } else {
        json["signature"] = nullptr;
    }
    return json;
}

Json jsonRange(const std::optional<ValueRange>& range) {
    if (!range) {
        return nullptr;
    }
    const auto bound = [&range](double value) -> Json {
        if (range->finite == 0) {
            return nullptr;
        }
        return range->whole ? Json(static_cast<std::int64_t>(value))
                            : Json(static_cast<float>(value));
    };
    Json json;
    json["min"] = bound(range->low);
    json["max"] = bound(range->high);
    json["infinite"] = range->notFinite;
    return json;
}

Json jsonCalibration(const CalibrationReport& report) {
    const Image& image = report.image;
    if (image.calibration.empty()) {
        return nullptr;
    }
    Json json;
    json["offset"] = image.calibrationOffset;
    json["bytes"] = image.calibration.size();
    if (report.walk.headerStatus != VANTRIC_OK) {
        json["header"] = nullptr;
        json["blocks"] = Json::array();
        json["endMarker"] = nullptr;
        json["trailingBytes"] = 0;
        return json;
    }
    Json& header = json["header"];
    header["version"] = report.walk.header.version;
    header["columns"] = report.walk.header.columns;
    header["rows"] = report.walk.header.rows;
    Json& blocks = json["blocks"] = Json::array();
    for (const BlockReport& block : report.blocks) {
        Json& entry = blocks.emplace_back();
        entry["offset"] = block.offset;
        entry["id"] = block.header.id;
        entry["name"] = block.name;
        entry["kind"] = kindName(block.header.kind);
        entry["count"] = block.header.count;
        entry["bits"] = isPacked(block.header) ? Json(block.header.bits) : Json(nullptr);
        const bool fixedPoint = block.header.kind == RX_KIND_PACKED_FLOAT;
        entry["scale"] = fixedPoint ? jsonFloat(block.header.scale) : Json(nullptr);
        entry["valueOffset"] = fixedPoint ? jsonFloat(block.header.offset) : Json(nullptr);
        entry["payloadOffset"] = block.payloadOffset;
        entry["payloadBytes"] = block.payloadBytes;
        entry["range"] = jsonRange(block.range);
        entry["outcome"] = outcomeName(block.outcome);
    }
    json["endMarker"] = report.walk.endMarker
                            ? Json(image.calibrationOffset + report.walk.endOffset)
                            : Json(nullptr);
    json["trailingBytes"] = report.trailingBytes;
    return json;
}

Json jsonWiggling(const std::optional<WigglingReport>& wiggling) {
    if (!wiggling) {
        return nullptr;
    }
    Json json;
    json["header"] = wiggling->header;
    json["first"] = jsonFloats(wiggling->first);
    json["second"] = wiggling->second;
    json["third"] = jsonFloats(wiggling->third);
    return json;
}

Json jsonText(const std::optional<std::string>& text) {
    return text ? Json(escapeBytes(*text)) : Json(nullptr);
}

Json jsonFrequency(const FrequencyReport& frequency) {
    Json json;
    json["index"] = frequency.index;
    json["id"] = frequency.id;
    json["scalar"] = frequency.scalar ? jsonFloat(*frequency.scalar) : Json(nullptr);
    json["valuesA"] = jsonFloats(frequency.valuesA);
    json["valuesB"] = jsonFloats(frequency.valuesB);
    json["wigglingA"] = jsonWiggling(frequency.wigglingA);
    json["wigglingB"] = jsonWiggling(frequency.wigglingB);
    return json;
}

Json jsonStraylight(const std::optional<StraylightReport>& straylight) {
    if (!straylight) {
        return nullptr;
    }
    Json json;
    json["scale"] = jsonFloat(straylight->scale);
    json["exponent"] = jsonFloat(straylight->exponent);
    json["offset"] = jsonFloat(straylight->offset);
    json["centre"] = jsonFloat(straylight->centre);
    json["psfWidth"] = straylight->psfWidth;
    json["psfHeight"] = straylight->psfHeight;
    json["radius"] = jsonFloats(straylight->radius);
    json["value"] = jsonFloats(straylight->value);
    return json;
}

Json jsonRecord(const CalibrationReport& report) {
    if (!report.record) {
        return nullptr;
    }
    const RecordReport& record = *report.record;
    Json json;
    json["columns"] = record.columns;
    json["rows"] = record.rows;
    json["auxFlag"] = jsonOptional(record.auxFlag);
    if (record.lens) {
        Json& lens = json["lens"];
        for (std::size_t i = 0; i < lensParameterNames.size(); ++i) {
            lens[lensParameterNames[i]] = jsonFloat((*record.lens)[i]);
        }
    } else {
        json["lens"] = nullptr;
    }
    json["text0"] = jsonText(record.text0);
    json["text1"] = jsonText(record.text1);
    json["text2"] = jsonText(record.text2);
    json["idBytes"] = hexText(record.idBytes);
    json["idCodes"] = record.idCodes ? Json(*record.idCodes) : Json(nullptr);
    const bool mask = record.pixelMask != nullptr;
    json["maskedPixels"] = mask ? Json(record.maskedPixels) : Json(nullptr);
    json["zeroMaskCount"] = mask ? Json(record.zeroMaskCount) : Json(nullptr);
    Json& frequencies = json["frequencies"] = Json::array();
    for (const FrequencyReport& frequency : record.frequencies) {
        frequencies.push_back(jsonFrequency(frequency));
    }
    json["straylight"] = jsonStraylight(record.straylight);
    Json& custom = json["custom"] = Json::array();
    for (const CustomReport& field : record.custom) {
        Json& entry = custom.emplace_back();
        entry["id"] = field.blockId;
        entry["hex"] = hexText(field.bytes);
    }
    json["customStatus"] = statusName(record.customStatus);
    return json;
}

Json jsonFault(const Fault& fault) {
    Json json;
    json["what"] = fault.what;
    json["expected"] = fault.expected.empty() ? Json(nullptr) : Json(fault.expected);
    json["found"] = fault.found.empty() ? Json(nullptr) : Json(fault.found);
    json["offset"] = fault.offset;
    json["status"] = fault.status == VANTRIC_OK ? Json(nullptr) : Json(statusName(fault.status));
    json["block"] = jsonOptional(fault.blockId);
    return json;
}

void printJson(const CalibrationReport& report) {
    Json json;
    json["file"] = report.path;
    json["bytes"] = report.file.size();
    json["layout"] = layoutName(report.image.layout);
    json["intact"] = report.intact();
    json["image"] = report.image.fields.empty() ? Json(nullptr) : jsonImage(report);
    json["calibration"] = jsonCalibration(report);
    if (report.status) {
        Json& read = json["read"];
        read["status"] = statusName(*report.status);
        read["code"] = *report.status;
        read["failedBlock"] = report.failedBlockId == VANTRIC_RX_END_MARKER
                                  ? Json(nullptr)
                                  : Json(report.failedBlockId);
    } else {
        json["read"] = nullptr;
    }
    json["record"] = jsonRecord(report);
    Json& faults = json["faults"] = Json::array();
    for (const Fault& fault : report.faults) {
        faults.push_back(jsonFault(fault));
    }
    fmt::print("{}\n", json.dump(2, ' ', false, Json::error_handler_t::replace));
}

// -------------------------------------------------------------------------------------- command --

struct InspectOptions {
    std::string path;
    std::optional<Layout> layout;
    bool json = false;
};

int inspect(const InspectOptions& options) {
    LoadedFile loaded = loadFile(options.path, Source::Anything);
    if (!loaded.error.empty()) {
        printError(escapePath(options.path), loaded.error);
        return exitFailed;
    }
    const Layout layout = options.layout.value_or(classify(loaded.bytes));
    const CalibrationReport report = makeReport(options.path, std::move(loaded.bytes), layout);
    if (options.json) {
        printJson(report);
    } else {
        printText(report);
    }
    return finishStdout() && report.intact() ? exitOk : exitFailed;
}

}  // namespace

void addInspectCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<InspectOptions>();
    CLI::App* command = app.add_subcommand(
        "inspect", "Show what a dump or packed calibration holds, and why it does not read");
    command->add_option("FILE", options->path, "Dump, packed calibration, or - for standard input")
        ->required();
    command->add_flag("--json", options->json, "Print JSON (keys: docs/inspect-json.md)");
    const std::map<std::string, Layout> layouts = {
        {layoutName(Layout::V7), Layout::V7},
        {layoutName(Layout::Korveline), Layout::Korveline},
        {layoutName(Layout::Packed), Layout::Packed}};
    command
        ->add_option_function<std::string>(
            "--layout",
            [options, layouts](const std::string& name) { options->layout = layouts.at(name); },
            "Take FILE as this layout instead of the one its first bytes name")
        ->check(CLI::IsMember(layouts));
    command->footer(
        "Exit status: 0 the calibration reads and its image is intact, 1 it does not, 2 usage.\n"
        "\n"
        "Example:\n"
        "  calcut inspect module.bin\n"
        "  calcut inspect module.bin --json | jq .record.lens");
    command->callback([options, &exitCode] { exitCode = inspect(*options); });
}

}  // namespace calcut::tools
