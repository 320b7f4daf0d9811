#include <kes/Pointer.h>

namespace Kes {

PointerBase::~PointerBase() = default;

void PointerBase::unregister(const Instance* from) noexcept {
    from->forgetPointer(this);
}

template class Pointer<Instance>;

}  // namespace Kes
