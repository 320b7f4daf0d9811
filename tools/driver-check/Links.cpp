#include "Links.h"

#include <algorithm>

namespace Kes::check {

namespace {

std::string plainName(const char* name) {
    std::string plain;
    for (const char* at = name; *at != '\0'; ++at)
        if (*at != '-')
            plain += *at;
    return plain;
}

std::string describe(const std::set<std::size_t>& numbers) {
    std::string list;
    for (const std::size_t number : numbers)
        list += (list.empty() ? "" : " ") + std::to_string(number);
    return "{" + list + "}";
}

std::size_t numberOf(unsigned long id, const std::vector<unsigned long>& ids) {
    return static_cast<std::size_t>(std::find(ids.begin(), ids.end(), id) - ids.begin());
}

std::set<std::size_t> partnersOf(const Links::Pairs& pairs, std::size_t number, bool isLeft) {
    std::set<std::size_t> found;
    for (const auto& [one, other] : pairs)
        if ((isLeft ? one : other) == number)
            found.insert(isLeft ? other : one);
    return found;
}

}  // namespace

Links::Links(Check& runs, const Ends& which)
    : check(runs),
      ends(which),
      leftClass("Left" + plainName(which.name)),
      rightClass(which.isSelf ? leftClass : "Right" + plainName(which.name)),
      association("Link" + plainName(which.name)),
      model(runs, association, shapes()) {
    model.open();
}

// The left object's reference is called "rights", the right one's "lefts".
std::vector<Shape> Links::shapes() const {
    Shape one(leftClass);
    one.field("number", Kind::Int);
    ends.isLeftMany ? one.many(association, "rights") : one.one(association, "rights");
    Shape other(rightClass);
    other.field("number", Kind::Int);
    Shape& holder = ends.isSelf ? one : other;
    ends.isRightMany ? holder.many(association, "lefts") : holder.one(association, "lefts");
    return ends.isSelf ? std::vector<Shape>{one} : std::vector<Shape>{one, other};
}

void Links::makeObjects(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        left.emplace_back(model.make(leftClass));
        right.emplace_back(ends.isSelf ? left.back() : Pointer<Object>(model.make(rightClass)));
        leftIds.push_back(left.back()->getObjectID());
        rightIds.push_back(right.back()->getObjectID());
    }
}

void Links::storeObjects(std::size_t count) {
    transact(model, [&] { makeObjects(count); });
}

void Links::note(std::size_t one, std::size_t other) {
    std::erase_if(expected, [&](const auto& pair) {
        return (pair.first == one && !ends.isLeftMany) ||
               (pair.second == other && !ends.isRightMany);
    });
    expected.emplace(one, other);
}

void Links::link(std::size_t one, std::size_t other) {
    note(one, other);
    left[one]->link("rights", right[other]);
}

void Links::linkBackwards(std::size_t one, std::size_t other) {
    note(one, other);
    right[other]->link("lefts", left[one]);
}

void Links::unlink(std::size_t one, std::size_t other) {
    if (expected.erase({one, other}) != 0)
        left[one]->unlink("rights", right[other]);
}

void Links::unlinkBackwards(std::size_t one, std::size_t other) {
    if (expected.erase({one, other}) != 0)
        right[other]->unlink("lefts", left[one]);
}

void Links::forget(std::size_t number, bool isLeft) {
    std::erase_if(expected, [&](const auto& pair) {
        return ((isLeft || ends.isSelf) && pair.first == number) ||
               ((!isLeft || ends.isSelf) && pair.second == number);
    });
    if (isLeft || ends.isSelf)
        left[number] = nullptr;
    if (!isLeft || ends.isSelf)
        right[number] = nullptr;
}

void Links::removeLeft(std::size_t number) {
    left[number]->remove();
    forget(number, true);
}

void Links::removeRight(std::size_t number) {
    right[number]->remove();
    forget(number, false);
}

void Links::reopen() {
    model.close();
    model.open();
    for (std::size_t i = 0; i < leftIds.size(); ++i) {
        left[i] = model.find(leftClass, leftIds[i]);
        right[i] = model.find(rightClass, rightIds[i]);
    }
}

bool Links::touch(std::size_t one, std::size_t other, Touched& touched) const {
    std::set<std::size_t> lefts = partnersOf(expected, other, false);
    std::set<std::size_t> rights = partnersOf(expected, one, true);
    lefts.insert(one);
    rights.insert(other);
    const auto isKnown = [](const std::set<std::size_t>& some, const std::set<std::size_t>& all) {
        return std::any_of(some.begin(), some.end(),
                           [&](std::size_t n) { return all.contains(n); });
    };
    if (isKnown(lefts, touched.lefts) || isKnown(rights, touched.rights))
        return false;
    touched.lefts.merge(lefts);
    touched.rights.merge(rights);
    return true;
}

void Links::verifyMemory(const std::string& when) {
    compareSides({left.begin(), left.end()}, {right.begin(), right.end()}, "in memory" + when);
    check.require(check.failures().empty(), "the check ends here");
}

void Links::verify() {
    CheckModel second(check, association, shapes());
    second.open();
    std::vector<Pointer<Object>> kept;
    std::vector<Object*> lefts;
    std::vector<Object*> rights;
    for (std::size_t i = 0; i < leftIds.size(); ++i) {
        lefts.push_back(kept.emplace_back(second.find(leftClass, leftIds[i])));
        rights.push_back(kept.emplace_back(second.find(rightClass, rightIds[i])));
        check.expect((lefts.back() == nullptr) == (left[i] == nullptr) &&
                         (rights.back() == nullptr) == (right[i] == nullptr),
                     "object " + std::to_string(i) +
                         " is stored and should not be, or the "
                         "other way round");
    }
    compareSides(lefts, rights, "stored");
    compareConditions(second, lefts, rights);
}

void Links::compareSides(const std::vector<Object*>& lefts, const std::vector<Object*>& rights,
                         const std::string& where) {
    for (const bool isLeft : {true, false}) {
        const std::vector<Object*>& objects = isLeft ? lefts : rights;
        for (std::size_t i = 0; i < objects.size(); ++i) {
            if (objects[i] == nullptr)
                continue;
            std::set<std::size_t> found;
            for (const Object* partner : objects[i]->partners(isLeft ? "rights" : "lefts"))
                found.insert(numberOf(partner->getObjectID(), isLeft ? rightIds : leftIds));
            const std::set<std::size_t> wanted = partnersOf(expected, i, isLeft);
            check.expect(found == wanted, where + ", the " + (isLeft ? "left" : "right") +
                                              " object " + std::to_string(i) + " has " +
                                              describe(found) + " instead of " + describe(wanted));
        }
    }
}

void Links::compareConditions(CheckModel& session, const std::vector<Object*>& lefts,
                              const std::vector<Object*>& rights) {
    for (const bool asksLeft : {true, false}) {
        const std::vector<Object*>& partners = asksLeft ? rights : lefts;
        const std::vector<unsigned long>& ids = asksLeft ? leftIds : rightIds;
        const std::size_t most = std::min<std::size_t>(partners.size(), 10);
        for (std::size_t i = 0; i < most; ++i) {
            if (partners[i] == nullptr)
                continue;
            Selection selection(session[asksLeft ? leftClass : rightClass]);
            const Role role =
                selection(session.tagged(association).c_str(), asksLeft ? "rights" : "lefts");
            selection.where(role == static_cast<Instance*>(partners[i]));
            std::set<std::size_t> found;
            for (const unsigned long id : idsOf(selection))
                found.insert(numberOf(id, ids));
            const std::set<std::size_t> wanted = partnersOf(expected, i, !asksLeft);
            check.expect(found == wanted, std::string("a condition finds ") + describe(found) +
                                              " linked with the " + (asksLeft ? "right" : "left") +
                                              " object " + std::to_string(i) + " instead of " +
                                              describe(wanted));
        }
    }
}

}  // namespace Kes::check
