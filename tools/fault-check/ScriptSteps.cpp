// The steps of the script. Each can be taken twice: when it failed at first, it
// finds memory and database as they were before.

#include "tools/fault-check/Script.h"

namespace Kes::faulty {

namespace {

// Hears whether an object was reported as changed or removed.
class Ear final : public Listener {
public:
    explicit Ear(Instance* itsObject) : object(itsObject) { object->addListener(this); }
    Ear(const Ear&) = delete;
    Ear& operator=(const Ear&) = delete;
    ~Ear() {
        if (!removed)
            object->removeListener(this);
    }

    void instanceChanged(const InstanceEvent&) override { changed = true; }
    void instanceRemoved(const InstanceEvent&) override { removed = true; }

    bool changed = false;
    bool removed = false;

private:
    Instance* object;
};

}  // namespace

const std::vector<Script::Step>& Script::steps() {
    static const std::vector<Step> all = {
        {"opening", &Script::begin},
        {"hiring", &Script::hire},
        {"equipping", &Script::equip},
        {"changing", &Script::change},
        {"linking anew", &Script::relink},
        {"querying", &Script::query},
        {"navigating", &Script::navigate},
        {"locking", &Script::lockAnn},
        {"refreshing what nobody changed", &Script::refreshAnn},
        {"changing elsewhere", &Script::somebodyChangesBob},
        {"changing what somebody changed", &Script::changeBobInVain},
        {"refreshing what somebody changed", &Script::refreshBob},
        {"changing after a refresh", &Script::changeBob},
        {"removing elsewhere", &Script::somebodyRemovesEve},
        {"refreshing what somebody removed", &Script::refreshEve},
        {"breaking a unique index", &Script::addFirmTwice},
        {"rolling back", &Script::takeBack},
        {"removing", &Script::removeCid},
        {"undoing", &Script::undoRemoval},
        {"redoing", &Script::redoRemoval},
        {"ending the trace", &Script::traceNoMore},
        {"closing", &Script::leave},
        {"upgrading", &Script::upgrade},
        {"ordering", &Script::order},
        {"querying the new schema", &Script::queryAgain},
        {"vanishing", &Script::vanish},
    };
    return all;
}

std::size_t Script::stepCount() {
    return steps().size();
}

std::size_t Script::upgradeStep() {
    std::size_t number = 1;
    while (steps()[number - 1].body != &Script::upgrade)
        ++number;
    return number;
}

const char* Script::nameOf(std::size_t step) {
    return steps()[step - 1].name;
}

// --- words that the steps use ---

template <class T>
T* Script::find(FaultModel& where, Class* cls, const char* called) {
    const bool isOwn = &where == model.get();
    if (isOwn) {
        const auto known = held.find(called);
        if (known != held.end() && known->second != nullptr && known->second->getObjectID() != 0 &&
            !known->second->isRemoved())
            return static_cast<T*>(known->second.getInstance());
    }
    SelectionOf<T> selection(cls);
    selection.where(selection["called"] == called);
    T* found = selection.nextValue();
    demandNoError();
    if (found == nullptr) {
        problem(std::string(called) + " is not found");
        throw Failed();
    }
    if (isOwn)
        held[called] = found;
    return found;
}

template <class T>
T* Script::make(Class* cls, const char* called) {
    auto* made = static_cast<T*>(addOne(cls));
    made->called = called;
    held[called] = made;
    return made;
}

// What could not be added is the caller's.
Instance* Script::addOne(Class* cls) {
    Instance* made = cls->newInstance();
    if (made != nullptr && made->getObjectID() != 0)
        return made;
    delete made;
    throw Failed();
}

Worker* Script::worker(const char* called) {
    return find<Worker>(session(), session().worker, called);
}

std::string Script::namesOf(SelectionOf<Worker>& selection) {
    std::string names;
    while (const Worker* next = selection.nextValue())
        names += next->called + " ";
    demandNoError();
    return names;
}

// --- the steps ---

void Script::begin() {
    session();
}

void Script::hire() {
    transaction([&] {
        auto* acme = make<Firm>(model->firm, "acme");
        make<Firm>(model->firm, "bolt");
        const char* names[] = {"ann", "bob", "cid", "dan", "eve"};
        int age = 30;
        for (const char* name : names) {
            auto* hired = make<Worker>(model->worker, name);
            hired->age = age++;
            hired->salary = 1000.5;
        }
        worker("ann")->employer = acme;
        acme->staff.add(worker("bob"));
        worker("ann")->partner = worker("bob");
        worker("ann")->friends.add(worker("cid"));
        worker("ann")->friends.add(worker("dan"));
        worker("cid")->parent = worker("ann");
        worker("dan")->parent = worker("cid");
    });
}

void Script::equip() {
    transaction([&] {
        auto* saw = make<Tool>(model->tool, "saw");
        saw->year = 1990;
        saw->serial = 4000000000UL;
        saw->balance = -5;
        saw->weight = 7;
        saw->sharp = true;
        saw->length = 0.5F;
        saw->bought = Timestamp(1999, 12, 31, 23, 59, 59);
        saw->picture = Blob("rows", 4);
        saw->owner = worker("ann");
        make<Tool>(model->tool, "axe")->year = 1970;
        auto* press = make<Machine>(model->machine, "press");
        press->year = 1980;
        press->power = 12.25;
        worker("ann")->things.add(press);
    });
}

void Script::change() {
    transaction([&] {
        Worker* ann = worker("ann");
        ann->age = 31;
        ann->change();
        Worker* bob = worker("bob");
        bob->change();
        bob->salary = 2000;
        auto* saw = find<Tool>(*model, model->tool, "saw");
        saw->sharp = false;
        saw->picture.setEmpty();
        saw->change();
    });
}

// Ann leaves Bob for Cid, Bob changes his employer, friends come and go.
void Script::relink() {
    transaction([&] {
        worker("bob")->employer = find<Firm>(*model, model->firm, "bolt");
        worker("ann")->partner = worker("cid");
        worker("ann")->friends.remove(worker("cid"));
        worker("cid")->friends.add(worker("bob"));
        find<Machine>(*model, model->machine, "press")->owner = nullptr;
    });
}

void Script::query() {
    SelectionOf<Named> things(session().thing);
    things.where((things["year"] > 1900) & (things["called"] != "nothing"));
    things.orderBy(things["year"]);
    std::string names;
    while (const Named* next = things.nextValue())
        names += next->called + " ";
    demandNoError();
    check(names == "axe press saw ", "the things come in another order");

    Selection bolt(session().firm);
    bolt.where(bolt["called"] == "bolt");
    SelectionOf<Worker> employed(session().worker);
    employed.where(employed(model->works, "employer") == bolt);
    check(namesOf(employed) == "bob ", "another firm's staff is found");

    // A rollback while rows are still to come.
    SelectionOf<Worker> all(session().worker);
    all.orderBy(all["called"]);
    const bool any = all.next();
    demandNoError();
    check(any && all.value()->called == "ann", "ann does not come first");
    model->startTransaction();
    worker("bob")->age = 99;
    worker("bob")->change();
    make<Worker>(model->worker, "abe");
    demandNoError();
    model->rollback();
    demandNoError();
    check(namesOf(all) == "bob cid dan eve ", "a rollback changes the rows of a selection");
}

// Everything is read anew, by way of its references.
void Script::navigate() {
    forget();
    session().garbageCollect();
    Worker* ann = worker("ann");
    const Firm* acme = ann->employer;
    demandNoError();
    check(acme != nullptr && acme->called == "acme", "ann is not employed by acme");
    const std::size_t staff = acme != nullptr ? acme->staff.size() : 0;
    demandNoError();
    check(staff == 1, "acme employs not just ann");
    const Worker* partner = ann->partner;
    demandNoError();
    check(partner != nullptr && partner->called == "cid", "ann's partner is not cid");
    std::string names;
    for (const Worker* each : ann->friends)
        names += each->called + " ";
    for (const Worker* each : ann->children)
        names += each->called + " ";
    for (const Thing* each : ann->things)
        names += each->called + " ";
    demandNoError();
    check(names == "dan cid saw ", "ann's friends, children and things are others");
}

void Script::lockAnn() {
    transaction([&] {
        worker("ann")->lock();
        demandNoError();
        worker("ann")->age = 40;
        worker("ann")->change();
    });
}

void Script::refreshAnn() {
    Worker* ann = worker("ann");
    const Ear ear(ann);
    ann->refresh();
    demandNoError();
    check(!ear.changed && !ear.removed, "a refresh finds a change where there is none");
}

void Script::somebodyChangesBob() {
    worker("bob");
    elsewhere([&](FaultModel& other) {
        auto* bob = find<Worker>(other, other.worker, "bob");
        bob->age = 77;
        bob->change();
    });
    stale.insert("bob");
}

// A model that was made meanwhile has read the change, and so has a rollback that
// follows a refused change.
void Script::changeBobInVain() {
    if (worker("bob")->age == 77)
        stale.erase("bob");
    if (!stale.contains("bob"))
        return;
    expectRefusal([&] {
        worker("bob")->age = 50;
        worker("bob")->change();
    });
}

void Script::refreshBob() {
    const bool wasStale = stale.contains("bob");
    Worker* bob = worker("bob");
    const Ear ear(bob);
    bob->refresh();
    demandNoError();
    stale.erase("bob");
    check(ear.changed == wasStale, "a refresh does not tell what it finds");
    check(bob->age == 77, "a refresh does not bring the change");
}

void Script::changeBob() {
    transaction([&] {
        worker("bob")->age += 1;
        worker("bob")->change();
    });
}

void Script::somebodyRemovesEve() {
    worker("eve");
    elsewhere([&](FaultModel& other) { find<Worker>(other, other.worker, "eve")->remove(); });
    stale.insert("eve");
}

void Script::refreshEve() {
    if (!stale.contains("eve"))
        return;
    Worker* eve = worker("eve");
    const Ear ear(eve);
    eve->refresh();
    demandNoError();
    check(ear.removed, "a refresh does not find the removal");
    stale.erase("eve");
    held.erase("eve");
}

void Script::addFirmTwice() {
    expectRefusal([&] {
        worker("dan")->age = 1;
        worker("dan")->change();
        auto* twin = static_cast<Firm*>(addOne(session().firm));
        twin->called = "acme";
        worker("dan")->employer = twin;
    });
}

void Script::takeBack() {
    session().startTransaction();
    auto* spare = make<Worker>(model->worker, "spare");
    spare->friends.add(worker("ann"));
    worker("ann")->employer = find<Firm>(*model, model->firm, "bolt");
    worker("ann")->age = 3;
    worker("ann")->change();
    worker("bob")->remove();
    find<Tool>(*model, model->tool, "axe")->owner = worker("dan");
    demandNoError();
    model->rollback();
    demandNoError();
    held.erase("spare");
}

// Dan goes with Cid, and Ann is left without a partner.
void Script::removeCid() {
    transaction([&] {
        worker("cid")->remove();
        find<Firm>(*model, model->firm, "bolt")->staff.remove(worker("bob"));
    });
}

// The history goes with the model: a fatal error takes it away.
template <class M>
void Script::undoIn(M& changed) {
    if constexpr (requires { changed.undo(); }) {
        if (!changed.isUndoable()) {
            lost = true;
            return;
        }
        changed.undo();
        demandNoError();
    }
}

template <class M>
void Script::redoIn(M& changed) {
    if constexpr (requires { changed.redo(); }) {
        if (!changed.isRedoable()) {
            lost = true;
            return;
        }
        changed.redo();
        demandNoError();
    }
}

void Script::undoRemoval() {
    undoIn(session());
}

void Script::redoRemoval() {
    redoIn(session());
}

void Script::traceNoMore() {
    // A driver that fails to begin the trace tells nobody.
    check(trace.tellp() > 0 || !recording, "nothing is traced");
    session().disableSQLTrace();
    demandNoError();
}

void Script::leave() {
    if (model == nullptr)
        return;
    forget();
    model->close();
    demandNoError();
    model.reset();
}

void Script::upgrade() {
    open(2);
    schema = 2;
}

void Script::order() {
    transaction([&] {
        auto* order = make<Order>(model->order, "order");
        order->buyer = worker("ann");
        worker("ann")->note = "buys";
        worker("ann")->change();
        find<Firm>(*model, model->firm, "acme")->town = "somewhere";
        find<Firm>(*model, model->firm, "acme")->change();
    });
}

void Script::queryAgain() {
    SelectionOf<Worker> buyers(session().worker);
    buyers.where(buyers["note"] == "buys" || buyers["age"] == 78);
    buyers.orderBy(buyers["called"]);
    check(namesOf(buyers) == "ann bob ", "the upgrade changed what is stored");
    auto* ordered = find<Order>(*model, model->order, "order");
    const Worker* buyer = ordered->buyer;
    demandNoError();
    check(buyer != nullptr && buyer->called == "ann", "the order has another buyer");
}

// A model that is destroyed with a change pending leaves nothing of it.
void Script::vanish() {
    session().startTransaction();
    make<Order>(model->order, "ghost");
    worker("ann")->remove();
    demandNoError();
    forget();
    model.reset();
}

}  // namespace Kes::faulty
