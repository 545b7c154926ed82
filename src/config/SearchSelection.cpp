#include "config/SearchSelection.h"

#include <algorithm>

namespace zelk {

nlohmann::json SearchSelection::toJson() const {
    return {{"bundleID", bundleID}, {"count", count}, {"lastPickedAt", lastPickedAt}};
}

std::optional<SearchSelection> SearchSelection::fromJson(const nlohmann::json& json) {
    if (json.is_array()) {
        // A query once held a list of selections; the strongest one, then the latest, stands for it.
        std::optional<SearchSelection> best;
        for (auto& item : json) {
            auto s = fromJson(item);
            if (s && (!best || s->count > best->count ||
                      (s->count == best->count && s->lastPickedAt > best->lastPickedAt)))
                best = s;
        }
        return best;
    }
    if (!json.is_object()) return std::nullopt;
    auto id = json.find("bundleID");
    if (id == json.end() || !id->is_string() || id->get<std::string>().empty()) return std::nullopt;
    SearchSelection s;
    s.bundleID = id->get<std::string>();
    if (auto c = json.find("count"); c != json.end() && c->is_number_integer())
        s.count = std::max<long long>(1, std::min<long long>(c->get<long long>(), 1'000'000'000));
    if (auto t = json.find("lastPickedAt"); t != json.end() && t->is_number())
        s.lastPickedAt = t->get<double>();
    return s;
}

}  // namespace zelk
