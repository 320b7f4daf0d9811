// One process of a history: random transactions, each written down with what it
// was told.

#pragma once

#include <cstddef>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/histories/History.h"
#include "tests/histories/HistoryModel.h"

namespace Kes::testing {

class Worker {
public:
    /// Of `lists` lists it works on a few at a time, and on later ones when these
    /// are long. The log is a file of lines: "list", and a Transaction; "entries",
    /// a batch, how many of them there are, and the outcome; "guest", an object id,
    /// "added" or "removed", and the outcome.
    Worker(int itsNumber, unsigned seed, int itsLists, const std::string& logFile);

    HistoryModel& getModel() { return model; }

    /// Until that time of the clock.
    void run(long until);

    /// Nanoseconds of a clock that the processes share.
    static long now();

private:
    void workOnLists();
    void readOrAppend(Transaction& done);
    void selectLists();
    void makeEntries();
    void changeGuests();
    void changeGuest(const std::vector<Pointer<Guest>>& guests);
    void addOrRemoveGuest(std::vector<Pointer<Guest>>& guests);
    void forget();

    Register* find(int list);
    Register* readQuery(int list);
    Register* readAgain(int list);
    Register* readCell(int list);
    void noteRead(Transaction& done, Register* list);
    void append(Transaction& done, Register* list);

    template <class Work>
    Transaction::Outcome attempt(Work work);

    int any(int least, int most);
    bool happens(int percent) { return any(1, 100) <= percent; }

    HistoryModel model;
    const int number;
    const int lists;
    std::mt19937 random;
    std::ofstream log;
    long made = 0;   // values, batches
    int window = 0;  // the first of the lists that are worked on

    // Objects that are held, and lists that the process has seen since it held
    // none: those it has to refresh in a transaction.
    std::map<int, Pointer<Register>> held;
    std::map<int, Pointer<Cell>> cells;
    std::set<int> seen;
    std::set<int> touched;  // lists that the transaction under way has read or changed
};

}  // namespace Kes::testing
