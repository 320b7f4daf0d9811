#include "transaction/History.h"

#include <algorithm>

namespace Kes {

void History::start() {
    redoList.clear();
    trim(maxUndoSize);
    if (undoList.empty() || undoList.front().isUsed)
        open(true);
    undoList.front().started = true;
    undoList.front().isVoid = false;
}

void History::open(bool started) {
    undoList.emplace_front();
    undoList.front().started = started;
}

// Changes without a transaction join the newest one. Where none was ever
// started each commit gets a record, or a history would grow without an end.
void History::noteStep() {
    const bool isFull =
        !undoList.empty() && !undoList.front().started && !undoList.front().commits.empty();
    if (undoList.empty() || isFull) {
        if (maxUndoSize <= 0)
            return;
        trim(maxUndoSize);
        open(false);
    }
    undoList.front().isUsed = true;
    undoList.front().isVoid = false;
}

void History::dropNoted() noexcept {
    if (!undoList.empty())
        undoList.front().isUsed = !undoList.front().commits.empty();
}

void History::keep(Draft& done) noexcept {
    if (!undoList.empty() && !done.steps().steps.empty()) {
        Record& newest = undoList.front();
        newest.commits.splice(newest.commits.end(), done.commit);
    }
    dropNoted();
}

void History::rollBack() noexcept {
    dropNoted();
    if (!undoList.empty())
        undoList.front().isVoid = undoList.front().commits.empty();
}

void History::dropVoid() noexcept {
    if (undoList.size() > 1 && undoList.front().isVoid)
        undoList.pop_front();
}

void History::reverseNewest(Direction direction, Draft& reversed) noexcept {
    std::list<Record>& from = direction == Undo ? undoList : redoList;
    std::list<Record>& to = direction == Undo ? redoList : undoList;
    from.pop_front();

    // Changes that a redo committed with it stand in its record.
    dropNoted();
    if (direction == Redo && !undoList.empty() && !undoList.front().isUsed &&
        !undoList.front().started)
        undoList.pop_front();
    to.splice(to.begin(), reversed.record);
    Record& record = to.front();
    record.isUsed = true;
    if (!reversed.steps().steps.empty())
        record.commits.splice(record.commits.end(), reversed.commit);
}

void History::setMaxUndoSize(int transactions) {
    maxUndoSize = transactions;
    trim(transactions);
}

void History::trim(int transactions) {
    const auto most = static_cast<std::size_t>(std::max(transactions, 0));
    while (undoList.size() > most)
        undoList.pop_back();
}

void History::clear() {
    undoList.clear();
    redoList.clear();
}

}  // namespace Kes
