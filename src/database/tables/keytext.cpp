#include "database/tables/keytext.h"

#include <algorithm>

namespace
{

const QLatin1String kNull("NULL");
constexpr QLatin1Char kQuote('"');
constexpr QLatin1Char kComma(',');
constexpr QLatin1Char kPower('e');

QString exactDecimal(const decimal &value)
{
    // A scale below zero is lost in the plain text, and with it the bytes that a key may be
    // compared by. Behind "e" a decimal reads the count of its places.
    return value.scale() >= 0
               ? value.toExactString()
               : QString::number(value.mantissa()) + kPower + QString::number(value.scale());
}

/// 10^power as a number of that many implied zeros.
xdecimal powerOfTen(int power)
{
    return xdecimal::fromInt64(1, short(-power));
}

QString exactXDecimal(const xdecimal &value)
{
    const int power = -value.scale();
    if (power <= 0 || value.isNull())
        return value.toString();
    const xdecimal digits = value * powerOfTen(-power); // of scale 0
    return digits.toString() + kPower + QString::number(power);
}

QString exactDate(datetime value)
{
    // No date, and years that the format does not reach, are written as the milliseconds.
    const QString text = value.toString();
    return !value.isNull() && datetime(text) == value ? text
                                                      : QString::number(value.toMSecsSinceEpoch());
}

bool needsQuotes(const QString &text)
{
    const auto isSpecial = [](QChar c) {
        return c == kComma || c == kQuote || c.category() == QChar::Other_Control;
    };
    return text.isEmpty() || text == kNull || text.front().isSpace() || text.back().isSpace() ||
           std::any_of(text.begin(), text.end(), isSpecial);
}

QString quoted(QString text)
{
    text.replace(kQuote, QLatin1String("\"\""));
    return kQuote + text + kQuote;
}

xdecimal readXDecimal(const QString &text)
{
    const int e = text.indexOf(kPower);
    bool isPower = false;
    const int power = e < 0 ? 0 : text.midRef(e + 1).toInt(&isPower);
    if (!isPower || power <= 0 || power > -xdecimal::kMinScale ||
        text.leftRef(e).contains(QLatin1Char('.')))
        return xdecimal(text);
    return xdecimal(text.left(e)) * powerOfTen(power);
}

/// \return false for a text that is none of the column's type
bool readNumber(Field &cell, const QString &text)
{
    bool ok = true;
    switch (cell.column()->type) {
    case FieldType::Decimal:
        if (text.isEmpty())
            return false;
        cell.setValue(decimal(text));
        return true;
    case FieldType::XDecimal:
        cell.setValue(readXDecimal(text));
        return true;
    case FieldType::DateTime: {
        qint64 msecs = 0;
        if (!datetime::parse(text.constData(), text.size(), &msecs))
            msecs = text.toLongLong(&ok);
        if (ok)
            cell.setValue(datetime(msecs));
        return ok;
    }
    case FieldType::BoardList: // counts as equal to every other one
        cell.setValue(boardlist());
        return true;
    default:
        if (text.isEmpty())
            return false;
        cell = QStringRef(&text);
        return true;
    }
}

} // namespace

void appendKeyPart(QString *keyText, const Field &cell)
{
    if (cell.isNull()) {
        keyText->append(kNull);
        return;
    }
    switch (cell.column()->type) {
    case FieldType::Decimal:
        keyText->append(exactDecimal(cell.value<decimal>()));
        break;
    case FieldType::XDecimal:
        keyText->append(exactXDecimal(cell.value<xdecimal>()));
        break;
    case FieldType::DateTime:
        keyText->append(exactDate(cell.value<datetime>()));
        break;
    default: {
        const QString text = cell.toString();
        keyText->append(needsQuotes(text) ? quoted(text) : text);
        break;
    }
    }
}

QVector<KeyPart> keyParts(const QString &keyText)
{
    QVector<KeyPart> parts;
    int at = 0;
    for (;;) {
        KeyPart part;
        part.isQuoted = at < keyText.size() && keyText.at(at) == kQuote;
        if (!part.isQuoted) {
            int end = keyText.indexOf(kComma, at);
            end = end < 0 ? keyText.size() : end;
            part.text = keyText.mid(at, end - at);
            at = end;
        } else {
            for (++at;; at += 2) { // behind the opening quote, then behind each doubled one
                const int end = keyText.indexOf(kQuote, at);
                if (end < 0)
                    throw QStringLiteral("A quote is not closed in the key '%1'.").arg(keyText);
                part.text += keyText.midRef(at, end - at);
                at = end;
                if (at + 1 >= keyText.size() || keyText.at(at + 1) != kQuote)
                    break;
                part.text += kQuote;
            }
            ++at;
            if (at < keyText.size() && keyText.at(at) != kComma)
                throw QStringLiteral("A comma is missing behind a quote in the key '%1'.")
                    .arg(keyText);
        }
        parts.append(part);
        if (at == keyText.size())
            return parts;
        ++at; // behind the comma
    }
}

void readKeyPart(Field cell, const KeyPart &part)
{
    const QStringRef text(&part.text);
    if (!part.isQuoted && part.text == kNull) {
        cell.setNull();
        return;
    }
    if (cell.column()->type == FieldType::VarChar) {
        if (part.text.size() > cell.column()->length) // would be cut to another key
            cell.unreadableText(text);
        cell.setValue(part.text);
        return;
    }
    bool isRead = false;
    try {
        isRead = readNumber(cell, part.text);
    } catch (const QString &) { // from the decimal types
    } catch (const char *) {
    }
    if (!isRead)
        cell.unreadableText(text);
}
