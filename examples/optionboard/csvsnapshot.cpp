#include "csvsnapshot.h"

#include "csvfields.h"
#include "fixedpoint.h"

#include <QtCore/qmap.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <tuple>

namespace
{

enum Column {
    kStock,
    kExpiry,
    kStrike,
    kCallLast,
    kCallOpenInterest,
    kCallVolume,
    kPutLast,
    kPutOpenInterest,
    kPutVolume,
    kStockLast,
    kStockHigh,
    kStockLow,
    kStockChange,
    kTimestamp,
    kColumnCount
};

constexpr std::array<std::string_view, kColumnCount> kNames = {
    "Stock", "Expiry",    "Strike",    "CE_LTP",     "CE_OI",     "CE_Volume",      "PE_LTP",
    "PE_OI", "PE_Volume", "Stock_LTP", "Stock_High", "Stock_Low", "Stock_%_Change", "timestamp"};

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), int(text.size()));
}

/// One line of the file: a strike with both sides.
struct Row {
    struct Sided {
        decimal last;
        qint64 openInterest;
        qint64 volume;
    };

    int underlying;
    int line;
    datetime expiry;
    decimal strike;
    Sided call;
    Sided put;

    auto key() const
    {
        return std::make_tuple(underlying, expiry.toMSecsSinceEpoch(), strike.mantissa());
    }
};

/// A date that most likely stands in the line before as well.
struct LastDate {
    std::string_view text;
    datetime value;
};

class Reader
{
public:
    Reader(const QString &fileName, std::string_view bytes)
        : m_fileName(fileName)
        , m_rest(bytes)
    {
    }

    Snapshot read();

private:
    bool nextLine();
    void readHeader();
    void readRow();
    int readUnderlying();
    Row::Sided readSide(Column last, Column openInterest, Column volume) const;
    qint64 readNumber(Column column, int scale, bool negative = false) const;
    decimal readPrice(Column column) const { return price(readNumber(column, kPriceScale)); }
    datetime readDate(Column column, LastDate *last) const;
    void sortUnderlyings();
    void sortRows();

    std::string_view field(Column column) const { return m_fields[size_t(m_places[column])]; }
    [[noreturn]] void fail(const QString &fault, std::string_view text) const
    {
        failAt(m_line, fault, text);
    }
    [[noreturn]] void failAt(int line, const QString &fault, std::string_view text) const;
    [[noreturn]] void failField(Column column, const char *expected) const;

    const QString m_fileName;
    std::string_view m_rest; // what is not read yet
    std::string_view m_text; // the line being read, without its end
    int m_line = 0;          // its number
    std::vector<std::string_view> m_fields;
    std::array<int, kColumnCount> m_places{}; // of the columns among the fields
    size_t m_width = 0;                       // fields in a line
    LastDate m_lastExpiry;
    LastDate m_lastTime;
    std::string_view m_lastStock; // of the line before, and its number
    int m_lastUnderlying = -1;
    QMap<QString, int> m_underlyings; // numbers by name
    std::vector<Row> m_rows;
    Snapshot m_snapshot;
};

void Reader::failAt(int line, const QString &fault, std::string_view text) const
{
    throw QStringLiteral("%1:%2: %3: '%4'")
        .arg(m_fileName, QString::number(line), fault, fromUtf8(text));
}

void Reader::failField(Column column, const char *expected) const
{
    fail(QStringLiteral("column '%1' is not %2")
             .arg(fromUtf8(kNames[column]), QLatin1String(expected)),
         field(column));
}

bool Reader::nextLine()
{
    while (!m_rest.empty()) {
        const size_t end = m_rest.find('\n');
        m_text = m_rest.substr(0, end);
        m_rest.remove_prefix(end == std::string_view::npos ? m_rest.size() : end + 1);
        ++m_line;
        if (!m_text.empty() && m_text.back() == '\r')
            m_text.remove_suffix(1);
        if (!m_text.empty())
            return true;
    }
    return false;
}

void Reader::readHeader()
{
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (m_rest.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        m_rest.remove_prefix(kByteOrderMark.size());
    if (!nextLine()) {
        m_line = 1;
        fail(QStringLiteral("no line with column names"), {});
    }
    if (!splitCsvLine(m_text, &m_fields))
        fail(QStringLiteral("a quoted field does not end"), m_text);
    m_width = m_fields.size();
    for (size_t column = 0; column < kColumnCount; ++column) {
        const auto found = std::find(m_fields.cbegin(), m_fields.cend(), kNames[column]);
        const QString name = fromUtf8(kNames[column]);
        if (found == m_fields.cend())
            fail(QStringLiteral("column '%1' is missing").arg(name), m_text);
        if (std::find(found + 1, m_fields.cend(), kNames[column]) != m_fields.cend())
            fail(QStringLiteral("column '%1' stands twice").arg(name), m_text);
        m_places[column] = int(found - m_fields.cbegin());
    }
}

qint64 Reader::readNumber(Column column, int scale, bool negative) const
{
    const auto units = readFixedPoint(field(column), scale, decimal::kMaxMantissa);
    if (!units || (*units < 0 && !negative)) {
        failField(column, scale == 0             ? "a whole number"
                          : scale == kPriceScale ? "a price with at most 2 decimals"
                                                 : "a percentage with at most 3 decimals");
    }
    return *units;
}

datetime Reader::readDate(Column column, LastDate *last) const
{
    const std::string_view text = field(column);
    if (text == last->text && !text.empty())
        return last->value;
    std::array<QChar, 24> units; // longer than the longest date
    qint64 msecs = 0;
    if (text.size() <= units.size())
        std::transform(text.cbegin(), text.cend(), units.begin(),
                       [](char c) { return QLatin1Char(c); });
    if (text.size() > units.size() || !datetime::parse(units.data(), int(text.size()), &msecs))
        failField(column, "a date");
    *last = {text, datetime(msecs)};
    return last->value;
}

// The number of the line's stock, which is entered when it is new, and its quote.
int Reader::readUnderlying()
{
    const std::string_view stock = field(kStock);
    if (m_lastUnderlying == -1 || stock != m_lastStock) {
        const QString name = csvText(stock);
        if (name.isEmpty() || name.size() > kStockLength || name.contains(QChar::Null))
            fail(QStringLiteral("column 'Stock' is not a name of 1 to %1 characters")
                     .arg(kStockLength),
                 stock);
        auto entry = m_underlyings.constFind(name);
        if (entry == m_underlyings.cend()) {
            entry = m_underlyings.insert(name, int(m_snapshot.underlyings.size()));
            m_snapshot.underlyings.push_back({name, {}, {}, {}, {}});
        }
        m_lastStock = stock;
        m_lastUnderlying = entry.value();
    }
    UnderlyingQuote &quote = m_snapshot.underlyings[size_t(m_lastUnderlying)];
    quote.last = readPrice(kStockLast);
    quote.high = readPrice(kStockHigh);
    quote.low = readPrice(kStockLow);
    quote.changePercent =
        decimal::fromParts(readNumber(kStockChange, kPercentScale, true), kPercentScale);
    return m_lastUnderlying;
}

Row::Sided Reader::readSide(Column last, Column openInterest, Column volume) const
{
    return {readPrice(last), readNumber(openInterest, 0), readNumber(volume, 0)};
}

void Reader::readRow()
{
    if (!splitCsvLine(m_text, &m_fields))
        fail(QStringLiteral("a quoted field does not end"), m_text);
    if (m_fields.size() != m_width)
        fail(QStringLiteral("%1 fields instead of %2").arg(m_fields.size()).arg(m_width), m_text);
    Row row{};
    row.underlying = readUnderlying();
    row.line = m_line;
    row.expiry = readDate(kExpiry, &m_lastExpiry);
    row.strike = readPrice(kStrike);
    row.call = readSide(kCallLast, kCallOpenInterest, kCallVolume);
    row.put = readSide(kPutLast, kPutOpenInterest, kPutVolume);
    m_rows.push_back(row);
    m_snapshot.time = std::max(m_snapshot.time, readDate(kTimestamp, &m_lastTime));
}

void Reader::sortUnderlyings()
{
    std::vector<UnderlyingQuote> sorted;
    std::vector<int> ranks(m_snapshot.underlyings.size());
    sorted.reserve(ranks.size());
    for (const int number : qAsConst(m_underlyings)) {
        ranks[size_t(number)] = int(sorted.size());
        sorted.push_back(std::move(m_snapshot.underlyings[size_t(number)]));
    }
    m_snapshot.underlyings = std::move(sorted);
    for (Row &row : m_rows)
        row.underlying = ranks[size_t(row.underlying)];
}

void Reader::sortRows()
{
    // The line decides last, so that of two rows of one key the second is the faulty one.
    std::sort(m_rows.begin(), m_rows.end(), [](const Row &a, const Row &b) {
        return std::tuple_cat(a.key(), std::make_tuple(a.line)) <
               std::tuple_cat(b.key(), std::make_tuple(b.line));
    });
    const auto twice =
        std::adjacent_find(m_rows.cbegin(), m_rows.cend(),
                           [](const Row &a, const Row &b) { return a.key() == b.key(); });
    if (twice != m_rows.cend()) {
        const Row &second = *(twice + 1);
        const QString key = m_snapshot.underlyings[size_t(second.underlying)].stock +
                            QLatin1Char(' ') + second.expiry.toString().left(10) +
                            QLatin1Char(' ') + second.strike.toExactString();
        failAt(second.line, QStringLiteral("the strike stands in line %1 already").arg(twice->line),
               key.toUtf8().toStdString());
    }
}

Snapshot Reader::read()
{
    readHeader();
    const auto lines = std::count(m_rest.cbegin(), m_rest.cend(), '\n');
    m_rows.reserve(size_t(lines) + 1);
    while (nextLine())
        readRow();
    // Taken for a market without options, it would empty the board.
    if (m_rows.empty())
        fail(QStringLiteral("no line behind the column names"), m_text);
    sortUnderlyings();
    sortRows();

    m_snapshot.options.reserve(m_rows.size() * 2);
    for (const Row &row : m_rows) {
        for (const Side side : {Side::Call, Side::Put}) {
            const Row::Sided &quote = side == Side::Call ? row.call : row.put;
            const bool traded = quote.last.mantissa() != 0;
            m_snapshot.options.push_back({row.underlying, row.expiry, row.strike, side,
                                          traded ? std::make_optional(quote.last) : std::nullopt,
                                          quote.openInterest, quote.volume});
        }
    }
    return std::move(m_snapshot);
}

} // namespace

Snapshot readCsvSnapshot(const QString &fileName, const QByteArray &bytes)
{
    return Reader(fileName, std::string_view(bytes.constData(), size_t(bytes.size()))).read();
}
