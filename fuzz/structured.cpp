// A well-formed calibration, taken apart into its blocks, changed as the input says, and put
// together again: faults that arbitrary bytes seldom reach behind a good header.
#include <algorithm>
#include <utility>

#include "Input.h"
#include "targets.h"
#include "writer/writer.h"

namespace fuzz {

namespace {

constexpr std::size_t fileHeaderSize = 11;
constexpr std::uint8_t endMarker = 255;
constexpr std::uint8_t longCount = 249;
constexpr std::size_t largestPayload = 4096;  // changes on changes must not grow without end

struct Block {
    std::uint8_t id = 0;
    std::uint8_t kind = 0;
    std::uint8_t countCode = 0;
    std::uint32_t count = 0;  // with longCount
    std::uint8_t bits = 0;    // kinds 5 and 6
    Bytes fixedPoint;         // scale and offset, kind 6
    Bytes payload;
};

bool isPacked(const Block& block) {
    return block.kind == 5 || block.kind == 6;
}

std::size_t payloadSize(const Block& block, std::size_t pixels) {
    std::size_t count = block.countCode;
    if (block.countCode == longCount) {
        count = block.count;
    } else if (block.countCode == 0) {
        count = pixels;
    } else if (block.countCode > longCount) {
        count = pixels * (block.countCode - 248U);
    }
    if (isPacked(block)) {
        return (count * block.bits + 31) / 32 * 4;
    }
    return count * (block.kind == 0 ? 1U : (block.kind == 1 ? 2U : 4U));
}

// Only for what the writer makes, so nothing is checked.
std::vector<Block> takeApart(const Bytes& packed, std::size_t pixels) {
    std::vector<Block> blocks;
    auto next = packed.begin() + fileHeaderSize;
    const auto take = [&](std::size_t count) {
        const auto begin = next;
        next += static_cast<std::ptrdiff_t>(count);
        return Bytes(begin, next);
    };
    while (*next != endMarker) {
        Block block;
        block.id = *next++;
        block.kind = *next++;
        block.countCode = *next++;
        if (block.countCode == longCount) {
            for (const std::uint8_t byte : take(4)) {
                block.count = (block.count << 8) | byte;
            }
        }
        if (isPacked(block)) {
            block.bits = *next++;
        }
        if (block.kind == 6) {
            block.fixedPoint = take(8);
        }
        block.payload = take(payloadSize(block, pixels));
        blocks.push_back(std::move(block));
    }
    return blocks;
}

void append(Bytes& out, const Block& block) {
    out.insert(out.end(), {block.id, block.kind, block.countCode});
    if (block.countCode == longCount) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            out.push_back(static_cast<std::uint8_t>(block.count >> shift));
        }
    }
    if (isPacked(block)) {
        out.push_back(block.bits);
    }
    if (block.kind == 6) {
        Bytes fixedPoint = block.fixedPoint;
        fixedPoint.resize(8, 0x40);
        out.insert(out.end(), fixedPoint.begin(), fixedPoint.end());
    }
    out.insert(out.end(), block.payload.begin(), block.payload.end());
}

void changeCount(Block& block, Input& input) {
    switch (input.between(0, 3)) {
        case 0:
            block.countCode = input.byte();
            break;
        case 1:
            block.countCode = longCount;
            block.count = input.word();
            break;
        case 2:
            block.countCode = longCount;
            block.count = 0xFFFFFFFFU - input.byte();
            break;
        default:
            block.countCode = longCount;
            block.count = input.byte();
            break;
    }
}

void changePayload(Block& block, Input& input) {
    if (input.flag()) {
        block.payload.resize(std::min((block.payload.size() * input.byte()) >> 6, largestPayload));
    } else if (!block.payload.empty()) {
        const std::size_t first = input.word() % block.payload.size();
        const std::size_t count =
            std::min<std::size_t>(input.between(1, 8), block.payload.size() - first);
        const Bytes bytes = input.bytes(count);
        std::copy(bytes.begin(), bytes.end(),
                  block.payload.begin() + static_cast<std::ptrdiff_t>(first));
    }
}

void changeOne(std::vector<Block>& blocks, Input& input) {
    const std::size_t index = input.byte() % blocks.size();
    Block& block = blocks[index];
    switch (input.between(0, 8)) {
        case 0:
            block.id = input.byte();
            break;
        case 1:
            block.kind = static_cast<std::uint8_t>(input.between(0, 7));
            break;
        case 2:
            changeCount(block, input);
            break;
        case 3:
            block.bits = static_cast<std::uint8_t>(input.between(0, 40));
            break;
        case 4:
            block.fixedPoint = input.bytes(8);
            break;
        case 5:
            changePayload(block, input);
            break;
        case 6:
            std::swap(block, blocks[input.byte() % blocks.size()]);
            break;
        case 7:
            if (blocks.size() > 1) {
                blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(index));
            }
            break;
        default: {
            Block twin = block;
            twin.id = input.byte();
            blocks.insert(blocks.begin() + static_cast<std::ptrdiff_t>(index) + 1, std::move(twin));
            break;
        }
    }
}

}  // namespace

void structured(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    calcut::writer::CalibrationOptions options;
    options.columns = static_cast<std::uint16_t>(input.between(2, 12));
    options.rows = static_cast<std::uint16_t>(input.between(2, 6));
    options.frequencies = input.between(1, 8);
    options.straylight = input.flag();
    options.custom = input.between(0, 5);
    options.seed = input.byte();
    calcut::writer::PackOptions pack;
    pack.valueBits = input.between(0, 31);
    pack.maskBits = input.between(1, 31);
    pack.form = input.flag() ? calcut::writer::CountForm::Long : calcut::writer::CountForm::Short;
    const Bytes packed = packCalibration(makeCalibration(options), pack);

    std::vector<Block> blocks = takeApart(packed, std::size_t{options.columns} * options.rows);
    require(!blocks.empty(), "a calibration has blocks");
    for (int changes = 0; changes < 16 && !input.empty(); ++changes) {
        changeOne(blocks, input);
    }
    Bytes changed(packed.begin(), packed.begin() + fileHeaderSize);
    for (const Block& block : blocks) {
        append(changed, block);
    }
    changed.push_back(endMarker);
    changed.shrink_to_fit();
    calibration(changed.data(), changed.size());
}

}  // namespace fuzz
