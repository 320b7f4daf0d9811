// Removing an instance and what its associations cascade to.
//
// Cascades may run through chains of a million instances, so the walk keeps a
// stack of its own: an instance that a cascade reaches puts a frame on it and
// returns, and the outermost removal works the frames off, deepest first. That
// keeps the order of plain recursion: the partners of an instance are removed
// before the instance itself is recorded.

#pragma once

#include <cstddef>
#include <vector>

#include <kes/Forward.h>
#include <kes/Pointer.h>
#include <kes/String.h>

namespace Kes {

class Removal {
public:
    /// Removes `instance`, whose removed bit was just set.
    static void run(Instance* instance);

private:
    struct Reference {
        OneAssociatedInstance* one = nullptr;
        ManyAssociatedInstances* many = nullptr;
        bool cascades = false;
    };
    struct Frame {
        explicit Frame(Instance* removed) : instance(removed) {}

        Pointer<Instance> instance;
        std::vector<Reference> references;
        std::size_t reference = 0;
        std::vector<Instance*> members;  // of the many-reference at hand
        std::size_t member = 0;
    };
    class Collector;

    void workOff();
    bool step();

    std::vector<Frame> frames;
};

}  // namespace Kes
