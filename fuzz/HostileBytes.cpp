#include "HostileBytes.h"

#include <algorithm>
#include <array>

#include "HostFormats.h"
#include "writer/writer.h"

namespace fuzz {

namespace writer = calcut::writer;

namespace {

Bytes packed(std::uint16_t columns, std::uint16_t rows, unsigned frequencies, unsigned custom) {
    writer::CalibrationOptions options;
    options.columns = columns;
    options.rows = rows;
    options.frequencies = frequencies;
    options.custom = custom;
    return packCalibration(makeCalibration(options), {});
}

constexpr std::size_t sizeOffset = 7;  // of columns and rows in the file header
constexpr std::size_t headerSize = 11;

void claimSize(Bytes& data, unsigned columns, unsigned rows) {
    const std::array<unsigned, 4> bytes = {columns >> 8, columns, rows >> 8, rows};
    std::transform(bytes.begin(), bytes.end(), data.begin() + sizeOffset,
                   [](unsigned byte) { return static_cast<std::uint8_t>(byte & 0xFFU); });
}

}  // namespace

const Bytes& goodCalibration(unsigned number) {
    static const std::array<Bytes, 6> good = {packed(2, 2, 1, 0), packed(3, 2, 2, 1),
                                              packed(8, 4, 1, 2), packed(4, 8, 2, 5),
                                              packed(9, 5, 1, 0), packed(19, 30, 1, 1)};
    return good[number % good.size()];
}

Bytes hostileBytes(Input& input) {
    const unsigned choice = input.between(0, 7);
    Bytes data = goodCalibration(input.byte());
    switch (choice) {
        case 0:
            break;
        case 1: {  // the claim of a small image, and nothing else of it
            data.resize(headerSize);
            const unsigned columns = input.byte();
            claimSize(data, columns, input.byte());
            const Bytes rest = input.bytes(input.between(0, 15));
            data.insert(data.end(), rest.begin(), rest.end());
            break;
        }
        case 2: {
            const unsigned columns = input.byte();
            claimSize(data, columns, input.byte());
            break;
        }
        case 3: {
            const std::uint32_t size = input.word();
            claimSize(data, size >> 16, size & 0xFFFFU);
            break;
        }
        case 4:
            data.resize(input.word() % data.size());
            break;
        case 5:
            for (unsigned changes = input.between(1, 4); changes != 0; --changes) {
                const std::size_t place = input.word() % data.size();
                data[place] = input.byte();
            }
            break;
        case 6:
            data = input.bytes(input.byte());
            break;
        default:
            data = input.bytes(hostDataSize);
            data[0] = input.flag() ? bareMagic : fillingMagic;
            break;
    }
    return Bytes(data.begin(), data.end());  // not a byte more room than its size
}

}  // namespace fuzz
