#include "transaction/Snapshot.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include <kes/Handler.h>
#include <kes/Instance.h>
#include <kes/Timestamp.h>

#include "object/FieldWalk.h"
#include "transaction/KeyedDigest.h"

namespace Kes {

namespace {

// Bytes; longer texts share their buffer. To copy one costs no more than the count
// of its owners, which is elsewhere in memory, up to about two cache lines.
constexpr std::size_t SharedFrom = 128;
constexpr std::uint32_t SharedBit = 0x80000000U;
constexpr std::size_t ReservedFields = 2;

// Bytes. A small transaction takes one page, a large one doubles what it has until
// the block is too large for the allocation to count.
constexpr std::size_t FirstBlock = 4096;
constexpr std::size_t LargestBlock = std::size_t{1} << 20;

// Routes every plain field to one template of the derived class.
template <class Derived>
class PlainFieldHandler : public EmptyHandler {
public:
    void handleULong(const String&, unsigned long& value) final { self().plain(value); }
    void handleLong(const String&, long& value) final { self().plain(value); }
    void handleInt(const String&, int& value) final { self().plain(value); }
    void handleUInt(const String&, unsigned int& value) final { self().plain(value); }
    void handleBool(const String&, bool& value) final { self().plain(value); }
    void handleFloat(const String&, float& value) final { self().plain(value); }
    void handleDouble(const String&, double& value) final { self().plain(value); }
    void handleString(const String&, String& value, int) final { self().text(value); }
    void handleBlob(const String&, Blob& value) final { self().blob(value); }
    void handleTimestamp(const String&, Timestamp& value) final {
        long parts[2] = {value.getAllDays(), value.getAllSeconds()};
        const long before[2] = {parts[0], parts[1]};
        self().plain(parts);
        if (parts[0] != before[0] || parts[1] != before[1]) {
            value.setAllDays(parts[0]);
            value.setAllSeconds(parts[1]);
        }
    }

private:
    Derived& self() { return static_cast<Derived&>(*this); }
};

class DigestHandler final : public PlainFieldHandler<DigestHandler> {
public:
    explicit DigestHandler(const KeyedDigest::Key& key) : digest(key) {}

    std::uint64_t get() { return digest.finish(); }

    template <class T>
    void plain(const T& value) {
        if (++position <= ReservedFields)
            return;
        if constexpr (sizeof(T) <= sizeof(std::uint64_t)) {
            std::uint64_t bits = 0;
            std::memcpy(&bits, &value, sizeof value);
            digest.add(bits);
        } else {
            digest.addBytes(reinterpret_cast<const char*>(&value), sizeof value);
        }
    }

    void text(const String& value) {
        const char* bytes = value;
        digest.addBytes(bytes, std::strlen(bytes));
    }

    void blob(const Blob& value) {
        if (value.isEmpty())
            digest.add(~std::uint64_t{0});  // no size, unlike one of 0 bytes
        else
            digest.addBytes(static_cast<const char*>(value.data()),
                            static_cast<std::size_t>(value.size()));
    }

private:
    KeyedDigest digest;
    std::size_t position = 0;
};

}  // namespace

class CaptureHandler final : public PlainFieldHandler<CaptureHandler> {
public:
    explicit CaptureHandler(SnapshotStore& target) : store(target) { store.packing.clear(); }

    template <class T>
    void plain(const T& value) {
        append(&value, sizeof value);
    }

    void text(const String& value) {
        const char* bytes = value;
        const std::size_t size = std::strlen(bytes);
        if (size < SharedFrom) {
            plain(static_cast<std::uint32_t>(size));
            append(bytes, size);
            return;
        }
        plain(static_cast<std::uint32_t>(store.texts.size()) | SharedBit);
        store.texts.push_back(value);
    }

    void blob(const Blob& value) {
        plain(static_cast<std::uint32_t>(store.blobs.size()));
        store.blobs.push_back(value);
    }

private:
    void append(const void* data, std::size_t size) {
        const auto* bytes = static_cast<const std::byte*>(data);
        store.packing.insert(store.packing.end(), bytes, bytes + size);
    }

    SnapshotStore& store;
};

// Reads a snapshot in step with the fields that are reported.
template <class Derived>
class ImageReader : public PlainFieldHandler<Derived> {
protected:
    explicit ImageReader(Snapshot snapshot) : at(snapshot) {}

    template <class T>
    T read() {
        T value;
        std::memcpy(&value, at, sizeof value);
        at += sizeof value;
        return value;
    }

    const char* readBytes(std::size_t size) {
        const auto* bytes = reinterpret_cast<const char*>(at);
        at += size;
        return bytes;
    }

    std::size_t position = 0;

private:
    Snapshot at;
};

class RestoreHandler final : public ImageReader<RestoreHandler> {
public:
    RestoreHandler(const SnapshotStore& source, Snapshot snapshot)
        : ImageReader(snapshot),
          store(source) {}

    template <class T>
    void plain(T& value) {
        const char* bytes = readBytes(sizeof value);
        if (position++ >= ReservedFields)
            std::memcpy(&value, bytes, sizeof value);
    }

    void text(String& value) {
        const auto size = read<std::uint32_t>();
        if ((size & SharedBit) != 0) {
            value = store.texts[size & ~SharedBit];
            return;
        }
        char copy[SharedFrom];
        std::memcpy(copy, readBytes(size), size);
        copy[size] = '\0';
        value = copy;
    }

    void blob(Blob& value) { value = store.blobs[read<std::uint32_t>()]; }

private:
    const SnapshotStore& store;
};

class CompareHandler final : public ImageReader<CompareHandler> {
public:
    CompareHandler(const SnapshotStore& source, Snapshot snapshot, FieldSet& result)
        : ImageReader(snapshot),
          store(source),
          different(result) {}

    // Compares bits: a NaN equals itself, and 0.0 differs from -0.0.
    template <class T>
    void plain(const T& value) {
        // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): as said above.
        note(std::memcmp(&value, readBytes(sizeof value), sizeof value) != 0);
    }

    void text(const String& value) {
        const char* bytes = value;
        const auto size = read<std::uint32_t>();
        if ((size & SharedBit) != 0) {
            const char* before = store.texts[size & ~SharedBit];
            note(bytes != before && std::strcmp(bytes, before) != 0);
            return;
        }
        const char* before = readBytes(size);
        note(std::strlen(bytes) != size || std::memcmp(bytes, before, size) != 0);
    }

    void blob(const Blob& value) { note(value != store.blobs[read<std::uint32_t>()]); }

private:
    void note(bool differs) {
        if (differs && position >= ReservedFields)
            different.insert(position);
        ++position;
    }

    const SnapshotStore& store;
    FieldSet& different;
};

Snapshot SnapshotStore::capture(Instance* instance) {
    CaptureHandler capture(*this);
    walkFields(instance, capture);
    std::byte* snapshot = reserve(packing.size());
    std::memcpy(snapshot, packing.data(), packing.size());
    return snapshot;
}

void SnapshotStore::restore(Snapshot snapshot, Instance* instance) const {
    RestoreHandler handler(*this, snapshot);
    walkFields(instance, handler);
}

void SnapshotStore::compare(Snapshot snapshot, Instance* instance, FieldSet& different) const {
    CompareHandler handler(*this, snapshot, different);
    walkFields(instance, handler);
}

void SnapshotStore::clear() {
    blocks.clear();
    blockSize = 0;
    blockUsed = 0;
    texts.clear();
    blobs.clear();
}

std::byte* SnapshotStore::reserve(std::size_t bytes) {
    if (blocks.empty() || blockSize - blockUsed < bytes) {
        blockSize = blocks.empty() ? FirstBlock : std::min(blockSize * 2, LargestBlock);
        blockSize = std::max(blockSize, bytes);
        blocks.push_back(std::make_unique_for_overwrite<std::byte[]>(blockSize));
        blockUsed = 0;
    }
    std::byte* at = blocks.back().get() + blockUsed;
    blockUsed += bytes;
    return at;
}

std::uint64_t digestFields(Instance* instance) {
    static const KeyedDigest::Key key = KeyedDigest::Key::draw();
    DigestHandler digest(key);
    walkFields(instance, digest);
    return digest.get();
}

}  // namespace Kes
