#include <gtest/gtest.h>

#include <functional>

#include "cutter/EEPROMKorvelineReader.h"
#include "cutter/EEPROMv7Reader.h"
#include "fixtures.h"
#include "RecordingLog.h"

using namespace fixtures;

namespace {

const Bytes digits = bytes("123456789");  // CRC-32 0xCBF43926, the published check value

// Written by hand, not by the writer.
const Bytes v7Digits =
    bytes("QOVRIN", 7, 0, 0x26, 0x39, 0xF4, 0xCB, 9, Bytes(3), Bytes(51, 0xEE), digits);
const Bytes korvelineDigits =
    bytes("KORVELINE", 9, 9, 9, 9, 0x47, 0x01, 0x00, Bytes(25, 0xEE), 0, Bytes(10, 0xEE), 0x68,
          0x20, 0, 0, 9, 0, 0x26, 0x39, 0xF4, 0xCB, Bytes(42, 0xEE), digits);

using Names = std::vector<std::string>;

struct Outcome {
    bool refused = false;
    Names errors;
    DataBlock block;
};

template <class Reader>
Outcome nextBlock(const Bytes& image) {
    const TempDir dir;
    writeBytes(dir / "dump", image);
    Reader reader;
    reader.loadFile(dir / "dump");
    recording::takeLines();
    Outcome outcome;
    try {
        outcome.block = reader.getNextDataBlock();
    } catch (bool value) {
        EXPECT_FALSE(value);
        outcome.refused = true;
    }
    outcome.errors = recording::takeErrors();
    return outcome;
}

struct Case {
    const char* name;
    std::size_t offset;
    Bytes values;               ///< put at offset
    const char* message;        ///< null: the block comes out
    std::size_t imageSize = 0;  ///< cut or filled with zeros; 0: as it is
};

template <class Reader>
void check(const Bytes& good, const std::vector<Case>& cases) {
    for (const auto& [name, offset, values, message, imageSize] : cases) {
        SCOPED_TRACE(name);
        Bytes image = patched(good, offset, values);
        image.resize(imageSize == 0 ? image.size() : imageSize);
        const Outcome outcome = nextBlock<Reader>(image);
        ASSERT_EQ(outcome.refused, message != nullptr);
        EXPECT_EQ(outcome.errors, message != nullptr ? Names{message} : Names{});
        if (!outcome.refused) {
            const bool isEmpty = std::string(name).find("empty") == 0;
            EXPECT_EQ(outcome.block.id, 7);
            EXPECT_EQ(outcome.block.data, isEmpty ? Bytes{} : digits);
        }
    }
}

constexpr const char* corrupted = "File is corrupted";
constexpr const char* format = "Invalid file format";
constexpr const char* crc = "CRC32 failed (file)";

// Every shorter prefix, with the message that its length calls for.
template <class Reader>
void checkTruncations(const Bytes& good, std::size_t headerSize) {
    for (std::size_t size = 1; size < good.size(); ++size) {
        const Outcome outcome = nextBlock<Reader>(prefix(good, size));
        ASSERT_TRUE(outcome.refused) << size;
        EXPECT_EQ(outcome.errors, Names{size < headerSize ? corrupted : crc}) << size;
    }
}

// Flips every bit; those in examined must be refused, the rest must change nothing.
template <class Reader>
void checkBitFlips(const Bytes& good, const std::function<bool(std::size_t)>& examined) {
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        const Outcome outcome = nextBlock<Reader>(flipped(good, bit));
        ASSERT_EQ(outcome.refused, examined(bit / 8)) << "byte " << bit / 8;
        EXPECT_TRUE(outcome.refused || outcome.block.data == digits);
    }
}

}  // namespace

TEST(V7Reader, RefusesWithTheMessageOfTheFirstFailingCheck) {
    check<EEPROMv7Reader>(v7Digits,
                          {{"intact", 0, {}, nullptr},
                           {"trailing bytes are ignored", 0, {}, nullptr, 200},
                           {"version 6", 6, {6}, format},
                           {"version 7 in the high byte only", 6, {0, 7}, format},
                           {"short and other magic", 5, {'M'}, corrupted, 66},
                           {"other magic and checksum", 5, {'M', 7, 0, 0x27}, format},
                           {"payload too long, checksum wrong", 8, {0, 0, 0, 0, 10}, crc},
                           {"payload too long, checksum of what is there", 12, {9, 1}, corrupted},
                           {"length of almost 4 GiB", 12, {255, 255, 255, 255}, corrupted},
                           {"empty payload", 8, {0, 0, 0, 0, 0}, nullptr},
                           {"empty, nothing but a header", 8, {0, 0, 0, 0, 0}, nullptr, 67}});
    checkTruncations<EEPROMv7Reader>(v7Digits, 67);
    checkBitFlips<EEPROMv7Reader>(v7Digits,
                                  [](std::size_t byte) { return byte < 16 || byte >= 67; });
}

TEST(KorvelineReader, RefusesWithTheMessageOfTheFirstFailingCheck) {
    check<EEPROMKorvelineReader>(
        korvelineDigits,
        {{"intact", 0, {}, nullptr},
         {"short and other magic", 0, {'X'}, corrupted, 103},
         {"revision 328", 13, {0x48}, format},
         {"revision is 24 bits wide", 15, {1}, format},
         {"other magic", 8, {'X'}, format},
         {"other revision and checksum", 13, Bytes(49, 0x48), format},
         {"wrong checksum and range past the end", 56, {10, 0, 0}, crc},
         {"range past the end", 56, {10}, crc},
         {"address below the image", 52, {255, 0x1F}, crc},
         {"address far outside", 52, {255, 255, 255, 255}, crc},
         {"payload inside the header", 52, {0x00, 0x20}, crc},
         {"empty", 56, {0, 0, 0, 0, 0, 0}, nullptr},
         {"empty, below the image", 52, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, nullptr},
         {"empty, at the end", 52, {0x71, 0x20, 0, 0, 0, 0, 0, 0, 0, 0}, nullptr},
         {"nothing past the end", 52, {0x72, 0x20, 0, 0, 0, 0, 0, 0, 0, 0}, corrupted},
         {"nothing, stored checksum not 0", 56, {0, 0}, crc}});
    checkTruncations<EEPROMKorvelineReader>(korvelineDigits, 104);
    checkBitFlips<EEPROMKorvelineReader>(korvelineDigits, [](std::size_t byte) {
        return byte < 9 || (byte >= 13 && byte < 16) || (byte >= 52 && byte < 62) || byte >= 104;
    });
    for (int type = 0; type < 256; ++type) {  // at another address than right behind the header
        const Bytes image = korvelineImage(digits, static_cast<std::uint8_t>(type), 0x2100);
        const DataBlock block = nextBlock<EEPROMKorvelineReader>(image).block;
        EXPECT_EQ(block.id, type == 22 || type == 28 ? 37 : 7);
        EXPECT_EQ(block.data, digits);
    }
}

template <class Reader>
class AnyReader : public testing::Test {};
using Readers = testing::Types<EEPROMv7Reader, EEPROMKorvelineReader>;
TYPED_TEST_SUITE(AnyReader, Readers);

TYPED_TEST(AnyReader, IteratesResetsAndReleases) {
    const TempDir dir;
    const bool isV7 = std::is_same_v<TypeParam, EEPROMv7Reader>;
    writeBytes(dir / "dump", isV7 ? v7Digits : korvelineDigits);
    TypeParam reader;
    EXPECT_THROW(reader.getNextDataBlock(), bool);  // nothing loaded
    reader.loadFile(dir / "dump");
    EXPECT_EQ(reader.getNextDataBlock().data, digits);
    EXPECT_THROW(reader.getNextDataBlock(), bool);  // the cursor has moved behind the record
    reader.resetIterator();
    EXPECT_EQ(reader.getNextDataBlock().data, digits);

    // Two records behind each other. The second Korveline one needs room for a header and has none
    // of its own: its numbers are those of the first, counted from the cursor.
    writeBytes(dir / "two",
               isV7 ? bytes(v7Digits, v7Digits) : bytes(korvelineDigits, Bytes(104, 0xEE), digits));
    reader.loadFile(dir / "two");
    EXPECT_EQ(reader.getNextDataBlock().data, digits);
    EXPECT_EQ(reader.getNextDataBlock().data, digits);
    EXPECT_THROW(reader.getNextDataBlock(), bool);

    recording::takeLines();
    EXPECT_THROW(reader.getDataBlock(7), bool);
    EXPECT_THROW(reader.hasMoreBlocks(), bool);
    EXPECT_TRUE(recording::takeLines().empty());

    reader.releaseMemory();
    reader.resetIterator();
    EXPECT_THROW(reader.getNextDataBlock(), bool);
    EXPECT_EQ(recording::takeErrors(), std::vector<std::string>{corrupted});
    reader.loadFile(dir / "dump");
    EXPECT_EQ(reader.getNextDataBlock().data, digits);
}

TYPED_TEST(AnyReader, EndsTheProcessWithoutADump) {
    const TempDir dir;
    writeBytes(dir / "empty", {});
    for (const std::string& path : {dir / "missing", dir / "empty", dir.path(), std::string()}) {
        EXPECT_DEATH(
            {
                // Shows the line that was composed before the end.
                std::set_terminate([] {
                    for (const std::string& line : recording::takeErrors()) {
                        std::fprintf(stderr, "%s\n", line.c_str());
                    }
                    std::abort();
                });
                TypeParam().loadFile(path);
            },
            "Could not read EEPROM file")
            << path;
    }
}
