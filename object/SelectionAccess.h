// What the library itself may ask of a selection.

#pragma once

#include <kes/Selection.h>

namespace Kes {

class SelectionAccess {
public:
    /// Boolean fields may be sort keys of several classes too.
    static void mergeFlags(Selection& selection) { selection.mergesFlags = true; }

    /// In place of going through the selection, of which limit() says nothing.
    /// Raises as Selection::next does; false when the handler returns.
    static bool tabulate(Selection& selection, Tabulator& tabulator, const Tabulation& wanted,
                         TableReader& reader) {
        return selection.tabulateBy(tabulator, wanted, reader);
    }
};

}  // namespace Kes
