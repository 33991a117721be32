#include "cutter/CRC32.h"

#include <cstring>

#include "cutter/CRC32Kernels.h"

// A plain array that the linker may let a host replace, hence not constexpr itself.
#define CALCUT_CRC_4(i)                                                                       \
    checksum::remainderOf(i), checksum::remainderOf((i) + 1), checksum::remainderOf((i) + 2), \
        checksum::remainderOf((i) + 3)
#define CALCUT_CRC_16(i) \
    CALCUT_CRC_4(i), CALCUT_CRC_4((i) + 4), CALCUT_CRC_4((i) + 8), CALCUT_CRC_4((i) + 12)
#define CALCUT_CRC_64(i) \
    CALCUT_CRC_16(i), CALCUT_CRC_16((i) + 16), CALCUT_CRC_16((i) + 32), CALCUT_CRC_16((i) + 48)
constinit std::uint32_t crc32table[256] = {CALCUT_CRC_64(0U), CALCUT_CRC_64(64U),
                                           CALCUT_CRC_64(128U), CALCUT_CRC_64(192U)};
#undef CALCUT_CRC_4
#undef CALCUT_CRC_16
#undef CALCUT_CRC_64

namespace {

// Fewer bytes are summed up before the table is compared.
constexpr std::size_t shortInput = 32;

// From here on several stretches are worth joining them.
constexpr std::size_t longInput = 512;

// The faster ways know the standard table alone; a host may have put another in its place.
bool tableIsStandard() {
    return std::memcmp(crc32table, checksum::standardTable.data(), sizeof crc32table) == 0;
}

std::uint32_t sumOf(const std::uint8_t* data, std::size_t length) {
    constexpr std::uint32_t start = 0xFFFFFFFFU;
    if (length >= shortInput && checksum::hasInstructions() && tableIsStandard()) {
        return checksum::byInstructions(start, data, length);
    }
    if (length >= longInput && tableIsStandard()) {
        return checksum::sideBySide(start, data, length);
    }
    return checksum::byBytes(crc32table, start, data, length);
}

}  // namespace

// Hosts link against this signature. NOLINTNEXTLINE(readability-non-const-parameter)
std::uint32_t calc_crc32(unsigned char* data, unsigned long length) {
    return length == 0 ? 0 : sumOf(data, length) ^ 0xFFFFFFFFU;
}
