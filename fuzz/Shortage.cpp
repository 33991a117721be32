// The library's calls of malloc and calloc, linked with --wrap.
#include "Shortage.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>

#include "calcut/vantric_rx.h"

namespace {

constexpr std::size_t largestAllocation = std::size_t{256} << 10;

// Without these the process ends, as documented. The last three are the slopes of a curve through
// 2, 7 and 14 nodes; the records of these targets have no other profiles.
constexpr std::array<std::size_t, 9> essentialSizes = {
    sizeof(VantricCalibration), VANTRIC_TEXT_BYTES,
    VANTRIC_ID_BYTES,           VANTRIC_CUSTOM_FIELDS * sizeof(VantricCustomField),
    sizeof(RXBlockTable),       sizeof(VantricPoly),
    2 * sizeof(float),          7 * sizeof(float),
    14 * sizeof(float)};

unsigned g_untilRefusal = 0;  // allocations up to the one to refuse; 0: none is to be refused
bool g_lasts = false;

bool refused(std::size_t size) {
    if (size > largestAllocation) {
        return true;
    }
    const bool isEssential =
        std::find(essentialSizes.begin(), essentialSizes.end(), size) != essentialSizes.end();
    if (g_untilRefusal == 0 || isEssential) {
        return false;
    }
    if (g_untilRefusal > 1) {
        --g_untilRefusal;
        return false;
    }
    g_untilRefusal = g_lasts ? 1 : 0;
    return true;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);

void* __wrap_malloc(std::size_t size) {
    return refused(size) ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    const bool tooMany = size != 0 && count > largestAllocation / size;
    return tooMany || refused(count * size) ? nullptr : __real_calloc(count, size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace fuzz {

Shortage::Shortage(unsigned first, bool lasts) {
    g_untilRefusal = first;
    g_lasts = lasts;
}

Shortage::~Shortage() {
    g_untilRefusal = 0;
}

}  // namespace fuzz
