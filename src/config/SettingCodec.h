#pragma once
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/EnumCoding.h"
#include "config/WhenAlreadyFocusedAction.h"
#include "input/TriggerKey.h"
#include "platform/Key.h"

namespace zelk {

// How a value of type T is stored: encode() gives the stored JSON, decode() reads it back or answers
// nothing when the stored value has the wrong shape. same() is the equality mirrors use to decide
// whether a change is one.
template <typename T>
struct SettingCodec;

// Records with their own JSON form: `json toJson() const` and `static optional<T> fromJson(json)`.
template <typename T>
concept JsonRecord = requires(const T& value, const nlohmann::json& json) {
    { value.toJson() } -> std::convertible_to<nlohmann::json>;
    { T::fromJson(json) } -> std::same_as<std::optional<T>>;
};

namespace codec_detail {
inline std::optional<std::int64_t> integral(const nlohmann::json& j) {
    if (j.is_number_integer()) {
        if (j.is_number_unsigned() && j.get<std::uint64_t>() > std::uint64_t(INT64_MAX)) return std::nullopt;
        return j.get<std::int64_t>();
    }
    // 150.0 is an integer that went through a floating-point writer; 0.15 is not.
    if (j.is_number_float()) {
        double d = j.get<double>();
        if (std::isfinite(d) && std::floor(d) == d && std::fabs(d) < 9.0e15)
            return static_cast<std::int64_t>(d);
    }
    return std::nullopt;
}
}  // namespace codec_detail

template <>
struct SettingCodec<bool> {
    static std::string typeName() { return "boolean"; }
    static nlohmann::json encode(bool v) { return v; }
    static std::optional<bool> decode(const nlohmann::json& j) {
        if (!j.is_boolean()) return std::nullopt;
        return j.get<bool>();
    }
    static bool same(bool a, bool b) { return a == b; }
};

template <>
struct SettingCodec<int> {
    static std::string typeName() { return "integer"; }
    static nlohmann::json encode(int v) { return v; }
    static std::optional<int> decode(const nlohmann::json& j) {
        auto v = codec_detail::integral(j);
        if (!v || *v < std::numeric_limits<int>::min() || *v > std::numeric_limits<int>::max())
            return std::nullopt;
        return static_cast<int>(*v);
    }
    static bool same(int a, int b) { return a == b; }
};

template <>
struct SettingCodec<double> {
    static std::string typeName() { return "number"; }
    static nlohmann::json encode(double v) { return v; }
    static std::optional<double> decode(const nlohmann::json& j) {
        if (!j.is_number()) return std::nullopt;
        double d = j.get<double>();
        if (!std::isfinite(d)) return std::nullopt;
        return d;
    }
    static bool same(double a, double b) { return a == b; }
};

template <>
struct SettingCodec<std::string> {
    static std::string typeName() { return "string"; }
    static nlohmann::json encode(const std::string& v) { return v; }
    static std::optional<std::string> decode(const nlohmann::json& j) {
        if (!j.is_string()) return std::nullopt;
        return j.get<std::string>();
    }
    static bool same(const std::string& a, const std::string& b) { return a == b; }
};

// Values kept as their JSON: records whose decoding belongs to the module that owns them.
template <>
struct SettingCodec<nlohmann::json> {
    static std::string typeName() { return "value"; }
    static nlohmann::json encode(const nlohmann::json& v) { return v; }
    static std::optional<nlohmann::json> decode(const nlohmann::json& j) { return j; }
    static bool same(const nlohmann::json& a, const nlohmann::json& b) { return a == b; }
};

// Enumerations with string raw values. An integer is read as the case index, the form some older
// values have; writes always store the raw string.
template <StringRawEnum E>
struct SettingCodec<E> {
    static std::string typeName() { return std::string(EnumCases<E>::typeName); }
    static nlohmann::json encode(E v) { return std::string(enumRaw(v)); }
    static std::optional<E> decode(const nlohmann::json& j) {
        if (j.is_string()) return enumFromText<E>(j.get<std::string>());
        if (j.is_number_integer()) return enumFromIndex<E>(j.get<std::int64_t>());
        return std::nullopt;
    }
    static bool same(E a, E b) { return a == b; }
};

// Option sets: the array of their flag names; an older plain integer is read too. A name or bit
// that no flag has makes the whole value unreadable.
template <OptionSetType S>
struct SettingCodec<S> {
    using Base = OptionSet<typename S::FlagTraits>;
    static std::string typeName() { return std::string(S::FlagTraits::typeName); }
    static nlohmann::json encode(const S& v) {
        nlohmann::json out = nlohmann::json::array();
        for (auto name : v.names())
            out.push_back(std::string(name));
        return out;
    }
    static std::optional<S> decode(const nlohmann::json& j) {
        if (j.is_number_integer()) {
            auto raw = codec_detail::integral(j);
            if (!raw || *raw < 0 || Base::unknownBits(std::uint64_t(*raw))) return std::nullopt;
            return S(Base(std::uint64_t(*raw)));
        }
        if (!j.is_array()) return std::nullopt;
        Base set;
        for (auto& item : j) {
            if (!item.is_string()) return std::nullopt;
            auto flag = Base::flagNamed(item.get<std::string>());
            if (!flag) return std::nullopt;
            set.insert(*flag);
        }
        return S(set);
    }
    static bool same(const S& a, const S& b) { return a == b; }
};

// Keys by name ("minus").
template <>
struct SettingCodec<Key> {
    static std::string typeName() { return "Key"; }
    static nlohmann::json encode(Key v) { return std::string(keyName(v)); }
    static std::optional<Key> decode(const nlohmann::json& j) {
        if (!j.is_string()) return std::nullopt;
        return keyFromName(j.get<std::string>());
    }
    static bool same(Key a, Key b) { return a == b; }
};

// Trigger keys by raw value; a case name is read too.
template <>
struct SettingCodec<TriggerKey> {
    static std::string typeName() { return "TriggerKey"; }
    static nlohmann::json encode(TriggerKey v) { return static_cast<int>(v); }
    static std::optional<TriggerKey> decode(const nlohmann::json& j) {
        if (j.is_string()) return triggerKeyFromName(j.get<std::string>());
        if (j.is_number_integer()) {
            auto raw = j.get<std::int64_t>();
            if (raw < 0 || raw >= kTriggerKeyCount) return std::nullopt;
            return triggerKeyFromRaw(static_cast<int>(raw));
        }
        return std::nullopt;
    }
    static bool same(TriggerKey a, TriggerKey b) { return a == b; }
};

// Integer raw values; 2 and any other unknown number read as nothing.
template <>
struct SettingCodec<WhenAlreadyFocusedAction> {
    static std::string typeName() { return "WhenAlreadyFocusedAction"; }
    static nlohmann::json encode(WhenAlreadyFocusedAction v) { return rawValue(v); }
    static std::optional<WhenAlreadyFocusedAction> decode(const nlohmann::json& j) {
        if (j.is_number_integer()) return whenAlreadyFocusedActionFromRaw(j.get<std::int64_t>());
        if (j.is_string()) return whenAlreadyFocusedActionFromName(j.get<std::string>());
        return std::nullopt;
    }
    static bool same(WhenAlreadyFocusedAction a, WhenAlreadyFocusedAction b) { return a == b; }
};

template <JsonRecord R>
struct SettingCodec<R> {
    static std::string typeName() { return "record"; }
    static nlohmann::json encode(const R& v) { return v.toJson(); }
    static std::optional<R> decode(const nlohmann::json& j) { return R::fromJson(j); }
    static bool same(const R& a, const R& b) { return a == b; }
};

// Optional values: JSON null (or no stored value at all) is none. Writing none removes the key.
template <typename T>
struct SettingCodec<std::optional<T>> {
    static std::string typeName() { return "optional " + SettingCodec<T>::typeName(); }
    static nlohmann::json encode(const std::optional<T>& v) {
        return v ? SettingCodec<T>::encode(*v) : nlohmann::json(nullptr);
    }
    static std::optional<std::optional<T>> decode(const nlohmann::json& j) {
        if (j.is_null()) return std::optional<T>{};
        auto v = SettingCodec<T>::decode(j);
        if (!v) return std::nullopt;
        return std::optional<T>{std::move(*v)};
    }
    static bool same(const std::optional<T>& a, const std::optional<T>& b) {
        if (a.has_value() != b.has_value()) return false;
        return !a || SettingCodec<T>::same(*a, *b);
    }
};

// Arrays: one element that doesn't decode makes the whole array unreadable.
template <typename T>
struct SettingCodec<std::vector<T>> {
    static std::string typeName() { return "array of " + SettingCodec<T>::typeName(); }
    static nlohmann::json encode(const std::vector<T>& v) {
        nlohmann::json out = nlohmann::json::array();
        for (auto& item : v)
            out.push_back(SettingCodec<T>::encode(item));
        return out;
    }
    static std::optional<std::vector<T>> decode(const nlohmann::json& j) {
        if (!j.is_array()) return std::nullopt;
        std::vector<T> out;
        out.reserve(j.size());
        for (auto& item : j) {
            auto v = SettingCodec<T>::decode(item);
            if (!v) return std::nullopt;
            out.push_back(std::move(*v));
        }
        return out;
    }
    static bool same(const std::vector<T>& a, const std::vector<T>& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                          [](const T& x, const T& y) { return SettingCodec<T>::same(x, y); });
    }
};

// Trigger lists: raw values; the entry 14 (no key) is skipped; two lists are the same when they hold
// the same keys, whatever the order or repetition.
template <>
struct SettingCodec<std::vector<TriggerKey>> {
    static std::string typeName() { return "array of TriggerKey"; }
    static nlohmann::json encode(const std::vector<TriggerKey>& v) {
        nlohmann::json out = nlohmann::json::array();
        for (auto k : v)
            out.push_back(static_cast<int>(k));
        return out;
    }
    static std::optional<std::vector<TriggerKey>> decode(const nlohmann::json& j) {
        if (!j.is_array()) return std::nullopt;
        std::vector<TriggerKey> out;
        for (auto& item : j) {
            if (item.is_number_integer() && item.get<std::int64_t>() == kTriggerKeyNone) continue;
            auto k = SettingCodec<TriggerKey>::decode(item);
            if (!k) return std::nullopt;
            out.push_back(*k);
        }
        return out;
    }
    static bool same(const std::vector<TriggerKey>& a, const std::vector<TriggerKey>& b) {
        return std::set<TriggerKey>(a.begin(), a.end()) == std::set<TriggerKey>(b.begin(), b.end());
    }
};

// Sets of strings: a JSON array, written sorted.
template <>
struct SettingCodec<std::set<std::string>> {
    static std::string typeName() { return "set of strings"; }
    static nlohmann::json encode(const std::set<std::string>& v) { return nlohmann::json(v); }
    static std::optional<std::set<std::string>> decode(const nlohmann::json& j) {
        if (!j.is_array()) return std::nullopt;
        std::set<std::string> out;
        for (auto& item : j) {
            if (!item.is_string()) return std::nullopt;
            out.insert(item.get<std::string>());
        }
        return out;
    }
    static bool same(const std::set<std::string>& a, const std::set<std::string>& b) { return a == b; }
};

// Maps with string keys: a JSON object.
template <typename T>
struct SettingCodec<std::map<std::string, T>> {
    static std::string typeName() { return "map of " + SettingCodec<T>::typeName(); }
    static nlohmann::json encode(const std::map<std::string, T>& v) {
        nlohmann::json out = nlohmann::json::object();
        for (auto& [k, item] : v)
            out[k] = SettingCodec<T>::encode(item);
        return out;
    }
    static std::optional<std::map<std::string, T>> decode(const nlohmann::json& j) {
        if (!j.is_object()) return std::nullopt;
        std::map<std::string, T> out;
        for (auto& [k, item] : j.items()) {
            auto v = SettingCodec<T>::decode(item);
            if (!v) return std::nullopt;
            out.emplace(k, std::move(*v));
        }
        return out;
    }
    static bool same(const std::map<std::string, T>& a, const std::map<std::string, T>& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](auto& x, auto& y) {
            return x.first == y.first && SettingCodec<T>::same(x.second, y.second);
        });
    }
};

}  // namespace zelk
