#include <cstdlib>
#include <fstream>

#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// A server that a test may stop and start as it likes.
class PostgresServerTest : public ::testing::Test {
protected:
    PostgresServerTest() { server("start"); }
    ~PostgresServerTest() override { server("remove"); }

    void server(const char* verb) {
        const std::string command =
            std::string("KES_ENGINE_LIFE=300 " KES_TEST_ENGINES "/postgres.sh ") + verb + " '" +
            folder.path("") + "'";
        ASSERT_EQ(0, std::system(command.c_str()));
    }

    void open(Model& model) {
        std::string url;
        std::getline(std::ifstream(folder.path("postgres/url")), url);
        model.open("postgres", url.c_str(), "", "", "");
    }

    TemporaryFolder folder;
};

TEST_F(PostgresServerTest, MayStopAndStartBetweenTransactions) {
    StaffModel model;
    open(model);
    model.startTransaction();
    model.newPerson("Ann", 30);
    model.commit();

    server("stop");
    EXPECT_NE("", messageRaisedBy([&] { model.findPerson("Ann"); }));
    model.close();
    EXPECT_RAISES("DBOPENERR", open(model));
    server("start");
    open(model);

    const Person* found = model.findPerson("Ann");
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(30, found->age);
}

TEST_F(PostgresServerTest, StoresNothingOfATransactionThatItStopsIn) {
    StaffModel model;
    open(model);
    model.startTransaction();
    const Pointer<Person> ann(model.newPerson("Ann", 30));
    model.commit();
    model.startTransaction();
    ann->lock();
    model.newPerson("Bob");

    server("stop");
    EXPECT_RAISES("COMFAIL", model.commit());
    server("start");
    model.close();
    open(model);

    EXPECT_EQ(nullptr, model.findPerson("Bob"));
    EXPECT_NE(nullptr, model.findPerson("Ann"));
    model.startTransaction();
    model.newPerson("Cid");
    model.commit();
}

}  // namespace Kes::testing
