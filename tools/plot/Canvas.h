// Where pictures are drawn: lines, areas, text and images on a page, as PNG or SVG.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tools/plot/Colour.h"
#include "tools/plot/MapPicture.h"

namespace calcut::tools {

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

enum class Anchor : std::uint8_t { Start, Middle, End };

struct FontStyle {
    double size = 12.0;
    Anchor anchor = Anchor::Start;
    bool bold = false;
    bool upwards = false;  ///< turned by a quarter, reading from bottom to top
    Rgb colour = inkColour;
};

/// How a thing is marked on the page and in a legend.
enum class Mark : std::uint8_t { Box, Ring, Cross, Dot };

/// A page. Lengths are pixels of the PNG; y grows downwards. Text must be UTF-8.
class Canvas {
  public:
    Canvas(double width, double height, PictureFormat format);
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;
    ~Canvas() = default;

    /// Elements of an image that a unit of length can show.
    [[nodiscard]] double resolution() const { return format_ == PictureFormat::Png ? 1.0 : 3.0; }

    void fill(const Rect& area, Rgb colour);
    void polygon(std::span<const Point> corners, Rgb colour);
    void line(std::span<const Point> points, Rgb colour, double thickness);
    void outline(const Rect& area, Rgb colour);
    /// Rings and crosses have a light rim, so that they show on every colour.
    void mark(Mark mark, Point centre, Rgb colour);
    /// baseline: of the text's start, middle or end, as the style's anchor says.
    void text(Point baseline, const std::string& text, const FontStyle& style);
    /// Stretches the picture over the area, elements kept as sharp rectangles.
    void image(const Rect& area, const Raster& raster);
    /// Until the next endClip, nothing is drawn outside the area. Does not nest.
    void beginClip(const Rect& area);
    void endClip();

    [[nodiscard]] double textWidth(const std::string& text, const FontStyle& style) const;
    /// text, its end left out where it is wider than width.
    [[nodiscard]] std::string fitText(std::string text, const FontStyle& style, double width) const;

    /// The finished file; empty when it could not be made. Nothing can be drawn afterwards.
    std::vector<std::uint8_t> finish();

  private:
    struct Destroy {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* context) const { cairo_destroy(context); }
    };
    using Surface = std::unique_ptr<cairo_surface_t, Destroy>;

    void setColour(Rgb colour);

    PictureFormat format_;
    std::vector<std::uint8_t> bytes_;  ///< before the surface, which writes here to its end
    Surface surface_;
    std::unique_ptr<cairo_t, Destroy> context_;
};

}  // namespace calcut::tools
