#pragma once

#include "database/database_global.h"

#include <QtCore/qbytearray.h>
#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>

#include <exception>

/// An error that carries the place where it arose: a message and the call stack at construction.
///
/// Thrown for type mismatches and values that do not convert. It is a std::exception, so that a
/// host that does not know it, and a terminate handler that catches what nobody else does, still
/// show what it says. Capturing costs one stack walk of at most 128 frames and one allocation of
/// symbol text.
class DATABASE_EXPORT Exception : public std::exception
{
public:
    explicit Exception(const QString &message);
    Exception(const Exception &) = default; // keeps the stack of the original
    Exception &operator=(const Exception &) = default;
    ~Exception() override;

    /// The text given to the constructor, in UTF-8; valid while this object lives.
    const char *what() const noexcept override;

    /// The call stack of the calling thread, innermost frame first, as the platform's symbolizer
    /// prints it; the capturing function itself is left out. Empty where nothing can be captured.
    static QStringList getStack();

    /// Writes each entry of stack, in order, as its own message through Qt's debug log.
    void dump() const;

    QString message;   ///< the error text
    QStringList stack; ///< one entry per frame, at most 127

private:
    QByteArray m_what;
};
