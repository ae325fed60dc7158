#include <database/record.h>
#include <database/tables/cellcompare.h>
#include <database/tables/table.h>

#include <gtest/gtest.h>

#include <random>

TEST(CellCompareTest, ordersTextsByCodeUnitsWhateverStandsBehindTheirEnd)
{
    // Few letters make long common beginnings; units beyond the sign bit order as unsigned ones.
    const ushort letters[] = {u'a', u'a', u'b', 0x8000, 0xFFFF, 1};
    constexpr unsigned kSeed = 20260304;
    std::mt19937 random(kSeed);
    for (int length = 1; length <= 14; ++length) {
        Table table(QStringLiteral("t"), QString());
        table.addColumn(QStringLiteral("text"), FieldType::VarChar, length);
        const TableColumnDef &column = *table.columnDef(0);
        for (int i = 0; i < 4000; ++i) {
            QString texts[2];
            const Record rows[] = {Record(&table), Record(&table)};
            for (int k = 0; k < 2; ++k) {
                const int size = int(random() % unsigned(length + 1));
                for (int u = 0; u < size; ++u)
                    texts[k].append(QChar(letters[random() % std::size(letters)]));
                rows[k].data(0).setValue(texts[k]);
                // Whatever lies behind the terminator, up to the padded end of the cell.
                auto *units = reinterpret_cast<ushort *>(rows[k].row() + kRowHeaderSize);
                const int padded = int(roundedCell(column.size) / qint64(sizeof(ushort)));
                for (int u = size + (size < length ? 1 : 0); u < padded; ++u)
                    units[u] = ushort(random() % 3);
            }
            const int order = QString::compare(texts[0], texts[1]);
            ASSERT_EQ(compareCells(column, rows[0], rows[1]), (order > 0) - (order < 0))
                << "seed " << kSeed << " length " << length << " step " << i;
        }
    }
}
