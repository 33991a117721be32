#include "DumpFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "writer/ImageLayout.h"

namespace calcut::tools {

namespace {

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
