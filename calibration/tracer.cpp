#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "calcut/vantric.h"

namespace {

constexpr std::int64_t printedValues = 32;

// Results of printing are ignored: nothing can be done about a trace line that is lost.
template <class T, class PrintValue>
void printValues(const char* name, const T* values, std::int64_t count, PrintValue printValue) {
    static_cast<void>(std::fprintf(stderr, "%s: [ ", name));
    const std::int64_t shown = std::min(count, printedValues);
    for (std::int64_t i = 0; i < shown; ++i) {
        printValue(values[i]);
    }
    if (count > printedValues) {
        static_cast<void>(
            std::fprintf(stderr, "... (%" PRId64 " more values) ", count - printedValues));
    }
    static_cast<void>(std::fwrite("]\n", 1, 2, stderr));
}

}  // namespace

void vantric_printfTraceUint8s(const char* name, const uint8_t* values, int64_t count) {
    printValues(name, values, count,
                [](std::uint8_t value) { std::fprintf(stderr, "%d, ", value); });
}

void vantric_printfTraceUint32s(const char* name, const uint32_t* values, int64_t count) {
    printValues(name, values, count, [](std::uint32_t value) {
        std::fprintf(stderr, "%d, ", static_cast<std::int32_t>(value));
    });
}

void vantric_printfTraceInts(const char* name, const int32_t* values, int64_t count) {
    printValues(name, values, count,
                [](std::int32_t value) { std::fprintf(stderr, "%i, ", value); });
}

void vantric_printfTraceFloats(const char* name, const float* values, int64_t count) {
    printValues(name, values, count,
                [](float value) { std::fprintf(stderr, "%f, ", static_cast<double>(value)); });
}

void vantric_printfTrace(const char* prefix, const char* format, ...) {
    const std::size_t size = std::strlen(prefix) + std::strlen(format) + 3;
    auto* whole = static_cast<char*>(std::malloc(size));
    if (whole == nullptr) {
        std::abort();
    }
    std::snprintf(whole, size, "%s: %s", prefix, format);
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, whole, arguments);
    va_end(arguments);
    std::free(whole);
}

void vantric_printfTraceUint32Bits(const char* /*name*/, uint32_t value) {
    for (unsigned bit = 0; bit < 32; ++bit) {
        std::fprintf(stderr, "%d", static_cast<int>((value >> bit) & 1U));
    }
}
