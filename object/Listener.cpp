#include <kes/Listener.h>

namespace Kes {

void Listener::instanceAdded(const InstanceEvent&) {}
void Listener::instanceChanged(const InstanceEvent&) {}
void Listener::instanceRemoved(const InstanceEvent&) {}
void Listener::associationAdded(const AssociationEvent&) {}
void Listener::associationRemoved(const AssociationEvent&) {}

}  // namespace Kes
