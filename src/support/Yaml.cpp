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

class Loader {
  public:
    explicit Loader(std::string_view text) {
        yaml_parser_initialize(&parser_);
        yaml_parser_set_input_string(&parser_, reinterpret_cast<const unsigned char*>(text.data()),
                                     text.size());
    }
    ~Loader() { yaml_parser_delete(&parser_); }

    std::optional<std::vector<json>> documents(YamlError* error) {
        std::vector<json> docs;
        while (true) {
            yaml_document_t doc;
            if (!yaml_parser_load(&parser_, &doc)) {
                if (error) {
                    error->message = parser_.problem ? parser_.problem : "invalid YAML";
                    if (parser_.context)
                        error->message = std::string(parser_.context) + ": " + error->message;
                    error->line = parser_.problem_mark.line + 1;
                    error->column = parser_.problem_mark.column + 1;
                }
                return std::nullopt;
            }
            std::unique_ptr<yaml_document_t, void (*)(yaml_document_t*)> guard(&doc, yaml_document_delete);
            yaml_node_t* root = yaml_document_get_root_node(&doc);
            if (!root) break;  // end of stream
            auto value = convert(&doc, root, 0, error);
            if (!value) return std::nullopt;
            docs.push_back(std::move(*value));
        }
        return docs;
    }

  private:
    std::optional<json> convert(yaml_document_t* doc, yaml_node_t* node, int depth, YamlError* error) {
        if (!node) return json(nullptr);
        if (depth > 200) {
            if (error) error->message = "nesting too deep";
            return std::nullopt;
        }
        switch (node->type) {
            case YAML_SCALAR_NODE: {
                std::string text(reinterpret_cast<const char*>(node->data.scalar.value),
                                 node->data.scalar.length);
                if (node->data.scalar.style == YAML_PLAIN_SCALAR_STYLE) return resolvePlain(text);
                return json(text);
            }
            case YAML_SEQUENCE_NODE: {
                json array = json::array();
                for (auto* item = node->data.sequence.items.start; item < node->data.sequence.items.top;
                     ++item) {
                    auto value = convert(doc, yaml_document_get_node(doc, *item), depth + 1, error);
                    if (!value) return std::nullopt;
                    array.push_back(std::move(*value));
                }
                return array;
            }
            case YAML_MAPPING_NODE: {
                json object = json::object();
                json merged = json::object();
                for (auto* pair = node->data.mapping.pairs.start; pair < node->data.mapping.pairs.top;
                     ++pair) {
                    auto key = convert(doc, yaml_document_get_node(doc, pair->key), depth + 1, error);
                    if (!key) return std::nullopt;
                    auto value = convert(doc, yaml_document_get_node(doc, pair->value), depth + 1, error);
                    if (!value) return std::nullopt;
                    std::string name = key->is_string() ? key->get<std::string>() : key->dump();
                    if (name == "<<" && value->is_object()) {
                        for (auto& [k, v] : value->items())
                            merged[k] = v;
                        continue;
                    }
                    object[name] = std::move(*value);
                }
                for (auto& [k, v] : merged.items())
                    if (!object.contains(k)) object[k] = v;
                return object;
            }
            default:
                return json(nullptr);
        }
    }

    yaml_parser_t parser_;
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
            } else
                out += " " + scalar(item) + "\n";
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
                out += " " + inner.substr(static_cast<std::size_t>(indent) + 2);
            } else
                out += " " + scalar(item) + "\n";
        }
    } else {
        out += pad + scalar(v) + "\n";
    }
}

}  // namespace
}  // namespace ferrow

namespace ferrow {

std::optional<std::vector<nlohmann::json>> parseYamlDocuments(std::string_view text, YamlError* error) {
    return Loader(text).documents(error);
}

std::optional<nlohmann::json> parseYaml(std::string_view text, YamlError* error) {
    auto docs = parseYamlDocuments(text, error);
    if (!docs) return std::nullopt;
    if (docs->empty()) return nlohmann::json(nullptr);
    return std::move(docs->front());
}

std::string emitYaml(const nlohmann::json& value) {
    std::string out;
    emit(value, 0, out);
    return out;
}

}  // namespace ferrow
