#include "config/OSDLook.h"

#include <cctype>

namespace zelk {
namespace {
using nlohmann::json;

template <StringRawEnum E>
void readEnum(const json& j, const char* field, E& out) {
    auto it = j.find(field);
    if (it == j.end() || !it->is_string()) return;
    if (auto v = enumFromText<E>(it->get<std::string>())) out = *v;
}

void readColor(const json& j, const char* field, ColorHex& out) {
    auto it = j.find(field);
    if (it == j.end() || !it->is_string()) return;
    if (auto c = ColorHex::parse(it->get<std::string>())) out = *c;
}

void readDouble(const json& j, const char* field, double& out) {
    auto it = j.find(field);
    if (it != j.end() && it->is_number()) out = it->get<double>();
}
}  // namespace

bool ColorHex::isValid(std::string_view text) {
    if (text.size() != 7 && text.size() != 9) return false;
    if (text[0] != '#') return false;
    for (char c : text.substr(1))
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

std::optional<ColorHex> ColorHex::parse(std::string_view text) {
    if (!isValid(text)) return std::nullopt;
    return ColorHex{std::string(text)};
}

json BackgroundStyle::toJson() const {
    if (kind == Kind::glass) return {{"glass", {{"opacity", opacity}}}};
    return {{"solid", {{"color", color.rawValue}}}};
}

std::optional<BackgroundStyle> BackgroundStyle::fromJson(const json& j) {
    if (!j.is_object() || j.size() != 1) return std::nullopt;
    if (auto g = j.find("glass"); g != j.end()) {
        if (!g->is_object()) return std::nullopt;
        auto o = g->find("opacity");
        if (o == g->end() || !o->is_number()) return std::nullopt;
        return glass(o->get<double>());
    }
    if (auto s = j.find("solid"); s != j.end()) {
        if (!s->is_object()) return std::nullopt;
        auto c = s->find("color");
        if (c == s->end() || !c->is_string()) return std::nullopt;
        auto color = ColorHex::parse(c->get<std::string>());
        if (!color) return std::nullopt;
        return solid(*color);
    }
    return std::nullopt;
}

OSDLook OSDLook::preset(WindowSwitcherAppearance appearance) {
    OSDLook look;
    look.density = appearance;
    switch (appearance) {
        case WindowSwitcherAppearance::dense:
            look.backgroundStyle = BackgroundStyle::glass(0.22);
            look.keycapStyle = KeycapStyle::plaintext;
            look.searchBarStyle = SearchBarStyle::clean;
            look.appIconSize = 20;
            look.rowSeparationStyle = RowSeparationStyle::none;
            break;
        case WindowSwitcherAppearance::compact:
            look.backgroundStyle = BackgroundStyle::glass(0);
            look.keycapStyle = KeycapStyle::badge;
            look.searchBarStyle = SearchBarStyle::glassy;
            look.appIconSize = 24;
            look.rowSeparationStyle = RowSeparationStyle::none;
            break;
        case WindowSwitcherAppearance::comfortable:
            look.backgroundStyle = BackgroundStyle::glass(0);
            look.keycapStyle = KeycapStyle::badge;
            look.searchBarStyle = SearchBarStyle::glassy;
            look.appIconSize = 30;
            look.rowSeparationStyle = RowSeparationStyle::filled;
            break;
    }
    return look;
}

json OSDLook::toJson() const {
    json j = json::object();
    j["density"] = enumRaw(density);
    j["backgroundStyle"] = backgroundStyle.toJson();
    j["accentColor"] = accentColor.rawValue;
    j["foregroundColor"] = foregroundColor.rawValue;
    j["keycapColor"] = keycapColor.rawValue;
    j["keycapStyle"] = enumRaw(keycapStyle);
    j["searchBarStyle"] = enumRaw(searchBarStyle);
    j["cornerRadius"] = cornerRadius;
    j["appIconSize"] = appIconSize;
    j["iconStyle"] = enumRaw(iconStyle);
    j["fontStyle"] = enumRaw(fontStyle);
    j["focusStyle"] = enumRaw(focusStyle);
    j["rowSeparationStyle"] = enumRaw(rowSeparationStyle);
    if (glassTint) j["glassTint"] = glassTint->rawValue;
    return j;
}

std::optional<OSDLook> OSDLook::fromJson(const json& j) {
    if (!j.is_object()) return std::nullopt;
    // The density decides the preset the other fields fall back on, so without it there is no look.
    auto d = j.find("density");
    if (d == j.end() || !d->is_string()) return std::nullopt;
    auto density = enumFromText<WindowSwitcherAppearance>(d->get<std::string>());
    if (!density) return std::nullopt;
    OSDLook look = preset(*density);
    if (auto b = j.find("backgroundStyle"); b != j.end())
        if (auto style = BackgroundStyle::fromJson(*b)) look.backgroundStyle = *style;
    readColor(j, "accentColor", look.accentColor);
    readColor(j, "foregroundColor", look.foregroundColor);
    readColor(j, "keycapColor", look.keycapColor);
    readEnum(j, "keycapStyle", look.keycapStyle);
    readEnum(j, "searchBarStyle", look.searchBarStyle);
    readDouble(j, "cornerRadius", look.cornerRadius);
    readDouble(j, "appIconSize", look.appIconSize);
    readEnum(j, "iconStyle", look.iconStyle);
    readEnum(j, "fontStyle", look.fontStyle);
    readEnum(j, "focusStyle", look.focusStyle);
    readEnum(j, "rowSeparationStyle", look.rowSeparationStyle);
    if (auto t = j.find("glassTint"); t != j.end() && t->is_string())
        look.glassTint = ColorHex::parse(t->get<std::string>());
    return look;
}

}  // namespace zelk
