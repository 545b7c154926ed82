#include "input/Onboarding.h"

#include "config/Settings.h"
#include "config/SettingsCatalogue.h"

namespace zelk {

bool Onboarding::due() const {
    return Settings::shared().get(keys::onboardingShownForVersion) < kVersion;
}

void Onboarding::open(OnboardingState at) {
    state_ = at;
    Settings::shared().set(keys::onboardingShownForVersion, kVersion);
}

// Moving a closed flow opens it at that step.
void Onboarding::moveTo(OnboardingState state) {
    if (!state_) {
        open(state);
        return;
    }
    state_ = state;
}

}  // namespace zelk
