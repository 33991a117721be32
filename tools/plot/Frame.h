// One frame of a picture: title, axes with round ticks, a colour bar, and the place where data
// goes. All panels are made from this.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/plot/Canvas.h"
#include "tools/plot/Scale.h"
#include "tools/plot/Strips.h"

namespace calcut::tools {

struct Axis {
    Scale scale;
    std::string label;
};

struct ColourBar {
    Scale scale;
    std::string label;
    ColourMap map = ColourMap::Sequential;
    bool valuesBelow = false;  ///< an arrow at the end tells so
    bool valuesAbove = false;
};

struct LegendEntry {
    Mark mark = Mark::Box;
    Rgb colour;
    std::string label;
};

/// Elements of an image, ends not included.
struct ElementBlock {
    std::uint32_t firstColumn, endColumn, firstRow, endRow;
};

/// What stands around the data.
struct FrameText {
    std::string title;
    std::string note{};  ///< below the title
    std::vector<LegendEntry> legend{};
    std::string footer{};  ///< below the axes
    bool compact = false;  ///< a small frame: title and axes only
};

/// Draws title, note and legend at the top of a cell.
void drawHead(Canvas& canvas, const Rect& cell, const FrameText& text);

/// Draws the frame into a cell of the page and converts values to places there.
class Frame {
  public:
    Frame(Canvas& canvas, const Rect& cell, FrameText text, Axis x, Axis y);
    Frame(Canvas& canvas, const Rect& cell, FrameText text, ImageShape shape,
          std::optional<ColourBar> bar);

    [[nodiscard]] const Rect& area() const { return area_; }
    [[nodiscard]] Point at(double x, double y) const;
    [[nodiscard]] Canvas& canvas() const { return canvas_; }

    // Of images:
    [[nodiscard]] Point atElement(std::size_t column, std::size_t row) const {
        return at(shape_->firstColumn + static_cast<double>(column),
                  shape_->firstRow + static_cast<double>(row));
    }
    [[nodiscard]] double unit() const { return strips_.unit; }  ///< side of an element on the page
    [[nodiscard]] bool inStrips() const { return strips_.count > 1; }
    /// Draws the image, each of its dots with the colour of the elements that it stands for.
    void image(const std::function<Rgb(const ElementBlock&)>& colourOf) const;

  private:
    /// A tick where it stands on the page.
    struct PlacedTick {
        double place;
        std::string label;
    };

    [[nodiscard]] double verticalSpacing() const { return text_.compact ? 24.0 : 42.0; }
    [[nodiscard]] double widest(const std::vector<PlacedTick>& ticks) const;
    /// Half as long as the labels at the sides may be, which is a little more than a low image.
    [[nodiscard]] double sideReach() const;
    [[nodiscard]] Rect elements(const ElementBlock& block) const;
    void makeRoom(const Rect& cell, double barSpace);
    void placeImage();
    void placeTicks();
    void placeStripTicks();
    void placeBar();
    void drawAxes(const Rect& cell);
    void drawBar();

    Canvas& canvas_;
    FrameText text_;
    Axis x_, y_;
    std::optional<ImageShape> shape_;
    std::optional<ColourBar> bar_;
    Strips strips_;
    Rect room_, area_, barArea_;
    std::vector<PlacedTick> xTicks_, yTicks_, barTicks_;
};

}  // namespace calcut::tools
