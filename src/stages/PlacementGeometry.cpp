#include "stages/PlacementGeometry.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>

#include "search/Graphemes.h"

namespace zelk::stages {

const ScreenRecord* ScreenList::mainScreen() const {
    if (main && *main < screens.size()) return &screens[*main];
    return nullptr;
}

Rect topLeftRect(const Rect& r, const ScreenList& list) {
    if (list.screens.empty()) return r;
    return {r.x, list.screens.front().frame.maxY() - r.maxY(), r.width, r.height};
}

Rect visibleFrame(const ScreenRecord& screen, const ScreenList& list) {
    return topLeftRect(screen.visibleFrame, list);
}

Rect semanticRect(SemanticPosition position, const Rect& v, std::optional<double> padding,
                  std::optional<Size> size) {
    const double W = v.width, H = v.height, x = v.minX(), y = v.minY();
    Rect r;
    using P = SemanticPosition;
    switch (position) {
        case P::leftHalf:
            r = {x, y, W * 0.5, H};
            break;
        case P::rightHalf:
            r = {x + W * 0.5, y, W * 0.5, H};
            break;
        case P::topHalf:
            r = {x, y, W, H * 0.5};
            break;
        case P::bottomHalf:
            r = {x, y + H * 0.5, W, H * 0.5};
            break;
        case P::topLeft:
            r = {x, y, W * 0.5, H * 0.5};
            break;
        case P::topRight:
            r = {x + W * 0.5, y, W * 0.5, H * 0.5};
            break;
        case P::bottomLeft:
            r = {x, y + H * 0.5, W * 0.5, H * 0.5};
            break;
        case P::bottomRight:
            r = {x + W * 0.5, y + H * 0.5, W * 0.5, H * 0.5};
            break;
        case P::center: {
            const double w = size ? size->width : W * 0.5, h = size ? size->height : H * 0.5;
            r = {v.midX() - w * 0.5, v.midY() - h * 0.5, w, h};
            break;
        }
        case P::maximized:
        case P::fullscreen:
            r = {x, y, W, H};
            break;
        case P::verticalThird1:
            r = {x, y, W / 3, H};
            break;
        case P::verticalThird2:
            r = {x + W / 3, y, W / 3, H};
            break;
        case P::verticalThird3:
            r = {x + 2 * W / 3, y, W / 3, H};
            break;
        case P::horizontalThird1:
            r = {x, y, W, H / 3};
            break;
        case P::horizontalThird2:
            r = {x, y + H / 3, W, H / 3};
            break;
        case P::horizontalThird3:
            r = {x, y + 2 * H / 3, W, H / 3};
            break;
        case P::verticalQuarter1:
            r = {x, y, W * 0.25, H};
            break;
        case P::verticalQuarter2:
            r = {x + W * 0.25, y, W * 0.25, H};
            break;
        case P::verticalQuarter3:
            r = {x + 2 * (W * 0.25), y, W * 0.25, H};
            break;
        case P::verticalQuarter4:
            r = {x + 3 * (W * 0.25), y, W * 0.25, H};
            break;
        case P::horizontalQuarter1:
            r = {x, y, W, H * 0.25};
            break;
        case P::horizontalQuarter2:
            r = {x, y + H * 0.25, W, H * 0.25};
            break;
        case P::horizontalQuarter3:
            r = {x, y + 2 * (H * 0.25), W, H * 0.25};
            break;
        case P::horizontalQuarter4:
            r = {x, y + 3 * (H * 0.25), W, H * 0.25};
            break;
    }
    if (padding && *padding > 0) {
        const double p = *padding;
        const Rect inset{r.x + p, r.y + p, r.width - 2 * p, r.height - 2 * p};
        if (inset.width > 0 && inset.height > 0) return inset;
    }
    return r;
}

std::optional<SemanticMatch> inferSemantic(const Rect& r, const Rect& v) {
    if (r.width == 0 || r.height == 0) return std::nullopt;
    if (r.width > v.width * 1.05 || r.height > v.height * 1.05) return std::nullopt;
    const double m = std::min(v.width, v.height);
    const double tolerance = std::max(m * 0.06, 40.0);

    // maximized, then 0 to 7, then 11 to 24: center and fullscreen are never inferred.
    std::vector<SemanticPosition> order{SemanticPosition::maximized};
    for (int i = 0; i <= 7; ++i)
        order.push_back(static_cast<SemanticPosition>(i));
    for (int i = 11; i <= 24; ++i)
        order.push_back(static_cast<SemanticPosition>(i));

    std::optional<SemanticPosition> best;
    double bestError = 0, bestPad = 0;
    for (SemanticPosition position : order) {
        const Rect p = semanticRect(position, v);
        const std::array<double, 4> sides{r.minX() - p.minX(), p.maxX() - r.maxX(), r.minY() - p.minY(),
                                          p.maxY() - r.maxY()};
        if (std::any_of(sides.begin(), sides.end(), [](double s) { return s < -6; })) continue;
        double pad = 0;
        for (double s : sides)
            pad += std::max(s, 0.0);
        pad *= 0.25;
        if (pad > m * 0.12) continue;
        double error = 0;
        for (double s : sides)
            error += s < 0 ? -s : std::abs(s - pad);
        if (error <= tolerance && (!best || error < bestError)) {
            best = position;
            bestError = error;
            bestPad = pad;
        }
    }
    if (best)
        return SemanticMatch{*best, bestPad >= 2 ? std::optional<double>(bestPad) : std::nullopt,
                             std::nullopt};

    const double centerTolerance = std::max(m * 0.03, 20.0);
    if (std::abs(r.midX() - v.midX()) <= centerTolerance &&
        std::abs(r.midY() - v.midY()) <= centerTolerance && r.width >= 200 && r.height >= 200 &&
        r.width <= v.width && r.height <= v.height)
        return SemanticMatch{SemanticPosition::center, std::nullopt, Size{r.width, r.height}};
    return std::nullopt;
}

namespace {

std::string trimmed(std::string_view s) {
    auto space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!s.empty() && space(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && space(s.back()))
        s.remove_suffix(1);
    return std::string(s);
}

// Lower case without white space, "-" or "_".
std::string normalised(std::string_view s) {
    std::string out;
    for (const std::string& c : search::splitGraphemes(search::lowercased(s))) {
        if (search::charClass(c) & search::kWhitespace) continue;
        if (c == "-" || c == "_") continue;
        out += c;
    }
    return out;
}

std::string upper(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

bool isBuiltin(const ScreenRecord& s) {
    return search::lowercased(s.localizedName).find("built-in") != std::string::npos;
}

}  // namespace

const ScreenRecord* screenNamed(std::string_view name, const ScreenList& list) {
    const ScreenRecord* main = list.mainScreen();
    const std::string text = trimmed(name);
    if (text.empty()) return main;
    const std::string key = normalised(text);
    const auto& screens = list.screens;
    if (key == "primary" || key == "main") return screens.empty() ? main : &screens.front();
    if (key == "builtin" || key == "internal") {
        for (const auto& s : screens)
            if (isBuiltin(s)) return &s;
        return main;
    }
    if (key == "external") {
        for (const auto& s : screens)
            if (!isBuiltin(s)) return &s;
        return main;
    }
    if (std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        std::uint32_t number = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error == std::errc() && end == text.data() + text.size())
            for (const auto& s : screens)
                if (s.number == number) return &s;
    }
    const std::string uuid = upper(text);
    for (const auto& s : screens)
        if (!s.uuid.empty() && upper(s.uuid) == uuid) return &s;
    for (const auto& s : screens)
        if (normalised(s.localizedName) == key) return &s;
    for (const auto& s : screens)
        if (normalised(s.localizedName).find(key) != std::string::npos) return &s;
    return main;
}

std::string storedScreenName(const ScreenRecord& screen) {
    return isBuiltin(screen) ? "builtin" : screen.localizedName;
}

}  // namespace zelk::stages
