// Condition trees on SQLite, against a plain evaluation of the same tree.
//
// The rows never change. A case is a tree, written in the order in which it is
// read: joins, comparisons of each kind of field, tests of roles against an
// object, against null and against a nested selection.

#include <cfloat>
#include <climits>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include <kes/Kes.h>

#include "tests/fuzz/Input.h"

namespace Kes::fuzz {

namespace {

const int Ints[] = {0, 1, -1, 7, INT_MAX, INT_MIN};
const long Longs[] = {0, -1, 1L << 53, (1L << 53) + 1, LONG_MAX, LONG_MIN};
const unsigned int UInts[] = {0, 1, 7, 1U << 31, UINT_MAX, UINT_MAX - 1};
const unsigned long ULongs[] = {0, 1, 1UL << 53, (1UL << 53) + 1, LONG_MAX, LONG_MAX - 1};
const double Doubles[] = {0.0, -0.0, 0.1, DBL_MAX, -DBL_MAX, 5e-324};
const float Floats[] = {0.0F, 0.1F, -1.5F, FLT_MAX, 16777216.0F, 1e-45F};
const char* const Texts[] = {"", "a", "A", "a%_b", "\\", "\xC3\xA4 \xE2\x82\xAC"};
const Timestamp Times[] = {{1, 1, 1, 0, 0, 0},         {1999, 12, 31, 23, 59, 59},
                           {2000, 1, 1, 0, 0, 0},      {2000, 2, 29, 12, 0, 0},
                           {7899, 12, 31, 23, 59, 59}, {2000, 1, 1, 0, 0, 1}};

class Row final : public Instance {
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
        h->handleOneAssociated("Chain", "next", &next, Association::Unlink);
        h->handleManyAssociated("Chain", "previous", &previous);
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
    One<Row> next{this};
    Many<Row> previous{this};
};

class RowModel final : public Model {
public:
    RowModel() : Model("rows", 1000) {
        open("sqlite", ":memory:", "", "", "");
        setMaxUndoSize(0);
        for (unsigned i = 0; i < 24; ++i) {
            auto* row = static_cast<Row*>(rowClass->newInstance());
            const unsigned j = i * i + i / 6;
            row->number = Ints[i % 6];
            row->wide = Longs[j % 6];
            row->count = UInts[(i + j) % 6];
            row->size = ULongs[(i / 4) % 6];
            row->real = Doubles[(i / 2) % 6];
            row->single = Floats[(i / 3) % 6];
            row->flag = i % 5 < 2;
            row->text = Texts[(i + i / 6) % 6];
            row->moment = Times[(j / 2) % 6];
            rows.emplace_back(row);
        }
        for (unsigned i = 0; i < 24; i += 1 + i % 2)
            rows[i]->next = rows[i * 7 % 24];
        commit();
    }

    Class* rowClass = nullptr;
    std::vector<Pointer<Row>> rows;

protected:
    void declareModel() override {
        setVersion(1);
        rowClass = addClass("Row", 1, [](Class* c) -> Instance* { return new Row(c); });
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
using Test = std::function<bool(const Row&)>;
struct Both {
    std::unique_ptr<Condition> condition;
    Test holds;
};

template <class T>
bool compares(unsigned op, const T& a, const T& b) {
    switch (op) {
    case 0: return a == b;
    case 1: return !(a == b);
    case 2: return b < a;
    case 3: return a < b;
    case 4: return !(a < b);
    default: return !(b < a);
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

class Builder {
public:
    Builder(Input& itsInput, Selection& itsSelection) : input(itsInput), selection(itsSelection) {}

    Both build(int depth) {
        const unsigned kind = input.choice(depth > 0 ? 16 : 12);
        switch (kind) {
        case 0: return compare<int>("number", Ints, [](const Row& r) { return r.number; });
        case 1: return compare<long>("wide", Longs, [](const Row& r) { return r.wide; });
        case 2: return compare<unsigned>("count", UInts, [](const Row& r) { return r.count; });
        case 3: return compare<unsigned long>("size", ULongs, [](const Row& r) { return r.size; });
        case 4: return compare<double>("real", Doubles, [](const Row& r) { return r.real; });
        case 5: return compare<float>("single", Floats, [](const Row& r) { return r.single; });
        case 6: {
            const bool wanted = input.choice(2) == 0;
            return join(selection["flag"] == wanted,
                        [wanted](const Row& r) { return r.flag == wanted; });
        }
        case 7: return compareTexts();
        case 8: return compare<Timestamp>("moment", Times, [](const Row& r) { return r.moment; });
        case 9: return matchTexts();
        case 10: return testPartner();
        case 11: return testEmpty();
        case 12: return testNested(depth);
        default: return combine(depth);
        }
    }

private:
    template <class T, class Values, class Read>
    Both compare(const char* field, const Values& values, Read read) {
        const unsigned op = input.choice(6);
        const T value = values[input.choice(6)];
        const Attribute tested = selection[field];
        const Test holds = [op, value, read](const Row& r) {
            return compares<T>(op, read(r), value);
        };
        switch (op) {
        case 0: return join(tested == value, holds);
        case 1: return join(tested != value, holds);
        case 2: return join(tested > value, holds);
        case 3: return join(tested < value, holds);
        case 4: return join(tested >= value, holds);
        default: return join(tested <= value, holds);
        }
    }

    Both compareTexts() {
        std::vector<String> values;
        for (const char* text : Texts)
            values.emplace_back(text);
        return compare<String>("text", values, [](const Row& r) { return r.text; });
    }

    // Of letters that mean something, and some that do not.
    Both matchTexts() {
        static const char* const parts[] = {"%", "_", "\\", "a", "A", "b", "\xC3\xA4", " "};
        std::string pattern;
        for (unsigned i = input.choice(6); i > 0; --i)
            pattern += parts[input.choice(8)];
        return join(selection["text"].like(pattern.c_str()),
                    [pattern](const Row& r) { return isLike(r.text, pattern.c_str()); });
    }

    Both testPartner() {
        const unsigned op = input.choice(2);
        Row* const wanted = theModel().rows[input.choice(24)];
        const Role role = selection("Chain", "next");
        if (op == 0)
            return join(role == wanted, [wanted](const Row& r) { return r.next == wanted; });
        return join(role != wanted, [wanted](const Row& r) { return !(r.next == wanted); });
    }

    Both testEmpty() {
        const unsigned op = input.choice(4);
        const bool isOne = op < 2;
        const bool wantsNone = op % 2 == 0;
        const Role role = selection("Chain", isOne ? "next" : "previous");
        const Test holds = [isOne, wantsNone](const Row& r) {
            const bool hasNone = isOne ? r.next.get() == nullptr : r.previous.empty();
            return hasNone == wantsNone;
        };
        return wantsNone ? join(role == nullptr, holds) : join(role != nullptr, holds);
    }

    Both testNested(int depth) {
        const unsigned op = input.choice(4);
        const bool isOne = op < 2;
        const bool wantsSome = op % 2 == 0;
        Selection nested(theModel().rowClass);
        const Both inner = Builder(input, nested).build(depth - 1);
        nested.where(*inner.condition);
        const Role role = selection("Chain", isOne ? "next" : "previous");
        const Test holds = [isOne, wantsSome, test = inner.holds](const Row& r) {
            bool some = false;
            if (isOne)
                some = r.next.get() != nullptr && test(*r.next.get());
            else
                for (const Row* each : r.previous)
                    some = some || test(*each);
            return some == wantsSome;
        };
        return wantsSome ? join(role == nested, holds) : join(role != nested, holds);
    }

    Both combine(int depth) {
        const bool isAnd = input.choice(2) == 0;
        Both left = build(depth - 1);
        Both right = build(depth - 1);
        const Test holds = [isAnd, a = left.holds, b = right.holds](const Row& r) {
            return isAnd ? a(r) && b(r) : a(r) || b(r);
        };
        return isAnd ? join(*left.condition & *right.condition, holds)
                     : join(*left.condition || *right.condition, holds);
    }

    static Both join(const Condition& condition, const Test& holds) {
        return {std::unique_ptr<Condition>(condition.getNew()), holds};
    }

    Input& input;
    Selection& selection;
};

}  // namespace

}  // namespace Kes::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Kes::fuzz;
    RowModel& model = theModel();
    Input input(data, size);
    Kes::Selection selection(model.rowClass);
    const Both both = Builder(input, selection).build(4);
    selection.where(*both.condition);
    std::set<const Kes::Instance*> found;
    while (selection.next())
        demand(found.insert(selection.value()).second, "an object that comes twice");
    for (std::size_t i = 0; i < model.rows.size(); ++i) {
        const bool isFound = found.count(model.rows[i]) != 0;
        demand(isFound == both.holds(*model.rows[i]),
               "row " + std::to_string(i) + (isFound ? " is found" : " is not found"));
    }
    return 0;
}
