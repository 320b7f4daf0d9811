// Failures as programs that use described classes meet them.

#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include <kes/Exception.h>
#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// What a program can do about a failure. More kinds may come: a switch over
/// them needs a default branch, which treats what it does not know like
/// Unclassified.
enum class ErrorKind : std::int32_t {
    Unclassified = 1,    ///< The message is all that there is.
    Conflict = 2,        ///< Somebody else came first: read again and try again.
    UnknownOutcome = 3,  ///< The commit may be stored or not: look before it is repeated.
    LostConnection = 4,  ///< Nothing of it is stored: open the database again and try again.
    InvalidValue = 16,   ///< A field holds, or is to hold, what does not fit: change the value.
    Removed = 17,        ///< The object is not stored any more: look for another one.
    Declaration = 18,    ///< Descriptions contradict each other: mend the program.
    Schema = 19,         ///< What is stored does not go with the declaration.
    Misuse = 20,         ///< The call makes no sense here: mend the program.
    NotFound = 32,       ///< There is no object such as the one that was asked for.
    Ambiguous = 33       ///< There are several.
};

/// What every operation on a Database, its transactions, queries and described
/// objects throws. It is told once, to its caller; the handler of
/// Exception::setExceptionHandler does not hear of it.
class KES_EXPORT Error : public Exception, public std::exception {
public:
    /// `code` names the failure, `context` the operation, as those of Exception.
    Error(ErrorKind kind, const char* code, const char* context, const std::string& message);

    /// The same of one object, as far as it is known: 0 and "" stand for what
    /// is not.
    Error(ErrorKind kind, const char* code, const char* context, const std::string& message,
          const std::string& className, unsigned long objectID, const std::string& fieldName = "");

    ErrorKind getKind() const { return kind; }

    /// Whether the same work, begun anew, may succeed: that of a conflict.
    bool isRetryable() const { return kind == ErrorKind::Conflict; }

    /// The class, object and field that the failure is about; "" and 0 where it
    /// is about none, or the database has not told.
    const std::string& getClassName() const { return className; }
    unsigned long getObjectID() const { return objectID; }
    const std::string& getFieldName() const { return fieldName; }

    const char* what() const noexcept override { return getMessage(); }

private:
    ErrorKind kind;
    std::string className;
    unsigned long objectID = 0;
    std::string fieldName;
};

}  // namespace Kes
