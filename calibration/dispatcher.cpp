#include "calibration/dispatcher.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include "calibration/calibration.h"
#include "calibration/packed/Handler.h"

using namespace vantric;

namespace {

using Handlers = std::array<VantricCalibrationHandler, VANTRIC_HANDLERS>;

// Guards the registry: the first two calls of a process may come from two threads at once.
std::mutex g_registryMutex;
struct {
    std::int32_t g_registeredHandlers;
    std::uint32_t g_autoRegisteredHandlers;
} g_counters = {0, 0};
Handlers g_handlers = {};

// Requires the lock. True when the handler was added.
bool append(const VantricCalibrationHandler& handler) {
    const std::int32_t count = g_counters.g_registeredHandlers;
    const VantricCalibrationHandler* const begin = g_handlers.data();
    const bool known = std::any_of(begin, begin + count, [&](const auto& registered) {
        return registered.getCalibrationType == handler.getCalibrationType;
    });
    if (known || count >= VANTRIC_HANDLERS) {
        return false;
    }
    g_handlers[static_cast<std::size_t>(count)] = handler;
    ++g_counters.g_registeredHandlers;
    return true;
}

// Copies the current handlers, the packed format included. They are called from the copy, without
// the lock, so that they may register others.
std::int32_t snapshot(Handlers& handlers) {
    const std::lock_guard<std::mutex> lock(g_registryMutex);
    if (g_counters.g_autoRegisteredHandlers == 0) {
        append(vantric_getRXCalibrationHandler());
        ++g_counters.g_autoRegisteredHandlers;
    }
    handlers = g_handlers;
    return g_counters.g_registeredHandlers;
}

// Calls use with the first handler that accepts the data, in order of registration.
template <class Result, class Use>
Result dispatch(const std::uint8_t* data, std::size_t size, Result withoutHandler, Use use) {
    Handlers handlers;
    const std::int32_t count = snapshot(handlers);
    for (std::int32_t i = 0; i < count; ++i) {
        const VantricCalibrationHandler& handler = handlers[static_cast<std::size_t>(i)];
        if (handler.supports(data, size) != 0) {
            return use(handler);
        }
    }
    return withoutHandler;
}

// Reads into a new record. The library's own reader can leave out what is not wanted; a host's
// handler fills a whole record.
std::uint32_t readInto(const VantricCalibrationHandler& handler, const std::uint8_t* data,
                       std::size_t size, Wanted wanted, HandlerRead& read) {
    const bool isOwn = isPackedHandler(handler);
    read.isWhole = wanted == Wanted::everything || !isOwn;
    TableOwner table = isOwn ? newTessalyTable() : nullptr;
    read.record.reset(allocateCalibration(read.numPixels, isOwn ? wanted : Wanted::everything));
    return isOwn ? readPackedInto(*read.record, read.numPixels, std::move(table), data, size,
                                  wanted, nullptr)
                       .status
                 : handler.readCalibration(data, size, read.record.get()).status;
}

// Computes directions and PSF, or their status alone.
std::uint32_t complete(const VantricCalibrationHandler& handler, const std::uint8_t* data,
                       std::size_t size, HandlerRead& read) {
    if (!read.isWhole && isPackedHandler(handler)) {
        return refusalOfDirectionsAndPsf(*read.record, read.numPixels).status;
    }
    if (handler.calcPsfAndDirections == nullptr) {
        return VANTRIC_OK;
    }
    if (!read.isWhole) {
        // Another handler claims the data now; rebuild the whole record for it.
        TableOwner table = newTessalyTable();
        read.record.reset(allocateCalibration(read.numPixels));
        readPackedInto(*read.record, read.numPixels, std::move(table), data, size,
                       Wanted::everything, nullptr);
    }
    return handler.calcPsfAndDirections(read.record.get(), read.numPixels);
}

}  // namespace

namespace vantric {

HandlerRead readThroughHandlers(const std::uint8_t* data, std::size_t size, Wanted wanted,
                                bool withPsfAndDirections) {
    HandlerRead read;
    const std::int32_t signedPixels = vantric_dispatchGetNumPixels(data, size);
    if (signedPixels < 1) {
        read.status =
            signedPixels != 0 ? static_cast<std::uint32_t>(signedPixels) : VANTRIC_ERR_INVALID_DATA;
        return read;
    }
    read.numPixels = static_cast<std::uint32_t>(signedPixels);
    read.status = dispatch(data, size, VANTRIC_ERR_NOT_SUPPORTED, [&](const auto& handler) {
        return readInto(handler, data, size, wanted, read);
    });
    if (read.status == VANTRIC_OK && withPsfAndDirections) {
        read.status = dispatch(data, size, VANTRIC_OK, [&](const auto& handler) {
            return complete(handler, data, size, read);
        });
    }
    if (read.status != VANTRIC_OK && read.status != VANTRIC_WARN_PARTIAL) {
        read.record.reset();
    }
    return read;
}

}  // namespace vantric

int vantric_registerCalibrationHandler(const VantricCalibrationHandler* handler) {
    if (handler == nullptr) {
        return 0;
    }
    const std::lock_guard<std::mutex> lock(g_registryMutex);
    return append(*handler) ? 1 : 0;
}

void vantric_clearCalibrationHandlers(void) {
    const std::lock_guard<std::mutex> lock(g_registryMutex);
    g_counters = {0, 0};
}

uint32_t vantric_getCalibrationType(const uint8_t* data, size_t size) {
    return vantric_dispatchGetCalibrationType(data, size);
}

uint32_t vantric_dispatchGetCalibrationType(const uint8_t* data, size_t size) {
    return dispatch(data, size, std::uint32_t{0},
                    [](const auto& handler) { return handler.getCalibrationType(); });
}

uint32_t vantric_dispatchReadCalibration(const uint8_t* data, size_t size,
                                         VantricCalibration* record) {
    return dispatch(data, size, VANTRIC_ERR_NOT_SUPPORTED, [&](const auto& handler) {
        return handler.readCalibration(data, size, record).status;
    });
}

uint32_t vantric_dispatchReadCustomFields(const uint8_t* data, size_t size,
                                          VantricCalibration* record) {
    return dispatch(data, size, VANTRIC_OK, [&](const auto& handler) {
        return handler.readCustomFields == nullptr ? VANTRIC_OK
                                                   : handler.readCustomFields(data, size, record);
    });
}

uint32_t vantric_dispatchCalcPsfAndDirections(const uint8_t* data, size_t size,
                                              VantricCalibration* record, uint32_t numPixels) {
    return dispatch(data, size, VANTRIC_OK, [&](const auto& handler) {
        return handler.calcPsfAndDirections == nullptr
                   ? VANTRIC_OK
                   : handler.calcPsfAndDirections(record, numPixels);
    });
}

int32_t vantric_dispatchGetNumPixels(const uint8_t* data, size_t size) {
    return dispatch(data, size, static_cast<std::int32_t>(VANTRIC_ERR_NOT_SUPPORTED),
                    [&](const auto& handler) { return handler.getNumPixels(data, size); });
}

uint32_t vantric_readCalibration(const uint8_t* data, size_t size, VantricCalibration** out) {
    return vantric_readCalibrationExt(data, size, out, 1);
}

uint32_t vantric_readCalibrationExt(const uint8_t* data, size_t size, VantricCalibration** out,
                                    int32_t withPsfAndDirections) {
    HandlerRead read =
        readThroughHandlers(data, size, Wanted::everything, withPsfAndDirections != 0);
    if (read.record) {
        *out = read.record.release();
    }
    return read.status;
}
