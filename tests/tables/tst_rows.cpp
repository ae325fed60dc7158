#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace
{

QByteArray bytesOf(const Table &table, const uchar *row)
{
    return QByteArray(reinterpret_cast<const char *>(row) + kRowHeaderSize,
                      int(table.rowSize() - kRowHeaderSize));
}

/// A table whose presence bitmap takes three bytes.
class WideRows : public ::testing::Test
{
protected:
    static constexpr int kColumns = 19;
    WideRows()
        : m_table(QStringLiteral("wide"), QString())
    {
        const FieldType::Type types[] = {FieldType::Integer, FieldType::VarChar,
                                         FieldType::XDecimal};
        for (int i = 0; i < kColumns; ++i)
            m_table.addColumn(QString::number(i), types[i % 3], 5);
    }
    /// A row whose every data byte is \p fill and whose presence bits are \p bits.
    uchar *row(int fill, quint32 bits)
    {
        uchar *row = m_table.allocRow();
        std::memset(row + kRowHeaderSize, fill, size_t(m_table.rowLength()));
        std::memcpy(row + kRowHeaderSize + m_table.rowLength(), &bits, 3);
        return row;
    }

    Table m_table;
};

} // namespace

TEST(RowBlock, hasHeaderCellsAndPresenceBits)
{
    Table table(QStringLiteral("t"), QString());
    EXPECT_EQ(table.rowSize(), 16);
    EXPECT_EQ(table.rowLength(), 0);
    table.addColumn(QStringLiteral("n"), FieldType::Integer, 0);
    table.addColumn(QStringLiteral("s"), FieldType::VarChar, 3, false);
    EXPECT_EQ(table.rowLength(), 16);
    EXPECT_EQ(table.rowLengthUnaligned(), 10);
    EXPECT_EQ(table.rowSize(), 33);

    uchar *const row = table.allocRow();
    const Table *owner = nullptr;
    std::memcpy(&owner, row + 8, sizeof(owner));
    EXPECT_EQ(owner, &table);
    EXPECT_EQ(quintptr(row) % 8, 0u);
    EXPECT_EQ(QByteArray(reinterpret_cast<char *>(row), 8), QByteArray(8, '\0'));
    EXPECT_EQ(bytesOf(table, row), QByteArray(16, '\0') + '\2');

    table.dataPtr(row, 0).setValue(qint32(0x04030201));
    table.dataPtr(row, 1).setValue(QStringLiteral("AB"));
    EXPECT_EQ(bytesOf(table, row).toHex(), QByteArray("0102030400000000"
                                                      "4100420000000000"
                                                      "03"));
    rowHeader(row)->refCount.storeRelaxed(5);
    uchar *const copy = table.cloneRow(row);
    EXPECT_EQ(rowHeader(copy)->refCount.loadRelaxed(), 0);
    EXPECT_EQ(rowHeader(copy)->table, &table);
    EXPECT_EQ(bytesOf(table, copy), bytesOf(table, row));

    table.initRow(row);
    EXPECT_EQ(rowHeader(row)->refCount.loadRelaxed(), 0);
    EXPECT_EQ(bytesOf(table, row), QByteArray(16, '\0') + '\2');
    Table::freeRow(row);
    Table::freeRow(copy);
}

TEST(RowBlock, placesTheNinthPresenceBitInASecondByte)
{
    Table table(QStringLiteral("t"), QString());
    qint64 offset = 0;
    for (int i = 0; i < 9; ++i) {
        table.addColumn(QString::number(i), i % 2 ? FieldType::BoardList : FieldType::Integer, 0,
                        i != 8);
        const TableColumnDef &def = *table.columnDef(i);
        EXPECT_EQ(def.table, &table);
        EXPECT_EQ(def.index, i);
        EXPECT_EQ(def.offset, offset);
        EXPECT_EQ(def.size, i % 2 ? 404 : 4);
        offset += i % 2 ? 408 : 8;
        EXPECT_EQ(table.rowLength(), offset);
        EXPECT_EQ(table.rowSize(), 16 + offset + (i < 8 ? 1 : 2));
    }
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(table.columnDef(i)->nullOffset, offset + i / 8);
        EXPECT_EQ(table.columnDef(i)->nullMask, 1 << (i % 8));
    }
    const Record row(&table);
    EXPECT_EQ(bytesOf(table, row.row()).right(2), QByteArray("\x00\x01", 2));
}

TEST(RowBlock, startsExtendedDecimalsAsZero)
{
    Table table(QStringLiteral("t"), QString());
    table.addColumn(QStringLiteral("x"), FieldType::XDecimal, 0, false);
    const Record row(&table);
    EXPECT_EQ(bytesOf(table, row.row()).left(16), QByteArray("\x00\x1a", 2) + QByteArray(14, '\0'));
    EXPECT_EQ(row.data(0).toString(), QStringLiteral("0"));
    EXPECT_TRUE(table.dataPtr(row.row(), 0).value<xdecimal>() == xdecimal());
}

TEST_F(WideRows, copyExactlyTheColumnsOfARange)
{
    for (int first = -1; first < kColumns; ++first) {
        for (int last = -1; last <= kColumns; ++last) {
            const quint32 dstBits = 0x5a5a5;
            uchar *const dst = row(0x11, dstBits);
            uchar *const src = row(0x22, ~dstBits);
            uchar *const expected = row(0x11, dstBits);
            const int from = qMax(first, 0);
            const int to = last == -1 ? kColumns - 1 : qMin(last, kColumns - 1);
            for (int i = from; i <= to; ++i) {
                const TableColumnDef &def = *m_table.columnDef(i);
                std::memset(expected + 16 + def.offset, 0x22, size_t(roundedCell(def.size)));
                expected[16 + def.nullOffset] ^= def.nullMask;
            }
            m_table.copyRowContent(dst, src, first, last);
            ASSERT_EQ(bytesOf(m_table, dst), bytesOf(m_table, expected)) << first << ".." << last;
            Table::freeRow(dst);
            Table::freeRow(src);
            Table::freeRow(expected);
        }
    }
}

TEST_F(WideRows, copyWholeWithoutTheHeader)
{
    uchar *const dst = row(1, 0);
    uchar *const src = row(2, 0xFFFFFF); // unused bits too
    rowHeader(src)->refCount.storeRelaxed(7);
    m_table.copyRowContent(dst, src);
    EXPECT_EQ(bytesOf(m_table, dst), bytesOf(m_table, src));
    EXPECT_EQ(rowHeader(dst)->refCount.loadRelaxed(), 0);
    Table::freeRow(dst);
    Table::freeRow(src);
}

TEST(EnlargedRows, keepValuesAndBitsAcrossEveryBitmapByte)
{
    Table table(QStringLiteral("t"), QString());
    QStringList log;
    RecordingIndex index(&table, QStringLiteral("i"), &log);
    table.addIndex(&index);
    table.addColumn(QStringLiteral("c0"), FieldType::Integer, 0);
    appendTexts(table, {"10"});
    appendTexts(table, {nullptr});
    for (int i = 1; i < 18; ++i) {
        // Every third column is not nullable: its cells are zero but not marked present.
        table.addColumn(QStringLiteral("c%1").arg(i), FieldType::Integer, 0, i % 3 != 0);
        ASSERT_EQ(table.rowCount(), 2);
        for (int r = 0; r < 2; ++r) {
            const Record &row = table.at(r);
            ASSERT_EQ(refCount(row), 2); // the master index and the secondary one
            ASSERT_TRUE(index.held.contains(row));
            ASSERT_TRUE(row.data(i).isNull());
            ASSERT_EQ(rowHeader(row.row())->table, &table);
            ASSERT_EQ(bytesOf(table, row.row()).mid(int(table.columnDef(i)->offset), 8),
                      QByteArray(8, '\0'));
            ASSERT_EQ(row.data(0).isNull(), r == 1);
            for (int c = 0; c < i; ++c)
                ASSERT_EQ(row.data(c).toString(), r == 1 ? QString() : QString::number(10 + c));
        }
        setText(table.at(0).data(i), QString::number(10 + i));
    }
    EXPECT_FALSE(Record(&table).data(3).isNull());
    EXPECT_EQ(log.mid(log.size() - 2), (QStringList{"i.clear", "i.build"}));
    table.removeIndex(&index);
}

TEST(EnlargedRows, warnOfHandlesOutside)
{
    Table table(QStringLiteral("t"), QString());
    QStringList log;
    RecordingIndex index(&table, QStringLiteral("i"), &log);
    table.addIndex(&index);
    table.addColumn(QStringLiteral("a"), FieldType::Integer, 0);
    Record held = appendTexts(table, {"1"});
    appendTexts(table, {"2"});
    Record second = held;

    const MessageCapture capture;
    table.addColumn(QStringLiteral("b"), FieldType::Integer, 0);
    EXPECT_EQ(capture.messages(), QStringList{"Table::addColumn : Ref count in realloc is 2"});
    EXPECT_EQ(rows(table), (QStringList{"1 NULL", "2 NULL"}));
    EXPECT_EQ(refCount(table.at(0)), 2);
    EXPECT_NE(table.at(0), held);
    EXPECT_EQ(refCount(held), 2); // the old block, until the handles are dropped
    table.removeIndex(&index);
}

TEST(EnlargedRows, changeNothingWhenTheTypeIsRefused)
{
    Table table(QStringLiteral("t"), QString());
    table.addColumn(QStringLiteral("a"), FieldType::Integer, 0);
    const Record row = appendTexts(table, {"1"});
    EXPECT_NE(thrownBy([&] { table.addColumn(QStringLiteral("b"), FieldType::Undefined, 0); }),
              QStringLiteral("nothing"));
    EXPECT_EQ(table.at(0), row);
    EXPECT_EQ(refCount(row), 2);
}

TEST(EnlargedRows, areBuiltIntoEveryIndexAlsoWhenOneThrows)
{
    Table table(QStringLiteral("t"), QString());
    QStringList log;
    RecordingIndex a(&table, QStringLiteral("a"), &log);
    RecordingIndex b(&table, QStringLiteral("b"), &log);
    table.addIndex(&a);
    table.addIndex(&b);
    table.addColumn(QStringLiteral("n"), FieldType::Integer, 0);
    appendTexts(table, {"1"});
    a.onCall = [](const QString &call) {
        if (call == QLatin1String("build"))
            throw QStringLiteral("full");
    };
    EXPECT_EQ(thrownBy([&] { table.addColumn(QStringLiteral("m"), FieldType::Integer, 0); }),
              QStringLiteral("QString: full"));
    EXPECT_EQ(rows(b.held), QStringList{"1 NULL"});
    EXPECT_EQ(thrownBy([&] { table.build(); }), QStringLiteral("QString: full"));
    EXPECT_EQ(rows(b.held), QStringList{"1 NULL"});
    a.onCall = nullptr;
    table.removeIndex(&a);
    table.removeIndex(&b);
}

class RowNotifications : public ::testing::Test
{
protected:
    RowNotifications()
    {
        m_table.setMasterIndex(new RecordingMaster(&m_table, QStringLiteral("key"), &m_log));
        m_table.addIndex(&m_a);
        m_table.addIndex(&m_b);
        m_row = appendTexts(m_table, {"1", "5"});
        m_log.clear();
    }
    ~RowNotifications() override
    {
        m_a.accepts = nullptr;
        m_table.setIndexes({});
    }

    QStringList m_log;
    KeyedTable m_table;
    RecordingIndex m_a{&m_table, QStringLiteral("a"), &m_log};
    RecordingIndex m_b{&m_table, QStringLiteral("b"), &m_log};
    Record m_row;
};

TEST_F(RowNotifications, appendToTheMasterIndexThenToThoseThatAccept)
{
    m_a.accepts = [](const Record &row) { return row.data(1).value<qint32>() > 3; };
    const Record small = appendTexts(m_table, {"2", "3"});
    EXPECT_EQ(m_log, (QStringList{"master.add", "b.add"}));
    m_table.appendList({newRow(m_table, {"4", "4"}), newRow(m_table, {"3", "5"})});
    EXPECT_EQ(m_log.mid(2),
              (QStringList{"master.add", "a.add", "b.add", "master.add", "a.add", "b.add"}));
    EXPECT_EQ(rows(m_table),
              (QStringList{"1 5 NULL NULL", "2 3 NULL NULL", "3 5 NULL NULL", "4 4 NULL NULL"}));
    EXPECT_EQ(refCount(small), 3); // this handle, the master index, b
    m_table.appendRow();
    EXPECT_EQ(cells(m_table.at(0)), QStringLiteral("0 NULL NULL NULL"));
}

TEST_F(RowNotifications, updateTheMasterIndexFirstAndRemoveFromItLast)
{
    m_table.updated(m_row, 1, 2, 0);
    m_table.updatedRow(0);
    EXPECT_EQ(m_log,
              (QStringList{"master.update [1..2] 0", "a.update [1..2] -1", "b.update [1..2] -1",
                           "master.update [0..3] -1", "a.update [0..3] -1", "b.update [0..3] -1"}));
    m_log.clear();
    m_table.remove(m_table.at(0), 0); // the argument lies in the index that drops it
    EXPECT_EQ(m_log, (QStringList{"a.remove -1", "b.remove -1", "master.remove 0"}));
    EXPECT_EQ(m_table.rowCount(), 0);
    EXPECT_EQ(refCount(m_row), 1);
}

TEST_F(RowNotifications, clearTheSecondaryIndexesFirst)
{
    m_table.clear();
    EXPECT_EQ(m_log, (QStringList{"a.clear", "b.clear", "master.clear"}));
    EXPECT_EQ(m_table.columnCount(), 4);
    EXPECT_EQ(refCount(m_row), 1);
}

TEST_F(RowNotifications, giveANullRecordOutOfRange)
{
    for (const int i : {-1, 1, 1000})
        EXPECT_EQ(&m_table.at(i), &Record::null) << i;
    EXPECT_FALSE(m_table.data(0, 1).isNull());
    m_table.setNull(0, 1);
    EXPECT_TRUE(m_table.data(0, 1).isNull());
    setText(m_table.data(0, 2), QStringLiteral("8"));
    EXPECT_EQ(cells(m_table.at(0)), QStringLiteral("1 NULL 8 NULL"));
}

TEST(TableLifetime, replacesTheMasterIndexOnce)
{
    QStringList log;
    KeyedTable table;
    auto *master = new RecordingMaster(&table, QStringLiteral("key"), &log);
    table.setMasterIndex(master);
    table.setMasterIndex(master); // itself: it stays
    EXPECT_EQ(table.masterIndex(), master);
    const Record row = appendTexts(table, {"1"});
    table.setMasterIndex(new MasterIndexOrdered(&table));
    EXPECT_EQ(table.rowCount(), 0);
    EXPECT_EQ(refCount(row), 1);
    table.setMasterIndex(nullptr);
    EXPECT_FALSE(row.inTable());
    EXPECT_EQ(row.toString(), QString());
    EXPECT_TRUE(Record(&table, QStringLiteral("1")).isNull());
}

TEST(TableLifetime, clearsItsIndexesAndLeavesThemAlone)
{
    QStringList log;
    auto table = std::make_unique<KeyedTable>();
    RecordingIndex index(table.get(), QStringLiteral("i"), &log);
    table->addIndex(&index);
    const Record row = appendTexts(*table, {"1"});
    log.clear();
    table.reset();
    EXPECT_EQ(log, QStringList{"i.clear"});
    EXPECT_EQ(refCount(row), 1); // and the handle may be dropped after the table
}
