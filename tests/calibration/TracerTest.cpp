#include <gtest/gtest.h>

#include <functional>
#include <numeric>

#include "calcut/vantric.h"

namespace {

std::string printed(const std::function<void()>& print) {
    testing::internal::CaptureStderr();
    print();
    return testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(Trace, PrintsArraysUpTo32Values) {
    std::vector<std::int32_t> values(40);
    std::iota(values.begin(), values.end(), -1);
    std::string list;
    for (std::int64_t count = -1; count <= 40; ++count) {
        if (count >= 1 && count <= 32) {
            list += std::to_string(count - 2) + ", ";
        }
        const std::string more =
            count > 32 ? "... (" + std::to_string(count - 32) + " more values) " : "";
        EXPECT_EQ(printed([&] { vantric_printfTraceInts("n", values.data(), count); }),
                  "n: [ " + list + more + "]\n");
    }
}

TEST(Trace, PrintsEachTypeMessagesAndBits) {
    const std::uint8_t bytes[] = {0, 255};
    const std::uint32_t words[] = {1, 0xFFFFFFFFU};
    const float floats[] = {0.5F, -1.0F};
    const std::string zeros(31, '0');
    EXPECT_EQ(printed([&] {
                  vantric_printfTraceUint8s("b", bytes, 2);
                  vantric_printfTraceUint32s("w", words, 2);
                  vantric_printfTraceFloats("f", floats, 2);
                  vantric_printfTraceUint8s("none", nullptr, 0);
                  vantric_printfTrace("where", "%d of %s\n", 3, "four");
                  vantric_printfTraceUint32Bits("x", 1);
                  vantric_printfTraceUint32Bits("x", 0x80000000U);
              }),
              "b: [ 0, 255, ]\nw: [ 1, -1, ]\nf: [ 0.500000, -1.000000, ]\nnone: [ ]\n"
              "where: 3 of four\n1" +
                  zeros + zeros + "1");
}
