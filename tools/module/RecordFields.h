// What a decoded record holds, as one list: the JSON and the text of inspect, and compare go
// through it, so that a field is added, named and left out in one place.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/module/Diagnosis.h"
#include "tools/text/Json.h"

namespace calcut::module {

/// How people read a value.
enum class Shown : std::uint8_t {
    plain,  ///< numbers in decimal, a text as it is
    hex,    ///< bytes, which are in hexadecimal already
    codes,  ///< numbers of 16 bits in hexadecimal
    bits    ///< the bits of a float in hexadecimal, and what they mean
};

/// Stands for a field that has no block of its own.
inline constexpr std::uint32_t noBlock = 0xFFFFFFFF;

struct Field {
    std::uint32_t block;  ///< without it the field is not there; of a frequency: RX_FREQUENCY_
    const char* group;    ///< key of the object that it is part of; empty: none
    const char* key;      ///< empty: only part of a line of text
    const char* label;  ///< begins a line of text; empty: goes on in the one before; null: no text
    const char* lead;   ///< what a line has in front of the value
    const char* unit;   ///< and behind it
    /// Of a record with that block: a leaf or a list of numbers; null: not there.
    text::Json (*get)(const Diagnosis& about, unsigned frequency);
    Shown shown = Shown::plain;
};

// In the order of text and JSON.
extern const std::span<const Field> recordFields;
extern const std::span<const Field> frequencyFields;  ///< of each that frequenciesOf names
extern const std::span<const Field> straylightFields;

/// The frequencies of a record. It is filled by id, so a calibration that leaves one out has a gap.
std::vector<unsigned> frequenciesOf(const Diagnosis& about);

/// Zeros among the pixels of the mask that a cut counts.
std::int64_t maskedByCut(const Diagnosis& about);

/// The value of a field; the diagnosis has a record.
text::Json valueOf(const Field& field, const Diagnosis& about,
                   std::optional<unsigned> frequency = {});

/// As people read it: a list with gaps, what is not there as nothing.
std::string textOf(const text::Json& value, Shown shown = Shown::plain);

}  // namespace calcut::module
