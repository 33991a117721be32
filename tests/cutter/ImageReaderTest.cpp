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
Bytes v7Digits() {
    Bytes image = bytes("QOVRIN", 7, 0, 0x26, 0x39, 0xF4, 0xCB, 9, 0, 0, 0);
    image.resize(67, 0xEE);
    image.insert(image.end(), digits.begin(), digits.end());
    return image;
}

Bytes korvelineDigits() {
    Bytes image = bytes("KORVELINE", 9, 9, 9, 9, 0x47, 0x01, 0x00);
    image.resize(104, 0xEE);
    const Bytes fields = {0x68, 0x20, 0, 0, 9, 0, 0x26, 0x39, 0xF4, 0xCB};
    std::copy(fields.begin(), fields.end(), image.begin() + 52);
    image[41] = 0;
    image.insert(image.end(), digits.begin(), digits.end());
    return image;
}

struct Outcome {
    bool refused = false;
    std::vector<std::string> errors;
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

using Change = std::function<void(Bytes&)>;

struct Case {
    const char* name;
    Change change;
    const char* message;  ///< null: the block comes out
    int id = 7;
    std::size_t size = 9;
};

template <class Reader>
void check(const Bytes& good, const std::vector<Case>& cases) {
    for (const Case& item : cases) {
        SCOPED_TRACE(item.name);
        Bytes image = good;
        item.change(image);
        const Outcome outcome = nextBlock<Reader>(image);
        ASSERT_EQ(outcome.refused, item.message != nullptr);
        if (outcome.refused) {
            EXPECT_EQ(outcome.errors, std::vector<std::string>{item.message});
        } else {
            EXPECT_TRUE(outcome.errors.empty());
            EXPECT_EQ(outcome.block.id, item.id);
            EXPECT_EQ(
                outcome.block.data,
                Bytes(digits.begin(), digits.begin() + static_cast<std::ptrdiff_t>(item.size)));
        }
    }
}

Change put(std::size_t offset, std::initializer_list<int> values) {
    const std::vector<int> copy = values;
    return [=](Bytes& image) {
        for (std::size_t i = 0; i < copy.size(); ++i) {
            image[offset + i] = static_cast<std::uint8_t>(copy[i]);
        }
    };
}

Change resize(std::size_t size) {
    return [=](Bytes& image) { image.resize(size, 0); };
}

Change both(const Change& a, const Change& b) {
    return [=](Bytes& image) {
        a(image);
        b(image);
    };
}

constexpr const char* corrupted = "File is corrupted";
constexpr const char* format = "Invalid file format";
constexpr const char* crc = "CRC32 failed (file)";

// Every shorter prefix, with the message that its length calls for.
template <class Reader>
void checkTruncations(const Bytes& good, std::size_t headerSize) {
    for (std::size_t size = 1; size < good.size(); ++size) {
        Bytes image = good;
        image.resize(size);
        const Outcome outcome = nextBlock<Reader>(image);
        ASSERT_TRUE(outcome.refused) << size;
        EXPECT_EQ(outcome.errors, std::vector<std::string>{size < headerSize ? corrupted : crc})
            << size;
    }
}

// Flips every bit; those in examined must be refused, the rest must change nothing.
template <class Reader>
void checkBitFlips(const Bytes& good, const std::function<bool(std::size_t)>& examined) {
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        Bytes image = good;
        image[bit / 8] = static_cast<std::uint8_t>(image[bit / 8] ^ (1U << (bit % 8)));
        const Outcome outcome = nextBlock<Reader>(image);
        ASSERT_EQ(outcome.refused, examined(bit / 8)) << "byte " << bit / 8;
        if (!outcome.refused) {
            EXPECT_EQ(outcome.block.data, digits);
        }
    }
}

}  // namespace

TEST(V7Reader, RefusesWithTheMessageOfTheFirstFailingCheck) {
    check<EEPROMv7Reader>(
        v7Digits(),
        {
            {"intact", [](Bytes&) {}, nullptr},
            {"trailing bytes are ignored", resize(200), nullptr},
            {"one byte short of a header", resize(66), corrupted},
            {"version 6", put(6, {6}), format},
            {"version 7 in the high byte only", put(6, {0, 7}), format},
            {"other magic", put(5, {'M'}), format},
            {"stored checksum", put(8, {0x27}), crc},
            {"payload too long and checksum wrong", both(put(8, {0x27}), put(12, {10})), crc},
            {"payload too long, checksum of what is present", put(12, {9, 1}), corrupted},
            {"length of almost 4 GiB", put(12, {0xFF, 0xFF, 0xFF, 0xFF}), corrupted},
            {"empty payload", put(8, {0, 0, 0, 0, 0}), nullptr, 7, 0},
            {"nothing but a header", both(put(8, {0, 0, 0, 0, 0}), resize(67)), nullptr, 7, 0},
            {"unexamined bytes", put(16, {1, 2, 3, 4}), nullptr},
            {"last unexamined byte", put(66, {0}), nullptr},
        });
}

TEST(KorvelineReader, RefusesWithTheMessageOfTheFirstFailingCheck) {
    check<EEPROMKorvelineReader>(
        korvelineDigits(),
        {
            {"intact", [](Bytes&) {}, nullptr},
            {"one byte short of a header", both(put(0, {'X'}), resize(103)), corrupted},
            {"revision 328", put(13, {0x48}), format},
            {"revision is 24 bits wide", put(15, {1}), format},
            {"other magic", put(8, {'X'}), format},
            {"stored checksum", put(61, {0xCC}), crc},
            {"wrong checksum and range past the end", both(put(61, {0xCC}), put(56, {10})), crc},
            {"range past the end", put(56, {10}), crc},
            {"address below the image", put(52, {0xFF, 0x1F}), crc},
            {"address far outside", put(52, {0xFF, 0xFF, 0xFF, 0xFF}), crc},
            {"payload inside the header", put(52, {0x00, 0x20}), crc},
            {"empty payload", put(56, {0, 0, 0, 0, 0, 0}), nullptr, 7, 0},
            {"empty payload below the image", put(52, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), nullptr, 7,
             0},
            {"empty payload at the end", put(52, {0x71, 0x20, 0, 0, 0, 0, 0, 0, 0, 0}), nullptr, 7,
             0},
            {"empty payload past the end", put(52, {0x72, 0x20, 0, 0, 0, 0, 0, 0, 0, 0}),
             corrupted},
            {"empty payload, stored checksum not 0", put(56, {0, 0}), crc},
            {"payload elsewhere",
             [](Bytes& image) {
                 image[52] = 0x00;
                 image[53] = 0x21;
                 image.insert(image.begin() + 104, 0x100 - 104, 0);
             },
             nullptr},
        });
    for (int type = 0; type < 256; ++type) {
        Bytes image = korvelineDigits();
        image[41] = static_cast<std::uint8_t>(type);
        EXPECT_EQ(nextBlock<EEPROMKorvelineReader>(image).block.id,
                  type == 22 || type == 28 ? 37 : 7);
    }
}

TEST(V7Reader, NamesEveryTruncation) {
    checkTruncations<EEPROMv7Reader>(v7Digits(), 67);
}

TEST(KorvelineReader, NamesEveryTruncation) {
    checkTruncations<EEPROMKorvelineReader>(korvelineDigits(), 104);
}

TEST(V7Reader, NoticesEveryFlippedBitThatCounts) {
    checkBitFlips<EEPROMv7Reader>(v7Digits(),
                                  [](std::size_t byte) { return byte < 16 || byte >= 67; });
}

TEST(KorvelineReader, NoticesEveryFlippedBitThatCounts) {
    checkBitFlips<EEPROMKorvelineReader>(korvelineDigits(), [](std::size_t byte) {
        return byte < 9 || (byte >= 13 && byte < 16) || (byte >= 52 && byte < 62) || byte >= 104;
    });
}

template <class Reader>
class AnyReader : public testing::Test {};
using Readers = testing::Types<EEPROMv7Reader, EEPROMKorvelineReader>;
TYPED_TEST_SUITE(AnyReader, Readers);

TYPED_TEST(AnyReader, IteratesResetsAndReleases) {
    const TempDir dir;
    const bool isV7 = std::is_same_v<TypeParam, EEPROMv7Reader>;
    writeBytes(dir / "dump", isV7 ? v7Digits() : korvelineDigits());
    TypeParam reader;
    EXPECT_THROW(reader.getNextDataBlock(), bool);  // nothing loaded
    reader.loadFile(dir / "dump");
    EXPECT_EQ(reader.getNextDataBlock().data, digits);
    EXPECT_THROW(reader.getNextDataBlock(), bool);  // the cursor has moved behind the record
    reader.resetIterator();
    EXPECT_EQ(reader.getNextDataBlock().data, digits);

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
