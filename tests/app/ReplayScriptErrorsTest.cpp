#include <gtest/gtest.h>

#include "ReplayScript.h"

namespace zelk::agent {
namespace {

// Found by fuzzing: a key holding line breaks made the error span several lines.
TEST(ReplayScriptErrors, AMessageQuotingTheScriptStaysOneLine) {
    ReplayScript script;
    std::string error;
    EXPECT_FALSE(parseReplayScript(std::string("- {at: 0, tap: s, \"a\\r\\nb\\tc\": 1}\n"), script, error));
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    EXPECT_EQ(error.find('\r'), std::string::npos) << error;
    EXPECT_NE(error.find("a\\r\\nb\\x09c"), std::string::npos) << error;
    // The YAML loader's own messages too: a duplicate key spanning lines.
    EXPECT_FALSE(parseReplayScript(std::string("- {at: 0, \"k\\nx\": 1, \"k\\nx\": 2}\n"), script, error));
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    EXPECT_NE(error.find("duplicate key"), std::string::npos) << error;
}

}  // namespace
}  // namespace zelk::agent
