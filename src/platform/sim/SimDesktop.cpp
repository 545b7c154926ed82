#include "platform/sim/SimDesktop.h"

#include "support/MainQueue.h"

namespace zelk::sim {

std::vector<platform::Screen> SimScreens::screens() {
    std::vector<platform::Screen> out;
    for (auto& d : world_.displays()) {
        platform::Screen s;
        s.displayID = d.id;
        s.name = d.name;
        s.uuid = d.uuid;
        s.frame = d.frame;
        s.visibleFrame = {d.frame.x, d.frame.y + d.menuBarHeight, d.frame.width,
                          d.frame.height - d.menuBarHeight};
        s.isBuiltin = d.builtin;
        out.push_back(s);
    }
    return out;
}

std::optional<platform::Screen> SimScreens::mainScreen() {
    auto all = screens();
    if (all.empty()) return std::nullopt;
    std::size_t index = world_.activeDisplay();
    if (const SimWindow* w = world_.window(world_.focusedWindow()))
        if (auto d = world_.displayIndexOfSpace(w->space)) index = *d;
    return all[std::min(index, all.size() - 1)];
}

void SimNotifications::postUserNotification(const std::string& identifier, const std::string& title,
                                            const std::string& body) {
    world_.postNotification(identifier, title, body);
}

void SimNotifications::postDistributed(const std::string& name, const platform::UserInfo& userInfo) {
    auto it = channels_.find(name);
    if (it == channels_.end()) return;
    auto channel = it->second;
    ferrow::mainAsync([channel, userInfo] { channel->emit(userInfo); });
}

ferrow::Subscription SimNotifications::observeDistributed(
    const std::string& name, std::function<void(const platform::UserInfo&)> callback) {
    auto& channel = channels_[name];
    if (!channel) channel = std::make_shared<ferrow::Signal<platform::UserInfo>>();
    return channel->subscribe(std::move(callback));
}

platform::ProcessResult SimProcesses::run(const platform::ProcessRequest& request) {
    requests.push_back(request);
    platform::ProcessResult r;
    if (request.program == "/usr/bin/open") {
        r.started = true;
        const auto& args = request.arguments;
        for (std::size_t i = 0; i + 1 < args.size(); ++i) {
            if (args[i] != "-a") continue;
            for (auto& app : world_.apps())
                if (app.path == args[i + 1] || app.name == args[i + 1]) {
                    world_.launch(app.bundleID, true);
                    r.exitCode = 0;
                    return r;
                }
        }
        r.exitCode = 1;
        r.errorOutput = "Unable to find application";
        return r;
    }
    std::string command = request.program;
    for (const auto& argument : request.arguments)
        command += " " + argument;
    if (auto it = world_.processes.find(command); it != world_.processes.end()) {
        r.started = true;
        if (it->second.timesOut) {
            // The child runs until its time-out ends it.
            ferrow::MainQueue::shared().clock().block(ferrow::seconds(request.timeoutSeconds));
            r.timedOut = true;
            return r;
        }
        r.exitCode = it->second.exitCode;
        r.output = it->second.output;
        return r;
    }
    r.exitCode = 127;
    r.errorOutput = request.program + ": not available on the simulated desktop";
    return r;
}

std::optional<std::string> SimProcesses::runScript(const std::string& source, std::string* error) {
    scripts.push_back(source);
    if (auto it = scriptAnswers.find(source); it != scriptAnswers.end()) return it->second;
    if (error) *error = "scripts are not available on the simulated desktop";
    return std::nullopt;
}

SimDesktop::SimDesktop() = default;

platform::Platform SimDesktop::platform(platform::SettingsStore* settings) {
    platform::Platform p;
    p.name = "simulated desktop";
    p.accessibility = &accessibility_;
    p.windowServer = &windowServer_;
    p.workspace = &workspace_;
    p.eventTap = &eventTap_;
    p.screens = &screens_;
    p.pointer = &pointer_;
    p.notifications = &notifications_;
    p.settings = settings ? settings : &settings_;
    p.processes = &processes_;
    p.mouse = &missionControl_;
    return p;
}

}  // namespace zelk::sim
