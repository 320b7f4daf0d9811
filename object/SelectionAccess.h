// What the library itself may ask of a selection.

#pragma once

#include <kes/Selection.h>

namespace Kes {

class SelectionAccess {
public:
    /// Boolean fields may be sort keys of several classes too.
    static void mergeFlags(Selection& selection) { selection.mergesFlags = true; }
};

}  // namespace Kes
