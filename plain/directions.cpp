#include <cmath>

#include "plain/plain.h"

namespace calcut::plain {

void updateDirections(float* directions, const float* lens, std::uint32_t columns,
                      std::uint32_t rows) {
    const float ifx = 1.0F / lens[0];
    const float ify = 1.0F / lens[1];
    const float cx = lens[2];
    const float cy = lens[3];
    const float k1 = lens[4];
    const float k2 = lens[5];
    const float p1 = lens[6];
    const float p2 = lens[7];
    const float k3 = lens[8];
    for (std::uint32_t v = 0; v < rows; ++v) {
        for (std::uint32_t u = 0; u < columns; ++u) {
            const float x0 = ifx * (static_cast<float>(u) - cx);
            const float y0 = ify * (static_cast<float>(v) - cy);
            float x = x0;
            float y = y0;
            float r2 = x0 * x0 + y0 * y0;
            for (int round = 0; round < 15; ++round) {
                const float q = 1.0F / (1.0F + r2 * (k1 + r2 * (k2 + k3 * r2)));
                const float dx = 2.0F * p1 * x * y + p2 * (r2 + 2.0F * (x * x));
                const float dy = 2.0F * p2 * x * y + p1 * (r2 + 2.0F * (y * y));
                x = (x0 - dx) * q;
                y = (y0 - dy) * q;
                r2 = x * x + y * y;
            }
            const float m = std::sqrt(r2 + 1.0F);
            float* direction = directions + (std::size_t{v} * columns + u) * 3;
            direction[0] = x / m;
            direction[1] = y / m;
            direction[2] = std::sqrt(1.0F - ((x / m) * (x / m) + (y / m) * (y / m)));
        }
    }
}

}  // namespace calcut::plain
