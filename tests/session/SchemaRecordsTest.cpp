#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/QuietDriver.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

/// What outlives the drivers of a test.
struct Store {
    std::map<std::pair<std::string, std::string>, int> versions;  // by kind and name
    std::vector<std::string> log;
    bool reads = true;
    bool commits = true;
};

/// Keeps records and no objects.
class KeepingDriver : public QuietDriver, public SchemaReader {
public:
    explicit KeepingDriver(Store& itsStore) : store(itsStore) { message = "it was told to fail"; }

    int getVersion(const String& name, const String& kind) override {
        const auto found = store.versions.find(key(kind, name));
        return found != store.versions.end() ? found->second : 0;
    }
    void setVersion(const String& name, int version, const String& kind) override {
        store.log.push_back(std::string(kind) + " " + static_cast<const char*>(name));
        store.versions[key(kind, name)] = version;
        if (version == 0)
            store.versions.erase(key(kind, name));
    }
    bool commit() override { return note("commit") && store.commits; }
    bool rollback() override { return note("rollback"); }
    bool readVersions(std::vector<StoredVersion>& versions) override {
        for (const auto& [record, version] : store.versions)
            versions.push_back({record.second.c_str(), record.first.c_str(), version});
        return store.reads;
    }
    String findMissingField(Class*) override { return ""; }

private:
    static std::pair<std::string, std::string> key(const String& kind, const String& name) {
        return {static_cast<const char*>(kind), static_cast<const char*>(name)};
    }

    bool note(const char* what) {
        store.log.emplace_back(what);
        return true;
    }

    Store& store;
};

}  // namespace

class SchemaRecordsTest : public ::testing::Test {
protected:
    std::string opening() {
        DrivenModel<StaffModel> model;
        return codeRaisedBy([&] { model.openWithDriver(new KeepingDriver(store)); });
    }

    std::ptrdiff_t count(const std::string& line) const {
        return std::count(store.log.begin(), store.log.end(), line);
    }

    Store store;
};

TEST_F(SchemaRecordsTest, TellsThemAfterTheVersionsInTheSameTransaction) {
    ASSERT_EQ("", opening());

    const auto ofModel = std::find(store.log.begin(), store.log.end(), "MODEL staff");
    const auto ofField = std::find(store.log.begin(), store.log.end(), "FIELD Person.name");
    EXPECT_LT(ofModel, ofField);
    EXPECT_LT(ofField, store.log.end());
    EXPECT_EQ("commit", store.log.back());
    EXPECT_EQ(1, count("commit"));
}

TEST_F(SchemaRecordsTest, WritesNothingWhenAllIsStored) {
    ASSERT_EQ("", opening());
    store.log.clear();

    ASSERT_EQ("", opening());

    EXPECT_EQ(std::vector<std::string>(), store.log);
}

TEST_F(SchemaRecordsTest, OpensADatabaseThatCannotTakeThem) {
    ASSERT_EQ("", opening());
    std::erase_if(store.versions,
                  [](const auto& each) { return each.first.second.starts_with("Person."); });
    store.commits = false;
    store.log.clear();

    DrivenModel<StaffModel> model;
    model.openWithDriver(new KeepingDriver(store));

    EXPECT_TRUE(model.isOpen());
    EXPECT_EQ(1, count("rollback"));
    EXPECT_EQ(FailureKind::None, model.getFailureKind());
}

TEST_F(SchemaRecordsTest, OpensNothingWhenTheyCannotBeRead) {
    ASSERT_EQ("", opening());
    store.reads = false;

    EXPECT_EQ("DBOPENERR", opening());

    store.versions.clear();
    store.log.clear();
    EXPECT_EQ("DBOPENERR", opening());
    EXPECT_EQ(0, count("commit"));
    EXPECT_EQ(1, count("rollback"));
}

// Another model's program has made the class since the records were read first.
TEST_F(SchemaRecordsTest, SeesAnOwnerThatCameBetween) {
    class Racing final : public KeepingDriver {
    public:
        explicit Racing(Store& itsStore) : KeepingDriver(itsStore), shared(itsStore) {}
        bool beginClassUpdate(Class*) override {
            shared.versions[{"OWNER", "Person.other"}] = 1;
            return true;
        }

    private:
        Store& shared;
    };
    DrivenModel<StaffModel> model;

    EXPECT_RAISES("DECLERR", model.openWithDriver(new Racing(store)));

    EXPECT_FALSE(model.isOpen());
    EXPECT_EQ(1, count("rollback"));
    EXPECT_EQ(0, count("commit"));
}

TEST_F(SchemaRecordsTest, StaysClosedWhenTheHandlerReturns) {
    store.versions[{"OWNER", "Person.other"}] = 1;
    const ReturningHandler handler;
    DrivenModel<StaffModel> model;

    model.openWithDriver(new KeepingDriver(store));

    EXPECT_FALSE(model.isOpen());
    EXPECT_EQ(std::vector<std::string>{"DECLERR"}, handler.codes());
}

}  // namespace Kes::testing
