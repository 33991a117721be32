// The differences of two modules as one picture.
#include <fmt/format.h>
#include <algorithm>
#include <cmath>

#include "tools/module/Tables.h"
#include "tools/plot/Panels.h"

namespace calcut::plot {

namespace {

/// Draws one channel of B - A. Equal values give 0 whatever they are, so what is not finite here is
/// so on one side only.
void drawDifference(const Cell& cell, const module::Table& a, const module::Table& b,
                    unsigned channel) {
    std::vector<float> values;
    std::vector<std::size_t> differing;
    std::vector<float> sizes;
    for (std::size_t at = channel; at < a.size(); at += a.channels) {
        const bool equal = !module::differs(a[at], b[at], 0.0);
        const float difference = equal ? 0.0F : b[at] - a[at];
        if (!equal) {
            differing.push_back(values.size());
        }
        if (!equal && std::isfinite(difference)) {
            sizes.push_back(std::abs(difference));
        }
        values.push_back(difference);
    }
    const bool ringed = !differing.empty() && differing.size() <= mostRings;
    // Of the differing values alone: a few among many equal ones must keep their colour. The widest
    // thousandth is left to the arrows, unless each of them gets a ring anyway.
    const double reach = sizes.empty() ? 0.0 : quantile(sizes, ringed ? 1.0 : 0.999);
    const std::string name = module::channelName(a, channel);
    FrameParts parts =
        imageParts(a.title + (name.empty() ? "" : ", ") + name, {0, 0, a.columns, a.rows});
    parts.note = differing.empty()
                     ? "equal"
                     : fmt::format("{} of {} values differ", differing.size(), values.size());
    if (ringed) {
        parts.legend = {{Mark::Ring, inkColour, "different"}};
    }
    const ColourBar bar{{scaleAround(-reach, reach), "B - A"}, ColourMap::Diverging};
    drawMap(cell, std::move(parts), bar, {values}).ring(differing);
}

/// b: null where A's table stands alone.
void drawIncomparable(const Cell& cell, const module::Table& a, const module::Table* b) {
    const std::string why = b == nullptr ? "missing on one side"
                                         : fmt::format("A has {} x {}, B {} x {}", a.columns,
                                                       a.rows, b->columns, b->rows);
    drawText(cell.page, {cell.x + 24.0, cell.y + 24.0}, a.title, {.bold = true});
    drawText(cell.page, {cell.x + 24.0, cell.y + 44.0}, why, {});
}

}  // namespace

std::vector<std::uint8_t> drawDifferences(const module::Diagnosis& a, const module::Diagnosis& b,
                                          const std::string& output) {
    const std::vector<module::Table> ofA = module::tablesOf(a);
    const std::vector<module::Table> ofB = module::tablesOf(b);
    std::vector<Panel> panels;
    const auto add = [&panels](const module::Table& table, const module::Table* other) {
        const bool comparable = other != nullptr && module::sameShape(table, *other);
        for (unsigned channel = 0; channel < (comparable ? table.channels : 1); ++channel) {
            panels.emplace_back([=, &table](const Cell& cell) {
                comparable ? drawDifference(cell, table, *other, channel)
                           : drawIncomparable(cell, table, other);
            });
        }
    };
    for (const module::Table& table : ofA) {
        add(table, module::tableNamed(ofB, table.name));
    }
    for (const module::Table& table : ofB) {
        if (module::tableNamed(ofA, table.name) == nullptr) {
            add(table, nullptr);
        }
    }
    return drawPage(panels, output);
}

}  // namespace calcut::plot
