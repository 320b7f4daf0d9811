// Prepares the references of an instance that was never stored.

#pragma once

#include <kes/Handler.h>

namespace Kes {

/// Marks every association reference as fetched, so that reading it does not
/// look for links in the database, where a new instance cannot have any.
class KES_EXPORT InitAssocHandler : public EmptyHandler {
public:
    InitAssocHandler();
    InitAssocHandler(const InitAssocHandler& other);
    InitAssocHandler& operator=(const InitAssocHandler& other);
    ~InitAssocHandler() override;

    void handleOneAssociated(const String& association, const String& role,
                             OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& association, const String& role,
                              ManyAssociatedInstances* ref) override;
};

}  // namespace Kes
