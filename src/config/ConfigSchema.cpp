#include "config/ConfigSchema.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "apps/AppKeyAssignment.h"
#include "config/SettingsCatalogue.h"
#include "support/BoundedJson.h"
#include "support/Yaml.h"
#include "windows/WindowKeyAssignments.h"

namespace zelk::configfile {

using nlohmann::json;
using nlohmann::ordered_json;

// ---------------------------------------------------------------------------------------------------
// Stages carried as stored.

ordered_json StoredStagesCodec::toConfig(const json& stored) const {
    return stored.is_array() ? ordered_json(stored) : ordered_json::array();
}

std::optional<json> StoredStagesCodec::fromConfig(const json& config, std::string& error) const {
    if (!config.is_array()) {
        error = "expected a list of stages";
        return std::nullopt;
    }
    for (std::size_t i = 0; i < config.size(); ++i)
        if (!config[i].is_object()) {
            error = fmt::format("stage {} is not a mapping", i + 1);
            return std::nullopt;
        }
    return config;
}

const StageCodec& storedStagesCodec() {
    static const StoredStagesCodec codec;
    return codec;
}

namespace {

// ---------------------------------------------------------------------------------------------------
// Reading context and messages.

std::string foundName(const json& v) {
    if (v.is_null()) return "nothing";
    if (v.is_boolean()) return "a boolean";
    if (v.is_number_integer() || v.is_number_unsigned()) return "a whole number";
    if (v.is_number()) return "a number";
    if (v.is_string()) return "a string";
    if (v.is_array()) return "a list";
    return "a mapping";
}

// "/appSwitcher/actionKeys/hideKey" -> "appSwitcher.actionKeys.hideKey"; list positions as "[2]".
std::string dotted(std::string_view pointer) {
    std::string out;
    std::size_t i = 0;
    while (i < pointer.size()) {
        std::size_t next = pointer.find('/', i + 1);
        const std::size_t end = next == std::string_view::npos ? pointer.size() : next;
        std::string token;
        for (std::size_t k = i + 1; k < end; ++k) {
            if (pointer[k] == '~' && k + 1 < end) {
                token += pointer[k + 1] == '1' ? '/' : '~';
                ++k;
            } else {
                token += pointer[k];
            }
        }
        const bool index = !token.empty() && std::all_of(token.begin(), token.end(), ::isdigit);
        if (index)
            out += fmt::format("[{}]", token);
        else {
            if (!out.empty()) out += '.';
            out += token;
        }
        if (next == std::string_view::npos) break;
        i = next;
    }
    return out.empty() ? "the file" : out;
}

std::string child(const std::string& pointer, std::string_view token) {
    std::string out = pointer + "/";
    for (char c : token)
        out += c == '~' ? std::string("~0") : c == '/' ? std::string("~1") : std::string(1, c);
    return out;
}

struct ReadContext {
    const json& doc;
    const ferrow::YamlPlaces& places;
    const Settings& current;
    const ConfigApps& apps;
    const StageCodec& stages;
    ConfigUpdate& out;
    std::string error;

    std::string where(const std::string& pointer) const {
        auto mark = places.find(pointer);
        return mark.line ? fmt::format("line {}, column {}: ", mark.line, mark.column) : std::string();
    }
    bool fail(const std::string& pointer, const std::string& message) {
        error = fmt::format("{}{}: {}", where(pointer), dotted(pointer), message);
        return false;
    }
    bool expected(const std::string& pointer, const json& v, std::string_view what) {
        return fail(pointer, fmt::format("expected {}, found {}", what, foundName(v)));
    }
    void note(const std::string& pointer, const std::string& message) {
        out.notes.push_back(fmt::format("{}{}: {}", where(pointer), dotted(pointer), message));
    }
    void write(const std::string& key, json value) { out.writes.emplace_back(key, std::move(value)); }
    // The value the file gives at a pointer, or nothing (absent or null).
    const json* at(const std::string& pointer) const {
        const json::json_pointer p(pointer);
        if (!doc.contains(p)) return nullptr;
        const json& v = doc.at(p);
        return v.is_null() ? nullptr : &v;
    }
};

using ReadFn = std::function<bool(const json& value, const std::string& pointer, ReadContext& ctx)>;
using WriteFn =
    std::function<std::optional<ordered_json>(const Settings&, const ConfigApps&, const StageCodec&)>;

// One entry of the file, in the file's order: a record (a mapping of further entries) or a value.
struct Entry {
    std::string pointer;
    bool required = false;
    bool section = false;
    std::vector<std::string> storedKeys;  // what the value carries, for the managed key list
    ReadFn read;
    WriteFn write;
};

// ---------------------------------------------------------------------------------------------------
// Value kinds.

template <typename T>
json stored(const Settings& s, const SettingKey<T>& key) {
    return SettingCodec<T>::encode(s.get(key));
}

Entry section(std::string pointer, bool required) {
    Entry e;
    e.pointer = std::move(pointer);
    e.required = required;
    e.section = true;
    return e;
}

Entry boolean(std::string pointer, const SettingKey<bool>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_boolean()) return c.expected(p, v, "true or false");
        c.write(key.name, v);
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(s.get(key));
    };
    return e;
}

Entry integer(std::string pointer, const SettingKey<int>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_number_integer()) return c.expected(p, v, "a whole number");
        if (v.is_number_unsigned() ? v.get<std::uint64_t>() > std::uint64_t(std::numeric_limits<int>::max())
                                   : (v.get<std::int64_t>() < std::numeric_limits<int>::min() ||
                                      v.get<std::int64_t>() > std::numeric_limits<int>::max()))
            return c.fail(p, "the number is out of range");
        c.write(key.name, v.get<int>());
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(s.get(key));
    };
    return e;
}

// A stored double: written as a whole number when it is one, so a file reads as it was typed.
ordered_json numberValue(double d) {
    if (std::isfinite(d) && std::floor(d) == d && std::fabs(d) < 9.0e15) return static_cast<std::int64_t>(d);
    return d;
}

Entry number(std::string pointer, const SettingKey<double>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_number() || !std::isfinite(v.get<double>())) return c.expected(p, v, "a number");
        c.write(key.name, v.get<double>());
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return numberValue(s.get(key));
    };
    return e;
}

template <StringRawEnum E>
Entry enumText(std::string pointer, const SettingKey<E>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_string()) return c.expected(p, v, "a string");
        auto value = enumFromText<E>(v.get<std::string>());
        if (!value) {
            c.note(p, fmt::format("unknown value '{}'; the setting stays as it is", v.get<std::string>()));
            return true;
        }
        c.write(key.name, std::string(enumRaw(*value)));
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(std::string(enumRaw(s.get(key))));
    };
    return e;
}

Entry keyName(std::string pointer, const SettingKey<Key>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_string()) return c.expected(p, v, "a key name");
        auto value = keyFromName(v.get<std::string>());
        if (!value) {
            c.note(p, fmt::format("unknown key '{}'; the setting stays as it is", v.get<std::string>()));
            return true;
        }
        c.write(key.name, std::string(zelk::keyName(*value)));
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(std::string(zelk::keyName(s.get(key))));
    };
    return e;
}

bool stringList(const json& v, const std::string& p, ReadContext& c) {
    if (!v.is_array()) return c.expected(p, v, "a list of strings");
    for (std::size_t i = 0; i < v.size(); ++i)
        if (!v[i].is_string()) return c.expected(child(p, std::to_string(i)), v[i], "a string");
    return true;
}

Entry triggers(std::string pointer, const SettingKey<TriggerKeyList>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!stringList(v, p, c)) return false;
        json raws = json::array();
        for (std::size_t i = 0; i < v.size(); ++i) {
            if (auto k = triggerKeyFromName(v[i].get<std::string>()))
                raws.push_back(static_cast<int>(*k));
            else
                c.note(child(p, std::to_string(i)),
                       fmt::format("unknown trigger key '{}' left out", v[i].get<std::string>()));
        }
        // Every name mistyped: the keys stay as they are rather than leaving no trigger at all.
        if (raws.empty() && !v.empty()) return true;
        c.write(key.name, raws);
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        ordered_json out = ordered_json::array();
        for (auto k : s.get(key))
            out.push_back(std::string(triggerKeyName(k)));
        return out;
    };
    return e;
}

template <OptionSetType S>
Entry flags(std::string pointer, const SettingKey<S>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!stringList(v, p, c)) return false;
        json names = json::array();
        typename SettingCodec<S>::Base set;
        for (std::size_t i = 0; i < v.size(); ++i) {
            if (auto flag = SettingCodec<S>::Base::flagNamed(v[i].get<std::string>()))
                set.insert(*flag);
            else
                c.note(child(p, std::to_string(i)),
                       fmt::format("unknown flag '{}' left out", v[i].get<std::string>()));
        }
        c.write(key.name, SettingCodec<S>::encode(S(set)));
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(stored(s, key));
    };
    return e;
}

Entry strings(std::string pointer, const SettingKey<std::vector<std::string>>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!stringList(v, p, c)) return false;
        c.write(key.name, v);
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(s.get(key));
    };
    return e;
}

Entry stringSet(std::string pointer, const SettingKey<StringSet>& key, bool required = true) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key](const json& v, const std::string& p, ReadContext& c) {
        if (!stringList(v, p, c)) return false;
        StringSet set;
        for (auto& item : v)
            set.insert(item.get<std::string>());
        c.write(key.name, SettingCodec<StringSet>::encode(set));
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(stored(s, key));
    };
    return e;
}

// Records with their own JSON form (the look, the custom theme): a mapping the record's reader accepts.
template <JsonRecord R>
Entry record(std::string pointer, const SettingKey<R>& key, std::string_view what, bool required = false) {
    Entry e{std::move(pointer), required, false, {key.name}, nullptr, nullptr};
    e.read = [&key, what](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_object()) return c.expected(p, v, "a mapping");
        auto value = R::fromJson(v);
        if (!value) return c.expected(p, v, what);
        c.write(key.name, value->toJson());
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(s.get(key).toJson());
    };
    return e;
}

template <JsonRecord R>
Entry records(std::string pointer, const SettingKey<std::vector<R>>& key, std::string_view what) {
    Entry e{std::move(pointer), false, false, {key.name}, nullptr, nullptr};
    e.read = [&key, what](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_array()) return c.expected(p, v, "a list");
        json out = json::array();
        for (std::size_t i = 0; i < v.size(); ++i) {
            auto item = v[i].is_object() ? R::fromJson(v[i]) : std::nullopt;
            if (!item) return c.expected(child(p, std::to_string(i)), v[i], what);
            out.push_back(item->toJson());
        }
        c.write(key.name, out);
        return true;
    };
    e.write = [&key](const Settings& s, const ConfigApps&, const StageCodec&) {
        return ordered_json(stored(s, key));
    };
    return e;
}

// ---------------------------------------------------------------------------------------------------
// Entries of their own.

Entry stagesEntry() {
    Entry e{"/stages", true, false, {keys::stages.name}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_array()) return c.expected(p, v, "a list of stages");
        std::string why;
        auto value = c.stages.fromConfig(v, why);
        if (!value) return c.fail(p, why);
        c.write(keys::stages.name, *value);
        return true;
    };
    e.write = [](const Settings& s, const ConfigApps&, const StageCodec& codec) {
        return std::optional<ordered_json>(codec.toConfig(s.get(keys::stages)));
    };
    return e;
}

// The bundle identifier of a stored assignment's app (its path when it has none), read straight from
// its record.
std::string bundleOfRecord(const json& assignment) {
    auto app = assignment.find("app");
    if (app == assignment.end() || !app->is_object()) return {};
    auto identifier = app->find("identifier");
    if (identifier != app->end() && identifier->is_string() &&
        !identifier->get_ref<const std::string&>().empty())
        return apps::bundleIdentifierOf(identifier->get_ref<const std::string&>());
    // A record known only by its path goes by the path.
    auto path = app->find("path");
    return path != app->end() && path->is_string() ? path->get<std::string>() : std::string();
}

// One letter's entry: `app`, `launchIfNotRunning` and `whenAlreadyFocusedAction`.
bool readAssignment(const std::string& letter, const json& v, const std::string& p, ReadContext& c,
                    const std::map<std::string, const json*>& storedApps, json& out) {
    if (!v.is_object())
        return c.expected(p, v, "a mapping with app, launchIfNotRunning and whenAlreadyFocusedAction");
    for (const char* field : {"app", "launchIfNotRunning", "whenAlreadyFocusedAction"})
        if (!v.contains(field)) return c.fail(p, fmt::format("missing required key '{}'", field));
    const auto& app = v["app"];
    if (!app.is_string() || app.get<std::string>().empty())
        return c.expected(child(p, "app"), app, "a bundle identifier");
    if (!v["launchIfNotRunning"].is_boolean())
        return c.expected(child(p, "launchIfNotRunning"), v["launchIfNotRunning"], "true or false");
    if (!v["whenAlreadyFocusedAction"].is_string())
        return c.expected(child(p, "whenAlreadyFocusedAction"), v["whenAlreadyFocusedAction"], "a string");
    const std::string bundle = app.get<std::string>();
    const std::string key = apps::lowercasedKey(letter);
    auto action = whenAlreadyFocusedActionFromName(v["whenAlreadyFocusedAction"].get<std::string>());
    if (!action) {
        c.note(child(p, "whenAlreadyFocusedAction"),
               fmt::format("unknown value '{}'; the letter follows the global action",
                           v["whenAlreadyFocusedAction"].get<std::string>()));
        action = WhenAlreadyFocusedAction::followGlobal;
    }
    // The stored record of the app is kept where the letter already had it; else the catalogue's.
    json record;
    if (auto it = storedApps.find(key + "\n" + bundle); it != storedApps.end()) record = *it->second;
    if (record.is_null() && c.apps.appRecord)
        if (auto found = c.apps.appRecord(bundle)) record = *found;
    if (record.is_null())
        record = bundle.starts_with("/")
                     ? json{{"path", bundle}}
                     : json{{"identifier", bundle}, {"path", ""}, {"originalName", bundle}};
    out.push_back({{"key", key},
                   {"app", record},
                   {"index", 0},
                   {"whenAlreadyFocusedAction", rawValue(*action)},
                   {"launchIfNotRunning", v["launchIfNotRunning"].get<bool>()}});
    return true;
}

Entry appKeyAssignmentsEntry() {
    Entry e{"/appKeyAssignments", true, false, {keys::appKeyAssignments.name}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_object()) return c.expected(p, v, "a mapping of letters to apps");
        const json storedList = c.current.get(keys::appKeyAssignments);
        // The app record each letter already has, by letter and bundle identifier.
        std::map<std::string, const json*> storedApps;
        for (auto& existing : storedList)
            if (existing.is_object() && existing.contains("app"))
                storedApps.emplace(
                    apps::lowercasedKey(existing.value("key", "")) + "\n" + bundleOfRecord(existing),
                    &existing["app"]);
        json out = json::array();
        for (auto& [letter, entry] : v.items()) {
            const std::string at = child(p, letter);
            if (letter.empty()) return c.fail(at, "a letter can't be empty");
            // A letter bound to several apps holds a list of entries.
            if (entry.is_array()) {
                for (std::size_t i = 0; i < entry.size(); ++i)
                    if (!readAssignment(letter, entry[i], child(at, std::to_string(i)), c, storedApps, out))
                        return false;
            } else if (!readAssignment(letter, entry, at, c, storedApps, out)) {
                return false;
            }
        }
        c.write(keys::appKeyAssignments.name, out);
        return true;
    };
    e.write = [](const Settings& s, const ConfigApps&, const StageCodec&) {
        ordered_json out = ordered_json::object();
        for (auto& item : s.get(keys::appKeyAssignments)) {
            if (!item.is_object() || !item.contains("key") || !item["key"].is_string()) continue;
            const std::string key = apps::lowercasedKey(item["key"].get<std::string>());
            const std::string bundle = bundleOfRecord(item);
            if (key.empty() || bundle.empty()) continue;
            auto action = WhenAlreadyFocusedAction::followGlobal;
            if (auto it = item.find("whenAlreadyFocusedAction"); it != item.end() && it->is_number_integer())
                action = whenAlreadyFocusedActionFromRaw(it->get<long long>()).value_or(action);
            auto launch = item.find("launchIfNotRunning");
            ordered_json entry{
                {"app", bundle},
                {"launchIfNotRunning", launch == item.end() || !launch->is_boolean() || launch->get<bool>()},
                {"whenAlreadyFocusedAction", std::string(whenAlreadyFocusedActionName(action))}};
            if (!out.contains(key)) {
                out[key] = std::move(entry);
                continue;
            }
            auto& slot = out[key];
            if (!slot.is_array()) slot = ordered_json::array({slot});
            slot.push_back(std::move(entry));
        }
        return std::optional<ordered_json>(out);
    };
    return e;
}

// The name an app's saved windows go under: its bundle identifier, else its path (or URL) as stored.
std::string appNameForURL(const std::string& appURL, const ConfigApps& apps) {
    if (apps.bundleForAppURL)
        if (auto bundle = apps.bundleForAppURL(appURL); bundle && !bundle->empty()) return *bundle;
    if (auto path = windows::pathOfFileURL(appURL)) return *path;
    return appURL;
}

std::optional<std::string> appURLForName(const std::string& name, const ConfigApps& apps) {
    if (name.starts_with("/")) return windows::fileURLOf(name);
    if (name.find("://") != std::string::npos) return name;
    if (apps.appURLForBundle)
        if (auto url = apps.appURLForBundle(name); url && !url->empty())
            return url->starts_with("/") ? windows::fileURLOf(*url) : *url;
    return std::nullopt;
}

Entry windowKeyAssignmentsEntry() {
    Entry e{"/windowKeyAssignments", true, false, {keys::windowKeyAssignments.name}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_object()) return c.expected(p, v, "a mapping of apps to their saved windows");
        const json storedList = c.current.get(keys::windowKeyAssignments);
        json out = json::array();
        for (auto& [app, entries] : v.items()) {
            const std::string at = child(p, app);
            if (!entries.is_object()) return c.expected(at, entries, "a mapping of letters to saved windows");
            auto appURL = appURLForName(app, c.apps);
            for (auto& [letter, item] : entries.items()) {
                const std::string ip = child(at, letter);
                if (!item.is_object()) return c.expected(ip, item, "a mapping");
                for (auto& [field, value] : item.items())
                    if (!value.is_null() && !value.is_string())
                        return c.expected(child(ip, field), value, "a string");
            }
            if (!appURL) {
                c.note(at, "no installed app has this bundle identifier; its saved windows stay as they are");
                for (auto& existing : storedList)
                    if (existing.is_object() && appNameForURL(existing.value("appURL", ""), c.apps) == app)
                        out.push_back(existing);
                continue;
            }
            for (auto& [letter, item] : entries.items()) {
                auto text = [&](const char* f) -> std::optional<std::string> {
                    auto it = item.find(f);
                    return it != item.end() && it->is_string() ? std::optional(it->get<std::string>())
                                                               : std::nullopt;
                };
                json record{{"key", apps::lowercasedKey(letter)}, {"appURL", *appURL}};
                if (auto name = text("name")) record["name"] = *name;
                if (auto script = text("script")) {
                    const bool system = text("scriptRunner") == std::optional<std::string>("osascript");
                    record["actionKind"] = system ? 3 : 2;
                    record[system ? "appleScriptPath" : "scriptPath"] = *script;
                    if (auto runner = text("scriptRunner")) record["scriptRunner"] = *runner;
                } else if (auto path = text("path")) {
                    record["actionKind"] = 1;
                    record["fileURL"] = path->starts_with("/") ? windows::fileURLOf(*path) : *path;
                } else {
                    record["actionKind"] = 0;
                    if (auto url = text("url")) record["webURL"] = *url;
                }
                out.push_back(std::move(record));
            }
        }
        c.write(keys::windowKeyAssignments.name, out);
        return true;
    };
    e.write = [](const Settings& s, const ConfigApps& apps, const StageCodec&) {
        ordered_json out = ordered_json::object();
        for (auto& item : s.get(keys::windowKeyAssignments)) {
            auto a = windows::WindowKeyAssignment::fromJson(item);
            if (!a) continue;
            ordered_json entry = ordered_json::object();
            if (a->name) entry["name"] = *a->name;
            switch (a->actionKind) {
                case windows::WindowKeyActionKind::url:
                    if (a->webURL) entry["url"] = *a->webURL;
                    break;
                case windows::WindowKeyActionKind::file:
                    if (a->fileURL) entry["path"] = windows::pathOfFileURL(*a->fileURL).value_or(*a->fileURL);
                    break;
                case windows::WindowKeyActionKind::script:
                    if (a->scriptPath) entry["script"] = *a->scriptPath;
                    if (a->scriptRunner) entry["scriptRunner"] = *a->scriptRunner;
                    break;
                case windows::WindowKeyActionKind::appleScript:
                    if (a->appleScriptPath) entry["script"] = *a->appleScriptPath;
                    entry["scriptRunner"] = "osascript";
                    break;
            }
            auto& forApp = out[appNameForURL(a->appURL, apps)];
            if (forApp.is_null()) forApp = ordered_json::object();
            forApp[a->key] = std::move(entry);
        }
        return std::optional<ordered_json>(out);
    };
    return e;
}

Entry searchPinsEntry() {
    Entry e{"/searchPins", false, false, {keys::searchQueryPins.name}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_object()) return c.expected(p, v, "a mapping of queries to bundle identifiers");
        json out = json::object();
        for (auto& [query, bundle] : v.items()) {
            if (!bundle.is_string()) return c.expected(child(p, query), bundle, "a bundle identifier");
            out[query] = bundle;
        }
        c.write(keys::searchQueryPins.name, out);
        return true;
    };
    e.write = [](const Settings& s, const ConfigApps&, const StageCodec&) {
        return std::optional<ordered_json>(ordered_json(stored(s, keys::searchQueryPins)));
    };
    return e;
}

// The global action: a case name; `followGlobal` belongs to one letter only.
Entry globalAction() {
    Entry e{"/general/whenAlreadyFocusedAction",   true,    false,
            {keys::whenAlreadyFocusedAction.name}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_string()) return c.expected(p, v, "a string");
        auto action = whenAlreadyFocusedActionFromName(v.get<std::string>());
        if (!action || *action == WhenAlreadyFocusedAction::followGlobal) {
            c.note(p, fmt::format("unknown value '{}'; the setting stays as it is", v.get<std::string>()));
            return true;
        }
        c.write(keys::whenAlreadyFocusedAction.name, rawValue(*action));
        return true;
    };
    e.write = [](const Settings& s, const ConfigApps&, const StageCodec&) {
        return std::optional<ordered_json>(
            std::string(whenAlreadyFocusedActionName(s.get(keys::whenAlreadyFocusedAction))));
    };
    return e;
}

// `focusBehaviour` keeps its own key, and stands in for the key of the Space mode in force when the
// file gives neither per-mode key.
Entry focusBehaviourEntry() {
    Entry e = enumText("/general/focusBehaviour", keys::focusBehaviour, false);
    auto plain = e.read;
    e.read = [plain](const json& v, const std::string& p, ReadContext& c) {
        const std::size_t before = c.out.writes.size();
        if (!plain(v, p, c)) return false;
        if (c.out.writes.size() == before) return true;  // unknown value: noted, nothing stored
        if (c.at("/general/focusBehaviourSingle") || c.at("/general/focusBehaviourMulti")) return true;
        SpaceMode mode = c.current.get(keys::spaceMode);
        if (auto* given = c.at("/spaces/spaceMode"); given && given->is_string())
            mode = enumFromText<SpaceMode>(given->get<std::string>()).value_or(mode);
        const auto& target =
            mode == SpaceMode::single ? keys::focusBehaviourSingle : keys::focusBehaviourMulti;
        c.write(target.name, c.out.writes.back().second);
        return true;
    };
    return e;
}

// Read from older files only; the focus behaviours decide now, so it is never written.
Entry activateAllWindowsEntry() {
    Entry e{"/general/activateAllWindows", false, false, {}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_boolean()) return c.expected(p, v, "true or false");
        c.write(keys::activateAllWindows.name, v);
        return true;
    };
    e.write = [](const Settings&, const ConfigApps&, const StageCodec&) {
        return std::optional<ordered_json>();
    };
    return e;
}

Entry activeThemeEntry() {
    Entry e{"/windowSwitcher/activeThemeID", false, false, {keys::activeThemeID.name}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_string()) return c.expected(p, v, "a string");
        c.write(keys::activeThemeID.name, v);
        return true;
    };
    e.write = [](const Settings& s, const ConfigApps&, const StageCodec&) -> std::optional<ordered_json> {
        auto id = s.get(keys::activeThemeID);
        if (!id) return std::nullopt;
        return ordered_json(*id);
    };
    return e;
}

Entry overrideEntry() {
    Entry e{"/overrideUserDefaults", false, false, {keys::overrideUserDefaults.name}, nullptr, nullptr};
    e.read = [](const json& v, const std::string& p, ReadContext& c) {
        if (!v.is_boolean()) return c.expected(p, v, "true or false");
        c.out.overrideUserDefaults = v.get<bool>();
        c.write(keys::overrideUserDefaults.name, v);
        return true;
    };
    e.write = [](const Settings& s, const ConfigApps&, const StageCodec&) {
        return std::optional<ordered_json>(s.get(keys::overrideUserDefaults));
    };
    return e;
}

// ---------------------------------------------------------------------------------------------------
// The file, in its order.

std::vector<Entry> buildEntries() {
    namespace k = keys;
    std::vector<Entry> e;
    e.push_back(stagesEntry());
    e.push_back(appKeyAssignmentsEntry());
    e.push_back(windowKeyAssignmentsEntry());
    e.push_back(stringSet("/ignoredApps", k::ignoredApps));
    e.push_back(stringSet("/appsWhereZelkIsPaused", k::pauseApps));
    e.push_back(stringSet("/ignoredKeys", k::ignoredKeys));
    e.push_back(searchPinsEntry());

    e.push_back(section("/triggers", true));
    e.push_back(triggers("/triggers/triggerKeys", k::triggerKeys));
    e.push_back(triggers("/triggers/windowTriggerKeys", k::windowTriggerKeys));
    e.push_back(triggers("/triggers/assignKeyTriggerKeys", k::assignKeyTriggerKeys));
    e.push_back(triggers("/triggers/hideOnFocusTriggerKeys", k::hideOnFocusTriggerKeys));
    e.push_back(boolean("/triggers/enableAssignHotkey", k::enableAssignHotkey));
    e.push_back(boolean("/triggers/enableHideOthersHotkey", k::enableHideOnFocusHotkey));
    e.push_back(boolean("/triggers/alwaysHideOthers", k::alwaysHideOthers));

    e.push_back(section("/appSwitcher", true));
    e.push_back(boolean("/appSwitcher/showAppSwitcher", k::showAppSwitcher));
    e.push_back(integer("/appSwitcher/appSwitcherOSDDelay", k::windowSwitchOSDDelay));
    e.push_back(flags("/appSwitcher/appSwitcherFeatures", k::appSwitcherFeatures));
    e.push_back(section("/appSwitcher/switcherScreenPlacement", true));
    e.push_back(enumText("/appSwitcher/switcherScreenPlacement/position", k::switcherScreenPlacement, false));
    e.push_back(number("/appSwitcher/switcherScreenPlacement/offsetX", k::switcherScreenOffsetX, false));
    e.push_back(number("/appSwitcher/switcherScreenPlacement/offsetY", k::switcherScreenOffsetY, false));
    e.push_back(section("/appSwitcher/osdSize", false));
    e.push_back(number("/appSwitcher/osdSize/width", k::appSwitcherOSDWidth, false));
    e.push_back(number("/appSwitcher/osdSize/height", k::appSwitcherOSDHeight, false));
    e.push_back(section("/appSwitcher/actionKeys", true));
    e.push_back(keyName("/appSwitcher/actionKeys/hideKey", k::minimizeKey));
    e.push_back(keyName("/appSwitcher/actionKeys/actionKey", k::specialKey));
    e.push_back(keyName("/appSwitcher/actionKeys/exposeKey", k::exposeKey, false));
    e.push_back(
        boolean("/appSwitcher/actionKeys/enableHideAndActionKeys", k::enableHideAndSettingsKeys, false));
    e.push_back(boolean("/appSwitcher/hideOnlyFocusedAppOnMinus", k::hideOnlyFocusedAppOnMinus));
    e.push_back(enumText("/appSwitcher/appSort", k::appSort));
    e.push_back(boolean("/appSwitcher/appSortReverse", k::appSortReverse));

    e.push_back(section("/windowSwitcher", true));
    e.push_back(boolean("/windowSwitcher/showWindowSwitcher", k::showWindowSwitcher));
    e.push_back(integer("/windowSwitcher/windowSwitcherOSDDelay", k::windowOnlySwitchOSDDelay));
    e.push_back(enumText("/windowSwitcher/windowSwitcherAppearance", k::windowSwitcherAppearance));
    e.push_back(enumText("/windowSwitcher/windowKeyMode", k::windowKeyMode, false));
    e.push_back(record("/windowSwitcher/osdLook", k::osdLook, "a look with a density"));
    e.push_back(activeThemeEntry());
    e.push_back(record("/windowSwitcher/customTheme", k::customTheme, "a theme with an id"));
    e.push_back(boolean("/windowSwitcher/applyThemeLayout", k::applyThemeLayout, false));
    e.push_back(flags("/windowSwitcher/windowSwitcherFeatures", k::windowSwitcherFeatures));
    e.push_back(boolean("/windowSwitcher/windowSwitcherDimFocused", k::windowSwitcherDimFocused));
    e.push_back(section("/windowSwitcher/windowSwitcherPlacement", true));
    e.push_back(boolean("/windowSwitcher/windowSwitcherPlacement/mirrorAppSwitcher",
                        k::windowSwitcherMirrorAppPlacement, false));
    e.push_back(
        enumText("/windowSwitcher/windowSwitcherPlacement/position", k::windowSwitcherPlacement, false));
    e.push_back(number("/windowSwitcher/windowSwitcherPlacement/offsetX", k::windowSwitcherOffsetX, false));
    e.push_back(number("/windowSwitcher/windowSwitcherPlacement/offsetY", k::windowSwitcherOffsetY, false));
    e.push_back(section("/windowSwitcher/osdSize", false));
    e.push_back(number("/windowSwitcher/osdSize/width", k::windowSearchOSDWidth, false));
    e.push_back(number("/windowSwitcher/osdSize/height", k::windowSearchOSDHeight, false));
    e.push_back(section("/windowSwitcher/actionKeys", true));
    e.push_back(keyName("/windowSwitcher/actionKeys/windowMinimizeKey", k::windowMinimizeKey));
    e.push_back(keyName("/windowSwitcher/actionKeys/windowAssignKey", k::windowSpecialKey));
    e.push_back(boolean("/windowSwitcher/actionKeys/enableWindowMinimizeAndAssignKeys",
                        k::enableWindowSpecialKeys, false));
    e.push_back(
        boolean("/windowSwitcher/minimizeOnlyFocusedWindowOnMinus", k::minimizeOnlyFocusedWindowOnMinus));

    e.push_back(section("/stageSwitcher", true));
    e.push_back(triggers("/stageSwitcher/stageTriggerKeys", k::stageTriggerKeys, false));
    e.push_back(section("/stageSwitcher/actionKeys", true));
    e.push_back(keyName("/stageSwitcher/actionKeys/stageAssignKey", k::stageSpecialKey, false));
    e.push_back(keyName("/stageSwitcher/actionKeys/stageCloseKey", k::stageMinimizeKey, false));
    e.push_back(keyName("/stageSwitcher/actionKeys/stageRepositionKey", k::stageRepositionKey, false));
    e.push_back(enumText("/stageSwitcher/actionKeys/stageCloseAction", k::stageCloseAction, false));
    e.push_back(boolean("/stageSwitcher/stageReopenClosedItems", k::stageReopenClosedItems, false));
    e.push_back(integer("/stageSwitcher/stageSwitcherOSDDelay", k::stageSwitchOSDDelay, false));
    e.push_back(boolean("/stageSwitcher/showStageSwitcher", k::showStageSwitcher, false));
    e.push_back(section("/stageSwitcher/stageSwitcherPlacement", true));
    e.push_back(boolean("/stageSwitcher/stageSwitcherPlacement/mirrorAppSwitcher",
                        k::stageSwitcherMirrorAppPlacement, false));
    e.push_back(enumText("/stageSwitcher/stageSwitcherPlacement/position", k::stageSwitcherPlacement, false));
    e.push_back(number("/stageSwitcher/stageSwitcherPlacement/offsetX", k::stageSwitcherOffsetX, false));
    e.push_back(number("/stageSwitcher/stageSwitcherPlacement/offsetY", k::stageSwitcherOffsetY, false));

    e.push_back(section("/tabCycle", true));
    e.push_back(boolean("/tabCycle/enableTabCycle", k::enableTabCycle, false));
    e.push_back(enumText("/tabCycle/tabCycleScope", k::tabCycleScope, false));
    e.push_back(enumText("/tabCycle/tabCycleSearchScope", k::tabCycleSearchScope, false));
    e.push_back(flags("/tabCycle/tabCycleInclude", k::tabCycleInclude, false));
    e.push_back(boolean("/tabCycle/tabCycleFocusOnKeyUp", k::tabCycleFocusOnKeyUp, false));
    e.push_back(boolean("/tabCycle/hijackCommandTab", k::hijackCommandTab, false));
    e.push_back(boolean("/tabCycle/stickyAppSwitcher", k::stickyAppSwitcher, false));
    e.push_back(enumText("/tabCycle/stickyAppSwitcherScope", k::stickyAppSwitcherScope, false));
    e.push_back(keyName("/tabCycle/windowCycleKey", k::windowCycleKey, false));
    e.push_back(boolean("/tabCycle/enableWindowCycleKey", k::enableWindowCycleKey, false));
    e.push_back(boolean("/tabCycle/hijackWindowCycleHotkey", k::hijackWindowCycleHotkey, false));

    e.push_back(section("/spaces", true));
    e.push_back(enumText("/spaces/spaceMode", k::spaceMode, false));
    e.push_back(boolean("/spaces/createMissingSpaces", k::createMissingSpaces, false));
    e.push_back(boolean("/spaces/osdOnActiveSpaceOnly", k::osdCurrentSpaceOnly, false));
    e.push_back(boolean("/spaces/enableInstantSpaceSwitching", k::enableInstantSpaceSwitching, false));

    e.push_back(section("/general", true));
    e.push_back(globalAction());
    e.push_back(activateAllWindowsEntry());
    e.push_back(focusBehaviourEntry());
    e.push_back(enumText("/general/focusBehaviourSingle", k::focusBehaviourSingle, false));
    e.push_back(enumText("/general/focusBehaviourMulti", k::focusBehaviourMulti, false));
    e.push_back(boolean("/general/focusOnKeyUp", k::focusOnKeyUp));
    e.push_back(enumText("/general/activationMode", k::activationMode, false));
    e.push_back(integer("/general/adaptiveFollowupGraceMs", k::adaptiveFollowupGraceMs, false));
    e.push_back(boolean("/general/fuzzySearch", k::fuzzySearch));
    e.push_back(enumText("/general/searchMatchMode", k::searchMatchMode, false));
    e.push_back(strings("/general/searchOptionalPrefixes", k::searchOptionalPrefixes, false));
    e.push_back(boolean("/general/showMenubarAppsInSearch", k::showMenubarAppsInSearch, false));
    e.push_back(boolean("/general/enableStickySpaceSearch", k::enableStickySpaceSearch, false));
    e.push_back(boolean("/general/hidePerAppSettings", k::hideStaticSettings));

    e.push_back(records("/windowKeyPatterns", k::windowKeyPatterns, "a pattern with an id and a pattern"));
    e.push_back(
        records("/windowTitlePatterns", k::windowTitlePatterns, "a pattern with an id and a pattern"));
    e.push_back(records("/windowPatternGroups", k::windowPatternGroups, "a group with an id"));
    e.push_back(overrideEntry());
    return e;
}

const std::vector<Entry>& entries() {
    static const std::vector<Entry> all = buildEntries();
    return all;
}

std::string parentOf(const std::string& pointer) {
    return pointer.substr(0, pointer.rfind('/'));
}

// Keys of a mapping that no entry reads: noted (a newer version's key, or a typo), never fatal.
void noteUnknownKeys(const json& v, const std::string& pointer, const std::set<std::string>& known,
                     ReadContext& c) {
    if (!v.is_object()) return;
    for (auto& [key, value] : v.items()) {
        const std::string p = child(pointer, key);
        if (known.count(p)) continue;
        c.note(p, "unknown key, ignored");
    }
}

// Fills what the file's values imply but don't say: the look of the appearance, the pattern groups of
// the pattern lists.
void addImpliedWrites(ReadContext& c) {
    auto has = [&](const std::string& key) {
        return std::any_of(c.out.writes.begin(), c.out.writes.end(), [&](auto& w) { return w.first == key; });
    };
    auto valueOf = [&](const std::string& key) -> const json* {
        for (auto it = c.out.writes.rbegin(); it != c.out.writes.rend(); ++it)
            if (it->first == key) return &it->second;
        return nullptr;
    };
    if (!has(keys::osdLook.name)) {
        auto appearance = c.current.get(keys::windowSwitcherAppearance);
        if (auto* given = valueOf(keys::windowSwitcherAppearance.name))
            appearance =
                enumFromText<WindowSwitcherAppearance>(given->get<std::string>()).value_or(appearance);
        c.write(keys::osdLook.name, OSDLook::preset(appearance).toJson());
    }
    const bool patternsGiven = has(keys::windowKeyPatterns.name) || has(keys::windowTitlePatterns.name);
    if (!has(keys::windowPatternGroups.name) && patternsGiven) {
        auto keyPatterns = c.current.get(keys::windowKeyPatterns);
        auto titlePatterns = c.current.get(keys::windowTitlePatterns);
        if (auto* v = valueOf(keys::windowKeyPatterns.name))
            keyPatterns = SettingCodec<std::vector<WindowKeyPattern>>::decode(*v).value_or(keyPatterns);
        if (auto* v = valueOf(keys::windowTitlePatterns.name))
            titlePatterns = SettingCodec<std::vector<WindowTitlePattern>>::decode(*v).value_or(titlePatterns);
        // Lists without a pattern rebuild nothing: the groups a file doesn't mention stay.
        auto groups = groupsFromPatterns(keyPatterns, titlePatterns);
        if (!groups.empty())
            c.write(keys::windowPatternGroups.name,
                    SettingCodec<std::vector<WindowPatternGroup>>::encode(groups));
    }
}

}  // namespace

const std::vector<std::string>& configManagedKeys() {
    static const std::vector<std::string> all = [] {
        std::vector<std::string> out;
        for (auto& e : entries())
            for (auto& k : e.storedKeys)
                if (std::find(out.begin(), out.end(), k) == out.end()) out.push_back(k);
        return out;
    }();
    return all;
}

ordered_json configTree(const Settings& settings, const ConfigApps& apps, const StageCodec& stages) {
    ordered_json tree = ordered_json::object();
    for (auto& e : entries()) {
        const ordered_json::json_pointer p(e.pointer);
        if (e.section) {
            tree[p] = ordered_json::object();
            continue;
        }
        if (auto value = e.write(settings, apps, stages)) tree[p] = std::move(*value);
    }
    return tree;
}

std::string configText(const ordered_json& tree) {
    return std::string(kConfigHeader) + ferrow::emitYaml(tree);
}

std::optional<ConfigUpdate> decodeConfig(std::string_view text, const Settings& current, std::string& error,
                                         const ConfigApps& apps, const StageCodec& stages) {
    ferrow::YamlError yamlError;
    ferrow::YamlPlaces places;
    auto doc = ferrow::parseYaml(text, &yamlError, ferrow::YamlLimits{}, &places);
    if (!doc) {
        error = yamlError.describe();
        return std::nullopt;
    }
    ConfigUpdate update;
    ReadContext c{*doc, places, current, apps, stages, update, {}};
    if (!doc->is_object()) {
        c.expected("", *doc, "a mapping of settings");
        error = c.error;
        return std::nullopt;
    }
    std::set<std::string> known;
    std::set<std::string> sections{""};
    for (auto& e : entries()) {
        known.insert(e.pointer);
        const std::string parent = parentOf(e.pointer);
        if (!sections.count(parent)) continue;  // an optional record the file leaves out
        const json& parentValue = doc->at(json::json_pointer(parent));
        // Entry names hold no '/' or '~', so the last token is the key as written.
        const std::string name = e.pointer.substr(parent.size() + 1);
        auto it = parentValue.find(name);
        const json* value = it == parentValue.end() ? nullptr : &*it;
        if (!value || (value->is_null() && !e.required)) {
            if (e.required) {
                c.fail(parent, fmt::format("missing required key '{}'", name));
                error = c.error;
                return std::nullopt;
            }
            continue;
        }
        if (e.section) {
            if (!value->is_object()) {
                c.expected(e.pointer, *value, "a mapping");
                error = c.error;
                return std::nullopt;
            }
            sections.insert(e.pointer);
            continue;
        }
        if (!e.read(*value, e.pointer, c)) {
            error = c.error;
            return std::nullopt;
        }
    }
    for (auto& s : sections)
        noteUnknownKeys(doc->at(json::json_pointer(s)), s, known, c);
    addImpliedWrites(c);
    return update;
}

// What a key holds now in stored form: its stored value, else its default. A default the file repeats
// stays a default rather than becoming a stored copy of it.
json effectiveValue(const Settings& settings, const std::string& key) {
    if (auto stored = settings.store().read(key)) return *stored;
    if (key == keys::osdLook.name) return settings.get(keys::osdLook).toJson();
    if (auto* entry = catalogueEntry(key)) return entry->defaultStored();
    return nullptr;
}

std::size_t applyConfig(Settings& settings, const ConfigUpdate& update) {
    auto& store = settings.store();
    std::map<std::string, const json*> finalValues;
    for (auto& [key, value] : update.writes)
        finalValues[key] = &value;
    std::size_t changed = 0;
    if (update.overrideUserDefaults)
        for (auto& key : configManagedKeys())
            if (!finalValues.count(key) && store.read(key)) {
                store.remove(key);
                ++changed;
            }
    // In the order the file gives them, each key once with its last value.
    std::set<std::string> done;
    for (auto it = update.writes.begin(); it != update.writes.end(); ++it) {
        if (!done.insert(it->first).second) continue;
        const json& value = *finalValues[it->first];
        if (effectiveValue(settings, it->first) == value) continue;
        store.write(it->first, value);
        ++changed;
    }
    return changed;
}

// ---------------------------------------------------------------------------------------------------
// The settings record.

const std::vector<std::pair<std::string, std::string>>& settingsRecordFields() {
    static const std::vector<std::pair<std::string, std::string>> fields{
        {"stages", "stages"},
        {"ignoredApps", "ignoredApps"},
        {"searchQueryAppSelections", "searchQueryAppSelections"},
        {"searchQueryPins", "searchQueryPins"},
        {"appsWhereZelkIsPaused", "pauseApps"},
        {"appKeyAssignments", "appKeyAssignments"},
        {"enableAssignHotkey", "enableAssignHotkey"},
        {"enableHideOthersHotkey", "enableHideOnFocusHotkey"},
        {"alwaysHideOthers", "alwaysHideOthers"},
        {"focusBehaviour", "focusBehaviour"},
        {"focusBehaviourSingle", "focusBehaviourSingle"},
        {"focusBehaviourMulti", "focusBehaviourMulti"},
        {"hidePerAppSettings", "hideStaticSettings"},
        {"whenAlreadyFocusedAction", "whenAlreadyFocusedAction"},
        {"triggerKeys", "triggerKeys"},
        {"windowTriggerKeys", "windowTriggerKeys"},
        {"assignKeyTriggerKeys", "assignKeyTriggerKeys"},
        {"hideOnFocusTriggerKeys", "hideOnFocusTriggerKeys"},
        {"stageTriggerKeys", "stageTriggerKeys"},
        {"stageAssignKey", "stageSpecialKey"},
        {"stageCloseKey", "stageMinimizeKey"},
        {"stageRepositionKey", "stageRepositionKey"},
        {"stageCloseAction", "stageCloseAction"},
        {"stageReopenClosedItems", "stageReopenClosedItems"},
        {"ignoredKeys", "ignoredKeys"},
        {"hideKey", "minimizeKey"},
        {"actionKey", "specialKey"},
        {"exposeKey", "exposeKey"},
        {"windowMinimizeKey", "windowMinimizeKey"},
        {"windowAssignKey", "windowSpecialKey"},
        {"enableHideAndActionKeys", "enableHideAndSettingsKeys"},
        {"enableWindowMinimizeAndAssignKeys", "enableWindowSpecialKeys"},
        {"enableInstantSpaceSwitching", "enableInstantSpaceSwitching"},
        {"spaceMode", "spaceMode"},
        {"createMissingSpaces", "createMissingSpaces"},
        {"osdOnActiveSpaceOnly", "osdCurrentSpaceOnly"},
        {"windowKeyAssignments", "windowKeyAssignments"},
        {"appSwitcherOSDDelay", "windowSwitchOSDDelay"},
        {"windowSwitcherOSDDelay", "windowOnlySwitchOSDDelay"},
        {"windowSwitcherAppearance", "windowSwitcherAppearance"},
        {"windowKeyMode", "windowKeyMode"},
        {"windowSwitcherFeatures", "windowSwitcherFeatures"},
        {"appSwitcherFeatures", "appSwitcherFeatures"},
        {"showAppSwitcher", "showAppSwitcher"},
        {"showWindowSwitcher", "showWindowSwitcher"},
        {"windowSwitcherDimFocused", "windowSwitcherDimFocused"},
        {"windowKeyPatterns", "windowKeyPatterns"},
        {"windowTitlePatterns", "windowTitlePatterns"},
        {"windowPatternGroups", "windowPatternGroups"},
        {"appSort", "appSort"},
        {"appSortReverse", "appSortReverse"},
        {"focusOnKeyUp", "focusOnKeyUp"},
        {"activationMode", "activationMode"},
        {"fuzzySearch", "fuzzySearch"},
        {"searchMatchMode", "searchMatchMode"},
        {"searchOptionalPrefixes", "searchOptionalPrefixes"},
        {"hideOnlyFocusedAppOnMinus", "hideOnlyFocusedAppOnMinus"},
        {"minimizeOnlyFocusedWindowOnMinus", "minimizeOnlyFocusedWindowOnMinus"},
        {"switcherScreenPlacement", "switcherScreenPlacement"},
        {"switcherScreenOffsetX", "switcherScreenOffsetX"},
        {"switcherScreenOffsetY", "switcherScreenOffsetY"},
        {"appSwitcherOSDWidth", "appSwitcherOSDWidth"},
        {"appSwitcherOSDHeight", "appSwitcherOSDHeight"},
        {"windowSearchOSDWidth", "windowSearchOSDWidth"},
        {"windowSearchOSDHeight", "windowSearchOSDHeight"},
        {"stageSwitcherOSDDelay", "stageSwitchOSDDelay"},
        {"showStageSwitcher", "showStageSwitcher"},
        {"windowSwitcherMirrorAppPlacement", "windowSwitcherMirrorAppPlacement"},
        {"windowSwitcherPlacement", "windowSwitcherPlacement"},
        {"windowSwitcherOffsetX", "windowSwitcherOffsetX"},
        {"windowSwitcherOffsetY", "windowSwitcherOffsetY"},
        {"stageSwitcherMirrorAppPlacement", "stageSwitcherMirrorAppPlacement"},
        {"stageSwitcherPlacement", "stageSwitcherPlacement"},
        {"stageSwitcherOffsetX", "stageSwitcherOffsetX"},
        {"stageSwitcherOffsetY", "stageSwitcherOffsetY"},
        {"showMenubarAppsInSearch", "showMenubarAppsInSearch"},
        {"enableStickySpaceSearch", "enableStickySpaceSearch"},
        {"enableTabCycle", "enableTabCycle"},
        {"enableSelectionActionHotkeys", "enableSelectionActionHotkeys"},
        {"tabCycleScope", "tabCycleScope"},
        {"tabCycleSearchScope", "tabCycleSearchScope"},
        {"tabCycleInclude", "tabCycleInclude"},
        {"tabCycleFocusOnKeyUp", "tabCycleFocusOnKeyUp"},
        {"windowCycleKey", "windowCycleKey"},
        {"enableWindowCycleKey", "enableWindowCycleKey"},
        {"hijackWindowCycleHotkey", "hijackWindowCycleHotkey"},
        {"hijackCommandTab", "hijackCommandTab"},
        {"stickyAppSwitcher", "stickyAppSwitcher"},
        {"stickyAppSwitcherScope", "stickyAppSwitcherScope"},
        // The file carries these too; the record does, so that export and import lose nothing the file keeps.
        {"osdLook", "osdLook"},
        {"activeThemeID", "activeThemeID"},
        {"customTheme", "customTheme"},
        {"applyThemeLayout", "applyThemeLayout"},
        {"adaptiveFollowupGraceMs", "adaptiveFollowupGraceMs"},
        {"overrideUserDefaults", "overrideUserDefaults"},
    };
    return fields;
}

ordered_json exportSettingsRecord(const Settings& settings) {
    ordered_json out = ordered_json::object();
    for (auto& [field, key] : settingsRecordFields()) {
        json value;
        if (key == keys::osdLook.name)
            value = settings.get(keys::osdLook).toJson();
        else if (auto storedValue = settings.store().read(key);
                 storedValue && catalogueEntry(key) && catalogueEntry(key)->reads(*storedValue))
            value = *storedValue;
        else if (auto* entry = catalogueEntry(key))
            value = entry->defaultStored();
        if (!value.is_null()) out[field] = value;
    }
    return out;
}

std::optional<std::vector<std::pair<std::string, json>>> decodeSettingsRecord(std::string_view body,
                                                                              std::string& error) {
    std::string problem;
    auto record = ferrow::parseJsonBounded(body, 64, problem);
    if (!record) {
        error = fmt::format("not JSON: {}", problem);
        return std::nullopt;
    }
    if (!record->is_object()) {
        error = "expected a JSON object of settings";
        return std::nullopt;
    }
    std::vector<std::pair<std::string, json>> writes;
    for (auto& [field, key] : settingsRecordFields()) {
        auto it = record->find(field);
        if (it == record->end()) continue;
        const auto* entry = catalogueEntry(key);
        if (!entry) continue;
        if (it->is_null() && key == keys::activeThemeID.name) {
            writes.emplace_back(key, nullptr);
            continue;
        }
        if (!entry->reads(*it)) {
            error = fmt::format("{} is not a {}", field, entry->typeName);
            return std::nullopt;
        }
        writes.emplace_back(key, *it);
    }
    return writes;
}

}  // namespace zelk::configfile
