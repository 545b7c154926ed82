#include "config/SettingsMigrations.h"

#include <algorithm>
#include <cmath>

#include "config/SettingsCatalogue.h"
#include "support/Log.h"

namespace zelk {
namespace {
using ferrow::Log;
using nlohmann::json;
using platform::SettingsStore;

// Rewrites a stored value in the form a write would give it today, when it decodes at all. A value
// that doesn't decode stays as it is: it reads as the default, and nothing of it is lost.
template <typename T>
void canonicalise(SettingsStore& store, const SettingKey<T>& key) {
    auto stored = store.read(key.name);
    if (!stored) return;
    auto value = SettingCodec<T>::decode(*stored);
    if (!value) return;
    json encoded = SettingCodec<T>::encode(*value);
    if (encoded != *stored) store.write(key.name, encoded);
}

const std::vector<const SettingKey<TriggerKeyList>*>& triggerListKeys() {
    static const std::vector<const SettingKey<TriggerKeyList>*> k{
        &keys::triggerKeys, &keys::windowTriggerKeys, &keys::assignKeyTriggerKeys,
        &keys::hideOnFocusTriggerKeys, &keys::stageTriggerKeys};
    return k;
}

// Migration 1: Trigger lists by raw value; names of no key are dropped, and a list left with nothing reads as
// its default.
void triggerKeyRawValues(SettingsStore& store) {
    for (auto* key : triggerListKeys()) {
        auto stored = store.read(key->name);
        if (!stored || !stored->is_array()) continue;
        json kept = json::array();
        for (auto& item : *stored) {
            if (SettingCodec<TriggerKey>::decode(item) ||
                (item.is_number_integer() && item == kTriggerKeyNone))
                kept.push_back(item);
            else
                Log::error("migrate: {} drops the unknown trigger key {}", key->name, item.dump());
        }
        if (kept.empty() && !stored->empty()) {
            store.remove(key->name);
            continue;
        }
        if (kept != *stored) store.write(key->name, kept);
        canonicalise(store, *key);
    }
}

// Migration 2: Enumerations by raw string: case indices and case names become raw values ("dense" is
// "clean").
void enumerationRawValues(SettingsStore& store) {
    canonicalise(store, keys::appSort);
    canonicalise(store, keys::tabCycleScope);
    canonicalise(store, keys::tabCycleSearchScope);
    canonicalise(store, keys::stageCloseAction);
    canonicalise(store, keys::spaceMode);
    canonicalise(store, keys::windowSwitcherAppearance);
    canonicalise(store, keys::tactoraFillMode);
    canonicalise(store, keys::switcherMode);
    canonicalise(store, keys::focusBehaviour);
    canonicalise(store, keys::focusBehaviourSingle);
    canonicalise(store, keys::focusBehaviourMulti);
    canonicalise(store, keys::windowKeyMode);
    canonicalise(store, keys::stickyAppSwitcherScope);
    canonicalise(store, keys::activationMode);
    canonicalise(store, keys::searchMatchMode);
    canonicalise(store, keys::switcherScreenPlacement);
    canonicalise(store, keys::windowSwitcherPlacement);
    canonicalise(store, keys::stageSwitcherPlacement);
}

// Migration 3: The global already-focused action by integer raw value. The retired raw value 2 and the
// per-assignment followGlobal can't stand globally: they go, and the default applies.
void whenAlreadyFocusedRawValues(SettingsStore& store) {
    auto& key = keys::whenAlreadyFocusedAction;
    auto stored = store.read(key.name);
    if (!stored) return;
    auto action = SettingCodec<WhenAlreadyFocusedAction>::decode(*stored);
    bool retired = stored->is_number_integer() && (*stored == 2 || *stored == 5);
    if ((action && *action == WhenAlreadyFocusedAction::followGlobal) || retired) {
        Log::info("migrate: whenAlreadyFocusedAction {} can't apply globally; back to the default",
                  stored->dump());
        store.remove(key.name);
        return;
    }
    canonicalise(store, key);
}

// Migration 4: Option sets as arrays of flag names instead of integers.
void optionSetNames(SettingsStore& store) {
    canonicalise(store, keys::windowSwitcherFeatures);
    canonicalise(store, keys::appSwitcherFeatures);
    canonicalise(store, keys::tabCycleInclude);
    canonicalise(store, keys::exposeInclude);
}

// Migration 5: Keys by name: a character ("-") or a key code (27) becomes the key's name ("minus").
void keyNames(SettingsStore& store) {
    for (auto* key :
         {&keys::minimizeKey, &keys::specialKey, &keys::exposeKey, &keys::windowMinimizeKey,
          &keys::windowSpecialKey, &keys::windowCycleKey, &keys::stageSpecialKey, &keys::stageMinimizeKey,
          &keys::stageRepositionKey, &keys::prevSpaceKey, &keys::nextSpaceKey}) {
        auto stored = store.read(key->name);
        if (!stored || SettingCodec<Key>::decode(*stored)) continue;
        std::optional<Key> k;
        if (stored->is_string()) k = keyFromCharacter(stored->get<std::string>());
        if (stored->is_number_integer() && stored->get<std::int64_t>() >= 0 &&
            stored->get<std::int64_t>() <= 0xFFFF)
            k = qwertyKey(static_cast<std::uint16_t>(stored->get<std::int64_t>()));
        if (k) store.write(key->name, SettingCodec<Key>::encode(*k));
    }
}

// Migration 6: One focus behaviour became two, one per Space mode: an old value moves to the mode in force.
void focusBehaviourPerSpaceMode(SettingsStore& store) {
    auto old = store.read(keys::focusBehaviour.name);
    if (!old || !SettingCodec<FocusBehaviour>::decode(*old)) return;
    if (store.read(keys::focusBehaviourSingle.name) || store.read(keys::focusBehaviourMulti.name)) return;
    auto mode = store.read(keys::spaceMode.name);
    auto spaceMode = mode ? SettingCodec<SpaceMode>::decode(*mode) : std::nullopt;
    auto& target = spaceMode.value_or(SpaceMode::single) == SpaceMode::multi ? keys::focusBehaviourMulti
                                                                             : keys::focusBehaviourSingle;
    store.write(target.name, *old);
}

// Migration 7: A learned query holds one selection, not a list.
void learnedSelectionsSingle(SettingsStore& store) {
    auto stored = store.read(keys::searchQueryAppSelections.name);
    if (!stored || !stored->is_object()) return;
    json fixed = json::object();
    for (auto& [query, value] : stored->items()) {
        if (auto s = SearchSelection::fromJson(value))
            fixed[query] = s->toJson();
        else
            Log::error("migrate: searchQueryAppSelections drops the unreadable entry for \"{}\"", query);
    }
    if (fixed != *stored) store.write(keys::searchQueryAppSelections.name, fixed);
}

// Migration 8: Pattern groups carry what the two per-application pattern lists held.
void windowPatternGroupsFromLists(SettingsStore& store) {
    if (store.read(keys::windowPatternGroups.name)) return;
    auto keyList = store.read(keys::windowKeyPatterns.name);
    auto titleList = store.read(keys::windowTitlePatterns.name);
    if (!keyList && !titleList) return;  // nothing customised: the default groups apply
    auto keysDecoded = keyList ? SettingCodec<std::vector<WindowKeyPattern>>::decode(*keyList) : std::nullopt;
    auto titlesDecoded =
        titleList ? SettingCodec<std::vector<WindowTitlePattern>>::decode(*titleList) : std::nullopt;
    auto groups = groupsFromPatterns(keysDecoded.value_or(std::vector<WindowKeyPattern>{}),
                                     titlesDecoded.value_or(std::vector<WindowTitlePattern>{}));
    if (groups.empty()) return;
    store.write(keys::windowPatternGroups.name,
                SettingCodec<std::vector<WindowPatternGroup>>::encode(groups));
}

// A set as written today: strings only, in ascending order, each once. One pass, so a long list that
// is already clean costs no more than reading it.
bool isCleanStringSet(const json& list) {
    const std::string* previous = nullptr;
    for (const auto& item : list) {
        if (!item.is_string()) return false;
        const auto& text = item.get_ref<const std::string&>();
        if (previous && !(*previous < text)) return false;
        previous = &text;
    }
    return true;
}

// The strings of `list` sorted and without repeats: the order and content a set's encoding has,
// built by one sort instead of a tree of a node per entry.
json cleanStringSet(const json& list) {
    std::vector<std::string> strings;
    strings.reserve(list.size());
    for (const auto& item : list)
        if (item.is_string()) strings.push_back(item.get<std::string>());
    std::sort(strings.begin(), strings.end());
    strings.erase(std::unique(strings.begin(), strings.end()), strings.end());
    json clean = json::array();
    for (auto& text : strings)
        clean.push_back(std::move(text));
    return clean;
}

// Migration 9: Sets of strings without repeats or entries that aren't strings.
void stringSetsClean(SettingsStore& store) {
    for (auto* key : {&keys::ignoredApps, &keys::pauseApps, &keys::ignoredKeys}) {
        auto stored = store.read(key->name);
        if (!stored || !stored->is_array()) continue;
        if (isCleanStringSet(*stored)) continue;
        store.write(key->name, cleanStringSet(*stored));
    }
}

// Migration 10: The look is stored once an appearance was chosen, so it no longer follows the appearance.
void osdLookFromAppearance(SettingsStore& store) {
    if (store.read(keys::osdLook.name)) return;
    auto stored = store.read(keys::windowSwitcherAppearance.name);
    if (!stored) return;
    auto appearance = SettingCodec<WindowSwitcherAppearance>::decode(*stored);
    if (!appearance) return;
    store.write(keys::osdLook.name, OSDLook::preset(*appearance).toJson());
}

// Migration 11: Milliseconds as integers: a slider may have stored 149.6.
void integerMilliseconds(SettingsStore& store) {
    for (auto* key :
         {&keys::adaptiveFollowupGraceMs, &keys::staticBreakoutThresholdMs, &keys::windowSwitchOSDDelay,
          &keys::windowOnlySwitchOSDDelay, &keys::stageSwitchOSDDelay, &keys::searchOSDDwellMs,
          &keys::appSwitcherTabCycleDwellMs}) {
        auto stored = store.read(key->name);
        if (!stored || !stored->is_number_float()) continue;
        double ms = stored->get<double>();
        if (!std::isfinite(ms) || std::fabs(ms) > 1e9) continue;
        store.write(key->name, static_cast<int>(std::lround(ms)));
    }
}
}  // namespace

const std::vector<SettingsMigration>& settingsMigrations() {
    static const std::vector<SettingsMigration> all{
        {1, "triggerKeyRawValues", triggerKeyRawValues},
        {2, "enumerationRawValues", enumerationRawValues},
        {3, "whenAlreadyFocusedRawValues", whenAlreadyFocusedRawValues},
        {4, "optionSetNames", optionSetNames},
        {5, "keyNames", keyNames},
        {6, "focusBehaviourPerSpaceMode", focusBehaviourPerSpaceMode},
        {7, "learnedSelectionsSingle", learnedSelectionsSingle},
        {8, "windowPatternGroupsFromLists", windowPatternGroupsFromLists},
        {9, "stringSetsClean", stringSetsClean},
        {10, "osdLookFromAppearance", osdLookFromAppearance},
        {11, "integerMilliseconds", integerMilliseconds},
    };
    return all;
}

int runSettingsMigrations(SettingsStore& store) {
    int from = 0;
    if (auto stored = store.read(keys::migrationVersion.name)) {
        if (auto v = SettingCodec<int>::decode(*stored))
            from = *v;
        else
            Log::error("migrate: migrationVersion holds {}; running every step", stored->dump());
    }
    if (from > kSettingsVersion) {
        Log::info("migrate: settings are from version {}, newer than {}; left as they are", from,
                  kSettingsVersion);
        return 0;
    }
    int ran = 0;
    {
        // One save for the whole run: a large settings file is written once, not once a step.
        SettingsStore::Batch batch(store);
        for (auto& step : settingsMigrations()) {
            if (step.version <= from) continue;
            Log::info("migrate: {} (version {})", step.name, step.version);
            step.run(store);
            store.write(keys::migrationVersion.name, step.version);
            ++ran;
        }
    }
    if (ran) store.synchronize();
    return ran;
}

}  // namespace zelk
