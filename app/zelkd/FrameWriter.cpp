#include "FrameWriter.h"

#include <cairo.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <set>

#include "TraceRecorder.h"
#include "platform/draw/PanelPainter.h"

namespace zelk::agent {

namespace {

// The frames are half size: enough to read the panel, small enough to keep.
constexpr double kScale = 0.5;

draw::DesktopPicture pictureOf(const sim::SimWorld& world) {
    draw::DesktopPicture p;
    std::set<std::uint64_t> shown;
    for (auto& d : world.displays()) {
        p.displays.push_back({d.frame, d.name, d.menuBarHeight});
        shown.insert(d.currentSpace);
    }
    const std::uint32_t focused = world.focusedWindow();
    // Windows of the front app last, so they stand in front.
    std::vector<draw::DesktopPicture::Window> back, front;
    for (auto& app : world.apps()) {
        if (!app.running || app.hidden) continue;
        for (auto it = app.windowOrder.rbegin(); it != app.windowOrder.rend(); ++it) {
            auto w = world.windows().find(*it);
            if (w == world.windows().end() || w->second.minimized || !shown.count(w->second.space)) continue;
            draw::DesktopPicture::Window pw{w->second.frame, w->second.title, app.name, w->first == focused};
            (app.pid == world.frontPid() ? front : back).push_back(std::move(pw));
        }
    }
    p.windows = std::move(back);
    p.windows.insert(p.windows.end(), front.begin(), front.end());
    return p;
}

std::string escapeHtml(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

}  // namespace

FrameWriter::FrameWriter(std::filesystem::path directory) : dir_(std::move(directory)) {}

bool FrameWriter::open(std::string& error) {
    std::error_code ec;
    std::filesystem::create_directories(dir_, ec);
    if (ec) {
        error = fmt::format("cannot make {}: {}", dir_.string(), ec.message());
        return false;
    }
    return true;
}

void FrameWriter::add(const sim::SimWorld& world, const osd::OSDModel& model, double atMs) {
    // A frame when the picture of the panel changes: hidden states all look alike.
    std::string key =
        model.visibility.visible() ? osd::describe(model) + model.look.toJson().dump() : "hidden";
    lastModel_ = model;
    if (key == lastKey_) return;
    lastKey_ = key;
    write(world, model, atMs, osd::describe(model));
}

void FrameWriter::addOverlayChange(const sim::SimWorld& world, const std::string& caption, double atMs) {
    write(world, lastModel_.value_or(osd::OSDModel{}), atMs, caption);
}

void FrameWriter::write(const sim::SimWorld& world, const osd::OSDModel& model, double atMs,
                        std::string caption) {
    auto picture = pictureOf(world);
    Rect all = picture.bounds();
    draw::ImageSurface surface(int(std::ceil(all.width * kScale)), int(std::ceil(all.height * kScale)));
    draw::drawDesktop(surface, picture, model, kScale);
    if (overlay_) {
        cairo_t* cr = surface.context();
        cairo_save(cr);
        cairo_scale(cr, kScale, kScale);
        cairo_translate(cr, -all.x, -all.y);
        overlay_(surface);
        cairo_restore(cr);
    }
    std::string file = fmt::format("frame-{:04}.png", frames_.size() + 1);
    surface.writePNG(dir_ / file);
    frames_.push_back({file, atMs, std::move(caption)});
}

void FrameWriter::addOverview(const sim::SimWorld& world, const draw::OverviewPicture& picture,
                              const std::string& caption, double atMs) {
    if (caption == lastOverviewKey_) return;
    lastOverviewKey_ = caption;
    auto desktop = pictureOf(world);
    Rect all = desktop.bounds();
    draw::ImageSurface surface(int(std::ceil(all.width * kScale)), int(std::ceil(all.height * kScale)));
    draw::drawDesktop(surface, desktop, osd::OSDModel{}, kScale);
    draw::drawOverview(surface, picture, kScale, {all.x, all.y});
    std::string file = fmt::format("frame-{:04}.png", frames_.size() + 1);
    surface.writePNG(dir_ / file);
    frames_.push_back({file, atMs, caption});
}

bool FrameWriter::finish(std::string& error) {
    std::ofstream out(dir_ / "index.html", std::ios::trunc);
    if (!out) {
        error = "cannot write " + (dir_ / "index.html").string();
        return false;
    }
    out << "<!doctype html>\n<meta charset=\"utf-8\">\n<title>zelk panel frames</title>\n"
           "<style>body{font:14px sans-serif;background:#222;color:#ddd}"
           "figure{display:inline-block;margin:8px;vertical-align:top;max-width:760px}"
           "img{max-width:100%;border:1px solid #444}figcaption{margin-top:4px}"
           "small{color:#999;display:block}</style>\n<h1>Panel frames</h1>\n";
    for (auto& f : frames_)
        out << fmt::format("<figure><img src=\"{}\"><figcaption>{}<small>{}</small></figcaption></figure>\n",
                           f.file, formatTraceTime(f.atMs), escapeHtml(f.caption));
    return bool(out);
}

}  // namespace zelk::agent
