#pragma once
#include <nlohmann/json.hpp>

namespace zelk {

// The holder of the program's top-level state and its start-up order.
class AppDelegate {
public:
    AppDelegate();
    ~AppDelegate();
    static AppDelegate* shared();

    void applicationWillFinishLaunching();
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    nlohmann::json handleCommand(const nlohmann::json& request);
};

}  // namespace zelk
