// Every allocation that a use of the library makes is refused once, each time in a new process.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <set>

#include "calcut/cutter.h"
#include "calcut/vantric.h"
#include "calcut/vantric_rx.h"
#include "Child.h"
#include "Faults.h"
#include "fixtures.h"

using namespace reliability;
using fixtures::Bytes;
using fixtures::Record;

namespace {

constexpr std::size_t metaSize = sizeof(EEPROMMetaInformation);

// Arms inside of which the library is called; returns what went wrong, or nothing.
using Scenario = std::function<std::string(Tally& tally, std::uint64_t failAt)>;

class SharedTally {
  public:
    SharedTally()
        : tally_(static_cast<Tally*>(::mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    SharedTally(const SharedTally&) = delete;
    SharedTally& operator=(const SharedTally&) = delete;
    ~SharedTally() { ::munmap(tally_, sizeof(Tally)); }
    Tally& operator*() const { return *tally_; }

  private:
    Tally* tally_;
};

// Refuses each allocation in turn. The sizes of those that may end the process are documented, each
// as often as it is listed; every other refusal must end in a result that the scenario accepts,
// without a leak.
void refuseEach(const Scenario& scenario, const std::multiset<std::size_t>& documentedAborts) {
    const SharedTally tally;
    std::multiset<std::size_t> aborts;
    std::uint64_t refusals = 0;
    for (std::uint64_t n = 1;; ++n) {
        const Outcome outcome = inChild([&] { return scenario(*tally, n); });
        if ((*tally).failedSize == 0) {
            EXPECT_TRUE(outcome.wentWell()) << outcome.message;
            break;
        }
        ++refusals;
        if (outcome.aborted()) {
            aborts.insert((*tally).failedSize);
        } else {
            EXPECT_TRUE(outcome.wentWell())
                << "allocation " << n << " of " << (*tally).failedSize << " bytes: signal "
                << outcome.signal << ", exit code " << outcome.exitCode << ", " << outcome.message;
        }
    }
    EXPECT_EQ(aborts, documentedAborts);
    EXPECT_GE(refusals, documentedAborts.size());
    std::printf("%llu allocations refused, %zu aborts\n", static_cast<unsigned long long>(refusals),
                aborts.size());
}

// 45 pixels: no per-pixel buffer has the size of one of the fixed ones.
calcut::writer::Calibration content() {
    calcut::writer::CalibrationOptions options;
    options.columns = 9;
    options.rows = 5;
    options.frequencies = 2;
    options.custom = 3;
    return calcut::writer::makeCalibration(options);
}

Bytes packed() {
    return calcut::writer::packCalibration(content());
}

const std::multiset<std::size_t> recordParts = {
    sizeof(VantricCalibration), VANTRIC_TEXT_BYTES,
    VANTRIC_TEXT_BYTES,         VANTRIC_TEXT_BYTES,
    VANTRIC_ID_BYTES,           VANTRIC_CUSTOM_FIELDS * sizeof(VantricCustomField)};

std::multiset<std::size_t> with(std::multiset<std::size_t> sizes,
                                std::initializer_list<std::size_t> more) {
    sizes.insert(more);
    return sizes;
}

// A read makes a record, the table, and the curve through 14 profile points.
const std::multiset<std::size_t> readParts =
    with(recordParts, {sizeof(RXBlockTable), sizeof(VantricPoly), 14 * sizeof(float)});

std::string leakText() {
    const std::size_t leaked = liveBlocks();
    return leaked == 0 ? "" : std::to_string(leaked) + " blocks leaked";
}

bool isOkOrTooSmall(std::uint32_t status) {
    return status == VANTRIC_OK || status == VANTRIC_ERR_BUFFER_TOO_SMALL;
}

// Each part is missing or has the content of the other record.
bool samePart(const void* a, const void* b, std::size_t size) {
    return a == nullptr || b == nullptr || std::memcmp(a, b, size) == 0;
}

TEST(MemoryExhaustion, Read) {
    const Bytes data = packed();
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            VantricCalibration* record = nullptr;
            std::uint32_t status = 0;
            {
                const Armed armed(tally, failAt);
                status = vantric_readCalibration(data.data(), data.size(), &record);
            }
            const bool handedOut = record != nullptr;
            vantric_freeCalibration(record);
            if (!isOkOrTooSmall(status) || handedOut != (status == VANTRIC_OK)) {
                return "status " + std::to_string(status);
            }
            return leakText();
        },
        readParts);
}

TEST(MemoryExhaustion, CustomFieldPass) {
    const Bytes data = packed();
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            Record record = fixtures::read(data);
            std::uint32_t status = 0;
            {
                const Armed armed(tally, failAt);
                status = vantric_readCustomFields(data.data(), data.size(), record.get());
                // Once more: also after a pass that found no memory for the first field.
                vantric_readCustomFields(data.data(), data.size(), record.get());
            }
            std::uint8_t value[260];
            for (std::uint32_t id = 0; id < 256; ++id) {
                vantric_getField(id, record.get(), value);
            }
            record.reset();
            return isOkOrTooSmall(status) ? leakText() : "status " + std::to_string(status);
        },
        {});
}

TEST(MemoryExhaustion, Copy) {
    const Bytes data = packed();
    const Record record = fixtures::read(data);
    ASSERT_EQ(vantric_readCustomFields(data.data(), data.size(), record.get()), VANTRIC_OK);
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            Record copy;
            {
                const Armed armed(tally, failAt);
                copy.reset(vantric_copyCalibration(record.get()));
            }
            constexpr std::size_t pixels = 45;
            bool same = samePart(copy->directions, record->directions, pixels * 12) &&
                        samePart(copy->pixelMask, record->pixelMask, pixels) &&
                        samePart(copy->pixelValues, record->pixelValues, pixels * 4) &&
                        samePart(copy->lensParameters, record->lensParameters, 36);
            for (int k = 0; copy->frequencies != nullptr && k < 2; ++k) {
                same = same && samePart(copy->frequencies[k].pixelTable,
                                        record->frequencies[k].pixelTable, pixels * 4);
            }
            for (int k = 0; k < 3; ++k) {
                same = same && samePart(copy->customFields[k].data, record->customFields[k].data,
                                        record->customFields[k].size);
            }
            copy.reset();
            return same ? leakText() : "the copy differs";
        },
        recordParts);
}

void refuseEachInCut(int layout, const Bytes& image, const std::vector<std::string>& names) {
    const fixtures::TempDir directory;
    const std::string dump = directory / "dump";
    fixtures::writeBytes(dump, image);
    const fixtures::TempDir whole;
    ASSERT_EQ(cutEEPROMContent(layout, dump.c_str(), whole.path().c_str(), nullptr), 0);
    ASSERT_EQ(whole.names(), names);
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            const fixtures::TempDir out;
            const std::string path = out.path();
            EEPROMMetaInformation meta = {};
            int result = -1;
            {
                const Armed armed(tally, failAt);
                result = cutEEPROMContent(layout, dump.c_str(), path.c_str(), &meta);
            }
            // Only the meta information record outlives a cut.
            if (const std::size_t leaked = liveBlocksExcept(metaSize); leaked != 0) {
                return std::to_string(leaked) + " blocks leaked";
            }
            if (result == 1) {
                return "";
            }
            for (const std::string& name : names) {
                if (fixtures::readBytes(out / name) != fixtures::readBytes(whole / name)) {
                    return name + " is not what the result 0 says";
                }
            }
            return result == 0 ? "" : "result " + std::to_string(result);
        },
        readParts);
}

TEST(MemoryExhaustion, CutV7) {
    refuseEachInCut(CALCUT_LAYOUT_V7, fixtures::v7Image(packed()), {"lensdata.dat", "qov.spc"});
}

TEST(MemoryExhaustion, CutKorveline) {
    calcut::writer::KorvelineOptions options;
    options.signature = Bytes(64, 1);
    refuseEachInCut(CALCUT_LAYOUT_KORVELINE, calcut::writer::makeKorvelineImage(packed(), options),
                    {"lensdata.dat", "qov.spc", "signature.bin"});
}

TEST(MemoryExhaustion, LensFile) {
    const fixtures::TempDir directory;
    const std::string path = directory / "lensdata.dat";
    fixtures::writeBytes(path, Bytes(36));
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            float parameters[CALCUT_LENS_PARAMETER_COUNT];
            std::fill(std::begin(parameters), std::end(parameters), 7.0F);
            int result = -1;
            {
                const Armed armed(tally, failAt);
                result = readLensParameters(0, path.c_str(), parameters);
            }
            const float expected = result == 0 ? 0.0F : 7.0F;
            for (const float parameter : parameters) {
                if (parameter != expected) {
                    return "result " + std::to_string(result) + " with other parameters";
                }
            }
            return leakText();
        },
        {});
}

TEST(MemoryExhaustion, AddedParts) {
    const Bytes data = packed();
    const std::vector<float> values(std::size_t{3} * 45);
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            Record record = fixtures::readPlain(data);
            std::uint32_t directions = 0;
            std::uint32_t psf = 0;
            {
                const Armed armed(tally, failAt);
                directions = vantric_addDirections(record.get(), values.data(), 45);
                psf = vantric_addPsf(record.get(), values.data(), 45);
            }
            const bool asSaid = (directions == VANTRIC_OK) == (record->directions != nullptr) &&
                                (psf == VANTRIC_OK) == (record->psf != nullptr) &&
                                isOkOrTooSmall(directions) && isOkOrTooSmall(psf);
            record.reset();
            return asSaid ? leakText() : "status " + std::to_string(directions | psf);
        },
        {});
}

TEST(MemoryExhaustion, PsfLeavesTheRecordAlone) {
    const Bytes data = packed();
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            Record record = fixtures::readPlain(data);
            const VantricCalibration before = *record;
            std::uint32_t status = 0;
            {
                const Armed armed(tally, failAt);
                status = vantric_allocateAndCalculatePsf(record.get());
            }
            const bool unchanged = record->psf == nullptr &&
                                   record->straylightPointCount == before.straylightPointCount &&
                                   record->straylightRadius[0] == before.straylightRadius[0] &&
                                   record->straylightValue[0] == before.straylightValue[0];
            if (status == VANTRIC_ERR_BUFFER_TOO_SMALL
                    ? !unchanged
                    : status != VANTRIC_OK || record->psf == nullptr) {
                return "status " + std::to_string(status);
            }
            record.reset();
            return leakText();
        },
        {sizeof(VantricPoly), 14 * sizeof(float)});
}

TEST(MemoryExhaustion, Curve) {
    const std::vector<float> nodes = {0.0F, 1.0F, 2.0F, 4.0F, 8.0F};
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            VantricPoly* curve = nullptr;
            {
                const Armed armed(tally, failAt);
                curve = vantric_createPolyHandle(nodes.data(), nodes.data(), 5);
            }
            const float value = vantric_cinterpol(curve, 2.0F);
            const float fallback = vantric_cinterpol_def(curve, 2.0F, 5.0F);
            vantric_freePoly(curve);
            const bool complete = tally.failedSize == 0;
            if (complete ? value != 2.0F : !std::isnan(value) || fallback != 5.0F) {
                return "value " + std::to_string(value);
            }
            return leakText();
        },
        {sizeof(VantricPoly), 5 * sizeof(float)});
}

TEST(MemoryExhaustion, Tables) {
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            const RXBlockExpectation expectation = {1, 0, 0, 0, VANTRIC_OK};
            std::uint32_t status = 0;
            {
                const Armed armed(tally, failAt);
                RXBlockTable* table = vantric_createTable(2, sizeof expectation);
                status = vantric_addRXTableEntry(1, nullptr, 0, nullptr, -1, nullptr, &expectation,
                                                 table);
                vantric_freeRXTable(table);
            }
            if (!isOkOrTooSmall(status) && status != VANTRIC_ERR_INVALID_ARGUMENT) {
                return "status " + std::to_string(status);
            }
            return leakText();
        },
        {sizeof(RXBlockTable)});
}

TEST(MemoryExhaustion, Trace) {
    const std::string prefix(40, 'p');
    refuseEach(
        [&](Tally& tally, std::uint64_t failAt) -> std::string {
            {
                const Armed armed(tally, failAt);
                vantric_printfTrace(prefix.c_str(), "%d", 1);
            }
            return leakText();
        },
        {prefix.size() + 2 + 3});
}

}  // namespace
