#include "tests/histories/Worker.h"

#include <chrono>
#include <sstream>

namespace Kes::testing {

namespace {

constexpr int Window = 6;
constexpr std::size_t LongList = 30;  // values
constexpr int EntriesAtOnce = 60;

Values valuesOf(const Register* list) {
    std::istringstream stream(static_cast<const char*>(list->values));
    Values values;
    for (long value = 0; stream >> value;)
        values.push_back(value);
    return values;
}

const char* nameOf(Transaction::Outcome outcome) {
    switch (outcome) {
    case Transaction::Done: return "done";
    case Transaction::Refused: return "refused";
    case Transaction::Unknown: return "unknown";
    }
    return "";
}

// What a program that shares its database has to expect.
bool isOrdinary(const String& code) {
    return code == "COMFAIL" || code == "SELERR" || code == "REFFAIL" || code == "LOCKFAIL" ||
           code == "Transaction::undo/redo";
}

}  // namespace

Worker::Worker(int itsNumber, unsigned seed, int itsLists, const std::string& logFile)
    : number(itsNumber),
      lists(itsLists),
      random(seed),
      log(logFile) {
    log << std::unitbuf;
}

long Worker::now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int Worker::any(int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(random);
}

void Worker::run(long until) {
    while (now() < until && window + Window < lists) {
        if (happens(3))
            makeEntries();
        else if (happens(15))
            selectLists();
        else if (happens(15))
            changeGuests();
        else
            workOnLists();
        if (happens(10))
            forget();
    }
}

// Runs a transaction; its end is the commit's, unless the work fails before.
template <class Work>
Transaction::Outcome Worker::attempt(Work work) {
    touched.clear();
    try {
        model.startTransaction();
        work();
        model.commit();
        return Transaction::Done;
    } catch (const Exception& raised) {
        if (!isOrdinary(raised.getCode()))
            throw;
        const bool isUnknown = model.getFailureKind() == FailureKind::UnknownOutcome;
        if (model.transactionStarted())
            model.rollback();
        return isUnknown ? Transaction::Unknown : Transaction::Refused;
    }
}

void Worker::workOnLists() {
    Transaction done;
    done.process = number;
    done.begun = now();
    done.outcome = attempt([&] {
        for (int steps = any(1, 4); steps > 0; --steps)
            readOrAppend(done);
    });
    done.ended = now();
    log << "list " << done.text() << '\n';
}

void Worker::readOrAppend(Transaction& done) {
    const int wanted = window + any(0, Window - 1);
    if (!touched.insert(wanted).second)
        return;
    const Pointer<Register> list(find(wanted));
    noteRead(done, list);
    if (!happens(60)) {
        // A lock also finds out that what was read has changed since.
        if (happens(15))
            list->lock();
        return;
    }
    if (happens(15))
        list->lock();
    append(done, list);
    if (happens(20))
        append(done, list);
}

Register* Worker::find(int list) {
    Register* found = nullptr;
    switch (any(0, 2)) {
    case 0: found = readQuery(list); break;
    case 1: found = readAgain(list); break;
    default: found = readCell(list); break;
    }
    seen.insert(list);
    held[list] = found;
    return found;
}

Register* Worker::readQuery(int list) {
    SelectionOf<Register> found(model.registerClass);
    found.where(found["number"] == list);
    return found.nextValue();
}

Register* Worker::readAgain(int list) {
    const auto known = held.find(list);
    if (known == held.end())
        return readQuery(list);
    known->second->refresh();
    return known->second;
}

// The lists of several cells are loaded together, so this one may be in memory
// already though the process has never seen it.
Register* Worker::readCell(int list) {
    if (cells.empty()) {
        SelectionOf<Cell> all(model.cellClass);
        all.where((all["number"] >= window) & (all["number"] < window + Window));
        for (Cell* cell : all)
            cells[cell->number] = cell;
    }
    const auto cell = cells.find(list);
    if (cell == cells.end())
        return readQuery(list);
    Register* found = cell->second->target;
    if (seen.count(list) != 0)
        found->refresh();
    return found;
}

void Worker::noteRead(Transaction& done, Register* list) {
    done.reads.push_back({list->number, valuesOf(list)});
    if (list->number == window && done.reads.back().seen.size() > LongList)
        ++window;
}

void Worker::append(Transaction& done, Register* list) {
    constexpr long PerProcess = 100000000;
    const long value = number * PerProcess + ++made;
    list->change();
    list->values += String(value) + " ";
    done.appends.push_back({list->number, value});
}

// Outside of a transaction, and a transaction of its own for the checker.
void Worker::selectLists() {
    Transaction done;
    done.process = number;
    done.isSelection = true;
    done.begun = now();
    try {
        SelectionOf<Register> all(model.registerClass);
        all.where((all["number"] >= window) & (all["number"] < window + Window));
        while (Register* list = all.nextValue()) {
            done.reads.push_back({list->number, valuesOf(list)});
            seen.insert(list->number);
        }
    } catch (const Exception& raised) {
        if (!isOrdinary(raised.getCode()))
            throw;
        done.outcome = Transaction::Refused;
    }
    done.ended = now();
    log << "list " << done.text() << '\n';
}

// Many objects with links in one commit, which some undo and some of those redo.
void Worker::makeEntries() {
    constexpr long PerProcess = 1000000;
    const long batch = number * PerProcess + ++made;
    int expected = EntriesAtOnce;
    Transaction::Outcome outcome = attempt([&] {
        const Pointer<Register> list(readQuery(window));
        seen.insert(window);
        for (int i = 0; i < EntriesAtOnce; ++i) {
            auto* entry = static_cast<Entry*>(model.entryClass->newInstance());
            entry->batch = batch;
            entry->owner = list;
        }
    });
    if (outcome == Transaction::Refused)
        expected = 0;
    const auto turn = [&](void (Model::*direction)(), int then) {
        try {
            (model.*direction)();
            expected = then;
        } catch (const Exception& raised) {
            if (!isOrdinary(raised.getCode()))
                throw;
            if (model.getFailureKind() == FailureKind::UnknownOutcome)
                outcome = Transaction::Unknown;
        }
    };
    if (outcome == Transaction::Done && happens(50)) {
        turn(&Model::undo, 0);
        if (expected == 0 && outcome == Transaction::Done && happens(50))
            turn(&Model::redo, EntriesAtOnce);
    }
    if (outcome == Transaction::Refused)
        outcome = Transaction::Done;
    log << "entries " << batch << ' ' << expected << ' ' << nameOf(outcome) << '\n';
}

void Worker::changeGuests() {
    std::vector<unsigned long> added;
    std::vector<unsigned long> removed;
    const Transaction::Outcome outcome = attempt([&] {
        std::vector<Pointer<Guest>> guests;
        SelectionOf<Guest> all(model.guestClass);
        for (Guest* guest : all)
            guests.emplace_back(guest);
        const std::size_t before = guests.size();
        for (int steps = any(1, 3); steps > 0; --steps)
            changeGuest(guests);
        if (happens(40))
            addOrRemoveGuest(guests);
        for (std::size_t i = before; i < guests.size(); ++i)
            added.push_back(guests[i]->getObjectID());
        for (std::size_t i = 0; i < before; ++i)
            if (guests[i]->isRemoved())
                removed.push_back(guests[i]->getObjectID());
    });
    for (const unsigned long id : added)
        log << "guest " << id << " added " << nameOf(outcome) << '\n';
    for (const unsigned long id : removed)
        log << "guest " << id << " removed " << nameOf(outcome) << '\n';
}

void Worker::changeGuest(const std::vector<Pointer<Guest>>& guests) {
    const auto anyOf = [&]() -> Guest* {
        return guests[static_cast<std::size_t>(any(0, static_cast<int>(guests.size()) - 1))];
    };
    Guest* guest = anyOf();
    switch (any(0, 3)) {
    case 0: {
        SelectionOf<Seat> seats(model.seatClass);
        Seat* chosen = nullptr;
        for (Seat* seat : seats)
            if (chosen == nullptr || happens(25))
                chosen = seat;
        guest->seat = happens(25) ? nullptr : chosen;
        break;
    }
    case 1: {
        SelectionOf<Table> found(model.tableClass);
        found.where(found["number"] == any(1, 3));
        Table* table = found.nextValue();
        guest->change();
        guest->tableNumber = table->number;
        // From the one side or from the other.
        if (happens(50))
            guest->table = table;
        else
            table->guests.add(guest);
        break;
    }
    case 2: guest->friends.add(anyOf()); break;
    default: guest->friends.remove(anyOf()); break;
    }
}

void Worker::addOrRemoveGuest(std::vector<Pointer<Guest>>& guests) {
    constexpr std::size_t Most = 12;
    if (guests.size() < 4 || (guests.size() < Most && happens(50)))
        guests.emplace_back(static_cast<Guest*>(model.guestClass->newInstance()));
    else
        guests[static_cast<std::size_t>(any(0, static_cast<int>(guests.size()) - 1))]->remove();
}

// From now on all lists are new to the process.
void Worker::forget() {
    held.clear();
    cells.clear();
    seen.clear();
    model.garbageCollect();
}

}  // namespace Kes::testing
