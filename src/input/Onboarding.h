#pragma once
#include <optional>

namespace zelk {

// The steps of the onboarding flow, in the order the user meets them.
enum class OnboardingState { welcome, triggerKeys, requestPermissions, tryIt, finished };

// Where the onboarding flow stands: closed, or open at one of its steps. The onboarding views move it
// (this build has none, so it stays closed); the panel's gate reads it. Opening it records the
// version it was shown for in `onboardingShownForVersion`.
class Onboarding {
  public:
    static constexpr int kVersion = 1;

    // Not shown yet for this version.
    bool due() const;
    void open(OnboardingState at = OnboardingState::welcome);
    void moveTo(OnboardingState state);
    void close() { state_.reset(); }

    const std::optional<OnboardingState>& state() const { return state_; }
    bool isOpen() const { return state_.has_value(); }
    // Beyond the permission step the flow runs its own demonstration, and no panel may cover it.
    bool pastPermissions() const { return state_ && *state_ > OnboardingState::requestPermissions; }

  private:
    std::optional<OnboardingState> state_;
};

}  // namespace zelk
