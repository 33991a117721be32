// Calls of the calibration interface in any order, over records that live on: every call inside its
// contract, the bytes hostile. After each call a host reads all that its record holds.
#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "Hosts.h"
#include "Input.h"
#include "Reading.h"
#include "targets.h"
#include "writer/writer.h"

namespace fuzz {

namespace {

namespace writer = calcut::writer;

constexpr std::uint16_t packedType = 3;
constexpr int longestSequence = 32;

// ------------------------------------------------------------------------------ hostile bytes --

Bytes packed(std::uint16_t columns, std::uint16_t rows, unsigned frequencies, unsigned custom) {
    writer::CalibrationOptions options;
    options.columns = columns;
    options.rows = rows;
    options.frequencies = frequencies;
    options.custom = custom;
    return packCalibration(makeCalibration(options), {});
}

const Bytes& goodCalibration(unsigned number) {
    static const std::array<Bytes, 6> good = {packed(2, 2, 1, 0), packed(3, 2, 2, 1),
                                              packed(8, 4, 1, 2), packed(4, 8, 2, 5),
                                              packed(9, 5, 1, 0), packed(19, 30, 1, 1)};
    return good[number % good.size()];
}

constexpr std::size_t sizeOffset = 7;  // of columns and rows in the file header
constexpr std::size_t headerSize = 11;

void claimSize(Bytes& data, unsigned columns, unsigned rows) {
    const std::array<unsigned, 4> bytes = {columns >> 8, columns, rows >> 8, rows};
    std::transform(bytes.begin(), bytes.end(), data.begin() + sizeOffset,
                   [](unsigned byte) { return static_cast<std::uint8_t>(byte & 0xFFU); });
}

Bytes hostileBytes(Input& input) {
    const unsigned choice = input.between(0, 7);
    Bytes data = goodCalibration(input.byte());
    switch (choice) {
        case 0:
            break;
        case 1: {  // the claim of a small image, and nothing else of it
            data.resize(headerSize);
            const unsigned columns = input.byte();
            claimSize(data, columns, input.byte());
            const Bytes rest = input.bytes(input.between(0, 15));
            data.insert(data.end(), rest.begin(), rest.end());
            break;
        }
        case 2: {
            const unsigned columns = input.byte();
            claimSize(data, columns, input.byte());
            break;
        }
        case 3: {
            const std::uint32_t size = input.word();
            claimSize(data, size >> 16, size & 0xFFFFU);
            break;
        }
        case 4:
            data.resize(input.word() % data.size());
            break;
        case 5:
            for (unsigned changes = input.between(1, 4); changes != 0; --changes) {
                const std::size_t place = input.word() % data.size();
                data[place] = input.byte();
            }
            break;
        case 6:
            data = input.bytes(input.byte());
            break;
        default:
            data = input.bytes(hostDataSize);
            data[0] = input.flag() ? bareMagic : fillingMagic;
            break;
    }
    return Bytes(data.begin(), data.end());  // not a byte more room than its size
}

// ---------------------------------------------------------------------------------- the calls --

struct Slot {
    Record record;
    std::uint64_t made = 0;  // pixels for which the record was made
    Bytes source;            // from which it was read last
};

std::uint64_t imagePixels(const VantricCalibration& record) {
    return std::uint64_t{record.imagerArea.columns} * record.imagerArea.rows;
}

// A packed read looks itself whether the image fits into a record that was read before. All other
// records are the caller's duty.
bool mayRead(const Slot& slot, const Bytes& data) {
    return pixelsOf(data) <= slot.made ||
           (slot.record->calibrationType == packedType && !isHostData(data));
}

// Counts that a failed read leaves may be above their buffers' capacity, as documented. All
// frequencies have their buffers, in use or not.
void lookAt(const Slot& slot) {
    VantricCalibration view = *slot.record;
    const std::uint64_t pixels = imagePixels(view);
    require(pixels <= slot.made, "no image is larger than its record");
    const auto limit = [](std::uint8_t& count, std::uint8_t capacity) {
        count = std::min(count, capacity);
    };
    limit(view.idBytesSize, VANTRIC_ID_BYTES);
    limit(view.lensParameterCount, VANTRIC_LENS_PARAMETERS);
    std::array<VantricFrequencyRecord, VANTRIC_FREQUENCIES> frequencies;
    std::copy_n(view.frequencies, frequencies.size(), frequencies.begin());
    for (VantricFrequencyRecord& frequency : frequencies) {
        limit(frequency.countA, VANTRIC_FREQUENCY_VALUES);
        limit(frequency.countB, VANTRIC_FREQUENCY_VALUES);
        limit(frequency.wigglingA.capacity, VANTRIC_WIGGLING_ENTRIES);
        limit(frequency.wigglingB.capacity, VANTRIC_WIGGLING_ENTRIES);
    }
    view.frequencies = frequencies.data();
    view.frequencyCount = VANTRIC_FREQUENCIES;
    const bool psfSized = view.psfWidth != 0xFFFFFFFFU && view.psfHeight != 0xFFFFFFFFU &&
                          std::uint64_t{view.psfWidth} * view.psfHeight <= VANTRIC_MAX_PSF_ELEMENTS;
    if (!psfSized) {
        view.psf = nullptr;
    }
    touchRecord(view, pixels);
}

class Sequence {
  public:
    Sequence(const std::uint8_t* data, std::size_t size) : input_(data, size) {
        vantric_clearCalibrationHandlers();
    }
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;
    ~Sequence() { vantric_clearCalibrationHandlers(); }

    void run() {
        for (int calls = 0; calls < longestSequence && !input_.empty(); ++calls) {
            const unsigned call = input_.between(0, 15);
            Slot& slot = slots_[input_.byte() % slots_.size()];
            if (call == 0) {
                readNew(slot);
            } else if (call == 1) {
                changeHandlers();
            } else if (slot.record != nullptr) {
                callOn(slot, call);
            }
            if (slot.record != nullptr) {
                lookAt(slot);
            }
        }
    }

  private:
    void callOn(Slot& slot, unsigned call) {
        switch (call) {
            case 2:
            case 3:
            case 4:
            case 5:
                readInto(slot, call);
                break;
            case 6:
            case 7:
                calculate(slot);
                break;
            case 8:
                addDirections(slot);
                break;
            case 9:
                addPsf(slot);
                break;
            case 10:
                updateDirections(slot);
                break;
            case 11:
                copy(slot);
                break;
            case 12:
                readCustomFields(slot);
                break;
            case 13:
                everyField(*slot.record, false);
                break;
            case 14:
                ask(slot);
                break;
            default:
                slot = {};
                break;
        }
    }

    void readNew(Slot& slot) {
        Bytes data = hostileBytes(input_);
        const unsigned how = input_.between(0, 2);
        const std::int32_t pixels = vantric_dispatchGetNumPixels(data.data(), data.size());
        VantricCalibration* made = nullptr;
        const std::uint32_t status =
            how == 2 ? vantric_readCalibration(data.data(), data.size(), &made)
                     : vantric_readCalibrationExt(data.data(), data.size(), &made,
                                                  static_cast<std::int32_t>(how));
        require((made != nullptr) == (status == VANTRIC_OK || status == VANTRIC_WARN_PARTIAL),
                "a record comes with success and with a partial read only");
        if (made != nullptr) {
            slot = {Record(made), static_cast<std::uint64_t>(pixels), std::move(data)};
        }
    }

    void readInto(Slot& slot, unsigned how) {
        Bytes data = hostileBytes(input_);
        if (!mayRead(slot, data)) {
            return;
        }
        VantricCalibration* record = slot.record.get();
        if (how == 2) {
            vantric_dispatchReadCalibration(data.data(), data.size(), record);
        } else if (how == 3) {
            vantric_readRXHandlerCalibration(data.data(), data.size(), record);
        } else {
            VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
            if (how == 4) {
                vantric_readRXCalibration(&stream, vantric_createTessalyTable(record, slot.made));
            } else {
                // The mask's hook reads a word for each byte of its place, so a hook around it
                // needs a table for the image itself.
                HostTable table(*record, std::min(slot.made, pixelsOf(data)), input_);
                vantric_readRXCalibration(&stream, table.release());
            }
        }
        slot.source = std::move(data);
    }

    // Another count than the image's is refused.
    void calculate(const Slot& slot) {
        VantricCalibration* record = slot.record.get();
        const auto pixels = static_cast<std::uint32_t>(imagePixels(*record));
        const unsigned how = input_.between(0, 3);
        if (how == 0) {
            vantric_calcRXPsfAndDirections(record, pixels);
        } else if (how == 1) {
            vantric_calcRXPsfAndDirections(record, input_.word());
        } else if (how == 2) {
            vantric_dispatchCalcPsfAndDirections(slot.source.data(), slot.source.size(), record,
                                                 pixels);
        } else {
            vantric_allocateAndCalculatePsf(record);
        }
    }

    void addDirections(const Slot& slot) {
        const std::uint32_t count = input_.byte();
        const std::vector<float> values(count * std::size_t{3}, 0.5F);
        vantric_addDirections(slot.record.get(), values.data(), count);
    }

    void addPsf(const Slot& slot) {
        const std::uint32_t count = input_.byte();
        const std::vector<float> values(count, 0.5F);
        vantric_addPsf(slot.record.get(), values.data(), count);
    }

    static void updateDirections(const Slot& slot) {
        const VantricCalibration& record = *slot.record;
        const std::uint64_t count = imagePixels(record) * 3;
        if (count <= 0x10000) {
            std::vector<float> directions(count);
            vantric_updateDirections(directions.data(), static_cast<std::uint32_t>(count),
                                     record.lensParameters, &record.imagerArea);
        }
    }

    void copy(const Slot& slot) {
        Slot& to = slots_[input_.byte() % slots_.size()];
        if (&to != &slot) {
            to = {Record(vantric_copyCalibration(slot.record.get())), imagePixels(*slot.record),
                  slot.source};
            lookAt(to);
        }
    }

    void readCustomFields(const Slot& slot) {
        const Bytes data = input_.flag() ? slot.source : hostileBytes(input_);
        VantricCalibration* record = slot.record.get();
        vantric_readCustomFields(data.data(), data.size(), record);
        if (record->customFields[0].data != nullptr && input_.flag()) {
            vantric_dispatchReadCustomFields(data.data(), data.size(), record);
        }
    }

    static void ask(const Slot& slot) {
        const Bytes& data = slot.source;
        vantric_dispatchGetNumPixels(data.data(), data.size());
        require(vantric_getCalibrationType(data.data(), data.size()) ==
                    vantric_dispatchGetCalibrationType(data.data(), data.size()),
                "the type is the handler's");
        require(
            vantric_getCalibrationTypeFromHandle(slot.record.get()) == slot.record->calibrationType,
            "the type is the record's");
        vantric_getNumCustomFields(slot.record.get());
    }

    void changeHandlers() {
        if (input_.between(0, 3) == 0) {
            vantric_clearCalibrationHandlers();
        } else {
            vantric_registerCalibrationHandler(&hostHandler(input_.byte()));
        }
    }

    Input input_;
    std::array<Slot, 4> slots_;
};

}  // namespace

void sequences(const std::uint8_t* data, std::size_t size) {
    Sequence(data, size).run();
}

}  // namespace fuzz
