// Errors and how they are reported.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Mutex.h>

namespace Kes {

/// An error. Build one, call handle(), then fall back, because the handler may
/// throw or return.
class KES_EXPORT Exception {
public:
    enum Severity { FATAL = 0, ERROR = 1, WARNING = 2 };

    /// Copies the texts; null stands for "".
    Exception(Severity severity, const char* code, const char* context, const char* message);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);
    virtual ~Exception();

    Severity getSeverity() const { return severity; }
    const char* getCode() const { return code; }
    const char* getContext() const { return context; }

    /// Whole, of any length.
    const char* getMessage() const { return message; }

    /// "ERROR IN context [code] message", cut at 1,023 characters. Valid until
    /// the next call; not for several threads at once.
    const char* asString();

    /// Passes this error to the process's handler, one thread at a time.
    void handle();

    /// Replaces the handler. It is called with the mutex held and may raise
    /// further errors. Null is not allowed.
    static void setExceptionHandler(void (*handler)(Exception&));

protected:
    char* copy(const char* s);

private:
    explicit Exception(Severity severity);

    // Prints warnings and throws a copy of everything else.
    static void defaultExceptionHandler(Exception& e);

    Severity severity;
    char* code = nullptr;
    char* context = nullptr;
    char* message = nullptr;
    char text[1024];

    static void (*myExceptionHandler)(Exception&);
    static Mutex myMutex;
};

}  // namespace Kes
