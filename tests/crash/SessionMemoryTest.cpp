// Each allocation of programs that work with a model fails in turn. What was
// acknowledged is stored and nothing else is, memory shows what is stored, the
// model goes on, and what was taken is given back.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "tests/crash/EachAllocation.h"
#include "tests/crash/StaffContents.h"
#include "tests/crash/StaffPrograms.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Recording.h"

namespace Kes::testing {

namespace {

// Works on whatever an earlier program has left, and takes back all of the
// history, that of the earlier program too.
void goOn(StaffModel& model) {
    model.garbageCollect();
    model.startTransaction();
    const Pointer<Person> one(model.newPerson("one who came later", 3));
    const Pointer<Person> other(model.newPerson("another", 4));
    one->spouse = other;
    one->friends.add(other);
    one->employer = model.newCompany("a later firm");
    model.commit();
    other->change();
    other->age = 5;
    other->employer = one->employer;
    model.commit();
}

}  // namespace

class SessionMemoryTest
    : public ::testing::TestWithParam<std::tuple<StaffProgram, bool, const char*>> {
protected:
    SessionMemoryTest() {
        StaffModel model;
        model.openWith("sqlite", base.c_str(), Options);
        fillStaff(model);
        model.close();
        original = storedStaff(base, false);
    }

    void openCopy(StaffModel& model) {
        for (const char* end : {"", "-wal", "-shm"})
            std::filesystem::remove(file + end);
        std::filesystem::copy_file(base, file);
        model.openWith(std::get<2>(GetParam()), file.c_str(), Options);
        Recording::get().log.clear();
    }

    // What is stored at first and after each step that the program reports.
    std::vector<std::string> outcomesOf(const StaffProgram& program) {
        StaffModel model;
        openCopy(model);
        std::vector<std::string> found{storedStaff(file, true)};
        program.run(model, [&] { found.push_back(storedStaff(file, true)); });
        return found;
    }

    void expectMemoryAsStored(StaffModel& model, FailingRound& round) {
        const long before = FaultyMemory::live();
        const std::string& expected = shownByNewModel();
        round.kept += FaultyMemory::live() - before;
        EXPECT_EQ(expected, shownStaff(model));
    }

    const std::string& shownByNewModel() {
        std::string& text = shown[storedStaff(file, true)];
        if (text.empty()) {
            StaffModel model;
            model.openWith("sqlite", file.c_str(), Options);
            text = shownStaff(model);
        }
        return text;
    }

    void runRound(const StaffProgram& program, FailingRound& round) try {
        StaffModel model;
        openCopy(model);
        std::size_t done = 0;
        round.bears([&] { program.run(model, [&] { ++done; }); });
        if (model.transactionStarted())
            model.rollback();
        ASSERT_LT(done, outcomes.size());
        if (program.outlivesOne && !std::get<1>(GetParam())) {
            ASSERT_EQ(outcomes.size(), done + 1);
        }
        ASSERT_EQ(outcomes[done], storedStaff(file, true));
        expectMemoryAsStored(model, round);
        goOn(model);
        for (int i = 0; model.isUndoable() && i < 20; ++i)
            model.undo();
        EXPECT_EQ(original, storedStaff(file, false));
        expectMemoryAsStored(model, round);
    } catch (const Exception& unexpected) {
        ADD_FAILURE() << unexpected.getCode() << ": " << unexpected.getMessage();
    }

    static constexpr const char* Options = "synchronous=off;journal_mode=memory";

    TemporaryFolder folder;
    std::string base = folder.path("base.db");
    std::string file = folder.path("staff.db");
    std::string original;  // the contents of the base
    std::vector<std::string> outcomes;
    std::map<std::string, std::string> shown;  // what memory shows, by what is stored
};

TEST_P(SessionMemoryTest, LosesNothingAndGoesOn) {
    const StaffProgram& program = std::get<0>(GetParam());
    const bool goesOn = std::get<1>(GetParam());
    outcomes = outcomesOf(program);
    FailingRound first(0, false);
    runRound(program, first);  // what is made once and kept is there now
    Recording::get().reset();
    const unsigned long failures = failEachAllocation(
        goesOn,
        [&](FailingRound& round) {
            runRound(program, round);
            Recording::get().reset();
        },
        12);
    RecordProperty("failures", static_cast<int>(failures));
    EXPECT_GT(failures, 20U);
}

namespace {

std::string nameOf(const ::testing::TestParamInfo<SessionMemoryTest::ParamType>& each) {
    const auto& [program, goesOn, driver] = each.param;
    return std::string(program.name) + (goesOn ? "FromThenOn" : "Once");
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Sqlite, SessionMemoryTest,
                         ::testing::Combine(::testing::ValuesIn(staffPrograms()),
                                            ::testing::Values(false, true),
                                            ::testing::Values("sqlite")),
                         nameOf);

// Allocations of the driver itself, between those of the library and the database.
INSTANTIATE_TEST_SUITE_P(Recording, SessionMemoryTest,
                         ::testing::Combine(::testing::ValuesIn(staffPrograms()),
                                            ::testing::Values(false),
                                            ::testing::Values("recording")),
                         nameOf);

}  // namespace Kes::testing
