#include "command/CommandDispatcher.h"

#include <chrono>
#include <condition_variable>
#include <memory>

#include "support/Log.h"
#include "support/MainQueue.h"

namespace zelk::command {

using ferrow::Log;

void CommandDispatcher::registerHandler(ZelkCommand command, CommandHandler handler) {
    std::lock_guard lock(mutex_);
    handlers_[command] = std::move(handler);
}

void CommandDispatcher::unregisterHandler(ZelkCommand command) {
    std::lock_guard lock(mutex_);
    handlers_.erase(command);
}

bool CommandDispatcher::hasHandler(ZelkCommand command) const {
    std::lock_guard lock(mutex_);
    return handlers_.count(command) > 0;
}

ZelkResponse CommandDispatcher::run(const ZelkRequest& request) const {
    CommandHandler handler;
    {
        std::lock_guard lock(mutex_);
        auto it = handlers_.find(request.command);
        if (it != handlers_.end()) handler = it->second;
    }
    if (!handler) return ZelkResponse::failure(kNotAvailableYet);
    try {
        return handler(request);
    } catch (const std::exception& e) {
        Log::error("command: {} failed: {}", rawValue(request.command), e.what());
        return ZelkResponse::failure(std::string(rawValue(request.command)) + " failed");
    }
}

nlohmann::ordered_json CommandDispatcher::handleJson(const nlohmann::json& object) const {
    auto request = decodeRequest(object);
    if (!request) return toOrderedJson(ZelkResponse::failure(kInvalidRequest));
    return toOrderedJson(run(*request));
}

std::string CommandDispatcher::handleMessage(std::string_view bytes, const std::atomic<bool>* cancel) const {
    auto request = decodeRequest(bytes);
    if (!request) return encodeResponse(ZelkResponse::failure(kInvalidRequest));
    return encodeResponse(runOnMainQueue(*request, cancel));
}

namespace {
// One command handed to the main queue. It owns what it needs, so a waiter that gives up leaves
// nothing dangling behind it.
struct Hop {
    std::mutex mutex;
    std::condition_variable cv;
    bool started = false, done = false, abandoned = false;
    ZelkResponse response;
};
}  // namespace

ZelkResponse CommandDispatcher::runOnMainQueue(const ZelkRequest& request,
                                               const std::atomic<bool>* cancel) const {
    auto& queue = ferrow::MainQueue::shared();
    if (!cancel || queue.isVirtual() || queue.onMainThread()) {
        ZelkResponse response;
        queue.sync([&] { response = run(request); });
        return response;
    }
    auto hop = std::make_shared<Hop>();
    queue.async([this, hop, request] {
        {
            std::lock_guard lock(hop->mutex);
            if (hop->abandoned) return;
            hop->started = true;
        }
        ZelkResponse response = run(request);
        std::lock_guard lock(hop->mutex);
        hop->response = std::move(response);
        hop->done = true;
        hop->cv.notify_all();
    });
    std::unique_lock lock(hop->mutex);
    while (!hop->done) {
        // A command that already started finishes (commands never wait on anything long); one
        // still queued is given up when the program quits and the queue won't serve it.
        if (!hop->started && cancel->load()) {
            hop->abandoned = true;
            return ZelkResponse::failure("agent is quitting");
        }
        hop->cv.wait_for(lock, std::chrono::milliseconds(50));
    }
    return std::move(hop->response);
}

}  // namespace zelk::command
