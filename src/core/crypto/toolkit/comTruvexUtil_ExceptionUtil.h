#pragma once

#include <QString>

#include "crypto/toolkit/TVXException.h"

// Exception names. The first two are the ones callers test for; the others tell crypto failures
// apart in logs.
extern const QString TVXNotSupportedException;
extern const QString TVXStreamOperationException;
extern const QString TVXCryptoOperationException;
extern const QString TVXWrongPasswordException;

class comTruvexUtil_ExceptionUtil {
public:
    comTruvexUtil_ExceptionUtil() = delete;

    [[nodiscard]] static TVXException exceptionWithExceptionName(const QString& name,
                                                                 const QString& description,
                                                                 const QString& thrownFromFile,
                                                                 const QString& thrownFromMethod,
                                                                 int thrownFromLine);
};
