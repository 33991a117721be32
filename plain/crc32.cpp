#include "plain/plain.h"

namespace calcut::plain {

namespace {

struct Table {
    Table() {
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t remainder = i;
            for (int bit = 0; bit < 8; ++bit) {
                remainder = (remainder >> 1) ^ ((remainder & 1U) != 0 ? 0xEDB88320U : 0U);
            }
            entries[i] = remainder;
        }
    }
    std::uint32_t entries[256];
};

}  // namespace

std::uint32_t crc32(const std::uint8_t* data, std::size_t length) {
    static const Table table;
    return crc32(data, length, table.entries);
}

std::uint32_t crc32(const std::uint8_t* data, std::size_t length, const std::uint32_t* table) {
    std::uint32_t crc = 0xFFFFFFFFU;
    for (std::size_t i = 0; i < length; ++i) {
        crc = table[(crc ^ data[i]) & 0xFFU] ^ (crc >> 8);
    }
    return crc ^ 0xFFFFFFFFU;
}

}  // namespace calcut::plain
