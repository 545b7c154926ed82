#include "platform/draw/PanelPainter.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace zelk::draw {

using osd::OSDModel;
using osd::OSDRow;

// Surfaces ---------------------------------------------------------------------------------------------

ImageSurface::ImageSurface(int width, int height)
    : width_(width),
      height_(height),
      surface_(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height)),
      cr_(cairo_create(surface_)) {}

ImageSurface::~ImageSurface() {
    cairo_destroy(cr_);
    cairo_surface_destroy(surface_);
}

bool ImageSurface::writePNG(const std::filesystem::path& path) {
    cairo_surface_flush(surface_);
    return cairo_surface_write_to_png(surface_, path.c_str()) == CAIRO_STATUS_SUCCESS;
}

std::vector<std::uint32_t> ImageSurface::pixels() {
    cairo_surface_flush(surface_);
    std::vector<std::uint32_t> out(std::size_t(width_) * height_);
    const unsigned char* data = cairo_image_surface_get_data(surface_);
    const int stride = cairo_image_surface_get_stride(surface_);
    for (int y = 0; y < height_; ++y)
        std::copy_n(reinterpret_cast<const std::uint32_t*>(data + std::size_t(y) * stride), width_,
                    out.begin() + std::size_t(y) * width_);
    return out;
}

bool readPNG(const std::filesystem::path& path, int& width, int& height, std::vector<std::uint32_t>& pixels) {
    cairo_surface_t* s = cairo_image_surface_create_from_png(path.c_str());
    if (cairo_surface_status(s) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(s);
        return false;
    }
    width = cairo_image_surface_get_width(s);
    height = cairo_image_surface_get_height(s);
    // Whatever format the file held, compare as ARGB.
    cairo_surface_t* argb = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    cairo_t* cr = cairo_create(argb);
    cairo_set_source_surface(cr, s, 0, 0);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_flush(argb);
    pixels.assign(std::size_t(width) * height, 0);
    const unsigned char* data = cairo_image_surface_get_data(argb);
    const int stride = cairo_image_surface_get_stride(argb);
    for (int y = 0; y < height; ++y)
        std::copy_n(reinterpret_cast<const std::uint32_t*>(data + std::size_t(y) * stride), width,
                    pixels.begin() + std::size_t(y) * width);
    cairo_surface_destroy(argb);
    cairo_surface_destroy(s);
    return true;
}

// Colours, fonts, metrics -----------------------------------------------------------------------------------

namespace {

struct RGBA {
    double r = 1, g = 1, b = 1, a = 1;
    RGBA withAlpha(double alpha) const { return {r, g, b, a * alpha}; }
};

RGBA parseColor(const ColorHex& c, RGBA fallback) {
    const std::string& s = c.rawValue;
    if (s.size() != 7 && s.size() != 9) return fallback;
    auto byte = [&](std::size_t at) { return std::stoi(s.substr(at, 2), nullptr, 16) / 255.0; };
    try {
        return {byte(1), byte(3), byte(5), s.size() == 9 ? byte(7) : 1.0};
    } catch (...) {
        return fallback;
    }
}

void setColor(cairo_t* cr, RGBA c) {
    cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a);
}

void roundedRect(cairo_t* cr, Rect r, double radius) {
    radius = std::max(0.0, std::min({radius, r.width / 2, r.height / 2}));
    const double deg = M_PI / 180;
    cairo_new_sub_path(cr);
    cairo_arc(cr, r.maxX() - radius, r.y + radius, radius, -90 * deg, 0);
    cairo_arc(cr, r.maxX() - radius, r.maxY() - radius, radius, 0, 90 * deg);
    cairo_arc(cr, r.x + radius, r.maxY() - radius, radius, 90 * deg, 180 * deg);
    cairo_arc(cr, r.x + radius, r.y + radius, radius, 180 * deg, 270 * deg);
    cairo_close_path(cr);
}

// The look's measures: row height and text sizes by density.
struct Metrics {
    double rowHeight, titleSize, smallSize, padding, keycap;
};
Metrics metricsFor(WindowSwitcherAppearance d) {
    switch (d) {
        case WindowSwitcherAppearance::dense:
            return {26, 11, 9, 10, 18};
        case WindowSwitcherAppearance::compact:
            return {32, 12, 9.5, 12, 20};
        case WindowSwitcherAppearance::comfortable:
            return {40, 13, 10, 14, 24};
    }
    return {40, 13, 10, 14, 24};
}

class Text {
  public:
    Text(cairo_t* cr, FontStyle style) : cr_(cr), layout_(pango_cairo_create_layout(cr)) {
        family_ = style == FontStyle::mono ? "DejaVu Sans Mono" : "DejaVu Sans";
        // Text renders the same on every machine: fixed hinting and antialiasing.
        cairo_font_options_t* options = cairo_font_options_create();
        cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
        cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
        cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
        pango_cairo_context_set_font_options(pango_layout_get_context(layout_), options);
        cairo_font_options_destroy(options);
        pango_layout_context_changed(layout_);
    }
    ~Text() { g_object_unref(layout_); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    // Lays out one line in `width` points (ellipsised at the end when longer); answers its size.
    Size set(const std::string& text, double size, bool bold, double width, bool centred = false) {
        PangoFontDescription* font = pango_font_description_new();
        pango_font_description_set_family(font, family_);
        pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
        pango_font_description_set_weight(font, bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
        pango_layout_set_font_description(layout_, font);
        pango_font_description_free(font);
        pango_layout_set_text(layout_, text.c_str(), -1);
        pango_layout_set_width(layout_, width > 0 ? int(width * PANGO_SCALE) : -1);
        pango_layout_set_ellipsize(layout_, width > 0 ? PANGO_ELLIPSIZE_END : PANGO_ELLIPSIZE_NONE);
        pango_layout_set_alignment(layout_, centred ? PANGO_ALIGN_CENTER : PANGO_ALIGN_LEFT);
        int w = 0, h = 0;
        pango_layout_get_pixel_size(layout_, &w, &h);
        return {double(w), double(h)};
    }
    void draw(double x, double y, RGBA color) {
        setColor(cr_, color);
        cairo_move_to(cr_, x, y);
        pango_cairo_show_layout(cr_, layout_);
    }
    // One line, vertically centred in a band.
    double line(const std::string& text, double x, double midY, double size, bool bold, double width,
                RGBA c) {
        Size s = set(text, size, bold, width);
        draw(x, midY - s.height / 2, c);
        return s.width;
    }

  private:
    cairo_t* cr_;
    PangoLayout* layout_;
    const char* family_;
};

struct Palette {
    RGBA background, foreground, dim, accent, keycap;
};

Palette paletteFor(const OSDLook& look) {
    Palette p;
    p.foreground = parseColor(look.foregroundColor, {1, 1, 1, 1});
    p.dim = p.foreground.withAlpha(0.55);
    p.accent = parseColor(look.accentColor, {1, 1, 1, 1});
    p.keycap = parseColor(look.keycapColor, {1, 1, 1, 1});
    if (look.backgroundStyle.kind == BackgroundStyle::Kind::solid) {
        p.background = parseColor(look.backgroundStyle.color, {0.12, 0.12, 0.14, 0.95});
    } else {
        // Glass over a dark desktop: a dark tint made denser by the opacity, tinted when asked.
        RGBA tint =
            look.glassTint ? parseColor(*look.glassTint, {0.1, 0.1, 0.12, 1}) : RGBA{0.1, 0.1, 0.12, 1};
        p.background = {tint.r, tint.g, tint.b, std::clamp(0.84 + look.backgroundStyle.opacity, 0.84, 0.97)};
    }
    return p;
}

class PanelPainter {
  public:
    PanelPainter(cairo_t* cr, const OSDModel& m, Rect bounds, const AppIconSource& icons)
        : cr_(cr),
          icons_(icons),
          m_(m),
          b_(bounds),
          look_(m.look),
          met_(metricsFor(m.look.density)),
          pal_(paletteFor(m.look)),
          text_(cr, m.look.fontStyle) {}

    void paint() {
        cairo_save(cr_);
        background();
        roundedRect(cr_, b_, look_.cornerRadius);
        cairo_clip(cr_);
        double y = b_.y + met_.padding;
        if (m_.header.shown) y = header(y);
        double bottom = b_.maxY() - met_.padding;
        if (!m_.sideHint.empty()) bottom = sideHint(bottom);
        if (!m_.footer.empty()) bottom = footer(bottom);
        if (m_.rowCount() == 0)
            emptyText(y, bottom);
        else
            sections(y, bottom);
        if (m_.flash) flash();
        cairo_restore(cr_);
    }

  private:
    double inner() const { return b_.width - 2 * met_.padding; }

    void background() {
        // A soft shadow, then the panel and its hairline edge.
        for (int i = 3; i >= 1; --i) {
            Rect s{b_.x - i * 2, b_.y - i * 2 + 4, b_.width + i * 4, b_.height + i * 4};
            roundedRect(cr_, s, look_.cornerRadius + i * 2);
            setColor(cr_, {0, 0, 0, 0.06});
            cairo_fill(cr_);
        }
        roundedRect(cr_, b_, look_.cornerRadius);
        setColor(cr_, pal_.background);
        cairo_fill_preserve(cr_);
        setColor(cr_, pal_.foreground.withAlpha(0.14));
        cairo_set_line_width(cr_, 1);
        cairo_stroke(cr_);
    }

    double header(double y) {
        const double h = met_.rowHeight + 4;
        Rect field{b_.x + met_.padding, y, inner(), h};
        switch (look_.searchBarStyle) {
            case SearchBarStyle::underlined:
                setColor(cr_, pal_.accent.withAlpha(0.6));
                cairo_rectangle(cr_, field.x, field.maxY() - 1.5, field.width, 1.5);
                cairo_fill(cr_);
                break;
            case SearchBarStyle::clean:
                break;
            case SearchBarStyle::outlined:
                roundedRect(cr_, field, 8);
                setColor(cr_, pal_.foreground.withAlpha(0.3));
                cairo_set_line_width(cr_, 1);
                cairo_stroke(cr_);
                break;
            default:
                roundedRect(cr_, field, look_.searchBarStyle == SearchBarStyle::pill ? h / 2 : 8);
                setColor(cr_, pal_.foreground.withAlpha(0.09));
                cairo_fill(cr_);
        }
        const std::string shown = !m_.header.pinPickText.empty() ? m_.header.pinPickText
                                  : m_.header.buffer.empty()     ? m_.header.placeholder
                                                                 : m_.header.buffer;
        const bool placeholder = m_.header.pinPickText.empty() && m_.header.buffer.empty();
        text_.line(shown, field.x + 10, field.midY(), met_.titleSize + 2, false, field.width - 20,
                   placeholder ? pal_.dim : pal_.foreground);
        y = field.maxY() + 6;
        if (!m_.header.pinPickHint.empty()) {
            text_.line(m_.header.pinPickHint, field.x + 4, y + 7, met_.smallSize, false, field.width,
                       pal_.dim);
            y += 16;
        }
        double x = field.x;
        for (auto& chip : m_.header.chips) {
            Size s = text_.set(chip.label, met_.smallSize, false, 0);
            Rect c{x, y, s.width + 14, s.height + 6};
            if (c.maxX() > field.maxX()) break;
            roundedRect(cr_, c, c.height / 2);
            setColor(cr_, pal_.foreground.withAlpha(0.12));
            cairo_fill(cr_);
            text_.draw(c.x + 7, c.y + 3, pal_.dim);
            x = c.maxX() + 6;
        }
        return y + (m_.header.chips.empty() ? 0 : met_.smallSize + 14);
    }

    void keycap(const std::string& key, double x, double midY, bool highlighted) {
        const double k = met_.keycap;
        Rect cap{x, midY - k / 2, k, k};
        RGBA kc = highlighted ? pal_.accent : pal_.keycap;
        switch (look_.keycapStyle) {
            case KeycapStyle::badge:
                roundedRect(cr_, cap, 5);
                setColor(cr_, kc.withAlpha(0.22));
                cairo_fill(cr_);
                break;
            case KeycapStyle::bordered:
                roundedRect(cr_, cap, 5);
                setColor(cr_, kc.withAlpha(0.7));
                cairo_set_line_width(cr_, 1.2);
                cairo_stroke(cr_);
                break;
            case KeycapStyle::plaintext:
                break;
        }
        Size s = text_.set(key, met_.titleSize - 1, true, 0);
        text_.draw(cap.midX() - s.width / 2, midY - s.height / 2, kc);
    }

    void highlight(Rect row) {
        switch (look_.focusStyle) {
            case FocusStyle::bar:
                roundedRect(cr_, row, 6);
                setColor(cr_, pal_.accent.withAlpha(0.14));
                cairo_fill(cr_);
                roundedRect(cr_, {row.x, row.y + 4, 3, row.height - 8}, 1.5);
                setColor(cr_, pal_.accent);
                cairo_fill(cr_);
                break;
            case FocusStyle::pill:
                roundedRect(cr_, row, row.height / 2);
                setColor(cr_, pal_.accent.withAlpha(0.22));
                cairo_fill(cr_);
                break;
            case FocusStyle::underline:
                cairo_rectangle(cr_, row.x + 8, row.maxY() - 2, row.width - 16, 2);
                setColor(cr_, pal_.accent);
                cairo_fill(cr_);
                break;
            case FocusStyle::glow:
                for (int i = 3; i >= 0; --i) {
                    roundedRect(cr_, {row.x - i, row.y - i, row.width + 2 * i, row.height + 2 * i}, 8 + i);
                    setColor(cr_, pal_.accent.withAlpha(0.07));
                    cairo_fill(cr_);
                }
                break;
            case FocusStyle::border:
                roundedRect(cr_, row, 6);
                setColor(cr_, pal_.accent.withAlpha(0.8));
                cairo_set_line_width(cr_, 1.5);
                cairo_stroke(cr_);
                break;
        }
    }

    void separation(Rect row, std::size_t index) {
        switch (look_.rowSeparationStyle) {
            case RowSeparationStyle::zebra:
                if (index % 2) {
                    roundedRect(cr_, row, 4);
                    setColor(cr_, pal_.foreground.withAlpha(0.04));
                    cairo_fill(cr_);
                }
                break;
            case RowSeparationStyle::dividers:
                cairo_rectangle(cr_, row.x + 8, row.maxY() - 0.5, row.width - 16, 0.5);
                setColor(cr_, pal_.foreground.withAlpha(0.1));
                cairo_fill(cr_);
                break;
            case RowSeparationStyle::outlined:
                roundedRect(cr_, row, 6);
                setColor(cr_, pal_.foreground.withAlpha(0.08));
                cairo_set_line_width(cr_, 1);
                cairo_stroke(cr_);
                break;
            case RowSeparationStyle::floating:
            case RowSeparationStyle::filled:
                roundedRect(cr_, {row.x, row.y + 1, row.width, row.height - 2}, 6);
                setColor(cr_, pal_.foreground.withAlpha(0.03));
                cairo_fill(cr_);
                break;
            case RowSeparationStyle::none:
                break;
        }
    }

    void row(const OSDRow& r, Rect band, std::size_t index) {
        separation(band, index);
        if (r.highlighted) highlight(band);
        const double indent = r.isWindow ? met_.keycap * 0.75 : 0;
        double x = band.x + 8 + indent;
        if (!r.key.empty()) keycap(r.key, x, band.midY(), r.highlighted);
        x += met_.keycap + 10;
        x += appIcon(r, x, band);
        const double right = band.maxX() - 8;
        std::string trailing = r.space.empty() ? "" : "Space " + r.space;
        if (r.minimised) trailing = trailing.empty() ? "minimised" : trailing + " \xC2\xB7 minimised";
        if (r.closed) trailing = "closed";
        if (!r.detail.empty()) trailing = trailing.empty() ? r.detail : trailing + " \xC2\xB7 " + r.detail;
        double trailingWidth = 0;
        if (!trailing.empty()) {
            Size s = text_.set(trailing, met_.smallSize, false, 0);
            trailingWidth = s.width + 8;
            text_.draw(right - s.width, band.midY() - s.height / 2, pal_.dim);
        }
        RGBA titleColor = r.closed || r.minimised ? pal_.dim : pal_.foreground;
        if (!r.isWindow && !r.running && !r.key.empty()) titleColor = pal_.foreground.withAlpha(0.75);
        const double size = r.isWindow ? met_.titleSize - 1 : met_.titleSize;
        text_.line(r.title.empty() ? "Untitled" : r.title, x, band.midY(), size, r.highlighted && !r.isWindow,
                   std::max(10.0, right - x - trailingWidth), titleColor);
        // A running app without windows listed still reads as running: a small dot.
        if (!r.isWindow && r.running) {
            cairo_arc(cr_, band.x + 4 + indent, band.midY(), 1.6, 0, 2 * M_PI);
            setColor(cr_, pal_.dim);
            cairo_fill(cr_);
        }
    }

    // The icon of an app row of the app and search panels, at most the look's size and within the row;
    // the room it takes.
    double appIcon(const OSDRow& r, double x, Rect band) {
        const bool appRow =
            !r.isWindow && !r.closed && !r.id.empty() &&
            (m_.view.view == osd::OSDView::appSwitcher || m_.view.view == osd::OSDView::search);
        if (!appRow) return 0;
        const double side = std::min(look_.appIconSize, band.height - 6);
        if (side < 8) return 0;
        drawAppIcon(cr_, icons_, r.id, r.title, {x, band.midY() - side / 2, side, side}, look_.iconStyle,
                    r.highlighted);
        return side + 8;
    }

    void sections(double top, double bottom) {
        double y = top;
        std::size_t index = 0;
        const double spacing = look_.rowSeparationStyle == RowSeparationStyle::floating ? 4 : 0;
        for (auto& section : m_.sections) {
            if (!section.title.empty()) {
                if (y + 20 > bottom) return;
                text_.line(section.title, b_.x + met_.padding + 4, y + 9, met_.smallSize, true, inner(),
                           pal_.dim);
                y += 20;
            }
            for (auto& r : section.rows) {
                if (y + met_.rowHeight > bottom) return;
                row(r, {b_.x + met_.padding, y, inner(), met_.rowHeight}, index++);
                y += met_.rowHeight + spacing;
            }
            y += 6;
        }
    }

    void emptyText(double top, double bottom) {
        Size s = text_.set(m_.emptyText, met_.titleSize, false, inner(), true);
        text_.draw(b_.x + met_.padding, top + (bottom - top - s.height) / 2, pal_.dim);
    }

    // The hints, bottom up: one line of key caps and labels, dropped when the panel is too narrow.
    double footer(double bottom) {
        const double h = met_.smallSize + 10;
        const double y = bottom - h;
        setColor(cr_, pal_.foreground.withAlpha(0.1));
        cairo_rectangle(cr_, b_.x + met_.padding, y - 6, inner(), 0.5);
        cairo_fill(cr_);
        double x = b_.x + met_.padding;
        for (auto& hint : m_.footer) {
            Size k = text_.set(hint.key, met_.smallSize, true, 0);
            Size l = text_.set(hint.label, met_.smallSize, false, 0);
            if (x + k.width + l.width + 20 > b_.maxX() - met_.padding) break;
            Rect cap{x, y + 1, k.width + 8, h - 2};
            roundedRect(cr_, cap, 4);
            setColor(cr_, pal_.keycap.withAlpha(0.16));
            cairo_fill(cr_);
            text_.set(hint.key, met_.smallSize, true, 0);
            text_.draw(cap.x + 4, cap.midY() - k.height / 2, pal_.foreground);
            text_.set(hint.label, met_.smallSize, false, 0);
            text_.draw(cap.maxX() + 4, cap.midY() - l.height / 2, pal_.dim);
            x = cap.maxX() + 4 + l.width + 10;
        }
        return y - 10;
    }

    double sideHint(double bottom) {
        Size s = text_.set(m_.sideHint, met_.smallSize - 0.5, false, inner());
        text_.draw(b_.x + met_.padding, bottom - s.height, pal_.dim.withAlpha(0.8));
        return bottom - s.height - 6;
    }

    // The flash's symbol, drawn as lines in a circle of `ink` for the action symbols; any other short
    // icon is a glyph of text before the label.
    static bool isActionSymbol(const std::string& icon) {
        return icon == "xmark.circle.fill" || icon == "power.circle.fill" || icon == "minus.circle.fill" ||
               icon == "eye.slash.circle.fill";
    }
    void actionSymbol(const std::string& icon, Point c, double r, RGBA ink, RGBA fill) {
        cairo_new_path(cr_);
        cairo_arc(cr_, c.x, c.y, r, 0, 2 * M_PI);
        setColor(cr_, ink);
        cairo_fill(cr_);
        setColor(cr_, fill);
        cairo_set_line_width(cr_, r * 0.22);
        cairo_set_line_cap(cr_, CAIRO_LINE_CAP_ROUND);
        const double k = r * 0.42;
        if (icon == "xmark.circle.fill") {
            cairo_move_to(cr_, c.x - k, c.y - k);
            cairo_line_to(cr_, c.x + k, c.y + k);
            cairo_move_to(cr_, c.x + k, c.y - k);
            cairo_line_to(cr_, c.x - k, c.y + k);
        } else if (icon == "minus.circle.fill") {
            cairo_move_to(cr_, c.x - k * 1.2, c.y);
            cairo_line_to(cr_, c.x + k * 1.2, c.y);
        } else if (icon == "power.circle.fill") {
            cairo_arc(cr_, c.x, c.y + k * 0.15, k * 1.1, -M_PI / 2 + 0.7, 3 * M_PI / 2 - 0.7);
            cairo_stroke(cr_);
            cairo_move_to(cr_, c.x, c.y - k * 1.3);
            cairo_line_to(cr_, c.x, c.y);
        } else {
            cairo_save(cr_);
            cairo_translate(cr_, c.x, c.y);
            cairo_scale(cr_, 1.0, 0.6);
            cairo_arc(cr_, 0, 0, k * 1.3, 0, 2 * M_PI);
            cairo_restore(cr_);
            cairo_stroke(cr_);
            cairo_move_to(cr_, c.x - k * 1.3, c.y + k * 1.3);
            cairo_line_to(cr_, c.x + k * 1.3, c.y - k * 1.3);
        }
        cairo_stroke(cr_);
    }

    void flash() {
        const std::string& icon = m_.flash->icon;
        const bool symbol = isActionSymbol(icon);
        const bool glyph = !symbol && !icon.empty() && icon.size() <= 4;
        const std::string label = (glyph ? icon + "  " : "") + m_.flash->label;
        Size s = text_.set(label, met_.titleSize, true, 0);
        const double symbolWidth = symbol ? s.height + 8 : 0;
        Rect pill{b_.midX() - (s.width + symbolWidth) / 2 - 16, b_.maxY() - met_.padding - s.height - 48,
                  s.width + symbolWidth + 32, s.height + 14};
        roundedRect(cr_, pill, pill.height / 2);
        setColor(cr_, pal_.accent.withAlpha(0.9));
        cairo_fill(cr_);
        RGBA ink =
            pal_.accent.r + pal_.accent.g + pal_.accent.b > 1.8 ? RGBA{0.08, 0.08, 0.1, 1} : RGBA{1, 1, 1, 1};
        if (symbol)
            actionSymbol(icon, {pill.x + 16 + s.height / 2, pill.midY()}, s.height / 2, ink, pal_.accent);
        text_.draw(pill.x + 16 + symbolWidth, pill.y + 7, ink);
    }

    cairo_t* cr_;
    const AppIconSource& icons_;
    const OSDModel& m_;
    Rect b_;
    const OSDLook& look_;
    Metrics met_;
    Palette pal_;
    Text text_;
};

}  // namespace

void drawPanel(Surface& surface, const OSDModel& model, Rect bounds, const AppIconSource* icons) {
    PanelPainter(surface.context(), model, bounds, icons ? *icons : generatedAppIcons()).paint();
}

// The desktop
// ---------------------------------------------------------------------------------------------------

Rect DesktopPicture::bounds() const {
    if (displays.empty()) return {0, 0, 1440, 900};
    double x0 = displays[0].frame.x, y0 = displays[0].frame.y, x1 = displays[0].frame.maxX(),
           y1 = displays[0].frame.maxY();
    for (auto& d : displays) {
        x0 = std::min(x0, d.frame.x);
        y0 = std::min(y0, d.frame.y);
        x1 = std::max(x1, d.frame.maxX());
        y1 = std::max(y1, d.frame.maxY());
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

void drawDesktop(Surface& surface, const DesktopPicture& desktop, const OSDModel& model, double scale,
                 const AppIconSource* icons) {
    cairo_t* cr = surface.context();
    const Rect all = desktop.bounds();
    cairo_save(cr);
    setColor(cr, {0.16, 0.17, 0.19, 1});
    cairo_paint(cr);
    cairo_scale(cr, scale, scale);
    cairo_translate(cr, -all.x, -all.y);
    Text text(cr, FontStyle::system);
    for (auto& d : desktop.displays) {
        cairo_pattern_t* g =
            cairo_pattern_create_linear(d.frame.x, d.frame.y, d.frame.maxX(), d.frame.maxY());
        cairo_pattern_add_color_stop_rgb(g, 0, 0.20, 0.33, 0.47);
        cairo_pattern_add_color_stop_rgb(g, 1, 0.36, 0.25, 0.42);
        cairo_rectangle(cr, d.frame.x, d.frame.y, d.frame.width, d.frame.height);
        cairo_set_source(cr, g);
        cairo_fill(cr);
        cairo_pattern_destroy(g);
        setColor(cr, {0.95, 0.95, 0.97, 0.85});
        cairo_rectangle(cr, d.frame.x, d.frame.y, d.frame.width, d.menuBarHeight);
        cairo_fill(cr);
        text.line(d.name, d.frame.x + 12, d.frame.y + d.menuBarHeight / 2, 13, true, 0, {0.1, 0.1, 0.12, 1});
    }
    for (auto& w : desktop.windows) {
        roundedRect(cr, w.frame, 10);
        setColor(cr, {0.96, 0.96, 0.97, 1});
        cairo_fill(cr);
        roundedRect(cr, {w.frame.x, w.frame.y, w.frame.width, 28}, 10);
        setColor(cr, w.focused ? RGBA{0.84, 0.86, 0.9, 1} : RGBA{0.9, 0.9, 0.91, 1});
        cairo_fill(cr);
        roundedRect(cr, w.frame, 10);
        setColor(cr, {0, 0, 0, w.focused ? 0.45 : 0.2});
        cairo_set_line_width(cr, w.focused ? 2 : 1);
        cairo_stroke(cr);
        text.line(w.app + " \xE2\x80\x94 " + w.title, w.frame.x + 14, w.frame.y + 14, 13, w.focused,
                  w.frame.width - 28, {0.15, 0.15, 0.18, 1});
    }
    if (model.visibility.visible()) drawPanel(surface, model, model.placement.frame, icons);
    cairo_restore(cr);
}

}  // namespace zelk::draw
