// The X11 backend's pure parts: the key mapping, desktop entries, the change feed and swipe decoding.
#include <gtest/gtest.h>

#include "platform/EventTap.h"
#include "platform/x11/ChangeFeed.h"
#include "platform/x11/DesktopEntries.h"
#include "platform/x11/KeyMap.h"
#include "platform/x11/X11Desktop.h"

namespace zelk::x11 {
namespace {

// A small US layout: X key codes as Xvfb's default keymap has them.
std::vector<std::uint32_t> usKeysyms() {
    std::vector<std::uint32_t> k(256, 0);
    k[38] = 'a';
    k[57] = 'n';
    k[23] = 0xff09;   // Tab
    k[133] = 0xffeb;  // Super_L
    k[134] = 0xffec;  // Super_R
    k[64] = 0xffe9;   // Alt_L
    k[108] = 0xffea;  // Alt_R
    k[66] = 0xffe5;   // Caps_Lock
    k[90] = 0xffb0;   // KP_0
    k[67] = 0xffbe;   // F1
    return k;
}

TEST(X11KeyMap, SidedModifiersBecomeTheSidedTriggerKeys) {
    KeyMap map(usKeysyms());
    EXPECT_EQ(map.logicalCode(134), keycode::rightCommand);
    EXPECT_EQ(map.logicalCode(133), keycode::command);
    EXPECT_EQ(map.logicalCode(108), keycode::rightOption);
    EXPECT_EQ(map.logicalCode(64), keycode::option);
    EXPECT_EQ(map.logicalCode(66), keycode::capsLock);
    ASSERT_TRUE(map.modifier(134));
    EXPECT_EQ(map.modifier(134)->deviceBit, platform::flag::rcmd);
    EXPECT_EQ(map.modifier(134)->genericBit, platform::flag::command);
    EXPECT_EQ(map.modifier(108)->deviceBit, platform::flag::ralt);
    EXPECT_FALSE(map.modifier(38));
}

TEST(X11KeyMap, TypingKeysCarryTheQwertyCodeOfWhatTheLayoutTypes) {
    auto syms = usKeysyms();
    KeyMap us(syms);
    EXPECT_EQ(us.logicalCode(38), qwertyKeyCode(Key::a));
    EXPECT_EQ(us.logicalCode(23), qwertyKeyCode(Key::tab));
    EXPECT_EQ(us.logicalCode(90), qwertyKeyCode(Key::keypadZero));
    EXPECT_EQ(us.logicalCode(67), qwertyKeyCode(Key::f1));
    EXPECT_FALSE(us.logicalCode(200));
    // Another layout puts "q" where "a" is: the key code follows the character, not the position.
    syms[38] = 'q';
    KeyMap azerty(syms);
    EXPECT_EQ(azerty.logicalCode(38), qwertyKeyCode(Key::q));
    EXPECT_EQ(azerty.xKeyCode(Key::q), 38);
    EXPECT_FALSE(azerty.xKeyCode(Key::a));
    EXPECT_EQ(azerty.xKeyCodeForLogical(*qwertyKeyCode(Key::q)), 38);
}

TEST(X11KeyMap, OnlyTypingKeysAreGrabbed) {
    KeyMap map(usKeysyms());
    auto codes = map.typingKeyCodes();
    EXPECT_EQ(codes, (std::vector<std::uint8_t>{23, 38, 57, 67, 90}));
}

TEST(X11KeyMap, KeysymsAndKeysRoundTrip) {
    EXPECT_EQ(keyForKeysym('A'), Key::a);
    EXPECT_EQ(keyForKeysym(0xff0d), Key::return_);
    EXPECT_EQ(keyForKeysym(0xff63), Key::help);  // Insert sits where Help is
    EXPECT_EQ(keyForKeysym(0xfe03), std::nullopt);
    EXPECT_EQ(modifierForKeysym(0xfe03)->keyCode, keycode::rightOption);  // AltGr is the right Option
    for (Key k : {Key::a, Key::seven, Key::minus, Key::f12, Key::keypadNine, Key::escape, Key::space})
        EXPECT_EQ(keyForKeysym(*keysymForKey(k)), k) << keyName(k);
}

TEST(X11DesktopEntries, ParsesTheApplicationGroupOnly) {
    auto e = parseDesktopEntry(
        "# comment\n[Desktop Entry]\nType=Application\nName=Text Editor\nExec=gedit %U\n"
        "StartupWMClass=Gedit\nCategories=Utility;\n[Desktop Action new]\nName=New Window\nExec=gedit "
        "--new\n",
        "/usr/share/applications/org.gnome.gedit.desktop");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->id, "org.gnome.gedit");
    EXPECT_EQ(e->name, "Text Editor");
    EXPECT_EQ(e->exec, "gedit %U");
    EXPECT_EQ(e->identifier(), "Gedit");
    EXPECT_FALSE(e->hidden);
    EXPECT_FALSE(parseDesktopEntry("[Desktop Entry]\nType=Link\nName=Site\n", "/x/site.desktop"));
    EXPECT_FALSE(parseDesktopEntry("[Desktop Entry]\nType=Application\n", "/x/noname.desktop"));
    auto hidden =
        parseDesktopEntry("[Desktop Entry]\nType=Application\nName=Agent\nNoDisplay=true\n", "/x/a.desktop");
    ASSERT_TRUE(hidden);
    EXPECT_TRUE(hidden->hidden);
    EXPECT_EQ(hidden->identifier(), "a");
}

TEST(X11DesktopEntries, ExecLinesSplitIntoArgumentsWithoutFieldCodes) {
    EXPECT_EQ(execArguments("gedit %U"), (std::vector<std::string>{"gedit"}));
    EXPECT_EQ(execArguments("\"/opt/My App/run\" --name \"a \\\"b\\\"\" %f"),
              (std::vector<std::string>{"/opt/My App/run", "--name", "a \"b\""}));
    EXPECT_EQ(execArguments("printf 100%%"), (std::vector<std::string>{"printf", "100%"}));
    EXPECT_EQ(execArguments("  "), std::vector<std::string>{});
}

TEST(X11DesktopEntries, ClassesFindTheirEntry) {
    std::vector<DesktopEntry> entries{
        {"/a/firefox-esr.desktop", "firefox-esr", "Firefox", "firefox", "", "", false},
        {"/a/term.desktop", "term", "Terminal", "term", "XTerm", "", false}};
    EXPECT_EQ(entryForClass(entries, "XTerm", "xterm"), &entries[1]);
    EXPECT_EQ(entryForClass(entries, "Firefox-esr", "Navigator"), &entries[0]);
    EXPECT_EQ(entryForClass(entries, "Mail", "mail"), nullptr);
}

Snapshot snapshot(std::vector<Client> clients, std::uint32_t active, std::uint32_t desktop = 0) {
    Snapshot s;
    s.clients = std::move(clients);
    s.active = active;
    s.currentDesktop = desktop;
    s.desktopCount = 4;
    return s;
}

TEST(X11ChangeFeed, ReportsWindowsAppsFocusAndDesktop) {
    using K = Change::Kind;
    Client mail{1, 100, "Inbox", "mail", "Mail"};
    Client notes{2, 200, "Shopping", "notes", "Notes"};
    auto before = snapshot({mail, notes}, 1);
    Client renamed = notes;
    renamed.title = "Groceries";
    renamed.hidden = true;
    Client term{3, 300, "shell", "term", "Terminal"};
    auto after = snapshot({renamed, term}, 3, 1);
    auto changes = diffSnapshots(before, after);
    std::vector<Change> expected{{K::appLaunched, 300},
                                 {K::titleChanged, 200, 2},
                                 {K::minimized, 200, 2},
                                 {K::windowCreated, 300, 3},
                                 {K::windowDestroyed, 100, 1},
                                 {K::appTerminated, 100},
                                 {K::focusedWindowChanged, 300, 3},
                                 {K::appActivated, 300, 3, 100},
                                 {K::desktopChanged}};
    EXPECT_EQ(changes, expected);
    EXPECT_TRUE(diffSnapshots(after, after).empty());
}

TEST(X11ChangeFeed, FocusWithinAnAppIsNoActivation) {
    using K = Change::Kind;
    Client a{1, 100, "One", "mail", "Mail"}, b{2, 100, "Two", "mail", "Mail"};
    auto changes = diffSnapshots(snapshot({a, b}, 1), snapshot({a, b}, 2));
    EXPECT_EQ(changes, (std::vector<Change>{{K::focusedWindowChanged, 100, 2}}));
}

platform::GestureEvent swipe(std::int64_t phase, double progress) {
    platform::GestureEvent e;
    e.integers = {{55, 30}, {110, 23}, {132, phase}};
    e.doubles = {{124, progress}};
    return e;
}

TEST(X11SwipeDecoder, ABeganAndEndedSwipeIsOneDesktopStep) {
    SwipeDecoder d;
    EXPECT_EQ(d.post(swipe(4, 1)), 0);  // an end with no begin
    EXPECT_EQ(d.post(swipe(1, 1)), 0);
    EXPECT_EQ(d.post(swipe(4, 1)), 1);
    EXPECT_EQ(d.post(swipe(1, -1)), 0);
    EXPECT_EQ(d.post(swipe(4, -1)), -1);
    platform::GestureEvent plain;
    plain.integers = {{55, 29}};
    EXPECT_EQ(d.post(plain), 0);
    auto newest = swipe(1, -1);
    newest.integers[134] = 1;
    d.post(newest);
    newest.integers[132] = 4;
    EXPECT_EQ(d.post(newest), 1);  // the newest form's sign is reversed
}

TEST(X11Spaces, DesktopsAndSpacesMapOneToOne) {
    EXPECT_EQ(spaceForDesktop(0), 1u);
    EXPECT_EQ(desktopForSpace(4, 4), 3u);
    EXPECT_FALSE(desktopForSpace(0, 4));
    EXPECT_FALSE(desktopForSpace(5, 4));
}

}  // namespace
}  // namespace zelk::x11
