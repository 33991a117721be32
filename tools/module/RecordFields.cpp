#include "tools/module/RecordFields.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

#include <fmt/format.h>

#include "calcut/cutter.h"
#include "tools/module/Names.h"
#include "tools/module/TableMeasures.h"
#include "tools/text/Escape.h"

namespace calcut::module {

namespace {

using Record = VantricCalibration;
using Frequency = VantricFrequencyRecord;

template <class Member>
text::Json single(Member member) {
    if constexpr (std::is_same_v<Member, char*>) {
        // A text without terminator ends with its buffer.
        return text::escapeBytes({member, strnlen(member, VANTRIC_TEXT_BYTES)});
    } else {
        return member;
    }
}

template <auto Member>
text::Json ofRecord(const Diagnosis& about, unsigned /*frequency*/) {
    return single((*about.record).*Member);
}

template <auto Member>
text::Json ofArea(const Diagnosis& about, unsigned /*frequency*/) {
    return single(about.record->imagerArea.*Member);
}

template <std::size_t Index>
text::Json lens(const Diagnosis& about, unsigned /*frequency*/) {
    const float* lens = about.record->lensParameters;
    return lens == nullptr ? text::Json() : text::Json(lens[Index]);
}

text::Json idBytes(const Diagnosis& about, unsigned /*frequency*/) {
    const std::size_t size = std::min<std::size_t>(about.record->idBytesSize, VANTRIC_ID_BYTES);
    return text::hexText(
        {about.record->idBytes, about.wasRead(RX_BLOCK_ID_BYTES) ? size : std::size_t{0}});
}

text::Json idCodes(const Diagnosis& about, unsigned /*frequency*/) {
    return {about.record->idCode0, about.record->idCode1};
}

// ----------------------------------------------------------------------------------------- mask --

/// Pixels whose mask a cut counts.
constexpr std::uint64_t cutMaskPixels = std::uint64_t{CALCUT_SENSOR_COLUMNS} * CALCUT_SENSOR_ROWS;

std::uint64_t pixels(const Diagnosis& about) {
    return std::uint64_t{about.record->imagerArea.columns} * about.record->imagerArea.rows;
}

std::int64_t zerosUpTo(const Diagnosis& about, std::uint64_t end) {
    const files::ByteView mask = about.mask();
    return static_cast<std::int64_t>(
        countMasked(mask.first(std::min<std::uint64_t>(mask.size(), end))));
}

text::Json allPixels(const Diagnosis& about, unsigned /*frequency*/) {
    return single(pixels(about));
}

text::Json masked(const Diagnosis& about, unsigned /*frequency*/) {
    return zerosUpTo(about, pixels(about));
}

text::Json maskedOfCut(const Diagnosis& about, unsigned /*frequency*/) {
    return zerosUpTo(about, cutMaskPixels);
}

text::Json maskedOfCutIfOther(const Diagnosis& about, unsigned /*frequency*/) {
    const std::int64_t ofCut = zerosUpTo(about, cutMaskPixels);
    const bool same = pixels(about) <= cutMaskPixels || ofCut == zerosUpTo(about, pixels(about));
    return same ? text::Json() : text::Json(ofCut);
}

// ---------------------------------------------------------------------------------- frequencies --

template <auto Member>
text::Json ofFrequency(const Diagnosis& about, unsigned frequency) {
    return single(about.record->frequencies[frequency].*Member);
}

template <auto Data, auto Count>
text::Json values(const Diagnosis& about, unsigned frequency) {
    const Frequency& of = about.record->frequencies[frequency];
    return std::span(of.*Data, std::min<std::size_t>(of.*Count, VANTRIC_FREQUENCY_VALUES));
}

std::size_t entriesOf(const VantricWigglingTable& table) {
    return std::min<std::size_t>(table.capacity, VANTRIC_WIGGLING_ENTRIES);
}

template <auto Table>
text::Json header(const Diagnosis& about, unsigned frequency) {
    return (about.record->frequencies[frequency].*Table).header;
}

template <auto Table>
text::Json entries(const Diagnosis& about, unsigned frequency) {
    return single(entriesOf(about.record->frequencies[frequency].*Table));
}

template <auto Table, auto Part>
text::Json part(const Diagnosis& about, unsigned frequency) {
    const VantricWigglingTable& table = about.record->frequencies[frequency].*Table;
    return std::span(table.*Part, entriesOf(table));
}

// ----------------------------------------------------------------------------------- straylight --

template <auto Points>
text::Json profile(const Diagnosis& about, unsigned /*frequency*/) {
    // Making the PSF puts an origin point in front of the profile; shown are the file's.
    const Record& record = *about.record;
    const std::size_t points =
        std::min<std::size_t>(record.straylightPointCount, VANTRIC_STRAYLIGHT_POINTS + 1);
    return std::span<const float>(record.*Points, points)
        .subspan(record.psf != nullptr && points > 0 ? 1 : 0);
}

// ------------------------------------------------------------------------------------ the lists --

constexpr std::uint32_t LENS = RX_BLOCK_LENS_PARAMETERS, LIGHT = RX_BLOCK_STRAYLIGHT;

template <std::size_t Index>
constexpr Field lensField(const char* unit) {
    return {LENS, "lens", lensNames[Index], lensNames[Index], "", unit, lens<Index>};
}

template <auto Table>
constexpr std::array<Field, 5> wiggling(std::uint32_t block, const char* group, const char* label) {
    using Parts = VantricWigglingTable;
    return {{{block, group, "header", label, "header ", "", header<Table>, Shown::bits},
             {block, "", "", "", ", entries: ", "", entries<Table>},
             {block, group, "first", "    first", "", "", part<Table, &Parts::first>},
             {block, group, "second", "    second", "", "", part<Table, &Parts::second>},
             {block, group, "third", "    third", "", "", part<Table, &Parts::third>}}};
}
constexpr auto ofA =
    wiggling<&Frequency::wigglingA>(RX_FREQUENCY_WIGGLING_A, "wigglingA", "  wiggling A");
constexpr auto ofB =
    wiggling<&Frequency::wigglingB>(RX_FREQUENCY_WIGGLING_B, "wigglingB", "  wiggling B");

// clang-format off
constexpr Field ofTheRecord[] = {
    {noBlock, "", "columns", "image area", "", "", ofArea<&VantricImagerArea::columns>},
    {noBlock, "", "rows", "", " x ", " pixels", ofArea<&VantricImagerArea::rows>},
    {RX_BLOCK_AUX_FLAG, "", "auxFlag", "aux flag", "", "", ofRecord<&Record::auxFlag>},
    lensField<0>(" pixels"), lensField<1>(" pixels"), lensField<2>(" pixels"),
    lensField<3>(" pixels"), lensField<4>(""), lensField<5>(""), lensField<6>(""),
    lensField<7>(""), lensField<8>(""),
    {RX_BLOCK_DATE, "", "text0", "text 0", "\"", "\"", ofRecord<&Record::text0>},
    {RX_BLOCK_TEXT1, "", "text1", "text 1", "\"", "\"", ofRecord<&Record::text1>},
    {RX_BLOCK_TEXT2, "", "text2", "text 2", "\"", "\"", ofRecord<&Record::text2>},
    {noBlock, "", "idBytes", "id bytes", "", "", idBytes, Shown::hex},
    {RX_BLOCK_ID_CODES, "", "idCodes", "id codes", "", "", idCodes, Shown::codes},
    {RX_BLOCK_MASK, "", "maskedPixels", "masked pixels", "", "", masked},
    {RX_BLOCK_MASK, "", "", "", " of ", "", allPixels},
    {RX_BLOCK_MASK, "", "", "  as cut reports", "", "", maskedOfCutIfOther},
    {RX_BLOCK_MASK, "", "zeroMaskCount", nullptr, "", "", maskedOfCut},
};

constexpr Field ofAFrequency[] = {
    {RX_FREQUENCY_ID, "", "id", "frequency {}", "id ", "", ofFrequency<&Frequency::frequencyId>},
    {RX_FREQUENCY_SCALAR, "", "scalar", "  scalar", "", "", ofFrequency<&Frequency::scalar>},
    {RX_FREQUENCY_VALUES_A, "", "valuesA", "  values A", "", "",
     values<&Frequency::valuesA, &Frequency::countA>},
    {RX_FREQUENCY_VALUES_B, "", "valuesB", "  values B", "", "",
     values<&Frequency::valuesB, &Frequency::countB>},
    ofA[0], ofA[1], ofA[2], ofA[3], ofA[4], ofB[0], ofB[1], ofB[2], ofB[3], ofB[4],
};

constexpr Field ofStraylight[] = {
    {LIGHT, "straylight", "scale", "straylight", "scale ", "", ofRecord<&Record::straylightScale>},
    {LIGHT, "straylight", "exponent", "", ", exponent ", "", ofRecord<&Record::straylightExponent>},
    {LIGHT, "straylight", "offset", "", ", offset ", "", ofRecord<&Record::straylightOffset>},
    {LIGHT, "straylight", "centre", "", ", centre ", "", ofRecord<&Record::straylightCentre>},
    {LIGHT, "straylight", "psfWidth", "  PSF", "", "", ofRecord<&Record::psfWidth>},
    {LIGHT, "straylight", "psfHeight", "", " x ", " elements", ofRecord<&Record::psfHeight>},
    {LIGHT, "straylight", "radius", "  radius", "", "", profile<&Record::straylightRadius>},
    {LIGHT, "straylight", "value", "  value", "", "", profile<&Record::straylightValue>},
};
// clang-format on

}  // namespace

const std::span<const Field> recordFields = ofTheRecord;
const std::span<const Field> frequencyFields = ofAFrequency;
const std::span<const Field> straylightFields = ofStraylight;

std::vector<unsigned> frequenciesOf(const Diagnosis& about) {
    std::vector<unsigned> list;
    for (unsigned k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        if (about.wasRead(frequencyBlock(k, RX_FREQUENCY_ID))) {
            list.push_back(k);
        }
    }
    return list;
}

std::int64_t maskedByCut(const Diagnosis& about) {
    return zerosUpTo(about, cutMaskPixels);
}

text::Json valueOf(const Field& field, const Diagnosis& about, std::optional<unsigned> frequency) {
    const std::uint32_t block = frequency ? frequencyBlock(*frequency, field.block) : field.block;
    const bool isThere = field.block == noBlock || about.wasRead(block);
    return isThere ? field.get(about, frequency.value_or(0)) : text::Json();
}

std::string textOf(const text::Json& value, Shown shown) {
    std::string text;
    if (value.is_null()) {
        return text;
    }
    if (value.is_array()) {
        for (const text::Json& element : value) {
            text += (text.empty() ? "" : "  ") + textOf(element, shown);
        }
    } else if (value.is_string()) {
        text = value.get<std::string>();
    } else if (value.is_number_float()) {
        text = fmt::format("{}", value.get<float>());
    } else if (shown == Shown::codes) {
        text = fmt::format("{:#06x}", value.get<std::uint16_t>());
    } else if (shown == Shown::bits) {
        const auto bits = value.get<std::uint32_t>();
        text = fmt::format("{:#010x} ({})", bits, std::bit_cast<float>(bits));
    } else {
        text = value.dump();
    }
    return text;
}

}  // namespace calcut::module
