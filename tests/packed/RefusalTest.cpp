// What a read says of a calibration that it refuses: status, block, cause, place and numbers.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "Blocks.h"
#include "calibration/calibration.h"
#include "calibration/packed/Block.h"
#include "calibration/packed/Handler.h"

using namespace fixtures;
using namespace vantric;

namespace {

// Offsets in the minimal calibration, the size of its blocks and of the end marker.
enum At : std::uint64_t {
    block0 = 11,
    block1 = 15,
    block2 = 54,
    block3 = 62,
    behind3 = 81,  // blocks 4 to 16
    block21 = 145,
    endMarker = 183
};

struct Case {
    const char* name;
    Bytes data;
    std::uint32_t status;
    std::uint32_t block;
    Refusal refusal = {};  // its status is the one above
};

class Notes final : public WalkObserver {
  public:
    void block(const BlockSighting& /*block*/) override {}
    void endMarker(std::uint64_t /*offset*/) override {}
    void refused(const Refusal& refusal, std::uint32_t blockId) override {
        ++refusals;
        told = refusal;
        blamed = blockId;
    }

    int refusals = 0;
    Refusal told;
    std::uint32_t blamed = 0;
};

void expectCase(const Case& item) {
    SCOPED_TRACE(item.name);
    const auto& [name, data, status, block, expected] = item;
    Notes notes;
    const PackedRead read = readPacked(data.data(), data.size(), Wanted::everything, &notes);
    EXPECT_EQ(read.result.status, status) << std::hex << read.result.status;
    EXPECT_EQ(read.result.failedBlockId, block);
    EXPECT_EQ(readPlain(data) != nullptr, status == ok);
    ASSERT_EQ(notes.refusals, status == ok ? 0 : 1);
    if (status != ok) {
        const Refusal& told = notes.told;
        EXPECT_EQ(told.status, status);
        EXPECT_EQ(notes.blamed, block);
        EXPECT_EQ(told.cause, expected.cause) << static_cast<int>(told.cause);
        EXPECT_EQ(told.offset, expected.offset);
        EXPECT_EQ(told.expected, expected.expected);
        EXPECT_EQ(told.found, expected.found);
        EXPECT_EQ(told.alsoExpected, expected.alsoExpected);
    }
}

Refusal because(Cause cause, std::uint64_t offset, std::uint64_t expected = 0,
                std::uint64_t found = 0) {
    return {0, cause, offset, expected, found, expected};
}

const Bytes header = bytes("QOVRXF", 1, 0, 4, 0, 1);

}  // namespace

TEST(Refusal, NamesStatusBlockCausePlaceAndNumbers) {
    using enum Cause;
    const Bytes five = customBlocks({128, 129, 130, 131, 132});
    const Bytes huge = {249, 255, 255, 255, 255};  // count of 2^32 - 1
    const Bytes dateOfTwoWords = {4, 2, 2, 0, 0, 0, 1, 0, 0, 0, 1};
    const Bytes swapped = bytes(2, 5, 4, 1, 0, 0, 0, 7, floatBlock(1, 9));
    const Bytes fixedPoint = {64, 0, 0, 0, 64, 0, 0, 0};
    const Bytes text16 = bytes(5, 0, 16, std::string(16, 't'));
    const Bytes text17 = bytes(5, 0, 17, std::string(17, 't'));
    const Refusal wrongKindOf3 = {0, wrongKind, block3 + 1, 4, 0, 6};
    const std::vector<Case> cases = {
        {"other magic", bytes("QOVRXG", 1, 0, 4, 0, 1), notSupported, 255, because(wrongMagic, 0)},
        {"version 2", patched(minimalPacked(), 6, {2}), notSupported, 255,
         because(wrongVersion, 6, 1, 2)},
        {"header cut short", prefix(header, 10), notSupported, 255,
         because(headerCutShort, 0, 11, 10)},
        {"no end marker", header, endOfData, 255, because(blockHeaderCutShort, 11, 1, 0)},
        {"id and kind alone", bytes(header, 1, 0), endOfData, 255,
         because(blockHeaderCutShort, 12, 3, 1)},
        {"long count cut short", bytes(header, 1, 0, 249, 0, 1), endOfData, 255,
         because(blockHeaderCutShort, 14, 4, 2)},
        {"offset cut short", bytes(header, 3, 6, 0, 12, 64, 0, 0, 0, 64), endOfData, 255,
         because(blockHeaderCutShort, 15, 8, 5)},
        {"nothing but the end marker", bytes(header, 255), fieldEmpty, 0,
         because(missingBlock, 11)},
        {"kind above 6", withBlock(0, {0, 7, 1, 5}), invalidData, 255,
         because(unknownKind, block0 + 1, 6, 7)},
        {"kind that the entry does not take", withBlock(0, {0, 1, 1, 5, 5}), invalidData, 0,
         because(wrongKind, block0 + 1, 0, 1)},
        {"neither of two kinds", withBlock(3, {3, 0, 4, 1, 2, 3, 4}), invalidData, 3, wrongKindOf3},
        {"kind wrong and count too small", withBlock(1, {1, 0, 1, 5}), countTooSmall, 1,
         because(tooFewElements, block1 + 2, 9, 1)},
        {"kind wrong for a copied block", withBlock(2, floatBlock(2, 1)), invalidData, 2,
         because(wrongKind, block2 + 1, 5, 4)},
        {"eight lens parameters", withBlock(1, floatBlock(1, 8)), countTooSmall, 1,
         because(tooFewElements, block1 + 2, 9, 8)},
        {"ten lens parameters", withBlock(1, floatBlock(1, 10)), tooSmall, 1,
         because(tooLarge, block1 + 2, 36, 40)},
        {"five mask values", withBlock(2, {2, 5, 5, 1, 0, 0, 0, 0}), tooSmall, 2,
         because(tooLarge, block2 + 2, 16, 20)},
        {"three mask values", withBlock(2, {2, 5, 3, 1, 0, 0, 0, 7}), ok, 255},
        {"mask of 0 bits", withBlock(2, {2, 5, 4, 0, 0, 0, 0, 7}), invalidData, 2,
         because(wrongBits, block2 + 3, 31, 0)},
        {"mask of 100 bits", withBlock(2, {2, 5, 4, 100, 0, 0, 0, 7}), tooSmall, 2,
         because(tooLargeToUnpack, block2 + 2, 32, 52 + 16)},
        {"pixel values of 32 bits", withBlock(3, bytes(3, 6, 0, 32, fixedPoint, Bytes(16))),
         invalidData, 3, because(wrongBits, block3 + 3, 31, 32)},
        {"pixel values of 255 bits", withBlock(3, bytes(3, 6, 0, 255, fixedPoint, Bytes(16))),
         tooSmall, 3, because(tooLargeToUnpack, block3 + 2, 48, 128 + 16)},
        {"three pixel values", withBlock(3, floatBlock(3, 3)), countTooSmall, 3,
         because(tooFewElements, block3 + 2, 4, 3)},
        {"count of 2^31 is negative", withBlock(3, {3, 4, 249, 0x80, 0, 0, 0}), countTooSmall, 3,
         because(tooFewElements, block3 + 2, 4, 0x80000000U)},
        {"count of 2^32 - 1 without a minimum", withBlock(4, bytes(4, 2, huge)), tooSmall, 4,
         because(tooLarge, behind3 + 2, 16, 4 * 0xFFFFFFFFULL)},
        {"and of a frequency", withBlock(16, bytes(16, 2, huge)), tooSmall, 16,
         because(tooLarge, behind3 + 2, 4, 4 * 0xFFFFFFFFULL)},
        {"date of two words", withBlock(4, dateOfTwoWords), invalidData, 4,
         because(wrongContent, behind3 + 2, 64, 8)},
        {"text longer than the scratch", withBlock(5, text17), tooSmall, 5,
         because(tooLarge, behind3 + 2, 16, 17)},
        {"text", withBlock(5, text16), ok, 255},
        {"one id code", withBlock(8, {8, 1, 1, 0, 1}), countTooSmall, 8,
         because(tooFewElements, behind3 + 2, 2, 1)},
        {"unset id code", withBlock(8, {8, 1, 2, 255, 255, 0, 1}), fixtures::valueUnset, 8,
         because(Cause::valueUnset, endMarker + 7)},
        {"straylight on four pixels", withBlock(9, floatBlock(9, 32)), tooSmall, 9,
         because(tooLarge, behind3 + 2, 16, 128)},
        {"three wiggling words", withBlock(21, floatBlock(21, 3)), invalidData, 21,
         because(wrongContent, block21 + 2, 40, 12)},
        {"payload cut short", bytes(header, 0, 0, 1, 5, 1, 4, 9, 0x40), endOfData, 1,
         because(payloadCutShort, 18, 36, 1)},
        {"ids descend", withBlock(1, swapped), invalidData, 1,
         because(idsNotAscending, block1 + 8, 2, 1)},
        {"id twice", withBlock(0, {0, 0, 1, 5, 0, 0, 1, 5}), invalidData, 0,
         because(idsNotAscending, block0 + 4, 0, 0)},
        {"unknown id: its header alone is read", withBlock(10, {10, 0, 9}), ok, 255},
        {"its payload is taken for a header", withBlock(10, {10, 0, 1, 5}), invalidData, 255,
         because(unknownKind, behind3 + 4, 6, 16)},
        {"five custom blocks", withBlock(128, customBlocks({128, 130, 140, 200, 254})), ok, 255},
        {"a sixth", withBlock(128, bytes(five, 200, 0, 1, 1)), tooSmall, 200,
         because(tooManyCustomBlocks, endMarker + 25, 5, 6)},
        {"custom block cut short", withBlock(128, {128, 2, 9, 1}), endOfData, 128,
         because(payloadCutShort, endMarker + 3, 36, 2)},
        {"cut sixth: too many first", withBlock(128, bytes(five, 200, 2, 9, 1)), tooSmall, 200,
         because(tooManyCustomBlocks, endMarker + 25, 5, 6)},
        {"required block missing", withBlock(17, {}), fieldEmpty, 17,
         because(missingBlock, endMarker - 19)},
        {"frequency without its first block", withBlock(24, floatBlock(24, 4)), fieldEmpty, 24,
         because(withoutFrequency, endMarker + 19, 23, 24)},
    };
    for (const Case& item : cases) {
        expectCase(item);
        const Record record(allocateCalibration(4));
        const RXReadResult result = readInto(item.data, *record);
        EXPECT_EQ(result.status, item.status) << item.name;
        EXPECT_EQ(result.failedBlockId, item.block) << item.name;
    }
}

TEST(Refusal, OfWhatNoBlockIsToBlameFor) {
    calcut::writer::Calibration large = smallCalibration();
    large.straylight->psfWidth = 8192;
    large.straylight->psfHeight = 8193;
    expectCase({"no columns", bytes("QOVRXF", 1, 0, 0, 0, 1, 255), invalidData, 255,
                because(Cause::noPixels, 7, 1, 0)});
    constexpr std::uint32_t most = 65535U * 65535U;
    expectCase({"more pixels than a count has", bytes("QOVRXF", 1, 255, 255, 255, 255, 255), most,
                255, because(Cause::tooManyPixels, 7, 0x7FFFFFFF, most)});
    Notes notes;
    const Bytes packed = calcut::writer::packCalibration(large);
    const PackedRead read = readPacked(packed.data(), packed.size(), Wanted::everything, &notes);
    EXPECT_EQ(read.result.status, tooSmall);
    EXPECT_EQ(notes.told.cause, Cause::psfTooLarge);
    EXPECT_EQ(notes.blamed, 9U);
    EXPECT_EQ(notes.told.expected, 67108864U);
    EXPECT_EQ(notes.told.found, 67117056U);
}
