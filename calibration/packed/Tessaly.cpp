#include "calibration/packed/Tessaly.h"

#include <algorithm>

#include "calibration/owners.h"
#include "calibration/packed/Completeness.h"
#include "calibration/packed/CopyHooks.h"
#include "calibration/packed/IdTable.h"

namespace vantric {

namespace {

constexpr std::uint64_t fixedEntries = 10;
constexpr std::uint64_t frequencyEntries = RX_BLOCKS_PER_FREQUENCY;
constexpr std::uint64_t tableEntries = fixedEntries + VANTRIC_FREQUENCIES * frequencyEntries;
static_assert(tableEntries == 66 && sizeof(RXBlockExpectation) == 20);

constexpr std::uint64_t textSize = VANTRIC_TEXT_BYTES - 1;
constexpr std::uint64_t wigglingSize = 40;

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

// A per-pixel table. A cut has none, but the size that decides which blocks are refused.
Place tableOf(float* data, std::uint64_t numPixels, Wanted wanted) {
    const std::uint64_t size = numPixels * sizeof(float);
    return wanted == Wanted::cut ? Place{nullptr, size} : placeOf(data, size);
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

void addFixedEntries(TableBuilder& builder, VantricCalibration& record, std::uint64_t numPixels,
                     Wanted wanted) {
    builder.add(RX_BLOCK_AUX_FLAG, placeOf(&record.auxFlag, 1), anyCount, nullptr, required,
                rawOnly);
    builder.add(
        RX_BLOCK_LENS_PARAMETERS,
        countedFloats(record.lensParameters, record.lensParameterCount, VANTRIC_LENS_PARAMETERS),
        VANTRIC_LENS_PARAMETERS, nullptr, required, floatOnly);
    builder.add(RX_BLOCK_MASK, placeOf(record.pixelMask, numPixels), perPixelCount, copyMask,
                required, packedUintOnly);
    builder.add(RX_BLOCK_PIXEL_VALUES, tableOf(record.pixelValues, numPixels, wanted),
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
                         std::uint32_t firstId, Need need, std::uint64_t numPixels, Wanted wanted) {
    builder.add(firstId + RX_FREQUENCY_ID, placeOf(&frequency.frequencyId, 4), anyCount, nullptr,
                need, uint32Only);
    builder.add(firstId + RX_FREQUENCY_PIXEL_TABLE,
                tableOf(frequency.pixelTable, numPixels, wanted), perPixelCount, nullptr, need,
                anyFloat);
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

TableOwner newTessalyTable() {
    TableOwner table(vantric_createTable(tableEntries, sizeof(RXBlockExpectation)));
    table->isFrequencyBlock = isFrequencyBlock;
    table->validateBlock = validateBlock;
    table->validateWholeCalibration = validateWholeCalibration;
    table->firstCustomBlockId = RX_BLOCK_FIRST_CUSTOM;
    return table;
}

bool fillTessalyTable(RXBlockTable& table, VantricCalibration& record, std::uint64_t numPixels,
                      Wanted wanted) {
    table.context = &record;
    if (record.frequencies == nullptr) {
        return false;  // memory ran out when the record was made; nothing could be read into it
    }
    TableBuilder builder(table);
    addFixedEntries(builder, record, numPixels, wanted);
    for (std::uint32_t k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        addFrequencyEntries(builder, record.frequencies[k],
                            RX_BLOCK_FIRST_FREQUENCY + k * RX_BLOCKS_PER_FREQUENCY,
                            k == 0 ? required : optional, numPixels, wanted);
    }
    return !builder.failed();
}

}  // namespace vantric

using namespace vantric;

RXBlockTable* vantric_createTessalyTable(VantricCalibration* calibration, uint64_t numPixels) {
    TableOwner table = newTessalyTable();
    const bool filled = fillTessalyTable(*table, *calibration, numPixels, Wanted::everything);
    return filled ? table.release() : nullptr;
}
