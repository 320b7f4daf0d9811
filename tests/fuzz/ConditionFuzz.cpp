// Condition trees on SQLite, against a plain evaluation of the same tree.
//
// The rows never change. A case is a tree, written in the order in which it is
// read: joins, comparisons of each kind of field with each kind of value, tests of
// the roles of each kind of association against an object, against null and against
// a nested selection. Behind it come the keys to sort by.

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <type_traits>
#include <vector>

#include <kes/Kes.h>

#include "drivers/common/TextForms.h"
#include "tests/fuzz/Input.h"

namespace Kes::fuzz {

namespace {

constexpr unsigned RowCount = 24;
constexpr unsigned BoxCount = 5;

const int Ints[] = {0, 1, -1, 7, INT_MAX, INT_MIN};
const long Longs[] = {0, -1, 1L << 53, (1L << 53) + 1, LONG_MAX, LONG_MIN};
const unsigned int UInts[] = {0, 1, 7, 1U << 31, UINT_MAX, UINT_MAX - 1};
const unsigned long ULongs[] = {0, 1, 1UL << 53, (1UL << 53) + 1, LONG_MAX, LONG_MAX - 1};
const double Doubles[] = {0.0, -0.0, 0.1, DBL_MAX, -DBL_MAX, 5e-324};
const float Floats[] = {0.0F, 0.1F, -1.5F, FLT_MAX, 16777216.0F, 1e-45F};
const char* const Texts[] = {"",     "a", "A", "a%_b", "\\",    "\xC3\xA4 \xE2\x82\xAC",
                             "a\\%", "%", "_", "ab",   "aab b", "\xF0\x9F\x98\x80"};
const Timestamp Times[] = {{1, 1, 1, 0, 0, 0},         {1999, 12, 31, 23, 59, 59},
                           {2000, 1, 1, 0, 0, 0},      {2000, 2, 29, 12, 0, 0},
                           {7899, 12, 31, 23, 59, 59}, {2000, 1, 1, 0, 0, 1}};

class Row;

class Box final : public Instance {
public:
    explicit Box(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleInt("number", number);
        h->handleManyAssociated("Storage", "content", &content);
    }

    int number = 0;
    Many<Row> content{this};
};

class Row : public Instance {
public:
    explicit Row(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleInt("number", number);
        h->handleLong("wide", wide);
        h->handleUInt("count", count);
        h->handleULong("size", size);
        h->handleDouble("real", real);
        h->handleFloat("single", single);
        h->handleBool("flag", flag);
        h->handleString("text", text, 0);
        h->handleTimestamp("moment", moment);
        h->handleBlob("bytes", bytes);
        h->handleOneAssociated("Chain", "next", &next, Association::Unlink);
        h->handleManyAssociated("Chain", "previous", &previous);
        h->handleOneAssociated("Pair", "mate", &mate, Association::Unlink);
        h->handleOneAssociated("Pair", "mateOf", &mateOf, Association::Unlink);
        h->handleManyAssociated("Circle", "friends", &friends);
        h->handleManyAssociated("Circle", "friendOf", &friendOf);
        h->handleOneAssociated("Storage", "box", &box, Association::Unlink);
    }

    int number = 0;
    long wide = 0;
    unsigned int count = 0;
    unsigned long size = 0;
    double real = 0;
    float single = 0;
    bool flag = false;
    String text;
    Timestamp moment;
    Blob bytes;
    One<Row> next{this};
    Many<Row> previous{this};
    One<Row> mate{this};
    One<Row> mateOf{this};
    Many<Row> friends{this};
    Many<Row> friendOf{this};
    One<Box> box{this};
};

// Of another class, and so of another table.
class Special final : public Row {
public:
    explicit Special(Class* c) : Row(c) {}
    void handle(Handler* h) override {
        Row::handle(h);
        h->handleInt("extra", extra);
    }

    int extra = 0;
};

class RowModel final : public Model {
public:
    RowModel() : Model("rows", 1000) {
        open("sqlite", ":memory:", "", "", "");
        setMaxUndoSize(0);
        for (unsigned i = 0; i < BoxCount; ++i) {
            boxes.emplace_back(static_cast<Box*>(boxClass->newInstance()));
            boxes[i]->number = Ints[i];
        }
        for (unsigned i = 0; i < RowCount; ++i)
            rows.emplace_back(makeRow(i));
        for (unsigned i = 0; i < RowCount; i += 1 + i % 2)
            rows[i]->next = rows[i * 7 % RowCount];
        for (unsigned i = 0; i < RowCount; i += 3)
            rows[i]->mate = rows[(i * 5 + 1) % RowCount];
        for (unsigned i = 0; i < RowCount; i += 2)
            for (unsigned j = i % 3; j < RowCount; j += 5)
                rows[i]->friends.add(rows[j]);
        commit();
    }

    Class* rowClass = nullptr;
    Class* specialClass = nullptr;
    Class* boxClass = nullptr;
    std::vector<Pointer<Row>> rows;
    std::vector<Pointer<Box>> boxes;

protected:
    void declareModel() override {
        setVersion(1);
        boxClass = addClass("Box", 1, [](Class* c) -> Instance* { return new Box(c); });
        rowClass = addClass("Row", 1, [](Class* c) -> Instance* { return new Row(c); });
        specialClass = addClass("Special", 1, [](Class* c) -> Instance* { return new Special(c); });
        specialClass->subclassOf(rowClass);
    }

private:
    Row* makeRow(unsigned i) {
        Class* of = i % 4 == 3 ? specialClass : rowClass;
        auto* row = static_cast<Row*>(of->newInstance());
        const unsigned j = i * i + i / 6;
        row->number = Ints[i % 6];
        row->wide = Longs[j % 6];
        row->count = UInts[(i + j) % 6];
        row->size = ULongs[(i / 4) % 6];
        row->real = Doubles[(i / 2) % 6];
        row->single = Floats[(i / 3) % 6];
        row->flag = i % 5 < 2;
        row->text = Texts[(i + i / 6) % std::size(Texts)];
        row->moment = Times[(j / 2) % 6];
        if (i % 4 != 0)
            row->box = boxes[i % (BoxCount - 1)];
        if (of == specialClass)
            static_cast<Special*>(row)->extra = Ints[(i / 4) % 6];
        return row;
    }
};

RowModel* makeModel() try { return new RowModel; } catch (const Exception& refused) {
    demand(false, refused.getMessage());
    return nullptr;
}

RowModel& theModel() {
    static RowModel& model = *makeModel();
    return model;
}

// A condition and what it means.
template <class T>
using Test = std::function<bool(const T&)>;

template <class T>
struct Both {
    std::unique_ptr<Condition> condition;
    Test<T> holds;
};

template <class T>
Both<T> join(const Condition& condition, const Test<T>& holds) {
    return {std::unique_ptr<Condition>(condition.getNew()), holds};
}

// Numbers of all kinds as mathematics has them. Nothing else holds all of them.
using Wide = long double;
static_assert(std::numeric_limits<Wide>::digits >= 64);

template <class T>
bool compares(unsigned op, const T& a, const T& b) {
    switch (op) {
    case 0: return a == b;
    case 1: return !(a == b);
    case 2: return b < a;
    case 3: return a < b;
    case 4: return b < a || a == b;
    default: return a < b || a == b;
    }
}

template <class Value>
Both<Row> comparison(const Attribute& tested, unsigned op, const Value& value,
                     const Test<Row>& holds) {
    switch (op) {
    case 0: return join<Row>(tested == value, holds);
    case 1: return join<Row>(tested != value, holds);
    case 2: return join<Row>(tested > value, holds);
    case 3: return join<Row>(tested < value, holds);
    case 4: return join<Row>(tested >= value, holds);
    default: return join<Row>(tested <= value, holds);
    }
}

// One character of UTF-8, or a byte that is none.
std::size_t characterAt(const char* text) {
    std::size_t size = 1;
    while ((static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
        ++size;
    return size;
}

bool isLike(const char* text, const char* pattern) {
    if (*pattern == '\0')
        return *text == '\0';
    if (*pattern == '%')
        return isLike(text, pattern + 1) ||
               (*text != '\0' && isLike(text + characterAt(text), pattern));
    if (*text == '\0')
        return false;
    if (*pattern == '_')
        return isLike(text + characterAt(text), pattern + 1);
    if (*pattern == '\\' && pattern[1] != '\0')
        ++pattern;
    return *text == *pattern && isLike(text + 1, pattern + 1);
}

// A field of numbers, and how it is read from an object.
struct Number {
    const char* name;
    Wide (*read)(const Row&);
};

template <auto Member>
Wide read(const Row& row) {
    return static_cast<Wide>(row.*Member);
}

const Number Numbers[] = {
    {"number", read<&Row::number>},
    {"wide", read<&Row::wide>},
    {"count", read<&Row::count>},
    {"size", read<&Row::size>},
    {"real", read<&Row::real>},
    {"single", read<&Row::single>},
    {"flag", read<&Row::flag>},
    {"KesObjectID", [](const Row& r) { return static_cast<Wide>(r.getObjectID()); }},
    {"KesVersion", [](const Row& r) { return static_cast<Wide>(r.getVersion()); }}};

// A role of the rows, and whom an object has in it.
struct Partners {
    const char* association;
    const char* role;
    std::vector<const Row*> (*read)(const Row&);
};

template <auto Member>
std::vector<const Row*> partner(const Row& row) {
    const Row* only = (row.*Member).get();
    return only != nullptr ? std::vector<const Row*>{only} : std::vector<const Row*>{};
}

template <auto Member>
std::vector<const Row*> partners(const Row& row) {
    std::vector<const Row*> all;
    for (const Row* each : row.*Member)
        all.push_back(each);
    return all;
}

const Partners Roles[] = {{"Chain", "next", partner<&Row::next>},
                          {"Chain", "previous", partners<&Row::previous>},
                          {"Pair", "mate", partner<&Row::mate>},
                          {"Pair", "mateOf", partner<&Row::mateOf>},
                          {"Circle", "friends", partners<&Row::friends>},
                          {"Circle", "friendOf", partners<&Row::friendOf>}};

class Builder {
public:
    Builder(Input& itsInput, Selection& itsSelection) : input(itsInput), selection(itsSelection) {}

    Both<Row> build(int depth) {
        switch (input.choice(depth > 0 ? 20 : 11)) {
        case 0:
        case 1:
        case 2:
        case 3: return compareNumbers();
        case 4: return compareTexts();
        case 5: return compareTimes();
        case 6: return matchTexts();
        case 7: return testPartner();
        case 8: return testEmpty();
        case 9: return testBox();
        case 10: return refuse();
        case 11:
        case 12: return testNested(depth);
        case 13: return testNestedBox(depth);
        case 14: return testSpecial(depth);
        default: return combine(depth);
        }
    }

    /// What in the tree has no meaning; empty when all has.
    const std::string& getNonsense() const { return nonsense; }

    /// How many selections there are within each other.
    int getLevels() const { return levels; }

private:
    template <class T>
    T value(const T (&usual)[6]) {
        const unsigned which = input.choice(7);
        return which < 6 ? usual[which] : input.number<T>();
    }

    Both<Row> compareNumbers() {
        const Number& field = Numbers[input.choice(std::size(Numbers))];
        const unsigned op = input.choice(6);
        const Attribute tested = selection[field.name];
        const auto compare = [&](auto constant) {
            const auto wide = static_cast<Wide>(constant);
            return comparison(tested, op, constant, [op, wide, read = field.read](const Row& r) {
                return compares(op, read(r), wide);
            });
        };
        switch (input.choice(7)) {
        case 0: return compare(value(Ints));
        case 1: return compare(value(Longs));
        case 2: return compare(value(UInts));
        case 3: return compare(value(ULongs));
        case 4: return compare(value(Doubles));
        case 5: return compare(value(Floats));
        default: return compare(input.choice(2) == 0);
        }
    }

    // Texts are ordered by their bytes.
    Both<Row> compareTexts() {
        const unsigned op = input.choice(6);
        const unsigned which = input.choice(std::size(Texts) + 2);
        std::string text = which < std::size(Texts) ? Texts[which] : input.text().c_str();
        noteText(text);
        return comparison(selection["text"], op, text.c_str(), [op, text](const Row& r) {
            return compares(op, std::string(static_cast<const char*>(r.text)), text);
        });
    }

    Both<Row> compareTimes() {
        const unsigned op = input.choice(6);
        const unsigned which = input.choice(7);
        Timestamp time = Times[which % 6];
        if (which == 6) {
            time.setAllDays(input.number<int>());
            time.setAllSeconds(input.number<int>());
            if (time.getAllDays() < 0 || time > Times[4] || time.getAllSeconds() < 0 ||
                time.getAllSeconds() > 86400)
                nonsense += " a time of " + std::to_string(time.getAllDays()) + ", " +
                            std::to_string(time.getAllSeconds());
        }
        return comparison(selection["moment"], op, time,
                          [op, time](const Row& r) { return compares(op, r.moment, time); });
    }

    // Of letters that mean something, and some that do not.
    Both<Row> matchTexts() {
        static const char* const parts[] = {"%", "_", "\\", "a", "A", "b", "\xC3\xA4", " "};
        std::string pattern;
        for (unsigned i = input.choice(6); i > 0; --i)
            pattern += parts[input.choice(8)];
        if (input.choice(8) == 0)
            pattern += input.text().substr(0, 12).c_str();
        noteText(pattern);
        return join<Row>(selection["text"].like(pattern.c_str()),
                         [pattern](const Row& r) { return isLike(r.text, pattern.c_str()); });
    }

    void noteText(const std::string& text) {
        if (!sql::isValidUtf8(text.data(), text.size()))
            nonsense += " no UTF-8";
    }

    Both<Row> testPartner() {
        const bool wantsSome = input.choice(2) == 0;
        Row* const wanted = theModel().rows[input.choice(RowCount)];
        const Partners& of = Roles[input.choice(std::size(Roles))];
        const Role role = selection(of.association, of.role);
        const Test<Row> holds = [wantsSome, wanted, read = of.read](const Row& r) {
            const auto all = read(r);
            return (std::find(all.begin(), all.end(), wanted) != all.end()) == wantsSome;
        };
        return wantsSome ? join(role == wanted, holds) : join(role != wanted, holds);
    }

    Both<Row> testEmpty() {
        const bool wantsNone = input.choice(2) == 0;
        const Partners& of = Roles[input.choice(std::size(Roles))];
        const Role role = selection(of.association, of.role);
        const Test<Row> holds = [wantsNone, read = of.read](const Row& r) {
            return read(r).empty() == wantsNone;
        };
        return wantsNone ? join(role == nullptr, holds) : join(role != nullptr, holds);
    }

    // The other class's object is found by its association alone.
    Both<Row> testBox() {
        const bool isEqual = input.choice(2) == 0;
        const unsigned which = input.choice(BoxCount + 1);
        Box* const wanted = which < BoxCount ? theModel().boxes[which].operator Box*() : nullptr;
        const Role role = selection("Storage");
        const Test<Row> holds = [isEqual, wanted](const Row& r) {
            return (r.box.get() == wanted) == isEqual;
        };
        if (wanted == nullptr)
            return isEqual ? join(role == nullptr, holds) : join(role != nullptr, holds);
        return isEqual ? join(role == wanted, holds) : join(role != wanted, holds);
    }

    // A condition that no object can be held against.
    Both<Row> refuse() {
        const Test<Row> holds = [](const Row&) { return false; };
        if (input.choice(8) != 0)
            return join(selection["number"] == -5, holds);
        const unsigned which = input.choice(8);
        nonsense += " condition " + std::to_string(which);
        switch (which) {
        case 0: return join(selection["nope"] == 1, holds);
        case 1: return join(selection["bytes"] == "a", holds);
        case 2: return join(selection["text"] == 1, holds);
        case 3: return join(selection["number"] == "1", holds);
        case 4: return join(selection["moment"] == "2000-01-01 00:00:00", holds);
        case 5: return join(selection("Nothing", "next") == nullptr, holds);
        case 6: return join(selection("Storage", "content") == nullptr, holds);
        default: return join(selection("Chain", "next") == theModel().boxes[0], holds);
        }
    }

    /// `before` is the nonsense in front of the inner condition, which may be left out.
    template <class T>
    Both<Row> oneOf(const Role& role, Selection& nested, bool wantsSome, const Both<T>& inner,
                    const std::function<std::vector<const T*>(const Row&)>& read,
                    const std::string& before) {
        const bool isAll = input.choice(8) == 0;
        if (isAll)
            nonsense = before;
        else
            nested.where(*inner.condition);
        const Test<Row> holds = [wantsSome, isAll, test = inner.holds, read](const Row& r) {
            const auto all = read(r);
            return std::any_of(all.begin(), all.end(),
                               [&](const T* each) { return isAll || test(*each); }) == wantsSome;
        };
        return wantsSome ? join(role == nested, holds) : join(role != nested, holds);
    }

    Both<Row> testNested(int depth) {
        const std::string before = nonsense;
        const bool wantsSome = input.choice(2) == 0;
        const Partners& of = Roles[input.choice(std::size(Roles))];
        Selection nested(theModel().rowClass);
        const Both<Row> inner = inside(nested, depth);
        return oneOf<Row>(selection(of.association, of.role), nested, wantsSome, inner, of.read,
                          before);
    }

    // A partner of the sub class, all of whose fields may be asked for.
    Both<Row> testSpecial(int depth) {
        const std::string before = nonsense;
        const bool wantsSome = input.choice(2) == 0;
        const unsigned op = input.choice(6);
        const int extra = value(Ints);
        const Partners& of = Roles[input.choice(std::size(Roles))];
        Selection nested(theModel().specialClass);
        const Both<Row> first = inside(nested, depth);
        const Both<Row> second = comparison(nested["extra"], op, extra, [op, extra](const Row& r) {
            return compares(op, static_cast<const Special&>(r).extra, extra);
        });
        const Both<Row> inner =
            join<Row>(*first.condition & *second.condition,
                      [a = first.holds, b = second.holds](const Row& r) { return a(r) && b(r); });
        return oneOf<Row>(
            selection(of.association, of.role), nested, wantsSome, inner,
            [read = of.read](const Row& r) {
                std::vector<const Row*> all = read(r);
                std::erase_if(all, [](const Row* each) {
                    return each->getClass() != theModel().specialClass;
                });
                return all;
            },
            before);
    }

    // To the other class, and perhaps from there back to the rows.
    Both<Row> testNestedBox(int depth) {
        const std::string before = nonsense;
        const bool wantsSome = input.choice(2) == 0;
        const bool goesBack = input.choice(2) == 0;
        const int number = value(Ints);
        Selection boxes(theModel().boxClass);
        Both<Box> inner = join<Box>(boxes["number"] >= number,
                                    [number](const Box& b) { return b.number >= number; });
        if (goesBack) {
            Selection nested(theModel().rowClass);
            const Both<Row> content = inside(nested, depth, 2);
            nested.where(*content.condition);
            inner = join<Box>(boxes("Storage") == nested, [test = content.holds](const Box& b) {
                bool some = false;
                for (const Row* each : b.content)
                    some = some || test(*each);
                return some;
            });
        }
        return oneOf<Box>(
            selection("Storage"), boxes, wantsSome, inner,
            [](const Row& r) {
                const Box* box = r.box.get();
                return box != nullptr ? std::vector<const Box*>{box} : std::vector<const Box*>{};
            },
            before);
    }

    /// `selections` of them lead there.
    Both<Row> inside(Selection& nested, int depth, int selections = 1) {
        Builder builder(input, nested);
        Both<Row> inner = builder.build(depth - 1);
        nonsense += builder.getNonsense();
        levels = std::max(levels, builder.getLevels() + selections);
        return inner;
    }

    Both<Row> combine(int depth) {
        const bool isAnd = input.choice(2) == 0;
        const Both<Row> left = build(depth - 1);
        const Both<Row> right = build(depth - 1);
        const Test<Row> holds = [isAnd, a = left.holds, b = right.holds](const Row& r) {
            return isAnd ? a(r) && b(r) : a(r) || b(r);
        };
        return isAnd ? join(*left.condition & *right.condition, holds)
                     : join(*left.condition || *right.condition, holds);
    }

    Input& input;
    Selection& selection;
    std::string nonsense;
    int levels = 0;
};

// So many selections within each other leave SQLite no room for what may stand around
// and in them.
constexpr int MostLevels = 7;

using Order = std::function<int(const Row&, const Row&)>;

template <class T>
int order(const T& a, const T& b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

// The keys that the case ends with, and what they mean.
Order sortBy(Input& input, Selection& selection, bool isMerged) {
    Order all = [](const Row&, const Row&) { return 0; };
    for (unsigned i = input.choice(4); i > 0; --i) {
        const unsigned which = input.choice(std::size(Numbers) + 2);
        const bool isAscending = input.choice(2) == 0;
        const bool isNumber = which < std::size(Numbers);
        const char* name = isNumber                      ? Numbers[which].name
                           : which == std::size(Numbers) ? "text"
                                                         : "moment";
        if (isMerged && std::string(name) == "flag")
            continue;
        selection.orderBy(selection[name], isAscending);
        all = [=](const Row& a, const Row& b) {
            const int before = all(a, b);
            const int here = isNumber ? order(Numbers[which].read(a), Numbers[which].read(b))
                             : which == std::size(Numbers)
                                 ? order(std::string(static_cast<const char*>(a.text)),
                                         std::string(static_cast<const char*>(b.text)))
                                 : order(a.moment, b.moment);
            return before != 0 ? before : isAscending ? here : -here;
        };
    }
    return all;
}

/// Nothing when the selection is refused.
std::optional<std::vector<const Row*>> run(Selection& selection, std::string& words) {
    std::vector<const Row*> found;
    try {
        while (selection.next())
            found.push_back(static_cast<const Row*>(selection.value()));
    } catch (const Exception& refused) {
        demand(std::string(refused.getCode()) == "SELERR" && *refused.getMessage() != '\0',
               "a refusal without words");
        words = refused.getMessage();
        return std::nullopt;
    }
    return found;
}

}  // namespace

}  // namespace Kes::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Kes::fuzz;
    RowModel& model = theModel();
    Input input(data, size);
    const bool isSpecial = input.choice(4) == 0;
    Kes::Selection selection(isSpecial ? model.specialClass : model.rowClass);
    Builder builder(input, selection);
    const Both<Row> both = builder.build(4);
    selection.where(*both.condition);
    const Order order = sortBy(input, selection, !isSpecial);
    std::string words;
    const auto found = run(selection, words);
    if (!found && builder.getLevels() > MostLevels &&
        words.find("nested too deep") != std::string::npos)
        return 0;
    demand(found.has_value() == builder.getNonsense().empty(),
           found ? "nonsense is answered:" + builder.getNonsense()
                 : "a condition with a meaning is refused: " + words);
    if (!found)
        return 0;
    const std::set<const Row*> unique(found->begin(), found->end());
    demand(unique.size() == found->size(), "an object that comes twice");
    for (const Kes::Pointer<Row>& row : model.rows) {
        const bool isMeant =
            (!isSpecial || row->getClass() == model.specialClass) && both.holds(*row);
        demand((unique.count(row) != 0) == isMeant, "row " + std::to_string(row->getObjectID()) +
                                                        (isMeant ? " is not found" : " is found"));
    }
    for (std::size_t i = 1; i < found->size(); ++i)
        demand(order(*(*found)[i - 1], *(*found)[i]) <= 0, "another order");
    return 0;
}
