// Cursors over many rows, several at a time, and while rows change.

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <iomanip>
#include <set>
#include <sstream>

#include <unistd.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "Sessions.h"
#include "Topics.h"

namespace Kes::check {

namespace {

// What the process keeps in memory, in bytes; 0 where that cannot be told.
std::size_t memoryInUse() {
#if defined(KES_SANITIZED_ADDRESS)
    return 0;  // what is freed stays in use for long
#else
    std::ifstream file("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
}

// Far less than a million rows need, and more than a database sorts within.
constexpr std::size_t MostGrowth = 64U << 20;

// What was freed before would hide what is taken now.
std::size_t memoryAtStart() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
    return memoryInUse();
}

// The memory that the process takes for something, from now on.
class Growth {
public:
    void look() { most = std::max(most, memoryInUse()); }
    std::size_t bytes() const { return most - start; }
    std::string describe() const {
        return start == 0 ? "memory not measured" : std::to_string(bytes() >> 20) + " MiB";
    }

private:
    const std::size_t start = memoryAtStart();
    std::size_t most = start;
};

std::vector<Shape> largeShapes() {
    return {Shape("Large").field("number", Kind::Int).field("word", Kind::Text),
            Shape("LargeTwo", "Large").field("more", Kind::Int),
            Shape("LargeMark").field("rows", Kind::Long)};
}

// As many rows as were asked for, half of them in each of two classes; made by
// the first check that needs them.
class Large {
public:
    explicit Large(Check& runs)
        : check(runs),
          rows(runs.config().rows),
          model(runs, "large", largeShapes(), 1, CheckModel::Tagged, 1000) {
        model.open();
        Selection mark(model["LargeMark"]);
        if (!mark.next())
            fill();
    }

    /// Looks at each row of a selection that has not begun, and at the memory
    /// that it takes from the beginning to the end.
    void walk(Selection& selection, long wanted, const std::function<void(Object&)>& look) {
        Growth growth;
        const auto start = std::chrono::steady_clock::now();
        long count = 0;
        while (selection.next()) {
            look(*static_cast<Object*>(selection.value()));
            if (count++ % 1000 == 0)
                growth.look();
        }
        growth.look();
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
        std::ostringstream figures;
        figures << count << " rows in " << std::setprecision(3) << spent.count() << " s, "
                << growth.describe();
        check.note(figures.str());
        check.expectEqual(wanted, count, "rows");
        check.expect(growth.bytes() < MostGrowth, "the rows take " + growth.describe());
    }

    static int numberOf(Object& object) { return std::get<int>(object["number"]); }

    Check& check;
    const long rows;
    CheckModel model;

private:
    // Numbers go up and down, so that no order is that of the rows.
    void fill() {
        constexpr long batch = 20000;
        for (long i = 0; i < rows;) {
            model.startTransaction();
            for (const long end = std::min(i + batch, rows); i < end; ++i) {
                Object& object = *model.make(i % 2 == 0 ? "Large" : "LargeTwo");
                const long number = i % 4 < 2 ? i : rows - i;
                object["number"] = static_cast<int>(number);
                object["word"] = String(("row " + std::to_string(i)).c_str());
            }
            model.commit();
        }
        transact(model, [&] { (*model.make("LargeMark"))["rows"] = rows; });
        model.close();
        model.open();
    }
};

void walkAll(Check& check) {
    Large large(check);
    Selection selection(large.model["Large"]);
    std::vector<bool> seen(static_cast<std::size_t>(large.rows));
    large.walk(selection, large.rows, [&](Object& object) {
        const std::string word = static_cast<const char*>(std::get<String>(object["word"]));
        const auto row = static_cast<std::size_t>(std::stol(word.substr(4)));
        check.require(row < seen.size() && !seen[row], "the row " + word + " comes twice");
        seen[row] = true;
    });
}

void walkSorted(Check& check) {
    Large large(check);
    Selection selection(large.model["Large"]);
    selection.orderBy(selection["number"], false);
    selection.orderBy(selection["word"], true);
    int last = static_cast<int>(large.rows) + 1;
    large.walk(selection, large.rows, [&](Object& object) {
        const int number = Large::numberOf(object);
        check.require(number <= last, "the rows are not sorted");
        last = number;
    });
}

void walkSome(Check& check) {
    Large large(check);
    Selection selection(large.model["LargeTwo"]);
    selection.where(selection["number"] < static_cast<int>(large.rows));
    long wrong = 0;
    large.walk(selection, large.rows / 2, [&](Object& object) {
        if (object.getClass() != large.model["LargeTwo"])
            ++wrong;
    });
    check.expectEqual(0L, wrong, "rows of another class");
}

// The first row comes before the others are fetched.
void giveUpEarly(Check& check) {
    Large large(check);
    Growth growth;
    for (int i = 0; i < 5; ++i) {
        Selection selection(large.model["Large"]);
        for (int k = 0; k < 5; ++k)
            check.require(selection.next(), "the large class has no rows");
        growth.look();
    }
    check.note(growth.describe());
    check.expect(growth.bytes() < MostGrowth,
                 "cursors that are given up take " + growth.describe());
}

constexpr int Count = 2000;

int countRows(Sessions& sessions, const std::function<void(Object&, int)>& look) {
    Selection selection(sessions.one[sessions.name]);
    std::set<unsigned long> seen;
    int count = 0;
    while (selection.next()) {
        sessions.check.expect(seen.insert(selection.value()->getObjectID()).second,
                              "a row comes twice");
        look(*static_cast<Object*>(selection.value()), count++);
    }
    return count;
}

void interleave(Check& check) {
    Sessions sessions(check, "interleaved");
    sessions.store(Count);
    Selection up(sessions.one[sessions.name]);
    Selection down(sessions.one[sessions.name]);
    up.orderBy(up["value"], true);
    down.orderBy(down["value"], false);
    for (int i = 0; i < Count; ++i) {
        check.require(up.next() && down.next(), "a cursor ends early");
        check.expectEqual(i, Sessions::valueOf(*static_cast<Object*>(up.value())), "a row");
        check.expectEqual(Count - 1 - i, Sessions::valueOf(*static_cast<Object*>(down.value())),
                          "a row of the other cursor");
    }
    check.expect(!up.next() && !down.next(), "a cursor does not end");
}

void nest(Check& check) {
    Sessions sessions(check, "nested");
    sessions.store(60);
    const int outer = countRows(sessions, [&](Object&, int) {
        check.expectEqual(60, countRows(sessions, [](Object&, int) {}), "rows of the inner cursor");
    });
    check.expectEqual(60, outer, "rows of the outer cursor");
}

void openMany(Check& check) {
    Sessions sessions(check, "many");
    sessions.store(200);
    std::vector<std::unique_ptr<Selection>> open;
    for (int i = 0; i < 100; ++i) {
        open.push_back(std::make_unique<Selection>(sessions.one[sessions.name]));
        open.back()->where((*open.back())["value"] >= i);
    }
    std::vector<int> counts(open.size());
    for (bool any = true; any;) {
        any = false;
        for (std::size_t i = 0; i < open.size(); ++i)
            if (open[i]->next()) {
                ++counts[i];
                any = true;
            }
    }
    for (std::size_t i = 0; i < counts.size(); ++i)
        check.expectEqual(200 - static_cast<int>(i), counts[i], "rows of a cursor among many");
}

void commitInside(Check& check) {
    Sessions sessions(check, "commits");
    sessions.store(Count);
    const int count = countRows(sessions, [&](Object& object, int i) {
        if (i % 20 == 0)
            transact(sessions.one,
                     [&] { Sessions::change(object, Sessions::valueOf(object) + Count); });
    });
    check.expectEqual(Count, count, "rows");
    Selection changed(sessions.two[sessions.name]);
    changed.where(changed["value"] >= Count);
    check.expectEqual<std::size_t>(Count / 20, idsOf(changed).size(), "rows that were changed");
}

void addInside(Check& check) {
    Sessions sessions(check, "additions");
    sessions.store(Count);
    const int count = countRows(sessions, [&](Object&, int i) {
        if (i % 50 == 0 && i < Count)
            transact(sessions.one, [&] { sessions.one.make(sessions.name); });
    });
    check.expectEqual(Count, count, "rows, without those that were added meanwhile");
}

void removeInside(Check& check) {
    Sessions sessions(check, "removals");
    const std::vector<unsigned long> ids = sessions.store(Count);
    const int count = countRows(sessions, [&](Object&, int i) {
        if (i < 20)
            transact(sessions.one, [&] {
                sessions.get(sessions.one, ids[static_cast<std::size_t>(Count - 1 - i)])->remove();
            });
    });
    check.expectEqual(Count, count, "rows, with those that were removed meanwhile");
    check.expectEqual(Count - 20, countRows(sessions, [](Object&, int) {}), "rows afterwards");
}

void rollBackInside(Check& check) {
    Sessions sessions(check, "rollbacks");
    sessions.store(Count);
    const int count = countRows(sessions, [&](Object& object, int i) {
        if (i % 100 != 0)
            return;
        sessions.one.startTransaction();
        Sessions::change(object, -1);
        sessions.one.make(sessions.name);
        sessions.one.rollback();
    });
    check.expectEqual(Count, count, "rows");
    Selection changed(sessions.two[sessions.name]);
    changed.where(changed["value"] < 0);
    check.expectEqual<std::size_t>(0, idsOf(changed).size(), "rows with a change rolled back");
}

void changeFromOutside(Check& check) {
    Sessions sessions(check, "outside");
    const std::vector<unsigned long> ids = sessions.store(Count);
    const int count = countRows(sessions, [&](Object&, int i) {
        if (i != 10)
            return;
        transact(sessions.two, [&] {
            for (int k = Count - 1; k > Count - 100; --k) {
                Object* object = sessions.get(sessions.two, ids[static_cast<std::size_t>(k)]);
                k % 2 == 0 ? object->remove() : Sessions::change(*object, -k);
            }
            sessions.two.make(sessions.name);
        });
    });
    check.expectEqual(Count, count, "rows of the beginning");
}

void followReferences(Check& check) {
    const std::vector<Shape> shapes{
        Shape("FollowParent").field("number", Kind::Int).many("Follows", "children"),
        Shape("FollowChild").field("number", Kind::Int).one("Follows", "parent")};
    CheckModel model(check, "follow", shapes);
    model.open();
    transact(model, [&] {
        for (int i = 0; i < 300; ++i) {
            Object* parent = model.make("FollowParent");
            (*parent)["number"] = i;
            for (int k = 0; k < 3; ++k) {
                Object* child = model.make("FollowChild");
                (*child)["number"] = i;
                child->link("parent", parent);
            }
        }
    });
    model.close();
    model.open();
    Selection parents(model["FollowParent"]);
    int count = 0;
    for (; parents.next(); ++count) {
        auto& parent = *static_cast<Object*>(parents.value());
        const std::vector<Object*> children = parent.partners("children");
        check.expectEqual<std::size_t>(3, children.size(), "children");
        for (Object* child : children)
            check.expect(compare((*child)["number"], parent["number"]) == 0,
                         "a child of another parent");
    }
    check.expectEqual(300, count, "parents");
}

void endAndStay(Check& check) {
    Sessions sessions(check, "ended");
    Selection none(sessions.one[sessions.name]);
    check.expect(!none.next() && none.value() == nullptr, "an empty class has a row");
    sessions.store(1);
    Selection one(sessions.one[sessions.name]);
    check.expect(one.next(), "one row is none");
    check.expect(!one.next() && !one.next(), "a cursor goes on after its end");
    check.expect(one.value() != nullptr, "the last row is gone after the end");
}

}  // namespace

void addCursorChecks(Suite& suite) {
    suite.add("cursors.large.all-rows", walkAll);
    suite.add("cursors.large.sorted", walkSorted);
    suite.add("cursors.large.with-condition", walkSome);
    suite.add("cursors.large.given-up", giveUpEarly);
    suite.add("cursors.interleaved", interleave);
    suite.add("cursors.nested", nest);
    suite.add("cursors.hundred-at-once", openMany);
    suite.add("cursors.commits-inside", commitInside);
    suite.add("cursors.additions-inside", addInside);
    suite.add("cursors.removals-inside", removeInside);
    suite.add("cursors.rollbacks-inside", rollBackInside);
    suite.add("cursors.changes-from-outside", changeFromOutside);
    suite.add("cursors.references-inside", followReferences);
    suite.add("cursors.end", endAndStay);
}

}  // namespace Kes::check
