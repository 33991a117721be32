// One plot of the sheet: axes with round ticks, a colour bar, and the place where data goes. All
// panels are made from this.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "SheetCanvas.h"

namespace calcut::tools {

/// A range of values along an axis or a colour bar.
struct Scale {
    double low = 0.0;
    double high = 1.0;
    bool logarithmic = false;  ///< low and high are positive then
    bool whole = false;        ///< ticks only at integers

    /// 0 at low, 1 at high; not cut to that range.
    [[nodiscard]] double fraction(double value) const;
};

struct Tick {
    double value = 0.0;
    std::string label;
};

/// Round values inside the scale, at most about count of them.
std::vector<Tick> ticksOf(const Scale& scale, int count);

/// A scale that holds the values, never empty; a constant gets some room on both sides.
Scale scaleAround(double low, double high);

/// Perceptually uniform colour for a fraction, which is cut to [0, 1].
Rgb mapColour(double fraction);

struct Axis {
    Scale scale;
    std::string label;
};

struct LegendEntry {
    Rgb colour;
    std::string label;
};

struct PlotFrame {
    std::string title;
    Axis x;
    Axis y;
    bool yDownwards = false;     ///< row numbers grow downwards
    bool squareUnits = false;    ///< one unit of x is as long as one unit of y
    std::optional<Axis> colour;  ///< colour bar
    std::vector<LegendEntry> legend;
    std::string note;  ///< a line below the title
};

/// Draws the frame into a cell of the sheet and converts values to places on the page.
class Plot {
  public:
    Plot(Canvas& canvas, const Rect& cell, PlotFrame frame);

    [[nodiscard]] const Rect& area() const { return area_; }
    [[nodiscard]] Point at(double x, double y) const;

  private:
    void layOut(const Rect& cell);
    void drawHead(const Rect& cell);
    void drawAxes();
    void drawColourBar();

    Canvas& canvas_;
    PlotFrame frame_;
    std::vector<Tick> xTicks_, yTicks_, colourTicks_;
    Rect area_;
};

/// Colour of one element of a map. Marked elements win over the others when a map is reduced.
struct MapColour {
    Rgb colour;
    bool marked = false;
};

/// The picture of columns x rows elements, reduced to at most a thousand or so on a side.
Raster rasterOf(std::uint32_t columns, std::uint32_t rows,
                const std::function<MapColour(std::uint32_t column, std::uint32_t row)>& colourAt);

/// text, shortened in its middle until it is no wider than width.
std::string fitText(const Canvas& canvas, const std::string& text, const TextStyle& style,
                    double width);

}  // namespace calcut::tools
