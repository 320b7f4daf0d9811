// Snapshots (mementos) of the plain fields of instances, and the digest for dirty
// checking.
//
// A snapshot holds the plain fields of one instance, the reserved ones included,
// packed in the order in which handle reports them. Those of a transaction lie
// one after the other in a few large blocks, so a transaction of a million
// changes makes few allocations and frees them at once. Long texts and blobs
// are not copied: the snapshot shares their buffers.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <kes/Blob.h>
#include <kes/FieldSet.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// Packed; lives as long as the store that took it.
using Snapshot = const std::byte*;

class SnapshotStore {
public:
    SnapshotStore() = default;
    SnapshotStore(SnapshotStore&&) = default;
    SnapshotStore& operator=(SnapshotStore&&) = default;

    Snapshot capture(Instance* instance);

    /// Assigns the snapshot's values to all fields but the reserved ones.
    void restore(Snapshot snapshot, Instance* instance) const;

    /// Enters the positions of the fields that differ from the snapshot, without
    /// the reserved ones.
    void compare(Snapshot snapshot, Instance* instance, FieldSet& different) const;

    void clear();

private:
    friend class CaptureHandler;
    friend class RestoreHandler;
    friend class CompareHandler;

    std::byte* reserve(std::size_t bytes);

    std::vector<std::unique_ptr<std::byte[]>> blocks;
    std::size_t blockSize = 0;
    std::size_t blockUsed = 0;
    std::vector<std::byte> packing;  // the snapshot being taken
    std::vector<String> texts;
    std::vector<Blob> blobs;
};

/// A digest of the plain fields, without the reserved ones, that holds for the
/// life of the process. Equal fields give equal digests; different ones differ
/// but for one case in 2^64, which nobody can choose.
std::uint64_t digestFields(Instance* instance);

}  // namespace Kes
