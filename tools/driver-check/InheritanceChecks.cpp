// Classes below classes, and what of them a database finds hard.

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "Shape.h"
#include "Topics.h"
#include "ValueCases.h"

namespace Kes::check {

namespace {

// Four levels, with an abstract class in the middle and a concrete one above
// it; objects of one class each.
class Tree {
public:
    explicit Tree(Check& runs, const std::string& label)
        : check(runs),
          prefix("Tree" + label),
          model(runs, prefix, shapes()) {
        model.open();
        transact(model, [&] {
            int number = 0;
            for (const char* level : {"Top", "Under", "Low", "Lowest", "Side"}) {
                Object& object = *model.make(name(level));
                object["number"] = ++number;
                ids.push_back(object.getObjectID());
            }
        });
    }

    std::string name(const std::string& level) const { return prefix + level; }

    void reopen() {
        model.close();
        model.open();
    }

    std::set<int> numbersOf(const std::string& level) {
        Selection selection(model[name(level)]);
        std::set<int> numbers;
        while (selection.next())
            numbers.insert(std::get<int>((*static_cast<Object*>(selection.value()))["number"]));
        return numbers;
    }

    Check& check;
    const std::string prefix;

private:
    std::vector<Shape> shapes() const {
        return {Shape(name("Top")).field("number", Kind::Int).index("number"),
                Shape(name("Middle"), name("Top")).field("text", Kind::Text).asAbstract(),
                Shape(name("Under"), name("Middle")).field("real", Kind::Double),
                Shape(name("Low"), name("Under"))
                    .field("long", Kind::Long)
                    .one("Meets" + prefix, "friend")
                    .many("Meets" + prefix, "friendOf"),
                Shape(name("Lowest"), name("Low")).field("time", Kind::Time),
                Shape(name("Side"), name("Middle")).field("blob", Kind::Blob)};
    }

public:
    CheckModel model;
    std::vector<unsigned long> ids;
};

void selectEachLevel(Check& check) {
    Tree tree(check, "levels");
    tree.reopen();
    check.expect(tree.numbersOf("Top") == std::set<int>{1, 2, 3, 4, 5}, "objects of the root");
    check.expect(tree.numbersOf("Middle") == std::set<int>{2, 3, 4, 5},
                 "objects of an abstract class");
    check.expect(tree.numbersOf("Under") == std::set<int>{2, 3, 4}, "objects of the third level");
    check.expect(tree.numbersOf("Low") == std::set<int>{3, 4}, "objects of the fourth level");
    check.expect(tree.numbersOf("Lowest") == std::set<int>{4}, "objects of the fifth level");
    check.expect(tree.numbersOf("Side") == std::set<int>{5}, "objects of a class beside");
}

void keepClass(Check& check) {
    Tree tree(check, "classes");
    tree.reopen();
    check.expect(tree.model.find(tree.name("Low"), tree.ids[0]) == nullptr,
                 "an object of the root is found by a class below");
    check.expect(tree.model.find(tree.name("Side"), tree.ids[3]) == nullptr,
                 "an object is found by a class that is not its own");
    const char* levels[] = {"Top", "Under", "Low", "Lowest", "Side"};
    for (std::size_t i = 0; i < tree.ids.size(); ++i) {
        Object* object = tree.model.find(tree.name("Top"), tree.ids[i]);
        check.require(object != nullptr, "an object is not found by its root class");
        check.expect(object->getClass() == tree.model[tree.name(levels[i])],
                     std::string("an object of the class ") + levels[i] + " has another class");
    }
}

// Inherited fields and own ones, all at their extremes.
void storeEveryLevel(Check& check) {
    Tree tree(check, "fields");
    const unsigned long id = tree.ids[3];
    transact(tree.model, [&] {
        Object& object = *tree.model.get(tree.name("Lowest"), id);
        object.change();
        object["number"] = -2147483647 - 1;
        object["text"] = String("it's");
        object["real"] = 0.1;
        object["long"] = 9007199254740993L;
        object["time"] = Timestamp(7899, 12, 31, 23, 59, 59);
    });
    tree.reopen();
    Object* object = tree.model.find(tree.name("Top"), id);
    check.require(object != nullptr, "the object is gone");
    check.expect(isExactly((*object)["number"], -2147483647 - 1), "a field of the root");
    check.expect(isExactly((*object)["text"], String("it's")), "a field of the abstract class");
    check.expect(isExactly((*object)["real"], 0.1), "a field of the third level");
    check.expect(isExactly((*object)["long"], 9007199254740993L), "a field of the fourth level");
    check.expect(isExactly((*object)["time"], Timestamp(7899, 12, 31, 23, 59, 59)), "an own field");
    check.expectEqual(1UL, object->getVersion(), "the version");
}

void conditionEachLevel(Check& check) {
    Tree tree(check, "conditions");
    Selection byRoot(tree.model[tree.name("Middle")]);
    byRoot.where((byRoot["number"] > 2) & (byRoot["text"] == ""));
    check.expectEqual<std::size_t>(3, idsOf(byRoot).size(), "objects by an inherited field");
    Selection byOwn(tree.model[tree.name("Lowest")]);
    byOwn.where((byOwn["long"] == 0L) & (byOwn["number"] == 4));
    check.expectEqual<std::size_t>(1, idsOf(byOwn).size(), "objects by fields of two levels");
    const Raised raised = raisedBy([&] {
        Selection selection(tree.model[tree.name("Top")]);
        selection.where(selection["long"] == 0L);
        selection.next();
    });
    check.expectEqual<std::string>("SELERR", raised.code, "a field that only a sub class has");
}

// A role is inherited with the class that has it.
void linkAcrossLevels(Check& check) {
    Tree tree(check, "links");
    Pointer<Object> low(tree.model.find(tree.name("Low"), tree.ids[2]));
    Pointer<Object> lowest(tree.model.find(tree.name("Lowest"), tree.ids[3]));
    transact(tree.model, [&] {
        lowest->link("friend", low);
        low->link("friend", lowest);
    });
    tree.reopen();
    Object* read = tree.model.find(tree.name("Top"), tree.ids[3]);
    check.require(read != nullptr && read->partner("friend") != nullptr, "a link is lost");
    check.expectEqual(tree.ids[2], read->partner("friend")->getObjectID(), "the partner");
    check.expectEqual<std::size_t>(1, read->partners("friendOf").size(), "the links back");
    Selection selection(tree.model[tree.name("Low")]);
    selection.where(selection(tree.model.tagged("Meets" + tree.prefix).c_str(), "friend") ==
                    static_cast<Instance*>(read));
    check.expect(idsOf(selection) == std::vector<unsigned long>{tree.ids[2]},
                 "objects by their partner");
}

void nestDeeply(Check& check, int depth) {
    const std::string prefix = "Deep" + std::to_string(depth) + "x";
    std::vector<Shape> shapes{Shape(prefix + "0").field("field0", Kind::Int, 1)};
    for (int i = 1; i < depth; ++i)
        shapes.push_back(Shape(prefix + std::to_string(i), prefix + std::to_string(i - 1))
                             .field("field" + std::to_string(i), Kind::Int, i + 1));
    CheckModel model(check, prefix, shapes);
    model.open();
    transact(model, [&] {
        for (const Shape& shape : shapes)
            model.make(shape.name);
    });
    model.close();
    model.open();
    for (int i = 0; i < depth; ++i) {
        Selection selection(model[prefix + std::to_string(i)]);
        selection.orderBy(selection[("field" + std::to_string(i)).c_str()], true);
        const std::vector<Pointer<Object>> found = allOf(selection);
        check.expectEqual(static_cast<std::size_t>(depth - i), found.size(), "objects of a level");
        for (const Pointer<Object>& object : found)
            check.expect(isExactly((*object)["field" + std::to_string(i)], i + 1),
                         "a field of a level");
    }
}

void branchWidely(Check& check) {
    constexpr int count = 200;
    std::vector<Shape> shapes{Shape("Wide").field("number", Kind::Int).asAbstract()};
    for (int i = 0; i < count; ++i)
        shapes.push_back(Shape("Wide" + std::to_string(i), "Wide").field("own", Kind::Int));
    CheckModel model(check, "wide", shapes);
    model.open();
    transact(model, [&] {
        for (int i = 0; i < 2 * count; ++i)
            (*model.make("Wide" + std::to_string(i % count)))["number"] = i * 7919 % (2 * count);
    });
    Selection selection(model["Wide"]);
    selection.orderBy(selection["number"], true);
    int number = 0;
    for (; selection.next(); ++number)
        check.expectEqual(number,
                          std::get<int>((*static_cast<Object*>(selection.value()))["number"]),
                          "a number in its place");
    check.expectEqual(2 * count, number, "objects");
}

void haveNoFields(Check& check) {
    CheckModel model(check, "bare", {Shape("Bare"), Shape("BareSub", "Bare")});
    model.open();
    unsigned long id = 0;
    transact(model, [&] {
        id = model.make("Bare")->getObjectID();
        model.make("BareSub");
    });
    model.close();
    model.open();
    check.expect(model.find("Bare", id) != nullptr, "an object without fields is not stored");
    Selection selection(model["Bare"]);
    check.expectEqual<std::size_t>(2, idsOf(selection).size(), "objects without fields");
    transact(model, [&] { model.get("Bare", id)->remove(); });
    Selection left(model["Bare"]);
    check.expectEqual<std::size_t>(1, idsOf(left).size(), "objects without fields that are left");
}

// Two of each kind in one row. Each change leaves all other fields alone.
void haveEveryKind(Check& check) {
    const std::string name = "EveryKind";
    Shape shape(name);
    for (const char* half : {"one", "two"})
        for (const Kind kind : AllKinds)
            shape.field(half + nameOf(kind), kind);
    CheckModel model(check, name, {shape});
    model.open();
    std::ostringstream trace;
    model.traceSQLTo(trace);
    Pointer<Object> object;
    transact(model, [&] { object = model.make(name); });
    const unsigned long id = object->getObjectID();
    std::map<std::string, Value> wanted;
    for (const Member& member : shape.own)
        wanted[static_cast<const char*>(member.name)] = member.initial;
    for (const Member& member : shape.own) {
        const std::string field = static_cast<const char*>(member.name);
        for (const ValueCase& each : valueCases(member.kind))
            if (each.property == nullptr && !isExactly(each.value, member.initial))
                wanted[field] = each.value;
        transact(model, [&] {
            object->change();
            (*object)[field] = wanted[field];
        });
        CheckModel reader(check, name, {shape});
        reader.open();
        Object* read = reader.find(name, id);
        check.require(read != nullptr, "the object is not stored");
        for (const auto& [other, value] : wanted)
            check.expect(isExactly(value, (*read)[other]),
                         "after a change of " + field + ", " + other + " is " +
                             describe((*read)[other]) + " instead of " + describe(value));
    }
    check.expect(!trace.str().empty(), "nothing is traced");
}

void haveManyFields(Check& check, int count, bool mayRefuse) {
    const std::string name = "Fields" + std::to_string(count);
    Shape shape(name);
    for (int i = 0; i < count; ++i)
        shape.field("field" + std::to_string(i), i % 3 == 0   ? Kind::Int
                                                 : i % 3 == 1 ? Kind::Text
                                                              : Kind::Double);
    CheckModel model(check, name, {shape});
    const Raised raised = raisedBy([&] { model.open(); });
    if (mayRefuse)
        check.noteProperty("fields-" + std::to_string(count), static_cast<bool>(raised));
    else
        check.require(!raised, "refused: " + raised.message);
    if (raised) {
        check.expect(raised.names(name), "the refusal does not name the class: " + raised.message);
        return;
    }
    Pointer<Object> object;
    transact(model, [&] {
        object = model.make(name);
        for (int i = 0; i < count; i += 3)
            (*object)["field" + std::to_string(i)] = i;
    });
    const unsigned long id = object->getObjectID();
    model.close();
    model.open();
    Object* read = model.find(name, id);
    check.require(read != nullptr, "the object is not stored");
    for (int i = 0; i < count; i += 3)
        check.expect(std::get<int>((*read)["field" + std::to_string(i)]) == i, "a field");
}

// Somebody else changes the objects of both classes, between the two cursors.
void selectOneState(Check& check) {
    const std::vector<Shape> shapes{Shape("State").field("value", Kind::Int).asAbstract(),
                                    Shape("StateA", "State"), Shape("StateB", "State")};
    CheckModel writer(check, "States", shapes);
    CheckModel reader(check, "States", shapes);
    writer.open();
    reader.open();
    const std::vector<std::string> classes{"StateA", "StateB"};
    std::vector<Pointer<Object>> objects;
    transact(writer, [&] {
        for (const std::string& each : classes)
            objects.emplace_back(writer.make(each));
    });
    Selection all(reader["State"]);
    AssociatedClass frozen(all);
    const std::unique_ptr<SelectionDefinition> definition(reader.defineSelection(&frozen));
    std::vector<std::unique_ptr<DBDriverSelection>> cursors;
    for (const std::string& each : classes) {
        cursors.emplace_back(reader.fetch(reader[each], definition.get()));
        check.require(cursors.back() != nullptr && cursors.back()->next(), "a class has no rows");
        const Raised raised = raisedBy([&] {
            transact(writer, [&] {
                for (const Pointer<Object>& object : objects) {
                    object->change();
                    (*object)["value"] = 1;
                }
            });
        });
        if (raised)
            break;  // the driver keeps others from writing meanwhile
    }
    std::set<int> values;
    for (const auto& cursor : cursors)
        values.insert(std::get<int>((*static_cast<Object*>(cursor->getInstance()))["value"]));
    check.expectEqual<std::size_t>(1, values.size(), "the states that one selection shows");
}

}  // namespace

void addInheritanceChecks(Suite& suite) {
    suite.add("inheritance.each-level-selected", selectEachLevel);
    suite.add("inheritance.class-kept", keepClass);
    suite.add("inheritance.every-level-stored", storeEveryLevel);
    suite.add("inheritance.conditions", conditionEachLevel);
    suite.add("inheritance.links", linkAcrossLevels);
    suite.add("inheritance.4-deep", [](Check& c) { nestDeeply(c, 4); });
    suite.add("inheritance.20-deep", [](Check& c) { nestDeeply(c, 20); });
    suite.add("inheritance.200-wide", branchWidely);
    suite.add("inheritance.one-state", selectOneState);
    suite.add("structure.no-fields", haveNoFields);
    suite.add("structure.every-kind", haveEveryKind);
    suite.add("structure.100-fields", [](Check& c) { haveManyFields(c, 100, false); });
    for (const int count : {300, 1000, 2100})
        suite.add("structure." + std::to_string(count) + "-fields",
                  [count](Check& c) { haveManyFields(c, count, true); });
}

}  // namespace Kes::check
