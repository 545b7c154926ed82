#include "command/SearchCommands.h"

#include <fmt/format.h>

#include "search/Graphemes.h"
#include "search/LearnedQueries.h"
#include "search/QueryLearning.h"

namespace zelk::command {

namespace {

using C = ZelkCommand;

// The query of a request, lower-cased; nothing when it is missing or empty.
std::optional<std::string> queryOf(const ZelkRequest& r) {
    if (!r.query || r.query->empty()) return std::nullopt;
    return search::lowercased(*r.query);
}

// What the request asked for by way of an app, for the error text.
std::string appAsked(const ZelkRequest& r, const std::string& q) {
    if (r.bundleID && !r.bundleID->empty()) return *r.bundleID;
    if (r.appQuery && !r.appQuery->empty()) return *r.appQuery;
    return q;
}

ZelkResponse learned(const SearchProviders& p, const ZelkRequest& r) {
    std::optional<std::string> only;
    if ((r.appQuery && !r.appQuery->empty()) || (r.bundleID && !r.bundleID->empty())) {
        auto app = p.resolveApp(r);
        if (!app) return ZelkResponse::failure(fmt::format("no app matching \"{}\"", appAsked(r, "")));
        only = app->bundleID;
    }
    auto& learning = p.learning();
    const double now = learning.now();
    std::vector<ZelkLearnedQueryInfo> list;
    auto add = [&](ZelkLearnedQueryInfo info) {
        if (only && info.bundleID != *only) return;
        if (auto name = p.appName(info.bundleID); !name.empty()) info.appName = name;
        list.push_back(std::move(info));
    };
    for (const auto& [q, bundle] : learning.pins())
        add({q, bundle, std::nullopt, true, 0, std::nullopt, false});
    for (const auto& [q, s] : learning.selections())
        add({q, s.bundleID, std::nullopt, false, s.count, s.lastPickedAt, search::isStale(s, now)});
    auto reply = ZelkResponse::success();
    reply.learnedQueries = std::move(list);
    return reply;
}

ZelkResponse pin(const SearchProviders& p, const ZelkRequest& r) {
    auto q = queryOf(r);
    if (!q) return ZelkResponse::failure("missing query");
    if (search::queryLength(*q) < search::kMinimumPinLength)
        return ZelkResponse::failure(
            "single-letter queries are static key assignments, not pins. Assign the key instead");
    auto app = p.resolveApp(r);
    if (!app) return ZelkResponse::failure(fmt::format("no app matching \"{}\"", appAsked(r, *q)));
    p.learning().pin(*q, app->bundleID);
    return ZelkResponse::success(
        fmt::format("pinned \"{}\" to {}", *q, app->name.empty() ? app->bundleID : app->name));
}

ZelkResponse unpin(const SearchProviders& p, const ZelkRequest& r) {
    auto q = queryOf(r);
    if (!q) return ZelkResponse::failure("missing query");
    if (!p.learning().unpin(*q)) return ZelkResponse::failure(fmt::format("\"{}\" is not pinned", *q));
    return ZelkResponse::success(fmt::format("unpinned \"{}\"", *q));
}

ZelkResponse learn(const SearchProviders& p, const ZelkRequest& r) {
    auto q = queryOf(r);
    if (!q) return ZelkResponse::failure("missing query");
    auto& learning = p.learning();
    if (learning.pins().count(*q))
        return ZelkResponse::failure(fmt::format("\"{}\" is pinned. Unpin it first", *q));
    auto app = p.resolveApp(r);
    if (!app) return ZelkResponse::failure(fmt::format("no app matching \"{}\"", appAsked(r, *q)));
    const std::string name = app->name.empty() ? app->bundleID : app->name;
    const std::string first = search::splitGraphemes(*q).front();
    if (!learning.recordPick(*q, app->bundleID, p.staticBundleFor(first)))
        return ZelkResponse::success(
            fmt::format("\"{}\" already reaches {} by its static key; nothing learned", *q, name));
    // selections() answers a copy: keep the count, not a reference into it.
    const auto count = learning.selections().at(*q).count;
    return ZelkResponse::success(fmt::format("learned \"{}\" -> {} (count {})", *q, name, count));
}

ZelkResponse unlearn(const SearchProviders& p, const ZelkRequest& r) {
    auto& learning = p.learning();
    if (r.mode && !r.mode->empty()) {
        if (*r.mode == "stale") {
            const auto n = learning.forgetStale();
            return ZelkResponse::success(fmt::format("forgot {} stale {}", n, n == 1 ? "query" : "queries"));
        }
        if (*r.mode == "all") {
            const auto n = learning.forgetAll();
            return ZelkResponse::success(fmt::format("forgot {} learned queries (pins untouched)", n));
        }
        return ZelkResponse::failure(fmt::format("unknown unlearn mode {}; use stale or all", *r.mode));
    }
    auto q = queryOf(r);
    if (!q) return ZelkResponse::failure("missing query (or --stale / --all)");
    if (learning.pins().count(*q))
        return ZelkResponse::failure(fmt::format("\"{}\" is pinned. Use `zelk search unpin`", *q));
    if (!learning.forget(*q)) return ZelkResponse::failure(fmt::format("\"{}\" is not learned", *q));
    return ZelkResponse::success(fmt::format("forgot \"{}\"", *q));
}

}  // namespace

void registerSearchCommands(CommandDispatcher& d, const SearchProviders& providers) {
    if (!providers.search || !providers.resolveApp || !providers.appName || !providers.learning ||
        !providers.staticBundleFor)
        return;
    auto p = std::make_shared<const SearchProviders>(providers);
    d.registerHandler(C::search, [p](const ZelkRequest& r) {
        if (!r.query || r.query->empty()) return ZelkResponse::failure("missing query");
        auto reply = ZelkResponse::success();
        reply.searchResults = p->search(*r.query, r.windowsOnly);
        return reply;
    });
    d.registerHandler(C::searchLearned, [p](const ZelkRequest& r) { return learned(*p, r); });
    d.registerHandler(C::searchPin, [p](const ZelkRequest& r) { return pin(*p, r); });
    d.registerHandler(C::searchUnpin, [p](const ZelkRequest& r) { return unpin(*p, r); });
    d.registerHandler(C::searchLearn, [p](const ZelkRequest& r) { return learn(*p, r); });
    d.registerHandler(C::searchUnlearn, [p](const ZelkRequest& r) { return unlearn(*p, r); });
}

}  // namespace zelk::command
