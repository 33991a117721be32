// Every allocation that a use of the library makes is refused once, each time in a new process.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

#include "calcut/cutter.h"
#include "Child.h"
#include "Faults.h"
#include "fixtures.h"

using namespace fixtures;
using namespace reliability;

namespace {

using Sizes = std::multiset<std::size_t>;

// Uses the library in refusal.in(...); returns what went wrong, or nothing.
using Scenario = std::function<std::string(const Refusal& refusal)>;

// Refuses each allocation in turn. The sizes of those that may end the process are documented, each
// as often as it is listed; every other refusal must end in a result that the scenario accepts,
// without a leak. Only blocks of the size outliving may be left.
void refuseEach(const Sizes& documentedAborts, const Scenario& scenario,
                std::size_t outliving = 0) {
    void* shared = ::mmap(nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* failedSize = static_cast<std::size_t*>(shared);
    Sizes aborts;
    std::uint64_t n = 0;
    do {
        *failedSize = 0;
        ++n;
        const Outcome outcome = inChild([&] {
            const std::string message = scenario({n, failedSize});
            const std::size_t leaked = liveBlocksExcept(outliving);
            return message.empty() && leaked != 0 ? std::to_string(leaked) + " leaked" : message;
        });
        if (outcome.aborted() && *failedSize != 0) {
            aborts.insert(*failedSize);
        } else {
            EXPECT_TRUE(outcome.wentWell())
                << "allocation " << n << " of " << *failedSize << " bytes: " << outcome.text();
        }
    } while (*failedSize != 0);
    EXPECT_EQ(aborts, documentedAborts);
    std::printf("%zu allocations refused, %zu aborts\n", static_cast<std::size_t>(n - 1),
                aborts.size());
    ::munmap(shared, sizeof(std::size_t));
}

// 45 pixels: no per-pixel buffer has the size of one of the fixed ones.
constexpr std::size_t pixels = 45;

Bytes packed() {
    return calcut::writer::packCalibration(
        calcut::writer::makeCalibration({.columns = 9, .rows = 5, .frequencies = 2, .custom = 3}));
}

const Sizes recordParts = {
    sizeof(VantricCalibration), VANTRIC_TEXT_BYTES,
    VANTRIC_TEXT_BYTES,         VANTRIC_TEXT_BYTES,
    VANTRIC_ID_BYTES,           VANTRIC_CUSTOM_FIELDS * sizeof(VantricCustomField)};
const Sizes curveParts = {sizeof(VantricPoly), 14 * sizeof(float)};

Sizes with(Sizes sizes, const Sizes& more) {
    sizes.insert(more.begin(), more.end());
    return sizes;
}

// A cut makes a record and the table, a whole read the curve through 14 profile points too.
const Sizes cutParts = with(recordParts, {sizeof(RXBlockTable)});
const Sizes readParts = with(cutParts, curveParts);

std::string refuseUnless(bool good, std::uint32_t status) {
    return good ? "" : "wrong with status " + std::to_string(status);
}

bool isOkOrTooSmall(std::uint32_t status) {
    return status == ok || status == tooSmall;
}

TEST(MemoryExhaustion, Read) {
    const Bytes data = packed();
    refuseEach(readParts, [&](const Refusal& refusal) {
        VantricCalibration* record = nullptr;
        std::uint32_t status = 0;
        refusal.in([&] { status = vantric_readCalibration(data.data(), data.size(), &record); });
        const Record owner(record);
        return refuseUnless(isOkOrTooSmall(status) && (record != nullptr) == (status == ok),
                            status);
    });
}

TEST(MemoryExhaustion, CustomFieldPass) {
    const Bytes data = packed();
    refuseEach({}, [&](const Refusal& refusal) {
        const Record record = fixtures::read(data);
        std::uint32_t status = 0;
        refusal.in([&] {
            status = vantric_readCustomFields(data.data(), data.size(), record.get());
            // Once more: also after a pass that found no memory for the first field.
            vantric_readCustomFields(data.data(), data.size(), record.get());
        });
        std::uint8_t value[260];
        for (std::uint32_t id = 0; id < 256; ++id) {
            vantric_getField(id, record.get(), value);
        }
        return refuseUnless(isOkOrTooSmall(status), status);
    });
}

// Each part is missing or has the content of the other record.
bool sameParts(const VantricCalibration& a, const VantricCalibration& b) {
    std::vector<std::tuple<const void*, const void*, std::size_t>> parts = {
        {a.directions, b.directions, pixels * 12},
        {a.pixelMask, b.pixelMask, pixels},
        {a.pixelValues, b.pixelValues, pixels * 4},
        {a.lensParameters, b.lensParameters, 36}};
    for (std::size_t k = 0; a.frequencies != nullptr && k < 2; ++k) {
        parts.emplace_back(a.frequencies[k].pixelTable, b.frequencies[k].pixelTable, pixels * 4);
    }
    for (std::size_t k = 0; k < 3; ++k) {
        const VantricCustomField& field = b.customFields[k];
        parts.emplace_back(a.customFields[k].data, field.data, field.size);
    }
    return std::all_of(parts.begin(), parts.end(), [](const auto& part) {
        const auto& [one, other, size] = part;
        return one == nullptr || other == nullptr || std::memcmp(one, other, size) == 0;
    });
}

TEST(MemoryExhaustion, Copy) {
    const Bytes data = packed();
    const Record record = fixtures::read(data);
    ASSERT_EQ(vantric_readCustomFields(data.data(), data.size(), record.get()), ok);
    refuseEach(recordParts, [&](const Refusal& refusal) {
        Record copy;
        refusal.in([&] { copy.reset(vantric_copyCalibration(record.get())); });
        const bool same = sameParts(*copy, *record);
        // A copy without its first custom field may read them anew, and what it has does not leak.
        const bool whole = copy->customFields[0].data != nullptr;
        const std::uint32_t status = vantric_readCustomFields(data.data(), data.size(), copy.get());
        return refuseUnless(same && status == (whole ? VANTRIC_ERR_INVALID_ARGUMENT : ok), status);
    });
}

TEST(MemoryExhaustion, Cuts) {
    using Names = std::vector<std::string>;
    const std::tuple<int, Bytes, Names> cases[] = {
        {CALCUT_LAYOUT_V7, v7Image(packed()), {"lensdata.dat", "qov.spc"}},
        {CALCUT_LAYOUT_KORVELINE,
         calcut::writer::makeKorvelineImage(packed(), {.signature = Bytes(64, 1)}),
         {"lensdata.dat", "qov.spc", "signature.bin"}}};
    for (const auto& [layout, image, names] : cases) {
        const TempDir whole;
        const TempDir in;
        const std::string dump = in / "dump";
        writeBytes(dump, image);
        ASSERT_EQ(cutEEPROMContent(layout, dump.c_str(), whole.path().c_str(), nullptr), 0);
        ASSERT_EQ(whole.names(), names);
        const auto scenario = [&, layout = layout,
                               names = names](const Refusal& refusal) -> std::string {
            const TempDir out;
            const std::string path = out.path();
            EEPROMMetaInformation meta;
            std::memset(&meta, 0xA5, sizeof meta);
            int result = -1;
            refusal.in(
                [&] { result = cutEEPROMContent(layout, dump.c_str(), path.c_str(), &meta); });
            for (const std::string& name : names) {
                if (result == 0 && readBytes(out / name) != readBytes(whole / name)) {
                    return name + " is not what the result 0 says";
                }
            }
            // Wholly overwritten or wholly untouched.
            const bool untouched = meta.zeroMaskCount == 0xA5A5;
            const bool good = std::all_of(std::begin(meta.reserved), std::end(meta.reserved),
                                          [&](int byte) { return byte == (untouched ? 0xA5 : 0); });
            return good && (result == 1 || (result == 0 && !untouched))
                       ? ""
                       : "result " + std::to_string(result);
        };
        refuseEach(cutParts, scenario, sizeof(EEPROMMetaInformation));
    }
}

TEST(MemoryExhaustion, LensFile) {
    const TempDir directory;
    const std::string path = directory / "lensdata.dat";
    writeBytes(path, Bytes(36));
    refuseEach({}, [&](const Refusal& refusal) {
        std::vector<float> parameters(CALCUT_LENS_PARAMETER_COUNT, 7.0F);
        const std::vector<float> before = parameters;
        int result = -1;
        refusal.in([&] { result = readLensParameters(0, path.c_str(), parameters.data()); });
        return parameters == (result == 0 ? std::vector<float>(before.size()) : before)
                   ? ""
                   : "result " + std::to_string(result) + " with other parameters";
    });
}

TEST(MemoryExhaustion, AddedParts) {
    const Bytes data = packed();
    const std::vector<float> values(3 * pixels);
    refuseEach({}, [&](const Refusal& refusal) {
        const Record record = readPlain(data);
        std::uint32_t directions = 0;
        std::uint32_t psf = 0;
        refusal.in([&] {
            directions = vantric_addDirections(record.get(), values.data(), pixels);
            psf = vantric_addPsf(record.get(), values.data(), pixels);
        });
        return refuseUnless((directions == ok) == (record->directions != nullptr) &&
                                (psf == ok) == (record->psf != nullptr) &&
                                isOkOrTooSmall(directions) && isOkOrTooSmall(psf),
                            directions | psf);
    });
}

TEST(MemoryExhaustion, PsfLeavesTheRecordAlone) {
    const Bytes data = packed();
    refuseEach(curveParts, [&](const Refusal& refusal) {
        const Record record = readPlain(data);
        const VantricCalibration before = *record;
        std::uint32_t status = 0;
        refusal.in([&] { status = vantric_allocateAndCalculatePsf(record.get()); });
        const bool unchanged = record->psf == nullptr &&
                               record->straylightPointCount == before.straylightPointCount &&
                               record->straylightRadius[0] == before.straylightRadius[0] &&
                               record->straylightValue[0] == before.straylightValue[0];
        return refuseUnless(*refusal.failedSize != 0 ? status == tooSmall && unchanged
                                                     : status == ok && record->psf != nullptr,
                            status);
    });
}

TEST(MemoryExhaustion, Curve) {
    const std::vector<float> nodes = {0.0F, 1.0F, 2.0F, 4.0F, 8.0F};
    refuseEach({sizeof(VantricPoly), 5 * sizeof(float)}, [&](const Refusal& refusal) {
        vantric::PolyOwner curve;
        refusal.in([&] { curve.reset(vantric_createPolyHandle(nodes.data(), nodes.data(), 5)); });
        const float value = vantric_cinterpol(curve.get(), 2.0F);
        const float fallback = vantric_cinterpol_def(curve.get(), 2.0F, 5.0F);
        curve.reset();
        const bool good =
            *refusal.failedSize == 0 ? value == 2.0F : std::isnan(value) && fallback == 5.0F;
        return good ? "" : "value " + std::to_string(value);
    });
}

TEST(MemoryExhaustion, Tables) {
    refuseEach({sizeof(RXBlockTable)}, [](const Refusal& refusal) {
        const RXBlockExpectation expectation = {1, 0, 0, 0, ok};
        std::uint32_t status = 0;
        refusal.in([&] {
            const vantric::TableOwner table(vantric_createTable(2, sizeof expectation));
            status = vantric_addRXTableEntry(1, nullptr, 0, nullptr, -1, nullptr, &expectation,
                                             table.get());
        });
        return refuseUnless(isOkOrTooSmall(status) || status == invalidArgument, status);
    });
}

TEST(MemoryExhaustion, Trace) {
    const std::string start(40, 'p');
    refuseEach({start.size() + 2 + 3}, [&](const Refusal& refusal) {
        refusal.in([&] { vantric_printfTrace(start.c_str(), "%d", 1); });
        return "";
    });
}

}  // namespace
