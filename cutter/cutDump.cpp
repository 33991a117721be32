#include "cutter/cutDump.h"

#include <memory>
#include <stdexcept>

#include "cutter/DumpChecks.h"
#include "cutter/FileAccess.h"
#include "cutter/LensData.h"
#include "cutter/SkarLog.h"

using calcut::image::Bytes;
using calcut::image::Layout;
using calcut::image::plainBlockId;
using calcut::image::Record;
using calcut::image::signedBlockId;

namespace {

struct LoadedDump {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t size;
};

LoadedDump load(const std::string& path) {
    const InputFile file(path);
    requireContent(file);
    const auto size = static_cast<std::size_t>(file.size());
    // Not cleared: reading sets every byte.
    LoadedDump dump{std::unique_ptr<std::uint8_t[]>(new std::uint8_t[size]), size};
    file.read(dump.bytes.get(), size);
    return dump;
}

bool fail(const char* message) {
    skarbo::SkarLog log(skarbo::error);
    log << message;
    return false;
}

void logProgress(unsigned int blockId, const std::string& path, std::size_t size) {
    skarbo::SkarLog log(skarbo::info);
    log << "Writing block id " << std::to_string(blockId) << " to " << path << " ("
        << std::to_string(size) << " bytes).";
}

}  // namespace

bool cutDump(const Layout& layout, const std::string& inputFile, const std::string& outputPath,
             EEPROMMetaInformation& meta) {
    const LoadedDump dump = load(inputFile);
    const Bytes bytes(dump.bytes.get(), dump.size);
    const Record record = layout.locate(bytes, 0);
    requireAccepted(record);
    return writeBlock(layout, outputPath, record.blockId, payloadOf(bytes, record), meta);
}

bool writeBlock(const Layout& layout, const std::string& outputPath, unsigned int blockId,
                Bytes payload, EEPROMMetaInformation& meta) {
    const bool isSigned = blockId == signedBlockId && layout.signatureArea != 0;
    if (!isSigned && blockId != plainBlockId) {
        throw;  // deliberate end of the process: no reader yields another id
    }
    const std::string path = outputPath + "/" CALCUT_CALIBRATION_FILE;
    logProgress(blockId, path, payload.size());
    const std::size_t area = isSigned ? layout.signatureArea : 0;
    if (payload.size() < area) {
        throw std::length_error("signed payload shorter than its signature area");
    }
    const std::size_t size = payload.size() - area;
    const bool opened = writeWholeFile(path, payload.data(), size);
    if (!opened || size == 0) {
        return fail(layout.blockNotWritten);
    }
    // The signature area is decoded, too: a calibration may end inside it.
    if (!writeLensData(payload, outputPath, meta)) {
        return fail(layout.lensNotWritten);
    }
    return !isSigned || writeSignature(layout, outputPath, payload) ||
           fail("Could not write signature");
}

bool writeSignature(const Layout& layout, const std::string& outputPath, Bytes payload) {
    if (payload.size() < layout.signatureArea) {
        throw std::out_of_range("payload shorter than a signature area");
    }
    const Bytes area = payload.last(layout.signatureArea);
    const Bytes room = area.subspan(1);
    const std::size_t length = area.front();
    if (length > room.size()) {
        return false;
    }
    const bool opened = writeWholeFile(outputPath + "/" CALCUT_SIGNATURE_FILE, room.data(), length);
    return opened && length != 0;
}
