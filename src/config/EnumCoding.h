#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace zelk {

// One case of a stored enumeration: the case name used in code and the raw value the store and the
// configuration file hold. They differ only where an old raw value had to be kept.
template <typename E>
struct EnumCase {
    E value;
    std::string_view name;
    std::string_view raw;
};

// Specialised for each enumeration stored by its string raw value:
//   static constexpr std::array<EnumCase<E>, N> cases{...};   in case order
//   static constexpr std::string_view typeName = "...";
template <typename E>
struct EnumCases;

template <typename E>
concept StringRawEnum = requires {
    EnumCases<E>::cases;
};

template <StringRawEnum E>
constexpr std::string_view enumName(E value) {
    for (auto& c : EnumCases<E>::cases)
        if (c.value == value) return c.name;
    return {};
}

template <StringRawEnum E>
constexpr std::string_view enumRaw(E value) {
    for (auto& c : EnumCases<E>::cases)
        if (c.value == value) return c.raw;
    return {};
}

// The position in case order, 0 for the first case.
template <StringRawEnum E>
constexpr int enumIndex(E value) {
    int i = 0;
    for (auto& c : EnumCases<E>::cases) {
        if (c.value == value) return i;
        ++i;
    }
    return -1;
}

template <StringRawEnum E>
constexpr std::optional<E> enumFromRaw(std::string_view raw) {
    for (auto& c : EnumCases<E>::cases)
        if (c.raw == raw) return c.value;
    return std::nullopt;
}

// The raw value, or the case name where that differs ("dense" as well as "clean").
template <StringRawEnum E>
constexpr std::optional<E> enumFromText(std::string_view text) {
    if (auto v = enumFromRaw<E>(text)) return v;
    for (auto& c : EnumCases<E>::cases)
        if (c.name == text) return c.value;
    return std::nullopt;
}

template <StringRawEnum E>
constexpr std::optional<E> enumFromIndex(std::int64_t index) {
    if (index < 0 || index >= static_cast<std::int64_t>(EnumCases<E>::cases.size())) return std::nullopt;
    return EnumCases<E>::cases[static_cast<std::size_t>(index)].value;
}

template <StringRawEnum E>
std::vector<E> allCases() {
    std::vector<E> out;
    for (auto& c : EnumCases<E>::cases)
        out.push_back(c.value);
    return out;
}

// One flag of an option set.
struct OptionFlag {
    std::uint64_t bit;
    std::string_view name;
};

// A set of flags over one 64-bit raw value. `Traits` supplies
//   static constexpr std::array<OptionFlag, N> flags{...};  static constexpr std::string_view typeName;
// Stored as the array of the names of its flags, in flag order.
template <typename Traits>
struct OptionSet {
    using FlagTraits = Traits;
    std::uint64_t rawValue = 0;

    constexpr OptionSet() = default;
    constexpr explicit OptionSet(std::uint64_t raw) : rawValue(raw) {}

    constexpr bool contains(OptionSet other) const { return (rawValue & other.rawValue) == other.rawValue; }
    constexpr bool empty() const { return rawValue == 0; }
    constexpr OptionSet operator|(OptionSet other) const { return OptionSet(rawValue | other.rawValue); }
    constexpr OptionSet operator&(OptionSet other) const { return OptionSet(rawValue & other.rawValue); }
    constexpr OptionSet& insert(OptionSet other) {
        rawValue |= other.rawValue;
        return *this;
    }
    constexpr OptionSet& remove(OptionSet other) {
        rawValue &= ~other.rawValue;
        return *this;
    }
    constexpr bool operator==(const OptionSet&) const = default;

    // Every bit that no named flag covers.
    static constexpr std::uint64_t unknownBits(std::uint64_t raw) {
        for (auto& f : Traits::flags)
            raw &= ~f.bit;
        return raw;
    }
    std::vector<std::string_view> names() const {
        std::vector<std::string_view> out;
        for (auto& f : Traits::flags)
            if (rawValue & f.bit) out.push_back(f.name);
        return out;
    }
    static constexpr std::optional<OptionSet> flagNamed(std::string_view name) {
        for (auto& f : Traits::flags)
            if (f.name == name) return OptionSet(f.bit);
        return std::nullopt;
    }
};

template <typename T>
concept OptionSetType = requires {
    T::FlagTraits::flags;
};

}  // namespace zelk
