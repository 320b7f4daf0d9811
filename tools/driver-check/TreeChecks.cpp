// Conditions in conditions: every node, every depth, and roles.
//
// The library here is small enough to be kept in memory whole. What a condition
// finds is held against what the objects in memory say themselves.

#include <random>
#include <set>

#include "Ask.h"
#include "Topics.h"

namespace Kes::check {

namespace {

std::vector<Shape> libraryShapes() {
    return {
        Shape("Writer").field("number", Kind::Int).field("word", Kind::Text).many("Wrote", "works"),
        Shape("Work")
            .field("number", Kind::Int)
            .field("word", Kind::Text)
            .field("weight", Kind::Double)
            .field("isRare", Kind::Bool)
            .field("bought", Kind::Time)
            .one("Wrote", "writer")
            .many("Tagged", "tags")
            .one("Sequel", "before")
            .one("Sequel", "after"),
        Shape("Novel", "Work").field("pages", Kind::Long),
        Shape("Crime", "Novel").field("victims", Kind::UInt),
        Shape("Tag")
            .field("number", Kind::Int)
            .field("word", Kind::Text)
            .many("Tagged", "tagged")
            .many("Broader", "broader")
            .many("Broader", "narrower")};
}

// Made by the first check that needs it.
class Library {
public:
    explicit Library(Check& runs)
        : check(runs),
          random(runs.config().seed),
          model(runs, "library", libraryShapes()) {
        model.open();
        readAll();
        if (!all.empty())
            return;
        transact(model, [&] { make(); });
        model.close();
        model.open();
        readAll();
    }

    void compare(const std::string& className, const Ask& ask) {
        compareAnswers(check, model, className, all, ask);
    }

    std::size_t any(std::size_t count) { return random() % count; }
    Object* anyOf(const std::string& className) {
        std::vector<Object*> some;
        for (const Pointer<Object>& object : all)
            if (object->getClass()->isA(model[className]))
                some.push_back(object);
        return some[any(some.size())];
    }

    Check& check;
    std::mt19937 random;
    CheckModel model;

private:
    void readAll() {
        all.clear();
        for (const char* name : {"Writer", "Work", "Tag"}) {
            Selection selection(model[name]);
            for (const Pointer<Object>& object : allOf(selection))
                all.push_back(object);
        }
    }

    void make();
    void fill(Object& object);

    std::vector<Pointer<Object>> all;
};

Value anyValue(Library& library, Kind kind) {
    const char* words[] = {"", "a", "A", "ab", "it's", "b%", "_", "\xC3\xA4", "zz"};
    switch (kind) {
    case Kind::Text: return String(words[library.any(9)]);
    case Kind::Double: return static_cast<double>(library.any(5)) / 4 - 0.5;
    case Kind::Bool: return library.any(2) == 0;
    case Kind::Time: return Timestamp(static_cast<int>(1998 + library.any(5)), 2, 28, 23, 59, 59);
    case Kind::Long: return static_cast<long>(library.any(6)) - 3;
    case Kind::UInt: return static_cast<unsigned>(library.any(4));
    default: return static_cast<int>(library.any(9)) - 4;
    }
}

void Library::fill(Object& object) {
    for (const Member* member : model.shapeOf(object.getClass()).all)
        if (member->what == Member::Field)
            object[static_cast<const char*>(member->name)] = anyValue(*this, member->kind);
}

void Library::make() {
    std::vector<Object*> writers;
    std::vector<Object*> works;
    std::vector<Object*> tags;
    for (int i = 0; i < 20; ++i)
        fill(*writers.emplace_back(model.make("Writer")));
    for (int i = 0; i < 60; ++i) {
        const char* names[] = {"Work", "Novel", "Crime"};
        Object& work = *works.emplace_back(model.make(names[i % 3]));
        fill(work);
        if (any(4) != 0)
            work.link("writer", writers[any(15)]);
        if (i > 0 && any(3) == 0)
            work.link("before", works[static_cast<std::size_t>(i) - 1]);
    }
    for (int i = 0; i < 12; ++i) {
        Object& tag = *tags.emplace_back(model.make("Tag"));
        fill(tag);
        for (std::size_t k = any(12); k > 0; --k)
            tag.link("tagged", works[any(50)]);
        if (i > 1 && any(3) != 0)
            tag.link("broader", tags[any(static_cast<std::size_t>(i))]);
    }
}

struct RoleInfo {
    const char* association;
    const char* role;
    const char* partner;
};

std::vector<RoleInfo> rolesOf(const std::string& className) {
    if (className == "Writer")
        return {{"Wrote", "works", "Work"}};
    if (className == "Tag")
        return {{"Tagged", "tagged", "Work"},
                {"Broader", "broader", "Tag"},
                {"Broader", "narrower", "Tag"}};
    return {{"Wrote", "writer", "Writer"},
            {"Tagged", "tags", "Tag"},
            {"Sequel", "before", "Work"},
            {"Sequel", "after", "Work"}};
}

Ask anyField(Library& library, const std::string& className) {
    std::vector<const Member*> fields;
    for (const Member* member : library.model.shapeOf(library.model[className]).all)
        if (member->what == Member::Field)
            fields.push_back(member);
    const Member& field = *fields[library.any(fields.size())];
    const int most = field.kind == Kind::Text ? Condition::LIKE : Condition::LESS_OR_EQUAL;
    const int op = static_cast<int>(library.any(static_cast<std::size_t>(most) + 1));
    return askField(className, static_cast<const char*>(field.name), op,
                    anyValue(library, field.kind));
}

Ask anyTree(Library& library, const std::string& className, int depth);

Ask anyRole(Library& library, const std::string& className, int depth) {
    const std::vector<RoleInfo> roles = rolesOf(className);
    const RoleInfo& info = roles[library.any(roles.size())];
    const bool equal = library.any(3) != 0;
    switch (library.any(4)) {
    case 0: return askPartner(className, info.association, info.role, nullptr, equal);
    case 1:
        return askPartner(className, info.association, info.role, library.anyOf(info.partner),
                          equal);
    default: break;
    }
    const std::string partner =
        info.partner == std::string("Work") && library.any(3) == 0 ? "Novel" : info.partner;
    if (library.any(6) == 0)
        return askNested(className, info.association, info.role, partner, nullptr, equal);
    const Ask nested = anyTree(library, partner, depth - 1);
    return askNested(className, info.association, info.role, partner, &nested, equal);
}

Ask anyTree(Library& library, const std::string& className, int depth) {
    if (depth <= 0)
        return anyField(library, className);
    switch (library.any(4)) {
    case 0: return anyRole(library, className, depth);
    case 1: return anyField(library, className);
    default: break;
    }
    const Ask one = anyTree(library, className, depth - 1);
    const Ask other = anyTree(library, className, depth - 1);
    return askBoth(one, library.any(2) == 0 ? Condition::AND : Condition::OR, other);
}

void checkAnyTrees(Check& check, int depth) {
    Library library(check);
    const char* names[] = {"Writer", "Work", "Novel", "Crime", "Tag"};
    for (int i = 0; i < 60; ++i) {
        const std::string className = names[i % 5];
        library.compare(className, anyTree(library, className, depth));
    }
}

// Both operators, between the two ends and from both sides.
void checkRole(Check& check, const std::string& className, const RoleInfo& info) {
    Library library(check);
    for (const bool equal : {true, false}) {
        library.compare(className,
                        askPartner(className, info.association, info.role, nullptr, equal));
        for (int i = 0; i < 8; ++i)
            library.compare(className, askPartner(className, info.association, info.role,
                                                  library.anyOf(info.partner), equal));
        library.compare(className, askNested(className, info.association, info.role, info.partner,
                                             nullptr, equal));
        for (int i = 0; i < 8; ++i) {
            const Ask nested = anyField(library, info.partner);
            library.compare(className, askNested(className, info.association, info.role,
                                                 info.partner, &nested, equal));
        }
    }
}

Ask numberIs(int number) {
    return askField("Work", "number", Condition::EQUAL, number);
}

// A chain of operands, joined from the left or from the right.
void checkChain(Check& check, Condition::LogicalOperator op, int length, bool fromLeft) {
    Library library(check);
    const bool isOr = op == Condition::OR;
    std::set<int> numbers;
    std::unique_ptr<Condition> tree;
    for (int i = 0; i < length; ++i) {
        const int number = isOr && i % 3 == 0 ? -4 + i % 9 : 1 + i;
        numbers.insert(number);
        std::unique_ptr<Condition> next =
            askField("Work", "number", isOr ? Condition::EQUAL : Condition::NOT_EQUAL, number)
                .build(library.model);
        if (tree != nullptr && !fromLeft)
            std::swap(tree, next);
        tree = tree == nullptr
                   ? std::move(next)
                   : std::make_unique<CombinationCondition>(tree.release(), op, next.release());
    }
    const auto whole = std::make_shared<std::unique_ptr<Condition>>(std::move(tree));
    library.compare("Work", {[whole](CheckModel&) { return std::move(*whole); },
                             [=](Object& object) {
                                 return numbers.contains(std::get<int>(object["number"])) == isOr;
                             },
                             "a chain of " + std::to_string(length) + " operands"});
}

// Databases limit how deep statements nest; an error is fair, a wrong answer not.
void compareDeep(Library& library, const Ask& tree, bool mayRefuse) {
    if (!mayRefuse)
        return library.compare("Work", tree);
    const Raised raised = raisedBy([&] { library.compare("Work", tree); });
    library.check.noteProperty("deep-conditions", static_cast<bool>(raised));
    if (raised)
        library.check.expectEqual<std::string>("SELERR", raised.code, "the code of the refusal");
    library.compare("Work", numberIs(1));
}

// And in or in and ...: no two neighbours can be joined into a list.
void checkAlternating(Check& check, int depth) {
    Library library(check);
    Ask tree = numberIs(1);
    for (int i = 0; i < depth; ++i)
        tree = i % 2 == 0 ? askBoth(askField("Work", "weight", Condition::GREATER, 0.0),
                                    Condition::AND, tree)
                          : askBoth(tree, Condition::OR,
                                    askField("Work", "word", Condition::EQUAL, String("zz")));
    tree.text = "a tree of depth " + std::to_string(depth);
    compareDeep(library, tree, depth > 20);
}

// From work to work along one reference, again and again.
void checkNesting(Check& check, int depth) {
    Library library(check);
    Ask tree = askField("Work", "number", Condition::LESS, 3);
    for (int i = 0; i < depth; ++i)
        tree = i % 2 == 0 ? askNested("Work", "Sequel", "before", "Work", &tree, true)
                          : askNested("Work", "Sequel", "after", "Work", &tree, i % 3 != 0);
    compareDeep(library, tree, depth > 6);
}

// A selection that was already used in a condition has lost its own one.
void checkMovedCondition(Check& check) {
    Library library(check);
    Selection nested(library.model["Writer"]);
    nested.where(nested["number"] > 0);
    Selection outer(library.model["Work"]);
    outer.where(outer(library.model.tagged("Wrote").c_str()) == nested);
    idsOf(outer);
    Selection everyone(library.model["Writer"]);
    check.expectEqual(idsOf(everyone).size(), idsOf(nested).size(),
                      "objects of a selection that lost its condition");
}

void checkUnknownRole(Check& check) {
    Library library(check);
    Class* works = library.model["Work"];
    Association* wrote = library.model.getAssociation(library.model.tagged("Wrote").c_str());
    const Role roles[] = {Role(works, "nope", wrote), Role(works, "works", wrote),
                          Role(works, "writer", nullptr)};
    for (const Role& role : roles) {
        const Raised raised = raisedBy([&] {
            Selection selection(works);
            selection.where(role == nullptr);
            selection.next();
        });
        check.expect(
            raised.code == "SELERR" && raised.names(static_cast<const char*>(role.getRole())),
            "an impossible role is to raise SELERR and be named; " +
                (raised ? raised.code + ": " + raised.message : "nothing was raised"));
    }
}

}  // namespace

void addTreeChecks(Suite& suite) {
    for (const char* name : {"Writer", "Work", "Tag"})
        for (const RoleInfo& info : rolesOf(name))
            suite.add("conditions.roles." + std::string(info.association) + "-" + info.role,
                      [=](Check& c) { checkRole(c, name, info); });
    suite.add("conditions.roles.moved-condition", checkMovedCondition);
    suite.add("conditions.roles.unknown", checkUnknownRole);
    for (const int depth : {1, 2, 3, 4, 6})
        suite.add("conditions.trees.depth-" + std::to_string(depth),
                  [=](Check& c) { checkAnyTrees(c, depth); });
    for (const int length : {2, 3, 10, 100, 1000, 10000})
        for (const bool fromLeft : {true, false}) {
            const std::string ending =
                "-" + std::to_string(length) + (fromLeft ? "-from-left" : "-from-right");
            suite.add("conditions.trees.or" + ending,
                      [=](Check& c) { checkChain(c, Condition::OR, length, fromLeft); });
            suite.add("conditions.trees.and" + ending,
                      [=](Check& c) { checkChain(c, Condition::AND, length, fromLeft); });
        }
    for (const int depth : {10, 20, 100})
        suite.add("conditions.trees.alternating-" + std::to_string(depth),
                  [=](Check& c) { checkAlternating(c, depth); });
    for (const int depth : {2, 4, 6, 12})
        suite.add("conditions.trees.nested-" + std::to_string(depth),
                  [=](Check& c) { checkNesting(c, depth); });
}

}  // namespace Kes::check
