// Objects at the two ends of one association, and what ought to be linked.

#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Shape.h"

namespace Kes::check {

/// Which of the ends refers to many partners.
struct Ends {
    const char* name;
    bool isLeftMany;
    bool isRightMany;
    bool isSelf;  ///< one class plays both ends
};

/// Links and dissolves, both in the model and in an oracle.
///
/// Objects are numbered; a number means the object at the left or at the right
/// end, which are the same for an association of a class with itself.
class Links {
public:
    using Pairs = std::set<std::pair<std::size_t, std::size_t>>;

    struct Touched {
        std::set<std::size_t> lefts;
        std::set<std::size_t> rights;
    };

    Links(Check& runs, const Ends& which);

    /// New ones at both ends, in the transaction under way or in one of its own.
    void makeObjects(std::size_t count);
    void storeObjects(std::size_t count);

    void link(std::size_t left, std::size_t right);
    void unlink(std::size_t left, std::size_t right);

    /// The same by way of the right object's reference.
    void linkBackwards(std::size_t left, std::size_t right);
    void unlinkBackwards(std::size_t left, std::size_t right);
    void removeLeft(std::size_t number);
    void removeRight(std::size_t number);

    /// Closes the session and reads all objects anew, without their references.
    void reopen();

    /// Holds what this session has in memory against the oracle; the check ends
    /// where they differ.
    void verifyMemory(const std::string& when = "");

    /// Holds what a new session reads and what conditions find against it.
    void verify();

    /// Adds the two objects and all their partners; false when one is known.
    bool touch(std::size_t left, std::size_t right, Touched& touched) const;

    const Pairs& pairs() const { return expected; }
    void restore(const Pairs& before) { expected = before; }
    bool isLeftMany() const { return ends.isLeftMany; }

private:
    std::vector<Shape> shapes() const;
    void note(std::size_t left, std::size_t right);
    void forget(std::size_t number, bool isLeft);
    void compareSides(const std::vector<Object*>& lefts, const std::vector<Object*>& rights,
                      const std::string& where);
    void compareConditions(CheckModel& session, const std::vector<Object*>& lefts,
                           const std::vector<Object*>& rights);

    Check& check;
    Ends ends;
    std::string leftClass;
    std::string rightClass;
    std::string association;
    Pairs expected;

public:
    CheckModel model;

private:
    std::vector<Pointer<Object>> left;  // empty where the object was removed
    std::vector<Pointer<Object>> right;
    std::vector<unsigned long> leftIds;
    std::vector<unsigned long> rightIds;
};

}  // namespace Kes::check
