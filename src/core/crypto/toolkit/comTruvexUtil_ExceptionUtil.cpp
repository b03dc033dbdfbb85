#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

const QString TVXNotSupportedException = u"TVXNotSupportedException"_s;
const QString TVXStreamOperationException = u"TVXStreamOperationException"_s;
const QString TVXCryptoOperationException = u"TVXCryptoOperationException"_s;
const QString TVXWrongPasswordException = u"TVXWrongPasswordException"_s;

TVXException comTruvexUtil_ExceptionUtil::exceptionWithExceptionName(
    const QString& name, const QString& description, const QString& thrownFromFile,
    const QString& thrownFromMethod, int thrownFromLine) {
    return TVXException(name, description, thrownFromFile, thrownFromMethod, thrownFromLine);
}
