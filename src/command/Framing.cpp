#include "command/Framing.h"

namespace zelk::command {

std::string frameMessage(std::string_view payload) {
    auto n = static_cast<std::uint32_t>(payload.size());
    std::string out;
    out.reserve(4 + payload.size());
    out.push_back(static_cast<char>((n >> 24) & 0xFF));
    out.push_back(static_cast<char>((n >> 16) & 0xFF));
    out.push_back(static_cast<char>((n >> 8) & 0xFF));
    out.push_back(static_cast<char>(n & 0xFF));
    out.append(payload);
    return out;
}

FrameReader::Result FrameReader::next(std::string& out) {
    std::size_t available = buffer_.size() - consumed_;
    if (available < 4) return Result::needMore;
    auto byte = [&](std::size_t k) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(buffer_[consumed_ + k]));
    };
    std::uint32_t length = (byte(0) << 24) | (byte(1) << 16) | (byte(2) << 8) | byte(3);
    if (length > maxBytes_) return Result::tooLarge;
    if (available - 4 < length) return Result::needMore;
    out.assign(buffer_, consumed_ + 4, length);
    consumed_ += 4 + length;
    // Compact once the consumed prefix dominates, so a long-lived connection doesn't grow.
    if (consumed_ == buffer_.size()) {
        buffer_.clear();
        consumed_ = 0;
    } else if (consumed_ > 64 * 1024 && consumed_ * 2 > buffer_.size()) {
        buffer_.erase(0, consumed_);
        consumed_ = 0;
    }
    return Result::message;
}

}  // namespace zelk::command
