#include "expose/ExposeNavigation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "search/Graphemes.h"

namespace zelk::expose {

namespace {
struct KeyRow {
    std::string_view keys;
    double offset;
    double y;
};
constexpr std::array<KeyRow, 4> kRows{{
    {"1234567890", 0.0, 0.08},
    {"qwertyuiop", 0.0, 0.3},
    {"asdfghjkl", 0.25, 0.55},
    {"zxcvbnm", 0.75, 0.8},
}};
}  // namespace

std::optional<Point> keyboardPosition(std::string_view letter) {
    const std::string lower = search::lowercased(letter);
    if (lower.size() != 1) return std::nullopt;
    for (const KeyRow& row : kRows) {
        const auto c = row.keys.find(lower[0]);
        if (c == std::string_view::npos) continue;
        return Point{std::clamp((row.offset + static_cast<double>(c) + 0.5) / 10, 0.0, 1.0), row.y};
    }
    return std::nullopt;
}

std::optional<std::uint32_t> neighbour(std::uint32_t from, Direction direction,
                                       const std::vector<std::pair<std::uint32_t, Rect>>& frames) {
    auto origin = std::find_if(frames.begin(), frames.end(), [&](const auto& f) { return f.first == from; });
    if (origin == frames.end()) return std::nullopt;
    const Point o = origin->second.center();
    std::optional<std::uint32_t> best;
    double bestScore = 0;
    for (const auto& [id, frame] : frames) {
        if (id == from) continue;
        const Point c = frame.center();
        double primary = 0, orthogonal = 0;
        switch (direction) {
            case Direction::left:
                primary = o.x - c.x;
                orthogonal = std::abs(c.y - o.y);
                break;
            case Direction::right:
                primary = c.x - o.x;
                orthogonal = std::abs(c.y - o.y);
                break;
            case Direction::up:
                primary = o.y - c.y;
                orthogonal = std::abs(c.x - o.x);
                break;
            case Direction::down:
                primary = c.y - o.y;
                orthogonal = std::abs(c.x - o.x);
                break;
        }
        if (!(primary > 1)) continue;
        const double score = primary + orthogonal * 2.6;
        if (!best || score < bestScore) {
            best = id;
            bestScore = score;
        }
    }
    return best;
}

}  // namespace zelk::expose
