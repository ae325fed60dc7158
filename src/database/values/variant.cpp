#include "database/values/variant.h"

#include "database/decimal.h"
#include "database/values/datetime.h"
#include "database/values/numbervalue.h"
#include "database/xdecimal.h"

#include <QtCore/qdatetime.h>

using bcdii::NumberValue;

namespace
{

template<typename T>
int order(const T &a, const T &b)
{
    return a < b ? -1 : b < a ? 1 : 0;
}

bool isEngineType(int type)
{
    return type == decimal::metatypeId() || type == xdecimal::metatypeId() ||
           type == datetime::metatypeId();
}

/// The text that users of \p v see.
QString shownText(const QVariant &v)
{
    const int type = v.userType();
    if (type == decimal::metatypeId())
        return v.value<decimal>().toString();
    if (type == xdecimal::metatypeId())
        return v.value<xdecimal>().toString();
    if (type == datetime::metatypeId())
        return v.value<datetime>().toString();
    return v.toString();
}

/// The same with every digit: decimal shows large mantissas through a double.
QString exactText(const QVariant &v)
{
    return v.userType() == decimal::metatypeId() ? v.value<decimal>().toExactString()
                                                 : shownText(v);
}

/// Compares as values of type T, the type of \p a.
template<typename T>
int compareAs(const QVariant &a, const QVariant &b)
{
    T other;
    if (b.userType() == a.userType()) {
        other = b.value<T>();
    } else {
        try {
            other = variant_convert(b, uint(a.userType())).value<T>();
        } catch (const QString &) { // keep the zero
        } catch (const char *) {
        }
    }
    return order(a.value<T>(), other);
}

bool areNumbers(const QVariant &a, const QVariant &b)
{
    return NumberValue::isNumberType(a.userType()) && NumberValue::isNumberType(b.userType());
}

int compareUserTypes(const QVariant &a, const QVariant &b)
{
    const int type = a.userType();
    if (type == decimal::metatypeId())
        return compareAs<decimal>(a, b);
    if (type == xdecimal::metatypeId())
        return compareAs<xdecimal>(a, b);
    if (type == datetime::metatypeId())
        return compareAs<datetime>(a, b);
    return 0;
}

} // namespace

int compareVariants(const QVariant &a, const QVariant &b, Qt::CaseSensitivity cs)
{
    return areNumbers(a, b) ? NumberValue(a).compare(NumberValue(b)) : variant_compare(a, b, cs);
}

int variant_compare(const QVariant &a, const QVariant &b, Qt::CaseSensitivity cs)
{
    if (!a.isValid() || !b.isValid())
        return int(a.isValid()) - int(b.isValid());
    if (a.userType() != b.userType() && areNumbers(a, b)) {
        const NumberValue x(a);
        const NumberValue y(b);
        return x.isNone() || y.isNone() ? 0 : x.compare(y);
    }
    if (a.userType() >= QMetaType::User)
        return compareUserTypes(a, b);
    if (a == b)
        return 0;
    switch (a.userType()) {
    case QMetaType::QString:
        return QString::compare(a.toString(), b.toString(), cs);
    case QMetaType::QChar:
        return QString::compare(QString(a.toChar()), QString(b.toChar()), cs);
    case QMetaType::Int:
        return order(a.toInt(), b.toInt());
    case QMetaType::Double:
        return order(a.toDouble(), b.toDouble());
    case QMetaType::QDateTime:
        return order(a.toDateTime(), b.toDateTime());
    case QMetaType::QDate:
        return order(a.toDate(), b.toDate());
    case QMetaType::QTime:
        return order(a.toTime(), b.toTime());
    default:
        return 0;
    }
}

QVariant variant_convert(const QVariant &v, uint type)
{
    const int target = int(type);
    if (v.userType() == target)
        return v;
    const bool fromEngine = isEngineType(v.userType());
    if (target == decimal::metatypeId())
        return decimal::fromVariant(fromEngine ? QVariant(exactText(v)) : v).toVariant();
    if (target == xdecimal::metatypeId())
        return xdecimal::fromVariant(fromEngine ? QVariant(exactText(v)) : v).toVariant();
    if (target == datetime::metatypeId()) {
        const int type = v.userType();
        return QVariant::fromValue(type == QMetaType::QDateTime || type == QMetaType::QDate
                                       ? datetime(v.toDateTime())
                                       : datetime(exactText(v)));
    }

    QVariant result = fromEngine ? QVariant(shownText(v)) : v;
    if (target == QMetaType::QChar) {
        const QString text = result.toString();
        result = text.isEmpty() ? QChar() : text.at(0);
    }
    result.convert(target);
    return result;
}
