#include "stages/WindowResolve.h"

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <system_error>

#include "stages/BundleTables.h"

namespace zelk::stages {
namespace {

using windows::ManagedWindow;
namespace fs = std::filesystem;

// The title fallback: an equal title on a visible window first, then on any window.
std::optional<ManagedWindow> titleMatch(const std::string& title,
                                        const std::vector<const ManagedWindow*>& candidates) {
    if (title.empty()) return std::nullopt;
    for (auto* w : candidates)
        if (w->title == title && !w->isMinimized) return *w;
    for (auto* w : candidates)
        if (w->title == title) return *w;
    return std::nullopt;
}

// Whether `path` is `folder` or lies inside it (a root or empty folder: anything may).
bool mayLieIn(std::string_view path, std::string_view folder) {
    if (folder.empty() || folder == "/") return true;
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// Whether a path has a component that standardising changes: ".", "..", or an empty one ("//").
bool needsFolding(std::string_view path) {
    std::size_t at = 0;
    while (at <= path.size()) {
        std::size_t end = path.find('/', at);
        if (end == std::string_view::npos) end = path.size();
        std::string_view part = path.substr(at, end - at);
        if (part == "." || part == "..") return true;
        if (part.empty() && at > 0 && end < path.size()) return true;
        at = end + 1;
    }
    return false;
}

// The folder above a standardised path, as the file system library gives it.
std::string parentFolder(const std::string& path) {
    auto slash = path.rfind('/');
    if (slash == std::string::npos) return "";
    if (slash == 0) return path.size() > 1 ? "/" : path;
    return path.substr(0, slash);
}

std::optional<ManagedWindow> resolveDocument(const StageItem& item, const DocumentPathSpec& spec,
                                             const std::vector<const ManagedWindow*>& candidates,
                                             WindowFacts& facts, const FileView& files,
                                             const std::function<std::string(const std::string&)>& rootOf) {
    if (!facts.isAppRunning(item.bundleID())) return std::nullopt;
    std::string wanted = standardizedPath(spec.path, files);
    bool editor = isEditorBundle(item.bundleID());
    std::string projectName = editor ? fs::path(wanted).filename().string() : std::string();
    for (auto* w : candidates) {
        if (auto path = facts.documentOf(*w)) {
            // A project folder lies on the document's own path, so a document outside the wanted
            // folder can't reduce to it: its project need not be looked for.
            if (editor && !mayLieIn(standardizedPath(*path, files), wanted)) continue;
            std::string reduced = editor ? rootOf(*path) : *path;
            if (standardizedPath(reduced, files) == wanted) return *w;
        } else if (!projectName.empty()) {
            // Editors name the project in the title when they expose no document.
            const std::string dash = " \u2014 ";
            if (w->title.starts_with(projectName + dash) || w->title.ends_with(dash + projectName)) return *w;
        }
    }
    return titleMatch(item.windowTitle, candidates);
}

std::optional<ManagedWindow> resolveBrowser(const StageItem& item, const BrowserURLSpec& spec,
                                            const std::vector<const ManagedWindow*>& candidates,
                                            WindowFacts& facts) {
    auto host = spec.url.empty() ? std::nullopt : urlHost(spec.url);
    if (host) {
        for (auto* w : candidates) {
            auto current = facts.browserURLOf(*w);
            if (current && urlHost(*current) == host) return *w;
        }
    }
    return titleMatch(item.windowTitle, candidates);
}

std::optional<ManagedWindow> resolveTerminal(const StageItem& item, const TerminalCWDSpec& spec,
                                             const std::vector<const ManagedWindow*>& candidates,
                                             WindowFacts& facts) {
    if (!facts.isAppRunning(item.bundleID())) return std::nullopt;
    for (auto* w : candidates) {
        auto cwd = facts.terminalCWDOf(*w);
        if (cwd && foldersOverlap(*cwd, spec.path)) return *w;
    }
    return titleMatch(item.windowTitle, candidates);
}

std::optional<ManagedWindow> resolveApp(const std::vector<const ManagedWindow*>& candidates) {
    for (auto* w : candidates)
        if (!w->isMinimized) return *w;
    return *candidates.front();
}

}  // namespace

bool DiskFileView::exists(const std::string& path) const {
    std::error_code ec;
    return fs::exists(path, ec);
}

bool DiskFileView::isDirectory(const std::string& path) const {
    std::error_code ec;
    return fs::is_directory(path, ec);
}

std::string DiskFileView::homeFolder() const {
    const char* home = std::getenv("HOME");
    return home ? home : "";
}

std::string standardizedPath(std::string_view path, const FileView& files) {
    std::string text(path);
    if (text == "~" || text.starts_with("~/")) text = files.homeFolder() + text.substr(1);
    if (text.empty()) return text;
    std::string normal = needsFolding(text) ? fs::path(text).lexically_normal().string() : std::move(text);
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return normal;
}

std::string projectRoot(std::string_view path, const FileView& files) {
    std::string start = standardizedPath(path, files);
    if (files.exists(start) && !files.isDirectory(start)) start = parentFolder(start);
    std::string home = standardizedPath(files.homeFolder(), files);
    std::string folder = start;
    std::string candidate;
    while (!folder.empty() && folder != "/" && folder != home) {
        for (auto marker : projectMarkerFiles()) {
            candidate.assign(folder).append("/").append(marker);
            if (files.exists(candidate)) return folder;
        }
        std::string parent = parentFolder(folder);
        if (parent == folder) break;
        folder = parent;
    }
    return start;
}

std::optional<std::string> urlHost(std::string_view url) {
    auto scheme = url.find("://");
    if (scheme == std::string_view::npos || scheme == 0) return std::nullopt;
    std::string_view rest = url.substr(scheme + 3);
    rest = rest.substr(0, rest.find_first_of("/?#"));
    if (auto at = rest.rfind('@'); at != std::string_view::npos) rest = rest.substr(at + 1);
    if (rest.starts_with('[')) {
        auto close = rest.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        rest = rest.substr(0, close + 1);
    } else {
        rest = rest.substr(0, rest.find(':'));
    }
    if (rest.empty()) return std::nullopt;
    std::string host(rest);
    for (auto& c : host)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return host;
}

bool foldersOverlap(std::string_view a, std::string_view b) {
    if (a == b) return true;
    auto inside = [](std::string_view inner, std::string_view outer) {
        std::string prefix(outer);
        if (!prefix.ends_with('/')) prefix += '/';
        return inner.starts_with(prefix);
    };
    return inside(a, b) || inside(b, a);
}

namespace {
std::optional<ManagedWindow> resolveAmong(const StageItem& item,
                                          const std::vector<const ManagedWindow*>& candidates,
                                          WindowFacts& facts, const FileView& files,
                                          const std::function<std::string(const std::string&)>& rootOf) {
    if (candidates.empty()) return std::nullopt;
    if (auto* d = std::get_if<DocumentPathSpec>(&item.windowSpec))
        return resolveDocument(item, *d, candidates, facts, files, rootOf);
    if (auto* u = std::get_if<BrowserURLSpec>(&item.windowSpec))
        return resolveBrowser(item, *u, candidates, facts);
    if (auto* c = std::get_if<TerminalCWDSpec>(&item.windowSpec))
        return resolveTerminal(item, *c, candidates, facts);
    return resolveApp(candidates);
}
}  // namespace

std::optional<ManagedWindow> resolveWindow(const StageItem& item, std::span<const ManagedWindow> windows,
                                           WindowFacts& facts, const FileView& files) {
    std::vector<const ManagedWindow*> candidates;
    const std::string& bundle = item.bundleID();
    for (const auto& w : windows)
        if (w.bundleIdentifier == bundle) candidates.push_back(&w);
    return resolveAmong(item, candidates, facts, files,
                        [&files](const std::string& path) { return projectRoot(path, files); });
}

ResolvePass::ResolvePass(std::span<const ManagedWindow> windows, WindowFacts& facts, const FileView& files)
    : facts_(facts), files_(files) {
    for (const auto& w : windows)
        byBundle_[w.bundleIdentifier].push_back(&w);
}

const std::string& ResolvePass::projectRootOf(const std::string& path) {
    auto it = roots_.find(path);
    if (it == roots_.end()) it = roots_.emplace(path, projectRoot(path, files_)).first;
    return it->second;
}

std::optional<ManagedWindow> ResolvePass::resolve(const StageItem& item) {
    static const std::vector<const ManagedWindow*> none;
    auto it = byBundle_.find(item.bundleID());
    return resolveAmong(item, it == byBundle_.end() ? none : it->second, facts_, files_,
                        [this](const std::string& path) { return projectRootOf(path); });
}

std::vector<StageItem> dedupeItems(const std::vector<StageItem>& items) {
    std::set<std::string> perWindowBundles;
    for (const auto& item : items)
        if (!isAppSpec(item.windowSpec)) perWindowBundles.insert(item.bundleID());
    std::set<std::string> keptWholeApps;
    std::vector<StageItem> kept;
    for (const auto& item : items) {
        if (!isAppSpec(item.windowSpec)) {
            kept.push_back(item);
        } else if (!perWindowBundles.contains(item.bundleID()) &&
                   keptWholeApps.insert(item.bundleID()).second) {
            kept.push_back(item);
        }
    }
    return kept;
}

}  // namespace zelk::stages
