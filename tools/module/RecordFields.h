// What a decoded record holds, as one list: the JSON and the text of inspect, compare and the
// Python package go through it, so that a field is added, named and left out in one place.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "tools/module/Diagnosis.h"

namespace calcut::module {

/// Bits of a float, shown in hexadecimal.
struct FloatBits {
    std::uint32_t bits;
};
using Codes = std::array<std::uint16_t, 2>;  ///< shown in hexadecimal, too

/// What a field holds; spans point into the record, text is escaped. Not there: monostate.
using Value = std::variant<std::monostate, std::int64_t, float, FloatBits, Codes, std::string,
                           files::ByteView, std::span<const float>, std::span<const std::uint32_t>>;

/// Stands for a field that has no block of its own.
inline constexpr std::uint32_t noBlock = 0xFFFFFFFF;

struct Field {
    std::uint32_t block;  ///< without it the field is not there; of a frequency: RX_FREQUENCY_
    const char* group;    ///< key of the object that it is part of; empty: none
    const char* key;      ///< empty: only part of a line of text
    const char* label;  ///< begins a line of text; empty: goes on in the one before; null: no text
    const char* lead;   ///< what a line has in front of the value
    const char* unit;   ///< and behind it
    Value (*get)(const Diagnosis& about, unsigned frequency);  ///< of a record with that block
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
Value valueOf(const Field& field, const Diagnosis& about, std::optional<unsigned> frequency = {});

bool isList(const Value& value);
/// The single values of a list, or the value alone.
std::vector<Value> elementsOf(const Value& value);

/// As people read it: a list with gaps, what is not there as nothing.
std::string textOf(const Value& value);

}  // namespace calcut::module
