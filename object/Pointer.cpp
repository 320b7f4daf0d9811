#include <kes/Pointer.h>

#include "object/ModelGate.h"

namespace Kes {

PointerBase::~PointerBase() = default;

void PointerBase::unregister(const Instance* from) noexcept {
    ModelGate::forgetPointer(from, this);
}

template class Pointer<Instance>;

}  // namespace Kes
