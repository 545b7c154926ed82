#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace ferrow {

// Numbers in log lines and messages print as the system's texts show them: shortest round-trip
// digits, and always a fractional part ("2.0", "0.25", "1200.0").
std::string decimal(double value);

// The ASCII letters and digits from which keys are drawn: "abcdefghijklmnopqrstuvwxyz0123456789".
extern const std::string_view ALPHANUMERICS;

std::string join(const std::vector<std::string>& parts, std::string_view separator);
std::string toLowerAscii(std::string_view text);

}  // namespace ferrow
