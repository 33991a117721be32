#include "calibration/packed/Tessaly.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>

#include "calibration/memory.h"
#include "calibration/packed/IdTable.h"

namespace vantric {

namespace {

constexpr std::uint32_t frequencyBlocks = VANTRIC_FREQUENCIES * RX_BLOCKS_PER_FREQUENCY;
constexpr std::uint64_t fixedEntries = 10;
constexpr std::uint64_t tableEntries = fixedEntries + frequencyBlocks;
static_assert(tableEntries == 66 && sizeof(RXBlockExpectation) == 20);

constexpr std::uint64_t textSize = VANTRIC_TEXT_BYTES - 1;
constexpr std::uint64_t shortestDateTarget = 26;
constexpr std::size_t longestDateSuffix = 14;  // " (4294967295)" and the terminator
constexpr std::uint64_t wigglingSize = 40;

// The run of the record that a straylight block fills.
constexpr std::size_t straylightBegin = offsetof(VantricCalibration, straylightScale);
constexpr std::size_t straylightPsfWidth = offsetof(VantricCalibration, psfWidth) - straylightBegin;
constexpr std::size_t straylightPsfHeight =
    offsetof(VantricCalibration, psfHeight) - straylightBegin;
constexpr std::size_t straylightPoints =
    offsetof(VantricCalibration, straylightPointCount) - straylightBegin;
constexpr std::uint64_t straylightSize = 140;
static_assert(offsetof(VantricCalibration, psf) - straylightBegin == straylightSize);

// Words of a straylight block.
enum StraylightWord : std::size_t {
    straylightScaleWord = 0,
    straylightRadiusWord = 1,
    straylightValueWord = straylightRadiusWord + VANTRIC_STRAYLIGHT_POINTS,
    straylightExponentWord = straylightValueWord + VANTRIC_STRAYLIGHT_POINTS,
    straylightOffsetWord,
    straylightCentreWord,
    straylightWidthWord,
    straylightHeightWord,
    straylightWords
};
static_assert(straylightWords == 32);

std::uint32_t wordAt(const void* source, std::uint64_t index) {
    std::uint32_t word;
    std::memcpy(&word, static_cast<const std::uint8_t*>(source) + index * sizeof word, sizeof word);
    return word;
}

float floatAt(const void* source, std::uint64_t index) {
    float value;
    std::memcpy(&value, static_cast<const std::uint8_t*>(source) + index * sizeof value,
                sizeof value);
    return value;
}

// Truncation as the target's own instruction does it: NaN and negatives give 0, too large values
// the largest number.
std::uint32_t truncateSaturating(float value) {
    if (!(value > 0.0F)) {
        return 0;
    }
    return value >= 4294967296.0F ? std::numeric_limits<std::uint32_t>::max()
                                  : static_cast<std::uint32_t>(value);
}

bool isFrequencyId(std::uint32_t id) {
    return id >= RX_BLOCK_FIRST_FREQUENCY && id < RX_BLOCK_FIRST_FREQUENCY + frequencyBlocks &&
           (id - RX_BLOCK_FIRST_FREQUENCY) % RX_BLOCKS_PER_FREQUENCY == RX_FREQUENCY_ID;
}

// Which blocks of which frequency are still owed.
class PendingBlocks {
  public:
    /// Notes a block that was found; false when its frequency block was not.
    bool note(std::uint32_t id) {
        if (id < RX_BLOCK_FIRST_FREQUENCY || id >= RX_BLOCK_FIRST_FREQUENCY + frequencyBlocks) {
            return true;
        }
        const std::uint32_t index = id - RX_BLOCK_FIRST_FREQUENCY;
        const std::uint32_t row = index - index % RX_BLOCKS_PER_FREQUENCY;
        if (index == row) {
            for (std::uint32_t block = 0; block < RX_BLOCKS_PER_FREQUENCY; ++block) {
                pending_[row + block] = block != RX_FREQUENCY_SCALAR;
            }
            return true;
        }
        const bool frequencyKnown = pending_[row];
        pending_[index] = false;
        return frequencyKnown;
    }

    /// The last block id still owed, or 0.
    [[nodiscard]] std::uint32_t lastMissing() const {
        std::uint32_t missing = 0;
        for (std::uint32_t index = 0; index < frequencyBlocks; ++index) {
            if (pending_[index] && index % RX_BLOCKS_PER_FREQUENCY != RX_FREQUENCY_ID) {
                missing = RX_BLOCK_FIRST_FREQUENCY + index;
            }
        }
        return missing;
    }

  private:
    std::array<bool, frequencyBlocks> pending_{};
};

std::uint32_t statusOfFound(const RXTableEntry& entry, const VantricCalibration& record) {
    const RXBlockExpectation& expectation = *entry.expectation;
    if (expectation.status != VANTRIC_OK || expectation.required != 0) {
        return expectation.status;
    }
    const bool unset =
        (entry.id == RX_BLOCK_ID_CODES && vantric_validUnit16Field(record.idCode0) == 0) ||
        (entry.id == RX_BLOCK_STRAYLIGHT && vantric_validFloatField(record.straylightScale) == 0);
    return unset ? VANTRIC_ERR_VALUE_UNSET : VANTRIC_OK;
}

std::uint32_t validateEntry(const RXTableEntry& entry, const VantricCalibration& record,
                            PendingBlocks& pending) {
    const RXBlockExpectation* expectation = entry.expectation;
    if (expectation == nullptr) {
        return VANTRIC_OK;
    }
    if (expectation->seen == 0) {
        if (expectation->required == 0) {
            return VANTRIC_OK;
        }
        return expectation->status != VANTRIC_OK ? expectation->status : VANTRIC_ERR_FIELD_EMPTY;
    }
    const std::uint32_t status = statusOfFound(entry, record);
    return pending.note(entry.id) ? status : VANTRIC_ERR_FIELD_EMPTY;
}

}  // namespace

int isFrequencyBlock(const RXBlockHeader* block) {
    return isFrequencyId(block->id) ? 1 : 0;
}

std::uint32_t validateBlock(const RXBlockHeader* block, RXBlockExpectation* expectation) {
    if (expectation == nullptr) {
        return VANTRIC_OK;
    }
    ++expectation->seen;
    if (block->kind != expectation->kindA && block->kind != expectation->kindB) {
        expectation->status = VANTRIC_ERR_INVALID_DATA;
    }
    return expectation->status;
}

std::uint32_t validateWholeCalibration(const RXBlockTable* table, RXReadResult* result) {
    PendingBlocks pending;
    std::uint32_t status = VANTRIC_OK;
    std::uint32_t id = 0;
    for (std::uint64_t i = 0; i < table->count && status == VANTRIC_OK; ++i) {
        id = table->entries[i].id;
        status = validateEntry(table->entries[i], *table->context, pending);
    }
    // Only a walk that ended well: a missing required block is reported with its own id.
    if (status == VANTRIC_OK && pending.lastMissing() != 0) {
        status = VANTRIC_ERR_FIELD_EMPTY;
        id = pending.lastMissing();
    }
    if (result != nullptr && status != VANTRIC_OK) {
        *result = {status, id};
    }
    return status;
}

std::uint32_t copyMask(const void* source, std::uint64_t sourceSize, void* destination,
                       std::uint64_t destinationSize, std::uint8_t* /*countField*/) {
    const std::uint64_t words = sourceSize / sizeof(std::uint32_t);
    if (destinationSize < words) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    auto* mask = static_cast<std::uint8_t*>(destination);
    for (std::uint64_t i = 0; i < destinationSize; ++i) {
        mask[i] = static_cast<std::uint8_t>(wordAt(source, i));
    }
    return VANTRIC_OK;
}

std::uint32_t convertAndCopyDate(const void* source, std::uint64_t sourceSize, void* destination,
                                 std::uint64_t destinationSize, std::uint8_t* /*countField*/) {
    if (sourceSize != sizeof(std::uint32_t)) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    if (destinationSize < shortestDateTarget) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    auto* text = static_cast<char*>(destination);
    text[destinationSize - 1] = '\0';
    const std::size_t length = std::strlen(text);
    if (length + longestDateSuffix >= destinationSize) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    std::snprintf(text + length, destinationSize - length, " (%" PRIu32 ")", wordAt(source, 0));
    return VANTRIC_OK;
}

std::uint32_t copyString(const void* source, std::uint64_t sourceSize, void* destination,
                         std::uint64_t destinationSize, std::uint8_t* /*countField*/) {
    if (sourceSize >= destinationSize) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    auto* text = static_cast<char*>(destination);
    copyElements(text, static_cast<const char*>(source), sourceSize);
    text[sourceSize] = '\0';
    return VANTRIC_OK;
}

std::uint32_t copyStraylight(const void* source, std::uint64_t sourceSize, void* destination,
                             std::uint64_t destinationSize, std::uint8_t* countField) {
    if (sourceSize / sizeof(std::uint32_t) != straylightWords ||
        destinationSize != straylightSize) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    auto* run = static_cast<std::uint8_t*>(destination);
    const auto* words = static_cast<const std::uint8_t*>(source);
    const auto copyFloats = [&](std::size_t recordOffset, std::size_t firstWord,
                                std::size_t count) {
        std::memcpy(run + (recordOffset - straylightBegin), words + firstWord * sizeof(float),
                    count * sizeof(float));
    };
    const auto storePsfSize = [&](std::size_t runOffset, std::size_t word) {
        const std::uint32_t size = truncateSaturating(floatAt(source, word));
        std::memcpy(run + runOffset, &size, sizeof size);
    };
    copyFloats(offsetof(VantricCalibration, straylightScale), straylightScaleWord, 1);
    copyFloats(offsetof(VantricCalibration, straylightRadius), straylightRadiusWord,
               VANTRIC_STRAYLIGHT_POINTS);
    copyFloats(offsetof(VantricCalibration, straylightValue), straylightValueWord,
               VANTRIC_STRAYLIGHT_POINTS);
    copyFloats(offsetof(VantricCalibration, straylightExponent), straylightExponentWord, 1);
    copyFloats(offsetof(VantricCalibration, straylightOffset), straylightOffsetWord, 1);
    copyFloats(offsetof(VantricCalibration, straylightCentre), straylightCentreWord, 1);
    storePsfSize(straylightPsfWidth, straylightWidthWord);
    storePsfSize(straylightPsfHeight, straylightHeightWord);
    run[straylightPoints] = VANTRIC_STRAYLIGHT_POINTS;
    if (countField != nullptr) {
        *countField = VANTRIC_STRAYLIGHT_POINTS;
    }
    return VANTRIC_OK;
}

// Words of a wiggling block: header, then n of third, n of first, n of second.
std::uint32_t copyWiggling(const void* source, std::uint64_t sourceSize, void* destination,
                           std::uint64_t /*destinationSize*/, std::uint8_t* countField) {
    const std::uint64_t words = sourceSize / sizeof(std::uint32_t);
    if (words < 2 || (words - 1) % 3 != 0) {
        return VANTRIC_ERR_INVALID_DATA;
    }
    const auto n = static_cast<std::uint8_t>((words - 1) / 3);
    auto* table = static_cast<VantricWigglingTable*>(destination);
    if (table == nullptr || table->first == nullptr || table->second == nullptr ||
        table->third == nullptr || n > std::min<int>(table->capacity, VANTRIC_WIGGLING_ENTRIES)) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;
    }
    table->header = wordAt(source, 0);
    for (std::uint8_t i = 0; i < n; ++i) {
        table->third[i] = floatAt(source, 1U + i);
        table->first[i] = floatAt(source, 1U + n + i);
        table->second[i] = truncateSaturating(floatAt(source, 1U + 2U * n + i));
    }
    if (countField != nullptr) {
        *countField = n;
    }
    return VANTRIC_OK;
}

namespace {

enum Need : std::uint32_t { optional = 0, required = 1 };

struct Kinds {
    RXKind a, b;
};
constexpr Kinds rawOnly = {RX_KIND_RAW, RX_KIND_RAW};
constexpr Kinds uint16Only = {RX_KIND_UINT16, RX_KIND_UINT16};
constexpr Kinds uint32Only = {RX_KIND_UINT32, RX_KIND_UINT32};
constexpr Kinds floatOnly = {RX_KIND_FLOAT, RX_KIND_FLOAT};
constexpr Kinds packedUintOnly = {RX_KIND_PACKED_UINT, RX_KIND_PACKED_UINT};
constexpr Kinds anyFloat = {RX_KIND_FLOAT, RX_KIND_PACKED_FLOAT};

// A place in the record; one whose buffer could not be allocated has size 0.
struct Place {
    void* data;
    std::uint64_t size;
    std::uint8_t* countField = nullptr;
};

Place placeOf(void* data, std::uint64_t size, std::uint8_t* countField = nullptr) {
    return {data, data == nullptr ? 0 : size, countField};
}

// Counts in the record bound their buffers, but never beyond the buffers' capacity: a failed read
// into the same record may have left any count.
Place countedFloats(float* data, std::uint8_t& count, std::uint8_t capacity) {
    return placeOf(data, std::min(count, capacity) * sizeof(float), &count);
}

class TableBuilder {
  public:
    explicit TableBuilder(RXBlockTable& table) : table_(table) {}

    void add(std::uint32_t id, const Place& place, std::int32_t expectedCount, RXCopyFunction copy,
             Need need, Kinds kinds) {
        const RXBlockExpectation expectation = {need, static_cast<std::uint32_t>(kinds.a),
                                                static_cast<std::uint32_t>(kinds.b), 0, VANTRIC_OK};
        const std::uint32_t status =
            vantric_addRXTableEntry(static_cast<std::uint8_t>(id), place.data, place.size,
                                    place.countField, expectedCount, copy, &expectation, &table_);
        failed_ = failed_ || status != VANTRIC_OK;
    }

    [[nodiscard]] bool failed() const { return failed_; }

  private:
    RXBlockTable& table_;
    bool failed_ = false;
};

void addFixedEntries(TableBuilder& builder, VantricCalibration& record, std::uint64_t numPixels) {
    builder.add(RX_BLOCK_AUX_FLAG, placeOf(&record.auxFlag, 1), anyCount, nullptr, required,
                rawOnly);
    builder.add(
        RX_BLOCK_LENS_PARAMETERS,
        countedFloats(record.lensParameters, record.lensParameterCount, VANTRIC_LENS_PARAMETERS),
        VANTRIC_LENS_PARAMETERS, nullptr, required, floatOnly);
    builder.add(RX_BLOCK_MASK, placeOf(record.pixelMask, numPixels), perPixelCount, copyMask,
                required, packedUintOnly);
    builder.add(RX_BLOCK_PIXEL_VALUES, placeOf(record.pixelValues, numPixels * sizeof(float)),
                perPixelCount, nullptr, required, anyFloat);
    builder.add(RX_BLOCK_DATE, placeOf(record.text0, textSize), anyCount, convertAndCopyDate,
                optional, uint32Only);
    builder.add(RX_BLOCK_TEXT2, placeOf(record.text2, textSize), anyCount, copyString, optional,
                rawOnly);
    builder.add(RX_BLOCK_TEXT1, placeOf(record.text1, textSize), anyCount, copyString, optional,
                rawOnly);
    builder.add(
        RX_BLOCK_ID_BYTES,
        placeOf(record.idBytes, std::min<std::uint64_t>(record.idBytesSize, VANTRIC_ID_BYTES),
                &record.idBytesSize),
        anyCount, nullptr, optional, rawOnly);
    builder.add(RX_BLOCK_ID_CODES, placeOf(&record.idCode0, 2 * sizeof record.idCode0), 2, nullptr,
                optional, uint16Only);
    builder.add(RX_BLOCK_STRAYLIGHT,
                placeOf(&record.straylightScale, straylightSize, &record.straylightPointCount),
                straylightWords, copyStraylight, optional, floatOnly);
}

void addFrequencyEntries(TableBuilder& builder, VantricFrequencyRecord& frequency,
                         std::uint32_t firstId, Need need, std::uint64_t numPixels) {
    builder.add(firstId + RX_FREQUENCY_ID, placeOf(&frequency.frequencyId, 4), anyCount, nullptr,
                need, uint32Only);
    builder.add(firstId + RX_FREQUENCY_PIXEL_TABLE,
                placeOf(frequency.pixelTable, numPixels * sizeof(float)), perPixelCount, nullptr,
                need, anyFloat);
    builder.add(firstId + RX_FREQUENCY_VALUES_A,
                countedFloats(frequency.valuesA, frequency.countA, VANTRIC_FREQUENCY_VALUES),
                VANTRIC_FREQUENCY_VALUES, nullptr, need, floatOnly);
    builder.add(firstId + RX_FREQUENCY_VALUES_B,
                countedFloats(frequency.valuesB, frequency.countB, VANTRIC_FREQUENCY_VALUES),
                VANTRIC_FREQUENCY_VALUES, nullptr, need, floatOnly);
    builder.add(firstId + RX_FREQUENCY_SCALAR, placeOf(&frequency.scalar, sizeof frequency.scalar),
                anyCount, nullptr, optional, floatOnly);
    builder.add(firstId + RX_FREQUENCY_WIGGLING_A,
                placeOf(&frequency.wigglingA, wigglingSize, &frequency.wigglingA.capacity), 4,
                copyWiggling, need, floatOnly);
    builder.add(firstId + RX_FREQUENCY_WIGGLING_B,
                placeOf(&frequency.wigglingB, wigglingSize, &frequency.wigglingB.capacity), 4,
                copyWiggling, need, floatOnly);
}

}  // namespace

}  // namespace vantric

using namespace vantric;

RXBlockTable* vantric_createTessalyTable(VantricCalibration* calibration, uint64_t numPixels) {
    if (calibration->frequencies == nullptr) {
        return nullptr;  // memory ran out when the record was made; nothing could be read into it
    }
    RXBlockTable* table = vantric_createTable(tableEntries, sizeof(RXBlockExpectation));
    table->isFrequencyBlock = isFrequencyBlock;
    table->validateBlock = validateBlock;
    table->validateWholeCalibration = validateWholeCalibration;
    table->context = calibration;
    table->firstCustomBlockId = RX_BLOCK_FIRST_CUSTOM;

    TableBuilder builder(*table);
    addFixedEntries(builder, *calibration, numPixels);
    for (std::uint32_t k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        addFrequencyEntries(builder, calibration->frequencies[k],
                            RX_BLOCK_FIRST_FREQUENCY + k * RX_BLOCKS_PER_FREQUENCY,
                            k == 0 ? required : optional, numPixels);
    }
    if (builder.failed()) {
        vantric_freeRXTable(table);
        return nullptr;
    }
    return table;
}
