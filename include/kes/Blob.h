// Binary values.

#pragma once

#include <utility>

#include <kes/Export.h>

namespace Kes {

class BlobData;

/// A value of uninterpreted bytes, or no value at all.
///
/// An empty blob holds nothing, which is something else than holding 0 bytes.
/// Copies share one buffer, whose bytes never change: every change makes a new
/// buffer. The owners are counted without locks, so blobs that share a buffer
/// stay on one thread.
class KES_EXPORT Blob {
public:
    /// An empty blob.
    Blob() noexcept : held(nullptr) {}

    /// Holds a copy of `size` bytes. A size below 1, or null `data`, makes a
    /// blob of 0 bytes, which is not empty.
    Blob(const void* data, int size);
    Blob(const Blob& other) noexcept;
    Blob(Blob&& other) noexcept : held(std::exchange(other.held, nullptr)) {}
    Blob& operator=(const Blob& other) noexcept;
    Blob& operator=(Blob&& other) noexcept;
    virtual ~Blob();

    /// Whether nothing is held, not even 0 bytes.
    bool isEmpty() const { return held == nullptr; }

    /// Lets go of the bytes.
    void setEmpty();

    /// In bytes; 0 when empty.
    int size() const;

    /// The bytes, or null when there are none. Borrowed until this blob is
    /// changed or destroyed.
    const void* data() const;

    /// Replaces the value by a copy of `size` bytes, as the constructor does.
    /// `data` may lie inside this blob.
    void setData(const void* data, int size);

    /// Appends a copy of `size` bytes; an empty blob counts as 0 bytes.
    ///
    /// Raises BLOBSIZE (ERROR) when the sum is more than 2,147,483,647 bytes; if
    /// the handler returns, the blob is as it was.
    void addData(const void* data, int size);

    /// Whether both are empty, or both hold the same bytes.
    bool operator==(const Blob& other) const;
    bool operator!=(const Blob& other) const { return !(*this == other); }

protected:
    /// Gives up this blob's share of its buffer; the blob is empty then.
    void deleteData();

private:
    BlobData* held;  // shared with the copies; null when empty
};

}  // namespace Kes
