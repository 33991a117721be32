#include "Hosts.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

namespace fuzz {

namespace {

constexpr std::uint16_t hostType = 77;

std::uint32_t statusNumber(std::uint8_t choice) {
    constexpr std::array<std::uint32_t, 4> statuses = {VANTRIC_OK, VANTRIC_WARN_PARTIAL,
                                                       VANTRIC_ERR_INVALID_DATA, VANTRIC_OK};
    return statuses[choice % statuses.size()];
}

// --------------------------------------------------------------------------- the host's format --

// Columns and rows stand behind the magic; surplus pixels make a record larger than its image.
std::int32_t hostPixels(const std::uint8_t* data, std::size_t size) {
    if (size < hostDataSize) {
        return static_cast<std::int32_t>(VANTRIC_ERR_END_OF_DATA);
    }
    return data[1] * data[2] + (data[3] & 3);
}

void setArea(VantricCalibration& record, const std::uint8_t* data) {
    VantricImagerArea& area = record.imagerArea;
    if (area.columns != data[1] || area.rows != data[2]) {
        std::free(std::exchange(record.directions, nullptr));
    }
    area = {data[4] & 1U, data[4] & 2U, data[1], data[2]};
}

void setCustomFields(VantricCalibration& record, const std::uint8_t* data) {
    for (int k = 0; k < VANTRIC_CUSTOM_FIELDS; ++k) {
        std::free(record.customFields[k].data);
        record.customFields[k] = {nullptr, static_cast<std::uint8_t>(data[5] * k)};
    }
    record.customFieldCount = data[5] % (VANTRIC_CUSTOM_FIELDS + 1);
    record.firstCustomFieldId = data[5];
}

void setStraylight(VantricCalibration& record, const std::uint8_t* data) {
    std::free(std::exchange(record.psf, nullptr));
    record.straylightScale = (data[5] & 1U) != 0 ? std::numeric_limits<float>::quiet_NaN() : 1.0F;
    for (int i = 0; i <= VANTRIC_STRAYLIGHT_POINTS; ++i) {
        record.straylightRadius[i] = record.straylightValue[i] = static_cast<float>(i + 1);
    }
    record.straylightExponent = 2.0F;
    record.straylightOffset = static_cast<float>(data[5] & 2U);
    record.straylightCentre = 1.0F;
    record.straylightPointCount = data[5] % (VANTRIC_STRAYLIGHT_POINTS + 2);
    record.psfWidth = data[5] >> 3;
    record.psfHeight = data[4] >> 3;
}

void setPixels(VantricCalibration& record, const std::uint8_t* data) {
    const std::size_t pixels = std::size_t{data[1]} * data[2];
    if (record.pixelMask != nullptr && record.pixelValues != nullptr) {
        std::memset(record.pixelMask, data[6], pixels);
        std::fill_n(record.pixelValues, pixels, static_cast<float>(data[6]));
    }
    record.frequencyCount = data[6] % (VANTRIC_FREQUENCIES + 1);
    for (int k = 0; k < record.frequencyCount; ++k) {
        if (float* table = record.frequencies[k].pixelTable; table != nullptr) {
            std::fill_n(table, pixels, 1.0F);
        }
    }
}

RXReadResult fillRecord(const std::uint8_t* data, std::size_t size, VantricCalibration* record) {
    if (size < hostDataSize) {
        return {VANTRIC_ERR_END_OF_DATA, VANTRIC_RX_END_MARKER};
    }
    const unsigned parts = data[3] >> 2;
    if ((parts & 1U) != 0) {
        setArea(*record, data);
    }
    if ((parts & 2U) != 0) {
        record->calibrationType = hostType;
    }
    if ((parts & 4U) != 0) {
        setCustomFields(*record, data);
    }
    if ((parts & 8U) != 0) {
        setStraylight(*record, data);
    }
    if ((parts & 16U) != 0) {
        setPixels(*record, data);
    }
    record->customFieldReserved = data[6];
    return {statusNumber(data[4]), VANTRIC_RX_END_MARKER};
}

std::uint32_t fillCustomFields(const std::uint8_t* data, std::size_t size,
                               VantricCalibration* record) {
    for (int k = 0; k < std::min<int>(record->customFieldCount, VANTRIC_CUSTOM_FIELDS); ++k) {
        const VantricCustomField& field = record->customFields[k];
        if (field.data != nullptr) {
            std::memset(field.data, k, field.size);
        }
    }
    return size < hostDataSize ? VANTRIC_ERR_END_OF_DATA : statusNumber(data[6]);
}

std::uint32_t calculate(VantricCalibration* record, std::uint32_t numPixels) {
    const std::uint32_t status = (record->customFieldReserved & 4U) != 0
                                     ? vantric_calcRXPsfAndDirections(record, numPixels)
                                     : VANTRIC_OK;
    return status != VANTRIC_OK ? status : statusNumber(record->customFieldReserved >> 3);
}

template <std::uint8_t magic>
int startsWith(const std::uint8_t* data, std::size_t size) {
    return size != 0 && data[0] == magic ? 1 : 0;
}

// ------------------------------------------------------------- packed, judged by the host itself
// --

// By the size of the data: more pixels than the image has, so that the record is larger.
std::int32_t judgedPixels(const std::uint8_t* data, std::size_t size) {
    const std::int32_t pixels = vantric_getRXNumPixels(data, size);
    return pixels < 0 || pixels > 0xFFFF ? pixels
                                         : pixels + static_cast<std::int32_t>(size % 3 * 16);
}

RXReadResult readJudged(const std::uint8_t* data, std::size_t size, VantricCalibration* record) {
    const std::size_t judgement = size % 5;
    if (judgement == 0) {
        return {VANTRIC_WARN_PARTIAL, VANTRIC_RX_END_MARKER};  // without a look at the data
    }
    RXReadResult result = vantric_readRXHandlerCalibration(data, size, record);
    if (judgement == 1) {
        record->calibrationType = hostType;
    } else if (judgement == 2 || result.status != VANTRIC_OK) {
        result.status = VANTRIC_WARN_PARTIAL;
    } else if (judgement == 3) {
        result.status = VANTRIC_ERR_VALUE_UNSET;
    }
    return result;
}

// -------------------------------------------------------------------------- the host's hooks --

std::uint64_t g_scratchSize = 0;  // of the read to come: what a hook may look at

// As many bytes as both sides have, what lies behind the block in the scratch too, and zeros.
std::uint32_t copyBytes(const void* source, std::uint64_t sourceSize, void* destination,
                        std::uint64_t destinationSize, std::uint8_t* countField) {
    if (destination == nullptr) {
        return VANTRIC_ERR_BUFFER_TOO_SMALL;  // memory ran out when the record was made
    }
    require(sourceSize <= g_scratchSize, "a block lies in the scratch");
    const std::uint64_t copied = std::min(g_scratchSize, destinationSize);
    std::memset(destination, 0, destinationSize);
    std::memcpy(destination, source, copied);
    if (countField != nullptr) {
        *countField = static_cast<std::uint8_t>(copied / sizeof(float));
    }
    return VANTRIC_OK;
}

// The library's own hooks, called by a hook of the host.
std::array<RXCopyFunction, 256> g_ownHooks = {};

template <std::uint8_t id>
std::uint32_t callOwn(const void* source, std::uint64_t sourceSize, void* destination,
                      std::uint64_t destinationSize, std::uint8_t* countField) {
    return g_ownHooks[id](source, sourceSize, destination, destinationSize, countField);
}

RXCopyFunction hookAround(const RXTableEntry& entry) {
    g_ownHooks[entry.id] = entry.copy;
    switch (entry.id) {
        case RX_BLOCK_MASK:
            return callOwn<RX_BLOCK_MASK>;
        case RX_BLOCK_DATE:
            return callOwn<RX_BLOCK_DATE>;
        case RX_BLOCK_TEXT1:
            return callOwn<RX_BLOCK_TEXT1>;
        case RX_BLOCK_STRAYLIGHT:
            return callOwn<RX_BLOCK_STRAYLIGHT>;
        default:
            return entry.copy;
    }
}

// Everything but the two structures takes any bytes.
bool isPlain(std::uint8_t id) {
    const unsigned block =
        id < RX_BLOCK_FIRST_FREQUENCY
            ? 0
            : (id - unsigned{RX_BLOCK_FIRST_FREQUENCY}) % RX_BLOCKS_PER_FREQUENCY;
    return id != RX_BLOCK_STRAYLIGHT && block != RX_FREQUENCY_WIGGLING_A &&
           block != RX_FREQUENCY_WIGGLING_B;
}

struct TableRelease {
    void operator()(RXBlockTable* table) const { vantric_freeRXTable(table); }
};

}  // namespace

const VantricCalibrationHandler& hostHandler(unsigned number) {
    // getCalibrationType is a handler's identity, so there must be three of them.
    static const std::array<VantricCalibrationHandler, hostHandlers> handlers = {
        {{startsWith<fillingMagic>, fillRecord, fillCustomFields, calculate,
          []() -> std::uint32_t { return hostType; }, hostPixels},
         {startsWith<bareMagic>, fillRecord, nullptr, nullptr,
          []() -> std::uint32_t { return hostType + 1U; }, hostPixels},
         {vantric_supportsRXCalibration, readJudged, vantric_readRXCustomFields, calculate,
          []() -> std::uint32_t { return hostType + 2U; }, judgedPixels}}};
    return handlers[number % hostHandlers];
}

bool isHostData(const Bytes& data) {
    return !data.empty() && (data[0] == fillingMagic || data[0] == bareMagic);
}

std::uint64_t pixelsOf(const Bytes& data) {
    if (isHostData(data)) {
        return static_cast<std::uint64_t>(std::max(0, hostPixels(data.data(), data.size())));
    }
    RXHeader header = {};
    VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
    return vantric_readRXHeader(&stream, &header) == VANTRIC_OK
               ? std::uint64_t{header.columns} * header.rows
               : 0;
}

HostTable::HostTable(VantricCalibration& record, std::uint64_t pixels, Input& input) {
    const std::unique_ptr<RXBlockTable, TableRelease> own(
        vantric_createTessalyTable(&record, pixels));
    if (own == nullptr) {
        return;
    }
    g_scratchSize = pixels * sizeof(float);
    constexpr std::array<std::uint64_t, 4> strides = {1, 65, 5, 3};  // 3 leaves entries out
    const std::uint64_t stride = strides[input.byte() % strides.size()];
    const unsigned traits = input.byte();
    const std::uint64_t entries = input.between(1, 80);
    std::array<Change, 4> changes;
    const unsigned changed = input.between(0, 4);
    for (unsigned i = 0; i < changed; ++i) {
        changes[i] = {input.byte() % own->count, input.byte(), input.byte()};
    }
    table_ = vantric_createTable(entries, (traits & 1U) != 0 ? 0 : 20 + (traits & 6U) * 2);
    table_->context = &record;
    table_->firstCustomBlockId = (traits & 8U) != 0 ? own->firstCustomBlockId : input.byte();
    table_->isFrequencyBlock =
        (traits & 16U) != 0 ? own->isFrequencyBlock : [](auto*) { return 0; };
    table_->validateBlock =
        (traits & 32U) != 0 ? own->validateBlock : [](auto*, auto*) { return VANTRIC_OK; };
    table_->validateWholeCalibration = own->validateWholeCalibration;
    if ((traits & 64U) != 0) {
        table_->validateWholeCalibration = [](auto* table, auto*) {
            return table->count % 2 == 0 ? VANTRIC_OK : VANTRIC_WARN_PARTIAL;
        };
    }
    for (std::uint64_t i = 0; i < entries; ++i) {
        const std::uint64_t entry = i * stride % own->count;
        const auto end = changes.begin() + changed;
        const auto change = std::find_if(changes.begin(), end, [&](const Change& candidate) {
            return candidate.entry == entry;
        });
        add(own->entries[entry], change == end ? nullptr : &*change);
    }
}

void HostTable::add(const RXTableEntry& entry, const Change* change) {
    RXTableEntry added = entry;
    if (change != nullptr) {
        const bool plain = isPlain(entry.id);
        const unsigned hook = change->what & 3U;
        if (hook == 1) {
            added.copy = hookAround(entry);
        } else if (hook != 0 && plain) {
            added.copy = hook == 2 ? copyBytes : nullptr;
        }
        if ((change->what & 4U) != 0) {
            added.countField = nullptr;
        }
        if ((change->what & 8U) != 0) {
            added.expectation = nullptr;
        }
        if ((change->what & 16U) != 0) {
            added.id = change->value;
        }
        if ((change->what & 32U) != 0) {
            added.expectedCount = change->value - 4;
        }
        if ((change->what & 64U) != 0 && plain) {
            added.destinationSize /= 2;
        }
        if ((change->what & 128U) != 0 && plain && hook != 1 && placesUsed_ < places_.size()) {
            Bytes& place = places_[placesUsed_++];
            place = Bytes(1 + change->value * 2U);
            added.destination = place.data();
            added.destinationSize = place.size();
            added.countField = nullptr;
        }
    }
    // The library's own expectation, in front of whatever the host keeps behind it.
    std::array<RXBlockExpectation, 2> expectation = {};
    const bool expected = added.expectation != nullptr && table_->expectationSize != 0;
    if (expected) {
        expectation[0] = *added.expectation;
    }
    static_cast<void>(vantric_addRXTableEntry(added.id, added.destination, added.destinationSize,
                                              added.countField, added.expectedCount, added.copy,
                                              expected ? expectation.data() : nullptr, table_));
}

RXBlockTable* HostTable::release() {
    return std::exchange(table_, nullptr);
}

}  // namespace fuzz
