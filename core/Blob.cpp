#include <kes/Blob.h>

#include <cstring>
#include <limits>

#include <kes/Exception.h>

namespace Kes {

// The shared bytes and the number of blobs that hold them.
class BlobData {
    friend class Blob;

    BlobData(const void* data, int itsSize) : BlobData(data, itsSize, nullptr, 0) {}

    BlobData(const void* a, int sizeA, const void* b, int sizeB) : size(sizeA + sizeB) {
        if (size < 1)
            return;
        bytes = new char[static_cast<std::size_t>(size)];
        if (sizeA > 0)
            std::memcpy(bytes, a, static_cast<std::size_t>(sizeA));
        if (sizeB > 0)
            std::memcpy(bytes + sizeA, b, static_cast<std::size_t>(sizeB));
    }

    BlobData(const BlobData&) = delete;
    BlobData& operator=(const BlobData&) = delete;

public:
    virtual ~BlobData() { delete[] bytes; }

private:
    char* bytes = nullptr;  // null while size is 0
    int size = 0;
    int count = 0;
};

namespace {

int atLeastNothing(int size) {
    return size < 0 ? 0 : size;
}

}  // namespace

Blob::Blob(const void* data, int size) {
    setData(data, size);
}

Blob::Blob(const Blob& other) {
    *this = other;
}

Blob& Blob::operator=(const Blob& other) {
    if (held == other.held)
        return *this;
    deleteData();
    held = other.held;
    if (held != nullptr)
        ++held->count;
    return *this;
}

Blob::~Blob() {
    deleteData();
}

void Blob::deleteData() {
    if (held != nullptr && --held->count == 0)
        delete held;
    held = nullptr;
}

void Blob::setEmpty() {
    deleteData();
}

int Blob::size() const {
    return held != nullptr ? held->size : 0;
}

const void* Blob::data() const {
    return held != nullptr ? held->bytes : nullptr;
}

void Blob::setData(const void* data, int size) {
    // Made first: the bytes may be this blob's own.
    auto* fresh = new BlobData(data, atLeastNothing(size));
    deleteData();
    held = fresh;
    held->count = 1;
}

void Blob::addData(const void* data, int size) {
    const int added = atLeastNothing(size);
    if (added > std::numeric_limits<int>::max() - this->size()) {
        Exception(Exception::ERROR, "BLOBSIZE", "Blob::addData",
                  "A blob holds at most 2147483647 bytes; store larger data in several blobs")
            .handle();
        return;
    }
    auto* fresh = new BlobData(this->data(), this->size(), data, added);
    deleteData();
    held = fresh;
    held->count = 1;
}

bool Blob::operator==(const Blob& other) const {
    if (held == other.held)
        return true;
    if (held == nullptr || other.held == nullptr || held->size != other.held->size)
        return false;
    return held->size == 0 ||
           std::memcmp(held->bytes, other.held->bytes, static_cast<std::size_t>(held->size)) == 0;
}

}  // namespace Kes
