#include <database/indexes/indexlist.h>
#include <database/indexes/indexsort.h>
#include <database/masterindex_fast.h>
#include <database/persistence/qtiocompressor.h>
#include <database/tables/cellcompare.h>

#include "persistence/filefixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

namespace
{

struct Cancelled {
};

/// Sorts by the packed digits, which a damaged file may spoil.
struct ByDigits : IndexSort {
    explicit ByDigits(Table *table)
        : IndexSort(table, true)
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        const int column = table()->columnIndex("XDecimal");
        return compareCells(*table()->columnDef(column), a, b);
    }
};

/// Loads bytes of any kind into a table with an index, and looks at all that came.
/// \return the rows as text, or what was thrown
QString loadAndLook(QIODevice &device, bool addColumns)
{
    Table table("t", QString());
    addEveryType(table);
    ByDigits byDigits(&table);
    fillEveryType(table, 1);
    table.setIndexName("digits", &byDigits);
    Listener guard;
    guard.onRow = [](int i) {
        if (i >= 50)
            throw Cancelled();
    };
    QDataStream stream(&device);
    QString thrown = "cancelled";
    try {
        thrown = thrownBy([&] { TableIO(&table).read(guard, stream, addColumns, {}, true); });
    } catch (const Cancelled &) { // thousands of rows were promised
    }
    EXPECT_EQ(table.indexes(), QList<Index *>{&byDigits});
    EXPECT_EQ(table.namedIndex("digits"), &byDigits);
    EXPECT_EQ(byDigits.count(), table.rowCount());
    EXPECT_TRUE(
        std::is_sorted(byDigits.begin(), byDigits.end(), [&](const Record &a, const Record &b) {
            return byDigits.compare(a, b) < 0;
        }));
    EXPECT_EQ(table.transactionState(), 0);
    for (const Record &row : *table.masterIndex()) {
        for (int i = 0; i < table.columnCount(); ++i)
            row.data(i).toSystemString();
    }
    return thrown == "nothing" ? rows(*table.masterIndex()).join('\n') : thrown;
}

QByteArray smallFile()
{
    Table table("t", QString());
    addEveryType(table);
    fillEveryType(table, 3);
    return saved(table);
}

QByteArray gzip(const QByteArray &plain)
{
    QBuffer bytes;
    QtIOCompressor device(&bytes, 6, 65500);
    device.setStreamFormat(QtIOCompressor::GzipFormat);
    device.open(QIODevice::WriteOnly);
    device.write(plain);
    device.close();
    return bytes.data();
}

/// The same for plain bytes and for compressed ones; \return what check() says in \p report.
QString lookAt(const QByteArray &bytes, bool compressed, bool addColumns, TableFileReport *report)
{
    QString result;
    for (const bool checks : {false, true}) {
        QBuffer buffer;
        buffer.setData(bytes);
        QtIOCompressor unpacked(&buffer, 6, 65500);
        unpacked.setStreamFormat(QtIOCompressor::GzipFormat);
        QIODevice &device = compressed ? static_cast<QIODevice &>(unpacked) : buffer;
        if (!device.open(QIODevice::ReadOnly))
            return "cannot be opened";
        if (checks) {
            QDataStream stream(&device);
            *report = TableIO::check(stream);
        } else {
            result = loadAndLook(device, addColumns);
        }
    }
    return result;
}

} // namespace

class DamagedFileTest : public testing::TestWithParam<bool>
{
protected:
    const bool compressed = GetParam();
    const QByteArray bytes = compressed ? gzip(smallFile()) : smallFile();
    TableFileReport report;
};

TEST_P(DamagedFileTest, whateverTheCutTheTableIsInOrderAndTheCheckTells)
{
    const QString whole = lookAt(bytes, compressed, true, &report);
    ASSERT_TRUE(report.sound) << report.verdict.toStdString();
    ASSERT_EQ(report.rowsPresent, 3);
    for (int size = 0; size < bytes.size(); ++size) {
        SCOPED_TRACE(size);
        lookAt(bytes.left(size), compressed, size % 2 == 0, &report);
        ASSERT_FALSE(report.sound);
        ASSERT_FALSE(report.verdict.isEmpty());
    }
}

TEST_P(DamagedFileTest, whateverTheFlippedByteTheTableIsInOrder)
{
    const QString whole = lookAt(bytes, compressed, true, &report);
    int unseen = 0;
    for (int at = 0; at < bytes.size(); ++at) {
        for (const char flip : {'\x01', '\x80', '\xFF'}) {
            SCOPED_TRACE(QString("byte %1 ^ %2").arg(at).arg(int(uchar(flip))).toStdString());
            QByteArray damaged = bytes;
            damaged[at] = char(damaged.at(at) ^ flip);
            const QString seen = lookAt(damaged, compressed, at % 2 == 0, &report);
            if (compressed && report.sound) {
                ASSERT_EQ(seen, whole) << "gzip's checksum covers the rows";
                ++unseen;
            }
        }
    }
    EXPECT_LE(unseen, 3 * 8) << "only time, flags and system in gzip's header may change unseen";
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedFileTest, testing::Values(false, true));

// Behind the digits of an even scale stands a byte that is none of the number's.
TEST(DamagedCellTest, takesANumberWithoutTheByteBehindItAndTellsWhatIsNone)
{
    Table table("t", QString());
    table.addColumn("x", FieldType::XDecimal, 2, false);
    table.setMasterIndex(new MasterIndex_Fast_Pure(&table, QStringList{"x"}));
    appendTexts(table, {"2.50"});
    const QByteArray clean = saved(table);
    const struct {
        int fromEnd; // of the file, whose last byte holds the presence bit
        qint64 malformed;
        const char *row;
        const char *verdict;
    } cases[] = {
        {2, 0, "2.50", "Sound: 1 rows of 1 columns."},
        {3, 1, "NULL", "All 1 rows are present, and 1 cells hold no value of their type."}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fromEnd);
        QByteArray bytes = clean;
        bytes[bytes.size() - c.fromEnd] = char(199);
        MemoryStream checked(bytes);
        const TableFileReport report = TableIO::check(checked);
        EXPECT_EQ(report.verdict, c.verdict);
        EXPECT_EQ(report.sound, c.malformed == 0);
        EXPECT_EQ(report.malformedCells, c.malformed);
        MemoryStream stream(bytes);
        TableIO(&table).read(stream, false);
        EXPECT_EQ(rows(*table.masterIndex()), QStringList{c.row});
        if (c.malformed)
            continue;
        EXPECT_EQ(table.masterIndex()->findRecord("2.50"), table.at(0)) << "compares as bytes";
        EXPECT_EQ(saved(table), clean);
        const auto loaded = table.at(0).data(0).value<xdecimal>();
        EXPECT_EQ((loaded + loaded).toString(), "5.00");
    }
}

TEST(HostileHeaderTest, isRefusedWithAClearTextAndLittleMemory)
{
    Table table("t", QString());
    table.addColumn("a", FieldType::Integer, 0);
    table.addColumn("b", FieldType::VarChar, 3);
    table.appendRow();
    using Header = TableIO::TableHeader;
    struct Case {
        std::function<void(Header &)> damage;
        const char *thrown;
    };
    const Case cases[] = {
        {[](Header &h) { h.columnCount = -1; }, "The table file claims to have -1 columns."},
        {[](Header &h) { h.columnCount = 32767; },
         "The header of the table file is cut or damaged."},
        {[](Header &h) { h.flagBytes = 2; },
         "The table file has 2 bytes of presence bits, 2 columns take 1."},
        {[](Header &h) { h.columns[0].size = 8; },
         "Column 'a' has 8 bytes in the table file, Integer takes 4."},
        {[](Header &h) { h.columns[1].size = -6; },
         "Column 'b' has -6 bytes in the table file, VarChar[3] takes 6."},
        {[](Header &h) { h.columns[1].name = "a"; }, "Column 'a' stands twice in the table file."},
        {[](Header &h) { h.columns[1].name.clear(); }, "Column name can't be empty."},
        {[](Header &h) { h.columns[0].type = FieldType::Type(9); }, "Type is undefined."},
        {[](Header &h) { h.columns[1].length = 0; }, "Length of string can't be zero"},
        {[](Header &h) {
             h.columns[1].length = 1000000000;
             h.columns[1].size = 2000000000;
         },
         "The table file claims rows of 2000000005 bytes and does not hold one."},
    };
    for (const Case &c : cases) {
        Header header;
        TableIO::setupHeader(header, &table);
        c.damage(header);
        MemoryStream stream;
        TableIO::writeHeader(header, stream);
        stream.rewind();
        Table loaded("t", QString());
        EXPECT_EQ(thrownBy([&] { TableIO(&loaded).read(stream, true); }),
                  QString("QString: ") + c.thrown);
        EXPECT_EQ(loaded.columnCount(), 0);
    }

    // A text that claims two gigabytes, and a list that claims four billions of them.
    for (const char *tail : {"7FFFFFFE", "00000000 00000000 00000000 00000000 01 00000004 0101"
                                         "FFFFFFFF 00000000"}) {
        MemoryStream stream(
            QByteArray::fromHex(QByteArray("20151002 0001 00000000 00000004 00000001") + tail));
        Header header;
        TableIO::readHeader(header, stream);
        EXPECT_EQ(stream.status(), QDataStream::ReadPastEnd);
        EXPECT_LE(header.keyColumns.size(), 1);
    }
}
