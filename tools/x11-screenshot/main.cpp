// zelk-x11-screenshot: a picture of the screen while a key is held, e.g. the app panel over the
// desktop's windows. Optionally paints the root a plain colour first (Xvfb's own root is a stipple),
// presses and holds the key through XTest, waits until the window with the given name is on screen
// and has settled, reads the whole screen, releases the key and writes a PNG, scaled.
//
//   zelk-x11-screenshot OUT.png [--hold KEYCODE] [--wait-for WINDOW_NAME] [--scale S] [--root RRGGBB]
#include <cairo.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Options {
    std::string out;
    int hold = 0;
    std::string waitFor;
    double scale = 1;
    std::string root;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> std::string { return i + 1 < argc ? argv[++i] : ""; };
        if (a == "--hold")
            o.hold = std::atoi(value().c_str());
        else if (a == "--wait-for")
            o.waitFor = value();
        else if (a == "--scale")
            o.scale = std::atof(value().c_str());
        else if (a == "--root")
            o.root = value();
        else if (o.out.empty() && a.rfind("--", 0) != 0)
            o.out = a;
        else
            return false;
    }
    return !o.out.empty() && o.scale > 0 && o.scale <= 4 && o.hold >= 0 && o.hold < 256;
}

// A top-level window with this name that is on screen.
bool viewable(xcb_connection_t* c, xcb_window_t root, const std::string& name) {
    auto* tree = xcb_query_tree_reply(c, xcb_query_tree(c, root), nullptr);
    if (!tree) return false;
    bool found = false;
    auto* kids = xcb_query_tree_children(tree);
    for (int i = 0; i < xcb_query_tree_children_length(tree) && !found; ++i) {
        auto* p = xcb_get_property_reply(
            c, xcb_get_property(c, 0, kids[i], XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 0, 64), nullptr);
        auto* a = xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, kids[i]), nullptr);
        found = p && a && a->map_state == XCB_MAP_STATE_VIEWABLE &&
                std::string(static_cast<char*>(xcb_get_property_value(p)),
                            static_cast<std::size_t>(xcb_get_property_value_length(p))) == name;
        std::free(p);
        std::free(a);
    }
    std::free(tree);
    return found;
}

std::vector<std::uint8_t> grab(xcb_connection_t* c, xcb_screen_t* s) {
    auto* img = xcb_get_image_reply(c,
                                    xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, s->root, 0, 0,
                                                  s->width_in_pixels, s->height_in_pixels, ~0u),
                                    nullptr);
    std::vector<std::uint8_t> out;
    if (img && std::size_t(xcb_get_image_data_length(img)) ==
                   std::size_t(s->width_in_pixels) * s->height_in_pixels * 4)
        out.assign(xcb_get_image_data(img), xcb_get_image_data(img) + xcb_get_image_data_length(img));
    std::free(img);
    return out;
}

void key(xcb_connection_t* c, std::uint8_t type, int code) {
    xcb_test_fake_input(c, type, static_cast<std::uint8_t>(code), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        std::fprintf(stderr,
                     "usage: zelk-x11-screenshot OUT.png [--hold KEYCODE] [--wait-for WINDOW_NAME] "
                     "[--scale S] [--root RRGGBB]\n");
        return 2;
    }
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "zelk-x11-screenshot: cannot open the display\n");
        return 1;
    }
    xcb_screen_t* s = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (!o.root.empty()) {
        std::uint32_t pixel = static_cast<std::uint32_t>(std::strtoul(o.root.c_str(), nullptr, 16));
        xcb_change_window_attributes(c, s->root, XCB_CW_BACK_PIXEL, &pixel);
        xcb_clear_area(c, 0, s->root, 0, 0, 0, 0);
    }
    if (o.hold) key(c, XCB_KEY_PRESS, o.hold);
    bool shown = o.waitFor.empty();
    for (int i = 0; i < 250 && !shown; ++i) {
        shown = viewable(c, s->root, o.waitFor);
        if (!shown) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    // Settled: two reads a moment apart agree.
    std::vector<std::uint8_t> pixels = grab(c, s);
    for (int i = 0; i < 50; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        auto again = grab(c, s);
        bool same = again == pixels;
        pixels = std::move(again);
        if (same) break;
    }
    if (o.hold) key(c, XCB_KEY_RELEASE, o.hold);
    xcb_disconnect(c);
    if (!shown) {
        std::fprintf(stderr, "zelk-x11-screenshot: \"%s\" never showed\n", o.waitFor.c_str());
        return 1;
    }
    if (pixels.empty()) {
        std::fprintf(stderr, "zelk-x11-screenshot: can't read the screen (not 32 bits a pixel)\n");
        return 1;
    }
    const int w = s->width_in_pixels, h = s->height_in_pixels;
    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_RGB24, w);
    std::vector<std::uint8_t> rows(std::size_t(stride) * h);
    for (int y = 0; y < h; ++y)
        std::memcpy(rows.data() + std::size_t(y) * stride, pixels.data() + std::size_t(y) * w * 4,
                    std::size_t(w) * 4);
    cairo_surface_t* screen =
        cairo_image_surface_create_for_data(rows.data(), CAIRO_FORMAT_RGB24, w, h, stride);
    const int ow = int(w * o.scale), oh = int(h * o.scale);
    cairo_surface_t* out = cairo_image_surface_create(CAIRO_FORMAT_RGB24, ow, oh);
    cairo_t* cr = cairo_create(out);
    cairo_scale(cr, o.scale, o.scale);
    cairo_set_source_surface(cr, screen, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint(cr);
    cairo_destroy(cr);
    const bool written = cairo_surface_write_to_png(out, o.out.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(out);
    cairo_surface_destroy(screen);
    if (!written) {
        std::fprintf(stderr, "zelk-x11-screenshot: can't write %s\n", o.out.c_str());
        return 1;
    }
    return 0;
}
