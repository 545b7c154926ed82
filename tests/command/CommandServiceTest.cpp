#include <gtest/gtest.h>

#include <filesystem>

#include "command/CLIClient.h"
#include "command/CommandService.h"
#include "input/AppDelegate.h"
#include "platform/sim/SimFixture.h"
#include "support/Log.h"

namespace zelk::command {
namespace {

using nlohmann::json;

struct CommandServiceTest : testing::SimFixture {
    std::string dir;
    void SetUp() override {
        ferrow::Log::setConsole(false);
        loadDefault();
        char tmpl[] = "/tmp/zelk-svc-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
    }
    void TearDown() override {
        std::filesystem::remove_all(dir);
        SimFixture::TearDown();
    }
    CLIServiceOptions options() {
        CLIServiceOptions o;
        o.location = SocketLocation{dir + "/cli.sock", false};
        o.clock = clock;
        return o;
    }
};

TEST_F(CommandServiceTest, TheDelegatesCommandEntryAndTheSocketShareOneDispatcher) {
    CommandService service(platformStatusProviders(), options());
    AppDelegate delegate(AppDelegate::Options{true});
    EXPECT_EQ(delegate.handleCommand({{"command", "status"}})["error"], "not available yet");
    service.attach(delegate);

    json viaDelegate = delegate.handleCommand({{"command", "status"}});
    EXPECT_EQ(viaDelegate["ok"], true);
    EXPECT_EQ(delegate.handleCommand({{"command", "status"}, {"windowID", -1}}).dump(),
              R"({"ok":false,"error":"invalid request"})");

    ASSERT_TRUE(delegate.startCommandServiceHook);
    delegate.startCommandServiceHook();
    ASSERT_NE(service.socket(), nullptr);
    CLIClient client;
    ASSERT_EQ(client.connect(dir + "/cli.sock"), ClientStatus::ok);
    std::string reply;
    ASSERT_EQ(client.request(R"({"command":"status"})", reply), ClientStatus::ok);
    EXPECT_EQ(json::parse(reply), viaDelegate);

    // Managers joining later show up on both roads.
    ManagerProviders providers;
    providers.listSpaces = [] { return std::vector<ZelkSpaceInfo>{{1, 1, true}}; };
    service.registerManagers(providers);
    ASSERT_EQ(client.request(R"({"command":"list-spaces"})", reply), ClientStatus::ok);
    EXPECT_EQ(json::parse(reply)["spaces"].size(), 1u);
    EXPECT_EQ(delegate.handleCommand({{"command", "list-spaces"}})["spaces"].size(), 1u);

    service.detach(delegate);
    service.stopSocket();
    EXPECT_FALSE(std::filesystem::exists(dir + "/cli.sock"));
}

}  // namespace
}  // namespace zelk::command
