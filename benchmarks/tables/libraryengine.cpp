#include "engine.h"
#include "quotes.h"

#include <database/database.h>
#include <database/icore.h>

#include <QtCore/qdir.h>

namespace
{

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

class LibraryEngine : public Engine
{
public:
    std::string name() const override { return "library"; }
    int share(Workload) const override { return 1; }

    void insert(const Row *rows, int count) override
    {
        RecordsTrans batch(&m_table);
        for (int i = 0; i < count; ++i)
            batch.insertRow(m_table.newRecord(rows[i]));
        execute(batch);
    }
    void trade(const std::vector<Row> &rows) override
    {
        RecordsTrans batch(&m_table);
        const QList<Record> found = liveAll(rows);
        for (int i = 0; i < found.size(); ++i) {
            const Row &row = rows[size_t(i)];
            RecordUpdater pending = batch.updateRow(found.at(i));
            pending.field(kLast).setValue(row.last);
            pending.field(kVolume).setValue(qint64(row.volume));
            pending.field(kTime).setValue(datetime(row.time));
        }
        execute(batch);
    }
    void quote(const std::vector<Row> &rows) override
    {
        RecordsTrans batch(&m_table);
        const QList<Record> found = liveAll(rows);
        for (int i = 0; i < found.size(); ++i) {
            const Row &row = rows[size_t(i)];
            RecordUpdater pending = batch.updateRow(found.at(i));
            pending.field(kBid).setValue(decimal::fromParts(row.bid, kPriceScale));
            pending.field(kAsk).setValue(decimal::fromParts(row.ask, kPriceScale));
        }
        execute(batch);
    }
    void replace(const Replacement &replacement) override
    {
        RecordsTrans batch(&m_table);
        for (const Record &record : liveAll(replacement.removed))
            batch.removeRow(record);
        for (const Row &row : replacement.inserted)
            batch.insertRow(m_table.newRecord(row));
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
    std::int64_t findMany(const Key *keys, int count) override
    {
        constexpr int kTogether = 1000;
        std::int64_t sum = 0;
        for (int i = 0; i < count; i += kTogether) {
            for (const Record &record : liveAll(keys + i, std::min(count - i, kTogether)))
                sum += record.data(kVolume).value<qint64>();
        }
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
        for (const Record &record : m_quotes.orders[size_t(order)])
            visitor(QuotesTable::rowOf(record));
    }

private:
    Record live(const Key &key) const
    {
        QuotesTable::setKey(m_key, key);
        return m_table.masterIndex()->find(m_key, -1);
    }
    /// The records of a batch's keys, searched for side by side.
    template<class Each>
    QList<Record> liveAll(const Each *each, int count)
    {
        while (m_keys.size() < count)
            m_keys.append(Record(&m_table));
        for (int i = 0; i < count; ++i)
            QuotesTable::setKey(m_keys.at(i), keyOf(each[i]));
        return m_table.masterIndex()->findAll(m_keys.size() == count ? m_keys
                                                                     : m_keys.mid(0, count));
    }
    template<class Each>
    QList<Record> liveAll(const std::vector<Each> &each)
    {
        return liveAll(each.data(), int(each.size()));
    }
    static const Key &keyOf(const Key &key) { return key; }
    static const Key &keyOf(const Row &row) { return row.key; }
    void execute(RecordsTrans &batch)
    {
        const TableUpdate bracket(m_table);
        batch.execute();
    }

    Quotes m_quotes;
    QuotesTable &m_table = m_quotes.table;
    const ByColumn &m_byLast = m_quotes.orders[size_t(Order::Last)];
    const ByColumn &m_byVolume = m_quotes.orders[size_t(Order::Volume)];
    const ByColumn &m_byTime = m_quotes.orders[size_t(Order::Time)];
    const Record m_key{&m_table}; // scratch for searches
    QList<Record> m_keys;         // the same, for many at once
    std::vector<Record> m_held;
};

} // namespace

EngineMaker libraryEngine()
{
    return [] { return std::make_unique<LibraryEngine>(); };
}
