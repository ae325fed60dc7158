#pragma once

#include "database/database_global.h"

#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>

/// An error that carries the place where it arose: a message and the call stack at construction.
///
/// Thrown for type mismatches and values that do not convert. It stands outside the standard
/// exception hierarchy, so a host catches it by its own name. Capturing costs one stack walk of at
/// most 128 frames and one allocation of symbol text.
class DATABASE_EXPORT Exception
{
public:
    explicit Exception(const QString &message);
    Exception(const Exception &) = default; // keeps the stack of the original
    Exception &operator=(const Exception &) = default;
    virtual ~Exception();

    /// The call stack of the calling thread, innermost frame first, as the platform's symbolizer
    /// prints it; the capturing function itself is left out. Empty where nothing can be captured.
    static QStringList getStack();

    /// Writes each entry of stack, in order, as its own message through Qt's debug log.
    void dump() const;

    QString message;   ///< the error text
    QStringList stack; ///< one entry per frame, at most 127
};
