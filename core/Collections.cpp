// The instantiations that every user of the library shares.

#include <kes/String.h>
#include <kes/ValVector.h>

namespace Kes {

template class ValVector<String>;
template class ValVector<int>;
template class ValVector<bool>;

}  // namespace Kes
