#include "spaces/SpaceNumbering.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/Format.h"

namespace zelk::spaces {

std::vector<NumberedSpace> numberUserSpaces(const std::vector<platform::DisplaySpaces>& all) {
    std::vector<NumberedSpace> out;
    for (auto& d : all)
        for (std::size_t i = 0; i < d.spaces.size(); ++i)
            if (d.spaces[i].type == 0)
                out.push_back({d.spaces[i].id64, d.displayIdentifier, static_cast<int>(i),
                               static_cast<int>(out.size()) + 1});
    return out;
}

std::optional<NumberedSpace> numberedSpace(const std::vector<NumberedSpace>& list, int number) {
    if (number < 1 || number > static_cast<int>(list.size())) return std::nullopt;
    return list[static_cast<std::size_t>(number - 1)];
}

std::optional<NumberedSpace> numberedSpaceByID(const std::vector<NumberedSpace>& list, std::uint64_t id) {
    for (auto& s : list)
        if (s.id == id) return s;
    return std::nullopt;
}

std::vector<std::uint64_t> userSpacesOf(const std::vector<platform::DisplaySpaces>& all,
                                        const std::string& display) {
    std::vector<std::uint64_t> out;
    for (auto& d : all)
        if (d.displayIdentifier == display)
            for (auto& s : d.spaces)
                if (s.type == 0) out.push_back(s.id64);
    return out;
}

bool directMoveBlocked(int major, int minor) {
    if (major > 14) return true;
    if (major == 14) return minor >= 5;
    if (major == 13) return minor >= 6;
    if (major == 12) return minor >= 7;
    return false;
}

Rect teleportFrame(const Rect& window, const Rect& source, const Rect& target) {
    const double sw = std::max(1.0, source.width), sh = std::max(1.0, source.height);
    const double rx = (window.midX() - source.x) / sw, ry = (window.midY() - source.y) / sh;
    Rect out;
    out.width = std::min(window.width, target.width);
    out.height = std::min(window.height, target.height);
    out.x = target.x + rx * target.width - out.width / 2;
    out.y = target.y + ry * target.height - out.height / 2;
    out.x = std::clamp(out.x, target.x, target.maxX() - out.width);
    out.y = std::clamp(out.y, target.y, target.maxY() - out.height);
    return out;
}

Point titleBarGrabPoint(const Rect& frame, const std::vector<Rect>& buttonFrames) {
    double x = frame.x + 80;  // past the usual three window buttons
    for (auto& b : buttonFrames)
        if (!b.isEmpty()) x = std::max(x, b.maxX() + 20);
    x = std::min(x, frame.maxX() - 10);
    return {x, frame.y + 12};
}

}  // namespace zelk::spaces

namespace zelk::spaces {
std::string pointText(Point p) {
    return fmt::format("({}, {})", ferrow::decimal(p.x), ferrow::decimal(p.y));
}
std::string rectText(const Rect& r) {
    return fmt::format("({}, {}, {}, {})", ferrow::decimal(r.x), ferrow::decimal(r.y),
                       ferrow::decimal(r.width), ferrow::decimal(r.height));
}
}  // namespace zelk::spaces
