// Removing an instance and what its associations cascade to.
//
// Cascades may run through chains of a million instances, so the walk keeps a
// stack of its own. An instance that a cascade reaches puts a frame on it, and
// works it off at once while that is not too deep; then the removal around it does
// so, deepest first. Both keep the order of plain recursion: the partners of an instance are
// removed before the instance itself is recorded.

#pragma once

#include <cstddef>
#include <vector>

#include <kes/Forward.h>
#include <kes/Pointer.h>
#include <kes/String.h>

namespace Kes {

class Removal {
public:
    /// Sets the removed bit of `instance` and removes it. Raises INSTERR (ERROR)
    /// and does nothing while the model is closed. Where a reference cannot be
    /// loaded, the instances that were not recorded stay unremoved.
    static void run(Instance* instance);

    /// Removes an instance whose removed bit was just set; the partners stay,
    /// whatever their associations say. False when it stays after all.
    static bool runAlone(Instance* instance);

private:
    struct Reference {
        Association* association;
        const String* role;  // the association's own text
        OneAssociatedInstance* one = nullptr;
        ManyAssociatedInstances* many = nullptr;
        bool cascades = false;
        bool dissolves = true;  // of collections: otherwise the members keep their references
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

    void enter(Instance* instance);
    bool removeAll(Instance* first);
    void keepFrames(std::size_t base);
    void removeWithin(Instance* instance);
    bool workOff(std::size_t base);
    bool step();
    void release(Instance* instance, const Reference& reference);
    void release(Instance* instance, const Reference& reference, Instance* member);

    std::vector<Frame> frames;
    // Of nested remove operations, on the stack: the applications' overrides lie
    // between them. A guess that leaves each 16 KiB of the 8 MiB that a thread has.
    static constexpr int MostDepth = 500;

    bool cascading = true;
    int depth = 0;
    bool failed = false;  // a reference could not be loaded, and the handler returned
};

}  // namespace Kes
