// What the library keeps in an instance beside the application's fields.
//
// The only friend of Instance. Whoever needs the version that an optimistic lock
// compares, the place in the unit of work, the digest that dirty checking
// compares or one of the marks, asks here and says what for; the bits and their
// layout are known to this file and to Instance alone.

#pragma once

#include <cstdint>

#include <kes/Instance.h>

namespace Kes {

class InstanceState {
public:
    InstanceState() = delete;

    static void setVersion(Instance* instance, unsigned long version) {
        instance->version = version;
    }

    /// 1 + the position of the instance's entry in the unit of work; 0 without.
    static std::uint32_t entry(const Instance* instance) { return instance->pending; }
    static void setEntry(Instance* instance, std::size_t entry) {
        instance->pending = static_cast<std::uint32_t>(entry);
    }

    /// Digest of the plain fields as they are stored.
    static std::uint64_t fingerprint(const Instance* instance) { return instance->fingerprint; }
    static void setFingerprint(Instance* instance, std::uint64_t digest) {
        instance->fingerprint = digest;
    }

    /// The group of instances that one selection delivered; 0 while in none.
    /// Groups have 24 bits.
    static std::uint32_t group(const Instance* instance) { return instance->siblings; }
    static void setGroup(Instance* instance, std::uint32_t group) {
        instance->siblings = group & 0xFFFFFFU;
    }

    /// The removal was committed, or somebody else's was found.
    static bool isGone(const Instance* instance) { return instance->flag(Instance::Gone); }
    static void setGone(Instance* instance, bool on) { instance->setFlag(Instance::Gone, on); }

    /// Brought up to date, or found removed, since listeners heard of it last.
    static bool isUntold(const Instance* instance) { return instance->flag(Instance::Untold); }
    static void setUntold(Instance* instance, bool on) { instance->setFlag(Instance::Untold, on); }

    /// Somebody else has removed it, as a refresh has found.
    static bool isLost(const Instance* instance) { return isGone(instance) && isUntold(instance); }

    /// Read ahead for a sibling: the application has not had it yet.
    static bool isAhead(const Instance* instance) { return instance->flag(Instance::Ahead); }
    static void setAhead(Instance* instance, bool on) { instance->setFlag(Instance::Ahead, on); }

    /// A link of the instance is pending.
    static bool isLinked(const Instance* instance) { return instance->flag(Instance::Linked); }
    static void setLinked(Instance* instance) { instance->setFlag(Instance::Linked, true); }

    /// The commit under way has raised its version for a link.
    static bool isRaised(const Instance* instance) { return instance->flag(Instance::Raised); }
    static void setRaised(Instance* instance) { instance->setFlag(Instance::Raised, true); }

    /// A change or a link of it waits for the commit.
    static bool isPending(const Instance* instance) {
        return instance->pending != 0 || isLinked(instance);
    }

    /// The marks of a transaction go with it.
    static void endTransaction(Instance* instance) {
        constexpr std::uint32_t Marks =
            Instance::InTransaction | Instance::Linked | Instance::Raised;
        instance->flags &= ~Marks & 0xFFU;
    }

    // What an instance's class and associations tell its own listeners.
    static void fireChanged(Instance* instance) { instance->fireInstanceChanged(); }
    static void fireRemoved(Instance* instance) { instance->fireInstanceRemoved(); }
    static void fireLinked(Instance* instance, Association* association, Instance* other) {
        instance->fireAssociationAdded(association, other);
    }
    static void fireUnlinked(Instance* instance, Association* association, Instance* other) {
        instance->fireAssociationRemoved(association, other);
    }
};

}  // namespace Kes
