// Batches of items that are stored together, and a counter of batches: what one
// commit writes shows at once when a part of it is missing.

#pragma once

#include <string>

#include <kes/Kes.h>

namespace Kes::testing {

class Item;

class Batch : public Instance {
public:
    explicit Batch(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    long number = 0;
    Many<Item> items{this};
};

class Item : public Instance {
public:
    explicit Item(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    int position = 0;
    String text;
    One<Batch> batch{this};
    Many<Item> next{this};
    Many<Item> previous{this};
};

class Counter : public Instance {
public:
    explicit Counter(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    long last = 0;
};

class LedgerModel : public Model {
public:
    static constexpr int ItemsPerBatch = 100;
    static constexpr long BatchesKept = 5;

    LedgerModel() : Model("ledger", 10000) {}

    void openFile(const std::string& file, const std::string& openOptions = "");

    /// The counter; made when there is none.
    Counter* counter();

    /// Makes the batch of that number with its items, in the transaction that
    /// is under way.
    Batch* addBatch(long number);
    Batch* findBatch(long number);

    /// The next batch in, the oldest out, and the counter raised.
    Batch* prepareCommit();

    /// What is wrong if the last commit was that of the batch `last`, "" when
    /// all is right.
    std::string findFault(long last);

    Class* batchClass = nullptr;
    Class* itemClass = nullptr;
    Class* counterClass = nullptr;

protected:
    void declareModel() override;
};

/// What is wrong in the file if its last commit was that of the batch `last`,
/// "" when all is right.
std::string findFault(const std::string& file, long last);

/// The number of the last batch that the file's counter knows.
long lastBatchIn(const std::string& file);

/// Makes the file, with an empty ledger.
void makeLedger(const std::string& file, const std::string& openOptions = "");

}  // namespace Kes::testing
