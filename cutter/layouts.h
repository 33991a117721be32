#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "cutter/IEEPROMCutter.h"
#include "cutter/imageRecord.h"

// The one description of the EEPROM layouts. Everything that differs between them stands here, as
// data or as a function; nothing else asks for a layout's number or name. A new layout is a pair of
// files with its header fields and its locate function, and one element of the array.

namespace calcut::image {

struct Layout {
    int number;              ///< as cutEEPROMContent takes it
    const char* name;        ///< in options and reports: "v7"
    const char* title;       ///< in sentences: "v7", "Korveline"
    std::string_view magic;  ///< what a dump begins with
    std::span<const Field> fields;
    std::size_t headerSize;  ///< no dump is shorter
    std::size_t versionField;
    std::size_t lengthField;    ///< of the payload
    std::size_t maxPayload;     ///< bytes that the length field can name
    std::size_t signatureArea;  ///< bytes at the end of a signed payload; 0: no payload is signed

    // Why a cut failed, as it is logged. Kept word for word.
    const char* blockNotWritten;
    const char* lensNotWritten;

    /// Finds and checks the record at the cursor, in the order of the checks that its file
    /// documents. cursor <= file.size().
    Record (*locate)(Bytes file, std::uint64_t cursor);
    std::unique_ptr<IEEPROMCutter> (*makeCutter)();
};

/// All layouts, each at the place of its number.
extern constinit const std::span<const Layout> layouts;

/// The layout of that number; null when there is none.
const Layout* layoutOf(std::int64_t number);

}  // namespace calcut::image
