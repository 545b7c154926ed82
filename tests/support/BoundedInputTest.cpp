#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/BoundedJson.h"
#include "support/FileRead.h"

using namespace ferrow;
namespace fs = std::filesystem;

TEST(FileRead, StopsAtTheCapWhateverTheSourceOffers) {
    std::string error;
    // A device with no end: read up to the cap and refused, not read until memory runs out.
    EXPECT_FALSE(readFileCapped("/dev/zero", 1u << 20, error));
    EXPECT_EQ(error, "/dev/zero is longer than 1048576 bytes");

    fs::path dir = fs::path(::testing::TempDir()) / "zelk-file-read";
    fs::create_directories(dir);
    fs::path file = dir / "ten.txt";
    std::ofstream(file) << "0123456789";
    EXPECT_FALSE(readFileCapped(file.string(), 9, error));
    EXPECT_EQ(error, file.string() + " is longer than 9 bytes");
    auto text = readFileCapped(file.string(), 10, error);
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, "0123456789");

    EXPECT_FALSE(readFileCapped(dir.string(), 100, error));
    EXPECT_EQ(error, dir.string() + " is a folder, not a file");
    EXPECT_FALSE(readFileCapped((dir / "missing").string(), 100, error));
    EXPECT_EQ(error, "can't read " + (dir / "missing").string() + ": No such file or directory");
    auto empty = readFileCapped("/dev/null", 100, error);
    ASSERT_TRUE(empty);
    EXPECT_EQ(*empty, "");

    std::istringstream in(std::string(100, 'x'));
    EXPECT_FALSE(readStreamCapped(in, "standard input", 99, error));
    EXPECT_EQ(error, "standard input is longer than 99 bytes");
    std::istringstream fits(std::string(99, 'x'));
    EXPECT_EQ(readStreamCapped(fits, "standard input", 99, error), std::string(99, 'x'));
    fs::remove_all(dir);
}

TEST(BoundedJson, NestingStopsTheParserAtTheBound) {
    std::string problem;
    EXPECT_FALSE(parseJsonBounded(std::string(100'000, '['), 64, problem));
    EXPECT_EQ(problem, "nested deeper than 64 levels");
    std::string deepObject;
    for (int i = 0; i < 65; ++i)
        deepObject += "{\"a\":";
    deepObject += "1" + std::string(65, '}');
    EXPECT_FALSE(parseJsonBounded(deepObject, 64, problem));
    EXPECT_EQ(problem, "nested deeper than 64 levels");

    std::string atBound = std::string(64, '[') + std::string(64, ']');
    auto v = parseJsonBounded(atBound, 64, problem);
    ASSERT_TRUE(v);
    EXPECT_TRUE(v->is_array());
    auto doc = parseJsonBounded(R"({"a": [1, 2.5, "x", null, true], "b": {}})", 64, problem);
    ASSERT_TRUE(doc);
    EXPECT_EQ(*doc, nlohmann::json::parse(R"({"a": [1, 2.5, "x", null, true], "b": {}})"));

    EXPECT_FALSE(parseJsonBounded("{\"a\": [1", 64, problem));
    EXPECT_EQ(problem.rfind("not valid JSON", 0), 0u) << problem;
    EXPECT_FALSE(parseJsonBounded("", 64, problem));
}
