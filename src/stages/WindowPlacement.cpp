#include "stages/WindowPlacement.h"

#include <cmath>

namespace zelk::stages {

std::optional<Rect> placementRect(const WindowPlacement& placement, const ScreenList& screens) {
    const std::optional<std::string>& name =
        std::visit([](const auto& p) -> const std::optional<std::string>& { return p.screen; }, placement);
    const ScreenRecord* screen = screenNamed(name.value_or(""), screens);
    if (!screen) return std::nullopt;
    const Rect v = visibleFrame(*screen, screens);
    if (const auto* semantic = std::get_if<SemanticPlacement>(&placement))
        return semanticRect(semantic->position, v, semantic->padding, semantic->size);
    const Rect& r = std::get<PixelsPlacement>(placement).rect;
    return Rect{v.x + r.x, v.y + r.y, r.width, r.height};
}

WindowPlacement placementFor(const Rect& rect, const ScreenList& screens) {
    const ScreenRecord* screen = nullptr;
    for (const auto& s : screens.screens)
        if (topLeftRect(s.frame, screens).contains(rect.center())) {
            screen = &s;
            break;
        }
    if (!screen) screen = screens.mainScreen();
    if (!screen && !screens.screens.empty()) screen = &screens.screens.front();
    if (!screen) return PixelsPlacement{rect, std::nullopt};
    const Rect v = visibleFrame(*screen, screens);
    const std::string name = storedScreenName(*screen);
    if (auto match = inferSemantic(rect, v))
        return SemanticPlacement{match->position, name, match->padding, match->size};
    return PixelsPlacement{{rect.x - v.minX(), rect.y - v.minY(), rect.width, rect.height}, name};
}

namespace {

nlohmann::json rectJson(const Rect& r) {
    return {{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
}

std::optional<double> number(const nlohmann::json& j) {
    if (!j.is_number()) return std::nullopt;
    const double d = j.get<double>();
    return std::isfinite(d) ? std::optional<double>(d) : std::nullopt;
}

// Also reads the nested-array form [[x, y], [width, height]] that geometry coders write.
std::optional<Rect> rectFrom(const nlohmann::json& j) {
    if (j.is_object()) {
        auto x = number(j.value("x", nlohmann::json())), y = number(j.value("y", nlohmann::json()));
        auto w = number(j.value("width", nlohmann::json())), h = number(j.value("height", nlohmann::json()));
        if (x && y && w && h) return Rect{*x, *y, *w, *h};
    } else if (j.is_array() && j.size() == 2 && j[0].is_array() && j[1].is_array() && j[0].size() == 2 &&
               j[1].size() == 2) {
        auto x = number(j[0][0]), y = number(j[0][1]), w = number(j[1][0]), h = number(j[1][1]);
        if (x && y && w && h) return Rect{*x, *y, *w, *h};
    }
    return std::nullopt;
}

std::optional<Size> sizeFrom(const nlohmann::json& j) {
    if (j.is_object()) {
        auto w = number(j.value("width", nlohmann::json())), h = number(j.value("height", nlohmann::json()));
        if (w && h) return Size{*w, *h};
    } else if (j.is_array() && j.size() == 2) {
        auto w = number(j[0]), h = number(j[1]);
        if (w && h) return Size{*w, *h};
    }
    return std::nullopt;
}

std::optional<std::string> screenFrom(const nlohmann::json& j) {
    auto it = j.find("screen");
    if (it == j.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

}  // namespace

nlohmann::json toJson(const WindowPlacement& placement) {
    nlohmann::json j = nlohmann::json::object();
    if (const auto* pixels = std::get_if<PixelsPlacement>(&placement)) {
        j["type"] = "pixels";
        j["rect"] = rectJson(pixels->rect);
        if (pixels->screen) j["screen"] = *pixels->screen;
        return j;
    }
    const auto& semantic = std::get<SemanticPlacement>(placement);
    j["type"] = "semantic";
    j["position"] = std::string(rawValue(semantic.position));
    if (semantic.screen) j["screen"] = *semantic.screen;
    if (semantic.padding) j["padding"] = *semantic.padding;
    if (semantic.size) j["size"] = {{"width", semantic.size->width}, {"height", semantic.size->height}};
    return j;
}

std::optional<WindowPlacement> windowPlacementFromJson(const nlohmann::json& j, std::string& error) {
    if (!j.is_object()) {
        error = "WindowPlacement is not an object";
        return std::nullopt;
    }
    auto typeIt = j.find("type");
    if (typeIt == j.end() || !typeIt->is_string()) {
        error = "WindowPlacement has no type";
        return std::nullopt;
    }
    const std::string type = typeIt->get<std::string>();
    if (type == "pixels") {
        auto rectIt = j.find("rect");
        std::optional<Rect> rect = rectIt == j.end() ? std::nullopt : rectFrom(*rectIt);
        if (!rect) {
            error = "WindowPlacement of type 'pixels' has no rect";
            return std::nullopt;
        }
        return PixelsPlacement{*rect, screenFrom(j)};
    }
    if (type == "semantic") {
        auto positionIt = j.find("position");
        std::optional<SemanticPosition> position;
        if (positionIt != j.end() && positionIt->is_string())
            position = semanticPositionFromRaw(positionIt->get<std::string>());
        if (!position) {
            error = "WindowPlacement of type 'semantic' has no valid position";
            return std::nullopt;
        }
        SemanticPlacement out{*position, screenFrom(j), std::nullopt, std::nullopt};
        if (auto it = j.find("padding"); it != j.end()) out.padding = number(*it);
        if (auto it = j.find("size"); it != j.end()) out.size = sizeFrom(*it);
        return out;
    }
    error = "Unknown WindowPlacement type '" + type + "'";
    return std::nullopt;
}

}  // namespace zelk::stages
