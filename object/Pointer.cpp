#include <kes/Pointer.h>

namespace Kes {

PointerBase::~PointerBase() = default;

template class Pointer<Instance>;

}  // namespace Kes
