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

class RowNotifications : public ::testing::Test
{
protected:
    RowNotifications()
    {
        m_table.setMasterIndex(new Recording<MasterIndex_Column_Pure>("master", &m_log, &m_table,
                                                                      QStringLiteral("key")));
        m_row = appendTexts(m_table, {"1", "5"});
        m_log.clear();
    }
    QString calls() { return std::exchange(m_log, QStringList()).join(QStringLiteral(", ")); }

    QStringList m_log;
    KeyedTable m_table;
    RecordingIndex m_a{"a", &m_log, &m_table, true};
    RecordingIndex m_b{"b", &m_log, &m_table, true};
    Record m_row;
};

} // namespace

TEST(RowBlock, hasHeaderCellsAndPresenceBits)
{
    Table table(QStringLiteral("t"), QString());
    EXPECT_EQ(table.rowSize(), 16);
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
    EXPECT_EQ(bytesOf(table, row).toHex(), QByteArray("0102030400000000410042000000000003"));
    rowHeader(row)->refCount.storeRelaxed(5);
    uchar *const copy = table.cloneRow(row);
    EXPECT_EQ(rowHeader(copy)->refCount.loadRelaxed(), 0);
    EXPECT_EQ(rowHeader(copy)->table, &table);
    EXPECT_EQ(bytesOf(table, copy), bytesOf(table, row));
    table.initRow(row);
    EXPECT_EQ(bytesOf(table, row), QByteArray(16, '\0') + '\2');
    Table::freeRow(row);
    Table::freeRow(copy);
}

TEST(RowBlock, placesColumnsOneBehindTheOther)
{
    Table table(QStringLiteral("t"), QString());
    const FieldType::Type types[] = {FieldType::Integer, FieldType::BoardList, FieldType::XDecimal};
    const int widths[] = {8, 408, 16};
    qint64 offset = 0;
    for (int i = 0; i < 9; ++i) {
        table.addColumn(QString::number(i), types[i % 3], 0, i != 8);
        EXPECT_EQ(table.columnDef(i)->offset, offset);
        offset += widths[i % 3];
        EXPECT_EQ(table.rowLength(), offset);
        EXPECT_EQ(table.rowSize(), 16 + offset + (i < 8 ? 1 : 2));
        for (int j = 0; j <= i; ++j) {
            EXPECT_EQ(table.columnDef(j)->nullOffset, offset + j / 8);
            EXPECT_EQ(table.columnDef(j)->nullMask, 1 << (j % 8));
        }
    }
    const QByteArray bytes = bytesOf(table, Record(&table).row());
    EXPECT_EQ(bytes.right(2), QByteArray("\x00\x01", 2));
    // An extended decimal starts as a well-formed zero.
    EXPECT_EQ(bytes.right(18).left(16), QByteArray("\x00\x1a", 2) + QByteArray(14, '\0'));
}

TEST(RowBlock, isCopiedByExactlyTheColumnsOfARange)
{
    constexpr int kColumns = 19; // three bytes of presence bits
    Table table(QStringLiteral("wide"), QString());
    for (int i = 0; i < kColumns; ++i)
        table.addColumn(QString::number(i), FieldType::VarChar, 1 + i % 9);
    const auto newBlock = [&](int fill, quint32 bits) {
        Record row(&table);
        std::memset(row.row() + kRowHeaderSize, fill, size_t(table.rowLength()));
        std::memcpy(row.row() + kRowHeaderSize + table.rowLength(), &bits, 3);
        return row;
    };
    const quint32 bits = 0x5a5a5;
    const Record src = newBlock(0x22, ~bits);
    for (int first = -1; first < kColumns; ++first) {
        for (int last = -1; last <= kColumns; ++last) {
            const Record dst = newBlock(0x11, bits);
            const Record expected = newBlock(0x11, bits);
            for (int i = qMax(first, 0); i < kColumns && (last == -1 || i <= last); ++i) {
                const TableColumnDef &def = *table.columnDef(i);
                uchar *const data = expected.row() + kRowHeaderSize;
                std::memset(data + def.offset, 0x22, size_t(roundedCell(def.size)));
                data[def.nullOffset] ^= def.nullMask;
            }
            table.copyRowContent(dst.row(), src.row(), first, last);
            ASSERT_EQ(bytesOf(table, dst.row()), bytesOf(table, expected.row()))
                << first << ".." << last;
        }
    }
    const Record whole = newBlock(0x11, bits);
    table.copyRowContent(whole.row(), src.row());
    EXPECT_EQ(bytesOf(table, whole.row()), bytesOf(table, src.row()));
    EXPECT_EQ(refCount(whole), 1);
}

TEST(EnlargedRows, keepValuesAndBitsAcrossEveryBitmapByte)
{
    Table table(QStringLiteral("t"), QString());
    const IndexList index(&table, true);
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
            ASSERT_EQ(index.at(r), row);
            ASSERT_EQ(row.table(), &table);
            ASSERT_EQ(bytesOf(table, row.row()).mid(int(table.columnDef(i)->offset), 8),
                      QByteArray(8, '\0'));
            for (int c = 0; c <= i; ++c)
                ASSERT_EQ(row.data(c).toString(),
                          r == 1 || c == i ? QString() : QString::number(10 + c));
        }
        setText(table.at(0).data(i), QString::number(10 + i));
    }
    EXPECT_FALSE(Record(&table).data(3).isNull());
}

TEST(EnlargedRows, warnOfHandlesOutside)
{
    Table table(QStringLiteral("t"), QString());
    const IndexList index(&table, true);
    table.addColumn(QStringLiteral("a"), FieldType::Integer, 0);
    const Record held = appendTexts(table, {"1"});
    appendTexts(table, {"2"});
    const Record second = held;
    EXPECT_EQ(thrownBy([&] { table.addColumn(QStringLiteral("b"), FieldType::VarChar, 0); }),
              QStringLiteral("QString: Length of string can't be zero"));
    EXPECT_EQ(table.at(0), held);

    const MessageCapture capture;
    table.addColumn(QStringLiteral("b"), FieldType::Integer, 0);
    EXPECT_EQ(capture.messages(), QStringList{"Table::addColumn : Ref count in realloc is 2"});
    EXPECT_EQ(rows(table), QStringLiteral("1 NULL, 2 NULL"));
    EXPECT_EQ(refCount(table.at(0)), 2);
    EXPECT_EQ(refCount(held), 2); // the old block, until the handles are dropped
}

TEST_F(RowNotifications, buildEveryIndexAlsoWhenOneThrows)
{
    m_row = Record();
    m_a.onCall = [](const QString &call) {
        if (call == QLatin1String("build"))
            throw QStringLiteral("full");
    };
    EXPECT_EQ(thrownBy([&] { m_table.addColumn(QStringLiteral("d"), FieldType::Integer, 0); }),
              QStringLiteral("QString: full"));
    EXPECT_EQ(calls(), QStringLiteral("master.clear, a.clear, b.clear, master.add, a.build, "
                                      "b.build"));
    EXPECT_EQ(rows(m_b), QStringLiteral("1 5 NULL NULL NULL"));
}

TEST_F(RowNotifications, appendToTheMasterIndexThenToThoseThatAccept)
{
    m_a.accepts = [](const Record &row) { return row.data(1).value<qint32>() > 3; };
    const Record small = appendTexts(m_table, {"2", "3"});
    m_table.appendList({newRow(m_table, {"4", "4"})});
    EXPECT_EQ(calls(), QStringLiteral("master.add, b.add, master.add, a.add, b.add"));
    EXPECT_EQ(rows(m_table), QStringLiteral("1 5 NULL NULL, 2 3 NULL NULL, 4 4 NULL NULL"));
    EXPECT_EQ(refCount(small), 3); // this handle, the master index, b
    m_table.appendRow();
    EXPECT_EQ(cells(m_table.at(0)), QStringLiteral("0 NULL NULL NULL"));
}

TEST_F(RowNotifications, updateTheMasterIndexFirstAndTakeOutOfItLast)
{
    m_table.updated(m_row, 1, 2, 0);
    EXPECT_EQ(calls(), QStringLiteral("master.update [1..2] 0, a.update [1..2] -1, "
                                      "b.update [1..2] -1"));
    m_table.updatedRow(0);
    EXPECT_EQ(calls(), QStringLiteral("master.update [0..3] -1, a.update [0..3] -1, "
                                      "b.update [0..3] -1"));
    m_table.remove(m_table.at(0), 0); // the argument lies in the index that drops it
    EXPECT_EQ(calls(), QStringLiteral("a.remove -1, b.remove -1, master.remove 0"));
    EXPECT_EQ(refCount(m_row), 1);
    m_table.clear();
    EXPECT_EQ(calls(), QStringLiteral("a.clear, b.clear, master.clear"));
}

TEST_F(RowNotifications, findNoRecordOutOfRange)
{
    for (const int i : {-1, 1, 1000})
        EXPECT_EQ(&m_table.at(i), &Record::null) << i;
    m_table.setNull(0, 1);
    setText(m_table.data(0, 2), QStringLiteral("8"));
    EXPECT_EQ(rows(m_table), QStringLiteral("1 NULL 8 NULL"));
}

TEST(TableLifetime, replacesTheMasterIndex)
{
    KeyedTable table;
    table.setMasterIndex(table.masterIndex()); // itself: it stays
    const Record row = appendTexts(table, {"1"});
    table.setMasterIndex(new MasterIndexOrdered(&table));
    EXPECT_EQ(table.rowCount(), 0);
    EXPECT_EQ(refCount(row), 1);
    table.setMasterIndex(nullptr);
    EXPECT_FALSE(row.inTable());
    EXPECT_EQ(row.toString(), QString());
    EXPECT_TRUE(Record(&table, QStringLiteral("1")).isNull());
}
