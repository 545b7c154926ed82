#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "command/ZelkRequest.h"

namespace zelk::command {

// A message on the socket: a 4-byte big-endian length, then that many bytes of UTF-8 JSON.
std::string frameMessage(std::string_view payload);

// Cuts a byte stream into messages as it arrives.
class FrameReader {
  public:
    enum class Result { needMore, message, tooLarge };

    explicit FrameReader(std::size_t maxBytes = kMaxMessageBytes) : maxBytes_(maxBytes) {}
    void append(const char* data, std::size_t size) { buffer_.append(data, size); }
    // The next whole message into `out`; `tooLarge` when the announced length passes the limit
    // (the stream can't be followed after that).
    Result next(std::string& out);
    // Bytes of a message that hasn't fully arrived are waiting.
    bool midMessage() const { return buffer_.size() > consumed_; }
    std::size_t buffered() const { return buffer_.size() - consumed_; }

  private:
    std::size_t maxBytes_;
    std::string buffer_;
    std::size_t consumed_ = 0;
};

}  // namespace zelk::command
