#include "database/database_main.h"

#include "database/decimal.h"
#include "database/record.h"
#include "database/settings.h"
#include "database/values/datetime.h"
#include "database/xdecimal.h"

#include <QtCore/qmetatype.h>
#include <QtCore/qvector.h>

#include <limits>
#include <type_traits>

namespace
{

template<class T>
void registerValueType(const char *name)
{
    qRegisterMetaType<T>(name);
    QMetaType::registerComparators<T>();
    QMetaType::registerConverter<T, QString>(&T::toString);
}

/// Digits that a decimal has no room for are cut off, as of a text; it must not throw here, where
/// the framework may be comparing two variants.
template<class Int>
decimal numberOf(Int value, const decimal *)
{
    if constexpr (std::is_unsigned_v<Int> && sizeof(Int) == sizeof(qint64)) {
        if (value > Int(std::numeric_limits<qint64>::max()))
            return decimal::fromParts(qint64(value / 10), -1);
    }
    return decimal::fromParts(qint64(value), 0);
}

template<class Int>
xdecimal numberOf(Int value, const xdecimal *)
{
    return xdecimal(value);
}

template<class Number, class Int>
void registerInteger()
{
    QMetaType::registerConverter<Number, Int>(&Number::template toInteger<Int>);
    QMetaType::registerConverter<Int, Number>(
        [](Int value) { return numberOf(value, static_cast<const Number *>(nullptr)); });
}

/// To the number types, and from the integers. What is no integer converts to none, so that the
/// framework's own == and < never find 12.5 equal to 12 or to 13.
template<class Number, class... Ints>
void registerNumbers()
{
    (registerInteger<Number, Ints>(), ...);
    QMetaType::registerConverter<Number, double>(&Number::toDouble);
    QMetaType::registerConverter<Number, float>(
        [](const Number &value) { return float(value.toDouble()); });
    QMetaType::registerConverter<Number, bool>(
        [](const Number &value) { return value != Number(); });
}

} // namespace

Database::Main::Main()
{
    registerValueType<datetime>("datetime");
    QMetaType::registerConverter<datetime, QDateTime>(&datetime::toQDateTime);
    QMetaType::registerConverter<QDateTime, datetime>(
        [](const QDateTime &shown) { return datetime(shown); });
    registerValueType<decimal>("decimal");
    qRegisterMetaTypeStreamOperators<decimal>("decimal");
    registerValueType<xdecimal>("xdecimal");
    qRegisterMetaTypeStreamOperators<xdecimal>("xdecimal");
    registerNumbers<decimal, int, uint, qlonglong, qulonglong, long, ulong, short, ushort>();
    registerNumbers<xdecimal, int, uint, qlonglong, qulonglong, long, ulong, short, ushort>();
    qRegisterMetaType<Record>("Record");
    qRegisterMetaType<void *>("HRunnable"); // the handle of a background task
    qRegisterMetaType<UnknownSetting>("UnknownSetting");
    qRegisterMetaType<QVector<SettingsChange>>("QVector<SettingsChange>");
    // Declares the converter to a sequential iterable as well.
    qRegisterMetaType<QVector<int>>("QVector<int>");
}

Database::Main Database::main;
