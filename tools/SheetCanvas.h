// Where the sheet is drawn: lines, areas, text and images on a page, as PNG or SVG.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace calcut::tools {

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
};

struct Point {
    double x = 0.0, y = 0.0;
};

struct Rect {
    double x = 0.0, y = 0.0, width = 0.0, height = 0.0;

    [[nodiscard]] double right() const { return x + width; }
    [[nodiscard]] double bottom() const { return y + height; }
};

/// An opaque picture, row by row.
struct Raster {
    int width = 0;
    int height = 0;
    std::vector<Rgb> pixels;
};

enum class Anchor { Start, Middle, End };

struct TextStyle {
    double size = 12.0;
    Anchor anchor = Anchor::Start;
    bool bold = false;
    bool upwards = false;  ///< turned by a quarter, reading from bottom to top
    Rgb colour{0x20, 0x20, 0x20};
};

/// A page. Lengths are pixels of the PNG; y grows downwards. Text must be UTF-8.
class Canvas {
  public:
    Canvas(double width, double height) : width_(width), height_(height) {}
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;
    virtual ~Canvas() = default;

    [[nodiscard]] double width() const { return width_; }
    [[nodiscard]] double height() const { return height_; }

    virtual void fill(const Rect& area, Rgb colour) = 0;
    virtual void line(std::span<const Point> points, Rgb colour, double thickness) = 0;
    virtual void circle(Point centre, double radius, Rgb colour) = 0;
    /// baseline: of the text's start, middle or end, as the style's anchor says.
    virtual void text(Point baseline, const std::string& text, const TextStyle& style) = 0;
    /// Stretches the picture over the area, elements kept as sharp rectangles.
    virtual void image(const Rect& area, const Raster& raster) = 0;
    /// Until the next endClip, nothing is drawn outside the area. Does not nest.
    virtual void beginClip(const Rect& area) = 0;
    virtual void endClip() = 0;

    /// Advance of a text in both formats (an SVG viewer with another font may differ a little).
    [[nodiscard]] virtual double textWidth(const std::string& text,
                                           const TextStyle& style) const = 0;

    /// The finished file; empty when it could not be made.
    virtual std::vector<std::uint8_t> finish() = 0;

  private:
    double width_;
    double height_;
};

std::unique_ptr<Canvas> makePngCanvas(double width, double height);

/// Text stays text and lines stay lines; images are embedded PNGs. (Cairo's own SVG output turns
/// letters into outlines, so the SVG is written here.)
std::unique_ptr<Canvas> makeSvgCanvas(double width, double height);

}  // namespace calcut::tools
