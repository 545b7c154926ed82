#include "companions/TactoraPayload.h"

#include <string_view>

namespace zelk::companions {

namespace {

constexpr std::string_view kKeys = "abcdefghijklmnopqrstuvwxyz0123456789";

std::string symbol(std::string_view name, std::string_view caption) {
    return "symtext:" + std::string(name) + "|" + std::string(caption);
}

void addAppBindings(const TactoraBindingInputs& in, TactoraPayload& out) {
    if (!in.bindingsOf) return;
    for (char c : kKeys) {
        const std::string key(1, c);
        for (const auto& b : in.bindingsOf(key)) {
            if (b.bundleID.empty()) continue;
            if (in.onlyRunningAndStatic && !b.running && !b.isStatic) continue;
            out[key] = "a:" + b.bundleID;
            break;
        }
    }
}

// Digits name Spaces: those that exist, a "+" where a switch would create one, none otherwise; 0
// reaches the previous window's app.
void addSpaceDigits(const TactoraBindingInputs& in, TactoraPayload& out) {
    if (!in.multiSpace) return;
    for (int i = 1; i <= 9; ++i) {
        const std::string key = std::to_string(i);
        if (i <= in.spaceCount)
            out[key] = symbol(key + ".square", "Space");
        else if (in.createMissingSpaces)
            out[key] = symbol("plus.square", "Space");
        else
            out.erase(key);
    }
    if (in.previousWindowBundleID && !in.previousWindowBundleID->empty())
        out["0"] = "a:" + *in.previousWindowBundleID;
    else
        out.erase("0");
}

void addSpecialKeys(const TactoraBindingInputs& in, TactoraPayload& out) {
    if (in.hideAndSettingsKeys) {
        out[in.minimizeKey] = symbol("eye.slash", "Hide");
        out[in.specialKey] = symbol("line.3.horizontal", "Menu");
    }
    if (in.exposeOverlay || in.hideAndSettingsKeys) out[in.exposeKey] = symbol("rectangle.3.group", "Expose");
    if (in.tabCycle) out["tab"] = symbol("arrow.left.arrow.right", "Cycle");
    if (in.windowCycleKeyEnabled) out[in.windowCycleKey] = symbol("rectangle.on.rectangle", "Windows");
}

}  // namespace

TactoraPayload buildTactoraBindings(const TactoraBindingInputs& in) {
    TactoraPayload out;
    addAppBindings(in, out);
    addSpaceDigits(in, out);
    addSpecialKeys(in, out);
    return out;
}

TactoraPayload tactoraShowPayload(TactoraPayload p, TactoraFillMode fill, bool darkAppearance) {
    p["position"] = "bottom";
    p["offset"] = "0:100";
    p["width"] = "1000";
    p["fill"] = std::string(enumRaw(fill));
    p["dimBlankModifierKeys"] = "1";
    // Built as a string first: assigning the literal straight away trips a false -Wrestrict in GCC 12.
    p["theme"] = std::string(darkAppearance ? "zelk dark" : "zelk light");
    return p;
}

}  // namespace zelk::companions
