#pragma once
#include <nlohmann/json.hpp>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "command/ZelkRequest.h"
#include "command/ZelkResponse.h"

namespace zelk::command {

using CommandHandler = std::function<ZelkResponse(const ZelkRequest&)>;

// Decodes requests, runs each command's handler on the main queue and encodes the reply. The socket
// and the replay bench both come through here, so both see the same decoding and texts.
class CommandDispatcher {
  public:
    CommandDispatcher() = default;
    CommandDispatcher(const CommandDispatcher&) = delete;
    CommandDispatcher& operator=(const CommandDispatcher&) = delete;

    // Replaces any handler the command had. Register from the main thread before serving.
    void registerHandler(ZelkCommand command, CommandHandler handler);
    void unregisterHandler(ZelkCommand command);
    bool hasHandler(ZelkCommand command) const;

    // Runs the command on the calling thread: "not available yet" without a handler; a handler
    // that throws answers with a failure instead of raising.
    ZelkResponse run(const ZelkRequest& request) const;

    // The replay bench's entry, on the main thread: the request object in, the reply object out.
    // The reply's fields in the protocol's order.
    nlohmann::ordered_json handleJson(const nlohmann::json& request) const;

    // The socket's entry, on the service thread: message bytes in, reply bytes out. Decoding and
    // encoding stay on the calling thread; the command itself runs synchronously on the main
    // queue. When `cancel` turns true before the main queue took the command up (the program is
    // quitting), the wait ends with a failure instead of hanging.
    std::string handleMessage(std::string_view bytes, const std::atomic<bool>* cancel = nullptr) const;

  private:
    ZelkResponse runOnMainQueue(const ZelkRequest& request, const std::atomic<bool>* cancel) const;

    mutable std::mutex mutex_;
    std::map<ZelkCommand, CommandHandler> handlers_;
};

}  // namespace zelk::command
