// Sorting by every kind of field, by several keys and over several classes.

#include <algorithm>
#include <random>

#include "Shape.h"
#include "Topics.h"
#include "ValueCases.h"

namespace Kes::check {

namespace {

struct Key {
    std::string field;
    bool ascending = true;
};

// How `one` stands to `other` by all keys.
int compareBy(const std::vector<Key>& keys, Object& one, Object& other) {
    for (const Key& key : keys) {
        const int difference = compare(one[key.field], other[key.field]);
        if (difference != 0)
            return key.ascending ? difference : -difference;
    }
    return 0;
}

// Sorts the class and looks at every pair of neighbours.
void checkSorted(Check& check, CheckModel& model, const std::string& className,
                 const std::vector<Key>& keys, std::size_t wanted) {
    Selection selection(model[className]);
    for (const Key& key : keys)
        selection.orderBy(selection[key.field.c_str()], key.ascending);
    const std::vector<Pointer<Object>> found = allOf(selection);
    check.expectEqual(wanted, found.size(), "objects delivered");
    for (std::size_t i = 1; i < found.size(); ++i)
        check.expect(compareBy(keys, *found[i - 1], *found[i]) <= 0,
                     "sorted by " + keys.front().field + ", " +
                         describe((*found[i - 1])[keys.front().field]) + " comes before " +
                         describe((*found[i])[keys.front().field]));
    std::vector<unsigned long> ids;
    ids.reserve(found.size());
    for (const Pointer<Object>& object : found)
        ids.push_back(object->getObjectID());
    std::sort(ids.begin(), ids.end());
    check.expect(std::adjacent_find(ids.begin(), ids.end()) == ids.end(),
                 "an object is delivered twice");
}

std::vector<Value> valuesFor(Kind kind) {
    std::vector<Value> values;
    for (const ValueCase& each : valueCases(kind))
        if (each.property == nullptr)
            values.push_back(each.get());
    if (kind == Kind::Text)
        for (const char* text : {"Z", "_", "a", "A", "aa", "a b", "a!", "\xC3\x84", "zz", "0", "10",
                                 "9", "\x7F", "\xEF\xBF\xBD"})
            values.emplace_back(String(text));
    return values;
}

// Half of the values in each of two sub classes, in no order.
void checkKind(Check& check, Kind kind, bool ascending, bool overClasses) {
    const std::string base = "Sorted" + nameOf(kind);
    const std::string other = base + "Two";
    CheckModel model(
        check, base,
        {Shape(base).field("key", kind), Shape(other, base).field("extra", Kind::Int)});
    model.open();
    std::vector<Value> values = valuesFor(kind);
    Selection known(model[base]);
    if (!known.next()) {
        std::mt19937 random(check.config().seed);
        for (const std::string& name : {base, other}) {
            storeOddCases(model, name, "key", kind);
            std::shuffle(values.begin(), values.end(), random);
            transact(model, [&] {
                for (const Value& value : values)
                    (*model.make(name))["key"] = value;
            });
        }
    }
    Selection unsorted(model[other]);
    const std::size_t single = idsOf(unsorted).size();
    check.expect(single >= values.size(), "values are missing");
    checkSorted(check, model, overClasses ? base : other, {{"key", ascending}},
                overClasses ? 2 * single : single);
}

struct Ranked {
    explicit Ranked(const Check& check)
        : model(check, "ranked",
                {Shape("Ranked")
                     .field("group", Kind::Int)
                     .field("name", Kind::Text)
                     .field("weight", Kind::Double)
                     .field("done", Kind::Bool),
                 Shape("RankedOne", "Ranked").field("own", Kind::Long),
                 Shape("RankedTwo", "Ranked").field("own", Kind::Text)}) {
        model.open();
        Selection known(model["Ranked"]);
        if (known.next())
            return;
        std::mt19937 random(check.config().seed);
        transact(model, [&] {
            for (std::size_t i = 0; i < Count; ++i) {
                const char* names[] = {"Ranked", "RankedOne", "RankedTwo"};
                Object& object = *model.make(names[i % 3]);
                object["group"] = static_cast<int>(random() % 5) - 2;
                object["name"] = String(std::to_string(random() % 7).c_str());
                object["weight"] = static_cast<double>(random() % 3) / 2;
                object["done"] = random() % 2 == 0;
            }
        });
    }

    static constexpr std::size_t Count = 300;
    CheckModel model;
};

void checkTwoKeys(Check& check) {
    Ranked ranked(check);
    for (const bool first : {true, false})
        for (const bool second : {true, false})
            checkSorted(check, ranked.model, "Ranked", {{"group", first}, {"name", second}},
                        Ranked::Count);
}

void checkThreeKeys(Check& check) {
    Ranked ranked(check);
    checkSorted(check, ranked.model, "Ranked",
                {{"weight", false}, {"name", true}, {"group", false}}, Ranked::Count);
    checkSorted(check, ranked.model, "Ranked", {{"name", true}, {"group", true}, {"weight", true}},
                Ranked::Count);
}

void checkBoolKeys(Check& check) {
    Ranked ranked(check);
    for (const bool ascending : {true, false})
        checkSorted(check, ranked.model, "RankedOne", {{"done", ascending}, {"group", true}},
                    Ranked::Count / 3);
}

void checkOwnField(Check& check) {
    Ranked ranked(check);
    checkSorted(check, ranked.model, "RankedOne", {{"group", false}, {"own", true}},
                Ranked::Count / 3);
}

void checkConditionToo(Check& check) {
    Ranked ranked(check);
    Selection selection(ranked.model["Ranked"]);
    selection.where(selection["group"] > 0);
    selection.orderBy(selection["name"], false);
    selection.orderBy(selection["weight"], true);
    const std::vector<Pointer<Object>> found = allOf(selection);
    Selection everything(ranked.model["Ranked"]);
    std::size_t wanted = 0;
    while (everything.next())
        if (std::get<int>((*static_cast<Object*>(everything.value()))["group"]) > 0)
            ++wanted;
    check.expectEqual(wanted, found.size(), "objects delivered");
    for (std::size_t i = 1; i < found.size(); ++i)
        check.expect(compareBy({{"name", false}, {"weight", true}}, *found[i - 1], *found[i]) <= 0,
                     "the selected objects are not sorted");
}

// Which order ties have is open; that all come is not.
void checkTies(Check& check) {
    CheckModel model(check, "tied",
                     {Shape("Tied").field("key", Kind::Int),
                      Shape("TiedTwo", "Tied").field("extra", Kind::Int)});
    model.open();
    transact(model, [&] {
        for (int i = 0; i < 100; ++i)
            model.make(i % 2 == 0 ? "Tied" : "TiedTwo");
    });
    checkSorted(check, model, "Tied", {{"key", true}}, 100);
}

void checkById(Check& check) {
    Ranked ranked(check);
    Selection selection(ranked.model["Ranked"]);
    selection.orderBy(selection["KesObjectID"], false);
    const std::vector<unsigned long> ids = idsOf(selection);
    check.expectEqual(Ranked::Count, ids.size(), "objects delivered");
    check.expect(std::is_sorted(ids.rbegin(), ids.rend()), "the ids do not descend");
}

void checkUnknown(Check& check) {
    CheckModel model(check, "unsorted",
                     {Shape("Unsorted")
                          .field("key", Kind::Int)
                          .field("blob", Kind::Blob)
                          .one("Unsorted", "next")
                          .one("Unsorted", "previous")});
    model.open();
    transact(model, [&] { model.make("Unsorted"); });
    for (const char* name :
         {"nope", "", "key desc", "key\" desc, \"key", "1", "KEY", "blob", "next", "random()"}) {
        const Raised raised = raisedBy([&] {
            Selection selection(model["Unsorted"]);
            selection.orderBy(selection[name], true);
            selection.next();
        });
        check.expect(raised.code == "SELERR" && raised.names(name),
                     std::string("sorting by \"") + name + "\" is to raise SELERR and name it; " +
                         (raised ? raised.code + ": " + raised.message : "nothing was raised"));
    }
}

}  // namespace

void addOrderChecks(Suite& suite) {
    for (const Kind kind : AllKinds) {
        if (kind == Kind::Blob)
            continue;
        for (const bool ascending : {true, false}) {
            const std::string topic = "order." + nameOf(kind) + (ascending ? ".up" : ".down");
            suite.add(topic, [=](Check& c) { checkKind(c, kind, ascending, false); });
            // Booleans cannot be merged over several classes.
            if (kind != Kind::Bool)
                suite.add(topic + "-over-classes",
                          [=](Check& c) { checkKind(c, kind, ascending, true); });
        }
    }
    suite.add("order.two-keys", checkTwoKeys);
    suite.add("order.three-keys", checkThreeKeys);
    suite.add("order.bool-before-another-key", checkBoolKeys);
    suite.add("order.own-field", checkOwnField);
    suite.add("order.with-condition", checkConditionToo);
    suite.add("order.ties", checkTies);
    suite.add("order.by-id", checkById);
    suite.add("order.unknown-field", checkUnknown);
}

}  // namespace Kes::check
