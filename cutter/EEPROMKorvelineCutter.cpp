#include "cutter/EEPROMKorvelineCutter.h"

#include <cstddef>
#include <stdexcept>

#include "cutter/EEPROMKorvelineReader.h"
#include "cutter/FileAccess.h"
#include "cutter/korvelineImage.h"

using calcut::image::plainBlockId;
using calcut::image::signedBlockId;
namespace korveline = calcut::image::korveline;

EEPROMKorvelineCutter::EEPROMKorvelineCutter() = default;

EEPROMKorvelineCutter::~EEPROMKorvelineCutter() = default;

bool EEPROMKorvelineCutter::execute() {
    metaInformation_ = newMetaInformation();
    EEPROMKorvelineReader reader;
    reader.loadFile(inputFile_);
    const DataBlock block = reader.getNextDataBlock();
    return writeFile(block.id, block.data);
}

EEPROMMetaInformation* EEPROMKorvelineCutter::getMetaInformation() {
    return metaInformation_;
}

bool EEPROMKorvelineCutter::writeFile(unsigned int blockId, const ByteBuffer& data) {
    if (blockId != signedBlockId && blockId != plainBlockId) {
        throw;  // deliberate end of the process: no reader yields another id
    }
    const std::string path = startCalibrationFile(blockId, data.size());
    std::size_t size = data.size();
    if (blockId == signedBlockId) {
        if (size < korveline::signatureArea) {
            throw std::length_error("signed payload shorter than its signature area");
        }
        size -= korveline::signatureArea;
    }
    const bool opened = writeWholeFile(path, data.data(), size);
    if (!opened || size == 0) {
        return fail("Could not write tango.bin");  // kept word for word
    }
    if (!writeIntrinsics(data)) {
        return fail("Could not write intrinsics");
    }
    if (blockId == signedBlockId && !writeSignature(data)) {
        return fail("Could not write signature");
    }
    return true;
}

bool EEPROMKorvelineCutter::writeIntrinsics(const ByteBuffer& data) {
    return writeLensFile(data);
}

bool EEPROMKorvelineCutter::writeSignature(const ByteBuffer& data) {
    if (data.size() < korveline::signatureArea) {
        throw std::out_of_range("payload shorter than a signature area");
    }
    const std::uint8_t* area = data.data() + (data.size() - korveline::signatureArea);
    const std::size_t length = area[0];
    if (length > korveline::maxSignature) {
        return false;
    }
    const bool opened = writeWholeFile(outputPath_ + "/" CALCUT_SIGNATURE_FILE,
                                       area + korveline::signatureLengthSize, length);
    return opened && length != 0;
}
