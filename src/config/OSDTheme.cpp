#include "config/OSDTheme.h"

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"

namespace zelk {
namespace {
using nlohmann::json;

void readDouble(const json& j, const char* field, double& out) {
    if (auto it = j.find(field); it != j.end() && it->is_number()) out = it->get<double>();
}
void readBool(const json& j, const char* field, bool& out) {
    if (auto it = j.find(field); it != j.end() && it->is_boolean()) out = it->get<bool>();
}
void readCorner(const json& j, const char* field, ScreenCorner& out) {
    auto it = j.find(field);
    if (it == j.end()) return;
    std::optional<ScreenCorner> c;
    if (it->is_string()) c = enumFromText<ScreenCorner>(it->get<std::string>());
    if (it->is_number_integer()) c = enumFromIndex<ScreenCorner>(it->get<std::int64_t>());
    if (c) out = *c;
}

struct LookSpec {
    WindowSwitcherAppearance density;
    const char* accent;
    const char* foreground;
    const char* keycap;
    std::optional<BackgroundStyle> background;
    KeycapStyle keycapStyle;
    SearchBarStyle searchBar;
    double cornerRadius;
    IconStyle icons;
    FontStyle font;
    FocusStyle focus;
    RowSeparationStyle rows;
};

OSDLook makeLook(const LookSpec& s) {
    OSDLook look = OSDLook::preset(s.density);
    look.accentColor = ColorHex{s.accent};
    look.foregroundColor = ColorHex{s.foreground};
    look.keycapColor = ColorHex{s.keycap};
    if (s.background) look.backgroundStyle = *s.background;
    look.keycapStyle = s.keycapStyle;
    look.searchBarStyle = s.searchBar;
    look.cornerRadius = s.cornerRadius;
    look.iconStyle = s.icons;
    look.fontStyle = s.font;
    look.focusStyle = s.focus;
    look.rowSeparationStyle = s.rows;
    return look;
}

// A theme whose three panels share one placement and the window panel takes the app panel's size.
OSDTheme theme(std::string id, std::string name, OSDLook look, ScreenCorner at, double width, double height) {
    OSDTheme t;
    t.id = std::move(id);
    t.name = std::move(name);
    t.look = std::move(look);
    t.appPlacement = t.windowPlacement = t.stagePlacement = at;
    t.appWidth = t.windowWidth = width;
    t.appHeight = t.windowHeight = height;
    return t;
}
}  // namespace

json OSDTheme::toJson() const {
    return {{"id", id},
            {"name", name},
            {"look", look.toJson()},
            {"appPlacement", enumRaw(appPlacement)},
            {"appOffsetX", appOffsetX},
            {"appOffsetY", appOffsetY},
            {"appWidth", appWidth},
            {"appHeight", appHeight},
            {"windowMirrorsApp", windowMirrorsApp},
            {"windowPlacement", enumRaw(windowPlacement)},
            {"windowOffsetX", windowOffsetX},
            {"windowOffsetY", windowOffsetY},
            {"windowWidth", windowWidth},
            {"windowHeight", windowHeight},
            {"stageMirrorsApp", stageMirrorsApp},
            {"stagePlacement", enumRaw(stagePlacement)},
            {"stageOffsetX", stageOffsetX},
            {"stageOffsetY", stageOffsetY}};
}

std::optional<OSDTheme> OSDTheme::fromJson(const json& j) {
    if (!j.is_object()) return std::nullopt;
    auto id = j.find("id");
    if (id == j.end() || !id->is_string()) return std::nullopt;
    OSDTheme t = defaultCustomTheme();
    t.id = id->get<std::string>();
    if (auto n = j.find("name"); n != j.end() && n->is_string()) t.name = n->get<std::string>();
    if (auto l = j.find("look"); l != j.end())
        if (auto look = OSDLook::fromJson(*l)) t.look = *look;
    readCorner(j, "appPlacement", t.appPlacement);
    readDouble(j, "appOffsetX", t.appOffsetX);
    readDouble(j, "appOffsetY", t.appOffsetY);
    readDouble(j, "appWidth", t.appWidth);
    readDouble(j, "appHeight", t.appHeight);
    readBool(j, "windowMirrorsApp", t.windowMirrorsApp);
    readCorner(j, "windowPlacement", t.windowPlacement);
    readDouble(j, "windowOffsetX", t.windowOffsetX);
    readDouble(j, "windowOffsetY", t.windowOffsetY);
    readDouble(j, "windowWidth", t.windowWidth);
    readDouble(j, "windowHeight", t.windowHeight);
    readBool(j, "stageMirrorsApp", t.stageMirrorsApp);
    readCorner(j, "stagePlacement", t.stagePlacement);
    readDouble(j, "stageOffsetX", t.stageOffsetX);
    readDouble(j, "stageOffsetY", t.stageOffsetY);
    return t;
}

OSDTheme defaultCustomTheme() {
    OSDTheme t;
    t.id = "custom";
    t.name = "Custom";
    t.look = OSDLook::preset(WindowSwitcherAppearance::comfortable);
    return t;  // the field defaults are the placement settings' defaults
}

const std::vector<OSDTheme>& builtInThemes() {
    using A = WindowSwitcherAppearance;
    using C = ScreenCorner;
    static const std::vector<OSDTheme> themes = [] {
        std::vector<OSDTheme> out;
        out.push_back(
            theme("companion", "Companion", OSDLook::preset(A::comfortable), C::bottomRight, 360, 680));
        OSDTheme squarish = theme("squarish", "Squarish", OSDLook::preset(A::compact), C::center, 700, 550);
        squarish.windowWidth = 800;
        out.push_back(squarish);
        auto add = [&](const char* id, const char* name, const LookSpec& spec, C at = C::center) {
            out.push_back(theme(id, name, makeLook(spec), at, 600, 550));
        };
        add("spotlight", "Spotlight",
            {A::compact, "#0A84FFFF", "#FFFFFFFF", "#FFFFFFFF", std::nullopt, KeycapStyle::badge,
             SearchBarStyle::embedded, 18, IconStyle::native, FontStyle::system, FocusStyle::pill,
             RowSeparationStyle::none},
            C::top);
        add("minimal", "Minimal",
            {A::dense, "#FFFFFFFF", "#FFFFFFFF", "#FFFFFFFF", BackgroundStyle::glass(0.4),
             KeycapStyle::plaintext, SearchBarStyle::underlined, 8, IconStyle::grayscaleUntilFocused,
             FontStyle::system, FocusStyle::underline, RowSeparationStyle::none});
        add("midnight", "Midnight",
            {A::comfortable, "#5E5CE6FF", "#E5E5EAFF", "#A1A1AAFF", BackgroundStyle::solid({"#101018F2"}),
             KeycapStyle::bordered, SearchBarStyle::outlined, 14, IconStyle::native, FontStyle::rounded,
             FocusStyle::glow, RowSeparationStyle::floating});
        add("paper", "Paper",
            {A::comfortable, "#1C1C1EFF", "#1C1C1EFF", "#3A3A3CFF", BackgroundStyle::solid({"#F7F5F0FF"}),
             KeycapStyle::bordered, SearchBarStyle::clean, 10, IconStyle::native, FontStyle::system,
             FocusStyle::border, RowSeparationStyle::dividers});
        add("terminal", "Terminal",
            {A::dense, "#32D74BFF", "#32D74BFF", "#32D74BFF", BackgroundStyle::solid({"#000000E6"}),
             KeycapStyle::plaintext, SearchBarStyle::underlined, 4, IconStyle::grayscale, FontStyle::mono,
             FocusStyle::bar, RowSeparationStyle::none});
        add("slate", "Slate",
            {A::compact, "#8E8E93FF", "#FFFFFFFF", "#D1D1D6FF", BackgroundStyle::solid({"#2C2C2EF2"}),
             KeycapStyle::badge, SearchBarStyle::pill, 12, IconStyle::roundedRect, FontStyle::system,
             FocusStyle::pill, RowSeparationStyle::zebra});
        add("sunrise", "Sunrise",
            {A::comfortable, "#FF9F0AFF", "#FFFFFFFF", "#FFD60AFF", BackgroundStyle::glass(0.1),
             KeycapStyle::badge, SearchBarStyle::glassy, 20, IconStyle::native, FontStyle::rounded,
             FocusStyle::glow, RowSeparationStyle::filled});
        add("ocean", "Ocean",
            {A::compact, "#64D2FFFF", "#FFFFFFFF", "#64D2FFFF", BackgroundStyle::glass(0.15),
             KeycapStyle::bordered, SearchBarStyle::outlined, 16, IconStyle::native, FontStyle::rounded,
             FocusStyle::border, RowSeparationStyle::outlined});
        add("forest", "Forest",
            {A::comfortable, "#30D158FF", "#F2F2F7FF", "#30D158FF", BackgroundStyle::solid({"#1B2A1FF2"}),
             KeycapStyle::badge, SearchBarStyle::embedded, 14, IconStyle::native, FontStyle::system,
             FocusStyle::bar, RowSeparationStyle::floating});
        add("launcher", "Launcher",
            {A::comfortable, "#FFFFFFFF", "#FFFFFFFF", "#FFFFFFFF", std::nullopt, KeycapStyle::badge,
             SearchBarStyle::glassy, 22, IconStyle::roundedRect, FontStyle::rounded, FocusStyle::pill,
             RowSeparationStyle::none});
        return out;
    }();
    return themes;
}

std::optional<OSDTheme> builtInTheme(const std::string& id) {
    for (auto& t : builtInThemes())
        if (t.id == id) return t;
    return std::nullopt;
}

void applyTheme(const OSDTheme& theme, Settings& settings) {
    settings.set(keys::osdLook, theme.look);
    if (settings.get(keys::applyThemeLayout)) {
        settings.set(keys::switcherScreenPlacement, theme.appPlacement);
        settings.set(keys::switcherScreenOffsetX, theme.appOffsetX);
        settings.set(keys::switcherScreenOffsetY, theme.appOffsetY);
        settings.set(keys::appSwitcherOSDWidth, theme.appWidth);
        settings.set(keys::appSwitcherOSDHeight, theme.appHeight);
        settings.set(keys::windowSwitcherMirrorAppPlacement, theme.windowMirrorsApp);
        settings.set(keys::windowSwitcherPlacement, theme.windowPlacement);
        settings.set(keys::windowSwitcherOffsetX, theme.windowOffsetX);
        settings.set(keys::windowSwitcherOffsetY, theme.windowOffsetY);
        settings.set(keys::windowSearchOSDWidth, theme.windowWidth);
        settings.set(keys::windowSearchOSDHeight, theme.windowHeight);
        settings.set(keys::stageSwitcherMirrorAppPlacement, theme.stageMirrorsApp);
        settings.set(keys::stageSwitcherPlacement, theme.stagePlacement);
        settings.set(keys::stageSwitcherOffsetX, theme.stageOffsetX);
        settings.set(keys::stageSwitcherOffsetY, theme.stageOffsetY);
    }
    settings.set(keys::activeThemeID, std::optional<std::string>(theme.id));
}

}  // namespace zelk
