// Reads, cuts and custom passes for valgrind: every byte of every result is printed as a sum, so a
// value that nobody wrote shows up as a use of it.
#include <cstdio>
#include <cstring>

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "fixtures.h"

namespace {

using fixtures::Bytes;

std::uint32_t sum = 0;

template <class T>
void add(const T* values, std::size_t count) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(values);
    for (std::size_t i = 0; values != nullptr && i < count * sizeof(T); ++i) {
        sum = (sum << 5) + (sum >> 27) + bytes[i];
    }
}

void addRecord(const VantricCalibration& record) {
    const std::size_t pixels = std::size_t{record.imagerArea.columns} * record.imagerArea.rows;
    add(&record.imagerArea, 1);
    for (const char* text : {record.text0, record.text1, record.text2}) {
        add(text, VANTRIC_TEXT_BYTES);
    }
    add(record.idBytes, VANTRIC_ID_BYTES);
    add(record.lensParameters, VANTRIC_LENS_PARAMETERS);
    add(&record.straylightScale, 32);
    add(record.pixelMask, pixels);
    add(record.pixelValues, pixels);
    add(record.directions, pixels * 3);
    add(record.psf, record.psf == nullptr ? 0 : std::size_t{record.psfWidth} * record.psfHeight);
    for (int k = 0; k < VANTRIC_FREQUENCIES; ++k) {
        const VantricFrequencyRecord& frequency = record.frequencies[k];
        add(&frequency.frequencyId, 1);
        add(frequency.pixelTable, pixels);
        add(frequency.valuesA, VANTRIC_FREQUENCY_VALUES);
        add(frequency.valuesB, VANTRIC_FREQUENCY_VALUES);
        add(&frequency.scalar, 1);
        for (const auto* table : {&frequency.wigglingA, &frequency.wigglingB}) {
            add(table->first, VANTRIC_WIGGLING_ENTRIES);
            add(table->second, VANTRIC_WIGGLING_ENTRIES);
            add(table->third, VANTRIC_WIGGLING_ENTRIES);
            add(&table->header, 1);
        }
    }
}

void useCalibration(const Bytes& data) {
    std::uint32_t status = 0;
    const fixtures::Record record = fixtures::read(data, &status);
    add(&status, 1);
    if (!record) {
        return;
    }
    addRecord(*record);
    status = vantric_readCustomFields(data.data(), data.size(), record.get());
    add(&status, 1);
    for (std::uint32_t id = 0; id < 256; ++id) {
        std::uint8_t value[260];
        const std::int32_t size = vantric_getFieldSize(id, record.get());
        if (vantric_getField(id, record.get(), value) == VANTRIC_OK) {
            add(value, static_cast<std::size_t>(size));
        }
    }
    addRecord(*fixtures::Record(vantric_copyCalibration(record.get())));
}

void useImage(int layout, const Bytes& image) {
    const fixtures::TempDir out;
    fixtures::writeBytes(out / "dump", image);
    EEPROMMetaInformation meta = {};
    const int result = cutEEPROMContent(layout, (out / "dump").c_str(), out.path().c_str(), &meta);
    float lens[CALCUT_LENS_PARAMETER_COUNT] = {};
    readLensParameters(0, (out / "lensdata.dat").c_str(), lens);
    add(&result, 1);
    add(&meta, 1);
    add(lens, CALCUT_LENS_PARAMETER_COUNT);
}

}  // namespace

int main() {
    const Bytes small = fixtures::smallPacked();
    useCalibration(fixtures::minimalPacked());
    useCalibration(small);
    for (std::size_t size = 0; size < small.size(); size += 13) {
        useCalibration(Bytes(small.begin(), small.begin() + static_cast<std::ptrdiff_t>(size)));
    }
    for (std::size_t bit = 0; bit < 8 * small.size(); bit += 37) {
        Bytes flipped = small;
        flipped[bit / 8] = static_cast<std::uint8_t>(flipped[bit / 8] ^ (1U << (bit % 8)));
        useCalibration(flipped);
    }
    calcut::writer::KorvelineOptions options;
    options.signature = Bytes(64, 3);
    const Bytes v7 = calcut::writer::makeV7Image(small);
    const Bytes korveline = calcut::writer::makeKorvelineImage(small, options);
    useImage(CALCUT_LAYOUT_V7, v7);
    useImage(CALCUT_LAYOUT_KORVELINE, korveline);
    for (std::size_t size = 1; size < v7.size(); size += 41) {
        useImage(CALCUT_LAYOUT_V7,
                 Bytes(v7.begin(), v7.begin() + static_cast<std::ptrdiff_t>(size)));
        useImage(CALCUT_LAYOUT_KORVELINE,
                 Bytes(korveline.begin(), korveline.begin() + static_cast<std::ptrdiff_t>(size)));
    }
    std::printf("%08x\n", sum);
    return 0;
}
