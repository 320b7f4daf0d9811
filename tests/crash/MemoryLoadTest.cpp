// Every allocation fails while an object in memory is brought up to date.

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

#include "tests/crash/FaultyMemory.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class MemoryLoadTest : public ::testing::TestWithParam<bool> {
protected:
    MemoryLoadTest() {
        model.openWith("sqlite", file.c_str());
        model.startTransaction();
        ann = model.newPerson(oldName.c_str(), 1);
        const Pointer<Company> firm(model.newCompany("Firm"));
        ann->employer = firm;
        model.commit();
        PlainSqlite(file).run("UPDATE Person SET name = '" + newName +
                              "', age = 2, salary = 2, employer = NULL, KesVersion = 1");
    }

    // The first allocation fails, then the second, until none is left to fail.
    void expectWholeAfter(const std::function<void()>& load) {
        unsigned long at = 0;
        for (bool isReached = true; isReached && at < 1000;) {
            FaultyMemory::set(++at, GetParam());
            try {
                load();
            } catch (const Exception&) {
            } catch (const std::bad_alloc&) {}
            isReached = FaultyMemory::hasStruck();
            FaultyMemory::clear();
            const bool isNew = ann->getVersion() == 1;
            EXPECT_STREQ((isNew ? newName : oldName).c_str(), ann->name) << at;
            EXPECT_EQ(isNew ? 2 : 1, ann->age) << at;
            EXPECT_EQ(isNew ? 2 : 0, ann->salary) << at;
            EXPECT_EQ(isNew, ann->employer.get() == nullptr) << at;
        }
        EXPECT_GT(at, 2U);
        EXPECT_EQ(1UL, ann->getVersion());
    }

    const std::string oldName = std::string(200, 'o');
    const std::string newName = std::string(300, 'n');
    TemporaryFolder folder;
    std::string file = folder.path("staff.db");
    StaffModel model;
    Pointer<Person> ann;
};

TEST_P(MemoryLoadTest, LeavesTheObjectOfARefreshWhole) {
    expectWholeAfter([&] { ann->refresh(); });
}

TEST_P(MemoryLoadTest, LeavesTheObjectOfAQueryWhole) {
    expectWholeAfter([&] {
        SelectionOf<Person> people(model.personClass);
        while (people.next())
            continue;
    });
}

INSTANTIATE_TEST_SUITE_P(Repeats, MemoryLoadTest, ::testing::Values(false, true),
                         [](const auto& each) { return each.param ? "FromThenOn" : "Once"; });

}  // namespace Kes::testing
