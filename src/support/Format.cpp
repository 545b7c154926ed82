#include "support/Format.h"

#include <fmt/format.h>

#include <cmath>

namespace ferrow {

const std::string_view ALPHANUMERICS = "abcdefghijklmnopqrstuvwxyz0123456789";

std::string decimal(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
    std::string text = fmt::format("{}", value);
    if (text.find_first_of(".eE") == std::string::npos) text += ".0";
    return text;
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string out;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i) out += separator;
        out += parts[i];
    }
    return out;
}

std::string toLowerAscii(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

}  // namespace ferrow
