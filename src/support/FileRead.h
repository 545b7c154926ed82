#pragma once
#include <cstddef>
#include <istream>
#include <optional>
#include <string>

namespace ferrow {

// Every file the program takes in whole (world files, replay scripts, settings, imports) is read
// through these: they stop at a cap instead of reading whatever a device or a huge file offers, and
// say in one line why they failed ("/dev/zero is longer than 16777216 bytes", "/tmp is a folder").
std::optional<std::string> readFileCapped(const std::string& path, std::size_t maxBytes, std::string& error);
// The same for an open stream (standard input); `name` is used in the message.
std::optional<std::string> readStreamCapped(std::istream& in, const std::string& name, std::size_t maxBytes,
                                            std::string& error);

}  // namespace ferrow
