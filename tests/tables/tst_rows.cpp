#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

QByteArray bytesOf(const Record &row)
{
    return QByteArray(reinterpret_cast<const char *>(row.row()) + kRowHeaderSize,
                      int(row.table()->rowSize() - kRowHeaderSize));
}

class Rows : public ::testing::Test
{
protected:
    QStringList m_log;
    Table m_table{"t", QString()};
};

} // namespace

TEST_F(Rows, haveHeaderCellsAndPresenceBits)
{
    m_table.addColumn("n", FieldType::Integer, 0);
    m_table.addColumn("s", FieldType::VarChar, 3, false);
    EXPECT_EQ(m_table.rowSize(), 33);

    uchar *const block = m_table.allocRow();
    EXPECT_EQ(quintptr(block) % 8, 0u);
    EXPECT_EQ(QByteArray(reinterpret_cast<char *>(block), 8), QByteArray(8, '\0'));
    const Table *owner = nullptr;
    std::memcpy(&owner, block + 8, sizeof(owner));
    EXPECT_EQ(owner, &m_table);
    const Record row(block);
    EXPECT_EQ(bytesOf(row), QByteArray(16, '\0') + '\2');
    m_table.dataPtr(block, 0).setValue(qint32(0x04030201));
    m_table.dataPtr(block, 1).setValue(QStringLiteral("AB"));
    EXPECT_EQ(bytesOf(row).toHex(), QByteArray("0102030400000000"
                                               "4100420000000000"
                                               "03"));
    EXPECT_EQ(bytesOf(Record(m_table.cloneRow(block))), bytesOf(row));

    m_table.addColumn("x", FieldType::XDecimal, 0, false);
    const Record zero(&m_table);
    EXPECT_EQ(bytesOf(zero),
              QByteArray(16, '\0') + QByteArray("\x00\x1a", 2) + QByteArray(14, '\0') + '\6');
}

TEST_F(Rows, copyExactlyTheColumnsOfARange)
{
    constexpr int kColumns = 19; // three bytes of presence bits
    const FieldType::Type types[] = {FieldType::Integer, FieldType::VarChar, FieldType::XDecimal};
    for (int i = 0; i < kColumns; ++i)
        m_table.addColumn(QString::number(i), types[i % 3], 5);
    // A row whose every data byte is \p fill and whose presence bits are \p bits.
    const auto filled = [this](int fill, quint32 bits) {
        const Record row(&m_table);
        uchar *const data = row.row() + kRowHeaderSize;
        std::memset(data, fill, size_t(m_table.rowLength()));
        std::memcpy(data + m_table.rowLength(), &bits, 3);
        return row;
    };
    const quint32 bits = 0x5a5a5;
    const Record source = filled(0x22, ~bits);
    for (int first = -1; first < kColumns; ++first) {
        for (int last = -1; last <= kColumns; ++last) {
            const Record copy = filled(0x11, bits);
            const Record expected = filled(0x11, bits);
            const int to = last == -1 ? kColumns - 1 : qMin(last, kColumns - 1);
            for (int i = qMax(first, 0); i <= to; ++i) {
                const TableColumnDef &def = *m_table.columnDef(i);
                uchar *const data = expected.row() + kRowHeaderSize;
                std::memset(data + def.offset, 0x22, size_t(roundedCell(def.size)));
                data[def.nullOffset] ^= def.nullMask;
            }
            m_table.copyRowContent(copy.row(), source.row(), first, last);
            ASSERT_EQ(bytesOf(copy), bytesOf(expected)) << first << ".." << last;
        }
    }
    const Record copy = filled(0x11, bits);
    m_table.copyRowContent(copy.row(), source.row());
    EXPECT_EQ(bytesOf(copy), bytesOf(source)); // unused bits too
}

TEST_F(Rows, keepValuesAndBitsAcrossEveryBitmapByteWhenEnlarged)
{
    RecordingIndex index("i", &m_log, &m_table);
    m_table.addColumn("0", FieldType::Integer, 0);
    appendTexts(m_table, {"10"});
    appendTexts(m_table, {nullptr});
    for (int i = 1; i < 18; ++i) {
        // Every third column is not nullable: its cells are zero but not marked present.
        m_table.addColumn(QString::number(i), FieldType::Integer, 0, i % 3 != 0);
        ASSERT_EQ(m_table.rowCount(), 2);
        for (int r = 0; r < 2; ++r) {
            const Record &row = m_table.at(r);
            ASSERT_EQ(refCount(row), 2); // the master index and the secondary one
            ASSERT_TRUE(index.contains(row));
            ASSERT_TRUE(row.data(i).isNull());
            ASSERT_EQ(bytesOf(row).mid(int(m_table.columnDef(i)->offset), 8), QByteArray(8, '\0'));
            for (int c = 0; c < i; ++c)
                ASSERT_EQ(row.data(c).toString(), r == 1 ? QString() : QString::number(10 + c));
        }
        setText(m_table.at(0).data(i), QString::number(10 + i));
    }
    EXPECT_FALSE(Record(&m_table).data(3).isNull());
    EXPECT_EQ(m_log.mid(m_log.size() - 2), (QStringList{"i.clear", "i.build"}));
}

TEST_F(Rows, leaveTheirOldBlocksToHandlesOutsideWhenEnlarged)
{
    m_table.addColumn("0", FieldType::Integer, 0);
    const Record held = appendTexts(m_table, {"1"});
    const QList<Record> others{appendTexts(m_table, {"2"}), m_table.at(1)};

    static QStringList messages;
    const auto previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &text) { messages.append(text); });
    m_table.addColumn("1", FieldType::Integer, 0);
    qInstallMessageHandler(previous);
    EXPECT_EQ(messages, QStringList{"Table::addColumn : Ref count in realloc is 3"})
        << "one message, with the number of all handles";
    EXPECT_EQ(rows(*m_table.masterIndex()), (QStringList{"1 NULL", "2 NULL"}));
    EXPECT_EQ(refCount(m_table.at(0)), 1);
    EXPECT_NE(m_table.at(0), held);
    EXPECT_EQ(refCount(held), 1);
}

TEST_F(Rows, surviveWhateverFailsWhenTheyAreEnlarged)
{
    KeyedTable table;
    RecordingIndex index("i", &m_log, &table);
    appendTexts(table, {"1", "2"});
    appendTexts(table, {"3", "4"});
    const QStringList before = rows(*table.masterIndex());
    const qint64 rowSize = table.rowSize();
    TableColumnDef column(nullptr);
    column.type = FieldType::VarChar;
    const auto named = [&](const QString &name, int length) {
        column.name = name;
        column.length = length;
        return column;
    };
    const auto expectNothingChanged = [&] {
        EXPECT_EQ(rows(*table.masterIndex()), before);
        EXPECT_EQ(rows(index), before);
        EXPECT_EQ(table.rowSize(), rowSize);
        EXPECT_EQ(table.columnCount(), 4);
        EXPECT_EQ(table.columnIndex("x"), -1);
        EXPECT_EQ(refCount(table.at(0)), 2);
    };
    EXPECT_EQ(thrownBy([&] {
                  table.addColumns({named("x", 3), named("y", 0)});
              }),
              "QString: Length of string can't be zero");
    expectNothingChanged();
    EXPECT_EQ(thrownBy([&] {
                  table.addColumns({named("x", 3), named("x", 4)});
              }),
              "QString: Column 'x' already exists for table 'quotes'.");
    expectNothingChanged();
    if (!kSanitized) { // where an allocator refuses what no machine has, instead of ending
        QList<TableColumnDef> huge{named("x", 3)};
        for (int i = 0; i < 50000; ++i)
            huge.append(named(QString::number(i), std::numeric_limits<int>::max()));
        EXPECT_THROW(table.addColumns(huge), std::bad_alloc);
        expectNothingChanged();
    }
    bool throws = true;
    index.onCall = [&](const QString &call) {
        if (call == "clear" && std::exchange(throws, false))
            throw QStringLiteral("no");
    };
    EXPECT_EQ(thrownBy([&] { table.addColumns({named("x", 3)}); }), "QString: no");
    expectNothingChanged();
    index.onCall = [&](const QString &call) {
        if (call == "build")
            throw QStringLiteral("no");
    };
    EXPECT_EQ(thrownBy([&] { table.addColumns({named("x", 3), named("y", 2)}); }), "QString: no");
    EXPECT_EQ(rows(*table.masterIndex()),
              (QStringList{"1 2 NULL NULL NULL NULL", "3 4 NULL NULL NULL NULL"}));
    index.onCall = nullptr;
    m_log.clear();
    table.addColumns({named("x", 3), named("z", 2)});
    EXPECT_EQ(m_log, (QStringList{"i.clear", "i.build"})) << "one pass";
    EXPECT_EQ(rows(index), rows(*table.masterIndex()));
    EXPECT_EQ(table.columnIndex("z"), 6);
}

TEST_F(Rows, reachTheMasterIndexFirstAndLeaveItLast)
{
    KeyedTable table;
    table.setMasterIndex(new RecordingMaster("master", &m_log, &table, "key"));
    RecordingIndex a("a", &m_log, &table), b("b", &m_log, &table);
    a.accepts = [](const Record &row) { return row.data(1).value<qint32>() > 3; };
    const Record row = appendTexts(table, {"1", "3"});
    EXPECT_EQ(refCount(row), 3); // this handle, the master index, b
    table.updated(row, 1, 2, 0);
    table.remove(table.at(0), 0); // the argument lies in the index that drops it
    EXPECT_EQ(refCount(row), 1);
    table.clear();
    EXPECT_EQ(m_log,
              (QStringList{"master.add", "b.add", "master.update [1..2] 0", "a.update [1..2] -1",
                           "b.update [1..2] -1", "a.remove -1", "b.remove -1", "master.remove 0",
                           "a.clear", "b.clear", "master.clear"}));
}
