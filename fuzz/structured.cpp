// A well-formed calibration, taken apart into its blocks, changed as the input says, and put
// together again: faults that arbitrary bytes seldom reach behind a good header.
#include <algorithm>
#include <utility>

#include "calcut/vantric_rx.h"
#include "Input.h"
#include "targets.h"
#include "writer/writer.h"

namespace fuzz {

namespace {

constexpr std::size_t largestPayload = 4096;  // changes on changes must not grow without end

// Places in a block's header.
constexpr std::size_t idPlace = 0;
constexpr std::size_t kindPlace = 1;
constexpr std::size_t countPlace = 2;
constexpr std::uint8_t longCount = 249;

struct Block {
    Bytes header, payload;
};

std::vector<Block> takeApart(const Bytes& packed) {
    std::vector<Block> blocks;
    VantricStream stream = vantric_createStreamFromData(packed.data(), packed.size());
    const auto bytesFrom = [&](std::uint64_t start) {
        return Bytes(packed.data() + start, packed.data() + stream.position);
    };
    RXHeader header = {};
    RXBlockHeader block = {};
    vantric_readRXHeader(&stream, &header);
    for (;;) {
        const std::uint64_t start = stream.position;
        require(vantric_readRXBlockHeader(&stream, &header, &block) == VANTRIC_OK,
                "what the writer makes reads");
        if (block.id == VANTRIC_RX_END_MARKER) {
            return blocks;
        }
        const std::uint64_t payload = stream.position;
        Bytes headerBytes = bytesFrom(start);
        stream.position += vantric_getRXPackedBlockSize(&block);
        blocks.push_back({std::move(headerBytes), bytesFrom(payload)});
    }
}

Bytes putTogether(const Bytes& fileHeader, const std::vector<Block>& blocks) {
    Bytes out = fileHeader;
    for (const Block& block : blocks) {
        out.insert(out.end(), block.header.begin(), block.header.end());
        out.insert(out.end(), block.payload.begin(), block.payload.end());
    }
    out.push_back(VANTRIC_RX_END_MARKER);
    out.shrink_to_fit();
    return out;
}

// Any count, or one close to 2^32.
void changeCount(Bytes& header, Input& input) {
    const std::uint32_t count = input.flag() ? input.word() : 0xFFFFFFFFU - input.byte();
    if (header[countPlace] != longCount) {
        header[countPlace] = longCount;
        header.insert(header.begin() + countPlace + 1, 4, 0);
    }
    for (std::size_t i = 0; i < 4 && countPlace + 1 + i < header.size(); ++i) {
        header[countPlace + 1 + i] = static_cast<std::uint8_t>(count >> (24 - 8 * i));
    }
}

void changeBytes(Bytes& bytes, Input& input) {
    for (unsigned changes = input.between(1, 8); changes != 0 && !bytes.empty(); --changes) {
        const std::size_t place = input.word() % bytes.size();
        bytes[place] = input.byte();
    }
}

void changeOne(std::vector<Block>& blocks, Input& input) {
    const std::size_t index = input.byte() % blocks.size();
    const auto here = blocks.begin() + static_cast<std::ptrdiff_t>(index);
    auto& [header, payload] = *here;
    switch (input.between(0, 8)) {
        case 0:
            header[idPlace] = input.byte();
            break;
        case 1:
            header[kindPlace] = static_cast<std::uint8_t>(input.between(0, 7));
            break;
        case 2:
            header[countPlace] = input.byte();
            break;
        case 3:
            changeCount(header, input);
            break;
        case 4:
            changeBytes(header, input);
            break;
        case 5:
            changeBytes(payload, input);
            break;
        case 6:
            payload.resize(std::min((payload.size() * input.byte()) >> 6, largestPayload));
            break;
        case 7:
            std::swap(*here, blocks[input.byte() % blocks.size()]);
            break;
        default: {  // twice, or not at all
            Block twin = *here;
            twin.header[idPlace] = input.byte();
            if (input.flag()) {
                blocks.insert(here + 1, std::move(twin));
            } else if (blocks.size() > 1) {
                blocks.erase(here);
            }
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

    std::vector<Block> blocks = takeApart(packed);
    for (int changes = 0; changes < 16 && !input.empty(); ++changes) {
        changeOne(blocks, input);
    }
    constexpr std::size_t fileHeaderSize = 11;
    const Bytes fileHeader(packed.begin(), packed.begin() + fileHeaderSize);
    const Bytes changed = putTogether(fileHeader, blocks);
    calibration(changed.data(), changed.size());
}

}  // namespace fuzz
