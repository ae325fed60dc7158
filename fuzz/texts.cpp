// Texts into values: whatever reads prints, and what it prints reads as the same value.

#include "tablerules.h"

#include <database/bcdii.h>
#include <database/tables/fieldvalue.h>
#include <database/values/variant.h>

#include <QtCore/qlocale.h>

#include <cstring>
#include <string>

namespace
{

using Unique = std::unique_ptr<char, decltype(&std::free)>;

void readDecimal(const QString &text, int option)
{
    const short scale = short(option - 128);
    bool ok = false;
    decimal::fromAnyString(text, &ok, scale);
    outcomeOf([&] { decimal::fromLocaleString(text, QLocale(QLocale::Russian), scale); });
    decimal value;
    if (outcomeOf([&] { value = decimal(text); }) != Outcome::Done)
        return;
    require(ok, "what reads as a number reads as any");
    require(decimal::canConvert(text, true), "what reads has the form of a number");
    if (value.scale() >= 0) { // below, zeros stand for what is no part of the mantissa
        const decimal again(value.toExactString());
        require(again.word() == value.word(), "an exact text reads as the same decimal");
    }
    require(value.compare(decimal::fromWord(value.word())) == 0, "a decimal equals itself");
    value.toString();
    value.toSystemString();
    outcomeOf([&] { decimal::fromDouble(value.toDouble(), scale); });
    decimal other = value;
    other.setScale(scale);
    require(other.compare(value) == -value.compare(other), "a comparison has two sides");
}

void readXDecimal(const QString &text, int option)
{
    bool ok = false;
    xdecimal::fromAnyString(text, &ok);
    outcomeOf([&] { xdecimal::fromLocaleString(text, QLocale(QLocale::Russian)); });
    xdecimal value;
    if (outcomeOf([&] { value = xdecimal(text); }) != Outcome::Done)
        return;
    require(ok, "what reads as a number reads as any");
    require(xdecimal::canConvert(text, true), "what reads has the form of a number");
    require(xdecimal::isNumber(value.data()), "a number is well-formed");
    if (value.scale() >= 0) {
        const xdecimal again(value.toString());
        require(std::memcmp(again.data(), value.data(), sizeof again) == 0,
                "a text reads as the same xdecimal");
    }
    value.toSystemString();
    value.toSystemStringShort();
    const xdecimal other = xdecimal::fromInt64(option - 100, short(option % 63));
    try {
        const xdecimal sum = value + other;
        const xdecimal product = value * other - sum;
        require(xdecimal::isNumber(product.data()), "arithmetic gives numbers");
        xdecimal rescaled = value;
        rescaled.setScale(short(option - 128));
        require(xdecimal::isNumber(rescaled.data()), "and so does another scale");
    } catch (const char *error) {
        require(std::strncmp(error, "xdecimal:", 9) == 0, "arithmetic has its own errors");
    }
}

void readDate(const QString &text)
{
    qint64 msecs = 0;
    if (!datetime::parse(text.constData(), text.size(), &msecs)) {
        require(datetime(text).isNull(), "what is no date is none");
        return;
    }
    const datetime value(text);
    require(value.toMSecsSinceEpoch() == msecs, "both ways read the same date");
    require(datetime(value.toString()) == value, "a date's text reads as the same date");
    value.toSystemString();
}

void readPacked(const QString &text, int option)
{
    const int precision = option % 63 + 1;
    const std::string latin = text.toLatin1().toStdString();
    BCDIIType type = BCDIIType(precision << 8);
    const std::unique_ptr<uchar[]> digits(new uchar[size_t(precision) / 2 + 1]);
    const quint32 status = BCDIIFromString(digits.get(), &type, latin.c_str());
    const quint32 check = BCDIICheck(digits.get(), type);
    if (status & BCDII_NULL_RESULT) {
        require(check == (BCDII_NULL_OPERAND | BCDII_MALFORMED), "a failure leaves NULL");
        return;
    }
    require((check & BCDII_MALFORMED) == 0, "a success leaves a number");
    const Unique printed(BCDII2StringSequence(digits.get(), type, nullptr), &std::free);
    if (check & BCDII_ZERO)
        return; // an integer zero has no digits to print
    BCDIIType againType = BCDIIType(precision << 8);
    const std::unique_ptr<uchar[]> again(new uchar[size_t(precision) / 2 + 1]);
    BCDIIFromString(again.get(), &againType, printed.get());
    require(BCDIICmp(digits.get(), type, again.get(), againType) == 0,
            "a packed number's text reads as the same number");
}

/// Whether a cell's text may read as another value, or not at all.
bool isLossy(const Field &cell)
{
    if (cell.toString().isEmpty()) // of no date, or of an empty text: reads as NULL where it may
        return true;
    if (cell.column()->type == FieldType::Decimal) {
        const decimal value = cell.value<decimal>();
        return value.scale() < 0 || qAbs(value.mantissa()) >= Q_INT64_C(1) << 53;
    }
    if (cell.column()->type == FieldType::XDecimal)
        return cell.value<xdecimal>().scale() < 0;
    return isNaN(cell);
}

void assign(const QString &text)
{
    Table table(QStringLiteral("quotes"), QString());
    for (int type = FieldType::Integer; type <= FieldType::XDecimal; ++type) {
        table.addColumn(QStringLiteral("n%1").arg(type), FieldType::Type(type), 12, true);
        table.addColumn(QStringLiteral("c%1").arg(type), FieldType::Type(type), 3, false);
    }
    const Record row(&table);
    const Record again(&table);
    for (int column = 0; column < table.columnCount(); ++column) {
        Field cell = row.data(column);
        if (outcomeOf([&] { cell = QStringRef(&text); }) != Outcome::Done) {
            require(compareCells(*cell.column(), row, again) == 0, "a refused text writes nothing");
            continue;
        }
        checkCell(row, column);
        if (isLossy(cell))
            continue;
        const QString printed = cell.toString();
        Field other = again.data(column);
        other = QStringRef(&printed);
        require(compareCells(*cell.column(), row, again) == 0, "a cell's text reads as its value");
    }
}

/// The text as people in some place would mean it, in every type of cell.
void readLocale(const QString &text, int option)
{
    static const QLocale locales[] = {QLocale(QStringLiteral("ru_RU")), QLocale("en_IN"),
                                      QLocale("ar_EG"), QLocale("mr_IN"), QLocale("bg_BG")};
    const QLocale &locale = locales[size_t(option) % std::size(locales)];
    for (int type = FieldType::Integer; type <= FieldType::XDecimal; ++type) {
        FieldValue cell(FieldType::Type(type), 12, true);
        if (outcomeOf([&] { cell.setLocaleString(text, locale); }) != Outcome::Done) {
            require(cell.isNull(), "a refused text writes nothing");
            continue;
        }
        const bool isExact = type != FieldType::Decimal && type != FieldType::BoardList &&
                             !(type == FieldType::XDecimal && cell.value<xdecimal>().scale() < 0);
        const QString printed = cell.toLocaleString(locale);
        if (!isExact || printed.isEmpty())
            continue;
        FieldValue again(FieldType::Type(type), 12, true);
        again.setLocaleString(printed, locale);
        require(again.toLocaleString(locale) == printed, "a text of a locale reads back in it");
    }
}

void readExactKey(const Table &table, const QString &text)
{
    const MasterIndex &master = *table.masterIndex();
    const Record found = table.find(text);
    Record key;
    if (outcomeOf([&] { key = master.fromKeyText(text); }) != Outcome::Done) {
        require(found.isNull(), "a text that is no key names no row");
        return;
    }
    const QString printed = master.keyText(key);
    const Record again = master.fromKeyText(printed);
    require(master.compare(again, key) == 0, "an exact text reads as the same key");
    require(master.keyText(again) == printed, "and prints as it was");
    require(table.find(printed) == found, "and names the same row");
}

void readKey(const QString &text)
{
    Table table(QStringLiteral("quotes"), QString());
    table.addColumn(QStringLiteral("code"), FieldType::VarChar, 6, false);
    table.addColumn(QStringLiteral("number"), FieldType::Integer64, 0);
    table.addColumn(QStringLiteral("price"), FieldType::XDecimal, 2);
    table.addColumn(QStringLiteral("day"), FieldType::DateTime, 0);
    auto *master = new MasterIndex_Column_Pure(&table, QList<int>{0, 1, 2, 3});
    table.setMasterIndex(master);
    table.appendRow();
    readExactKey(table, text);
    require(Record(&table, text).isNull() || text.count(QLatin1Char(',')) == 3,
            "a key has all its parts");
    Record key;
    if (outcomeOf([&] { key = master->fromText(text); }) != Outcome::Done || isLossy(key.data(2)))
        return;
    const QString printed = master->toText(key);
    if (key.data(3).value<datetime>().isNull())
        return; // no date prints nothing, and nothing is no date's text
    require(master->compare(master->fromText(printed), key) == 0,
            "a key's text reads as the same key");
}

void convert(const QString &text)
{
    const QVariant from(text);
    const int types[] = {decimal::metatypeId(), xdecimal::metatypeId(), datetime::metatypeId()};
    for (const int type : types) {
        outcomeOf([&] {
            const QVariant to = variant_convert(from, uint(type));
            require(to.userType() == type, "a conversion gives the type asked for");
            for (const int other : types)
                variant_convert(to, uint(other));
        });
        variant_compare(from, QVariant(text + QLatin1Char('0')), Qt::CaseInsensitive);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input(data, size);
    const int kind = input.choice() % 7;
    const int option = input.choice();
    const QString text = QString::fromUtf8(input.rest());
    const AllocationLimit limit(text.size());
    switch (kind) {
    case 0:
        readDecimal(text, option);
        break;
    case 1:
        readXDecimal(text, option);
        break;
    case 2:
        readDate(text);
        break;
    case 3:
        readPacked(text, option);
        break;
    case 4:
        assign(text);
        readLocale(text, option);
        break;
    case 5:
        readKey(text);
        break;
    default:
        convert(text);
    }
    return 0;
}
