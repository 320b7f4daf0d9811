// What the processes of a history work on: lists that they append to, and guests
// of a house, who change seats, tables and friends.

#pragma once

#include <kes/Kes.h>

namespace Kes::testing {

class Cell;
class Entry;
class Guest;
class Table;

/// A list of numbers; of two concrete classes by turns, so that a selection of
/// lists has two parts.
class Register : public Instance {
public:
    explicit Register(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    int number = 0;
    String values;  // each with a blank behind it
    Many<Cell> cells{this};
    Many<Entry> entries{this};
};

/// Leads to the list of the same number.
class Cell : public Instance {
public:
    explicit Cell(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    int number = 0;
    One<Register> target{this};
};

/// Of many that one commit makes.
class Entry : public Instance {
public:
    explicit Entry(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    long batch = 0;
    One<Register> owner{this};
};

class Seat : public Instance {
public:
    explicit Seat(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    One<Guest> guest{this};
};

class Guest : public Instance {
public:
    explicit Guest(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    int tableNumber = 0;  // of the table, written with the link
    One<Seat> seat{this};
    One<Table> table{this};
    Many<Guest> friends{this};
    Many<Guest> friendOf{this};
};

class Table : public Instance {
public:
    explicit Table(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    int number = 0;
    Many<Guest> guests{this};
};

class HistoryModel : public Model {
public:
    HistoryModel() : Model("history", 1000) {}

    /// Makes the objects that all processes share.
    void fill(int lists, int seats, int tables);

    Class* registerClass = nullptr;
    Class* classes[2] = {};  // of lists with even and odd numbers
    Class* cellClass = nullptr;
    Class* entryClass = nullptr;
    Class* seatClass = nullptr;
    Class* guestClass = nullptr;
    Class* tableClass = nullptr;

protected:
    void declareModel() override;
};

}  // namespace Kes::testing
