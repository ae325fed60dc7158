#include "engine.h"

#include <database/database.h>
#include <database/icore.h>

#include <QtCore/qdir.h>

#include <array>

namespace
{

enum Column { kBoard, kCode, kStrike, kBid, kAsk, kLast, kVolume, kTime, kIv, kFlags };

constexpr int kBoardLength = 12, kCodeLength = 24, kPriceScale = 2;

/// An application's own order: one column of its table, ascending.
class ByColumn : public IndexSort
{
public:
    ByColumn(Table *table, int column)
        : IndexSort(table, true)
        , m_column(*table->columnDef(column))
    {
        setColumns({column});
    }
    int compare(const Record &a, const Record &b) const override
    {
        return compareCells(m_column, a, b);
    }

private:
    const TableColumnDef &m_column; // the table's own
};

class Quotes : public Table
{
public:
    Quotes()
        : Table("quotes", "Quotes")
    {
        addColumn("board", FieldType::VarChar, kBoardLength, /*nullable*/ false);
        addColumn("code", FieldType::VarChar, kCodeLength, /*nullable*/ false);
        addColumn("strike", FieldType::Double, 0);
        addColumn("bid", FieldType::Decimal, kPriceScale);
        addColumn("ask", FieldType::Decimal, kPriceScale);
        addColumn("last", FieldType::Double, 0);
        addColumn("volume", FieldType::Integer64, 0);
        addColumn("time", FieldType::DateTime, 0);
        addColumn("iv", FieldType::Double, 0);
        addColumn("flags", FieldType::Integer, 0);
        setMasterIndex(new MasterIndex_Fast_Pure(this, QStringList{"board", "code"}));
    }
};

/// Decides whether files are packed.
class Core : public ICore
{
public:
    explicit Core(bool packs)
        : m_packs(packs)
    {
        setInstance(this);
    }
    ~Core() override { setInstance(nullptr); }
    bool hasTable(const QString &) const override { return false; }
    Table *table(const QString &) const override { return nullptr; }
    bool compressTableFiles() const override { return m_packs; }

private:
    const bool m_packs;
};

template<int N>
void setText(Field field, const char16_t (&text)[N])
{
    int length = 0;
    while (length < N && text[length])
        ++length;
    FieldType::setString(field.bytes(), N, reinterpret_cast<const ushort *>(text), length);
    field.setPresent();
}

template<int N>
void getText(char16_t (&text)[N], const Field &field)
{
    const QString value = field.asStaticString();
    std::copy_n(reinterpret_cast<const char16_t *>(value.utf16()), value.size(), text);
}

class LibraryEngine : public Engine
{
public:
    std::string name() const override { return "library"; }
    int share(Workload) const override { return 1; }

    void insert(const Row *rows, int count) override
    {
        RecordsTrans batch(&m_table);
        for (int i = 0; i < count; ++i)
            batch.insertRow(newRecord(rows[i]));
        execute(batch);
    }
    void trade(const std::vector<Row> &rows) override
    {
        RecordsTrans batch(&m_table);
        for (const Row &row : rows) {
            RecordUpdater pending = batch.updateRow(live(row.key));
            pending.field(kLast).setValue(row.last);
            pending.field(kVolume).setValue(qint64(row.volume));
            pending.field(kTime).setValue(datetime(row.time));
        }
        execute(batch);
    }
    void quote(const std::vector<Row> &rows) override
    {
        RecordsTrans batch(&m_table);
        for (const Row &row : rows) {
            RecordUpdater pending = batch.updateRow(live(row.key));
            pending.field(kBid).setValue(decimal::fromParts(row.bid, kPriceScale));
            pending.field(kAsk).setValue(decimal::fromParts(row.ask, kPriceScale));
        }
        execute(batch);
    }
    void replace(const Replacement &replacement) override
    {
        RecordsTrans batch(&m_table);
        for (const Key &key : replacement.removed)
            batch.removeRow(live(key));
        for (const Row &row : replacement.inserted)
            batch.insertRow(newRecord(row));
        execute(batch);
    }
    void tick(const Row &row) override
    {
        RecordsTrans batch(&m_table);
        batch.updateRow(live(row.key)).field(kLast).setValue(row.last);
        execute(batch);
    }

    Firsts firsts() override
    {
        return {m_byLast.at(0).data(kLast).value<double>(),
                m_byVolume.at(0).data(kVolume).value<qint64>(),
                m_byTime.at(0).data(kTime).value<datetime>().toMSecsSinceEpoch()};
    }
    std::int64_t find(const Key *keys, int count) override
    {
        std::int64_t sum = 0;
        for (int i = 0; i < count; ++i)
            sum += live(keys[i]).data(kVolume).value<qint64>();
        return sum;
    }
    double at(const int *places, int count) override
    {
        double sum = 0;
        for (int i = 0; i < count; ++i)
            sum += m_byLast.at(places[i]).data(kLast).value<double>();
        return sum;
    }
    void hold(const std::vector<Key> &keys) override
    {
        m_held.clear();
        for (const Key &key : keys)
            m_held.push_back(live(key));
    }
    std::int64_t ranks(int count) override
    {
        std::int64_t sum = 0;
        for (int i = 0; i < count; ++i)
            sum += m_byLast.indexOf(m_held[size_t(i)]);
        return sum;
    }
    bool ranksAreTrue(int count) override
    {
        return std::all_of(m_held.begin(), m_held.begin() + count, [this](const Record &record) {
            return m_byLast.at(m_byLast.indexOf(record)) == record;
        });
    }
    std::int64_t walk() override
    {
        std::int64_t sum = 0;
        for (const Record &record : m_byLast)
            sum += record.data(kVolume).value<qint64>();
        return sum;
    }

    void save(const std::string &directory, bool packed) override
    {
        const Core core(packed);
        require(TableIO(&m_table).write(QDir(QString::fromStdString(directory))), "saving a table");
    }
    void load(const std::string &directory) override
    {
        TableIO(&m_table).read(QDir(QString::fromStdString(directory)), false);
        require(m_byTime.count() == m_table.rowCount(), "loading a table");
    }

    void visit(Order order, const std::function<void(const Row &)> &visitor) override
    {
        const std::array<const ByColumn *, 3> orders = {&m_byLast, &m_byVolume, &m_byTime};
        for (const Record &record : *orders[size_t(order)]) {
            Row row = {};
            getText(row.key.board, record.data(kBoard));
            getText(row.key.code, record.data(kCode));
            row.strike = record.data(kStrike).value<double>();
            row.bid = hundredths(record.data(kBid));
            row.ask = hundredths(record.data(kAsk));
            row.last = record.data(kLast).value<double>();
            row.volume = record.data(kVolume).value<qint64>();
            row.time = record.data(kTime).value<datetime>().toMSecsSinceEpoch();
            row.iv = record.data(kIv).value<double>();
            row.flags = record.data(kFlags).value<qint32>();
            visitor(row);
        }
    }

private:
    static std::int64_t hundredths(const Field &field)
    {
        const auto value = field.value<decimal>();
        require(value.scale() == kPriceScale, "keeping the scale of a price");
        return value.mantissa();
    }
    Record newRecord(const Row &row) const
    {
        Record record(&m_table);
        setText(record.data(kBoard), row.key.board);
        setText(record.data(kCode), row.key.code);
        record.data(kStrike).setValue(row.strike);
        record.data(kBid).setValue(decimal::fromParts(row.bid, kPriceScale));
        record.data(kAsk).setValue(decimal::fromParts(row.ask, kPriceScale));
        record.data(kLast).setValue(row.last);
        record.data(kVolume).setValue(qint64(row.volume));
        record.data(kTime).setValue(datetime(row.time));
        record.data(kIv).setValue(row.iv);
        record.data(kFlags).setValue(qint32(row.flags));
        return record;
    }
    Record live(const Key &key) const
    {
        setText(m_key.data(kBoard), key.board);
        setText(m_key.data(kCode), key.code);
        return m_table.masterIndex()->find(m_key, -1);
    }
    void execute(RecordsTrans &batch)
    {
        const TableUpdate bracket(m_table);
        batch.execute();
    }

    Quotes m_table;
    ByColumn m_byLast{&m_table, kLast};
    ByColumn m_byVolume{&m_table, kVolume};
    ByColumn m_byTime{&m_table, kTime};
    const Record m_key{&m_table}; // scratch for searches
    std::vector<Record> m_held;
};

} // namespace

EngineMaker libraryEngine()
{
    return [] { return std::make_unique<LibraryEngine>(); };
}
