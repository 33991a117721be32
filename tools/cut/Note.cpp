#include "tools/cut/Note.h"

#include <sys/stat.h>

#include <algorithm>

#include <fmt/format.h>

#include "cutter/CRC32.h"
#include "tools/text/Escape.h"
#include "tools/text/Terminal.h"

namespace calcut::cut {

namespace {

/// A note has some 500 bytes.
constexpr std::uint64_t longestNote = std::uint64_t{64} << 10;

std::vector<std::uint8_t> bytesOfNote(const std::string& folder) try {
    return files::loadDump(folder + "/" + noteFile, {.maxSize = longestNote},
                           files::Kinds::OnlyRegular);
} catch (const text::Refused&) {
    return {};
}

}  // namespace

text::Json noteOf(const TakenDump& taken, const CutResult& result) {
    text::Json note = {{"schema", cutSchema},
                       {"calcut", CALCUT_VERSION},
                       {"source", text::escapePath(result.source)},
                       {"bytes", result.size},
                       {"crc32", crcText(*result.crc)},
                       {"layout", result.layout.name},
                       {"maskedPixels", result.maskedPixels}};
    for (const StackFile& file : taken.files) {
        note["files"][file.name] = {{"bytes", file.bytes.size()}, {"crc32", crcText(file.crc)}};
    }
    return note;
}

text::Json parseNote(const std::vector<std::uint8_t>& bytes) {
    // A tree is destroyed level by level, so its depth must be bounded where it grows.
    constexpr int deepest = 4;
    const auto isShallow = [](int depth, auto, auto&) { return depth <= deepest; };
    text::Json note = text::Json::parse(bytes, isShallow, false);
    const bool isNote = note.is_object() && note.value("source", text::Json()).is_string();
    return isNote ? note : text::Json::object();
}

text::Json noteIn(const std::string& folder) {
    return parseNote(bytesOfNote(folder));
}

bool isNoteBlank(const std::string& folder) {
    struct stat status {};
    return lstat((folder + "/" + noteFile).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           std::ranges::all_of(bytesOfNote(folder), [](std::uint8_t byte) { return byte == 0; }) &&
           static_cast<std::uint64_t>(status.st_size) <= longestNote;
}

bool agree(const text::Json& found, const text::Json& note,
           std::initializer_list<const char*> keys) {
    return std::ranges::all_of(
        keys, [&](const char* key) { return found.value(key, text::Json()) == note.at(key); });
}

bool isCutOf(const std::string& folder, const std::string& source) {
    return noteIn(folder).value("source", "") == text::escapePath(source);
}

}  // namespace calcut::cut
