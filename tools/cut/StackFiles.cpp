#include "tools/cut/StackFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "cutter/EEPROMKorvelineCutter.h"
#include "cutter/EEPROMv7Cutter.h"
#include "tools/terminal/Escape.h"

namespace calcut::tools {

namespace {

void describeModule(const VantricCalibration& record, CutResult& result) {
    const std::array<const char*, 3> texts = {record.text0, record.text1, record.text2};
    std::copy(texts.begin(), texts.end(), result.texts.begin());
    const std::size_t idSize = std::min<std::size_t>(record.idBytesSize, VANTRIC_ID_BYTES);
    result.idBytes.assign(record.idBytes, record.idBytes + idSize);
    std::copy_n(record.lensParameters, result.lens.size(), result.lens.begin());
}

std::string differenceOf(ByteView wanted, const Dump& found) {
    if (!found.error.empty()) {
        return found.error;
    }
    if (wanted.size() == found.bytes.size() &&
        std::memcmp(wanted.data(), found.bytes.data(), wanted.size()) == 0) {
        return {};
    }
    const auto in =
        std::mismatch(wanted.begin(), wanted.end(), found.bytes.begin(), found.bytes.end()).first;
    const auto at = in - wanted.begin();
    std::string text = fmt::format("differs at byte {} ({:#x})", at, at);
    if (wanted.size() != found.bytes.size()) {
        text += fmt::format("; {} bytes instead of {}", found.bytes.size(), wanted.size());
    }
    return text;
}

template <class Cutter>
bool writeWith(const std::string& directory, const TakenDump& taken, std::uint16_t& maskedPixels) {
    const ByteView payload = taken.diagnosis.payload;
    Cutter cutter;
    cutter.setOutputPath(directory);
    const bool written =
        cutter.writeFile(taken.diagnosis.image.blockId, {payload.begin(), payload.end()});
    if (const EEPROMMetaInformation* meta = cutter.getMetaInformation(); meta != nullptr) {
        maskedPixels = meta->zeroMaskCount;
    }
    return written;
}

}  // namespace

const char* outcomeName(Outcome outcome) {
    constexpr std::array<const char*, 4> names = {"not reached", "cut", "kept", "failed"};
    return names[static_cast<std::size_t>(outcome)];
}

void CutResult::fail(std::string why) {
    if (outcome != Outcome::Failed) {
        outcome = Outcome::Failed;
        reason = std::move(why);
    }
}

std::optional<TakenDump> takeDump(const std::string& path, const CutOptions& options,
                                  CutResult& result) {
    result.dump = path;
    TakenDump taken;
    taken.dump = loadDump(path, options.maxSize);
    const std::vector<std::uint8_t>& bytes = taken.dump.bytes;
    if (!taken.dump.error.empty()) {
        result.fail(taken.dump.error);
        return std::nullopt;
    }
    result.loaded = true;
    result.size = bytes.size();
    result.crc = crc32Of(bytes.data(), bytes.size());
    result.layout = options.layout.value_or(classify(bytes));
    taken.diagnosis = diagnose(bytes, result.layout, vantric::Wanted::cut);
    result.warnings = taken.diagnosis.warnings;
    result.fault = whyNotCut(taken.diagnosis);
    if (result.fault) {
        result.fail(describe(*result.fault));
        return std::nullopt;
    }
    describeModule(*taken.diagnosis.record, result);
    return taken;
}

std::vector<StackFile> filesOf(const TakenDump& taken) {
    const Diagnosis& found = taken.diagnosis;
    const std::size_t area = found.signatureAreaSize;
    const auto* lens = reinterpret_cast<const std::uint8_t*>(found.record->lensParameters);
    std::vector<StackFile> files = {
        {calibrationFile, found.payload.first(found.payload.size() - area)},
        {lensFile, {lens, VANTRIC_LENS_PARAMETERS * sizeof(float)}}};
    if (area > 0) {
        files.push_back({signatureFile,
                         found.payload.last(area).subspan(1, found.signatureLength.value_or(0))});
    }
    return files;
}

std::vector<Difference> differences(const std::vector<StackFile>& files,
                                    const std::string& directory) {
    std::vector<Difference> all;
    for (const char* name : stackFiles) {
        const std::string path = directory + "/" + name;
        const auto wanted = std::find_if(files.begin(), files.end(), [&](const StackFile& file) {
            return std::strcmp(file.name, name) == 0;
        });
        struct stat status {};
        const bool exists = lstat(path.c_str(), &status) == 0;
        std::string what;
        if (wanted != files.end()) {
            what = exists ? differenceOf(wanted->bytes, loadDump(path)) : "is missing";
        } else if (exists) {
            what = "is superfluous: the dump has no signature";
        }
        if (!what.empty()) {
            all.push_back({name, what});
        }
    }
    return all;
}

void writeStackFiles(const TakenDump& taken, const std::string& directory, CutResult& result) {
    const bool written =
        result.layout == Layout::V7
            ? writeWith<EEPROMv7Cutter>(directory, taken, result.maskedPixels)
            : writeWith<EEPROMKorvelineCutter>(directory, taken, result.maskedPixels);
    // The library does not report a disk that fills up; the files do.
    const std::vector<Difference> wrong = differences(filesOf(taken), directory);
    if (!wrong.empty()) {
        result.fail(fmt::format("cannot write {} of {}: it {} (is the disk full?)",
                                wrong.front().file, escapePath(result.folder), wrong.front().what));
    } else if (!written) {
        result.fail("the library refused it, though nothing is found to be wrong with it");
    }
}

}  // namespace calcut::tools
