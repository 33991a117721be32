#include "fixtures.h"

#include <regex.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fixtures {

namespace writer = calcut::writer;
namespace fs = std::filesystem;

TempDir::TempDir(const std::filesystem::path& in) {
    std::string name = (in / "calcut-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary directory");
    }
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempDir::names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void writeBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

Bytes readBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

void waitUntilAtRest(int process) {
    const fs::path threads = "/proc/" + std::to_string(process) + "/task";
    const auto sleeps = [](const fs::path& thread) {
        std::ifstream file(thread / "stat");
        std::string stat;
        std::getline(file, stat);
        // "12 (name) S ..."; the name may hold anything.
        const std::size_t name = stat.rfind(')');
        return name != std::string::npos && stat.compare(name, 3, ") S") == 0;
    };
    constexpr int mostLooks = 12000;
    for (int look = 0; look < mostLooks; ++look) {
        std::error_code gone;
        if (std::all_of(fs::directory_iterator(threads, gone), {}, sleeps)) {
            return;
        }
        ::usleep(5000);
    }
}

Record read(const Bytes& calibration, std::uint32_t* status, int withPsf) {
    VantricCalibration* record = nullptr;
    const std::uint32_t result =
        vantric_readCalibrationExt(calibration.data(), calibration.size(), &record, withPsf);
    if (status != nullptr) {
        *status = result;
    }
    return Record(record);
}

writer::Calibration smallCalibration() {
    return writer::makeCalibration({.columns = 8, .rows = 4, .frequencies = 2, .custom = 2});
}

Bytes smallPacked() {
    return writer::packCalibration(smallCalibration());
}

Bytes minimalPacked() {
    const auto floats = [](int id, int count) {
        Bytes block = bytes(id, 4, count);
        for (int i = 0; i < count; ++i) {
            block = bytes(block, 0x40, 0, 0, 0);  // 1.0
        }
        return block;
    };
    return bytes("QOVRXF", 1, 0, 4, 0, 1,    //
                 0, 0, 1, 5,                 // auxFlag 5
                 floats(1, 9),               // lens
                 2, 5, 0, 1, 0, 0, 0, 0x0D,  // mask 1, 0, 1, 1
                 floats(3, 4),               // pixelValues
                 16, 2, 1, 0, 0, 0, 80,      // frequency 80
                 floats(17, 4), floats(18, 4), floats(19, 4), floats(21, 4), floats(22, 4), 255);
}

Bytes prefix(const Bytes& bytes, std::size_t size) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

Bytes flipped(Bytes bytes, std::size_t bit) {
    bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] ^ (1U << (bit % 8)));
    return bytes;
}

Bytes patched(Bytes bytes, std::size_t offset, const Bytes& with) {
    std::copy(with.begin(), with.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    return bytes;
}

// Bit by bit, so that no test trusts the library's own sum.
std::uint32_t crc32(const Bytes& bytes) {
    std::uint32_t sum = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
        sum ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            sum = (sum >> 1) ^ ((sum & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~sum;
}

void putLittle32(Bytes& image, std::size_t offset, std::uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) {
        image[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

Bytes v7Image(Bytes payload) {
    Bytes image = bytes("QOVRIN", 7, 0, Bytes(59, 0xA5));
    putLittle32(image, 8, crc32(payload));
    putLittle32(image, 12, static_cast<std::uint32_t>(payload.size()));
    return bytes(image, payload);
}

Bytes korvelineImage(Bytes payload, std::uint8_t type, std::uint32_t address) {
    Bytes image = bytes("KORVELINE", 1, 2, 3, 4, 0x47, 1, 0, Bytes(25, 0x5A), type, Bytes(14, 0x5A),
                        payload.size(), payload.size() >> 8, Bytes(46, 0x5A));
    putLittle32(image, 52, address);
    putLittle32(image, 58, crc32(payload));
    image.resize(std::max<std::size_t>(image.size(), address - 0x2000), 0);
    return bytes(image, payload);
}

std::optional<std::string> firstMatch(const std::string& text, const std::string& pattern) {
    regex_t compiled;
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) != 0) {
        throw std::invalid_argument(pattern);
    }
    std::array<regmatch_t, 2> groups{};
    const bool found = regexec(&compiled, text.c_str(), groups.size(), groups.data(), 0) == 0;
    regfree(&compiled);
    const regmatch_t& group = groups[groups[1].rm_so >= 0 ? 1 : 0];
    return found ? std::optional(text.substr(static_cast<std::size_t>(group.rm_so),
                                             static_cast<std::size_t>(group.rm_eo - group.rm_so)))
                 : std::nullopt;
}

}  // namespace fixtures
