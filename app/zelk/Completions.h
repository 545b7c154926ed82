#pragma once
#include <CLI/CLI.hpp>

#include <string>

namespace zelk::tool {

// Shell completion scripts generated from the tool's own command tree, so they never drift from it.
std::string bashCompletion(const CLI::App& app);
std::string zshCompletion(const CLI::App& app);

}  // namespace zelk::tool
