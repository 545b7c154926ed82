#pragma once
#include <nlohmann/json.hpp>

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "config/EnumCoding.h"

namespace zelk {

// The panels' density. `dense` keeps the raw value "clean" it was first stored under.
enum class WindowSwitcherAppearance { dense, compact, comfortable };
enum class RowSeparationStyle { none, filled, dividers, outlined, zebra, floating };
enum class FocusStyle { bar, pill, underline, glow, border };
enum class FontStyle { rounded, system, mono };
enum class IconStyle { native, grayscale, grayscaleUntilFocused, roundedRect };
enum class SearchBarStyle { glassy, clean, embedded, underlined, pill, outlined };
enum class KeycapStyle { badge, plaintext, bordered };

template <>
struct EnumCases<WindowSwitcherAppearance> {
    static constexpr std::string_view typeName = "WindowSwitcherAppearance";
    static constexpr std::array<EnumCase<WindowSwitcherAppearance>, 3> cases{{
        {WindowSwitcherAppearance::dense, "dense", "clean"},
        {WindowSwitcherAppearance::compact, "compact", "compact"},
        {WindowSwitcherAppearance::comfortable, "comfortable", "comfortable"},
    }};
};
template <>
struct EnumCases<RowSeparationStyle> {
    static constexpr std::string_view typeName = "RowSeparationStyle";
    static constexpr std::array<EnumCase<RowSeparationStyle>, 6> cases{{
        {RowSeparationStyle::none, "none", "none"},
        {RowSeparationStyle::filled, "filled", "filled"},
        {RowSeparationStyle::dividers, "dividers", "dividers"},
        {RowSeparationStyle::outlined, "outlined", "outlined"},
        {RowSeparationStyle::zebra, "zebra", "zebra"},
        {RowSeparationStyle::floating, "floating", "floating"},
    }};
};
template <>
struct EnumCases<FocusStyle> {
    static constexpr std::string_view typeName = "FocusStyle";
    static constexpr std::array<EnumCase<FocusStyle>, 5> cases{{
        {FocusStyle::bar, "bar", "bar"},
        {FocusStyle::pill, "pill", "pill"},
        {FocusStyle::underline, "underline", "underline"},
        {FocusStyle::glow, "glow", "glow"},
        {FocusStyle::border, "border", "border"},
    }};
};
template <>
struct EnumCases<FontStyle> {
    static constexpr std::string_view typeName = "FontStyle";
    static constexpr std::array<EnumCase<FontStyle>, 3> cases{{
        {FontStyle::rounded, "rounded", "rounded"},
        {FontStyle::system, "system", "system"},
        {FontStyle::mono, "mono", "mono"},
    }};
};
template <>
struct EnumCases<IconStyle> {
    static constexpr std::string_view typeName = "IconStyle";
    static constexpr std::array<EnumCase<IconStyle>, 4> cases{{
        {IconStyle::native, "native", "native"},
        {IconStyle::grayscale, "grayscale", "grayscale"},
        {IconStyle::grayscaleUntilFocused, "grayscaleUntilFocused", "grayscaleUntilFocused"},
        {IconStyle::roundedRect, "roundedRect", "roundedRect"},
    }};
};
template <>
struct EnumCases<SearchBarStyle> {
    static constexpr std::string_view typeName = "SearchBarStyle";
    static constexpr std::array<EnumCase<SearchBarStyle>, 6> cases{{
        {SearchBarStyle::glassy, "glassy", "glassy"},
        {SearchBarStyle::clean, "clean", "clean"},
        {SearchBarStyle::embedded, "embedded", "embedded"},
        {SearchBarStyle::underlined, "underlined", "underlined"},
        {SearchBarStyle::pill, "pill", "pill"},
        {SearchBarStyle::outlined, "outlined", "outlined"},
    }};
};
template <>
struct EnumCases<KeycapStyle> {
    static constexpr std::string_view typeName = "KeycapStyle";
    static constexpr std::array<EnumCase<KeycapStyle>, 3> cases{{
        {KeycapStyle::badge, "badge", "badge"},
        {KeycapStyle::plaintext, "plaintext", "plaintext"},
        {KeycapStyle::bordered, "bordered", "bordered"},
    }};
};

// A colour as "#RRGGBB" or "#RRGGBBAA".
struct ColorHex {
    std::string rawValue;
    bool operator==(const ColorHex&) const = default;
    static bool isValid(std::string_view text);
    static std::optional<ColorHex> parse(std::string_view text);
};

// The panel background: frosted glass of some opacity, or a solid colour.
struct BackgroundStyle {
    enum class Kind { glass, solid };
    Kind kind = Kind::glass;
    double opacity = 0.0;  // glass
    ColorHex color;        // solid

    static BackgroundStyle glass(double opacity) { return {Kind::glass, opacity, {}}; }
    static BackgroundStyle solid(ColorHex color) { return {Kind::solid, 0.0, std::move(color)}; }
    bool operator==(const BackgroundStyle& other) const {
        if (kind != other.kind) return false;
        return kind == Kind::glass ? opacity == other.opacity : color == other.color;
    }
    // {"glass": {"opacity": 0.22}} or {"solid": {"color": "#112233FF"}}
    nlohmann::json toJson() const;
    static std::optional<BackgroundStyle> fromJson(const nlohmann::json& json);
};

// How the panels look. Stored as one JSON object; fields a stored value lacks or holds in a form
// that no longer decodes take the preset of its density.
struct OSDLook {
    WindowSwitcherAppearance density = WindowSwitcherAppearance::comfortable;
    BackgroundStyle backgroundStyle;
    ColorHex accentColor{"#FFFFFFFF"};
    ColorHex foregroundColor{"#FFFFFFFF"};
    ColorHex keycapColor{"#FFFFFFFF"};
    KeycapStyle keycapStyle = KeycapStyle::badge;
    SearchBarStyle searchBarStyle = SearchBarStyle::glassy;
    double cornerRadius = 14;
    double appIconSize = 30;
    IconStyle iconStyle = IconStyle::native;
    FontStyle fontStyle = FontStyle::rounded;
    FocusStyle focusStyle = FocusStyle::bar;
    RowSeparationStyle rowSeparationStyle = RowSeparationStyle::filled;
    std::optional<ColorHex> glassTint;

    bool operator==(const OSDLook&) const = default;

    static OSDLook preset(WindowSwitcherAppearance appearance);
    nlohmann::json toJson() const;
    static std::optional<OSDLook> fromJson(const nlohmann::json& json);
};

}  // namespace zelk
