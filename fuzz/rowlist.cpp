// Reading row lists from any bytes, with tables of their own and with tables that are known by
// name.

#include "tablerules.h"

#include <database/icore.h>

#include <memory>
#include <vector>

namespace
{

class Core : public ICore
{
public:
    explicit Core(Table *known)
        : m_known(known)
    {
        setInstance(this);
    }
    ~Core() override { setInstance(nullptr); }
    bool hasTable(const QString &name) const override { return name == m_known->name(); }
    Table *table(const QString &name) const override { return hasTable(name) ? m_known : nullptr; }
    bool compressTableFiles() const override { return false; }

private:
    Table *m_known; // borrowed
};

/// The columns that the lists of the corpus have.
void addColumns(Table &table)
{
    for (int type = FieldType::Integer; type <= FieldType::XDecimal; ++type)
        table.addColumn(QStringLiteral("c%1").arg(type), FieldType::Type(type), 2, type != 1);
}

QByteArray written(const PartitionList<Record> &list)
{
    MemoryStream stream;
    FilterProgressTrue progress;
    TableIO::writeRowList(progress, stream, list);
    return stream.bytes();
}

void checkRoundTrip(const PartitionList<Record> &list)
{
    const Table *table = list.count() > 0 ? list.at(0).table() : nullptr;
    if (!table || table->rowSize() * list.count() > 1024 * 1024)
        return;
    const QByteArray bytes = written(list);
    MemoryStream stream(bytes);
    FilterProgressTrue progress;
    PartitionList<Record> again(2, 1);
    const std::unique_ptr<Table> created(TableIO::readRowList(progress, stream, again, true));
    require(written(again) == bytes, "a row list that was written reads as it was");
    again.clear();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input(data, size);
    const int flags = input.choice();
    const bool createTable = flags & 1;
    const bool rejects = flags & 2;
    const QByteArray bytes = input.rest();

    Table known(QStringLiteral("quotes"), QString());
    addColumns(known);
    const Core core(&known);
    MemoryStream stream(bytes);
    for (int section = 0; section < 16; ++section) {
        const Record first(&known);
        PartitionList<Record> list(4, 2);
        list.append(first);
        Table *table = nullptr;
        const Outcome outcome = outcomeOf([&] {
            const AllocationLimit limit(bytes.size());
            Listener listener(rejects);
            table = TableIO::readRowList(listener, stream, list, createTable);
        });
        const std::unique_ptr<Table> created(createTable ? table : nullptr);
        require(createTable || !table || table == &known, "a known table is the core's");
        require(list.count() > 0 && list.at(0) == first, "what stood in a list stays");
        list.remove(0);
        if (outcome != Outcome::Done || !table)
            require(list.count() == 0, "a list gets all of a section or nothing");
        for (const Record &record : std::as_const(list)) {
            require(table && record.table() == table, "a record is the table's");
            for (int column = 0; column < table->columnCount(); ++column)
                checkCell(record, column);
        }
        checkRoundTrip(list);
        list.clear();
        if (outcome != Outcome::Done || !table)
            break;
    }
    return 0;
}
