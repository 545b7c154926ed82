// Pictures of the panel compared with committed ones, within a small tolerance, so the renderer
// can't change unseen. Regenerate after an intended change with
//   ZELK_UPDATE_GOLDEN=1 build/dev/tests/zelk_tests --gtest_filter='PanelGolden*'
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "config/OSDTheme.h"
#include "platform/draw/PanelPainter.h"

namespace zelk::draw {
namespace {

using namespace osd;

std::filesystem::path goldenPath(const std::string& name) {
    return std::filesystem::path(ZELK_SOURCE_DIR) / "tests" / "golden" / (name + ".png");
}

OSDModel appPanel(const OSDLook& look) {
    OSDModel m;
    m.view = {OSDView::appSwitcher, 6};
    m.visibility = {false, true, 1.0, std::nullopt, true, 0};
    m.look = look;
    m.sections = {
        OSDSection{"",
                   {OSDRow{"safari", "s", "Safari", "", "", true, false, true},
                    OSDRow{"1", "", "Apple \xE2\x80\x94 Start Page with a title long enough to be cut short",
                           "Safari", "2", false, false, true, false, true},
                    OSDRow{"mail", "m", "Mail", "", "", false, false, true},
                    OSDRow{"2", "", "Inbox (3 unread)", "Mail", "", false, false, true, true, true},
                    OSDRow{"terminal", "t", "Terminal"}}}};
    PanelTexts t;
    t.appFooter = true;
    fillContent(m, t, m.sections);
    return m;
}

OSDModel searchPanel(const OSDLook& look) {
    OSDModel m;
    m.view = {OSDView::search, 1};
    m.look = look;
    PanelTexts t;
    t.buffer = "ma";
    fillContent(
        m, t,
        {OSDSection{"",
                    {OSDRow{"mail", "1", "Mail", "", "", true, false, true}, OSDRow{"maps", "2", "Maps"}}}});
    m.flash = OSDFlash{"\xE2\x9C\x93", "Pinned", 1};
    return m;
}

OSDModel emptyStagePanel(const OSDLook& look) {
    OSDModel m;
    m.view = {OSDView::stage, 4};
    m.look = look;
    fillContent(m, PanelTexts{}, {});
    return m;
}

// The share of pixels whose channels differ by more than a few steps (antialiasing may drift).
double differingShare(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b) {
    if (a.size() != b.size() || a.empty()) return 1.0;
    std::size_t differing = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        for (int shift : {0, 8, 16, 24}) {
            int x = int((a[i] >> shift) & 0xFF), y = int((b[i] >> shift) & 0xFF);
            if (std::abs(x - y) > 24) {
                ++differing;
                break;
            }
        }
    return double(differing) / double(a.size());
}

void expectMatchesGolden(const std::string& name, const OSDModel& model, int width, int height) {
    ImageSurface surface(width, height);
    drawPanel(surface, model, {10, 10, double(width - 20), double(height - 20)});
    auto path = goldenPath(name);
    if (std::getenv("ZELK_UPDATE_GOLDEN")) {
        ASSERT_TRUE(surface.writePNG(path)) << path;
        return;
    }
    int w = 0, h = 0;
    std::vector<std::uint32_t> expected;
    ASSERT_TRUE(readPNG(path, w, h, expected)) << "missing golden " << path << " (see the command above)";
    ASSERT_EQ(w, width);
    ASSERT_EQ(h, height);
    double share = differingShare(surface.pixels(), expected);
    if (share > 0.005) surface.writePNG(std::filesystem::temp_directory_path() / (name + "-actual.png"));
    EXPECT_LE(share, 0.005) << name << " differs from its golden in " << share * 100 << "% of pixels";
}

TEST(PanelGolden, AppPanelInTheDefaultLook) {
    expectMatchesGolden("panel-app-default", appPanel(OSDLook::preset(WindowSwitcherAppearance::comfortable)),
                        420, 360);
}

TEST(PanelGolden, SearchPanelWithFlashInTheMidnightTheme) {
    expectMatchesGolden("panel-search-midnight", searchPanel(builtInTheme("midnight")->look), 420, 320);
}

TEST(PanelGolden, CloseFlashDrawsItsSymbolOverTheRows) {
    auto m = searchPanel(OSDLook::preset(WindowSwitcherAppearance::comfortable));
    m.flash = OSDFlash{"xmark.circle.fill", "Closed", 2};
    expectMatchesGolden("panel-search-closed", m, 420, 320);
    // The symbol's name is never written out as text: the picture differs from one with no icon only
    // by the drawn symbol, a small share of the pixels.
    auto plain = m;
    plain.flash->icon = "";
    ImageSurface a(420, 320), b(420, 320);
    drawPanel(a, m, {10, 10, 400, 300});
    drawPanel(b, plain, {10, 10, 400, 300});
    const double share = differingShare(a.pixels(), b.pixels());
    EXPECT_GT(share, 0.0005);
    EXPECT_LT(share, 0.03);
}

TEST(PanelGolden, EmptyStagePanelInThePaperTheme) {
    expectMatchesGolden("panel-stage-paper", emptyStagePanel(builtInTheme("paper")->look), 360, 200);
}

TEST(PanelGolden, ThemesDrawDifferentPictures) {
    // The look reaches the pixels: the same model in two themes can't draw the same picture.
    auto draw = [](const OSDLook& look) {
        ImageSurface s(300, 200);
        drawPanel(s, appPanel(look), {0, 0, 300, 200});
        return s.pixels();
    };
    EXPECT_GT(differingShare(draw(builtInTheme("paper")->look), draw(builtInTheme("terminal")->look)), 0.2);
}

TEST(PanelGolden, LongTitlesAreCutByTheirMeasuredWidth) {
    // A row's title never paints into the space of its trailing Space label.
    auto m = appPanel(OSDLook::preset(WindowSwitcherAppearance::comfortable));
    ImageSurface narrow(260, 300), wide(900, 300);
    drawPanel(narrow, m, {0, 0, 260, 300});
    drawPanel(wide, m, {0, 0, 900, 300});
    // In the narrow panel the second row's right edge (the label) still has panel background left of
    // it: the title stopped short of it.
    auto px = narrow.pixels();
    const int rowY = 14 + 40 + 20;  // padding, first row, middle of the second
    int inkRight = 0;
    for (int x = 0; x < 260; ++x) {
        std::uint32_t p = px[std::size_t(rowY) * 260 + x];
        if (((p >> 16) & 0xFF) > 200) inkRight = x;
    }
    EXPECT_LT(inkRight, 260 - 8) << "text ran to the panel's edge";
}

}  // namespace
}  // namespace zelk::draw
