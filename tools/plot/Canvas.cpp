#include "tools/plot/Canvas.h"

#include <cairo-svg.h>

#include <algorithm>
#include <memory>
#include <new>
#include <numbers>

namespace calcut::plot {

namespace {

using Surface = std::shared_ptr<cairo_surface_t>;

cairo_status_t append(void* closure, const unsigned char* data, unsigned length) {
    auto& bytes = *static_cast<std::vector<std::uint8_t>*>(closure);
    try {
        bytes.insert(bytes.end(), data, data + length);
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
    return CAIRO_STATUS_SUCCESS;
}

void setColour(cairo_t* page, Rgb colour) {
    cairo_set_source_rgb(page, colour.r / 255.0, colour.g / 255.0, colour.b / 255.0);
}

void trace(cairo_t* page, std::span<const Point> points) {
    cairo_new_path(page);  // a text leaves the point behind its end
    for (const Point& point : points) {
        cairo_line_to(page, point.x, point.y);
    }
}

void stroke(cairo_t* page, Rgb colour, double thickness) {
    setColour(page, colour);
    cairo_set_line_width(page, thickness);
    cairo_stroke(page);
}

}  // namespace

std::vector<std::uint8_t> drawPage(const std::vector<Panel>& panels, const std::string& output) {
    constexpr double cellWidth = 420.0;
    constexpr double cellHeight = 350.0;
    const bool svg = output.ends_with(".svg");
    // Few empty cells at a shape that suits a screen.
    const std::size_t count = std::max<std::size_t>(panels.size(), 1);
    const std::size_t most = count == 4 ? 2 : count <= 6 || count == 9 ? 3 : 4;
    const std::size_t columns = std::min(count, most);
    const std::size_t rows = (count + columns - 1) / columns;
    const double width = cellWidth * static_cast<double>(columns);
    const double height = cellHeight * static_cast<double>(rows);
    std::vector<std::uint8_t> bytes;
    const Surface surface(
        svg ? cairo_svg_surface_create_for_stream(append, &bytes, width, height)
            : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width),
                                         static_cast<int>(height)),
        cairo_surface_destroy);
    if (svg) {
        cairo_svg_surface_set_document_unit(surface.get(), CAIRO_SVG_UNIT_PX);
    }
    const std::shared_ptr<cairo_t> page(cairo_create(surface.get()), cairo_destroy);
    fillRect(page.get(), {0.0, 0.0, width, height}, paperColour);
    for (std::size_t i = 0; i < panels.size(); ++i) {
        const std::size_t row = i / columns;
        panels[i]({{cellWidth * static_cast<double>(i % columns),
                    cellHeight * static_cast<double>(row), cellWidth, cellHeight},
                   page.get()});
    }
    cairo_status_t status = cairo_status(page.get());
    if (status == CAIRO_STATUS_SUCCESS && !svg) {
        status = cairo_surface_write_to_png_stream(surface.get(), append, &bytes);
    }
    cairo_surface_finish(surface.get());
    const bool whole = status == CAIRO_STATUS_SUCCESS &&
                       cairo_surface_status(surface.get()) == CAIRO_STATUS_SUCCESS;
    return whole ? bytes : std::vector<std::uint8_t>{};
}

void fillRect(cairo_t* page, const Rect& area, Rgb colour) {
    setColour(page, colour);
    cairo_rectangle(page, area.x, area.y, area.width, area.height);
    cairo_fill(page);
}

void fillPolygon(cairo_t* page, std::span<const Point> corners, Rgb colour) {
    setColour(page, colour);
    trace(page, corners);
    cairo_fill(page);
}

void drawOutline(cairo_t* page, const Rect& area, Rgb colour) {
    cairo_rectangle(page, area.x, area.y, area.width, area.height);
    stroke(page, colour, 1.0);
}

void drawLine(cairo_t* page, std::span<const Point> points, Rgb colour, double thickness) {
    cairo_set_line_join(page, CAIRO_LINE_JOIN_ROUND);
    trace(page, points);
    stroke(page, colour, thickness);
}

void drawMark(cairo_t* page, Mark mark, Point centre, Rgb colour) {
    constexpr double reach = 5.5;
    const auto [x, y] = centre;
    if (mark == Mark::Box) {
        const Rect box{x - 4.5, y - 4.5, 9.0, 9.0};
        fillRect(page, box, colour);
        drawOutline(page, box, inkColour);
        return;
    }
    for (const auto& [shade, thickness] : {std::pair{paperColour, 3.5}, std::pair{colour, 1.4}}) {
        cairo_new_path(page);
        if (mark == Mark::Cross) {
            cairo_move_to(page, x - reach, y);
            cairo_line_to(page, x + reach, y);
            cairo_move_to(page, x, y - reach);
            cairo_line_to(page, x, y + reach);
        } else {
            cairo_arc(page, x, y, mark == Mark::Ring ? reach : 3.0, 0.0, 2.0 * std::numbers::pi);
        }
        if (mark == Mark::Dot) {
            setColour(page, shade);
            cairo_fill_preserve(page);
        }
        stroke(page, shade, thickness);
    }
}

void drawText(cairo_t* page, Point baseline, std::string text, const FontStyle& style,
              double most) {
    std::string shown = text;
    while (!text.empty() && textWidth(page, shown, style) > most) {
        // A whole character of UTF-8 goes.
        while ((static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80U && text.size() > 1) {
            text.pop_back();
        }
        text.pop_back();
        shown = text + "…";
    }
    const double width = textWidth(page, shown, style);
    setColour(page, style.colour);
    cairo_save(page);
    cairo_translate(page, baseline.x, baseline.y);
    if (style.upwards) {
        cairo_rotate(page, -std::numbers::pi / 2.0);
    }
    cairo_move_to(page, -width * static_cast<int>(style.anchor) / 2.0, 0.0);
    cairo_show_text(page, shown.c_str());
    cairo_restore(page);
}

double textWidth(cairo_t* page, const std::string& text, const FontStyle& style) {
    cairo_select_font_face(page, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           style.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(page, style.size);
    cairo_text_extents_t extents;
    cairo_text_extents(page, text.c_str(), &extents);
    return extents.x_advance;
}

double resolution(cairo_t* page) {
    return cairo_surface_get_type(cairo_get_target(page)) == CAIRO_SURFACE_TYPE_SVG ? 3.0 : 1.0;
}

void drawImage(cairo_t* page, const Rect& area, int width, int height,
               const std::function<Rgb(int x, int y)>& colourOf) {
    // Viewers smooth the pictures in an SVG; larger ones keep the edges of their elements.
    const double fine = resolution(page);
    const int scale =
        fine > 1.0 ? std::clamp(static_cast<int>(fine * area.width / width), 1, 16) : 1;
    const Surface picture(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, width * scale, height * scale),
        cairo_surface_destroy);
    unsigned char* row = cairo_image_surface_get_data(picture.get());
    const std::ptrdiff_t stride = cairo_image_surface_get_stride(picture.get());
    for (int y = 0; row != nullptr && y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto [r, g, b] = colourOf(x, y);
            std::fill_n(reinterpret_cast<std::uint32_t*>(row) + std::ptrdiff_t{x} * scale, scale,
                        std::uint32_t{r} << 16 | std::uint32_t{g} << 8 | b);
        }
        for (int copy = 1; copy < scale; ++copy) {
            std::copy_n(row, stride, row + copy * stride);
        }
        row += scale * stride;
    }
    cairo_surface_mark_dirty(picture.get());
    clipTo(page, area);
    cairo_translate(page, area.x, area.y);
    cairo_scale(page, area.width / width / scale, area.height / height / scale);
    cairo_set_source_surface(page, picture.get(), 0.0, 0.0);
    cairo_pattern_set_filter(cairo_get_source(page), CAIRO_FILTER_NEAREST);
    cairo_pattern_set_extend(cairo_get_source(page), CAIRO_EXTEND_PAD);
    cairo_paint(page);
    cairo_restore(page);
}

void clipTo(cairo_t* page, const Rect& area) {
    cairo_save(page);
    cairo_rectangle(page, area.x, area.y, area.width, area.height);
    cairo_clip(page);
}

}  // namespace calcut::plot
