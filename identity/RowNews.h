// What has become of objects since selections under way have begun.
//
// A selection delivers the rows that it began with, also those of objects that
// were changed or removed, and freed, since. Such a row would make an object older
// than the one that this memory has had, or one that seems to be stored. So what is
// newer than the rows of some open selection over the object's class is noted, by
// the object's id, until no selection is open.

#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include <kes/Forward.h>

namespace Kes {

class RowNews {
public:
    /// The rows of a selection of instances of `cls` and its sub classes. Counts
    /// while somebody has `keep`, which may outlive this object.
    struct Reading {
        std::shared_ptr<const void> keep;
        std::uint64_t begun = 0;
    };
    Reading begin(const Class* cls);

    static constexpr std::uint64_t Present = ~std::uint64_t{0};  // rows that are read now

    /// While it lives, rows of the selection that began then make instances.
    class RowScope {
    public:
        RowScope(RowNews& of, std::uint64_t begun)
            : news(of),
              outer(std::exchange(news.rowsBegun, begun)) {}
        RowScope(const RowScope&) = delete;
        RowScope& operator=(const RowScope&) = delete;
        ~RowScope() { news.rowsBegun = outer; }

    private:
        RowNews& news;
        std::uint64_t outer;
    };

    /// The version that a change or a removal has left.
    struct Entry {
        unsigned long version;
        bool isRemoval;
        std::uint64_t moment = 0;
    };
    using Entries = std::unordered_map<unsigned long, Entry>;  // by object id

    bool isAnyOpen() const;

    /// Whether rows from before the instance's own may come.
    bool concerns(const Instance* instance) const { return !open.empty() && isOpenFor(instance); }

    void note(const Instance* instance);

    /// To be stored no more, with a version of at least this.
    void noteRemoval(const Instance* instance, unsigned long version);

    /// The same for many; `more` was given to makeRoom before, and nothing fails.
    void note(Entries& more) noexcept;
    void makeRoom(const Entries& more);

    /// Whether the instance comes from a row of before its removal.
    bool hasLost(const Instance* instance) const { return !entries.empty() && findLost(instance); }

    /// Whether the instance comes from a row that is older than this memory has
    /// had the object since.
    bool isOutdated(const Instance* instance) const {
        return !entries.empty() && findNewer(instance);
    }

    void clear() { entries.clear(); }

private:
    struct Open {
        std::weak_ptr<const void> alive;
        const Class* cls;
        std::uint64_t begun;
    };

    bool isOpenFor(const Instance* instance) const;
    bool findLost(const Instance* instance) const;
    bool findNewer(const Instance* instance) const;

    std::vector<Open> open;  // in the order of their beginning; may have ended
    Entries entries;
    std::uint64_t moment = 0;           // of the latest event
    std::uint64_t rowsBegun = Unknown;  // of the selection whose rows are read
    static constexpr std::uint64_t Unknown = 0;
};

}  // namespace Kes
