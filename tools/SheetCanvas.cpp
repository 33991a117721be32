#include "SheetCanvas.h"

#include <cairo.h>
#include <fmt/format.h>
#include <iterator>
#include <numbers>

namespace calcut::tools {

namespace {

constexpr const char* fontName = "DejaVu Sans";

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

struct ContextDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using ContextPtr = std::unique_ptr<cairo_t, ContextDeleter>;

cairo_status_t append(void* closure, const unsigned char* data, unsigned length) {
    auto& bytes = *static_cast<std::vector<std::uint8_t>*>(closure);
    bytes.insert(bytes.end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

/// Empty when the surface is broken or memory runs out.
std::vector<std::uint8_t> encodePng(cairo_surface_t* surface) {
    std::vector<std::uint8_t> bytes;
    if (cairo_surface_write_to_png_stream(surface, append, &bytes) != CAIRO_STATUS_SUCCESS) {
        bytes.clear();
    }
    return bytes;
}

SurfacePtr makeSurface(int width, int height) {
    return SurfacePtr(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
}

SurfacePtr surfaceOf(const Raster& raster) {
    SurfacePtr surface = makeSurface(raster.width, raster.height);
    unsigned char* data = cairo_image_surface_get_data(surface.get());
    if (data == nullptr) {
        return surface;
    }
    const int stride = cairo_image_surface_get_stride(surface.get());
    cairo_surface_flush(surface.get());
    for (int y = 0; y < raster.height; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(data + std::ptrdiff_t{y} * stride);
        for (int x = 0; x < raster.width; ++x) {
            const auto at = static_cast<std::size_t>(y) * static_cast<std::size_t>(raster.width) +
                            static_cast<std::size_t>(x);
            const Rgb pixel = raster.pixels[at];
            row[x] = std::uint32_t{pixel.r} << 16 | std::uint32_t{pixel.g} << 8 | pixel.b;
        }
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

void selectFont(cairo_t* context, const TextStyle& style) {
    cairo_select_font_face(context, fontName, CAIRO_FONT_SLANT_NORMAL,
                           style.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context, style.size);
}

double advance(cairo_t* context, const std::string& text, const TextStyle& style) {
    selectFont(context, style);
    cairo_text_extents_t extents;
    cairo_text_extents(context, text.c_str(), &extents);
    return extents.x_advance;
}

// ------------------------------------------------------------------------------------------ PNG --

class PngCanvas final : public Canvas {
  public:
    PngCanvas(double width, double height)
        : Canvas(width, height),
          surface_(makeSurface(static_cast<int>(width), static_cast<int>(height))),
          context_(cairo_create(surface_.get())) {
        fill({0.0, 0.0, width, height}, {0xFF, 0xFF, 0xFF});
    }

    void fill(const Rect& area, Rgb colour) override {
        setColour(colour);
        cairo_rectangle(context_.get(), area.x, area.y, area.width, area.height);
        cairo_fill(context_.get());
    }

    void line(std::span<const Point> points, Rgb colour, double thickness) override {
        setColour(colour);
        cairo_set_line_width(context_.get(), thickness);
        cairo_set_line_join(context_.get(), CAIRO_LINE_JOIN_ROUND);
        cairo_new_path(context_.get());  // a text leaves the point behind its end
        for (const Point& point : points) {
            cairo_line_to(context_.get(), point.x, point.y);
        }
        cairo_stroke(context_.get());
    }

    void circle(Point centre, double radius, Rgb colour) override {
        setColour(colour);
        cairo_new_path(context_.get());
        cairo_arc(context_.get(), centre.x, centre.y, radius, 0.0, 2.0 * std::numbers::pi);
        cairo_fill(context_.get());
    }

    void text(Point baseline, const std::string& text, const TextStyle& style) override {
        const double width = advance(context_.get(), text, style);
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

    void image(const Rect& area, const Raster& raster) override {
        const SurfacePtr picture = surfaceOf(raster);
        cairo_save(context_.get());
        cairo_rectangle(context_.get(), area.x, area.y, area.width, area.height);
        cairo_clip(context_.get());
        cairo_translate(context_.get(), area.x, area.y);
        cairo_scale(context_.get(), area.width / raster.width, area.height / raster.height);
        cairo_set_source_surface(context_.get(), picture.get(), 0.0, 0.0);
        // Elements smaller than a pixel are averaged, larger ones keep their edges.
        const bool shrinks = area.width < raster.width || area.height < raster.height;
        cairo_pattern_set_filter(cairo_get_source(context_.get()),
                                 shrinks ? CAIRO_FILTER_GOOD : CAIRO_FILTER_NEAREST);
        cairo_pattern_set_extend(cairo_get_source(context_.get()), CAIRO_EXTEND_PAD);
        cairo_paint(context_.get());
        cairo_restore(context_.get());
    }

    void beginClip(const Rect& area) override {
        cairo_save(context_.get());
        cairo_rectangle(context_.get(), area.x, area.y, area.width, area.height);
        cairo_clip(context_.get());
    }

    void endClip() override { cairo_restore(context_.get()); }

    [[nodiscard]] double textWidth(const std::string& text, const TextStyle& style) const override {
        return advance(context_.get(), text, style);
    }

    std::vector<std::uint8_t> finish() override {
        if (cairo_status(context_.get()) != CAIRO_STATUS_SUCCESS) {
            return {};
        }
        return encodePng(surface_.get());
    }

  private:
    void setColour(Rgb colour) {
        cairo_set_source_rgb(context_.get(), colour.r / 255.0, colour.g / 255.0, colour.b / 255.0);
    }

    SurfacePtr surface_;
    ContextPtr context_;
};

// ------------------------------------------------------------------------------------------ SVG --

std::string escapeXml(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

std::string base64(std::span<const std::uint8_t> bytes) {
    static constexpr char digits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8 | (at + i < bytes.size() ? bytes[at + i] : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            const bool padding = at + i > bytes.size();
            text += padding ? '=' : digits[group >> (18 - 6 * i) & 0x3FU];
        }
    }
    return text;
}

class SvgCanvas final : public Canvas {
  public:
    SvgCanvas(double width, double height)
        : Canvas(width, height),
          surface_(makeSurface(1, 1)),
          context_(cairo_create(surface_.get())) {
        put("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:g}\" height=\"{1:g}\" "
            "viewBox=\"0 0 {0:g} {1:g}\" font-family=\"{2}, Verdana, sans-serif\">\n",
            width, height, fontName);
        fill({0.0, 0.0, width, height}, {0xFF, 0xFF, 0xFF});
    }

    void fill(const Rect& area, Rgb colour) override {
        put("<rect {} fill=\"{}\"/>\n", box(area), hex(colour));
    }

    void line(std::span<const Point> points, Rgb colour, double thickness) override {
        put("<polyline fill=\"none\" stroke=\"{}\" stroke-width=\"{:g}\" stroke-linejoin=\"round\" "
            "points=\"",
            hex(colour), thickness);
        for (const Point& point : points) {
            put("{:.2f},{:.2f} ", point.x, point.y);
        }
        put("\"/>\n");
    }

    void circle(Point centre, double radius, Rgb colour) override {
        put("<circle cx=\"{:.2f}\" cy=\"{:.2f}\" r=\"{:.2f}\" fill=\"{}\"/>\n", centre.x, centre.y,
            radius, hex(colour));
    }

    void text(Point baseline, const std::string& text, const TextStyle& style) override {
        const char* anchor = style.anchor == Anchor::Start    ? "start"
                             : style.anchor == Anchor::Middle ? "middle"
                                                              : "end";
        put("<text x=\"{0:.2f}\" y=\"{1:.2f}\" font-size=\"{2:g}\" text-anchor=\"{3}\" "
            "fill=\"{4}\"{5}",
            baseline.x, baseline.y, style.size, anchor, hex(style.colour),
            style.bold ? " font-weight=\"bold\"" : "");
        if (style.upwards) {
            put(" transform=\"rotate(-90 {:.2f} {:.2f})\"", baseline.x, baseline.y);
        }
        put(" xml:space=\"preserve\">{}</text>\n", escapeXml(text));
    }

    void image(const Rect& area, const Raster& raster) override {
        const std::vector<std::uint8_t> png = encodePng(surfaceOf(raster).get());
        broken_ = broken_ || png.empty();
        const bool shrinks = area.width < raster.width || area.height < raster.height;
        put("<image {} preserveAspectRatio=\"none\"{} href=\"data:image/png;base64,{}\"/>\n",
            box(area), shrinks ? "" : " style=\"image-rendering:pixelated\"", base64(png));
    }

    void beginClip(const Rect& area) override {
        put("<clipPath id=\"clip{0}\"><rect {1}/></clipPath>\n<g clip-path=\"url(#clip{0})\">\n",
            ++clips_, box(area));
    }

    void endClip() override { put("</g>\n"); }

    [[nodiscard]] double textWidth(const std::string& text, const TextStyle& style) const override {
        return advance(context_.get(), text, style);
    }

    std::vector<std::uint8_t> finish() override {
        put("</svg>\n");
        if (broken_) {
            return {};
        }
        return {out_.begin(), out_.end()};
    }

  private:
    template <typename... Arguments>
    void put(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        fmt::format_to(std::back_inserter(out_), format, std::forward<Arguments>(arguments)...);
    }

    static std::string hex(Rgb colour) {
        return fmt::format("#{:02x}{:02x}{:02x}", colour.r, colour.g, colour.b);
    }

    static std::string box(const Rect& area) {
        return fmt::format("x=\"{:.2f}\" y=\"{:.2f}\" width=\"{:.2f}\" height=\"{:.2f}\"", area.x,
                           area.y, area.width, area.height);
    }

    SurfacePtr surface_;  ///< only to measure text with
    ContextPtr context_;
    std::string out_;
    int clips_ = 0;
    bool broken_ = false;
};

}  // namespace

std::unique_ptr<Canvas> makePngCanvas(double width, double height) {
    return std::make_unique<PngCanvas>(width, height);
}

std::unique_ptr<Canvas> makeSvgCanvas(double width, double height) {
    return std::make_unique<SvgCanvas>(width, height);
}

}  // namespace calcut::tools
