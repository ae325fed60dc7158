#include "database/indexes/indexvector.h"

#include "database/indexes/tablelocker.h"
#include "database/masterindex_struct.h"

#include <algorithm>

IndexVector *IndexVector::sortIndex = nullptr;

IndexVector::IndexVector(Table *table)
    : m_table(table)
    , m_registration(table, this, true)
{
}

IndexVector::~IndexVector()
{
    m_registration.leave();
}

void IndexVector::clear()
{
    m_records.clear();
}

void IndexVector::build()
{
    const TableLocker locker(*m_table);
    m_records.clear(); // building twice must not hold a row twice
    for (const Record &record : *m_table->masterIndex()) {
        if (filter(record))
            add(record);
    }
}

void IndexVector::process(const QList<Record> &removed, const QList<Record> &updated, int, int,
                          const QList<Record> &inserted)
{
    const ProcessTiming timing(*this);
    for (const QList<Record> *leaving : {&removed, &updated}) {
        for (const Record &record : *leaving)
            remove(record, -1);
    }
    for (const QList<Record> *coming : {&updated, &inserted}) {
        for (const Record &record : *coming) {
            if (filter(record))
                add(record);
        }
    }
}

void IndexVector::add(const Record &record)
{
    const auto place =
        std::find_if(m_records.cbegin(), m_records.cend(),
                     [&](const Record &element) { return compare(element, record) > 0; });
    m_records.insert(int(place - m_records.cbegin()), record);
}

void IndexVector::remove(const Record &record, int)
{
    m_records.removeOne(record);
}

bool IndexVector::filter(const Record &) const
{
    return true;
}

bool IndexVector::contains(const Record &record) const
{
    return search(record, -1) != -1;
}

QString IndexVector::getClassName() const
{
    return QStringLiteral("IndexVector");
}

int IndexVector::search(const Record &key, int from) const
{
    if (key.isNull())
        return -1;
    for (int i = qMax(from, -1) + 1; i < m_records.size(); ++i) {
        if (compare(key, m_records.at(i)) == 0)
            return i;
    }
    return -1;
}

void IndexVector::resort()
{
    // A copy is sorted: where the comparison throws, a sort leaves records in its buffers.
    QVector<Record> sorted = m_records;
    sortIndex = this;
    std::stable_sort(sorted.begin(), sorted.end(), &IndexVector::lessThan);
    m_records.swap(sorted);
}

bool IndexVector::lessThan(const Record &a, const Record &b)
{
    return sortIndex->compare(a, b) < 0;
}
