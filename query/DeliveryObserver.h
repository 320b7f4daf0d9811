// Observer of queries: what one tells of what it delivers.
//
// A selection knows nothing of those who make use of its rows: it tells one
// observer, mostly the model's. Whoever asks a query of its own makes another
// observer watch it, and so tells its rows from those that the application has
// asked for.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include <kes/Forward.h>
#include <kes/Selection.h>

namespace Kes {

/// When something was read.
struct ReadMoment {
    std::uint64_t era = 0;  // 0: it was not read ahead, and stands for nothing
    std::uint64_t commits = 0;
    std::chrono::steady_clock::time_point when;
};

/// What a selection keeps for its observer.
struct Delivery {
    std::uint64_t token = 0;  // the observer's
    ReadMoment when;          // the rows are of then
};

class DeliveryObserver {
public:
    DeliveryObserver() = default;
    DeliveryObserver(const DeliveryObserver&) = delete;
    DeliveryObserver& operator=(const DeliveryObserver&) = delete;

    /// The selection tells this observer, which is borrowed until its end, and no
    /// other one. Before the first next only.
    void watch(Selection& selection) { selection.observer = this; }

    /// A query is about to be asked.
    virtual void asked() = 0;

    /// Of rows that are asked for now.
    virtual ReadMoment now() const = 0;

    /// An instance was read, to be delivered now or later.
    virtual void read(Delivery& delivery, Instance* instance) = 0;

    /// An instance that was read ahead is delivered. It need not be fresh: its
    /// row is of the state that the selection began with.
    virtual void delivered(Instance* instance) = 0;

    /// How many instances to read ahead of the one that was just delivered.
    virtual std::size_t wantedAhead(const Delivery& delivery) = 0;

    /// Whether what is read is read ahead; returns what held before.
    virtual bool setReadingAhead(bool on) = 0;

    /// While it lives, instances that are filed were not asked for yet.
    class AheadScope {
    public:
        explicit AheadScope(DeliveryObserver& told)
            : observer(told),
              outer(told.setReadingAhead(true)) {}
        AheadScope(const AheadScope&) = delete;
        AheadScope& operator=(const AheadScope&) = delete;
        ~AheadScope() { observer.setReadingAhead(outer); }

    private:
        DeliveryObserver& observer;
        bool outer;
    };

protected:
    ~DeliveryObserver() = default;
};

}  // namespace Kes
