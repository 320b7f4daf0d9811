#include <kes/Exception.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "core/RaisedErrors.h"

namespace Kes {

namespace {

thread_local std::uint64_t myErrorsRaised = 0;
thread_local HandlerWatch* myWatch = nullptr;  // the innermost
thread_local int mySilences = 0;

}  // namespace

HandlerWatch::HandlerWatch() : outer(myWatch) {
    myWatch = this;
}

HandlerWatch::~HandlerWatch() {
    myWatch = outer;
}

ErrorSilence::ErrorSilence() {
    ++mySilences;
}

ErrorSilence::~ErrorSilence() {
    --mySilences;
}

void (*Exception::myExceptionHandler)(Exception&) = Exception::defaultExceptionHandler;
Mutex Exception::myMutex;

Exception::Exception(Severity itsSeverity, const char* itsCode, const char* itsContext,
                     const char* itsMessage)
    : Exception(itsSeverity) {
    code = copy(itsCode);
    context = copy(itsContext);
    message = copy(itsMessage);
}

// Without texts yet: a constructor that goes on from here and runs out of memory
// leaves the object to the destructor.
Exception::Exception(Severity itsSeverity) : severity(itsSeverity) {
    text[0] = '\0';
}

Exception::Exception(const Exception& other)
    : Exception(other.severity, other.code, other.context, other.message) {}

Exception& Exception::operator=(const Exception& other) {
    if (this == &other)
        return *this;
    Exception fresh(other);
    severity = fresh.severity;
    std::swap(code, fresh.code);
    std::swap(context, fresh.context);
    std::swap(message, fresh.message);
    return *this;
}

Exception::~Exception() {
    delete[] code;
    delete[] context;
    delete[] message;
}

char* Exception::copy(const char* s) {
    const char* source = s != nullptr ? s : "";
    const std::size_t size = std::strlen(source) + 1;
    char* copied = new char[size];
    std::memcpy(copied, source, size);
    return copied;
}

const char* Exception::asString() {
    const char* prefix = severity == FATAL   ? "FATAL ERROR IN "
                         : severity == ERROR ? "ERROR IN "
                                             : "WARNING IN ";
    std::snprintf(text, sizeof text, "%s%s [%s] %s", prefix, context, code, message);
    return text;
}

std::uint64_t errorsRaised() {
    return myErrorsRaised;
}

void Exception::handle() {
    if (severity == ERROR && mySilences > 0)
        throw Exception(*this);
    if (severity != WARNING)
        ++myErrorsRaised;
    const MutexGuard guard(myMutex);
    try {
        myExceptionHandler(*this);
    } catch (...) {
        if (myWatch != nullptr)
            myWatch->thrown = std::current_exception();
        throw;
    }
}

void Exception::setExceptionHandler(void (*handler)(Exception&)) {
    const MutexGuard guard(myMutex);
    myExceptionHandler = handler;
}

void Exception::defaultExceptionHandler(Exception& e) {
    if (e.getSeverity() != WARNING)
        throw Exception(e);
    std::cerr << e.asString() << std::endl;
}

}  // namespace Kes
