// What can have happened to an image whose checksum does not match.
#include <algorithm>
#include <bit>
#include <limits>

#include <fmt/format.h>

#include "tools/module/Diagnosis.h"

namespace calcut::module {

namespace {

constexpr unsigned widestBurst = 8;
constexpr std::uint64_t checksums = std::uint64_t{1} << 32;

/// Bursts of at most that width in so many bits.
constexpr std::uint64_t burstsIn(std::uint64_t bits, unsigned width) {
    return bits << (width - 1);
}

std::string explanation(const FlippedBits& flipped, std::uint64_t offset, const char* where) {
    const std::uint64_t byte = offset + flipped.firstBit / 8;
    const std::string bits =
        flipped.width == 1
            ? fmt::format("one flipped bit{} explains it, bit {} of byte {} ({:#x})", where,
                          flipped.firstBit % 8, byte, byte)
            : fmt::format("flipped bits{} explain it, within {} from bit {} of byte {} ({:#x}) on",
                          where, flipped.width, flipped.firstBit % 8, byte, byte);
    return fmt::format("; {}, by chance once in {}", bits, flipped.oneIn);
}

/// Flipped bits of the stored checksum, which is little-endian.
FlippedBits inChecksum(std::uint32_t difference) {
    const auto first = static_cast<unsigned>(std::countr_zero(difference));
    const auto width = static_cast<unsigned>(std::bit_width(difference)) - first;
    return {first, width, checksums / burstsIn(32, width)};
}

/// Whether each second one of the pieces of that size repeats the one before it.
bool repeatsItself(files::ByteView file, std::size_t size) {
    for (std::size_t at = 0; at + 2 * size <= file.size(); at += 2 * size) {
        if (!std::ranges::equal(file.subspan(at, size), file.subspan(at + size, size))) {
            return false;
        }
    }
    return 2 * size <= file.size();
}

/// The longest run of one of these bytes.
files::ByteView longestRun(files::ByteView bytes, std::uint8_t value) {
    files::ByteView longest;
    for (auto at = bytes.begin(); at != bytes.end();) {
        const auto begin = std::find(at, bytes.end(), value);
        at = std::find_if(begin, bytes.end(), [value](std::uint8_t byte) { return byte != value; });
        if (static_cast<std::size_t>(at - begin) > longest.size()) {
            longest = {begin, at};
        }
    }
    return longest;
}

/// The longest run of 0x00 or 0xFF in the payload, but for the mask, which has such runs by nature.
files::ByteView longestBlank(const Diagnosis& about) {
    std::size_t maskBegin = about.payload.size();
    std::size_t maskEnd = maskBegin;
    for (const vantric::BlockSighting& block : about.blocks) {
        if (block.header.id == RX_BLOCK_MASK) {
            maskBegin = std::min<std::uint64_t>(maskEnd, block.payloadOffset - about.payloadOffset);
            maskEnd = std::min<std::uint64_t>(maskEnd, maskBegin + block.payloadSize);
            break;
        }
    }
    files::ByteView longest;
    for (const files::ByteView part :
         {about.payload.first(maskBegin), about.payload.subspan(maskEnd)}) {
        for (const std::uint8_t value : {std::uint8_t{0x00}, std::uint8_t{0xFF}}) {
            const files::ByteView run = longestRun(part, value);
            longest = run.size() > longest.size() ? run : longest;
        }
    }
    return longest;
}

}  // namespace

std::optional<FlippedBits> findFlippedBits(std::uint32_t difference, std::uint64_t bytes) {
    constexpr std::uint32_t polynomial = 0xEDB88320;
    constexpr std::uint64_t mostBursts = checksums / 64;
    constexpr std::uint32_t belowBurst = std::numeric_limits<std::uint32_t>::max() >> widestBurst;
    // A checksum is the remainder of the data as a polynomial, x^0 in the highest bit, so the
    // difference is that of the flipped bits alone. Divided by x for each bit behind them, it
    // becomes these bits themselves.
    const auto divideByX = [](std::uint32_t value) {
        return value >> 31 != 0 ? (value ^ polynomial) << 1 | 1U : value << 1;
    };
    for (unsigned i = 0; i < 32; ++i) {
        difference = divideByX(difference);
    }
    const std::uint64_t bits = bytes <= mostBursts ? 8 * bytes : 0;
    unsigned widest = widestBurst;
    while (widest > 0 && burstsIn(bits, widest) > mostBursts) {
        --widest;
    }
    std::optional<FlippedBits> found;
    for (std::uint64_t last = widest > 0 ? bits : 0; last-- > 0;
         difference = divideByX(difference)) {
        if ((difference & belowBurst) != 0 || difference >> 31 == 0) {
            continue;
        }
        const auto width = 32 - static_cast<unsigned>(std::countr_zero(difference));
        if (width <= widest && width <= last + 1 && (!found || width < found->width)) {
            found = {last + 1 - width, width, checksums / burstsIn(bits, width)};
        }
    }
    return found;
}

std::string explainChecksum(const Diagnosis& about) {
    constexpr std::size_t leastPiece = 128;
    constexpr std::size_t leastRun = 256;
    for (std::size_t size = leastPiece; size <= about.file.size() / 2; size *= 2) {
        if (repeatsItself(about.file, size)) {
            return fmt::format(
                "; each second piece of {0} bytes repeats the one before it, from byte {0} on, as "
                "with a stuck address line",
                size);
        }
    }
    const files::ByteView payload = image::payloadOf(about.file, about.image);
    const std::uint32_t difference = *about.image.computedCrc ^ about.image.storedCrc;
    const FlippedBits stored = inChecksum(difference);
    const auto flipped = findFlippedBits(difference, payload.size());
    if (stored.width <= widestBurst && (!flipped || stored.oneIn >= flipped->oneIn)) {
        return explanation(stored, about.image.refusal->offset, " of the stored checksum");
    }
    if (flipped) {
        return explanation(*flipped, about.payloadOffset, "");
    }
    const files::ByteView run = longestBlank(about);
    return run.size() < leastRun
               ? std::string()
               : fmt::format(
                     "; a blank page is inside the payload, {} bytes of {:#04x} from byte {} on",
                     run.size(), run[0], run.data() - about.file.data());
}

}  // namespace calcut::module
