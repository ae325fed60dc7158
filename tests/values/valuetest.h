#pragma once

#include "support/printing.h"

#include <gtest/gtest.h>
#include <QtCore/qlocale.h>
#include <QtCore/qregexp.h>
#include <QtCore/qstring.h>

#include <random>

/// What the tests of the value types share.

/// What \p action throws as a QString or a literal, or a note that it threw nothing.
template<typename Action>
QString thrownBy(Action action)
{
    try {
        action();
    } catch (const QString &message) {
        return message;
    } catch (const char *message) {
        return QString::fromUtf8(message);
    }
    return QStringLiteral("nothing thrown");
}

/// The forms of numbers, as sign, integer digits, fraction digits and exponent.
struct NumberPatterns {
    const QRegExp integer{"([+-]?)(\\d+)"};
    const QRegExp point{"([+-]?)(\\d*)[\\.](\\d+)"};
    const QRegExp comma{"([+-]?)(\\d*)[,](\\d+)"};
};

/// A short text of what numbers are made of; a good part of them are numbers.
inline QString numberLikeText(std::mt19937_64 &random)
{
    const QString alphabet = QStringLiteral("0019955+-..,,eeE x");
    QString text;
    for (int length = 1 + int(random() % 9); length > 0; --length)
        text.append(alphabet.at(int(random() % uint(alphabet.size()))));
    return text;
}
