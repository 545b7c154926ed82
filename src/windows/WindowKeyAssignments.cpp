#include "windows/WindowKeyAssignments.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/Format.h"
#include "support/Log.h"

namespace zelk::windows {

using ferrow::Log;
using nlohmann::json;

namespace {

std::optional<std::string> text(const json& j, const char* field) {
    auto it = j.find(field);
    if (it == j.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

bool hasScheme(const std::string& url) {
    auto colon = url.find(':');
    if (colon == std::string::npos || colon == 0) return false;
    return std::all_of(url.begin(), url.begin() + static_cast<std::ptrdiff_t>(colon), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
    });
}

std::string withoutTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::optional<WindowKeyActionKind> actionKindOf(const json& j) {
    if (j.is_number_integer()) {
        auto raw = j.get<int>();
        if (raw < 0 || raw > 3) return std::nullopt;
        return static_cast<WindowKeyActionKind>(raw);
    }
    if (j.is_string()) {
        const auto s = j.get<std::string>();
        if (s == "url") return WindowKeyActionKind::url;
        if (s == "file") return WindowKeyActionKind::file;
        if (s == "script") return WindowKeyActionKind::script;
        if (s == "appleScript") return WindowKeyActionKind::appleScript;
    }
    return std::nullopt;
}

bool isWebURL(const std::string& url) {
    return url.starts_with("http://") || url.starts_with("https://");
}

}  // namespace

std::optional<std::string> pathOfFileURL(const std::string& url) {
    if (!url.starts_with("file://")) return std::nullopt;
    std::string rest = url.substr(7);
    if (rest.starts_with("localhost/")) rest = rest.substr(9);
    std::string path;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == '%' && i + 2 < rest.size() && std::isxdigit(static_cast<unsigned char>(rest[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(rest[i + 2]))) {
            path += static_cast<char>(std::stoi(rest.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            path += rest[i];
        }
    }
    return path;
}

std::string fileURLOf(const std::string& path) {
    std::string url = "file://";
    for (unsigned char c : path) {
        if (std::isalnum(c) || std::string_view("/-._~").find(static_cast<char>(c)) != std::string_view::npos)
            url += static_cast<char>(c);
        else
            url += fmt::format("%{:02X}", c);
    }
    return url;
}

std::string WindowKeyAssignment::targetURL() const {
    switch (actionKind) {
        case WindowKeyActionKind::url:
            return webURL.value_or("");
        case WindowKeyActionKind::file:
            return fileURL.value_or("");
        case WindowKeyActionKind::script:
            return scriptPath ? fileURLOf(*scriptPath) : "";
        case WindowKeyActionKind::appleScript:
            return appleScriptPath ? fileURLOf(*appleScriptPath) : "";
    }
    return "";
}

std::optional<WindowKeyAssignment> WindowKeyAssignment::fromJson(const json& j, std::string* error) {
    auto fail = [&](const std::string& why) -> std::optional<WindowKeyAssignment> {
        if (error) *error = why;
        return std::nullopt;
    };
    if (!j.is_object()) return fail("a window key assignment is not an object");
    WindowKeyAssignment a;
    auto key = text(j, "key");
    if (!key || key->empty()) return fail("key is missing");
    a.key = ferrow::toLowerAscii(*key);
    auto app = text(j, "appURL");
    if (!app || app->empty()) return fail("appURL is not a URL");
    if (hasScheme(*app))
        a.appURL = *app;
    else if (app->starts_with("/"))
        a.appURL = fileURLOf(*app);
    else
        return fail("appURL is not a URL");
    a.name = text(j, "name");
    if (auto kind = j.find("actionKind"); kind != j.end()) {
        auto parsed = actionKindOf(*kind);
        if (!parsed) return fail("actionKind is not one of url, file, script, appleScript");
        a.actionKind = *parsed;
    }
    a.webURL = text(j, "webURL");
    a.fileURL = text(j, "fileURL");
    a.scriptPath = text(j, "scriptPath");
    a.scriptRunner = text(j, "scriptRunner");
    a.appleScriptPath = text(j, "appleScriptPath");
    // The older form kept a web address under "url".
    if (!a.webURL && j.find("actionKind") == j.end())
        if (auto old = text(j, "url")) {
            a.webURL = old;
            a.actionKind = WindowKeyActionKind::url;
        }
    return a;
}

std::vector<WindowKeyAssignment> decodeWindowKeyAssignments(const json& list) {
    std::vector<WindowKeyAssignment> out;
    if (!list.is_array()) return out;
    for (const auto& item : list) {
        std::string error;
        if (auto a = WindowKeyAssignment::fromJson(item, &error))
            out.push_back(std::move(*a));
        else
            Log::error("windowKeyAssignments: skipped a record: {}", error);
    }
    return out;
}

std::string WindowKeyAssignmentRunner::bundleOfAppURL(const std::string& appURL) {
    if (auto it = bundleByURL_.find(appURL); it != bundleByURL_.end()) return it->second;
    std::string bundle;
    if (auto path = pathOfFileURL(appURL))
        if (auto info = workspace_.bundleInfo(withoutTrailingSlash(*path))) bundle = info->bundleID;
    bundleByURL_[appURL] = bundle;
    return bundle;
}

bool WindowKeyAssignmentRunner::belongsTo(const WindowKeyAssignment& record, const KeyedApp& app) {
    // The developer tool's folder name varies with its version: it is matched by bundle id alone.
    const bool byBundleOnly = app.bundleIdentifier == "com.apple.dt.Xcode";
    auto path = pathOfFileURL(record.appURL);
    if (!byBundleOnly && path && withoutTrailingSlash(*path) == withoutTrailingSlash(app.path)) return true;
    const std::string bundle = bundleOfAppURL(record.appURL);
    return !bundle.empty() && bundle == app.bundleIdentifier;
}

std::set<std::string> WindowKeyAssignmentRunner::keysFor(
    const KeyedApp& app, const std::vector<WindowKeyAssignment>& assignments) {
    std::set<std::string> keys;
    for (const auto& a : assignments)
        if (belongsTo(a, app)) keys.insert(a.key);
    return keys;
}

bool WindowKeyAssignmentRunner::isScript(const WindowKeyAssignment& record, const KeyedApp& app) const {
    if (record.actionKind == WindowKeyActionKind::script ||
        record.actionKind == WindowKeyActionKind::appleScript)
        return true;
    auto path = pathOfFileURL(record.targetURL());
    const std::string folder =
        workspace_.homeDirectory() + "/Library/Application Scripts/" + app.bundleIdentifier + "/";
    return path && path->starts_with(folder);
}

bool WindowKeyAssignmentRunner::run(const std::string& key, const std::optional<KeyedApp>& passedApp,
                                    const std::optional<KeyedApp>& focusedApp,
                                    const std::vector<WindowKeyAssignment>& assignments) {
    const std::optional<KeyedApp>& chosen = passedApp ? passedApp : focusedApp;
    if (!chosen) {
        Log::info(
            "runWindowKeyAssignments: no app (passed nil and AM.focusedApp?.launchableApp is nil) — bailing");
        return false;
    }
    const KeyedApp& app = *chosen;
    std::vector<const WindowKeyAssignment*> candidates;
    for (const auto& a : assignments)
        if (a.key == key) candidates.push_back(&a);
    Log::info(
        "runWindowKeyAssignments(key: {}) — passedApp={} focusedApp={} matchingKeyAssignments={} (of {} "
        "total)",
        key, passedApp ? passedApp->name : "nil", focusedApp ? focusedApp->name : "nil", candidates.size(),
        assignments.size());

    const std::string appURL = fileURLOf(withoutTrailingSlash(app.path));
    const WindowKeyAssignment* match = nullptr;
    for (const auto* a : candidates)
        if (belongsTo(*a, app)) {
            match = a;
            break;
        }
    if (!match) {
        std::vector<std::string> list;
        for (const auto* a : candidates)
            list.push_back(a->appURL);
        Log::info(
            "runWindowKeyAssignments: no WindowKeyAssignment matched app={} bundle={}. Candidates for key "
            "'{}': [{}]",
            app.name, app.bundleIdentifier, key, ferrow::join(list, ", "));
        return false;
    }

    const std::string target = match->targetURL();
    const auto targetPath = pathOfFileURL(target);
    const bool script = isScript(*match, app);
    const bool special = !script && !targetPath && isWebURL(target) && !app.path.empty();
    const char* branch = script ? "script" : special ? "specialScript" : targetPath ? "file" : "open";
    Log::info(
        "runWindowKeyAssignments: matched wk appURL={} → resolvedAppURL={} | target url={} isFileURL={} | "
        "branch={}",
        match->appURL, appURL, target, targetPath ? "true" : "false", branch);

    auto start = [&](std::string program, std::vector<std::string> arguments) {
        platform::ProcessRequest request;
        request.program = std::move(program);
        request.arguments = std::move(arguments);
        request.wait = false;
        processes_.run(request);
    };
    if (script) {
        const std::string path = targetPath.value_or(target);
        Log::info("runWindowKeyAssignments[script]: shell {}", path);
        if (match->actionKind == WindowKeyActionKind::appleScript)
            start("/usr/bin/osascript", {path});
        else
            start(match->scriptRunner && !match->scriptRunner->empty() ? *match->scriptRunner : "/bin/zsh",
                  {path});
        return true;
    }
    if (special) {
        const std::string runner =
            match->scriptRunner && !match->scriptRunner->empty() ? *match->scriptRunner : "/bin/zsh";
        const std::string command = fmt::format("open -na '{}' --args --new-window '{}'", app.path, target);
        Log::info("runWindowKeyAssignments[specialScript]: runner={} script={}", runner, command);
        start(runner, {"-c", command});
        return true;
    }
    if (targetPath) {
        // A file is opened with the app when it can be reached; otherwise the command-line opener tries.
        if (workspace_.fileExists(*targetPath)) {
            Log::info("runWindowKeyAssignments[file]: open file={} withApp={}", *targetPath, app.name);
            const std::string name = app.name;
            workspace_.open(target, app.path, {}, [name](platform::LaunchResult result) {
                if (result.error.empty())
                    Log::info("runWindowKeyAssignments[file]: NSWorkspace.open succeeded, app={}", name);
                else
                    Log::info("runWindowKeyAssignments[file]: NSWorkspace.open failed: {}", result.error);
            });
            return true;
        }
        Log::info(
            "runWindowKeyAssignments[open]: file access unavailable (restoreFileAccess/security-scope "
            "failed), "
            "falling back to open -a for {}",
            *targetPath);
    }
    Log::info("runWindowKeyAssignments[open]: /usr/bin/open -a {} {}", app.path, target);
    start("/usr/bin/open", {"-a", app.path, target});
    return true;
}

}  // namespace zelk::windows
