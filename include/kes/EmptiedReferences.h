// What a driver may tell besides DBDriver: references that it emptied.
//
// A commit empties references that no call names: a removal leaves no reference
// to the object behind, and a one-to-one link takes the partner from whoever had
// it before. Only the database knows whose they are.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// Hears of references that a commit empties. The library implements it.
class KES_EXPORT EmptiedListener {
public:
    virtual ~EmptiedListener();

    /// The one-reference `role` of the stored object `id` of the class `cls`,
    /// which led to `partner`, is emptied by the commit under way. `raised`: the
    /// driver has raised the row's version for that, because the commit does
    /// not write the row otherwise; the library raises that of the instance in
    /// memory, where there is one. May throw std::bad_alloc, which fails the
    /// commit.
    virtual void referenceEmptied(Association* association, const String& role, unsigned long id,
                                  Class* cls, unsigned long partner, bool raised) = 0;
};

/// A driver object may derive from it as well. The library then loads nothing
/// to learn whom a removal concerns, and objects in memory show what is stored
/// after the commit; without it, a removal loads the objects that refer to the
/// removed one while there is a history to keep.
class KES_EXPORT EmptyingDriver {
public:
    virtual ~EmptyingDriver();

    /// From now on `listener`, which is borrowed, hears of the references that
    /// the driver empties, before the commit of the database; null ends that.
    /// False when it is not going to: a driver may stand for another one.
    virtual bool tellEmptiedTo(EmptiedListener* listener) = 0;
};

}  // namespace Kes
