#include "platform/x11/X11PanelWindow.h"

#include <cairo-xcb.h>
#include <cairo.h>
#include <xcb/xcb.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "platform/draw/PanelPainter.h"
#include "support/Log.h"

namespace zelk::x11 {

using ferrow::Log;

std::optional<PanelGeometry> panelGeometry(Rect frame) {
    if (!(frame.width >= 1 && frame.height >= 1) || !std::isfinite(frame.x) || !std::isfinite(frame.y) ||
        frame.width > 16384 || frame.height > 16384)
        return std::nullopt;
    PanelGeometry g;
    g.x = static_cast<std::int32_t>(std::floor(frame.x - kPanelShadowMargin));
    g.y = static_cast<std::int32_t>(std::floor(frame.y - kPanelShadowMargin));
    g.width = static_cast<std::uint32_t>(std::ceil(frame.maxX() + kPanelShadowMargin) - g.x);
    g.height = static_cast<std::uint32_t>(std::ceil(frame.maxY() + kPanelShadowMargin) - g.y);
    return g;
}

namespace {

// The part of the model the picture shows: the visibility's timers and strikes don't change it.
osd::OSDModel pictureOf(osd::OSDModel model) {
    model.visibility = {};
    return model;
}

}  // namespace

PanelStep planPanelStep(const PanelShown& now, const osd::OSDModel& model) {
    PanelStep step;
    auto geometry = model.visibility.visible() ? panelGeometry(model.placement.frame) : std::nullopt;
    if (!geometry) {
        step.unmap = now.mapped;
        return step;
    }
    const bool moved = now.mapped && now.geometry != geometry;
    if (!now.mapped || moved) {
        step.unmap = moved;
        step.captureBehind = true;
        step.draw = true;
        step.map = true;
        return step;
    }
    step.draw = !now.drawn || pictureOf(*now.drawn) != pictureOf(model);
    return step;
}

// The window, the pixmap it shows as its background (so the server repaints it with no expose
// handling of ours), and the desktop as it was under it.
struct PanelWindow::Impl {
    xcb_connection_t* conn = nullptr;
    xcb_screen_t* screen = nullptr;
    xcb_visualtype_t* visual = nullptr;
    std::uint8_t depth = 0;
    bool argb = false;
    xcb_atom_t compositorSelection = XCB_NONE;
    xcb_window_t window = XCB_NONE;
    xcb_pixmap_t pixmap = XCB_NONE;
    PanelGeometry pixmapSize;
    cairo_surface_t* behind = nullptr;  // RGB24 image of the desktop under the window, or none

    ~Impl() {
        if (behind) cairo_surface_destroy(behind);
        if (conn) {
            if (pixmap != XCB_NONE) xcb_free_pixmap(conn, pixmap);
            if (window != XCB_NONE) xcb_destroy_window(conn, window);
            xcb_disconnect(conn);
        }
    }

    xcb_atom_t atom(const std::string& name) {
        auto* r = xcb_intern_atom_reply(
            conn, xcb_intern_atom(conn, 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr);
        xcb_atom_t a = r ? r->atom : XCB_NONE;
        std::free(r);
        return a;
    }

    // A 32-bit TrueColor visual gives real transparency under a compositor; without one, the root's.
    void chooseVisual() {
        for (auto d = xcb_screen_allowed_depths_iterator(screen); d.rem; xcb_depth_next(&d)) {
            if (d.data->depth != 32) continue;
            for (auto v = xcb_depth_visuals_iterator(d.data); v.rem; xcb_visualtype_next(&v))
                if (v.data->_class == XCB_VISUAL_CLASS_TRUE_COLOR) {
                    visual = v.data;
                    depth = 32;
                    argb = true;
                    return;
                }
        }
        for (auto d = xcb_screen_allowed_depths_iterator(screen); d.rem; xcb_depth_next(&d))
            for (auto v = xcb_depth_visuals_iterator(d.data); v.rem; xcb_visualtype_next(&v))
                if (v.data->visual_id == screen->root_visual) {
                    visual = v.data;
                    depth = screen->root_depth;
                    return;
                }
    }

    void createWindow() {
        window = xcb_generate_id(conn);
        xcb_colormap_t colormap = xcb_generate_id(conn);
        xcb_create_colormap(conn, XCB_COLORMAP_ALLOC_NONE, colormap, screen->root, visual->visual_id);
        // A window of another depth than its parent needs its own border pixel and colormap.
        const std::uint32_t values[] = {0, 0, 1, colormap};
        xcb_create_window(
            conn, depth, window, screen->root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
            visual->visual_id,
            XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP, values);
        xcb_free_colormap(conn, colormap);
        const std::string name = "zelk panel";
        xcb_change_property(conn, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                            static_cast<std::uint32_t>(name.size()), name.data());
        xcb_change_property(conn, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8,
                            static_cast<std::uint32_t>(name.size()), name.data());
        const char cls[] = "zelk\0zelk";
        xcb_change_property(conn, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            sizeof cls, cls);
        xcb_atom_t type = atom("_NET_WM_WINDOW_TYPE_NOTIFICATION");
        xcb_change_property(conn, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM,
                            32, 1, &type);
        compositorSelection = atom("_NET_WM_CM_S" + std::to_string(screenIndex));
    }

    bool composited() {
        if (!argb || compositorSelection == XCB_NONE) return false;
        auto* r =
            xcb_get_selection_owner_reply(conn, xcb_get_selection_owner(conn, compositorSelection), nullptr);
        bool owned = r && r->owner != XCB_NONE;
        std::free(r);
        return owned;
    }

    // Waits until the server has done everything asked so far.
    void sync() { std::free(xcb_get_input_focus_reply(conn, xcb_get_input_focus(conn), nullptr)); }

    // With no compositor an ARGB window shows black where it is transparent (the rounded corners and
    // the shadow), so the desktop under it is read once and painted first.
    void captureBehind(const PanelGeometry& g) {
        if (behind) cairo_surface_destroy(behind);
        behind = nullptr;
        if (composited()) return;
        sync();
        auto* r = xcb_get_image_reply(
            conn,
            xcb_get_image(conn, XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root, static_cast<std::int16_t>(g.x),
                          static_cast<std::int16_t>(g.y), static_cast<std::uint16_t>(g.width),
                          static_cast<std::uint16_t>(g.height), ~0u),
            nullptr);
        // Parts off the screen can't be read: the whole read fails, and the corners stay dark.
        if (!r) return;
        const auto length = static_cast<std::size_t>(xcb_get_image_data_length(r));
        if (r->depth == 24 && length == std::size_t(g.width) * g.height * 4) {
            behind = cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(g.width),
                                                static_cast<int>(g.height));
            cairo_surface_flush(behind);
            unsigned char* data = cairo_image_surface_get_data(behind);
            const int stride = cairo_image_surface_get_stride(behind);
            for (std::uint32_t y = 0; y < g.height; ++y)
                std::memcpy(data + std::size_t(y) * stride,
                            xcb_get_image_data(r) + std::size_t(y) * g.width * 4, std::size_t(g.width) * 4);
            cairo_surface_mark_dirty(behind);
        }
        std::free(r);
    }

    void ensurePixmap(const PanelGeometry& g) {
        if (pixmap != XCB_NONE && pixmapSize.width == g.width && pixmapSize.height == g.height) return;
        if (pixmap != XCB_NONE) xcb_free_pixmap(conn, pixmap);
        pixmap = xcb_generate_id(conn);
        xcb_create_pixmap(conn, depth, pixmap, window, static_cast<std::uint16_t>(g.width),
                          static_cast<std::uint16_t>(g.height));
        pixmapSize = g;
    }

    void draw(const osd::OSDModel& model, const PanelGeometry& g);

    int screenIndex = 0;
};

namespace {

// The window's pixmap as a surface the panel painter draws on.
class PixmapSurface final : public draw::Surface {
  public:
    PixmapSurface(xcb_connection_t* conn, xcb_pixmap_t pixmap, xcb_visualtype_t* visual, int width,
                  int height)
        : size_{double(width), double(height)},
          surface_(cairo_xcb_surface_create(conn, pixmap, visual, width, height)),
          cr_(cairo_create(surface_)) {}
    ~PixmapSurface() override {
        cairo_destroy(cr_);
        cairo_surface_flush(surface_);
        cairo_surface_destroy(surface_);
    }
    PixmapSurface(const PixmapSurface&) = delete;
    PixmapSurface& operator=(const PixmapSurface&) = delete;
    cairo_t* context() override { return cr_; }
    Size size() const override { return size_; }

  private:
    Size size_;
    cairo_surface_t* surface_;
    cairo_t* cr_;
};

}  // namespace

void PanelWindow::Impl::draw(const osd::OSDModel& model, const PanelGeometry& g) {
    ensurePixmap(g);
    {
        PixmapSurface surface(conn, pixmap, visual, static_cast<int>(g.width), static_cast<int>(g.height));
        cairo_t* cr = surface.context();
        cairo_save(cr);
        cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
        if (behind)
            cairo_set_source_surface(cr, behind, 0, 0);
        else
            cairo_set_source_rgba(cr, 0, 0, 0, 0);
        cairo_paint(cr);
        cairo_restore(cr);
        const Rect frame = model.placement.frame;
        draw::drawPanel(surface, model, {frame.x - g.x, frame.y - g.y, frame.width, frame.height});
    }
    xcb_change_window_attributes(conn, window, XCB_CW_BACK_PIXMAP, &pixmap);
    xcb_clear_area(conn, 0, window, 0, 0, 0, 0);
}

PanelWindow::PanelWindow(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
PanelWindow::~PanelWindow() = default;

std::unique_ptr<PanelWindow> PanelWindow::open(const std::string& display, std::string& error) {
    auto impl = std::make_unique<Impl>();
    impl->conn = xcb_connect(display.empty() ? nullptr : display.c_str(), &impl->screenIndex);
    if (xcb_connection_has_error(impl->conn)) {
        error = "can't open the display for the panel";
        return nullptr;
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(impl->conn));
    for (int i = 0; i < impl->screenIndex && it.rem; ++i)
        xcb_screen_next(&it);
    impl->screen = it.data;
    impl->chooseVisual();
    if (!impl->visual) {
        error = "no visual to draw the panel with";
        return nullptr;
    }
    impl->createWindow();
    xcb_flush(impl->conn);
    return std::unique_ptr<PanelWindow>(new PanelWindow(std::move(impl)));
}

void PanelWindow::show(const osd::OSDModel& model) {
    if (xcb_connection_has_error(impl_->conn)) return;
    auto* c = impl_->conn;
    // Nothing is listened to here; errors (a read of the screen partly off it) are only let go.
    while (xcb_generic_event_t* e = xcb_poll_for_event(c))
        std::free(e);
    const PanelStep step = planPanelStep(shown_, model);
    if (step.unmap) {
        xcb_unmap_window(c, impl_->window);
        shown_.mapped = false;
    }
    if (!model.visibility.visible() || !step.draw) {
        xcb_flush(c);
        return;
    }
    const PanelGeometry g = *panelGeometry(model.placement.frame);
    if (step.captureBehind) impl_->captureBehind(g);
    impl_->draw(model, g);
    shown_.drawn = model;
    if (step.map) {
        const std::uint32_t values[] = {static_cast<std::uint32_t>(g.x), static_cast<std::uint32_t>(g.y),
                                        g.width, g.height, XCB_STACK_MODE_ABOVE};
        xcb_configure_window(c, impl_->window,
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                                 XCB_CONFIG_WINDOW_HEIGHT | XCB_CONFIG_WINDOW_STACK_MODE,
                             values);
        xcb_map_window(c, impl_->window);
        shown_.mapped = true;
        shown_.geometry = g;
        Log::debug("x11: panel shown at {},{} {}x{}", g.x, g.y, g.width, g.height);
    }
    xcb_flush(c);
}

}  // namespace zelk::x11
