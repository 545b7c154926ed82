#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Geometry.h"
#include "platform/Screens.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

// The stage toast: a small card at the top of the main screen that tells why a stage did not come
// up, shown for a given time; a new toast replaces the one showing.
namespace zelk::stages {

struct StageToastModel {
    bool visible = false;
    std::string title;  // "**" marks the part set in bold (the stage's name)
    std::string line;
    Rect frame;             // global points
    std::uint64_t seq = 0;  // grows with each toast, so the same text shown twice is two toasts
    bool operator==(const StageToastModel&) const = default;
};

// A run of the title in one weight.
struct ToastSpan {
    std::string text;
    bool bold = false;
    bool operator==(const ToastSpan&) const = default;
};
// The title cut at its "**" markers; an unpaired marker is kept as text.
std::vector<ToastSpan> toastSpans(const std::string& title);
// The title as read: its markers left out.
std::string plainToastTitle(const std::string& title);

struct StageToastGeometry {
    static constexpr double kWidth = 460;
    static constexpr double kHeight = 64;
    static constexpr double kTopInset = 48;  // below the top of the visible frame
};
// Centred across the visible frame, near its top.
Rect stageToastFrame(const Rect& visibleFrame);

class StageToast {
  public:
    explicit StageToast(platform::Screens* screens) : screens_(screens) {}
    ~StageToast() { hideTimer_.cancel(); }
    StageToast(const StageToast&) = delete;
    StageToast& operator=(const StageToast&) = delete;

    void show(const std::string& title, const std::string& line, std::int64_t ms);
    void hide();
    const ferrow::Observable<StageToastModel>& model() const { return model_; }
    ferrow::Observable<StageToastModel>& model() { return model_; }

  private:
    platform::Screens* screens_;
    ferrow::Observable<StageToastModel> model_;
    ferrow::WorkItem hideTimer_;
};

}  // namespace zelk::stages
