#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

// `zelk config import` reads its file before it asks the agent anything: a file too large for one
// message, a device with no end or a folder is a usage error at once, with one line saying why.
TEST(ConfigImportInput, ReadsNoMoreThanOneMessageAndRefusesFolders) {
    const std::string dir = ::testing::TempDir() + "zelk-import-" + std::to_string(::getpid());
    std::filesystem::create_directories(dir);
    auto run = [&](const std::string& args, std::string& line) {
        std::string cmd = std::string(ZELK_PATH) + " --socket " + dir + "/no-agent.sock config import " +
                          args + " </dev/zero 2>" + dir + "/err.txt";
        int status = std::system(cmd.c_str());
        std::ifstream err(dir + "/err.txt");
        std::getline(err, line);
        return WEXITSTATUS(status);
    };
    std::string line;
    EXPECT_EQ(run("/dev/zero", line), 2);
    EXPECT_EQ(line, "zelk: /dev/zero is longer than 16777216 bytes");
    EXPECT_EQ(run("-", line), 2);
    EXPECT_EQ(line, "zelk: standard input is longer than 16777216 bytes");
    EXPECT_EQ(run(dir, line), 2);
    EXPECT_EQ(line, "zelk: " + dir + " is a folder, not a file");
    std::filesystem::remove_all(dir);
}
