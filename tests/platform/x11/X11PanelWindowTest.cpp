// When the panel's window is shown, moved, redrawn and hidden, as the model changes.
#include <gtest/gtest.h>

#include "platform/x11/X11PanelWindow.h"

namespace zelk::x11 {
namespace {

osd::OSDModel visibleAt(Rect frame) {
    osd::OSDModel m;
    m.visibility.hidden = false;
    m.visibility.orderedIn = true;
    m.visibility.alpha = 1;
    m.placement.frame = frame;
    m.sections.push_back({"", {osd::OSDRow{.id = "com.example.mail", .key = "M", .title = "Mail"}}});
    return m;
}

// Applies a step to what is shown, as the window does.
PanelShown after(PanelShown now, const PanelStep& step, const osd::OSDModel& model) {
    if (step.unmap) now.mapped = false;
    if (step.draw) now.drawn = model;
    if (step.map) {
        now.mapped = true;
        now.geometry = panelGeometry(model.placement.frame);
    }
    return now;
}

TEST(X11PanelWindow, GeometryCoversTheFrameAndItsShadowInWholePixels) {
    auto g = panelGeometry({10.5, 20.2, 100, 50});
    ASSERT_TRUE(g);
    EXPECT_EQ(*g, (PanelGeometry{2, 12, 117, 67}));
    EXPECT_FALSE(panelGeometry({0, 0, 0, 40}));
    EXPECT_FALSE(panelGeometry({0, 0, 40, -1}));
    EXPECT_FALSE(panelGeometry({0, 0, 1e6, 40}));
}

TEST(X11PanelWindow, ShowsOnceRedrawsOnlyWhatChangedAndHides) {
    PanelShown shown;
    osd::OSDModel hidden;
    auto step = planPanelStep(shown, hidden);
    EXPECT_FALSE(step.unmap || step.draw || step.map) << "nothing to show, nothing shown";

    auto model = visibleAt({800, 500, 300, 200});
    step = planPanelStep(shown, model);
    EXPECT_TRUE(step.captureBehind && step.draw && step.map);
    EXPECT_FALSE(step.unmap);
    shown = after(shown, step, model);

    step = planPanelStep(shown, model);
    EXPECT_FALSE(step.unmap || step.draw || step.map || step.captureBehind) << "the same model costs nothing";

    // The watchdog's bookkeeping doesn't change the picture.
    auto ticked = model;
    ticked.visibility.watchdogRunning = true;
    ticked.visibility.watchdogStrikes = 2;
    step = planPanelStep(shown, ticked);
    EXPECT_FALSE(step.draw || step.map || step.unmap);

    // New content in place: drawn again, the window left where it is.
    auto highlighted = model;
    highlighted.sections[0].rows[0].highlighted = true;
    step = planPanelStep(shown, highlighted);
    EXPECT_TRUE(step.draw);
    EXPECT_FALSE(step.unmap || step.map || step.captureBehind);
    shown = after(shown, step, highlighted);

    // Hidden: unmapped, not drawn.
    auto gone = highlighted;
    gone.visibility.hidden = true;
    step = planPanelStep(shown, gone);
    EXPECT_TRUE(step.unmap);
    EXPECT_FALSE(step.draw || step.map);
    shown = after(shown, step, gone);

    // Shown again with the same content: the desktop under it may have changed, so it is read again.
    step = planPanelStep(shown, highlighted);
    EXPECT_TRUE(step.captureBehind && step.draw && step.map);
}

TEST(X11PanelWindow, AMovedOrFadingPanelIsPlacedAgainOrHidden) {
    PanelShown shown;
    auto model = visibleAt({800, 500, 300, 200});
    shown = after(shown, planPanelStep(shown, model), model);

    // Another display or a longer list: the window leaves, the desktop under the new place is read,
    // and it comes back there.
    auto moved = visibleAt({100, 100, 300, 260});
    auto step = planPanelStep(shown, moved);
    EXPECT_TRUE(step.unmap && step.captureBehind && step.draw && step.map);
    shown = after(shown, step, moved);
    EXPECT_EQ(shown.geometry, panelGeometry(moved.placement.frame));

    // Mid-fade or ordered out: not visible, so not on screen.
    auto fading = moved;
    fading.visibility.alpha = 0.5;
    EXPECT_TRUE(planPanelStep(shown, fading).unmap);
    auto orderedOut = moved;
    orderedOut.visibility.orderedIn = false;
    EXPECT_TRUE(planPanelStep(shown, orderedOut).unmap);
    // A frame with no area can't stand anywhere: hidden rather than drawn into nothing.
    auto empty = moved;
    empty.placement.frame = {0, 0, 0, 0};
    step = planPanelStep(shown, empty);
    EXPECT_TRUE(step.unmap);
    EXPECT_FALSE(step.draw || step.map);
}

}  // namespace
}  // namespace zelk::x11
