#include <kes/Error.h>

namespace Kes {

Error::Error(ErrorKind itsKind, const char* itsCode, const char* itsContext,
             const std::string& itsMessage)
    : Exception(ERROR, itsCode, itsContext, itsMessage.c_str()),
      kind(itsKind) {}

Error::Error(ErrorKind itsKind, const char* itsCode, const char* itsContext,
             const std::string& itsMessage, const std::string& itsClass, unsigned long itsObject,
             const std::string& itsField)
    : Exception(ERROR, itsCode, itsContext, itsMessage.c_str()),
      kind(itsKind),
      className(itsClass),
      objectID(itsObject),
      fieldName(itsField) {}

}  // namespace Kes
