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

// A place in the record. One whose buffer could not be allocated has size 0.
struct Place {
    void* data;
    std::uint64_t size;
    std::uint8_t* countField = nullptr;
};

Place placeOf(void* data, std::uint64_t size, std::uint8_t* countField = nullptr) {
    return {data, data == nullptr ? 0 : size, countField};
}

// Puts entries into a new table, in its own memory.
class TableBuilder {
  public:
    TableBuilder(RXBlockTable& table, std::uint64_t numPixels, Wanted wanted)
        : table_(table),
          expectations_(reinterpret_cast<RXBlockExpectation*>(table.expectations)),
          numPixels_(numPixels),
          wanted_(wanted) {}

    [[nodiscard]] bool hasMemory() const {
        return table_.entries != nullptr && expectations_ != nullptr;
    }

    void add(std::uint32_t id, const Place& place, std::int32_t expectedCount, RXCopyFunction copy,
             Need need, Kinds kinds) {
        RXBlockExpectation* const expectation = expectations_ + table_.count;
        *expectation = {need, static_cast<std::uint32_t>(kinds.a),
                        static_cast<std::uint32_t>(kinds.b), 0, VANTRIC_OK};
        table_.entries[table_.count] = {static_cast<std::uint8_t>(id),
                                        place.data,
                                        place.size,
                                        place.countField,
                                        expectedCount,
                                        copy,
                                        expectation};
        ++table_.count;
    }

    void addPixels(std::uint32_t id, float* table, Need need) {
        const std::uint64_t size = numPixels_ * sizeof(float);
        add(id, wanted_ == Wanted::everything ? placeOf(table, size) : Place{nullptr, size},
            perPixelCount, nullptr, need, anyFloat);
    }

    // The record's count bounds the buffer, but never beyond the buffer's capacity: a failed read
    // into the same record may have left any count.
    void addCounted(std::uint32_t id, float* values, std::uint8_t& count, std::uint8_t capacity,
                    Need need, bool isWanted = true) {
        const std::uint64_t size = std::min(count, capacity) * sizeof(float);
        add(id, isWanted ? placeOf(values, size, &count) : Place{nullptr, size, &count}, capacity,
            nullptr, need, floatOnly);
    }

    void addFrequency(std::uint32_t firstId, VantricFrequencyRecord& frequency, Need need) {
        const bool isWanted = wanted_ != Wanted::cut;
        add(firstId + RX_FREQUENCY_ID, placeOf(&frequency.frequencyId, 4), anyCount, nullptr, need,
            uint32Only);
        addPixels(firstId + RX_FREQUENCY_PIXEL_TABLE, frequency.pixelTable, need);
        addCounted(firstId + RX_FREQUENCY_VALUES_A, frequency.valuesA, frequency.countA,
                   VANTRIC_FREQUENCY_VALUES, need, isWanted);
        addCounted(firstId + RX_FREQUENCY_VALUES_B, frequency.valuesB, frequency.countB,
                   VANTRIC_FREQUENCY_VALUES, need, isWanted);
        add(firstId + RX_FREQUENCY_SCALAR, placeOf(&frequency.scalar, sizeof frequency.scalar),
            anyCount, nullptr, optional, floatOnly);
        const RXCopyFunction wiggling = isWanted ? copyWiggling : checkWiggling;
        add(firstId + RX_FREQUENCY_WIGGLING_A,
            placeOf(&frequency.wigglingA, wigglingSize, &frequency.wigglingA.capacity), 4, wiggling,
            need, floatOnly);
        add(firstId + RX_FREQUENCY_WIGGLING_B,
            placeOf(&frequency.wigglingB, wigglingSize, &frequency.wigglingB.capacity), 4, wiggling,
            need, floatOnly);
    }

  private:
    RXBlockTable& table_;
    RXBlockExpectation* expectations_;
    std::uint64_t numPixels_;
    Wanted wanted_;
};

void addFixedEntries(TableBuilder& builder, VantricCalibration& record, std::uint64_t numPixels) {
    builder.add(RX_BLOCK_AUX_FLAG, placeOf(&record.auxFlag, 1), anyCount, nullptr, required,
                rawOnly);
    builder.addCounted(RX_BLOCK_LENS_PARAMETERS, record.lensParameters, record.lensParameterCount,
                       VANTRIC_LENS_PARAMETERS, required);
    builder.add(RX_BLOCK_MASK, placeOf(record.pixelMask, numPixels), perPixelCount, copyMask,
                required, packedUintOnly);
    builder.addPixels(RX_BLOCK_PIXEL_VALUES, record.pixelValues, required);
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
    TableBuilder builder(table, numPixels, wanted);
    // Without the frequencies' memory nothing could be read into the record.
    if (!builder.hasMemory() || record.frequencies == nullptr) {
        return false;
    }
    addFixedEntries(builder, record, numPixels);
    for (std::uint32_t k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        builder.addFrequency(RX_BLOCK_FIRST_FREQUENCY + k * RX_BLOCKS_PER_FREQUENCY,
                             record.frequencies[k], k == 0 ? required : optional);
    }
    return true;
}

}  // namespace vantric

using namespace vantric;

RXBlockTable* vantric_createTessalyTable(VantricCalibration* calibration, uint64_t numPixels) {
    TableOwner table = newTessalyTable();
    const bool filled = fillTessalyTable(*table, *calibration, numPixels, Wanted::everything);
    return filled ? table.release() : nullptr;
}
