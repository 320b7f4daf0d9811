// Snapshots of what is stored of the objects that a transaction changes.
//
// An update or removal remembers the fields as they are stored. The application
// may call change() after it has assigned members, so the digest of the stored
// fields, kept by each instance, tells whether memory still shows them (dirty
// checking); when it does not, the driver reads them once more.
//
// Where it cannot, the change is refused, though what was assigned is in memory.
// Such an instance gets a version that nothing stored has: no driver writes it,
// and any refresh reads it. The transaction does not commit, and its rollback
// reads the instance again. Where that fails too, the instance gets another such
// version, with which the next query that delivers it reads it.

#pragma once

#include <kes/Forward.h>
#include <kes/String.h>

#include "transaction/Changes.h"

namespace Kes {

enum class Stored { Found, Absent, Unknown };

/// Has the driver fill an object that the model does not know with what is
/// stored under its id. Unknown was raised, in the context `operation`.
Stored readStored(const Model* model, Instance* reading, const char* operation);

/// False when what is stored cannot be told, which was raised. The snapshot stays
/// null when it is not the state that the instance was read with: the driver is
/// going to refuse the change.
bool snapshotForUpdate(const Model* model, Changes& changes, Instance* instance,
                       const char* operation, Snapshot& snapshot);

/// Null where it is not the state that the instance was read with.
void snapshotForRemoval(const Model* model, Changes& changes, Instance* instance,
                        Snapshot& snapshot);

/// The change of the instance is refused until it is read again. Needs no memory.
void refuse(Changes& changes, Instance* instance) noexcept;
bool isUnknown(const Instance* instance);

/// Whether a rollback could not bring the instance back to what is stored: it
/// shows nothing that is, until it is read again.
bool isUnread(const Instance* instance);

/// Whether some change is refused, and the words for it.
bool hasRefused(const Changes& changes, String& failure);

/// Assigns the snapshot. An instance whose fields could not all be put back shows
/// nothing stored.
void restoreFields(const Changes& changes, Snapshot snapshot, Instance* instance);

/// What was assigned to refused instances goes too. One that cannot be read now
/// either stays as it is until something reads it, with a version that keeps it
/// from being written.
void rereadRefused(Model* model, Changes& changes);

}  // namespace Kes
