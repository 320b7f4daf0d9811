#include "tests/typed/Tracker.h"

namespace Kes::testing {

using namespace std::chrono;

class ObjectTest : public TypedTest {
protected:
    static std::vector<std::string> titles(Database& from) {
        std::vector<std::string> found;
        for (const Ticket& ticket : from.query<Ticket>())
            found.push_back(ticket.title);
        std::sort(found.begin(), found.end());
        return found;
    }

    // A project with a ticket and a bug.
    Ref<Project> fill(Database& into) {
        return into.transact([](Transaction& tx) {
            Ref<Project> project = tx.make<Project>([](Project& p) { p.name = "Kes"; });
            tx.make<Ticket>([&](Ticket& t) {
                t.title = "Write a page";
                t.project = project;
            });
            tx.make<Bug>([&](Bug& b) {
                b.title = "Crash on open";
                b.severity = 1;
                b.project = project;
            });
            return project;
        });
    }

    std::unique_ptr<Database> db = open(trackerSchema());
};

TEST_F(ObjectTest, ComesBackAsItWasStored) {
    unsigned long id = 0;
    db->transact([&](Transaction& tx) {
        Ref<Ticket> made = tx.make<Ticket>();
        Ticket& draft = tx.edit(made);
        draft.title = "T\xC3\xA4glich";
        draft.state = State::Doing;
        draft.due = 2024y / June / 28;
        draft.estimate = Decimal<2>("12.5");
        id = made.getObjectID();
    });

    const auto other = open(trackerSchema());
    const Ref<Ticket> read = other->find<Ticket>(id);

    ASSERT_TRUE(read);
    EXPECT_EQ("T\xC3\xA4glich", read->title);
    EXPECT_EQ(State::Doing, read->state);
    EXPECT_EQ(std::optional(2024y / June / 28), read->due);
    EXPECT_EQ("12.50", read->estimate.toString());
}

TEST_F(ObjectTest, IsDeliveredByQueriesForItsClassAndTheSuperClass) {
    fill(*db);

    EXPECT_EQ((std::vector<std::string>{"Crash on open", "Write a page"}), titles(*db));
    int bugs = 0;
    for (const Bug& bug : db->query<Bug>()) {
        EXPECT_EQ(1, bug.severity);
        ++bugs;
    }
    EXPECT_EQ(1, bugs);
    EXPECT_EQ("Kes", db->query<Project>().first()->name);
    EXPECT_FALSE(db->query<Label>().first());
}

TEST_F(ObjectTest, IsLinkedFromBothEnds) {
    const Ref<Project> project = fill(*db);
    const Ref<Bug> bug = db->query<Bug>().first();

    EXPECT_EQ(2U, project->tickets.size());
    EXPECT_EQ("Kes", bug->project->name);
    EXPECT_TRUE(bug->project == project);
    EXPECT_TRUE(project->tickets.contains(bug));

    db->transact([&](Transaction& tx) { tx.edit(bug).project = nullptr; });

    EXPECT_EQ(1U, project->tickets.size());
    EXPECT_FALSE(bug->project);
    const auto other = open(trackerSchema());
    EXPECT_EQ(1U, other->query<Project>().first()->tickets.size());
}

TEST_F(ObjectTest, IsLinkedManyToMany) {
    fill(*db);
    db->transact([&](Transaction& tx) {
        const Ref<Label> urgent = tx.make<Label>([](Label& l) { l.word = "urgent"; });
        for (const Ticket& ticket : db->query<Ticket>())
            tx.edit(ticket).labels.add(urgent);
    });

    const auto other = open(trackerSchema());
    std::vector<std::string> found;
    for (const Ticket& ticket : other->query<Label>().first()->tickets)
        found.push_back(ticket.title);
    std::sort(found.begin(), found.end());
    EXPECT_EQ((std::vector<std::string>{"Crash on open", "Write a page"}), found);
}

TEST_F(ObjectTest, TakesThoseWithItThatItsLinkCascadesTo) {
    const Ref<Project> project = fill(*db);

    db->transact([&](Transaction& tx) { tx.remove(project); });

    EXPECT_TRUE(titles(*db).empty());
    EXPECT_TRUE(titles(*open(trackerSchema())).empty());
}

TEST_F(ObjectTest, IsAsBeforeWhenTheWorkThrows) {
    const Ref<Project> project = fill(*db);
    const Ref<Bug> bug = db->query<Bug>().first();
    struct Stop {};

    EXPECT_THROW(db->transact([&](Transaction& tx) {
        tx.edit(bug).title = "Other";
        tx.edit(bug).project = nullptr;
        tx.edit(bug).due = 2024y / June / 28;
        tx.make<Ticket>();
        tx.remove(project);
        throw Stop();
    }),
                 Stop);

    EXPECT_EQ("Crash on open", bug->title);
    EXPECT_EQ(std::nullopt, bug->due);
    EXPECT_TRUE(bug->project == project);
    EXPECT_EQ(2U, project->tickets.size());
    EXPECT_EQ(2U, titles(*db).size());
}

TEST_F(ObjectTest, StaysWhileARefHoldsItWhateverIsFreed) {
    DatabaseOptions small;
    small.cacheCapacity = 10;
    const auto tight = open(trackerSchema(), small);
    std::vector<unsigned long> ids;
    tight->transact([&](Transaction& tx) {
        for (int i = 0; i < 300; ++i)
            ids.push_back(
                tx.make<Ticket>([&](Ticket& t) { t.title = std::to_string(i); }).getObjectID());
    });

    const Ref<Ticket> first = tight->find<Ticket>(ids[0]);
    std::vector<Ref<Ticket>> kept;
    for (const Ticket& ticket : tight->query<Ticket>()) {
        for (int i = 0; i < 3; ++i)
            tight->find<Ticket>(ids[static_cast<std::size_t>(17 * i)]);
        if (ticket.getObjectID() % 10 == 0)
            kept.emplace_back(ticket);
    }
    tight->getModel().garbageCollect();

    EXPECT_EQ("0", first->title);
    EXPECT_EQ(30U, kept.size());
    for (const Ref<Ticket>& each : kept)
        EXPECT_EQ(ids[static_cast<std::size_t>(std::stoi(each->title))], each.getObjectID());
}

TEST_F(ObjectTest, StaysWhileALoopOverALinkIsAtIt) {
    fill(*db);
    db->getModel().garbageCollect();

    std::vector<std::string> seen;
    for (const Ticket& ticket : db->query<Project>().first()->tickets) {
        db->getModel().garbageCollect();
        seen.push_back(ticket.title);
    }

    EXPECT_EQ(2U, seen.size());
}

TEST_F(ObjectTest, EndsALoopWhoseDatabaseIsClosed) {
    fill(*db);

    int turns = 0;
    for (const Ticket& ticket : db->query<Project>().first()->tickets) {
        static_cast<void>(ticket);
        db->getModel().close();
        ++turns;
    }

    EXPECT_EQ(1, turns);
}

TEST_F(ObjectTest, LeavesEmptyRefsBehindWhenItsDatabaseGoes) {
    const Ref<Project> project = fill(*db);
    const auto query = db->query<Ticket>();

    db.reset();

    EXPECT_FALSE(project);
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { static_cast<void>(project->name); }).getKind());
    EXPECT_EQ(0U, project.getObjectID());
    EXPECT_NE("", std::string(errorOf([&] { query.first(); }).getCode()));
}

TEST_F(ObjectTest, IsFoundByItsIdAsItsOwnClassOnly) {
    fill(*db);
    const unsigned long id = db->query<Bug>().first().getObjectID();

    EXPECT_TRUE(db->find<Ticket>(id));
    EXPECT_TRUE(db->find<Ticket>(id).as<Bug>());
    EXPECT_FALSE(db->find<Project>(id));
    EXPECT_FALSE(db->find<Bug>(id + 1000));
    EXPECT_FALSE(db->find<Bug>(0));
}

TEST_F(ObjectTest, OutsideOfADatabaseIsAPlainValue) {
    Ticket loose;
    loose.title = "nowhere";

    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { Ref<Ticket> kept = loose; }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { loose.labels.size(); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { loose.project = nullptr; }).getKind());
}

}  // namespace Kes::testing
