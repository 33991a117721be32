#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "calibration/calibration.h"
#include "plain/plain.h"

namespace calcut::plain {

namespace {

struct Release {
    void operator()(void* memory) const { std::free(memory); }
    void operator()(RXBlockTable* table) const { vantric_freeRXTable(table); }
    void operator()(VantricCalibration* record) const { vantric_freeCalibration(record); }
};
template <class T>
using Owned = std::unique_ptr<T, Release>;

constexpr std::size_t v7HeaderSize = 67;
constexpr std::size_t lensBytes = 36;
constexpr std::size_t sensorPixels = std::size_t{224} * 172;

std::uint32_t littleEndian32(const std::uint8_t* p) {
    return p[0] | static_cast<std::uint32_t>(p[1]) << 8 | static_cast<std::uint32_t>(p[2]) << 16 |
           static_cast<std::uint32_t>(p[3]) << 24;
}

std::uint32_t readBlocks(VantricStream& stream, VantricCalibration& record,
                         std::uint64_t numPixels) {
    RXHeader header = {};
    std::uint32_t status = vantric_readRXHeader(&stream, &header);
    const std::uint64_t scratchSize = numPixels * 12;
    const Owned<std::uint8_t> scratch(static_cast<std::uint8_t*>(std::calloc(scratchSize, 1)));
    const Owned<RXBlockTable> table(vantric_createTessalyTable(&record, numPixels));
    record.imagerArea = {0, 0, header.columns, header.rows};
    record.calibrationType = 3;
    record.customFieldCount = 0;
    record.frequencyCount = 0;
    record.firstCustomFieldId = table->firstCustomBlockId;
    RXBlockHeader block = {};
    while (status == VANTRIC_OK) {
        status = vantric_readRXBlockHeader(&stream, &header, &block);
        if (status != VANTRIC_OK || block.id == VANTRIC_RX_END_MARKER) {
            break;
        }
        const auto* entry =
            vantric_findRXTableEntry(static_cast<std::uint8_t>(block.id), table.get());
        if (entry == nullptr) {
            const std::uint64_t size = vantric_getRXPackedBlockSize(&block);
            record.customFields[record.customFieldCount].size = static_cast<std::uint8_t>(size);
            ++record.customFieldCount;
            stream.position += size;
            continue;
        }
        status = table->validateBlock(&block, entry->expectation);
        if (table->isFrequencyBlock(&block) != 0) {
            ++record.frequencyCount;
        }
        if (status != VANTRIC_OK) {
            break;
        }
        if (entry->copy != nullptr) {
            const std::uint64_t decoded = numPixels * 4;
            status = decodeBlock(stream, block, scratch.get() + decoded, scratchSize - decoded,
                                 scratch.get(), decoded);
            if (status == VANTRIC_OK) {
                status = entry->copy(scratch.get(), vantric_getRXUnpackedBlockSize(&block),
                                     entry->destination, entry->destinationSize, entry->countField);
            }
            continue;
        }
        status =
            decodeBlock(stream, block, scratch.get(), scratchSize,
                        static_cast<std::uint8_t*>(entry->destination), entry->destinationSize);
        if (entry->countField != nullptr) {
            *entry->countField = static_cast<std::uint8_t>(block.count);
        }
    }
    RXReadResult result = {};
    return status != VANTRIC_OK ? status : table->validateWholeCalibration(table.get(), &result);
}

}  // namespace

std::uint32_t readCalibration(const std::uint8_t* data, std::size_t size,
                              VantricCalibration** out) {
    const auto numPixels = static_cast<std::uint32_t>(vantric_getRXNumPixels(data, size));
    Owned<VantricCalibration> record(vantric::allocateCalibration(numPixels));
    VantricStream stream = vantric_createStreamFromData(data, size);
    const std::uint32_t status = readBlocks(stream, *record, numPixels);
    if (status != VANTRIC_OK) {
        return status;
    }
    record->directions = static_cast<float*>(std::malloc(std::size_t{numPixels} * 12));
    updateDirections(record->directions, record->lensParameters, record->imagerArea.columns,
                     record->imagerArea.rows);
    if (vantric_validFloatField(record->straylightScale) != 0) {
        allocateAndCalculatePsf(*record);
    }
    *out = record.release();
    return VANTRIC_OK;
}

bool cutV7(const std::string& inputFile, const std::string& outputPath,
           EEPROMMetaInformation& metaInformation) {
    std::ifstream input(inputFile, std::ios::binary | std::ios::ate);
    std::vector<std::uint8_t> image(static_cast<std::size_t>(input.tellg()));
    input.seekg(0);
    input.read(reinterpret_cast<char*>(image.data()), static_cast<std::streamsize>(image.size()));
    const std::size_t length = littleEndian32(image.data() + 12);
    const auto* begin = image.data() + v7HeaderSize;
    if (std::memcmp(image.data(), "QOVRIN\7", 8) != 0 || image.size() < v7HeaderSize + length ||
        crc32(begin, length) != littleEndian32(image.data() + 8)) {
        return false;
    }
    const std::vector<std::uint8_t> payload(begin, begin + length);
    std::ofstream(outputPath + "/qov.spc", std::ios::binary)
        .write(reinterpret_cast<const char*>(payload.data()),
               static_cast<std::streamsize>(payload.size()));

    VantricCalibration* read = nullptr;
    if (readCalibration(payload.data(), payload.size(), &read) != VANTRIC_OK) {
        return false;
    }
    const Owned<VantricCalibration> record(read);
    metaInformation = {};
    for (std::size_t i = 0; i < sensorPixels; ++i) {
        if (record->pixelMask[i] == 0) {
            ++metaInformation.zeroMaskCount;
        }
    }
    char lens[lensBytes];
    std::memcpy(lens, record->lensParameters, lensBytes);
    std::ofstream file(outputPath + "/lensdata.dat", std::ios::binary);
    file.write(lens, lensBytes);
    return file.is_open();
}

}  // namespace calcut::plain
