#include "Completions.h"

#include <fmt/format.h>

#include <vector>

namespace zelk::tool {

namespace {

struct Node {
    std::string path;  // subcommand names joined by spaces, "" for the tool itself
    std::vector<std::string> words;
};

// Every command path with the words that may follow it: its subcommands and long options.
void collect(const CLI::App& app, const std::string& path, std::vector<Node>& out) {
    Node node{path, {}};
    for (const CLI::App* sub : app.get_subcommands({}))
        node.words.push_back(sub->get_name());
    for (const CLI::Option* opt : app.get_options({}))
        for (auto& name : opt->get_lnames())
            node.words.push_back("--" + name);
    out.push_back(node);
    for (const CLI::App* sub : app.get_subcommands({}))
        collect(*sub, path.empty() ? sub->get_name() : path + " " + sub->get_name(), out);
}

std::string joinWords(const std::vector<std::string>& words) {
    return fmt::format("{}", fmt::join(words, " "));
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
    std::vector<Node> nodes;
    collect(app, "", nodes);
    std::string cases;
    for (auto& n : nodes)
        cases += fmt::format("        \"{}\") words=\"{}\" ;;\n", n.path, joinWords(n.words));
    return fmt::format(R"SH(# bash completion for zelk; load with: source <(zelk completions bash)
_zelk() {{
    local cur path="" w i
    cur="${{COMP_WORDS[COMP_CWORD]}}"
    for ((i = 1; i < COMP_CWORD; i++)); do
        w="${{COMP_WORDS[i]}}"
        [[ "$w" == -* ]] && continue
        if _zelk_words "${{path:+$path }}$w" >/dev/null; then path="${{path:+$path }}$w"; fi
    done
    COMPREPLY=($(compgen -W "$(_zelk_words "$path")" -- "$cur"))
}}
_zelk_words() {{
    local words
    case "$1" in
{}        *) return 1 ;;
    esac
    echo "$words"
}}
complete -F _zelk zelk
)SH",
                       cases);
}

std::string zshCompletion(const CLI::App& app) {
    std::vector<Node> nodes;
    collect(app, "", nodes);
    std::string cases;
    for (auto& n : nodes)
        cases += fmt::format("        \"{}\") reply=({}) ;;\n", n.path, joinWords(n.words));
    return fmt::format(R"SH(#compdef zelk
# zsh completion for zelk; load with: source <(zelk completions zsh)
_zelk_words() {{
    reply=()
    case "$1" in
{}        *) return 1 ;;
    esac
}}
_zelk() {{
    local path="" w i
    local -a reply
    for ((i = 2; i < CURRENT; i++)); do
        w="${{words[i]}}"
        [[ "$w" == -* ]] && continue
        if _zelk_words "${{path:+$path }}$w"; then path="${{path:+$path }}$w"; fi
    done
    _zelk_words "$path"
    compadd -- $reply
}}
compdef _zelk zelk
)SH",
                       cases);
}

}  // namespace zelk::tool
