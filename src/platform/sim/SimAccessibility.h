#pragma once
#include <map>
#include <set>

#include "platform/Accessibility.h"
#include "platform/sim/SimWorld.h"

namespace zelk::sim {

// Elements a part of the simulated desktop shows above the windows (the Mission Control overlay),
// hung under one app's element. Nodes are numbered by the tree; 0 is none.
class SimElementTree {
  public:
    virtual ~SimElementTree() = default;
    virtual std::int32_t ownerPid() const = 0;
    virtual std::vector<std::uint32_t> roots() = 0;
    // nullopt: the node has no such value.
    virtual std::optional<platform::AXValue> attribute(std::uint32_t node, const std::string& attr) = 0;
    virtual bool press(std::uint32_t node) = 0;
};

// Accessibility over the simulated world. Only windows on a Space that its display shows are visible;
// an app with the time-out fault blocks every call for the element's messaging time-out and answers
// -25204; without the permission every call answers -25211.
class SimAccessibility final : public platform::Accessibility {
  public:
    explicit SimAccessibility(SimWorld& world);
    ~SimAccessibility() override;

    bool isProcessTrusted() override { return world_.permissions.accessibility; }
    bool isProcessTrustedWithPrompt(bool prompt) override;
    platform::AXRef applicationElement(std::int32_t pid) override;
    platform::AXRef systemWideElement() override { return kSystemWide; }
    void setMessagingTimeout(platform::AXRef element, double seconds) override;
    platform::AXResult<platform::AXValue> copyAttribute(platform::AXRef element,
                                                        const std::string& attribute) override;
    platform::AXError setAttribute(platform::AXRef element, const std::string& attribute,
                                   const platform::AXValue& value) override;
    platform::AXError performAction(platform::AXRef element, const std::string& action) override;
    platform::AXResult<platform::AXRef> elementAtPosition(platform::AXRef application, Point point) override;
    std::uint32_t windowNumber(platform::AXRef window) override;
    std::int32_t pidOf(platform::AXRef element) override { return pidIn(element); }
    static std::int32_t pidIn(platform::AXRef element) {
        return static_cast<std::int32_t>((element >> 32) & 0xFFFFFF);
    }
    std::uint64_t createObserver(std::int32_t pid, ObserverCallback callback) override;
    platform::AXError addNotification(std::uint64_t observer, platform::AXRef element,
                                      const std::string& notification) override;
    platform::AXError removeNotification(std::uint64_t observer, platform::AXRef element,
                                         const std::string& notification) override;
    void destroyObserver(std::uint64_t observer) override;

    static platform::AXRef windowElement(std::int32_t pid, std::uint32_t window);
    // The tree shown under its owner's element ("AXChildren"); null for none.
    void setElementTree(SimElementTree* tree) { tree_ = tree; }

    // Calls made, for tests: "copyAttribute pid=501 AXWindows", ...
    std::size_t callCount() const { return calls_; }
    int promptCount() const { return prompts_; }
    // Observers alive for the app, for tests.
    std::size_t observerCount(std::int32_t pid) const {
        std::size_t n = 0;
        for (auto& [id, o] : observers_)
            n += o.pid == pid;
        return n;
    }

  private:
    enum class Kind : std::uint8_t {
        none = 0,
        app = 1,
        window = 2,
        systemWide = 3,
        closeButton = 4,
        extrasMenuBar = 5,
        menuExtra = 6,
        treeNode = 7,
        webContent = 8,  // the scroll area a window's page sits in
        webArea = 9
    };
    static constexpr platform::AXRef kSystemWide = platform::AXRef(3) << 56;
    static platform::AXRef make(Kind kind, std::int32_t pid, std::uint32_t window);
    static Kind kindOf(platform::AXRef ref) { return static_cast<Kind>(ref >> 56); }
    static std::uint32_t windowOf(platform::AXRef ref) {
        return static_cast<std::uint32_t>(ref & 0xFFFFFFFF);
    }
    // Decides the fate of a call: blocked time, dead app, no permission. success to go on.
    platform::AXError gate(platform::AXRef element);
    const SimWindow* visibleWindow(platform::AXRef element) const;
    void onChange(const WorldChange& change);
    void fire(std::int32_t pid, std::uint32_t window, const std::string& notification);

    SimWorld& world_;
    std::map<platform::AXRef, double> timeouts_;
    std::size_t calls_ = 0;
    int prompts_ = 0;
    struct Observer {
        std::int32_t pid;
        ObserverCallback callback;
        std::set<std::pair<platform::AXRef, std::string>> registrations;
    };
    std::map<std::uint64_t, Observer> observers_;
    std::uint64_t nextObserver_ = 1;
    ferrow::Subscription subscription_;
    SimElementTree* tree_ = nullptr;
};

}  // namespace zelk::sim
