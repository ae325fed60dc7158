#include "engine.h"

#include <QtCore/qabstractitemmodel.h>
#include <QtCore/qsortfilterproxymodel.h>

#include <cstring>
#include <unordered_map>

namespace
{

enum Column { kLast, kVolume, kTime, kColumns };

/// Rows in order of arrival. The model's columns are the ones that views sort by.
class RowsModel : public QAbstractTableModel
{
public:
    int rowCount(const QModelIndex &parent) const override
    {
        return parent.isValid() ? 0 : int(m_rows.size());
    }
    int columnCount(const QModelIndex &parent) const override
    {
        return parent.isValid() ? 0 : int(kColumns);
    }
    QVariant data(const QModelIndex &index, int role) const override
    {
        if (role != Qt::DisplayRole)
            return {};
        const Row &row = m_rows[size_t(index.row())];
        if (index.column() == kLast)
            return row.last;
        return qlonglong(index.column() == kVolume ? row.volume : row.time);
    }

    const Row &row(int i) const { return m_rows[size_t(i)]; }
    /// As a reset: a live insertion of many rows takes the proxies a hundred times as long.
    void append(const Row *rows, int count)
    {
        beginResetModel();
        for (int i = 0; i < count; ++i)
            m_places[keyOf(rows[i].key)] = int(m_rows.size()) + i;
        m_rows.insert(m_rows.end(), rows, rows + count);
        endResetModel();
    }
    void setLast(const Row &row)
    {
        const int place = m_places.at(keyOf(row.key));
        m_rows[size_t(place)].last = row.last;
        const QModelIndex changed = index(place, kLast);
        dataChanged(changed, changed);
    }

private:
    static std::u16string keyOf(const Key &key)
    {
        return std::u16string(key.board, std::size(key.board))
            .append(key.code, std::size(key.code));
    }

    std::vector<Row> m_rows;
    std::unordered_map<std::u16string, int> m_places;
};

class SortedRows : public QSortFilterProxyModel
{
public:
    SortedRows(RowsModel *model, int column)
    {
        setSourceModel(model);
        sort(column);
    }
    const Row &row(int i) const
    {
        return static_cast<RowsModel *>(sourceModel())->row(mapToSource(index(i, 0)).row());
    }

protected:
    /// As the inherited one, without a variant for each value.
    bool lessThan(const QModelIndex &left, const QModelIndex &right) const override
    {
        const auto *model = static_cast<RowsModel *>(sourceModel());
        const Row &a = model->row(left.row()), &b = model->row(right.row());
        if (left.column() == kLast)
            return a.last < b.last;
        return left.column() == kVolume ? a.volume < b.volume : a.time < b.time;
    }
};

/// Takes part in ticks only; a change or question beyond them ends the program.
class ProxyEngine : public Engine
{
public:
    std::string name() const override { return "Qt proxy"; }
    int share(Workload workload) const override { return workload == Workload::Tick ? 1 : 0; }

    void insert(const Row *rows, int count) override { m_model.append(rows, count); }
    void tick(const Row &row) override { m_model.setLast(row); }
    Firsts firsts() override
    {
        return {m_byLast.row(0).last, m_byVolume.row(0).volume, m_byTime.row(0).time};
    }
    void visit(Order order, const std::function<void(const Row &)> &visitor) override
    {
        const SortedRows *const orders[] = {&m_byLast, &m_byVolume, &m_byTime};
        for (int i = 0; i < m_model.rowCount({}); ++i)
            visitor(orders[size_t(order)]->row(i));
    }

    void trade(const std::vector<Row> &) override { missing(); }
    void quote(const std::vector<Row> &) override { missing(); }
    void replace(const Replacement &) override { missing(); }
    std::int64_t find(const Key *, int) override { return missing(); }
    double at(const int *, int) override { return missing(); }
    void hold(const std::vector<Key> &) override { missing(); }
    std::int64_t ranks(int) override { return missing(); }
    bool ranksAreTrue(int) override { return missing(); }
    std::int64_t walk() override { return missing(); }
    void save(const std::string &, bool) override { missing(); }
    void load(const std::string &) override { missing(); }

private:
    static int missing()
    {
        require(false, "asking a proxy for what it does not do");
        return 0;
    }

    RowsModel m_model;
    SortedRows m_byLast{&m_model, kLast};
    SortedRows m_byVolume{&m_model, kVolume};
    SortedRows m_byTime{&m_model, kTime};
};

} // namespace

EngineMaker proxyEngine()
{
    return [] { return std::make_unique<ProxyEngine>(); };
}
