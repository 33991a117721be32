// One frame of a picture: title, axes with round ticks, a colour bar, and the place where data
// goes. All panels are made from this.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/plot/Canvas.h"
#include "tools/plot/Scales.h"

namespace calcut::tools {

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

/// Draws the frame into a cell of the page and converts values to places there.
class Frame {
  public:
    Frame(const Cell& cell, FrameParts parts);

    [[nodiscard]] cairo_t* page() const { return page_; }
    [[nodiscard]] const Rect& area() const { return area_; }
    [[nodiscard]] Point at(double x, double y) const;

    // Of images:
    [[nodiscard]] double unit() const { return strips_.unit; }  ///< side of an element on the page
    /// Draws the image, each of its dots with the colour of the elements that it stands for. They
    /// are given by their indices, row by row.
    void image(const std::function<Rgb(const std::vector<std::size_t>& elements)>& colourOf) const;
    /// Rings around elements; none when they are more than most.
    void ring(const std::vector<std::size_t>& elements, std::size_t most = mostRings) const;

  private:
    [[nodiscard]] Point atElement(double column, double row) const {
        return at(parts_.x.first() + column, parts_.y.first() + row);
    }
    [[nodiscard]] double verticalSpacing() const { return parts_.compact ? 24.0 : 42.0; }
    [[nodiscard]] double barHeight() const;
    void place(const Cell& cell);
    void placeStrips();
    void drawAxes(const Cell& cell);
    void drawBar();
    void drawLabel(const Axis& axis, Point edge, double side) const;

    cairo_t* page_;
    Axis x_, y_;        ///< on the page
    FrameParts parts_;  ///< as they came
    Strips strips_;
    Rect room_, area_;
};

}  // namespace calcut::tools
