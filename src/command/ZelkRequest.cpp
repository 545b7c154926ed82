#include "command/ZelkRequest.h"

#include <cmath>
#include <limits>

#include "command/WireText.h"

namespace zelk::command {

using nlohmann::json;

namespace {

// One field's reading: absent (or null) leaves the target alone, a wrong type fails.
class FieldReader {
  public:
    explicit FieldReader(const json& object) : object_(object) {}
    bool failed() const { return failed_; }

    const json* find(const char* key) {
        auto it = object_.find(key);
        if (it == object_.end() || it->is_null()) return nullptr;
        return &*it;
    }

    void string(const char* key, std::optional<std::string>& out) {
        const json* v = find(key);
        if (!v) return;
        // The parser has already refused ill-formed UTF-8 in text; objects built in memory (the
        // replay bench) are checked here.
        if (!v->is_string() || !isValidUtf8(v->get_ref<const std::string&>())) {
            failed_ = true;
            return;
        }
        out = v->get<std::string>();
    }

    void boolean(const char* key, bool& out) {
        const json* v = find(key);
        if (!v) return;
        if (!v->is_boolean()) {
            failed_ = true;
            return;
        }
        out = v->get<bool>();
    }

    void number(const char* key, std::optional<double>& out) {
        const json* v = find(key);
        if (!v) return;
        if (!v->is_number()) {
            failed_ = true;
            return;
        }
        double d = v->get<double>();
        if (!std::isfinite(d)) {
            failed_ = true;
            return;
        }
        out = d;
    }

    // An integer in [lo, hi]. A number written with a fraction part is accepted only when its value
    // is whole (2.0); 2.5 and anything out of range fail.
    template <typename T>
    void integer(const char* key, std::optional<T>& out, long double lo, long double hi) {
        const json* v = find(key);
        if (!v) return;
        long double value;
        if (v->is_number_unsigned()) {
            value = static_cast<long double>(v->get<std::uint64_t>());
        } else if (v->is_number_integer()) {
            value = static_cast<long double>(v->get<std::int64_t>());
        } else if (v->is_number_float()) {
            double d = v->get<double>();
            if (!std::isfinite(d) || std::trunc(d) != d) {
                failed_ = true;
                return;
            }
            value = d;
        } else {
            failed_ = true;
            return;
        }
        if (value < lo || value > hi) {
            failed_ = true;
            return;
        }
        out = static_cast<T>(value);
    }

  private:
    const json& object_;
    bool failed_ = false;
};

}  // namespace

std::optional<ZelkRequest> decodeRequest(const json& object) {
    if (!object.is_object()) return std::nullopt;
    auto cmd = object.find("command");
    if (cmd == object.end() || !cmd->is_string()) return std::nullopt;
    auto command = commandFromRaw(cmd->get_ref<const std::string&>());
    if (!command) return std::nullopt;

    ZelkRequest r;
    r.command = *command;
    FieldReader f(object);
    f.string("query", r.query);
    f.string("bundleID", r.bundleID);
    f.integer("windowID", r.windowID, 0.0L,
              static_cast<long double>(std::numeric_limits<std::uint32_t>::max()));
    f.string("stageKey", r.stageKey);
    f.integer("spaceIndex", r.spaceIndex, static_cast<long double>(std::numeric_limits<std::int64_t>::min()),
              static_cast<long double>(std::numeric_limits<std::int64_t>::max()));
    f.string("position", r.position);
    f.string("appQuery", r.appQuery);
    f.boolean("hideOthers", r.hideOthers);
    f.string("screen", r.screen);
    f.number("padding", r.padding);
    f.string("body", r.body);
    f.number("seconds", r.seconds);
    f.boolean("windowsOnly", r.windowsOnly);
    f.boolean("includeWindows", r.includeWindows);
    f.string("mode", r.mode);
    f.string("surface", r.surface);
    if (f.failed()) return std::nullopt;
    return r;
}

std::optional<ZelkRequest> decodeRequest(std::string_view bytes) {
    if (bytes.size() > kMaxMessageBytes || !isValidUtf8(bytes)) return std::nullopt;
    if (jsonNestingDepth(bytes) > kMaxJsonDepth) return std::nullopt;
    json parsed = json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded()) return std::nullopt;
    return decodeRequest(parsed);
}

json toJson(const ZelkRequest& r) {
    json j = json::object();
    j["command"] = std::string(rawValue(r.command));
    auto put = [&](const char* key, const auto& value) {
        if (value) j[key] = *value;
    };
    put("query", r.query);
    put("bundleID", r.bundleID);
    put("windowID", r.windowID);
    put("stageKey", r.stageKey);
    put("spaceIndex", r.spaceIndex);
    put("position", r.position);
    put("appQuery", r.appQuery);
    if (r.hideOthers) j["hideOthers"] = true;
    put("screen", r.screen);
    put("padding", r.padding);
    put("body", r.body);
    put("seconds", r.seconds);
    if (r.windowsOnly) j["windowsOnly"] = true;
    if (r.includeWindows) j["includeWindows"] = true;
    put("mode", r.mode);
    put("surface", r.surface);
    return j;
}

}  // namespace zelk::command
