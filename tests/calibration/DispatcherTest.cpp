#include <gtest/gtest.h>

#include "calibration/calibration.h"
#include "calibration/dispatcher.h"
#include "fixtures.h"

using namespace fixtures;
using namespace vantric;

namespace {

// A format of one byte: 'A' plus the number of its handler.
std::uint32_t readStatus;
std::int32_t pixelCount;
std::string asked;  // numbers of the handlers, in order

template <int N>
VantricCalibrationHandler handler() {
    return {[](const std::uint8_t* data, std::size_t size) {
                asked += static_cast<char>('0' + N);
                return size == 1 && data[0] == 'A' + N ? 2 : 0;
            },
            [](const std::uint8_t*, std::size_t, VantricCalibration* record) {
                record->calibrationType = 100 + N;
                return RXReadResult{readStatus, 3};
            },
            nullptr,
            nullptr,
            []() -> std::uint32_t { return 100 + N; },
            [](const std::uint8_t*, std::size_t) { return pixelCount; }};
}

class Dispatch : public testing::Test {
  protected:
    void SetUp() override {
        vantric_clearCalibrationHandlers();
        readStatus = ok;
        pixelCount = 4;
        asked.clear();
    }
    void TearDown() override { vantric_clearCalibrationHandlers(); }

    static int add(const VantricCalibrationHandler& one) {
        return vantric_registerCalibrationHandler(&one);
    }
};

}  // namespace

TEST_F(Dispatch, KeepsFiveDistinctHandlers) {
    EXPECT_EQ(vantric_registerCalibrationHandler(nullptr), 0);
    EXPECT_EQ(add(handler<1>()), 1);
    EXPECT_EQ(add(handler<1>()), 0);
    VantricCalibrationHandler alias = handler<2>();
    alias.getCalibrationType = handler<1>().getCalibrationType;  // the identity
    EXPECT_EQ(add(alias), 0);
    EXPECT_EQ(add(handler<2>()) + add(handler<3>()) + add(handler<4>()) + add(handler<5>()), 4);
    EXPECT_EQ(add(handler<6>()), 0);
    // The table is full: the packed format finds no room any more, for good.
    const Bytes packed = minimalPacked();
    EXPECT_EQ(vantric_getCalibrationType(packed.data(), packed.size()), 0U);
    EXPECT_EQ(asked, "12345");
    VantricCalibration* out = nullptr;
    EXPECT_EQ(vantric_readCalibration(packed.data(), packed.size(), &out), notSupported);
    EXPECT_EQ(out, nullptr);
    vantric_clearCalibrationHandlers();
    EXPECT_EQ(vantric_getCalibrationType(packed.data(), packed.size()), 3U);
}

TEST_F(Dispatch, AsksInOrderOfRegistrationAndStopsAtTheFirst) {
    const std::uint8_t c = 'C';
    add(handler<1>());
    add(handler<2>());
    add(handler<3>());
    EXPECT_EQ(vantric_dispatchGetCalibrationType(&c, 1), 102U);
    EXPECT_EQ(asked, "12");
    // The library's own was added behind them.
    const VantricCalibrationHandler own = vantric_getRXCalibrationHandler();
    EXPECT_EQ(add(own), 0);
    EXPECT_EQ(add(handler<4>()), 1);
    EXPECT_EQ(add(handler<5>()), 0);
}

TEST_F(Dispatch, OwnHandlerRegisteredByHandIsNotAddedTwice) {
    EXPECT_EQ(add(vantric_getRXCalibrationHandler()), 1);
    const Bytes packed = minimalPacked();
    EXPECT_EQ(vantric_getCalibrationType(packed.data(), packed.size()), 3U);
    EXPECT_EQ(add(handler<1>()) + add(handler<2>()) + add(handler<3>()) + add(handler<4>()), 4);
    EXPECT_EQ(add(handler<5>()), 0);
}

TEST_F(Dispatch, AnswersWithoutAHandlerOrASlot) {
    const std::uint8_t data = 'Z';
    VantricCalibration* out = nullptr;
    EXPECT_EQ(vantric_dispatchGetCalibrationType(&data, 1), 0U);
    EXPECT_EQ(vantric_dispatchReadCalibration(&data, 1, nullptr), notSupported);
    EXPECT_EQ(vantric_dispatchReadCustomFields(&data, 1, nullptr), ok);
    EXPECT_EQ(vantric_dispatchCalcPsfAndDirections(&data, 1, nullptr, 1), ok);
    EXPECT_EQ(static_cast<std::uint32_t>(vantric_dispatchGetNumPixels(&data, 1)), notSupported);
    EXPECT_EQ(vantric_readCalibration(&data, 1, &out), notSupported);
    EXPECT_EQ(vantric_readCalibrationExt(nullptr, 0, &out, 1), notSupported);
    EXPECT_EQ(out, nullptr);
    const std::uint8_t b = 'B';
    add(handler<1>());
    EXPECT_EQ(vantric_dispatchReadCustomFields(&b, 1, nullptr), ok);
    EXPECT_EQ(vantric_dispatchCalcPsfAndDirections(&b, 1, nullptr, 4), ok);
}

TEST_F(Dispatch, HandsOutARecordOnSuccessAndOnPartialReads) {
    using Case = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;
    add(handler<1>());
    const std::uint8_t b = 'B';
    const std::uint32_t partial = VANTRIC_WARN_PARTIAL;
    for (const auto& [pixels, status, result] :
         {Case{4, ok, ok}, Case{4, partial, partial}, Case{4, 5, 5},
          Case{4, invalidData, invalidData}, Case{0, ok, invalidData},
          Case{fieldEmpty, ok, fieldEmpty}, Case{0xFFFE0001U, ok, 0xFFFE0001U}}) {
        const bool handedOut = result == ok || result == partial;
        for (const bool withPsf : {false, true}) {
            pixelCount = static_cast<std::int32_t>(pixels);
            readStatus = status;
            VantricCalibration* out = nullptr;
            EXPECT_EQ(withPsf ? vantric_readCalibration(&b, 1, &out)
                              : vantric_readCalibrationExt(&b, 1, &out, 0),
                      result);
            const Record record(out);
            EXPECT_EQ(out != nullptr, handedOut);
            EXPECT_EQ(vantric_getCalibrationTypeFromHandle(out), handedOut ? 101U : 0U);
        }
    }
}

TEST_F(Dispatch, PassesEachCallOn) {
    const Bytes packed = smallPacked();
    const Record plain = readPlain(packed);
    EXPECT_EQ(vantric_dispatchGetNumPixels(packed.data(), packed.size()), 32);
    EXPECT_EQ(vantric_dispatchCalcPsfAndDirections(packed.data(), packed.size(), plain.get(), 32),
              ok);
    EXPECT_NE(plain->psf, nullptr);
    EXPECT_EQ(vantric_dispatchReadCalibration(packed.data(), packed.size(), plain.get()), ok);
}

// A handler may register another one while it is asked.
TEST_F(Dispatch, HandlersMayUseTheRegistry) {
    VantricCalibrationHandler nested = handler<1>();
    nested.supports = [](const std::uint8_t*, std::size_t) {
        const VantricCalibrationHandler other = handler<2>();
        vantric_registerCalibrationHandler(&other);
        return 0;
    };
    add(nested);
    const std::uint8_t c = 'C';
    EXPECT_EQ(vantric_dispatchGetCalibrationType(&c, 1), 0U);
    EXPECT_EQ(vantric_dispatchGetCalibrationType(&c, 1), 102U);
}

// A host's handler that reads packed data through the library and notes what it is asked.
VantricCalibrationHandler recordingHandler() {
    return {[](const std::uint8_t* data, std::size_t size) {
                asked += 's';
                return vantric_supportsRXCalibration(data, size);
            },
            [](const std::uint8_t* data, std::size_t size, VantricCalibration* record) {
                asked += record->pixelValues != nullptr ? 'r' : '!';
                return vantric_readRXHandlerCalibration(data, size, record);
            },
            nullptr,
            [](VantricCalibration* record, std::uint32_t pixels) {
                asked += record->pixelValues != nullptr ? 'c' : '!';
                return vantric_calcRXPsfAndDirections(record, pixels);
            },
            []() -> std::uint32_t { return 77; },
            [](const std::uint8_t* data, std::size_t size) {
                asked += 'n';
                return vantric_getRXNumPixels(data, size);
            }};
}

TEST_F(Dispatch, ACutAsksWhatAReadAsks) {
    const Bytes packed = smallPacked();
    for (const bool host : {true, false}) {
        vantric_clearCalibrationHandlers();
        if (host) {
            add(recordingHandler());
        }
        asked.clear();
        const auto cut = readThroughHandlers(packed.data(), packed.size(), Wanted::cut, true);
        EXPECT_EQ(cut.status, ok);
        EXPECT_EQ(asked, host ? "snsrsc" : "");
        EXPECT_EQ(cut.record->pixelValues != nullptr, host);
        EXPECT_EQ(cut.record->directions != nullptr, host);
    }
}

// One that takes the data only once they are read gets the record of a whole read.
TEST_F(Dispatch, ACutHasARecordForWhoeverComesLate) {
    VantricCalibrationHandler late = recordingHandler();
    late.supports = [](const std::uint8_t* data, std::size_t size) {
        asked += 's';
        return asked == "sss" ? vantric_supportsRXCalibration(data, size) : 0;
    };
    add(late);
    const Bytes packed = smallPacked();
    const auto cut = readThroughHandlers(packed.data(), packed.size(), Wanted::cut, true);
    EXPECT_EQ(cut.status, ok);
    EXPECT_EQ(asked, "sssc");
    EXPECT_NE(cut.record->directions, nullptr);
}
