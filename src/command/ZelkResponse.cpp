#include "command/ZelkResponse.h"

#include "command/WireText.h"

namespace zelk::command {

namespace {

std::string text(const std::string& s) {
    return isValidUtf8(s) ? s : repairUtf8(s);
}

// Builds any of the records as either JSON flavour; keys go in the order written.
template <typename J>
struct Builder {
    J j = J::object();
    Builder& set(const char* key, const std::string& v) {
        j[key] = text(v);
        return *this;
    }
    Builder& set(const char* key, const char* v) { return set(key, std::string(v)); }
    template <typename T>
    Builder& set(const char* key, const T& v) {
        j[key] = v;
        return *this;
    }
    template <typename T>
    Builder& opt(const char* key, const std::optional<T>& v) {
        if (v) set(key, *v);
        return *this;
    }
    Builder& strings(const char* key, const std::vector<std::string>& v) {
        J a = J::array();
        for (auto& s : v)
            a.push_back(text(s));
        j[key] = std::move(a);
        return *this;
    }
};

template <typename J>
J build(const ZelkStageItemInfo&);
template <typename J>
J build(const ZelkStageInfo&);
template <typename J>
J build(const ZelkSpaceInfo&);
template <typename J>
J build(const ZelkSearchResult&);
template <typename J>
J build(const ZelkLearnedQueryInfo&);
template <typename J>
J build(const ZelkAppInfo&);
template <typename J>
J build(const ZelkWindowInfo&);

template <typename J>
J build(const ZelkAppInfo& a) {
    Builder<J> b;
    b.set("name", a.name).set("bundleID", a.bundleID).set("pid", a.pid).set("isActive", a.isActive);
    b.set("isHidden", a.isHidden).set("windowCount", a.windowCount).set("spaceIndices", a.spaceIndices);
    return b.j;
}

template <typename J>
J build(const ZelkWindowInfo& w) {
    Builder<J> b;
    b.set("id", w.id).set("title", w.title).set("appName", w.appName).set("bundleID", w.bundleID);
    b.set("pid", w.pid).opt("spaceID", w.spaceID).opt("spaceIndex", w.spaceIndex);
    b.opt("displayName", w.displayName).set("isFocused", w.isFocused).set("isMinimized", w.isMinimized);
    return b.j;
}

template <typename J>
J build(const ZelkStageItemInfo& i) {
    Builder<J> b;
    b.set("appName", i.appName).set("bundleID", i.bundleID).set("spec", i.spec);
    b.opt("windowTitle", i.windowTitle).opt("placement", i.placement);
    b.opt("resolvedWindowID", i.resolvedWindowID).opt("resolvedTitle", i.resolvedTitle);
    b.opt("resolvedSpaceIndex", i.resolvedSpaceIndex).opt("resolvedDisplayName", i.resolvedDisplayName);
    b.opt("resolvedIsMinimized", i.resolvedIsMinimized);
    return b.j;
}

template <typename J, typename T>
J array(const std::vector<T>& items) {
    J a = J::array();
    for (auto& item : items)
        a.push_back(build<J>(item));
    return a;
}

template <typename J>
J build(const ZelkStageInfo& s) {
    Builder<J> b;
    b.set("key", s.key).set("name", s.name);
    b.j["items"] = array<J>(s.items);
    b.opt("spaceID", s.spaceID).set("isActive", s.isActive);
    return b.j;
}

template <typename J>
J build(const ZelkSpaceInfo& s) {
    Builder<J> b;
    b.set("index", s.index).set("id", s.id).set("isActive", s.isActive);
    return b.j;
}

template <typename J>
J build(const ZelkStatusInfo& s) {
    Builder<J> b;
    b.set("version", s.version).set("pid", s.pid).set("triggerKeysApp", s.triggerKeysApp);
    b.set("triggerKeysWindow", s.triggerKeysWindow).set("triggerKeysStage", s.triggerKeysStage);
    b.opt("frontmostApp", s.frontmostApp).opt("frontmostBundleID", s.frontmostBundleID);
    if (s.focusedWindow) b.j["focusedWindow"] = build<J>(*s.focusedWindow);
    if (s.activeSpace) b.j["activeSpace"] = build<J>(*s.activeSpace);
    b.set("totalSpaces", s.totalSpaces);
    if (s.activeStage) b.j["activeStage"] = build<J>(*s.activeStage);
    return b.j;
}

template <typename J>
J build(const ZelkSearchResult& r) {
    Builder<J> b;
    b.set("kind", r.kind).set("rank", r.rank).set("name", r.name).set("bundleID", r.bundleID);
    b.opt("key", r.key).opt("windowID", r.windowID).set("isFocused", r.isFocused);
    b.set("isRunning", r.isRunning).strings("reasons", r.reasons);
    return b.j;
}

template <typename J>
J build(const ZelkConfigInfo& c) {
    Builder<J> b;
    b.set("configPath", c.configPath).set("backupPath", c.backupPath).set("hasBackup", c.hasBackup);
    return b.j;
}

template <typename J>
J build(const ZelkLearnedQueryInfo& q) {
    Builder<J> b;
    b.set("query", q.query).set("bundleID", q.bundleID).opt("appName", q.appName);
    b.set("pinned", q.pinned).set("count", q.count).opt("lastPickedAt", q.lastPickedAt);
    b.set("stale", q.stale);
    return b.j;
}

template <typename J>
J build(const ZelkDebugInfo& d) {
    J j = J::object();
    auto put = [&](const char* key, const std::optional<nlohmann::json>& v) {
        // Diagnostic text can carry anything an app reported; a round trip through the lenient
        // serializer repairs it.
        if (v) j[key] = J::parse(v->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    };
    put("stage", d.stage);
    put("capture", d.capture);
    put("keys", d.keys);
    put("ax", d.ax);
    put("spacesTree", d.spacesTree);
    put("placePreview", d.placePreview);
    put("drift", d.drift);
    put("windowEvents", d.windowEvents);
    put("tabCycle", d.tabCycle);
    put("windowKeys", d.windowKeys);
    put("tap", d.tap);
    return j;
}

template <typename J>
J build(const ZelkResponse& r) {
    Builder<J> b;
    b.set("ok", r.ok).opt("error", r.error).opt("message", r.message);
    if (r.apps) b.j["apps"] = array<J>(*r.apps);
    if (r.windows) b.j["windows"] = array<J>(*r.windows);
    if (r.stages) b.j["stages"] = array<J>(*r.stages);
    if (r.spaces) b.j["spaces"] = array<J>(*r.spaces);
    if (r.status) b.j["status"] = build<J>(*r.status);
    if (r.config) b.j["config"] = build<J>(*r.config);
    b.opt("body", r.body);
    if (r.searchResults) b.j["searchResults"] = array<J>(*r.searchResults);
    if (r.learnedQueries) b.j["learnedQueries"] = array<J>(*r.learnedQueries);
    if (r.debug) b.j["debug"] = build<J>(*r.debug);
    return b.j;
}

}  // namespace

ZelkResponse ZelkResponse::success(std::optional<std::string> message) {
    ZelkResponse r;
    r.ok = true;
    r.message = std::move(message);
    return r;
}

ZelkResponse ZelkResponse::failure(std::string error) {
    ZelkResponse r;
    r.ok = false;
    r.error = std::move(error);
    return r;
}

nlohmann::json toJson(const ZelkResponse& r) {
    return build<nlohmann::json>(r);
}
nlohmann::ordered_json toOrderedJson(const ZelkResponse& r) {
    return build<nlohmann::ordered_json>(r);
}
nlohmann::json toJson(const ZelkAppInfo& i) {
    return build<nlohmann::json>(i);
}
nlohmann::json toJson(const ZelkWindowInfo& i) {
    return build<nlohmann::json>(i);
}
nlohmann::json toJson(const ZelkStageInfo& i) {
    return build<nlohmann::json>(i);
}
nlohmann::json toJson(const ZelkSpaceInfo& i) {
    return build<nlohmann::json>(i);
}
nlohmann::json toJson(const ZelkStatusInfo& i) {
    return build<nlohmann::json>(i);
}

std::string encodeResponse(const ZelkResponse& response) {
    // Every string went through repair above; replace still guards against anything missed.
    return toOrderedJson(response).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace zelk::command
