// Arbitrary bytes as an EEPROM image: through the reader classes and through a whole cut.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "calcut/cutter.h"
#include "cutter/CRC32.h"
#include "cutter/EEPROMKorvelineReader.h"
#include "cutter/EEPROMv7Reader.h"
#include "Scratch.h"
#include "targets.h"

namespace fuzz {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t v7HeaderSize = 67;
constexpr std::size_t korvelineHeaderSize = 104;
constexpr std::size_t signatureAreaSize = 128;

Bytes contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

void put32(Bytes& image, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        image[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

std::uint32_t get32(const Bytes& image, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = (value << 8) | image[offset + i];
    }
    return value;
}

void repairV7(Bytes& image) {
    if (image.size() < v7HeaderSize) {
        return;
    }
    std::memcpy(image.data(), "QOVRIN\x07\x00", 8);
    const std::size_t present =
        std::min<std::size_t>(get32(image, 12), image.size() - v7HeaderSize);
    put32(image, 8, calc_crc32(image.data() + v7HeaderSize, present));
}

void repairKorveline(Bytes& image) {
    if (image.size() < korvelineHeaderSize) {
        return;
    }
    std::memcpy(image.data(), "KORVELINE", 9);
    std::memcpy(image.data() + 13, "\x47\x01\x00", 3);
    const std::uint64_t begin = std::uint64_t{get32(image, 52)} - 0x2000;
    const std::size_t length = image[56] | (std::size_t{image[57]} << 8);
    if (begin <= image.size() && length <= image.size() - begin) {
        put32(image, 58, calc_crc32(image.data() + begin, length));
    }
}

// The first block, or an id of 0 for a refused image.
template <class Reader>
DataBlock firstBlock(const std::string& path) {
    Reader reader;
    reader.loadFile(path);
    const auto next = [&] {
        try {
            return reader.getNextDataBlock();
        } catch (bool refused) {
            require(!refused, "a refusal is the value false");
            return DataBlock{};
        }
    };
    DataBlock first = next();
    next();
    next();
    reader.resetIterator();
    const DataBlock again = next();
    require(again.id == first.id && again.data == first.data, "a reset leads to the first block");
    reader.releaseMemory();
    require(next().id == 0, "without a dump there is no block");
    return first;
}

void cutLike(const DataBlock& block, int layout, const Scratch& scratch) {
    EEPROMMetaInformation meta;
    EEPROMMetaInformation untouched;
    std::memset(&meta, 0xA5, sizeof meta);
    std::memset(&untouched, 0xA5, sizeof untouched);
    const int result =
        cutEEPROMContent(layout, scratch.dump().c_str(), scratch.out().c_str(), &meta);
    const bool metaTouched = std::memcmp(&meta, &untouched, sizeof meta) != 0;
    const bool isSigned = block.id == 37;
    if (block.id == 0) {
        require(result == 1 && !metaTouched && fs::is_empty(scratch.out()),
                "a refused image leaves nothing behind");
        return;
    }
    if (isSigned && block.data.size() < signatureAreaSize) {
        require(result == 1 && fs::is_empty(scratch.out()), "there is no room for the signature");
        return;
    }
    require(metaTouched, "an accepted image fills the meta information");
    const std::size_t calibrationSize = block.data.size() - (isSigned ? signatureAreaSize : 0);
    const Bytes calibration = contentOf(scratch.out() + "/qov.spc");
    require(calibration.size() == calibrationSize &&
                std::equal(calibration.begin(), calibration.end(), block.data.begin()),
            "the calibration file is the block's payload");
    float lens[CALCUT_LENS_PARAMETER_COUNT];
    const int lensResult = readLensParameters(static_cast<unsigned>(layout),
                                              (scratch.out() + "/lensdata.dat").c_str(), lens);
    if (result == 0) {
        require(lensResult == 0, "the lens file reads back");
        if (isSigned) {
            const Bytes signature = contentOf(scratch.out() + "/signature.bin");
            const std::size_t length = block.data[calibrationSize];
            require(signature.size() == length && length <= 127 && length != 0 &&
                        std::equal(
                            signature.begin(), signature.end(),
                            block.data.begin() + static_cast<std::ptrdiff_t>(calibrationSize) + 1),
                    "the signature file is the signature");
        }
    }
}

}  // namespace

void images(const std::uint8_t* data, std::size_t size) {
    const Scratch& scratch = Scratch::ofThisProcess();
    if (size < 2) {
        return;  // an empty dump ends the process, as documented
    }
    const bool korveline = (data[0] & 1U) != 0;
    const bool repair = (data[0] & 2U) != 0;
    Bytes image(data + 1, data + size);
    if (repair && korveline) {
        repairKorveline(image);
    } else if (repair) {
        repairV7(image);
    }
    scratch.clear();
    scratch.putDump(image);
    if (korveline) {
        cutLike(firstBlock<EEPROMKorvelineReader>(scratch.dump()), CALCUT_LAYOUT_KORVELINE,
                scratch);
    } else {
        cutLike(firstBlock<EEPROMv7Reader>(scratch.dump()), CALCUT_LAYOUT_V7, scratch);
    }
    // Any file is a lens parameter file to somebody.
    float lens[CALCUT_LENS_PARAMETER_COUNT] = {};
    const bool serves = image.size() >= 36 && image.size() % 4 == 0;
    require(readLensParameters(0, scratch.dump().c_str(), lens) == (serves ? 0 : 1),
            "only the size of a lens file decides");
}

}  // namespace fuzz
