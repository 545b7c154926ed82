#pragma once
#include <map>
#include <set>
#include <string>

#include "stages/WindowResolve.h"

namespace zelk::stages::testing {

// Window facts from tables keyed by window number; every read is counted.
struct FakeWindowFacts : WindowFacts {
    std::set<std::string> running;
    std::map<std::uint32_t, std::string> documents, urls, cwds;
    int reads = 0;

    bool isAppRunning(std::string_view bundleID) override { return running.contains(std::string(bundleID)); }
    std::optional<std::string> documentOf(const windows::ManagedWindow& w) override {
        return read(documents, w);
    }
    std::optional<std::string> browserURLOf(const windows::ManagedWindow& w) override {
        return read(urls, w);
    }
    std::optional<std::string> terminalCWDOf(const windows::ManagedWindow& w) override {
        return read(cwds, w);
    }

  private:
    std::optional<std::string> read(const std::map<std::uint32_t, std::string>& table,
                                    const windows::ManagedWindow& w) {
        ++reads;
        auto it = table.find(w.id);
        if (it == table.end()) return std::nullopt;
        return it->second;
    }
};

// A file system of listed files and folders (folders end in "/" in the list).
struct FakeFileView : FileView {
    std::set<std::string> entries;
    std::string home = "/Users/ada";

    bool exists(const std::string& path) const override {
        return entries.contains(path) || entries.contains(path + "/");
    }
    bool isDirectory(const std::string& path) const override { return entries.contains(path + "/"); }
    std::string homeFolder() const override { return home; }
};

}  // namespace zelk::stages::testing
