#include "tests/crash/LedgerModel.h"

#include <algorithm>

#include "tests/drivers/PlainSqlite.h"

namespace Kes::testing {

void Batch::handle(Handler* h) {
    Instance::handle(h);
    h->handleLong("number", number);
    h->handleManyAssociated("Contents", "items", &items);
}

void Item::handle(Handler* h) {
    Instance::handle(h);
    h->handleInt("position", position);
    h->handleString("text", text, 100);
    h->handleOneAssociated("Contents", "batch", &batch, Association::CascadeRemove);
    h->handleManyAssociated("Chain", "next", &next);
    h->handleManyAssociated("Chain", "previous", &previous);
}

void Counter::handle(Handler* h) {
    Instance::handle(h);
    h->handleLong("last", last);
}

namespace {

template <class T>
Instance* make(Class* cls) {
    return new T(cls);
}

std::string numbered(const char* words, long number) {
    return words + (" " + std::to_string(number));
}

// The batch has all its items, each linked with its neighbours.
std::string faultOf(Batch* batch) {
    if (batch->items.size() != LedgerModel::ItemsPerBatch)
        return numbered("items missing in batch", batch->number);
    int positions = 0;
    for (const Item* item : batch->items) {
        positions += item->position;
        const bool isFirst = item->position == 0;
        const bool isLast = item->position == LedgerModel::ItemsPerBatch - 1;
        if (item->previous.size() != (isFirst ? 0 : 1) || item->next.size() != (isLast ? 0 : 1))
            return numbered("a chain is broken in batch", batch->number);
        for (const Item* neighbour : item->next)
            if (neighbour->position != item->position + 1 || neighbour->batch != batch)
                return numbered("a wrong chain in batch", batch->number);
    }
    const int expected = LedgerModel::ItemsPerBatch * (LedgerModel::ItemsPerBatch - 1) / 2;
    return positions == expected ? "" : numbered("wrong items in batch", batch->number);
}

}  // namespace

void LedgerModel::declareModel() {
    setVersion(1);
    batchClass = addClass("Batch", 1, make<Batch>);
    batchClass->addIndex("number", true);
    itemClass = addClass("Item", 1, make<Item>);
    counterClass = addClass("Counter", 1, make<Counter>);
}

void LedgerModel::openFile(const std::string& file, const std::string& openOptions) {
    open("sqlite", file.c_str(), "", "", openOptions.c_str());
}

Counter* LedgerModel::counter() {
    SelectionOf<Counter> all(counterClass);
    Counter* found = all.nextValue();
    if (found == nullptr)
        found = static_cast<Counter*>(counterClass->newInstance());
    return found;
}

Batch* LedgerModel::findBatch(long number) {
    SelectionOf<Batch> found(batchClass);
    found.where(found["number"] == number);
    return found.nextValue();
}

Batch* LedgerModel::addBatch(long number) {
    auto* batch = static_cast<Batch*>(batchClass->newInstance());
    batch->number = number;
    Item* previous = nullptr;
    for (int position = 0; position < ItemsPerBatch; ++position) {
        auto* item = static_cast<Item*>(itemClass->newInstance());
        item->position = position;
        item->text = String("item ") + String(position);
        item->batch = batch;
        if (previous != nullptr)
            previous->next.add(item);
        previous = item;
    }
    return batch;
}

Batch* LedgerModel::prepareCommit() {
    startTransaction();
    Counter* count = counter();
    count->change();
    Batch* fresh = addBatch(++count->last);
    if (Batch* oldest = findBatch(count->last - BatchesKept))
        oldest->remove();
    return fresh;
}

std::string LedgerModel::findFault(long last) {
    if (counter()->last != last)
        return numbered("the counter is at", counter()->last);
    for (long number = std::max(1L, last - BatchesKept + 1); number <= last; ++number) {
        Batch* batch = findBatch(number);
        const std::string fault =
            batch == nullptr ? numbered("there is no batch", number) : faultOf(batch);
        if (!fault.empty())
            return fault;
    }
    return "";
}

std::string findFault(const std::string& file, long last) {
    {
        PlainSqlite plain(file);
        const std::string sound = plain.ask("PRAGMA integrity_check");
        if (sound != "ok")
            return sound;
        const long kept = std::min(last, LedgerModel::BatchesKept);
        if (plain.ask("SELECT count(*) FROM Batch") != std::to_string(kept))
            return plain.ask("SELECT count(*) FROM Batch") + " batches";
        if (plain.ask("SELECT count(*) FROM Item") !=
            std::to_string(kept * LedgerModel::ItemsPerBatch))
            return plain.ask("SELECT count(*) FROM Item") + " items";
        if (plain.ask("SELECT count(*) FROM Chain") !=
            std::to_string(kept * (LedgerModel::ItemsPerBatch - 1)))
            return plain.ask("SELECT count(*) FROM Chain") + " links";
    }
    LedgerModel model;
    model.openFile(file);
    const std::string fault = model.findFault(last);
    model.close();
    return fault;
}

long lastBatchIn(const std::string& file) {
    return std::stol(PlainSqlite(file).ask("SELECT last FROM Counter"));
}

void makeLedger(const std::string& file, const std::string& openOptions) {
    LedgerModel model;
    model.openFile(file, openOptions);
    model.startTransaction();
    model.counter();
    model.commit();
    model.close();
}

}  // namespace Kes::testing
