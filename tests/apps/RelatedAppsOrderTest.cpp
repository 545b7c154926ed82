// The order of a letter's other apps on random desktops, checked against a plain reading of the rule:
// matches by ascending score, then recently active apps first, then the apps of learned queries first.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "apps/AssignmentDerivation.h"

namespace zelk::testing {
namespace {

using apps::AppRef;
using apps::DerivationContext;
using apps::RunningEntry;

bool has(const std::vector<AppRef>& list, const AppRef& app) {
    return std::find(list.begin(), list.end(), app) != list.end();
}

// The rule written out with nested scans: slow, but plainly right.
std::vector<AppRef> referenceOrder(const DerivationContext& context, const std::string& letter,
                                   const std::vector<std::string>& excluded) {
    std::vector<const RunningEntry*> sorted;
    for (const auto& e : *context.running)
        sorted.push_back(&e);
    std::stable_sort(sorted.begin(), sorted.end(), [](const RunningEntry* a, const RunningEntry* b) {
        return a->app->score(false) > b->app->score(false);
    });
    std::vector<AppRef> matched;
    for (auto it = sorted.rbegin(); it != sorted.rend(); ++it) {
        const AppRef& app = (*it)->app;
        if (std::find(excluded.begin(), excluded.end(), app->identifier()) != excluded.end()) continue;
        if (apps::letterMatches(context, *app, letter)) matched.push_back(app);
    }
    std::vector<AppRef> ordered;
    for (const auto& recent : *context.recentApps)
        for (const auto& app : matched)
            if (app->identifier() == recent->identifier() && !has(ordered, app)) ordered.push_back(app);
    for (const auto& app : matched)
        if (!has(ordered, app)) ordered.push_back(app);

    std::vector<std::pair<std::string, std::string>> learned;  // longer queries first, then by query
    for (const auto& [query, selection] : *context.selections)
        learned.emplace_back(query, selection.bundleID);
    std::sort(learned.begin(), learned.end(), [](const auto& a, const auto& b) {
        if (a.first.size() != b.first.size()) return a.first.size() > b.first.size();
        return a.first < b.first;
    });
    std::vector<std::string> bundles;
    if (auto exact = context.selections->find(letter); exact != context.selections->end())
        bundles.push_back(exact->second.bundleID);
    for (const auto& [query, bundle] : learned)
        if (query.size() > letter.size() && query.starts_with(letter)) bundles.push_back(bundle);
    std::vector<AppRef> out;
    std::vector<std::string> seen;
    for (const auto& bundle : bundles) {
        if (std::find(seen.begin(), seen.end(), bundle) != seen.end()) continue;
        seen.push_back(bundle);
        for (const auto& app : ordered)
            if (app->bundleIdentifier() == bundle && !has(out, app)) out.push_back(app);
    }
    for (const auto& app : ordered)
        if (!has(out, app)) out.push_back(app);
    return out;
}

std::vector<std::string> names(const std::vector<AppRef>& list) {
    std::vector<std::string> out;
    for (const auto& app : list)
        out.push_back(app->identifier());
    return out;
}

// Names from a few initials so letters are shared; bundles repeat so one learned query means several
// processes; equal use counts so the stable order matters; recents hold repeats and apps that quit.
struct RandomDesk {
    std::vector<RunningEntry> running;
    std::vector<AppRef> recent;
    std::map<std::string, SearchSelection> selections;

    explicit RandomDesk(std::mt19937& rng) {
        auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
        const std::string initials = "abcs";
        int count = 5 + pick(60);
        std::vector<AppRef> quit;
        for (int i = 0; i < count; ++i) {
            std::string bundle = "com.example.b" + std::to_string(pick(count / 2 + 1));
            std::string name = std::string(1, static_cast<char>(std::toupper(initials[pick(4)]))) +
                               std::string(1, initials[pick(4)]) + "x" + std::to_string(i);
            auto app =
                std::make_shared<apps::LaunchableApp>("/Applications/" + name + ".app", name, pick(4) * 10,
                                                      "/" + bundle + ":" + std::to_string(100 + i) + "/");
            if (pick(5) == 0) {
                quit.push_back(app);
                continue;
            }
            platform::RunningApp process;
            process.pid = 100 + i;
            process.bundleID = bundle;
            process.name = name;
            running.push_back({process, app});
        }
        for (int i = pick(count); i > 0; --i) {
            if (!quit.empty() && pick(4) == 0)
                recent.push_back(quit[pick(static_cast<int>(quit.size()))]);
            else if (!running.empty())
                recent.push_back(running[pick(static_cast<int>(running.size()))].app);
        }
        for (int i = pick(8); i > 0; --i) {
            std::string query(1, initials[pick(4)]);
            for (int extra = pick(3); extra > 0; --extra)
                query += initials[pick(4)];
            selections[query] = {"com.example.b" + std::to_string(pick(count / 2 + 1)), 1, 0};
        }
    }
};

TEST(RelatedAppsOrderTest, EqualsThePlainRuleOnRandomDesks) {
    std::mt19937 rng(23);
    for (int round = 0; round < 300; ++round) {
        RandomDesk desk(rng);
        std::vector<std::string> prefixes;
        DerivationContext context;
        context.running = &desk.running;
        context.recentApps = &desk.recent;
        context.selections = &desk.selections;
        context.optionalPrefixes = &prefixes;
        context.mode = round % 3 == 0 ? SearchMatchMode::contains : SearchMatchMode::anchored;
        apps::AssignmentDeriver deriver;
        for (std::string letter : {"a", "b", "c", "s", "ab", "sx"}) {
            std::vector<std::string> excluded;
            if (!desk.running.empty() && round % 2)
                excluded.push_back(desk.running[rng() % desk.running.size()].app->identifier());
            EXPECT_EQ(names(deriver.relatedAppsFor(context, letter, excluded)),
                      names(referenceOrder(context, letter, excluded)))
                << "round " << round << ", letter " << letter;
        }
    }
}

}  // namespace
}  // namespace zelk::testing
