#pragma once
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "config/Settings.h"
#include "support/Log.h"

namespace zelk::testing {

// A directory of its own under the system's temporary directory, removed afterwards.
class TempDir {
  public:
    TempDir() {
        static std::atomic<int> counter{0};
        auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string("zelk-settings-") + (info ? info->name() : "test") + "-" +
                           std::to_string(::getpid()) + "-" + std::to_string(counter++);
        path_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// Quiet logs and no accessor left over from another test.
class SettingsTestBase : public ::testing::Test {
  protected:
    void SetUp() override {
        ferrow::Log::setConsole(false);
        Settings::reset();
    }
    void TearDown() override { Settings::reset(); }
};

}  // namespace zelk::testing
