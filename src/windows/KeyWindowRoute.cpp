#include "windows/KeyWindowRoute.h"

namespace zelk::windows {

std::vector<std::uint8_t> keyWindowRecord(int kind, std::uint32_t windowID) {
    std::vector<std::uint8_t> r(0xF8, 0);
    r[0x04] = 0xF8;
    r[0x08] = static_cast<std::uint8_t>(kind);
    for (int i = 0x20; i <= 0x2F; ++i)
        r[static_cast<std::size_t>(i)] = 0xFF;
    r[0x3A] = 0x10;
    for (int i = 0; i < 4; ++i)
        r[static_cast<std::size_t>(0x3C + i)] = static_cast<std::uint8_t>((windowID >> (8 * i)) & 0xFF);
    return r;
}

void KeyWindowRoute::run(std::int32_t pid, std::uint32_t windowID) {
    auto psn = server_.processForPID(pid);
    if (!psn) return;
    server_.setFrontProcessWithOptions(*psn, windowID, kFrontMode);
    server_.postEventRecordTo(*psn, keyWindowRecord(1, windowID));
    server_.postEventRecordTo(*psn, keyWindowRecord(2, windowID));
}

}  // namespace zelk::windows
