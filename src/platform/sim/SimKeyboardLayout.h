#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Key.h"

namespace zelk::sim {

// Which Key each physical key types under a named layout ("qwerty", "dvorak", "azerty").
class SimKeyboardLayout {
  public:
    static bool isKnown(const std::string& name);
    static std::optional<Key> key(const std::string& layout, std::uint16_t keyCode);
    static std::optional<std::uint16_t> keyCode(const std::string& layout, Key key);
};

}  // namespace zelk::sim
