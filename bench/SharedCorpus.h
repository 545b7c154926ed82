#pragma once
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#ifndef ZELK_SHARED_DIR
#define ZELK_SHARED_DIR "../shared"
#endif

namespace zelk::bench {

// The shared corpora's folder: ZELK_SHARED_DIR in the environment (a worktree that doesn't sit beside
// it), else the one the build names.
inline std::string sharedDir() {
    if (const char* dir = std::getenv("ZELK_SHARED_DIR"); dir && *dir) return dir;
    return ZELK_SHARED_DIR;
}

// A corpus file's lines without empty ones; a missing file stops the run, so no figure is ever
// measured on nothing.
inline std::vector<std::string> corpusLines(const std::string& name) {
    const std::string path = sharedDir() + "/bench/" + name;
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "cannot read %s (set ZELK_SHARED_DIR)\n", path.c_str());
        std::exit(2);
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) lines.push_back(line);
    return lines;
}

}  // namespace zelk::bench
