#include "database/tables/field.h"

#include "database/services/exception.h"
#include "database/tables/table.h"
#include "database/values/localetext.h"
#include "database/values/xdecimalreader.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qdebug.h>
#include <QtCore/qlocale.h>

namespace
{

[[noreturn]] void throwIncorrectType()
{
    throw QStringLiteral("Incorrect type of field.");
}

QString incompatibleTypes(FieldType::Type from, FieldType::Type to)
{
    return QStringLiteral("Can't convert from %1 to %2")
        .arg(QLatin1String(FieldType::typeName(from)), QLatin1String(FieldType::typeName(to)));
}

} // namespace

QString Field::toString() const
{
    if (isNull())
        return QString();
    switch (m_column->type) {
    case FieldType::Undefined:
        return QString();
    case FieldType::Integer:
        return QString::number(stored<qint32>());
    case FieldType::Integer64:
        return QString::number(stored<qint64>());
    case FieldType::Double:
        return QString::number(stored<double>(), 'g', QLocale::FloatingPointShortest);
    case FieldType::Decimal:
        return stored<decimal>().toString();
    case FieldType::VarChar:
        return FieldType::getString(m_value, m_column->length);
    case FieldType::DateTime:
        return stored<datetime>().toString();
    case FieldType::BoardList:
        return QStringLiteral("[BoardList]");
    case FieldType::XDecimal:
        return stored<xdecimal>().toString();
    }
    throwIncorrectType();
}

QString Field::toLocaleString(const QLocale &locale) const
{
    if (isNull())
        return QString();
    switch (m_column->type) {
    case FieldType::Integer:
        return locale.toString(stored<qint32>());
    case FieldType::Integer64:
        return locale.toString(stored<qint64>());
    case FieldType::Double:
        return locale.toString(stored<double>(), 'g', 6);
    case FieldType::Decimal:
        return stored<decimal>().toLocaleString(locale);
    case FieldType::VarChar:
        return toString();
    case FieldType::DateTime:
        return stored<datetime>().toLocaleString(locale);
    case FieldType::BoardList:
        return stored<boardlist>().toString();
    case FieldType::XDecimal:
        return stored<xdecimal>().toLocaleString(locale);
    case FieldType::Undefined:
        break;
    }
    throwIncorrectType();
}

QString Field::toSystemString() const
{
    return toLocaleString(QLocale::system());
}

QVariant Field::toVariant() const
{
    if (isNull())
        return QVariant();
    switch (m_column->type) {
    case FieldType::Integer:
        return QVariant(stored<qint32>());
    case FieldType::Integer64:
        return QVariant(stored<qint64>());
    case FieldType::Double:
        return QVariant(stored<double>());
    case FieldType::Decimal:
        return stored<decimal>().toVariant();
    case FieldType::VarChar:
        return QVariant(toString());
    case FieldType::DateTime:
        return QVariant(QDateTime::fromMSecsSinceEpoch(stored<qint64>(), Qt::UTC));
    case FieldType::BoardList:
        return QVariant(stored<boardlist>().toString());
    case FieldType::XDecimal:
        return stored<xdecimal>().toVariant();
    case FieldType::Undefined:
        break;
    }
    return QVariant();
}

QString Field::asStaticString() const
{
    if (isNull())
        return QString();
    if (m_column->type != FieldType::VarChar)
        throwIncorrectType();
    return FieldType::getStaticString(m_value, m_column->length);
}

QChar Field::asChar() const
{
    if (isNull())
        throw QStringLiteral("String is null for QChar");
    return toChar();
}

QChar Field::toChar() const
{
    if (isNull())
        return QChar();
    if (m_column->type != FieldType::VarChar)
        throwIncorrectType();
    if (m_column->length != 1)
        throw QStringLiteral("String length is not 1 for QChar: %1.").arg(m_column->length);
    return QChar(stored<ushort>());
}

const char *Field::typeName() const
{
    switch (m_column->type) {
    case FieldType::Undefined:
        return "Invalid";
    case FieldType::VarChar:
        return "String";
    case FieldType::Integer:
    case FieldType::Integer64:
    case FieldType::Double:
    case FieldType::Decimal:
    case FieldType::DateTime:
    case FieldType::XDecimal:
        return FieldType::typeName(m_column->type);
    case FieldType::BoardList:
        break;
    }
    return "undefined";
}

template<class Number>
void Field::storeNumber(const QStringRef &text)
{
    try {
        store(Number(text));
    } catch (const QString &message) {
        throw QString(message + place());
    }
}

Field &Field::operator=(const QStringRef &text)
{
    if (text.isEmpty() && m_column->nullable) {
        setNull();
        return *this;
    }
    bool ok = true;
    switch (m_column->type) {
    case FieldType::Integer: {
        const qint32 number = text.toInt(&ok);
        if (!ok)
            unreadableText(text);
        store(number);
        break;
    }
    case FieldType::Integer64: {
        const qint64 number = text.toLongLong(&ok);
        if (!ok)
            unreadableText(text);
        store(number);
        break;
    }
    case FieldType::Double: {
        const double number = text.toDouble(&ok);
        if (!ok)
            unreadableText(text);
        store(number);
        break;
    }
    case FieldType::Decimal:
        storeNumber<decimal>(text);
        break;
    case FieldType::VarChar:
        FieldType::setString(m_value, m_column->length, text);
        setPresent();
        break;
    case FieldType::DateTime: {
        qint64 msecs = 0;
        if (!datetime::parse(text.unicode(), text.size(), &msecs))
            msecs = 0;
        store(msecs);
        break;
    }
    case FieldType::XDecimal:
        storeNumber<xdecimal>(text);
        break;
    default:
        incompatibleType(FieldType::VarChar);
    }
    return *this;
}

void Field::setLocaleString(const QString &text, const QLocale &locale)
{
    if (m_column->type == FieldType::VarChar || text.isEmpty()) {
        *this = QStringRef(&text);
        return;
    }
    bool ok = false;
    switch (m_column->type) {
    case FieldType::Integer:
    case FieldType::Integer64: {
        const qint64 number = locale.toLongLong(text, &ok);
        const bool isWide = m_column->type == FieldType::Integer64;
        ok = ok && (isWide || qint32(number) == number);
        if (ok && isWide)
            store(number);
        else if (ok)
            store(qint32(number));
        break;
    }
    case FieldType::Double: {
        double number = 0;
        ok = readLocaleDouble(text, locale, &number);
        if (ok)
            store(number);
        break;
    }
    case FieldType::Decimal:
    case FieldType::XDecimal: {
        xdecimal number;
        ok = readLocaleXDecimal(text, locale, &number);
        const QString plain = number.toString();
        if (ok && m_column->type == FieldType::XDecimal)
            store(number);
        else if (ok)
            *this = plain.midRef(0);
        break;
    }
    case FieldType::DateTime: {
        const datetime date = datetime::fromLocaleString(text, locale, &ok);
        if (ok)
            store(date);
        break;
    }
    default:
        incompatibleType(FieldType::VarChar);
    }
    if (!ok)
        unreadableText(QStringRef(&text));
}

void Field::setSystemString(const QString &text)
{
    setLocaleString(text, QLocale::system());
}

QString Field::place() const
{
    if (!m_column->table)
        return QString();
    return QStringLiteral(" (column '%1' of table '%2')")
        .arg(m_column->name, m_column->table->name());
}

void Field::incompatibleType(FieldType::Type from, FieldType::Type to)
{
    throw Exception(incompatibleTypes(from, to));
}

void Field::incompatibleType(FieldType::Type to) const
{
    refuseType(m_column->type, to);
}

void Field::unreadableText(const QStringRef &text) const
{
    refuseValue(text.toString(), FieldType::typeName(m_column->type));
}

void Field::refuseType(FieldType::Type from, FieldType::Type to) const
{
    throw Exception(incompatibleTypes(from, to) + place());
}

void Field::refuseValue(const QString &value, const char *to) const
{
    throw Exception(QStringLiteral("Can't convert from '%1'' to %2").arg(value, QLatin1String(to)) +
                    place());
}

qint64 Field::loadInteger(FieldType::Type type, bool isOwnType) const
{
    const bool isWide = m_column->type == FieldType::Integer64;
    if (!isWide && m_column->type != FieldType::Integer)
        incompatibleType(type);
    if (isWide && isOwnType && type == FieldType::Integer) // would fail with the first large value
        incompatibleType(type);
    if (isNull())
        return 0;
    return isWide ? stored<qint64>() : stored<qint32>();
}

void Field::storeInteger(qint64 value, FieldType::Type type)
{
    if (m_column->type == FieldType::Integer64) {
        store(value);
    } else if (m_column->type == FieldType::Integer && type == FieldType::Integer) {
        if (value > std::numeric_limits<qint32>::max()) // of an unsigned
            refuseValue(QString::number(value), FieldType::typeName(type));
        store(qint32(value));
    } else {
        refuseType(type, m_column->type);
    }
}

QDebug operator<<(QDebug debug, const Field &field)
{
    // Where the stream inserts spaces, the saver appends the one behind the text.
    const bool spaces = debug.autoInsertSpaces();
    const QDebugStateSaver saver(debug);
    debug.nospace().noquote() << (field.isNull() ? QStringLiteral("NULL") : field.toString());
    if (!spaces)
        debug << ' ';
    return debug;
}
