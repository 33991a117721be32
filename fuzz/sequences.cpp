// Calls of the calibration interface in any order, over records that live on: every call inside its
// contract, the bytes hostile. After each call a host reads all that its record holds.
#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "HostFormats.h"
#include "HostileBytes.h"
#include "HostTable.h"
#include "Input.h"
#include "Reading.h"
#include "Shortage.h"
#include "targets.h"

namespace fuzz {

namespace {

constexpr std::uint16_t packedType = 3;
constexpr int longestSequence = 32;

struct Slot {
    Record record;
    std::uint64_t made = 0;  // pixels for which the record was made
    Bytes source;            // from which it was read last
};

// A packed read looks itself whether the image fits into a record that was read before. All other
// records are the caller's duty.
bool mayRead(const Slot& slot, const Bytes& data) {
    return pixelsOf(data) <= slot.made ||
           (slot.record->calibrationType == packedType && !isHostData(data));
}

class Sequence {
  public:
    enum class Memory : std::uint8_t { plenty, short_ };

    Sequence(Input input, Memory memory) : input_(input), memory_(memory) {
        vantric_clearCalibrationHandlers();
    }
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;
    ~Sequence() { vantric_clearCalibrationHandlers(); }

    void run() {
        constexpr std::array<void (Sequence::*)(Slot&), 17> calls = {
            &Sequence::readNew,          &Sequence::changeHandlers,
            &Sequence::readDispatched,   &Sequence::readByHandler,
            &Sequence::readByOwnTable,   &Sequence::readByHostTable,
            &Sequence::calculate,        &Sequence::calculatePsf,
            &Sequence::addDirections,    &Sequence::addPsf,
            &Sequence::updateDirections, &Sequence::copy,
            &Sequence::readCustomFields, &Sequence::askFields,
            &Sequence::askTypes,         &Sequence::drop,
            &Sequence::resizePsf};
        constexpr unsigned withoutRecord = 2;  // calls that need none
        readNewFrom(slots_.front(), goodCalibration(input_.byte()));
        for (int done = 0; done < longestSequence && !input_.empty(); ++done) {
            const unsigned call = input_.between(0, calls.size() - 1);
            Slot& slot = slots_[input_.byte() % slots_.size()];
            if (call < withoutRecord || slot.record != nullptr) {
                const std::uint8_t lack = memory_ == Memory::short_ ? input_.byte() : 0;
                const Shortage shortage(lack & 0x7FU, (lack & 0x80U) != 0);
                (this->*calls[call])(slot);
            }
            if (slot.record != nullptr) {
                lookAt(slot);
            }
        }
    }

  private:
    static void lookAt(const Slot& slot) {
        require(imagePixels(*slot.record) <= slot.made, "no image is larger than its record");
        touchLiveRecord(*slot.record);
    }

    void readNew(Slot& slot) { readNewFrom(slot, hostileBytes(input_)); }

    void readNewFrom(Slot& slot, Bytes data) {
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

    void changeHandlers(Slot& /*slot*/) {
        if (input_.between(0, 3) == 0) {
            vantric_clearCalibrationHandlers();
        } else {
            vantric_registerCalibrationHandler(&hostHandler(input_.byte()));
        }
    }

    template <class Read>
    void readInto(Slot& slot, Read read) {
        Bytes data = hostileBytes(input_);
        if (mayRead(slot, data)) {
            read(data);
            slot.source = std::move(data);
        }
    }

    void readDispatched(Slot& slot) {
        readInto(slot, [&](const Bytes& data) {
            vantric_dispatchReadCalibration(data.data(), data.size(), slot.record.get());
        });
    }

    void readByHandler(Slot& slot) {
        readInto(slot, [&](const Bytes& data) {
            vantric_readRXHandlerCalibration(data.data(), data.size(), slot.record.get());
        });
    }

    static void readByTable(const Bytes& data, RXBlockTable* table) {
        VantricStream stream = vantric_createStreamFromData(data.data(), data.size());
        const RXReadResult result = vantric_readRXCalibration(&stream, table);
        require(result.status != VANTRIC_OK || result.failedBlockId == VANTRIC_RX_END_MARKER,
                "no block is to blame for a success");
    }

    void readByOwnTable(Slot& slot) {
        readInto(slot, [&](const Bytes& data) {
            readByTable(data, vantric_createTessalyTable(slot.record.get(), slot.made));
        });
    }

    void readByHostTable(Slot& slot) {
        readInto(slot, [&](const Bytes& data) {
            // The mask's function reads a word for each byte of its place, so a function around it
            // needs a table for the image itself.
            HostTable table(*slot.record, std::min(slot.made, pixelsOf(data)), input_);
            readByTable(data, table.release());
        });
    }

    // Another count than the image's is refused.
    void calculate(Slot& slot) {
        VantricCalibration* record = slot.record.get();
        const auto pixels = static_cast<std::uint32_t>(imagePixels(*record));
        const unsigned how = input_.between(0, 2);
        if (how == 0) {
            vantric_calcRXPsfAndDirections(record, pixels);
        } else if (how == 1) {
            vantric_calcRXPsfAndDirections(record, input_.word());
        } else {
            vantric_dispatchCalcPsfAndDirections(slot.source.data(), slot.source.size(), record,
                                                 pixels);
        }
    }

    void calculatePsf(Slot& slot) { vantric_allocateAndCalculatePsf(slot.record.get()); }

    void addDirections(Slot& slot) {
        const std::uint32_t count = input_.byte();
        const std::vector<float> values(count * std::size_t{3}, 0.5F);
        vantric_addDirections(slot.record.get(), values.data(), count);
    }

    void addPsf(Slot& slot) {
        const std::uint32_t count = input_.byte();
        const std::vector<float> values(count, 0.5F);
        vantric_addPsf(slot.record.get(), values.data(), count);
    }

    // A host may set the size as long as there is no PSF that goes by it.
    void resizePsf(Slot& slot) {
        if (slot.record->psf == nullptr) {
            slot.record->psfWidth = input_.flag() ? input_.word() : input_.byte();
            slot.record->psfHeight = input_.flag() ? input_.word() : input_.byte();
        }
    }

    void updateDirections(Slot& slot) {
        const VantricCalibration& record = *slot.record;
        const std::uint64_t count = imagePixels(record) * 3;
        if (count <= 0x10000 && record.lensParameters != nullptr) {
            std::vector<float> directions(count);
            vantric_updateDirections(directions.data(), static_cast<std::uint32_t>(count),
                                     record.lensParameters, &record.imagerArea);
        }
    }

    void copy(Slot& slot) {
        Slot& to = slots_[input_.byte() % slots_.size()];
        if (&to != &slot) {
            to = {Record(vantric_copyCalibration(slot.record.get())), imagePixels(*slot.record),
                  slot.source};
            lookAt(to);
        }
    }

    void readCustomFields(Slot& slot) {
        const Bytes data = input_.flag() ? slot.source : hostileBytes(input_);
        VantricCalibration* record = slot.record.get();
        vantric_readCustomFields(data.data(), data.size(), record);
        if (record->customFields[0].data != nullptr && input_.flag()) {
            vantric_dispatchReadCustomFields(data.data(), data.size(), record);
        }
    }

    void askFields(Slot& slot) { everyField(*slot.record, false); }

    void askTypes(Slot& slot) {
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

    void drop(Slot& slot) { slot = {}; }

    Input input_;
    Memory memory_;
    std::array<Slot, 4> slots_;
};

}  // namespace

void sequences(const std::uint8_t* data, std::size_t size) {
    Sequence(Input(data, size), Sequence::Memory::plenty).run();
}

void exhaustion(const std::uint8_t* data, std::size_t size) {
    Sequence(Input(data, size), Sequence::Memory::short_).run();
}

}  // namespace fuzz
