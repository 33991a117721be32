// A page as PNG or SVG, and what is drawn on it: lines, areas, text and images. Lengths are pixels
// of the PNG; y grows downwards. Text must be UTF-8.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "tools/plot/Scales.h"

namespace calcut::plot {

struct Rect {
    double x = 0.0, y = 0.0, width = 0.0, height = 0.0;

    [[nodiscard]] double right() const { return x + width; }
    [[nodiscard]] double bottom() const { return y + height; }
};

/// A place on a page, and the page.
struct Cell : Rect {
    cairo_t* page = nullptr;
};

/// Draws into its cell.
using Panel = std::function<void(const Cell& cell)>;

/// Panels side by side on one page, as a file; the output's name decides the format. Empty when the
/// picture could not be made.
std::vector<std::uint8_t> drawPage(const std::vector<Panel>& panels, const std::string& output);

void fillRect(cairo_t* page, const Rect& area, Rgb colour);
void fillPolygon(cairo_t* page, std::span<const Point> corners, Rgb colour);
void drawOutline(cairo_t* page, const Rect& area, Rgb colour);
void drawLine(cairo_t* page, std::span<const Point> points, Rgb colour, double thickness);

/// How a thing is marked on the page and in a legend. Rings, crosses and dots have a light rim, so
/// that they show on every colour.
enum class Mark : std::uint8_t { Box, Ring, Cross, Dot };
void drawMark(cairo_t* page, Mark mark, Point centre, Rgb colour);

/// What of a text stands at its place: counted in half widths.
enum class Anchor : std::uint8_t { Start, Middle, End };

struct FontStyle {
    double size = 12.0;
    Anchor anchor = Anchor::Start;
    bool bold = false;
    bool upwards = false;  ///< turned by a quarter, reading from bottom to top
    Rgb colour = inkColour;
};
/// baseline: of the text's start, middle or end, as the style's anchor says. Of a text wider than
/// most the end is left out.
void drawText(cairo_t* page, Point baseline, std::string text, const FontStyle& style,
              double most = std::numeric_limits<double>::infinity());
double textWidth(cairo_t* page, const std::string& text, const FontStyle& style);

/// Stretches a picture of width x height elements over the area; they stay sharp rectangles.
void drawImage(cairo_t* page, const Rect& area, int width, int height,
               const std::function<Rgb(int x, int y)>& colourOf);
/// Elements of an image that a unit of length can show.
double resolution(cairo_t* page);

/// Until cairo_restore, nothing is drawn outside the area.
void clipTo(cairo_t* page, const Rect& area);

}  // namespace calcut::plot
