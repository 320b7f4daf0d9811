#include "tests/histories/HistoryModel.h"

namespace Kes::testing {

namespace {

constexpr int LongestList = 4000;

template <class T>
Instance* make(Class* cls) {
    return new T(cls);
}

}  // namespace

void Register::handle(Handler* h) {
    Instance::handle(h);
    h->handleInt("number", number);
    h->handleString("values", values, LongestList);
    h->handleManyAssociated("Target", "cells", &cells);
    h->handleManyAssociated("Contents", "entries", &entries);
}

void Cell::handle(Handler* h) {
    Instance::handle(h);
    h->handleInt("number", number);
    h->handleOneAssociated("Target", "target", &target, Association::Unlink);
}

void Entry::handle(Handler* h) {
    Instance::handle(h);
    h->handleLong("batch", batch);
    h->handleOneAssociated("Contents", "owner", &owner, Association::Unlink);
}

void Seat::handle(Handler* h) {
    Instance::handle(h);
    h->handleOneAssociated("Seating", "guest", &guest, Association::Unlink);
}

void Guest::handle(Handler* h) {
    Instance::handle(h);
    h->handleInt("tableNumber", tableNumber);
    h->handleOneAssociated("Seating", "seat", &seat, Association::Unlink);
    h->handleOneAssociated("Dinner", "table", &table, Association::Unlink);
    h->handleManyAssociated("Friendship", "friends", &friends);
    h->handleManyAssociated("Friendship", "friendOf", &friendOf);
}

void Table::handle(Handler* h) {
    Instance::handle(h);
    h->handleInt("number", number);
    h->handleManyAssociated("Dinner", "guests", &guests);
}

void HistoryModel::declareModel() {
    setVersion(1);
    registerClass = addClass("Register", 1, make<Register>);
    registerClass->setAbstract(true);
    classes[0] = addClass("EvenRegister", 1, make<Register>);
    classes[1] = addClass("OddRegister", 1, make<Register>);
    for (Class* cls : classes) {
        cls->subclassOf(registerClass);
        cls->addIndex("number", true);
    }
    cellClass = addClass("Cell", 1, make<Cell>);
    entryClass = addClass("Entry", 1, make<Entry>);
    entryClass->addIndex("batch", false);
    seatClass = addClass("Seat", 1, make<Seat>);
    guestClass = addClass("Guest", 1, make<Guest>);
    tableClass = addClass("Table", 1, make<Table>);
}

void HistoryModel::fill(int lists, int seats, int tables) {
    startTransaction();
    for (int number = 0; number < lists; ++number) {
        auto* list = static_cast<Register*>(classes[number % 2]->newInstance());
        list->number = number;
        auto* cell = static_cast<Cell*>(cellClass->newInstance());
        cell->number = number;
        cell->target = list;
    }
    for (int i = 0; i < seats; ++i)
        seatClass->newInstance();
    for (int number = 1; number <= tables; ++number)
        static_cast<Table*>(tableClass->newInstance())->number = number;
    for (int i = 0; i < seats; ++i)
        guestClass->newInstance();
    commit();
}

}  // namespace Kes::testing
