#include "support/BoundedJson.h"

#include <fmt/format.h>

namespace ferrow {
namespace {

using nlohmann::json;

// The library's own value builder, with a depth count in front of it.
class DepthBoundedBuilder {
  public:
    DepthBoundedBuilder(json& root, std::size_t maxDepth) : builder_(root, false), maxDepth_(maxDepth) {}

    bool null() { return builder_.null(); }
    bool boolean(bool v) { return builder_.boolean(v); }
    bool number_integer(json::number_integer_t v) { return builder_.number_integer(v); }
    bool number_unsigned(json::number_unsigned_t v) { return builder_.number_unsigned(v); }
    bool number_float(json::number_float_t v, const json::string_t& s) { return builder_.number_float(v, s); }
    bool string(json::string_t& v) { return builder_.string(v); }
    bool binary(json::binary_t& v) { return builder_.binary(v); }
    bool key(json::string_t& v) { return builder_.key(v); }
    bool start_object(std::size_t n) { return enter() && builder_.start_object(n); }
    bool end_object() {
        --depth_;
        return builder_.end_object();
    }
    bool start_array(std::size_t n) { return enter() && builder_.start_array(n); }
    bool end_array() {
        --depth_;
        return builder_.end_array();
    }
    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception&) {
        problem = fmt::format("not valid JSON (at byte {})", position);
        return false;
    }

    std::string problem;

  private:
    bool enter() {
        if (++depth_ <= maxDepth_) return true;
        problem = fmt::format("nested deeper than {} levels", maxDepth_);
        return false;
    }

    nlohmann::detail::json_sax_dom_parser<json> builder_;
    std::size_t maxDepth_;
    std::size_t depth_ = 0;
};

}  // namespace

std::optional<json> parseJsonBounded(std::string_view text, std::size_t maxDepth, std::string& problem) {
    json root;
    DepthBoundedBuilder builder(root, maxDepth);
    const bool ok = json::sax_parse(text, &builder, json::input_format_t::json, /*strict=*/true);
    if (!ok || !builder.problem.empty()) {
        problem = builder.problem.empty() ? "not valid JSON" : builder.problem;
        return std::nullopt;
    }
    return root;
}

}  // namespace ferrow
