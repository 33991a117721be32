#include "cutter/EEPROMv7Cutter.h"

#include "cutter/EEPROMv7Reader.h"
#include "cutter/FileAccess.h"
#include "cutter/imageRecord.h"

EEPROMv7Cutter::EEPROMv7Cutter() = default;

EEPROMv7Cutter::~EEPROMv7Cutter() = default;

bool EEPROMv7Cutter::execute() {
    metaInformation_ = newMetaInformation();
    EEPROMv7Reader reader;
    reader.loadFile(inputFile_);
    const DataBlock block = reader.getNextDataBlock();
    return writeFile(block.id, block.data);
}

EEPROMMetaInformation* EEPROMv7Cutter::getMetaInformation() {
    return metaInformation_;
}

bool EEPROMv7Cutter::writeFile(unsigned int blockId, const ByteBuffer& data) {
    if (blockId != calcut::image::plainBlockId) {
        throw;  // deliberate end of the process: no reader yields another id
    }
    const std::string path = startCalibrationFile(blockId, data.size());
    const bool opened = writeWholeFile(path, data.data(), data.size());
    if (!opened || data.empty()) {
        return fail("Could not write data block");
    }
    return writeIntrinsics(data) || fail("Could not write data intrinsics");
}

bool EEPROMv7Cutter::writeIntrinsics(const ByteBuffer& data) {
    return writeLensFile(data);
}
