#include "search/SearchSession.h"

#include "support/Log.h"

namespace zelk::search {

void SearchSession::rerunSearch(const std::string& query) {
    pending_.cancel();
    query_ = query;
    lastState_ = state_();
    windowsOnly_ = lastState_.windowsOnly;
    auto rows = engine_().search(query, lastState_);
    const std::size_t index = defaultSelection(rows, query, windowsOnly_);
    ferrow::Log::debug("search: \"{}\" rows={} selected={}", query, rows.size(), index);
    searchResults = std::move(rows);
    selectedSearchIndex = index;
}

void SearchSession::scheduleSearch(const std::string& query, ferrow::Nanos after) {
    pending_.cancel();
    pendingQuery_ = query;
    std::weak_ptr<bool> alive = alive_;
    pending_ = ferrow::MainQueue::shared().asyncAfter(after, [this, alive] {
        if (alive.lock()) rerunSearch(pendingQuery_);
    });
}

bool SearchSession::flushPending() {
    if (!pending_.isPending()) return false;
    rerunSearch(pendingQuery_);
    return true;
}

void SearchSession::clear() {
    pending_.cancel();
    query_.clear();
    windowsOnly_ = false;
    searchResults = std::vector<SearchResult>{};
    selectedSearchIndex = 0;
}

void SearchSession::step(int delta) {
    const auto n = static_cast<long>(searchResults.get().size());
    if (n == 0) return;
    const long next = ((static_cast<long>(selectedSearchIndex.get()) + delta) % n + n) % n;
    selectedSearchIndex = static_cast<std::size_t>(next);
}

void SearchSession::select(std::size_t index) {
    if (index < searchResults.get().size()) selectedSearchIndex = index;
}

std::optional<SearchResult> SearchSession::selected() const {
    const auto& rows = searchResults.get();
    if (selectedSearchIndex.get() >= rows.size()) return std::nullopt;
    return rows[selectedSearchIndex.get()];
}

std::optional<bool> SearchSession::expandSelected() {
    const auto& rows = searchResults.get();
    if (rows.empty()) return std::nullopt;
    const std::size_t at = selectedSearchIndex.get();
    if (at >= rows.size() || !rows[at].isApp() || !rows[at].app().running) return false;
    const std::string bundle = rows[at].app().bundleID;
    const auto& all = engine_().world().windowsByBundle;
    const auto own = all.find(bundle);
    if (own == all.end() || own->second.empty()) return false;
    std::vector<SearchResult> next;
    next.reserve(rows.size() + own->second.size());
    std::size_t first = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const bool ownWindow = rows[i].isWindow() && rows[i].window().bundleIdentifier == bundle;
        if (!ownWindow) next.push_back(rows[i]);
        if (i != at) continue;
        first = next.size();
        for (const auto& w : own->second)
            next.push_back(SearchResult::ofWindow(w));
    }
    ferrow::Log::debug("search: expanded {} into {} windows", bundle, own->second.size());
    searchResults = std::move(next);
    selectedSearchIndex = first;
    return true;
}

std::vector<std::vector<std::string>> SearchSession::reasons() const {
    return engine_().reasons(query_, lastState_, searchResults.get());
}

}  // namespace zelk::search
