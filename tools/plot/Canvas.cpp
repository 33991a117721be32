#include "tools/plot/Canvas.h"

#include <cairo-svg.h>

#include <algorithm>
#include <new>
#include <numbers>

namespace calcut::tools {

namespace {

constexpr const char* fontName = "DejaVu Sans";

cairo_status_t append(void* closure, const unsigned char* data, unsigned length) {
    auto& bytes = *static_cast<std::vector<std::uint8_t>*>(closure);
    try {
        bytes.insert(bytes.end(), data, data + length);
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
    return CAIRO_STATUS_SUCCESS;
}

cairo_surface_t* makePixels(int width, int height) {
    return cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
}

/// Writes the raster into a surface that is scale times as large.
void paintInto(cairo_surface_t* surface, const Raster& raster, int scale) {
    unsigned char* data = cairo_image_surface_get_data(surface);
    if (data == nullptr) {
        return;
    }
    const int stride = cairo_image_surface_get_stride(surface);
    cairo_surface_flush(surface);
    for (int y = 0; y < raster.height * scale; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(data + std::ptrdiff_t{y} * stride);
        const auto from = raster.pixels.begin() + std::ptrdiff_t{y / scale} * raster.width;
        for (int x = 0; x < raster.width * scale; ++x) {
            const Rgb pixel = from[x / scale];
            row[x] = std::uint32_t{pixel.r} << 16 | std::uint32_t{pixel.g} << 8 | pixel.b;
        }
    }
    cairo_surface_mark_dirty(surface);
}

void selectFont(cairo_t* context, const FontStyle& style) {
    cairo_select_font_face(context, fontName, CAIRO_FONT_SLANT_NORMAL,
                           style.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context, style.size);
}

}  // namespace

Canvas::Canvas(double width, double height, PictureFormat format)
    : format_(format),
      surface_(format == PictureFormat::Png
                   ? makePixels(static_cast<int>(width), static_cast<int>(height))
                   : cairo_svg_surface_create_for_stream(append, &bytes_, width, height)),
      context_(cairo_create(surface_.get())) {
    if (format == PictureFormat::Svg) {
        cairo_svg_surface_set_document_unit(surface_.get(), CAIRO_SVG_UNIT_PX);
    }
    fill({0.0, 0.0, width, height}, paperColour);
}

void Canvas::setColour(Rgb colour) {
    cairo_set_source_rgb(context_.get(), colour.r / 255.0, colour.g / 255.0, colour.b / 255.0);
}

void Canvas::fill(const Rect& area, Rgb colour) {
    setColour(colour);
    cairo_rectangle(context_.get(), area.x, area.y, area.width, area.height);
    cairo_fill(context_.get());
}

void Canvas::polygon(std::span<const Point> corners, Rgb colour) {
    setColour(colour);
    cairo_new_path(context_.get());
    for (const Point& corner : corners) {
        cairo_line_to(context_.get(), corner.x, corner.y);
    }
    cairo_fill(context_.get());
}

void Canvas::line(std::span<const Point> points, Rgb colour, double thickness) {
    setColour(colour);
    cairo_set_line_width(context_.get(), thickness);
    cairo_set_line_join(context_.get(), CAIRO_LINE_JOIN_ROUND);
    cairo_new_path(context_.get());  // a text leaves the point behind its end
    for (const Point& point : points) {
        cairo_line_to(context_.get(), point.x, point.y);
    }
    cairo_stroke(context_.get());
}

void Canvas::outline(const Rect& area, Rgb colour) {
    setColour(colour);
    cairo_set_line_width(context_.get(), 1.0);
    cairo_rectangle(context_.get(), area.x, area.y, area.width, area.height);
    cairo_stroke(context_.get());
}

void Canvas::mark(Mark mark, Point centre, Rgb colour) {
    constexpr double reach = 5.5;
    const auto [x, y] = centre;
    if (mark == Mark::Box) {
        fill({x - 4.5, y - 4.5, 9.0, 9.0}, colour);
        outline({x - 4.5, y - 4.5, 9.0, 9.0}, inkColour);
        return;
    }
    for (const auto& [shade, thickness] : {std::pair{paperColour, 3.5}, std::pair{colour, 1.4}}) {
        setColour(shade);
        cairo_set_line_width(context_.get(), thickness);
        cairo_new_path(context_.get());
        if (mark == Mark::Cross) {
            cairo_move_to(context_.get(), x - reach, y);
            cairo_line_to(context_.get(), x + reach, y);
            cairo_move_to(context_.get(), x, y - reach);
            cairo_line_to(context_.get(), x, y + reach);
        } else {
            const double radius = mark == Mark::Ring ? reach : 3.0;
            cairo_arc(context_.get(), x, y, radius, 0.0, 2.0 * std::numbers::pi);
            if (mark == Mark::Dot) {
                cairo_fill_preserve(context_.get());
            }
        }
        cairo_stroke(context_.get());
    }
}

void Canvas::text(Point baseline, const std::string& text, const FontStyle& style) {
    const double width = textWidth(text, style);
    const double shift = style.anchor == Anchor::Start    ? 0.0
                         : style.anchor == Anchor::Middle ? -width / 2.0
                                                          : -width;
    setColour(style.colour);
    cairo_save(context_.get());
    cairo_translate(context_.get(), baseline.x, baseline.y);
    if (style.upwards) {
        cairo_rotate(context_.get(), -std::numbers::pi / 2.0);
    }
    cairo_move_to(context_.get(), shift, 0.0);
    cairo_show_text(context_.get(), text.c_str());
    cairo_restore(context_.get());
}

void Canvas::image(const Rect& area, const Raster& raster) {
    // Viewers smooth the pictures in an SVG; larger ones keep the edges of their elements.
    const int scale = format_ == PictureFormat::Png
                          ? 1
                          : std::clamp(static_cast<int>(3.0 * area.width / raster.width), 1, 16);
    const Surface picture(makePixels(raster.width * scale, raster.height * scale));
    paintInto(picture.get(), raster, scale);
    beginClip(area);
    cairo_translate(context_.get(), area.x, area.y);
    cairo_scale(context_.get(), area.width / raster.width / scale,
                area.height / raster.height / scale);
    cairo_set_source_surface(context_.get(), picture.get(), 0.0, 0.0);
    cairo_pattern_set_filter(cairo_get_source(context_.get()), CAIRO_FILTER_NEAREST);
    cairo_pattern_set_extend(cairo_get_source(context_.get()), CAIRO_EXTEND_PAD);
    cairo_paint(context_.get());
    endClip();
}

void Canvas::beginClip(const Rect& area) {
    cairo_save(context_.get());
    cairo_rectangle(context_.get(), area.x, area.y, area.width, area.height);
    cairo_clip(context_.get());
}

void Canvas::endClip() {
    cairo_restore(context_.get());
}

double Canvas::textWidth(const std::string& text, const FontStyle& style) const {
    selectFont(context_.get(), style);
    cairo_text_extents_t extents;
    cairo_text_extents(context_.get(), text.c_str(), &extents);
    return extents.x_advance;
}

std::string Canvas::fitText(std::string text, const FontStyle& style, double width) const {
    if (textWidth(text, style) <= width) {
        return text;
    }
    while (!text.empty() && textWidth(text + "…", style) > width) {
        // A whole character of UTF-8 goes.
        while ((static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80U && text.size() > 1) {
            text.pop_back();
        }
        text.pop_back();
    }
    return text + "…";
}

std::vector<std::uint8_t> Canvas::finish() {
    if (cairo_status(context_.get()) != CAIRO_STATUS_SUCCESS) {
        return {};
    }
    if (format_ == PictureFormat::Png) {
        (void)cairo_surface_write_to_png_stream(surface_.get(), append, &bytes_);
    }
    cairo_surface_finish(surface_.get());
    if (cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS) {
        bytes_.clear();
    }
    return std::move(bytes_);
}

}  // namespace calcut::tools
