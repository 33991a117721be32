#include "PackedFile.h"

#include <array>
#include <utility>

#include <fmt/format.h>

#include "StatusNames.h"
#include "writer/ImageLayout.h"

namespace calcut::tools {

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
        record_.text0 = &text_;
        record_.text1 = &text_;
        record_.text2 = &text_;
        record_.idBytes = &byte_;
        record_.idBytesSize = VANTRIC_ID_BYTES;
        record_.lensParameters = &number_;
        record_.lensParameterCount = VANTRIC_LENS_PARAMETERS;
        record_.pixelMask = &byte_;
        record_.pixelValues = &number_;
        record_.frequencies = frequencies_.data();
        for (VantricFrequencyRecord& frequency : frequencies_) {
            frequency.pixelTable = &number_;
            frequency.valuesA = &number_;
            frequency.countA = VANTRIC_FREQUENCY_VALUES;
            frequency.valuesB = &number_;
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
    // The table counts a missing buffer as one of size 0, so each has something to point to.
    char text_ = 0;
    std::uint8_t byte_ = 0;
    float number_ = 0.0F;
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
        if (auto fault = explainWidth(block, label)) {
            return fault;
        }
        if (entry->copy != nullptr) {
            return Fault{label + " has the wrong number of elements", expectedShape(header.id),
                         fmt::format("{}", header.count), block.offset};
        }
        return std::nullopt;
    }

    [[nodiscard]] static std::optional<Fault> explainWidth(const BlockPosition& block,
                                                           const std::string& label) {
        const RXBlockHeader& header = block.header;
        if (!isPacked(header.kind) || (header.bits >= 1 && header.bits <= 31)) {
            return std::nullopt;
        }
        const std::uint64_t behind = header.kind == RX_KIND_PACKED_FLOAT ? 9 : 1;
        return Fault{label + " has an impossible width", "1 to 31 bits",
                     fmt::format("{}", header.bits), block.payloadOffset - behind};
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
            // Its packed words need room beside the values, too.
            return explainWidth(block, label);
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

}  // namespace calcut::tools
