// One frame of a picture: title, axes with round ticks, a colour bar, and the place where data
// goes. All panels are made from this.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/plot/Canvas.h"
#include "tools/plot/Scales.h"

namespace calcut::plot {

struct Axis {
    Scale scale{};
    std::string label{};
    // On the page, known to the frame:
    double start = 0.0;         ///< where the scale is low
    double length = 0.0;        ///< from there to where it is high
    std::vector<Tick> ticks{};  ///< their values are places

    [[nodiscard]] double at(double value) const { return start + scale.fraction(value) * length; }
    void placeTicks(double spacing);

    // Of an image's columns or rows:
    [[nodiscard]] double first() const { return scale.low + 0.5; }
    [[nodiscard]] auto count() const { return static_cast<std::uint32_t>(scale.high - scale.low); }
};

/// The axis of an image's columns or rows, the first of which may have another coordinate than 0.
Axis elementAxis(std::uint32_t count, std::string label, double first = 0.0);

struct ColourBar : Axis {
    ColourMap colours = ColourMap::Sequential;
    bool valuesBelow = false;  ///< an arrow at the end tells so
    bool valuesAbove = false;
};

struct LegendEntry {
    Mark mark = Mark::Box;
    Rgb colour;
    std::string label;
};

/// What stands around the data.
struct FrameParts {
    std::string title;
    std::string note{};  ///< below the title
    std::vector<LegendEntry> legend{};
    std::string footer{};  ///< below the axes
    Axis x{}, y{};
    bool image = false;  ///< of square elements, row numbers growing downwards
    std::optional<ColourBar> bar{};
    bool compact = false;  ///< a small frame: axes only
};

/// More rings than that hide what they point at.
inline constexpr std::size_t mostRings = 200;

/// Draws title, note and legend at the top of a cell.
void drawHead(const Cell& cell, const FrameParts& parts);

/// A frame on the page.
struct Frame {
    cairo_t* page;
    FrameParts parts;   ///< as they were given
    Axis xAxis, yAxis;  ///< as they lie on the page
    Strips strips{};    ///< of an image
    Rect area{};        ///< where the data goes
    double barHeight = 0.0;

    [[nodiscard]] Point at(double x, double y) const;
    /// Draws the image, each of its dots with the colour of the elements that it stands for. They
    /// are given by their indices, row by row.
    void image(const std::function<Rgb(const std::vector<std::size_t>& elements)>& colourOf) const;
    /// Rings around elements of the image; none when they are more than most.
    void ring(const std::vector<std::size_t>& elements, std::size_t most = mostRings) const;
};

/// Draws all that stands around the data into a cell of the page.
Frame drawFrame(const Cell& cell, const FrameParts& parts);

}  // namespace calcut::plot
