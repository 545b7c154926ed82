#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/Observable.h"

namespace zelk::platform {

// The preferences store of the domain "com.ferrowlabs.zelk": named values in their stored form
// (JSON here). Writes notify observers on the writer's thread; changes made outside the program
// (another process, a replay event) notify them too.
class SettingsStore {
  public:
    static constexpr const char* kDomain = "com.ferrowlabs.zelk";
    virtual ~SettingsStore() = default;
    virtual std::optional<nlohmann::json> read(const std::string& key) const = 0;
    virtual void write(const std::string& key, const nlohmann::json& value) = 0;
    virtual void remove(const std::string& key) = 0;
    virtual std::vector<std::string> keys() const = 0;
    // Flushes to durable storage; false when that failed (the values stay in memory).
    virtual bool synchronize() = 0;
    [[nodiscard]] ferrow::Subscription observe(std::function<void(const std::string& key)> callback) {
        return changed_.subscribe(std::move(callback));
    }

    // Holds a run of changes in memory until the outermost batch ends, then saves them at once, so
    // that many writes (the migrations at start) cost one write of the document instead of one each.
    // Observers still hear of every change as it is made. Main thread only.
    class Batch {
      public:
        explicit Batch(SettingsStore& store) : store_(store) { store_.beginBatch(); }
        ~Batch() { store_.endBatch(); }
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

      private:
        SettingsStore& store_;
    };

  protected:
    void notifyChanged(const std::string& key) { changed_.emit(key); }
    // A store that writes through may hold its writes between these; the default writes as it goes.
    virtual void beginBatch() {}
    virtual void endBatch() {}

  private:
    ferrow::Signal<std::string> changed_;
};

// A store that lives in memory only: the simulated desktop's, and tests'.
class MemorySettingsStore final : public SettingsStore {
  public:
    std::optional<nlohmann::json> read(const std::string& key) const override;
    void write(const std::string& key, const nlohmann::json& value) override;
    void remove(const std::string& key) override;
    std::vector<std::string> keys() const override;
    bool synchronize() override { return true; }

  private:
    std::map<std::string, nlohmann::json> values_;
};

}  // namespace zelk::platform
