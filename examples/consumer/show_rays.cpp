// Reads a packed calibration and prints the ray of its middle pixel: show_rays CALIBRATION
#include <calcut/status.h>
#include <calcut/vantric.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

int main(int argc, char** argv) {
    std::ifstream file(argc == 2 ? argv[1] : "", std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    VantricCalibration* record = nullptr;
    const std::uint32_t status = vantric_readCalibration(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), &record);
    const std::unique_ptr<VantricCalibration, void (*)(VantricCalibration*)> owner(
        record, vantric_freeCalibration);
    if (status != VANTRIC_OK) {
        std::fprintf(stderr, "no calibration: %s\n", vantric_statusName(status));
        return 1;
    }
    const VantricImagerArea& area = record->imagerArea;
    const float* ray = record->directions + 3 * (area.rows / 2 * area.columns + area.columns / 2);
    std::printf("%ux%u, middle ray %g %g %g\n", static_cast<unsigned>(area.columns),
                static_cast<unsigned>(area.rows), static_cast<double>(ray[0]),
                static_cast<double>(ray[1]), static_cast<double>(ray[2]));
    return 0;
}
