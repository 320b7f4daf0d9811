// A driver that notes every call and fails where a test told it to. Otherwise
// SQLite does the work, or nothing is done at all.

#include <map>
#include <memory>
#include <string>

#include <kes/DBDriverManager.h>
#include <kes/Failure.h>
#include <kes/Instance.h>

#include "tests/support/QuietDriver.h"
#include "tests/support/Recording.h"
#include "tools/faulty/FaultyDriver.h"

namespace Kes::testing {

namespace {

/// Remembers the versions alone.
class EmptyDriver final : public QuietDriver {
public:
    int getVersion(const String& name, const String&) override {
        const auto known = versions.find(static_cast<const char*>(name));
        return known != versions.end() ? known->second : 0;
    }
    void setVersion(const String& name, int version, const String&) override {
        versions[static_cast<const char*>(name)] = version;
    }

private:
    std::map<std::string, int> versions = Recording::get().versions;
};

class RecordingDriver final : public faulty::FaultyDriver, public FailureReporter {
public:
    RecordingDriver() : FaultyDriver(std::shared_ptr<faulty::Faults>(&Recording::get(), keep)) {}

    bool open(const String& source, const String& password, const String& user,
              const String& options) override {
        Recording::get().password = password;
        Recording::get().user = user;
        Recording::get().options = options;
        return FaultyDriver::open(source, password, user, options);
    }

    bool refresh(Instance* instance) override {
        const bool isCurrent = FaultyDriver::refresh(instance);
        findsRemoved = Recording::get().removedElsewhere.contains(instance->getObjectID());
        return isCurrent && !findsRemoved;
    }
    const DBDriverStatus* getStatus() override {
        return findsRemoved ? &removed : FaultyDriver::getStatus();
    }

    FailureKind getFailureKind() const override {
        if (report->kind != FailureKind::None)
            return report->kind;
        const auto* inner = dynamic_cast<const FailureReporter*>(real.get());
        return inner != nullptr ? inner->getFailureKind() : FailureKind::None;
    }
    void forgetFailure() override {
        report->kind = FailureKind::None;
        if (auto* inner = dynamic_cast<FailureReporter*>(real.get()))
            inner->forgetFailure();
    }

protected:
    bool prepare(const std::string& source, const std::string& options,
                 String& realOptions) override {
        realOptions = options.c_str();
        if (source == Recording::NoDatabase)
            real = std::make_unique<EmptyDriver>();
        else
            real.reset(DBDriverManager::getDBDriver("sqlite"));
        return real != nullptr || refuse("there is no driver \"sqlite\"");
    }

private:
    static void keep(faulty::Faults*) {}

    DBDriverStatus removed{DBDriverStatus::Removed};
    bool findsRemoved = false;
};

}  // namespace

}  // namespace Kes::testing

extern "C" KES_EXPORT Kes::DBDriver* gdd();

Kes::DBDriver* gdd() {
    return new Kes::testing::RecordingDriver;
}
