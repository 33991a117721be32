#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <optional>

#include "tools/compare/TableDifference.h"
#include "tools/plot/MapPanel.h"
#include "tools/plot/Panels.h"

namespace calcut::tools {

namespace {

/// One channel of B - A. Equal values give 0 whatever they are, so what is not finite here is so on
/// one side only.
struct DifferenceMap {
    std::string title;
    std::uint32_t columns = 0;
    std::uint32_t rows = 0;
    std::vector<float> values;
    std::vector<std::size_t> differing;
};

DifferenceMap differenceMap(const Table& a, const Table& b, unsigned channel) {
    const char* name = channelName(a, channel);
    DifferenceMap map{
        a.title + (*name == '\0' ? "" : std::string(", ") + name), a.columns, a.rows, {}, {}};
    for (std::size_t at = channel; at < a.size(); at += a.channels) {
        const bool equal = !differs(a[at], b[at], 0.0);
        if (!equal) {
            map.differing.push_back(map.values.size());
        }
        map.values.push_back(equal ? 0.0F : b[at] - a[at]);
    }
    return map;
}

/// Of the differing values alone: a few among many equal ones must keep their colour. The widest
/// thousandth is left to the arrows, unless each of them gets a ring anyway.
Scale scaleOf(const DifferenceMap& map, bool ringed) {
    std::vector<float> sizes;
    for (const std::size_t at : map.differing) {
        if (std::isfinite(map.values[at])) {
            sizes.push_back(std::abs(map.values[at]));
        }
    }
    constexpr double robust = 0.999;
    const double reach = sizes.empty() ? 0.0 : quantile(sizes, ringed ? 1.0 : robust);
    return scaleAround(-reach, reach);
}

void drawDifference(Canvas& canvas, const Rect& cell, const DifferenceMap& source) {
    const bool ringed = !source.differing.empty() && source.differing.size() <= mostRings;
    Map map;
    map.title = source.title;
    map.note =
        source.differing.empty()
            ? "equal"
            : fmt::format("{} of {} values differ", source.differing.size(), source.values.size());
    map.colourLabel = "B - A";
    map.shape.columns = source.columns;
    map.shape.rows = source.rows;
    map.values = {source.values, {}};
    map.colours = ColourMap::Diverging;
    map.scale = scaleOf(source, ringed);
    std::optional<LegendEntry> entry;
    if (ringed) {
        entry = {Mark::Ring, inkColour, "different"};
    }
    const Frame frame = drawMap(canvas, cell, map, entry);
    if (ringed) {
        ringPixels(frame, source.columns, source.differing, mostRings);
    }
}

void drawIncomparable(Canvas& canvas, const Rect& cell, const Table& a, const Table* b) {
    constexpr double margin = 24.0;
    constexpr double line = 20.0;
    const std::string why = b == nullptr ? "missing on one side"
                                         : fmt::format("A has {} x {}, B {} x {}", a.columns,
                                                       a.rows, b->columns, b->rows);
    FontStyle style;
    style.bold = true;
    canvas.text({cell.x + margin, cell.y + margin}, a.title, style);
    canvas.text({cell.x + margin, cell.y + margin + line}, why, {});
}

}  // namespace

std::vector<std::uint8_t> drawDifferences(const Diagnosis& a, const Diagnosis& b,
                                          const std::string& output) {
    const std::vector<Table> ofA = tablesOf(a);
    const std::vector<Table> ofB = tablesOf(b);
    std::vector<Panel> panels;
    for (const Table& table : ofA) {
        const Table* other = tableNamed(ofB, table.name);
        if (other == nullptr || !sameShape(table, *other)) {
            panels.emplace_back([&table, other](Canvas& canvas, const Rect& cell) {
                drawIncomparable(canvas, cell, table, other);
            });
            continue;
        }
        for (unsigned channel = 0; channel < table.channels; ++channel) {
            panels.emplace_back([&table, other, channel](Canvas& canvas, const Rect& cell) {
                drawDifference(canvas, cell, differenceMap(table, *other, channel));
            });
        }
    }
    for (const Table& table : ofB) {
        if (tableNamed(ofA, table.name) == nullptr) {
            panels.emplace_back([&table](Canvas& canvas, const Rect& cell) {
                drawIncomparable(canvas, cell, table, nullptr);
            });
        }
    }
    return drawPage(panels, pictureFormatOf(output));
}

}  // namespace calcut::tools
