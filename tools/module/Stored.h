// What a file holds as it is stored: the fields of its image and the ranges of its blocks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cutter/imageRecord.h"
#include "tools/module/Diagnosis.h"
#include "tools/module/RecordFields.h"

namespace calcut::module {

struct ImageField {
    const image::Field& is;
    files::ByteView bytes;                ///< those that the file has
    std::optional<std::uint64_t> number;  ///< of a field that is one
    std::string text;                     ///< for people
};

/// The fields of an image's header, as far as the file goes.
std::vector<ImageField> imageFieldsOf(const Diagnosis& about);

/// The signature in its area; empty when its length is impossible, nothing without an area.
std::optional<files::ByteView> signatureOf(const Diagnosis& about);

/// Of a block's decoded values.
struct Range {
    text::Json min, max;  ///< of those that are finite; null without any
    std::uint64_t infinite = 0;
};

/// For each block; nothing where there are no values, not all of them, or too many to decode.
std::vector<std::optional<Range>> rangesOf(const Diagnosis& about);

}  // namespace calcut::module
