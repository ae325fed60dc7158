// Loading a table from any bytes, into tables that look alike, different, or have no columns yet.

#include "tablerules.h"

#include <QtCore/qset.h>

#include <thread>

namespace
{

QSet<FieldDefConvertor *> s_alive;

/// Counts the convertors that are alive: a load deletes those that it took, and no other.
template<class Base>
class Owned : public Base
{
public:
    Owned() { s_alive.insert(this); }
    ~Owned() override { s_alive.remove(this); }
};

/// As an application writes one: whatever the type, by way of a text of its own.
class Trimming : public FieldDefConvertor
{
public:
    void convert(Field &to, const Field &from) override
    {
        const QString text = from.toString().trimmed();
        to = QStringRef(&text);
    }
};

enum Flag {
    AddColumns = 1,
    UseConvertors = 2,
    HeaderOnly = 4,
    Keyed = 8,
    HasColumns = 16,
    HasRows = 32,
    Rejects = 64,
    StandsInside = 128, // of an update bracket that the caller opened
};

/// One column of every type, c0 to c7, or number \p chosen of them alone. \p variant
/// decides which has which type and length, so that every type meets every other when a file comes
/// with types of its own: also alone, because the first pair that does not convert ends a load.
void addColumns(Table &table, int variant, int chosen)
{
    const bool isAlone = variant & 64;
    for (int i = 0; i < FieldType::XDecimal; ++i) {
        const auto type = FieldType::Type((i + variant) % FieldType::XDecimal + 1);
        if (!isAlone || i == chosen)
            table.addColumn(QStringLiteral("c%1").arg(i), type, 1 + variant / 8 % 8, i % 2 == 1);
    }
}

TableIO::Convertors someConvertors()
{
    auto *twice = new Owned<Trimming>;
    return {
        {{QString(), QStringLiteral("x")}, nullptr}, // keeps x out
        {{QStringLiteral("c1"), QStringLiteral("c2")}, twice},
        {{QStringLiteral("c1"), QStringLiteral("c3")}, twice},
        {{QStringLiteral("c4"), QStringLiteral("c4")}, new Owned<FieldDefConvertor>},
        {{QStringLiteral("c5"), QStringLiteral("nowhere")}, new Owned<FieldDefConvertor>},
        {{QStringLiteral("c6"), QStringLiteral("y")}, new Owned<FieldDefConvertor>},
        {{QStringLiteral("c7"), QStringLiteral("c0")}, nullptr},
    };
}

bool isFreeForOthers(Table &table)
{
    bool free = false;
    std::thread other([&] {
        free = table.tryLock();
        if (free)
            table.unlock();
    });
    other.join();
    return free;
}

/// A thread of its own is dear, so only some inputs pay for it; the first of a process does.
void checkUnlocked(Table &table)
{
    static unsigned inputs = 0;
    require(inputs++ % 64 != 0 || isFreeForOthers(table), "a load leaves the table unlocked");
}

bool hasNaN(const Table &table, const QList<int> &columns)
{
    for (const Record &record : *table.masterIndex()) {
        for (const int column : columns) {
            if (isNaN(record.data(column)))
                return true;
        }
    }
    return false;
}

void checkRowCount(const Table &table, const QByteArray &bytes, int flags, Outcome outcome)
{
    if (bytes.isEmpty()) {
        require(table.rowCount() == (flags & HasRows ? 1 : 0), "nothing to read changes nothing");
        return;
    }
    MemoryStream stream(bytes);
    TableIO::TableHeader header;
    TableIO::readHeader(header, stream);
    int promised = header.magic == TableIO::kMagic ? qMax(header.rowCount, 0) : 0;
    if (flags & HeaderOnly)
        promised = 0;
    if (flags & Rejects)
        promised -= promised / 3;
    if (outcome == Outcome::Done)
        require(table.rowCount() == promised, "a load gives the rows that the file promises");
    else
        require(table.rowCount() == 0, "a load that failed within 10240 rows gives none");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input(data, size);
    const int flags = input.choice();
    const int variant = input.choice();
    const int sortColumn = input.choice() % 9; // 8: where only a file may have columns
    const QByteArray bytes = input.rest();

    int bracket = 0;
    Table table(QStringLiteral("quotes"), QString());
    if (flags & HasColumns)
        addColumns(table, variant, sortColumn % 8);
    QList<int> key;
    if ((flags & Keyed) && (flags & HasColumns)) {
        key = table.columnCount() > 2 ? QList<int>{0, 2} : QList<int>{0};
        table.setMasterIndex(new Bracketed<MasterIndex_Column_Pure>(&bracket, &table, key));
    } else {
        table.setMasterIndex(new Bracketed<MasterIndexOrdered>(&bracket, &table));
    }
    SortedBy sorted(&table, sortColumn);
    table.setIndexName(QStringLiteral("sorted"), &sorted);
    if (flags & HasRows)
        table.appendRow();

    const Outcome outcome = outcomeOf([&] {
        TableIO::Convertors convertors;
        if (flags & UseConvertors)
            convertors = someConvertors();
        const AllocationLimit limit(bytes.size());
        MemoryStream stream(bytes);
        Listener listener(flags & Rejects);
        const auto load = [&] {
            TableIO(&table).read(listener, stream, flags & AddColumns, convertors,
                                 !(flags & HeaderOnly));
        };
        if (!(flags & StandsInside))
            return load();
        const TableUpdate update(table);
        load();
    });
    qDeleteAll(QSet<FieldDefConvertor *>(s_alive));

    require(bracket == 0, "a load closes the update bracket");
    checkUnlocked(table);
    checkRowCount(table, bytes, flags, outcome);
    require(table.indexes() == QList<Index *>{&sorted}, "a load puts the index back");
    require(table.indexName(&sorted) == QLatin1String("sorted"), "and under its name");
    require(sorted.count() == table.rowCount(), "an index over all rows has all rows");
    checkOrder(*table.masterIndex(), key);
    checkOrder(sorted, sortColumn < table.columnCount() ? QList<int>{sortColumn} : QList<int>());
    checkCells(table);
    if (!hasNaN(table, key))
        checkRoundTrip(table);
    return 0;
}
