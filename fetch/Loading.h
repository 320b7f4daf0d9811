// One reference that is loaded, for its owner and for siblings.

#pragma once

#include <cstdint>
#include <utility>

#include "core/RaisedErrors.h"
#include "fetch/ReferenceLoader.h"

namespace Kes {

// A reference that is read. Its own queries tell it of what they deliver, and
// not the loader: nothing of that is the application's yet.
class ReferenceLoader::Loading final : public DeliveryObserver {
public:
    explicit Loading(ReferenceLoader& itsLoader)
        : loader(itsLoader),
          outer(std::exchange(loader.loading, this)) {
        ++loader.loadings;
        loader.loadingBegan = loader.freshness.now();
    }
    ~Loading() {
        loader.endReading();
        loader.loading = outer;
    }

    void asked() override {}
    ReadMoment now() const override { return loader.now(); }
    void read(Delivery& delivery, Instance* instance) override {
        loader.enterGroup(delivery, instance, true);
    }
    void delivered(Instance*) override {}
    std::size_t wantedAhead(const Delivery& delivery) override {
        return loader.wantedAhead(delivery);
    }
    bool setReadingAhead(bool on) override { return loader.setReadingAhead(on); }

private:
    ReferenceLoader& loader;
    Loading* outer;
};

// False when what is read for siblings too cannot be read.
template <class Work>
bool ReferenceLoader::succeedsForAll(Work work) {
    const ErrorWatch watch;
    try {
        work();
        if (!watch.hasFailed())
            return true;
    } catch (...) {
        // Whatever the error handler has thrown: it is not the owner's.
    }
    return false;
}

}  // namespace Kes
