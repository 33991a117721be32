#include "HostFormats.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "calcut/vantric_rx.h"

namespace fuzz {

namespace {

constexpr std::uint16_t hostType = 77;
constexpr std::uint32_t noBlock = 255;

std::uint32_t statusOf(unsigned choice) {
    constexpr std::array<std::uint32_t, 4> statuses = {VANTRIC_OK, VANTRIC_WARN_PARTIAL,
                                                       VANTRIC_ERR_INVALID_DATA, VANTRIC_OK};
    return statuses[choice % statuses.size()];
}

// --------------------------------------------------------------------------- the host's format --

// What stands in the data behind the magic.
struct HostData {
    explicit HostData(const std::uint8_t* data)
        : columns(data[1]),
          rows(data[2]),
          surplus(data[3] & 3U),
          parts(data[3] >> 2U),
          choice(data[4]),
          number(data[5]),
          value(data[6]) {}

    [[nodiscard]] std::size_t pixels() const { return std::size_t{columns} * rows; }

    std::uint8_t columns, rows;
    unsigned surplus;  // pixels for which the record is made beyond its image
    unsigned parts;    // of the record that are filled, one bit each
    std::uint8_t choice, number, value;
};

enum Part : unsigned { area = 1, type = 2, customFields = 4, straylight = 8, pixels = 16 };

std::int32_t hostPixels(const std::uint8_t* data, std::size_t size) {
    if (size < hostDataSize) {
        return static_cast<std::int32_t>(VANTRIC_ERR_END_OF_DATA);
    }
    const HostData host(data);
    return static_cast<std::int32_t>(host.pixels() + host.surplus);
}

void setArea(VantricCalibration& record, const HostData& host) {
    VantricImagerArea& imager = record.imagerArea;
    if (imager.columns != host.columns || imager.rows != host.rows) {
        std::free(std::exchange(record.directions, nullptr));
    }
    imager = {host.choice & 1U, host.choice & 2U, host.columns, host.rows};
}

void setCustomFields(VantricCalibration& record, const HostData& host) {
    for (int k = 0; k < VANTRIC_CUSTOM_FIELDS; ++k) {
        std::free(record.customFields[k].data);
        record.customFields[k] = {nullptr, static_cast<std::uint8_t>(host.number * k)};
    }
    record.customFieldCount = host.number % (VANTRIC_CUSTOM_FIELDS + 1);
    record.firstCustomFieldId = host.number;
}

void setStraylight(VantricCalibration& record, const HostData& host) {
    constexpr std::array<std::uint8_t, 5> pointCounts = {0, 1, 6, 13, 14};
    std::free(std::exchange(record.psf, nullptr));
    record.straylightScale = host.number % 2 != 0 ? std::numeric_limits<float>::quiet_NaN() : 1.0F;
    for (int i = 0; i <= VANTRIC_STRAYLIGHT_POINTS; ++i) {
        record.straylightRadius[i] = record.straylightValue[i] = static_cast<float>(i + 1);
    }
    record.straylightExponent = 2.0F;
    record.straylightOffset = static_cast<float>(host.choice % 2);
    record.straylightCentre = 1.0F;
    record.straylightPointCount = pointCounts[host.number % pointCounts.size()];
    record.psfWidth = host.number >> 3;
    record.psfHeight = host.choice >> 3;
}

// Buffers are null in a record for which memory ran out.
void setPixels(VantricCalibration& record, const HostData& host) {
    const auto fill = [&](auto* buffer) {
        if (buffer != nullptr) {
            std::fill_n(buffer, host.pixels(), host.value);
        }
    };
    fill(record.pixelMask);
    fill(record.pixelValues);
    record.frequencyCount = host.value % (VANTRIC_FREQUENCIES + 1);
    for (int k = 0; record.frequencies != nullptr && k < record.frequencyCount; ++k) {
        fill(record.frequencies[k].pixelTable);
    }
}

RXReadResult fillRecord(const std::uint8_t* data, std::size_t size, VantricCalibration* record) {
    if (size < hostDataSize) {
        return {VANTRIC_ERR_END_OF_DATA, noBlock};
    }
    const HostData host(data);
    if ((host.parts & area) != 0) {
        setArea(*record, host);
    }
    if ((host.parts & type) != 0) {
        record->calibrationType = hostType;
    }
    if ((host.parts & customFields) != 0) {
        setCustomFields(*record, host);
    }
    if ((host.parts & straylight) != 0) {
        setStraylight(*record, host);
    }
    if ((host.parts & pixels) != 0) {
        setPixels(*record, host);
    }
    record->customFieldReserved = host.value;  // tells calculate what to do
    return {statusOf(host.choice), noBlock};
}

std::uint32_t fillCustomFields(const std::uint8_t* data, std::size_t size,
                               VantricCalibration* record) {
    for (int k = 0; k < std::min<int>(record->customFieldCount, VANTRIC_CUSTOM_FIELDS); ++k) {
        const VantricCustomField& field = record->customFields[k];
        if (field.data != nullptr) {
            std::memset(field.data, k, field.size);
        }
    }
    return size < hostDataSize ? VANTRIC_ERR_END_OF_DATA : statusOf(HostData(data).value);
}

std::uint32_t calculate(VantricCalibration* record, std::uint32_t numPixels) {
    const bool byTheLibrary = (record->customFieldReserved & 4U) != 0;
    const std::uint32_t status =
        byTheLibrary ? vantric_calcRXPsfAndDirections(record, numPixels) : VANTRIC_OK;
    return status != VANTRIC_OK ? status : statusOf(record->customFieldReserved >> 3U);
}

template <std::uint8_t magic>
int startsWith(const std::uint8_t* data, std::size_t size) {
    return size != 0 && data[0] == magic ? 1 : 0;
}

// ------------------------------------------------------- packed, changed by the host afterwards --

// By the size of the data: more pixels than the image has, so that the record is larger.
std::int32_t morePixels(const std::uint8_t* data, std::size_t size) {
    const std::int32_t read = vantric_getRXNumPixels(data, size);
    return read < 0 || read > 0xFFFF ? read : read + static_cast<std::int32_t>(size % 3 * 16);
}

// What is changed goes by the size of the data, too.
RXReadResult readAndChange(const std::uint8_t* data, std::size_t size, VantricCalibration* record) {
    const std::size_t change = size % 5;
    if (change == 0) {
        return {VANTRIC_WARN_PARTIAL, noBlock};  // nothing is read
    }
    RXReadResult result = vantric_readRXHandlerCalibration(data, size, record);
    if (change == 1) {
        record->calibrationType = hostType;
    } else if (change == 2 || result.status != VANTRIC_OK) {
        result.status = VANTRIC_WARN_PARTIAL;
    } else if (change == 3) {
        result.status = VANTRIC_ERR_VALUE_UNSET;
    }
    return result;
}

}  // namespace

const VantricCalibrationHandler& hostHandler(unsigned number) {
    // getCalibrationType is a handler's identity, so there must be three of them.
    static const std::array<VantricCalibrationHandler, hostHandlers> handlers = {
        {{startsWith<fillingMagic>, fillRecord, fillCustomFields, calculate,
          []() -> std::uint32_t { return hostType; }, hostPixels},
         {startsWith<bareMagic>, fillRecord, nullptr, nullptr,
          []() -> std::uint32_t { return hostType + 1U; }, hostPixels},
         {vantric_supportsRXCalibration, readAndChange, vantric_readRXCustomFields, calculate,
          []() -> std::uint32_t { return hostType + 2U; }, morePixels}}};
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

}  // namespace fuzz
