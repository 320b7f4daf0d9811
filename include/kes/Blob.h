// Binary values.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

class BlobData;

/// Uninterpreted bytes. Copies share one counted buffer, whose bytes never
/// change. An empty blob holds no buffer and differs from one of 0 bytes.
///
/// The count is not atomic: blobs that share a buffer belong to one thread.
class KES_EXPORT Blob {
public:
    /// Empty.
    Blob() = default;

    /// Copies `size` bytes; a size below 1 gives a buffer of 0 bytes.
    Blob(const void* data, int size);
    Blob(const Blob& other);
    Blob& operator=(const Blob& other);
    virtual ~Blob();

    bool isEmpty() const { return held == nullptr; }
    /// Lets go of the bytes. The memory is freed with the last blob that shares it.
    void setEmpty();

    /// In bytes; 0 when empty.
    int size() const;

    /// The bytes, borrowed until this blob changes; null when there are none.
    const void* data() const;

    /// Replaces the content by a copy of `size` bytes; a size below 1 gives 0 bytes,
    /// not an empty blob. `data` may point into this blob.
    void setData(const void* data, int size);

    /// Appends; an empty blob counts as 0 bytes. Raises BLOBSIZE (ERROR) and
    /// changes nothing when the sum exceeds the largest int.
    void addData(const void* data, int size);

    bool operator==(const Blob& other) const;
    bool operator!=(const Blob& other) const { return !(*this == other); }

protected:
    void deleteData();

private:
    BlobData* held = nullptr;
};

}  // namespace Kes
