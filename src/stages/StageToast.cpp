#include "stages/StageToast.h"

#include <algorithm>

namespace zelk::stages {

std::vector<ToastSpan> toastSpans(const std::string& title) {
    std::vector<ToastSpan> spans;
    auto add = [&spans](std::string text, bool bold) {
        if (!text.empty()) spans.push_back({std::move(text), bold});
    };
    std::size_t at = 0;
    while (at < title.size()) {
        auto open = title.find("**", at);
        auto close = open == std::string::npos ? std::string::npos : title.find("**", open + 2);
        if (close == std::string::npos) {
            add(title.substr(at), false);
            break;
        }
        add(title.substr(at, open - at), false);
        add(title.substr(open + 2, close - open - 2), true);
        at = close + 2;
    }
    return spans;
}

std::string plainToastTitle(const std::string& title) {
    std::string out;
    for (const auto& span : toastSpans(title))
        out += span.text;
    return out;
}

Rect stageToastFrame(const Rect& visibleFrame) {
    using G = StageToastGeometry;
    const double width = std::min(G::kWidth, visibleFrame.width);
    return {visibleFrame.x + (visibleFrame.width - width) / 2, visibleFrame.y + G::kTopInset, width,
            G::kHeight};
}

void StageToast::show(const std::string& title, const std::string& line, std::int64_t ms) {
    hideTimer_.cancel();
    StageToastModel next;
    next.visible = true;
    next.title = title;
    next.line = line;
    next.seq = model_.get().seq + 1;
    if (screens_) {
        auto main = screens_->mainScreen();
        if (!main) {
            auto all = screens_->screens();
            if (!all.empty()) main = all.front();
        }
        if (main) next.frame = stageToastFrame(main->visibleFrame);
    }
    model_.set(std::move(next));
    hideTimer_ = ferrow::mainAsyncAfter(ms, [this] { hide(); });
}

void StageToast::hide() {
    hideTimer_.cancel();
    if (!model_.get().visible) return;
    StageToastModel next = model_.get();
    next.visible = false;
    model_.set(std::move(next));
}

}  // namespace zelk::stages
