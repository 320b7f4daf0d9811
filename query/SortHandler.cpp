#include <kes/SortHandler.h>

#include <memory>

#include <kes/Exception.h>
#include <kes/Selection.h>
#include <kes/Timestamp.h>

namespace Kes {

SortValueBase::~SortValueBase() = default;

namespace {

// Every value that a handler holds is one of these.
class KeptValue : public SortValueBase {
public:
    virtual SortValueBase* getNew() const = 0;
};

// `other` is always of the same type: both are values of one key.
template <class T>
class SortValue final : public KeptValue {
public:
    explicit SortValue(const T& v) : value(v) {}

    SortValueBase* getNew() const override { return new SortValue(value); }

    int compare(SortValueBase* other) override {
        const T& theirs = static_cast<SortValue*>(other)->value;
        if (value < theirs)
            return -1;
        return value > theirs ? 1 : 0;
    }

private:
    T value;
};

// Whatever is not at or above the other sorts before it, a NaN too.
template <class T>
class RealSortValue final : public KeptValue {
public:
    explicit RealSortValue(const T& v) : value(v) {}

    SortValueBase* getNew() const override { return new RealSortValue(value); }

    int compare(SortValueBase* other) override {
        const T theirs = static_cast<RealSortValue*>(other)->value;
        if (!(value >= theirs))
            return -1;
        return value > theirs ? 1 : 0;
    }

private:
    T value;
};

template <class T>
SortValueBase* makeValue(const T& value) {
    return new SortValue<T>(value);
}

SortValueBase* makeValue(const float& value) {
    return new RealSortValue<float>(value);
}

SortValueBase* makeValue(const double& value) {
    return new RealSortValue<double>(value);
}

SortValueBase* copyOf(const SortValueBase* value) {
    return value != nullptr ? static_cast<const KeptValue*>(value)->getNew() : nullptr;
}

void addTo(PtrVector<SortValueBase>& values, SortValueBase* value) {
    std::unique_ptr<SortValueBase> owned(value);
    values.add(value);
    static_cast<void>(owned.release());
}

}  // namespace

SortHandler::SortHandler(const SortHandler& other)
    : Handler(other),
      names(other.names),
      ascending(other.ascending),
      first(other.first) {
    try {
        takeValues(other);
    } catch (...) {
        best.clearAndDelete();
        candidate.clearAndDelete();
        throw;
    }
}

SortHandler& SortHandler::operator=(const SortHandler& other) {
    if (this == &other)
        return *this;
    names.clear();  // a handler without keys has no values, also when this throws
    ascending.clear();
    best.clearAndDelete();
    candidate.clearAndDelete();
    takeValues(other);
    names = other.names;
    ascending = other.ascending;
    first = other.first;
    return *this;
}

void SortHandler::takeValues(const SortHandler& other) {
    for (int i = 0; i < other.names.size(); ++i) {
        addTo(best, copyOf(other.best[i]));
        addTo(candidate, copyOf(other.candidate[i]));
    }
}

SortHandler::~SortHandler() {
    best.clearAndDelete();
    candidate.clearAndDelete();
}

void SortHandler::init(const PtrList<SortOrder>& orders) {
    first = true;
    for (const SortOrder* order : orders) {
        names.add(order->getAttribute().getName());
        ascending.add(order->isAscending());
        best.add(nullptr);
        candidate.add(nullptr);
    }
}

int SortHandler::isHandledBetter() {
    for (int i = 0; i < names.size(); ++i) {
        if (best[i] == nullptr || candidate[i] == nullptr)
            return 0;
        const int c = best[i]->compare(candidate[i]);
        if (c < 0)
            return ascending[i] ? -1 : 1;
        if (c > 0)
            return ascending[i] ? 1 : -1;
    }
    return 0;
}

bool SortHandler::isBetter() {
    const bool better = first || isHandledBetter() == 1;
    for (int i = 0; i < names.size(); ++i) {
        if (better)
            delete best.setAt(candidate[i], i);
        else
            delete candidate[i];
        candidate.setAt(nullptr, i);
    }
    if (better)
        first = false;
    return better;
}

void SortHandler::reinit() {
    first = true;
    for (int i = 0; i < names.size(); ++i) {
        delete best.setAt(nullptr, i);
        delete candidate.setAt(nullptr, i);
    }
}

template <class T>
void SortHandler::offer(const String& name, const T& value) {
    if (isHandledBetter() != 0)
        return;
    const int i = names.find(name);
    if (i != -1)
        delete candidate.setAt(makeValue(value), i);
}

void SortHandler::handleULong(const String& name, unsigned long& value) {
    offer(name, value);
}

void SortHandler::handleLong(const String& name, long& value) {
    offer(name, value);
}

void SortHandler::handleString(const String& name, String& value, int) {
    offer(name, value);
}

void SortHandler::handleInt(const String& name, int& value) {
    offer(name, value);
}

void SortHandler::handleUInt(const String& name, unsigned int& value) {
    offer(name, value);
}

void SortHandler::handleBool(const String& name, bool&) {
    if (isHandledBetter() != 0 || !names.contains(name))
        return;
    Exception(Exception::ERROR, "SORTFAIL", "Selection::next",
              "You can not sort on boolean attributes")
        .handle();
}

void SortHandler::handleFloat(const String& name, float& value) {
    offer(name, value);
}

void SortHandler::handleDouble(const String& name, double& value) {
    offer(name, value);
}

void SortHandler::handleTimestamp(const String& name, Timestamp& value) {
    offer(name, value);
}

void SortHandler::handleBlob(const String&, Blob&) {}

void SortHandler::handleOneAssociated(const String&, const String&, OneAssociatedInstance*,
                                      Association::ConsistencyRule) {}

void SortHandler::handleManyAssociated(const String&, const String&, ManyAssociatedInstances*) {}

}  // namespace Kes
