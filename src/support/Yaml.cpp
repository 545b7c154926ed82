#include "support/Yaml.h"

#include <yaml.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <memory>

#include <fmt/format.h>

#include "support/Format.h"

namespace ferrow {
namespace {

using nlohmann::json;

json resolvePlain(const std::string& s) {
    if (s.empty() || s == "~" || s == "null" || s == "Null" || s == "NULL") return nullptr;
    if (s == "true" || s == "True" || s == "TRUE") return true;
    if (s == "false" || s == "False" || s == "FALSE") return false;
    const char* b = s.data();
    const char* e = s.data() + s.size();
    const char* digits = (*b == '-' || *b == '+') ? b + 1 : b;
    if (digits < e && std::all_of(digits, e, [](char c) { return c >= '0' && c <= '9'; })) {
        std::int64_t v = 0;
        auto r = std::from_chars(*b == '+' ? b + 1 : b, e, v);
        if (r.ec == std::errc() && r.ptr == e) return v;
        std::uint64_t u = 0;
        r = std::from_chars(*b == '+' ? b + 1 : b, e, u);
        if (r.ec == std::errc() && r.ptr == e) return u;
    }
    if (s == ".inf" || s == "+.inf" || s == ".Inf") return std::numeric_limits<double>::infinity();
    if (s == "-.inf" || s == "-.Inf") return -std::numeric_limits<double>::infinity();
    if (s == ".nan" || s == ".NaN") return std::numeric_limits<double>::quiet_NaN();
    // Floats: digits with a point or exponent only (so "1.2.3" or "0x1" stay strings).
    bool sawDigit = false, ok = true;
    for (const char* p = digits; p < e; ++p) {
        char c = *p;
        if (c >= '0' && c <= '9')
            sawDigit = true;
        else if (c != '.' && c != 'e' && c != 'E' && c != '-' && c != '+')
            ok = false;
    }
    if (ok && sawDigit && digits < e &&
        (std::isdigit(static_cast<unsigned char>(*digits)) || *digits == '.')) {
        double d = 0;
        auto r = std::from_chars(*b == '+' ? b + 1 : b, e, d);
        if (r.ec == std::errc() && r.ptr == e) return d;
    }
    return s;
}

// Builds one document from libyaml's events with an explicit stack, so nesting costs no native stack
// and every bound is checked at the event that would break it.
class EventLoader {
  public:
    EventLoader(std::string_view text, const YamlLimits& limits) : limits_(limits) {
        yaml_parser_initialize(&parser_);
        yaml_parser_set_input_string(&parser_, reinterpret_cast<const unsigned char*>(text.data()),
                                     text.size());
    }
    ~EventLoader() { yaml_parser_delete(&parser_); }
    EventLoader(const EventLoader&) = delete;
    EventLoader& operator=(const EventLoader&) = delete;

    std::optional<json> load(YamlError& error) {
        error_ = &error;
        bool sawDocument = false;
        while (true) {
            yaml_event_t event;
            if (!yaml_parser_parse(&parser_, &event)) return parserFailure();
            std::unique_ptr<yaml_event_t, void (*)(yaml_event_t*)> guard(&event, yaml_event_delete);
            switch (event.type) {
                case YAML_STREAM_END_EVENT:
                    if (!sawDocument) return json(nullptr);
                    return std::move(result_);
                case YAML_DOCUMENT_START_EVENT:
                    if (sawDocument) return fail(event.start_mark, "more than one document");
                    sawDocument = true;
                    break;
                case YAML_SCALAR_EVENT:
                    if (!scalar(event)) return std::nullopt;
                    break;
                case YAML_SEQUENCE_START_EVENT:
                case YAML_MAPPING_START_EVENT:
                    if (!open(event)) return std::nullopt;
                    break;
                case YAML_SEQUENCE_END_EVENT:
                case YAML_MAPPING_END_EVENT:
                    if (!close(event)) return std::nullopt;
                    break;
                case YAML_ALIAS_EVENT:
                    if (!alias(event)) return std::nullopt;
                    break;
                default:
                    break;
            }
        }
    }

  private:
    struct Anchored {
        json value;
        std::size_t nodes = 0;
        std::size_t textBytes = 0;
    };
    struct Frame {
        json value;
        bool mapping = false;
        std::optional<std::string> key;  // a mapping's key waiting for its value
        yaml_mark_t keyMark{};
        std::string anchor;
        std::size_t nodesAtStart = 0;
        std::size_t textAtStart = 0;
        std::vector<json> merges;  // values of `<<` keys, applied at the end
    };

    std::nullopt_t fail(const yaml_mark_t& mark, std::string message) {
        error_->message = std::move(message);
        error_->line = mark.line + 1;
        error_->column = mark.column + 1;
        return std::nullopt;
    }

    bool refuse(const yaml_mark_t& mark, std::string message) {
        fail(mark, std::move(message));
        return false;
    }

    std::nullopt_t parserFailure() {
        std::string message = parser_.problem ? parser_.problem : "invalid YAML";
        if (parser_.context) message = std::string(parser_.context) + ": " + message;
        return fail(parser_.problem_mark, message);
    }

    // Charges the budget for values about to be built.
    bool charge(const yaml_mark_t& mark, std::size_t nodes, std::size_t textBytes) {
        nodes_ += nodes;
        text_ += textBytes;
        if (nodes_ > limits_.maxNodes)
            return refuse(mark, fmt::format("more than {} values (aliases count every value they copy)",
                                            limits_.maxNodes));
        if (text_ > limits_.maxTextBytes)
            return refuse(mark, fmt::format("more than {} bytes of text (aliases count every byte they copy)",
                                            limits_.maxTextBytes));
        return true;
    }

    static std::string anchorOf(const unsigned char* anchor) {
        return anchor ? reinterpret_cast<const char*>(anchor) : "";
    }

    bool scalar(const yaml_event_t& event) {
        const auto& s = event.data.scalar;
        std::string text(reinterpret_cast<const char*>(s.value), s.length);
        if (!charge(event.start_mark, 1, text.size())) return false;
        const bool isStr = s.tag && std::string_view(reinterpret_cast<const char*>(s.tag)) == YAML_STR_TAG;
        json value = (s.style == YAML_PLAIN_SCALAR_STYLE && !isStr) ? resolvePlain(text) : json(text);
        if (!stack_.empty() && stack_.back().mapping && !stack_.back().key) {
            // A key: its own text, whatever type it would resolve to.
            if (auto name = anchorOf(s.anchor); !name.empty()) anchors_[name] = {json(text), 1, text.size()};
            return acceptKey(text, event.start_mark);
        }
        if (auto name = anchorOf(s.anchor); !name.empty()) anchors_[name] = {value, 1, text.size()};
        return place(std::move(value), event.start_mark);
    }

    bool open(const yaml_event_t& event) {
        const bool mapping = event.type == YAML_MAPPING_START_EVENT;
        if (!stack_.empty() && stack_.back().mapping && !stack_.back().key)
            return refuse(event.start_mark, "a mapping key must be a scalar");
        if (stack_.size() >= limits_.maxDepth)
            return refuse(event.start_mark, fmt::format("nesting deeper than {} levels", limits_.maxDepth));
        if (!charge(event.start_mark, 1, 0)) return false;
        Frame frame;
        frame.mapping = mapping;
        frame.value = mapping ? json::object() : json::array();
        frame.anchor = anchorOf(mapping ? event.data.mapping_start.anchor : event.data.sequence_start.anchor);
        frame.nodesAtStart = nodes_ - 1;
        frame.textAtStart = text_;
        stack_.push_back(std::move(frame));
        return true;
    }

    bool close(const yaml_event_t& event) {
        Frame frame = std::move(stack_.back());
        stack_.pop_back();
        if (frame.mapping && !applyMerges(frame, event.start_mark)) return false;
        if (!frame.anchor.empty()) {
            Anchored anchored{frame.value, nodes_ - frame.nodesAtStart, text_ - frame.textAtStart};
            // Keeping the copy costs as much as building it.
            if (!charge(event.start_mark, anchored.nodes, anchored.textBytes)) return false;
            anchors_[frame.anchor] = std::move(anchored);
        }
        return place(std::move(frame.value), event.start_mark);
    }

    bool alias(const yaml_event_t& event) {
        std::string name = anchorOf(event.data.alias.anchor);
        auto it = anchors_.find(name);
        if (it == anchors_.end()) return refuse(event.start_mark, fmt::format("unknown alias '*{}'", name));
        if (!charge(event.start_mark, it->second.nodes, it->second.textBytes)) return false;
        if (!stack_.empty() && stack_.back().mapping && !stack_.back().key) {
            const json& v = it->second.value;
            if (v.is_object() || v.is_array())
                return refuse(event.start_mark, "a mapping key must be a scalar");
            return acceptKey(v.is_string() ? v.get<std::string>() : v.dump(), event.start_mark);
        }
        return place(it->second.value, event.start_mark);
    }

    bool acceptKey(std::string key, const yaml_mark_t& mark) {
        Frame& top = stack_.back();
        if (key != "<<" && top.value.contains(key))
            return refuse(mark, fmt::format("duplicate key '{}'", key));
        top.key = std::move(key);
        top.keyMark = mark;
        return true;
    }

    // Puts a finished value where it belongs: the document, a sequence, or a mapping's pending key.
    bool place(json value, const yaml_mark_t& mark) {
        if (stack_.empty()) {
            result_ = std::move(value);
            return true;
        }
        Frame& top = stack_.back();
        if (!top.mapping) {
            top.value.push_back(std::move(value));
            return true;
        }
        std::string key = std::move(*top.key);
        top.key.reset();
        if (key == "<<") {
            if (!value.is_object() && !value.is_array())
                return refuse(mark, "a merge key '<<' takes a mapping or a list of mappings");
            top.merges.push_back(std::move(value));
            return true;
        }
        top.value[key] = std::move(value);
        return true;
    }

    // Merged keys fill in what the mapping doesn't say itself; earlier merges win over later ones.
    bool applyMerges(Frame& frame, const yaml_mark_t& mark) {
        for (auto& merge : frame.merges) {
            std::vector<const json*> sources;
            if (merge.is_object())
                sources.push_back(&merge);
            else
                for (auto& item : merge) {
                    if (!item.is_object())
                        return refuse(mark, "a merge key '<<' takes a mapping or a list of mappings");
                    sources.push_back(&item);
                }
            for (const json* source : sources)
                for (auto& [k, v] : source->items())
                    if (!frame.value.contains(k)) frame.value[k] = v;
        }
        return true;
    }

    yaml_parser_t parser_;
    const YamlLimits& limits_;
    YamlError* error_ = nullptr;
    std::vector<Frame> stack_;
    std::map<std::string, Anchored> anchors_;
    std::size_t nodes_ = 0;
    std::size_t text_ = 0;
    json result_;
};

bool needsQuotes(const std::string& s) {
    if (s.empty()) return true;
    json resolved = resolvePlain(s);
    if (!resolved.is_string()) return true;
    static const std::string special = ":#{}[],&*!|>'\"%@`";
    if (special.find(s.front()) != std::string::npos || s.front() == '-' || s.front() == '?' ||
        s.front() == ' ' || s.back() == ' ')
        return true;
    if (s.find(": ") != std::string::npos || s.find(" #") != std::string::npos) return true;
    for (unsigned char c : s)
        if (c < 0x20) return true;
    return false;
}

std::string quoteYaml(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (c < 0x20)
                    out += fmt::format("\\x{:02X}", c);
                else
                    out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string scalar(const json& v) {
    if (v.is_null()) return "null";
    if (v.is_boolean()) return v.get<bool>() ? "true" : "false";
    if (v.is_number_integer() || v.is_number_unsigned()) return v.dump();
    if (v.is_number_float()) {
        double d = v.get<double>();
        if (std::isnan(d)) return ".nan";
        if (std::isinf(d)) return d > 0 ? ".inf" : "-.inf";
        return decimal(d);
    }
    std::string s = v.get<std::string>();
    return needsQuotes(s) ? quoteYaml(s) : s;
}

bool isEmptyCollection(const json& v) {
    return (v.is_object() || v.is_array()) && v.empty();
}

void emit(const json& v, int indent, std::string& out) {
    std::string pad(static_cast<std::size_t>(indent), ' ');
    if (v.is_object()) {
        for (auto& [k, item] : v.items()) {
            out += pad + (needsQuotes(k) ? quoteYaml(k) : k) + ":";
            if (isEmptyCollection(item))
                out += item.is_object() ? " {}\n" : " []\n";
            else if (item.is_object()) {
                out += "\n";
                emit(item, indent + 2, out);
            } else if (item.is_array()) {
                out += "\n";
                emit(item, indent, out);
            } else {
                out += ' ';
                out += scalar(item);
                out += '\n';
            }
        }
    } else if (v.is_array()) {
        for (auto& item : v) {
            out += pad + "-";
            if (isEmptyCollection(item))
                out += item.is_object() ? " {}\n" : " []\n";
            else if (item.is_object() || item.is_array()) {
                std::string inner;
                emit(item, indent + 2, inner);
                // The first line goes on the dash's line.
                out += ' ';
                out.append(inner, static_cast<std::size_t>(indent) + 2);
            } else {
                out += ' ';
                out += scalar(item);
                out += '\n';
            }
        }
    } else {
        out += pad + scalar(v) + "\n";
    }
}

}  // namespace
}  // namespace ferrow

namespace ferrow {

std::string YamlError::describe() const {
    if (line == 0) return message;
    return fmt::format("line {}, column {}: {}", line, column, message);
}

std::optional<nlohmann::json> parseYaml(std::string_view text, YamlError* error, const YamlLimits& limits) {
    YamlError local;
    YamlError& out = error ? *error : local;
    out = YamlError{};
    if (text.size() > limits.maxBytes) {
        out.message = fmt::format("longer than {} bytes", limits.maxBytes);
        return std::nullopt;
    }
    return EventLoader(text, limits).load(out);
}

std::string emitYaml(const nlohmann::json& value) {
    std::string out;
    emit(value, 0, out);
    return out;
}

}  // namespace ferrow
