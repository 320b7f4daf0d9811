// How the library reports an error.
//
// Whoever detects one builds an Exception, calls handle() and then takes a
// fallback of its own: handle() throws or returns, as the application's
// handler likes.

#pragma once

#include <kes/Export.h>
#include <kes/Mutex.h>

namespace Kes {

/// An error: how bad it is, a code, where it happened and a text for people.
///
/// The object keeps copies of its texts, so it outlives what it was built
/// from and may be thrown across library boundaries.
class KES_EXPORT Exception {
public:
    enum Severity : int { FATAL = 0, ERROR = 1, WARNING = 2 };

    /// Decides whether an error is thrown, reported or ignored.
    using ExceptionHandler = void (*)(Exception&);

    /// Copies the three texts; a null one counts as "".
    Exception(Severity severity, const char* code, const char* context, const char* message);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);
    virtual ~Exception();

    Severity getSeverity() const { return severity; }

    /// The texts, whole, however long. Never null; owned by this object and
    /// valid until it is assigned to or destroyed.
    const char* getCode() const { return code; }
    const char* getContext() const { return context; }
    const char* getMessage() const { return message; }

    /// The error in one line: "ERROR IN Model::commit [COMFAIL] disk full".
    ///
    /// Holds at most 1,023 characters; a longer line is cut there. The text
    /// lies inside this object and is built anew by every call.
    const char* asString();

    /// Hands this object to the process-wide handler.
    ///
    /// Handlers of different threads never overlap. A handler may itself raise
    /// and handle a further error.
    void handle();

    /// Replaces the process-wide handler; `handler` must not be null.
    ///
    /// The handler that is in place at first prints a WARNING to the standard
    /// error stream and throws a copy of anything worse.
    static void setExceptionHandler(ExceptionHandler handler);

    /// The handler in place, for whoever wants to put it back later.
    static ExceptionHandler getExceptionHandler();

protected:
    /// A new copy of `s`, for the caller, who frees it with delete[].
    char* copy(const char* s);

private:
    explicit Exception(Severity severity);

    static void defaultExceptionHandler(Exception& e);

    Severity severity;
    char* code = nullptr;     // owned
    char* context = nullptr;  // owned
    char* message = nullptr;  // owned
    char text[1024];          // what asString() returns, terminated by a NUL

    // Guarded by myMutex.
    static ExceptionHandler myExceptionHandler;
    static Mutex myMutex;
};

}  // namespace Kes
