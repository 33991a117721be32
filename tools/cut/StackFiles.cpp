#include "tools/cut/StackFiles.h"

#include <sys/mman.h>

#include <algorithm>
#include <filesystem>
#include <new>
#include <system_error>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "cutter/cutDump.h"
#include "tools/module/RecordFields.h"
#include "tools/text/Escape.h"

namespace calcut::cut {

namespace {

namespace fs = std::filesystem;

std::string differenceOf(files::ByteView wanted, const std::string& path) try {
    const std::vector<std::uint8_t> found = files::loadDump(path, {}, files::Kinds::OnlyRegular);
    if (std::ranges::equal(wanted, found)) {
        return {};
    }
    const auto at = std::ranges::mismatch(wanted, found).in1 - wanted.begin();
    std::string text = fmt::format("differs at byte {} ({:#x})", at, at);
    if (wanted.size() != found.size()) {
        text += fmt::format("; {} bytes instead of {}", found.size(), wanted.size());
    }
    return text;
} catch (const text::Refused& refused) {
    return refused.what();
}

std::vector<StackFile> filesOf(const module::Diagnosis& found) {
    const std::size_t area = found.signatureAreaSize;
    const auto* lens = reinterpret_cast<const std::uint8_t*>(found.record->lensParameters);
    const auto file = [](const char* name, files::ByteView bytes) {
        return StackFile{name, bytes, crc32Of(bytes.data(), bytes.size())};
    };
    // The checksum of a whole payload is known already.
    const files::ByteView calibration = found.payload.first(found.payload.size() - area);
    std::vector<StackFile> files = {
        area == 0 && found.image.computedCrc
            ? StackFile{CALCUT_CALIBRATION_FILE, calibration, *found.image.computedCrc}
            : file(CALCUT_CALIBRATION_FILE, calibration),
        file(CALCUT_LENS_FILE, {lens, VANTRIC_LENS_PARAMETERS * sizeof(float)})};
    if (area > 0) {
        files.push_back(file(CALCUT_SIGNATURE_FILE, found.payload.last(area).subspan(
                                                        1, found.signatureLength.value_or(0))));
    }
    return files;
}

}  // namespace

void requireRoom() {
    constexpr std::size_t room = std::size_t{32} << 20;
    void* space = mmap(nullptr, room, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (space == MAP_FAILED) {
        throw std::bad_alloc();
    }
    (void)munmap(space, room);
}

std::string crcText(std::uint32_t crc) {
    return fmt::format("{:#010x}", crc);
}

TakenDump takeDump(const std::string& path, const CutOptions& options, CutResult& result) {
    result.dump = path;
    result.crc.reset();
    std::vector<std::uint8_t> bytes = files::loadDump(path, options.reading.intake);
    result.size = bytes.size();
    result.crc = crc32Of(bytes.data(), bytes.size());
    requireRoom();
    result.layout = options.reading.layout.value_or(module::classify(bytes));
    TakenDump taken{
        std::make_unique<module::Module>(std::move(bytes), result.layout, vantric::Wanted::cut),
        {}};
    const module::Diagnosis& about = taken.module->diagnosis;
    result.warnings = about.warnings;
    result.fault = module::whyNotCut(about);
    if (result.fault) {
        throw text::Refused(path, module::describe(*result.fault));
    }
    taken.files = filesOf(about);
    const VantricCalibration& record = *about.record;
    result.texts = {record.text0, record.text1, record.text2};
    result.maskedPixels = module::maskedByCut(about);
    const std::size_t idSize = std::min<std::size_t>(record.idBytesSize, VANTRIC_ID_BYTES);
    result.idBytes.assign(record.idBytes, record.idBytes + idSize);
    std::copy_n(record.lensParameters, result.lens.size(), result.lens.begin());
    return taken;
}

std::vector<Difference> differences(const std::vector<StackFile>& files,
                                    const std::string& directory) {
    std::vector<Difference> all;
    for (const char* name : stackFiles) {
        const std::string path = directory + "/" + name;
        const auto wanted = std::ranges::find(files, std::string_view(name), &StackFile::name);
        std::error_code ignored;
        const bool exists = fs::exists(fs::symlink_status(path, ignored));
        std::string what;
        if (wanted != files.end()) {
            what = exists ? differenceOf(wanted->bytes, path) : "is missing";
        } else if (exists) {
            what = "is superfluous: the dump has no signature";
        }
        if (!what.empty()) {
            all.push_back({name, what});
        }
    }
    return all;
}

void writeStackFiles(const TakenDump& taken, const std::string& directory,
                     const CutResult& result) {
    EEPROMMetaInformation meta{};
    const module::Diagnosis& about = taken.module->diagnosis;
    const bool written =
        writeBlock(*result.layout.image, directory, about.image.blockId, about.payload, meta);
    // The library does not report a disk that fills up; the files do.
    if (const std::vector<Difference> wrong = differences(taken.files, directory); !wrong.empty()) {
        throw text::Refused(result.dump, "cannot write {} of {}: it {} (is the disk full?)",
                            wrong[0].name, text::escapePath(result.folder), wrong[0].what);
    }
    if (!written) {
        throw text::Refused(result.dump,
                            "the library refused it, though nothing is found to be wrong with it");
    }
}

}  // namespace calcut::cut
