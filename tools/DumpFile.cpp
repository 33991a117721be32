#include "DumpFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "StatusNames.h"
#include "writer/ImageLayout.h"

namespace calcut::tools {

namespace {

bool startsWith(ByteView bytes, std::string_view magic) {
    return bytes.size() >= magic.size() &&
           std::memcmp(bytes.data(), magic.data(), magic.size()) == 0;
}

ByteView part(ByteView bytes, std::uint64_t offset, std::uint64_t size) {
    if (offset >= bytes.size()) {
        return {};
    }
    return bytes.subspan(offset, std::min<std::uint64_t>(size, bytes.size() - offset));
}

std::string printable(ByteView bytes) {
    std::string text = "\"";
    for (const std::uint8_t byte : bytes) {
        if (byte < 0x20 || byte > 0x7E || byte == '"' || byte == '\\') {
            text += fmt::format("\\x{:02x}", byte);
        } else {
            text += static_cast<char>(byte);
        }
    }
    return text + '"';
}

std::string quoted(std::string_view text) {
    return fmt::format("\"{}\"", text);
}

std::string crcText(std::uint32_t crc) {
    return fmt::format("{:#010x}", crc);
}

std::uint32_t crcOf(ByteView bytes) {
    // The exported function takes a pointer to mutable bytes, but only reads them.
    return calc_crc32(const_cast<std::uint8_t*>(bytes.data()), bytes.size());
}

std::string errnoText() {
    return std::generic_category().message(errno);
}

class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (descriptor_ > STDERR_FILENO) {
            close(descriptor_);
        }
    }
    [[nodiscard]] int get() const { return descriptor_; }

  private:
    int descriptor_;
};

}  // namespace

const char* layoutName(Layout layout) {
    switch (layout) {
        case Layout::V7:
            return "v7";
        case Layout::Korveline:
            return "korveline";
        case Layout::Packed:
            return "packed";
        default:
            return "unknown";
    }
}

Layout classify(ByteView file) {
    if (startsWith(file, image::v7::magic)) {
        return Layout::V7;
    }
    if (startsWith(file, image::korveline::magic)) {
        return Layout::Korveline;
    }
    return startsWith(file, image::packedMagic) ? Layout::Packed : Layout::Unknown;
}

// ------------------------------------------------------------------------------------- reading --

LoadedFile loadFile(const std::string& path, Source source) {
    LoadedFile file;
    const bool standardInput = source == Source::Anything && path == "-";
    // Without O_NONBLOCK the opening of a pipe that nobody writes to would hang.
    const int flags = O_RDONLY | O_CLOEXEC | (source == Source::RegularFile ? O_NONBLOCK : 0);
    const FileDescriptor descriptor(standardInput ? STDIN_FILENO : open(path.c_str(), flags));
    struct stat status {};
    if (descriptor.get() < 0 || fstat(descriptor.get(), &status) != 0) {
        file.error = errnoText();
        return file;
    }
    if (S_ISDIR(status.st_mode)) {
        file.error = "is a directory";
        return file;
    }
    if (source == Source::RegularFile && !S_ISREG(status.st_mode)) {
        file.error = "is not a regular file (a pipe, socket or device cannot be cut)";
        return file;
    }
    constexpr std::size_t chunk = std::size_t{1} << 16;
    std::size_t filled = 0;
    file.bytes.resize(S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) + 1
                                              : chunk);
    while (true) {
        if (filled == file.bytes.size()) {
            file.bytes.resize(filled + std::max(filled, chunk));
        }
        const ssize_t got =
            read(descriptor.get(), file.bytes.data() + filled, file.bytes.size() - filled);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            file.error = errnoText();
            file.bytes.clear();
            return file;
        }
        if (got == 0) {
            break;
        }
        filled += static_cast<std::size_t>(got);
    }
    file.bytes.resize(filled);
    if (file.bytes.empty()) {
        file.error = "is empty";
    }
    return file;
}

// --------------------------------------------------------------------------------------- fault --

std::string describe(const Fault& fault) {
    std::string line = fmt::format("{} at byte {} ({:#x})", fault.what, fault.offset, fault.offset);
    if (!fault.expected.empty()) {
        line += ": expected " + fault.expected;
    }
    if (!fault.found.empty()) {
        line += (fault.expected.empty() ? ": found " : ", found ") + fault.found;
    }
    // A sensor of 2^31 pixels or more is refused with its pixel count, which is no status.
    if (fault.status != VANTRIC_OK && fault.status <= VANTRIC_WARN_PARTIAL) {
        line += " [" + statusName(fault.status) + "]";
    }
    return line;
}

// --------------------------------------------------------------------------------------- image --

std::uint64_t ImageField::number() const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size() && i < sizeof value; ++i) {
        value |= std::uint64_t{bytes[i]} << (8 * i);
    }
    return value;
}

std::string fieldText(const ImageField& field) {
    if (field.bytes.size() == field.size) {
        switch (field.format) {
            case FieldFormat::Text:
                return printable(field.bytes);
            case FieldFormat::Number:
                return fmt::format("{}", field.number());
            case FieldFormat::Hex:
                return fmt::format("0x{:0{}x}", field.number(), 2 * field.size);
            case FieldFormat::Bytes:
                break;
        }
    }
    std::string text;
    for (const std::uint8_t byte : field.bytes) {
        text += fmt::format("{}{:02x}", text.empty() ? "" : " ", byte);
    }
    return text;
}

namespace {

struct FieldLayout {
    const char* name;
    std::size_t offset;
    FieldFormat format;
    bool examined;
};

// Each field ends where the next one, or at last the header, does.
constexpr std::array v7Fields = {
    FieldLayout{"magic", 0, FieldFormat::Text, true},
    FieldLayout{"version", image::v7::versionOffset, FieldFormat::Number, true},
    FieldLayout{"payload CRC-32", image::v7::crcOffset, FieldFormat::Hex, true},
    FieldLayout{"payload length", image::v7::lengthOffset, FieldFormat::Number, true},
    FieldLayout{"not read", image::v7::unreadOffset, FieldFormat::Bytes, false},
};

constexpr std::array korvelineFields = {
    FieldLayout{"magic", 0, FieldFormat::Text, true},
    FieldLayout{"field 9", image::korveline::field9Offset, FieldFormat::Hex, false},
    FieldLayout{"layout revision", image::korveline::revisionOffset, FieldFormat::Number, true},
    FieldLayout{"field 16", image::korveline::field16Offset, FieldFormat::Bytes, false},
    FieldLayout{"field 22", image::korveline::field22Offset, FieldFormat::Hex, false},
    FieldLayout{"field 26", image::korveline::field26Offset, FieldFormat::Bytes, false},
    FieldLayout{"payload type", image::korveline::typeOffset, FieldFormat::Number, true},
    FieldLayout{"field 42", image::korveline::field42Offset, FieldFormat::Hex, false},
    FieldLayout{"field 46", image::korveline::field46Offset, FieldFormat::Bytes, false},
    FieldLayout{"payload address", image::korveline::addressOffset, FieldFormat::Hex, true},
    FieldLayout{"payload length", image::korveline::lengthOffset, FieldFormat::Number, true},
    FieldLayout{"payload CRC-32", image::korveline::crcOffset, FieldFormat::Hex, true},
    FieldLayout{"field 62", image::korveline::field62Offset, FieldFormat::Number, false},
    FieldLayout{"field 63", image::korveline::field63Offset, FieldFormat::Bytes, false},
    FieldLayout{"field 69", image::korveline::field69Offset, FieldFormat::Bytes, false},
    FieldLayout{"not read", image::korveline::unreadOffset, FieldFormat::Bytes, false},
};

std::vector<ImageField> takeFields(ByteView file, std::span<const FieldLayout> layout,
                                   std::size_t headerSize) {
    std::vector<ImageField> fields;
    for (std::size_t i = 0; i < layout.size() && layout[i].offset < file.size(); ++i) {
        const std::size_t end = i + 1 < layout.size() ? layout[i + 1].offset : headerSize;
        const std::size_t size = end - layout[i].offset;
        fields.push_back({layout[i].name, layout[i].offset, layout[i].format,
                          part(file, layout[i].offset, size), size, layout[i].examined});
    }
    return fields;
}

// The field at that offset; the caller has checked that the header is complete.
std::uint32_t numberAt(const Image& image, std::size_t offset) {
    for (const ImageField& field : image.fields) {
        if (field.offset == offset) {
            return static_cast<std::uint32_t>(field.number());
        }
    }
    return 0;
}

std::string byteCount(std::uint64_t count) {
    return fmt::format("{} byte{}", count, count == 1 ? "" : "s");
}

// A file of another layout is better told by its magic than by its length.
std::optional<Fault> headerFault(ByteView file, std::string_view magic, std::size_t headerSize) {
    if (!startsWith(file, magic) && file.size() >= magic.size()) {
        return Fault{"wrong magic", quoted(magic), printable(part(file, 0, magic.size())), 0};
    }
    if (file.size() < headerSize) {
        return Fault{"image header cut short", byteCount(headerSize), byteCount(file.size()),
                     file.size()};
    }
    return std::nullopt;
}

// The steps both layouts share once the header's numbers are known.
void checkPayload(Image& image, std::size_t lengthOffset, std::size_t crcOffset,
                  std::uint64_t fileSize) {
    if (image.fault) {
        return;
    }
    if (!image.payloadInside) {
        const std::int64_t begin = *image.payloadOffset;
        image.fault = Fault{
            "payload outside the file", fmt::format("it inside the file's {}", byteCount(fileSize)),
            fmt::format("{} from byte {} on", byteCount(image.payloadLength), begin), lengthOffset};
    } else if (image.computedCrc != image.storedCrc) {
        image.fault =
            Fault{"CRC-32 mismatch", crcText(*image.computedCrc) + " (computed over the payload)",
                  crcText(*image.storedCrc) + " (stored)", crcOffset};
    } else if (image.payloadLength == 0) {
        image.fault = Fault{"empty payload", "a calibration", byteCount(0), lengthOffset};
    }
}

void parseV7(Image& image, ByteView file) {
    namespace layout = image::v7;
    image.headerSize = layout::headerSize;
    image.fields = takeFields(file, v7Fields, layout::headerSize);
    image.fault = headerFault(file, layout::magic, layout::headerSize);
    if (file.size() < layout::headerSize) {
        return;
    }
    const std::uint32_t version = numberAt(image, layout::versionOffset);
    if (!image.fault && version != layout::version) {
        image.fault = Fault{"wrong version", fmt::format("{}", layout::version),
                            fmt::format("{}", version), layout::versionOffset};
    }
    image.storedCrc = numberAt(image, layout::crcOffset);
    image.payloadLength = numberAt(image, layout::lengthOffset);
    image.payloadOffset = static_cast<std::int64_t>(layout::headerSize);
    image.payloadInside = image.payloadLength <= file.size() - layout::headerSize;
    image.payload = part(file, layout::headerSize, image.payloadLength);
    image.computedCrc = crcOf(image.payload);
    image.calibration = image.payload;
    image.calibrationOffset = layout::headerSize;
    checkPayload(image, layout::lengthOffset, layout::crcOffset, file.size());
}

void takeSignature(Image& image) {
    namespace layout = image::korveline;
    image.signatureArea = true;
    if (!image.payloadInside || image.payload.size() < layout::signatureArea) {
        if (!image.fault) {
            image.fault = Fault{"payload too short for its signature area",
                                fmt::format("at least {}", byteCount(layout::signatureArea + 1)),
                                byteCount(image.payload.size()), layout::lengthOffset};
        }
        return;
    }
    image.calibration = image.payload.first(image.payload.size() - layout::signatureArea);
    const ByteView area = image.payload.last(layout::signatureArea);
    image.signatureLength = area[0];
    if (area[0] <= layout::maxSignature) {
        image.signature = area.subspan(1, area[0]);
    }
    if (!image.fault && image.calibration.empty()) {
        image.fault = Fault{"payload holds only its signature area", "a calibration", byteCount(0),
                            layout::lengthOffset};
    }
}

void parseKorveline(Image& image, ByteView file) {
    namespace layout = image::korveline;
    image.headerSize = layout::headerSize;
    image.fields = takeFields(file, korvelineFields, layout::headerSize);
    image.fault = headerFault(file, layout::magic, layout::headerSize);
    if (file.size() < layout::headerSize) {
        return;
    }
    const std::uint32_t revision = numberAt(image, layout::revisionOffset);
    if (!image.fault && revision != layout::revision) {
        image.fault = Fault{"wrong layout revision", fmt::format("{}", layout::revision),
                            fmt::format("{}", revision), layout::revisionOffset};
    }
    image.storedCrc = numberAt(image, layout::crcOffset);
    image.payloadLength = numberAt(image, layout::lengthOffset);
    const std::int64_t begin =
        static_cast<std::int64_t>(numberAt(image, layout::addressOffset)) - layout::baseAddress;
    image.payloadOffset = begin;
    image.payloadInside = begin >= 0 && static_cast<std::uint64_t>(begin) + image.payloadLength <=
                                            std::uint64_t{file.size()};
    if (image.payloadInside) {
        const auto offset = static_cast<std::uint64_t>(begin);
        image.payload = part(file, offset, image.payloadLength);
        image.computedCrc = crcOf(image.payload);
        image.calibration = image.payload;
        image.calibrationOffset = offset;
    }
    checkPayload(image, layout::addressOffset, layout::crcOffset, file.size());
    const std::uint32_t type = numberAt(image, layout::typeOffset);
    if (type == layout::signedTypeA || type == layout::signedTypeB) {
        takeSignature(image);
    }
}

}  // namespace

Image parseImage(ByteView file, Layout layout) {
    Image image;
    image.layout = layout;
    switch (layout) {
        case Layout::V7:
            parseV7(image, file);
            break;
        case Layout::Korveline:
            parseKorveline(image, file);
            break;
        case Layout::Packed:
            image.calibration = file;
            break;
        default:
            image.fault = Fault{"unknown magic",
                                fmt::format("{} (v7) or {} (Korveline)", quoted(image::v7::magic),
                                            quoted(image::korveline::magic)),
                                printable(part(file, 0, image::korveline::magic.size())), 0};
            break;
    }
    return image;
}

std::optional<Fault> signatureFault(const Image& image) {
    namespace layout = image::korveline;
    if (!image.signatureLength) {
        return std::nullopt;
    }
    const std::uint64_t offset = image.calibrationOffset + image.calibration.size();
    const std::uint8_t length = *image.signatureLength;
    if (length == 0) {
        return Fault{"signature area without signature", "a signature length of 1 to 127", "0",
                     offset};
    }
    if (length > layout::maxSignature) {
        return Fault{"signature longer than its area", "a signature length of 1 to 127",
                     fmt::format("{}", length), offset};
    }
    return std::nullopt;
}

// ------------------------------------------------------------------------------------- the walk --

namespace {

struct TableDeleter {
    void operator()(RXBlockTable* table) const { vantric_freeRXTable(table); }
};

// The reader's own table of blocks, bound to a record that is never filled: it tells which blocks
// are known, which kinds they may have, and how many elements they need.
class KnownBlocks {
  public:
    explicit KnownBlocks(std::uint64_t pixels) : pixels_(pixels) {
        record_.idBytesSize = VANTRIC_ID_BYTES;
        record_.lensParameterCount = VANTRIC_LENS_PARAMETERS;
        record_.frequencies = frequencies_.data();
        for (VantricFrequencyRecord& frequency : frequencies_) {
            frequency.countA = VANTRIC_FREQUENCY_VALUES;
            frequency.countB = VANTRIC_FREQUENCY_VALUES;
            frequency.wigglingA.capacity = VANTRIC_WIGGLING_ENTRIES;
            frequency.wigglingB.capacity = VANTRIC_WIGGLING_ENTRIES;
        }
        table_.reset(vantric_createTessalyTable(&record_, pixels));
    }
    KnownBlocks(const KnownBlocks&) = delete;
    KnownBlocks& operator=(const KnownBlocks&) = delete;
    ~KnownBlocks() = default;

    [[nodiscard]] const RXTableEntry* find(std::uint32_t id) const {
        return table_ ? vantric_findRXTableEntry(static_cast<std::uint8_t>(id), table_.get())
                      : nullptr;
    }
    [[nodiscard]] std::uint32_t firstCustom() const {
        return table_ ? table_->firstCustomBlockId : VANTRIC_RX_END_MARKER;
    }
    [[nodiscard]] std::uint64_t minimumCount(const RXTableEntry& entry) const {
        if (entry.expectedCount < 0) {
            return 0;
        }
        return entry.expectedCount == 0 ? pixels_ : static_cast<std::uint64_t>(entry.expectedCount);
    }

  private:
    std::uint64_t pixels_;
    std::array<VantricFrequencyRecord, VANTRIC_FREQUENCIES> frequencies_{};
    VantricCalibration record_{};
    std::unique_ptr<RXBlockTable, TableDeleter> table_;
};

std::uint64_t pixelsOf(const RXHeader& header) {
    return std::uint64_t{header.columns} * header.rows;
}

}  // namespace

BlockWalk walkBlocks(ByteView calibration) {
    BlockWalk walk;
    VantricStream stream = vantric_createStreamFromData(calibration.data(), calibration.size());
    walk.headerStatus = vantric_readRXHeader(&stream, &walk.header);
    if (walk.headerStatus != VANTRIC_OK) {
        return walk;
    }
    const KnownBlocks known(pixelsOf(walk.header));
    while (true) {
        BlockPosition block;
        block.offset = stream.position;
        walk.endOffset = stream.position;
        walk.status = vantric_readRXBlockHeader(&stream, &walk.header, &block.header);
        if (walk.status != VANTRIC_OK) {
            return walk;
        }
        if (block.header.id == VANTRIC_RX_END_MARKER) {
            walk.endMarker = true;
            return walk;
        }
        block.payloadOffset = stream.position;
        block.packedSize = vantric_getRXPackedBlockSize(&block.header);
        block.known = known.find(block.header.id) != nullptr;
        block.custom = !block.known && block.header.id >= known.firstCustom();
        walk.blocks.push_back(block);
        // The format gives blocks below the custom range that nobody knows no payload to skip.
        if (!block.known && !block.custom) {
            continue;
        }
        walk.status = vantric_canRead(&stream, block.packedSize);
        if (walk.status != VANTRIC_OK) {
            walk.endOffset = block.payloadOffset;
            return walk;
        }
        stream.position += block.packedSize;
    }
}

// ------------------------------------------------------------------------------------- the read --

namespace {

// What the noting handler saw last. The registry's functions carry no context of ours.
RXReadResult notedResult{};
bool notedRead = false;

// Keeps the pair that the reading entry points cut down to a status, and has the record handed out
// also after a failure.
RXReadResult noteRead(const std::uint8_t* data, std::size_t size, VantricCalibration* record) {
    notedResult = vantric_readRXHandlerCalibration(data, size, record);
    notedRead = true;
    if (notedResult.status == VANTRIC_OK) {
        return notedResult;
    }
    return {VANTRIC_WARN_PARTIAL, notedResult.failedBlockId};
}

std::string blockLabel(std::uint32_t id) {
    return fmt::format("block {} ({})", id, blockName(id));
}

std::string kindsText(const RXBlockExpectation& expectation) {
    std::string text = kindName(expectation.kindA);
    if (expectation.kindB != expectation.kindA) {
        text += fmt::format(" or {}", kindName(expectation.kindB));
    }
    return text;
}

bool isPacked(std::uint32_t kind) {
    return kind == RX_KIND_PACKED_UINT || kind == RX_KIND_PACKED_FLOAT;
}

// Where and why a read failed, found by looking at the blocks again. Offsets are from the start of
// the calibration until the last step.
class FaultFinder {
  public:
    FaultFinder(ByteView calibration, std::uint32_t status, std::uint32_t failedBlockId)
        : calibration_(calibration),
          status_(status),
          failedId_(failedBlockId),
          walk_(walkBlocks(calibration)),
          known_(pixelsOf(walk_.header)) {}

    [[nodiscard]] Fault find() const {
        Fault fault = locate();
        fault.status = status_;
        if (failedId_ != noBlock) {
            fault.blockId = failedId_;
        }
        return fault;
    }

  private:
    static constexpr std::uint32_t noBlock = 255;
    static constexpr std::uint64_t versionOffset = 6;
    static constexpr std::uint64_t sizeOffset = 7;
    static constexpr std::uint64_t headerSize = 11;
    static constexpr std::uint32_t readableVersion = 1;

    [[nodiscard]] Fault locate() const {
        if (walk_.headerStatus == VANTRIC_ERR_NOT_SUPPORTED) {
            return {"wrong calibration magic", quoted(image::packedMagic),
                    printable(part(calibration_, 0, image::packedMagic.size())), 0};
        }
        if (walk_.headerStatus != VANTRIC_OK) {
            return {"calibration header cut short", byteCount(headerSize),
                    byteCount(calibration_.size()), calibration_.size()};
        }
        if (walk_.header.version != readableVersion) {
            return {"wrong calibration version", fmt::format("{}", readableVersion),
                    fmt::format("{}", walk_.header.version), versionOffset};
        }
        const std::uint64_t pixels = pixelsOf(walk_.header);
        if (pixels == 0 || pixels > INT32_MAX) {
            return {"impossible sensor size", fmt::format("1 to {} pixels", INT32_MAX),
                    fmt::format("{} x {}", walk_.header.columns, walk_.header.rows), sizeOffset};
        }
        return failedId_ == noBlock ? betweenBlocks() : inBlock();
    }

    [[nodiscard]] Fault betweenBlocks() const {
        if (walk_.status == VANTRIC_ERR_END_OF_DATA) {
            return {"calibration cut short", "a block or the end marker",
                    fmt::format("the end of the data after {}",
                                byteCount(calibration_.size() - walk_.endOffset)),
                    walk_.endOffset};
        }
        if (walk_.status == VANTRIC_ERR_INVALID_DATA) {
            const std::uint64_t kindOffset = walk_.endOffset + 1;
            return {
                fmt::format("{} has an unknown kind", blockLabel(calibration_[walk_.endOffset])),
                "0 to 6", fmt::format("{}", calibration_[kindOffset]), kindOffset};
        }
        // Every block was read, so what failed was computed from them: the PSF.
        for (const BlockPosition& block : walk_.blocks) {
            if (block.header.id == straylightBlock) {
                return {
                    "the PSF of the straylight profile cannot be computed",
                    fmt::format("at most {} elements and enough memory", VANTRIC_MAX_PSF_ELEMENTS),
                    "", block.offset};
            }
        }
        return {statusText(status_), "", "", 0};
    }

    [[nodiscard]] Fault inBlock() const {
        const BlockPosition* first = nullptr;
        int previousId = -1;
        unsigned customBlocks = 0;
        for (const BlockPosition& block : walk_.blocks) {
            customBlocks += block.custom ? 1 : 0;
            if (block.header.id == failedId_) {
                if (first == nullptr) {
                    first = &block;
                }
                if (auto fault = explain(block, previousId, customBlocks)) {
                    return *std::move(fault);
                }
            }
            previousId = static_cast<int>(block.header.id);
        }
        if (first == nullptr) {
            return {fmt::format("required {} is missing", blockLabel(failedId_)),
                    "it before the end marker", "", walk_.endOffset};
        }
        if (status_ == VANTRIC_ERR_FIELD_EMPTY) {
            return {fmt::format("{} has no frequency id block", blockLabel(failedId_)),
                    "its frequency's first block before it", "", first->offset};
        }
        return {fmt::format("{}: {}", blockLabel(failedId_), statusText(status_)), "", "",
                first->offset};
    }

    [[nodiscard]] std::optional<Fault> explain(const BlockPosition& block, int previousId,
                                               unsigned customBlocks) const {
        const std::string label = blockLabel(block.header.id);
        const RXTableEntry* entry = known_.find(block.header.id);
        switch (status_) {
            case VANTRIC_ERR_INVALID_DATA:
                return explainInvalid(block, previousId, label, entry);
            case VANTRIC_ERR_COUNT_TOO_SMALL:
                if (entry != nullptr && block.header.count < known_.minimumCount(*entry)) {
                    return Fault{label + " has too few elements",
                                 fmt::format("at least {}", known_.minimumCount(*entry)),
                                 fmt::format("{}", block.header.count), block.offset};
                }
                return std::nullopt;
            case VANTRIC_ERR_END_OF_DATA:
                if (block.packedSize > calibration_.size() - block.payloadOffset) {
                    return Fault{label + " is cut short", byteCount(block.packedSize),
                                 byteCount(calibration_.size() - block.payloadOffset),
                                 block.payloadOffset};
                }
                return std::nullopt;
            case VANTRIC_ERR_BUFFER_TOO_SMALL:
                if (block.custom && customBlocks > VANTRIC_CUSTOM_FIELDS) {
                    return Fault{"one custom block too many, " + label,
                                 fmt::format("at most {}", VANTRIC_CUSTOM_FIELDS),
                                 fmt::format("number {}", customBlocks), block.offset};
                }
                return explainTooLarge(block, label, entry);
            default:
                return std::nullopt;
        }
    }

    [[nodiscard]] static std::optional<Fault> explainInvalid(const BlockPosition& block,
                                                             int previousId,
                                                             const std::string& label,
                                                             const RXTableEntry* entry) {
        const RXBlockHeader& header = block.header;
        if (static_cast<int>(header.id) <= previousId) {
            return Fault{"block ids do not ascend", fmt::format("an id above {}", previousId),
                         label, block.offset};
        }
        if (entry == nullptr || entry->expectation == nullptr) {
            return std::nullopt;
        }
        if (header.kind != entry->expectation->kindA && header.kind != entry->expectation->kindB) {
            return Fault{label + " has the wrong kind", kindsText(*entry->expectation),
                         kindName(header.kind), block.offset + 1};
        }
        if (isPacked(header.kind) && (header.bits == 0 || header.bits > 31)) {
            const std::uint64_t behind = header.kind == RX_KIND_PACKED_FLOAT ? 9 : 1;
            return Fault{label + " has an impossible width", "1 to 31 bits",
                         fmt::format("{}", header.bits), block.payloadOffset - behind};
        }
        if (entry->copy != nullptr) {
            return Fault{label + " has the wrong number of elements", expectedShape(header.id),
                         fmt::format("{}", header.count), block.offset};
        }
        return std::nullopt;
    }

    [[nodiscard]] static const char* expectedShape(std::uint32_t id) {
        switch (id) {
            case dateBlock:
                return "1";
            case straylightBlock:
                return "32";
            default:
                return "1 and 3 for each entry (4, 7, 10, 13 or 16)";
        }
    }

    [[nodiscard]] std::optional<Fault> explainTooLarge(const BlockPosition& block,
                                                       const std::string& label,
                                                       const RXTableEntry* entry) const {
        if (entry == nullptr) {
            return std::nullopt;
        }
        const std::uint64_t size = vantric_getRXUnpackedBlockSize(&block.header);
        const std::uint64_t workSize = pixelsOf(walk_.header) * sizeof(float);
        std::uint64_t room = entry->destinationSize;
        if (entry->copy != nullptr && size > workSize) {
            room = workSize;
        } else if (block.header.id == text1Block || block.header.id == text2Block) {
            room -= 1;
        } else if (block.header.id == maskBlock) {
            room *= sizeof(std::uint32_t);
        } else if (entry->copy != nullptr) {
            room = sizeof(float) * (1 + 3 * VANTRIC_WIGGLING_ENTRIES);
        }
        if (size <= room) {
            return std::nullopt;
        }
        return Fault{label + " is too large", fmt::format("at most {}", byteCount(room)),
                     byteCount(size), block.offset};
    }

    static constexpr std::uint32_t maskBlock = 2;
    static constexpr std::uint32_t dateBlock = 4;
    static constexpr std::uint32_t text1Block = 5;
    static constexpr std::uint32_t text2Block = 6;
    static constexpr std::uint32_t straylightBlock = 9;

    ByteView calibration_;
    std::uint32_t status_;
    std::uint32_t failedId_;
    BlockWalk walk_;
    KnownBlocks known_;
};

}  // namespace

CalibrationRead readCalibration(ByteView calibration, std::uint64_t offset,
                                bool withPsfAndDirections) {
    VantricCalibrationHandler handler = vantric_getRXCalibrationHandler();
    handler.readCalibration = noteRead;
    notedRead = false;
    vantric_clearCalibrationHandlers();
    vantric_registerCalibrationHandler(&handler);
    VantricCalibration* record = nullptr;
    CalibrationRead result;
    result.status = vantric_readCalibrationExt(calibration.data(), calibration.size(), &record,
                                               withPsfAndDirections ? 1 : 0);
    vantric_clearCalibrationHandlers();
    result.record.reset(record);
    if (notedRead && notedResult.status != VANTRIC_OK) {
        result.status = notedResult.status;
        result.failedBlockId = notedResult.failedBlockId;
    }
    if (result.status != VANTRIC_OK) {
        result.fault = FaultFinder(calibration, result.status, result.failedBlockId).find();
        result.fault->offset += offset;
    }
    return result;
}

std::optional<Fault> diagnose(ByteView file, Layout layout) {
    const Image image = parseImage(file, layout);
    if (image.fault) {
        return image.fault;
    }
    CalibrationRead read = readCalibration(image.calibration, image.calibrationOffset, true);
    if (read.fault) {
        return std::move(read.fault);
    }
    return signatureFault(image);
}

}  // namespace calcut::tools
