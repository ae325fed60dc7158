// How a sorted index sees to it that what it was told of compare() is true, and that nobody has
// written its keys unseen.

#include "database/indexes/indexsort.h"
#include "database/indexes/sortaid.h"
#include "database/indexes/tieranks.h"
#include "database/masterindex_struct.h"
#include "database/tables/table.h"

#include <QtCore/qdebug.h>

#include <algorithm>
#include <cstdlib>
#include <cxxabi.h>
#include <unordered_set>
#include <utility>

namespace
{

QByteArray nameOfClass(const std::type_info &type)
{
    const std::unique_ptr<char, void (*)(void *)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), &std::free);
    return name ? QByteArray(name.get()) : QByteArray(type.name());
}

} // namespace

// compare() of two records of the list, or that it has learned from, by digests where it has them.
int IndexSort::order(const Record &a, const Record &b) const
{
    const SortAid *const told = aid();
    if (told && told->key.isOn()) {
        const quint64 x = told->key(a.row());
        const quint64 y = told->key(b.row());
        if (x != y)
            return x < y ? -1 : 1;
    }
    return compare(a, b);
}

// Whether a record found by digests is one that was searched for.
bool IndexSort::isMatch(int position, quint64 digest, const Record &key) const
{
    if (position >= count())
        return false;
    const Record &record = m_list.at(position);
    return m_aid->key(record.row()) == digest && compare(record, key) == 0;
}

// Whether compare() would have searched for a key elsewhere than digests, which have found nothing
// at a position.
bool IndexSort::contradicts(const Record &key, int position, int first) const
{
    const int least = m_aid->key.isTotal() ? 0 : 1;
    return (position > first && compare(m_list.at(position - 1), key) >= least) ||
           (position < count() && compare(key, m_list.at(position)) >= least &&
            m_aid->key(m_list.at(position).row()) != m_aid->key(key.row()));
}

// Whether compare() orders neighbours along the list otherwise than they stand by digests. Few are
// looked at in release builds: to visit all costs half as much as to sort them.
bool IndexSort::contradictsSomewhere() const
{
#ifdef QT_NO_DEBUG
    constexpr int kStep = 16;
#else
    constexpr int kStep = 1;
#endif
    constexpr int kAhead = 8;
    const SortKey &key = m_aid->key;
    const int least = key.isTotal() ? 0 : 1;
    const int last = count() - 1;
    const auto askFor = [&](int position) {
        if (position <= last)
            key.prefetchWhole(m_list.at(position).row());
    };
    for (int i = 0; i < last; i += kStep) {
        askFor(i + kAhead * kStep);
        askFor(i + kAhead * kStep + 1);
        const Record &left = m_list.at(i);
        const Record &right = m_list.at(i + 1);
        if (key(left.row()) != key(right.row()) && compare(left, right) >= least)
            return true;
    }
    return false;
}

// Looks at a record that came to a position, or whose key changed there. \return whether compare()
// agrees with its place
bool IndexSort::settled(int position)
{
    const SortAid *const told = aid();
    if (!told && !m_ties)
        return true;
    try {
        const Record &record = m_list.at(position);
        const int before = position > 0 ? compare(m_list.at(position - 1), record) : -1;
        const int behind = position + 1 < count() ? compare(record, m_list.at(position + 1)) : -1;
        const auto isWrong = [&](int order, int neighbour) {
            if (!told || order < 0)
                return false;
            return order > 0 || (told->key.isTotal() && told->key.isOn() &&
                                 told->key(record.row()) != told->key(m_list.at(neighbour).row()));
        };
        if (isWrong(before, position - 1) || isWrong(behind, position + 1))
            return false;
        if (m_ties)
            m_ties->came(m_list, position, before == 0, behind == 0);
    } catch (...) {
        m_ties.reset(); // which may go without; the record is in already
    }
    return true;
}

// Two records of one key came together in an index that is to have none such.
void IndexSort::metEqual(const Record &record)
{
    if (!m_isKey || std::exchange(m_isEqualTold, true))
        return;
    qWarning("Table '%s' has two rows of the key '%s'", qPrintable(table()->name()),
             qPrintable(record.toString()));
}

// The index was told what is not so: it does without from now on.
void IndexSort::distrust()
{
    qWarning("%s of table '%s': compare() does not order by the columns that were told; sorting by "
             "compare() alone",
             nameOfClass(typeid(*this)).constData(), qPrintable(table()->name()));
    forgetColumns();
    IndexSort::resort();
}

// A record has been searched for among many ties, if there are any: the next one is found sooner.
void IndexSort::rankTies(const Run &run)
{
    if (run.first == run.last)
        return;
    try {
        if (!m_ties)
            m_ties = std::make_unique<TieRanks>();
        m_ties->number(m_list, run.first, run.last);
    } catch (const std::bad_alloc &) {
        m_ties.reset();
    }
}

bool IndexSort::verify() const
{
    std::unordered_set<const uchar *> rows;
    const Record *before = nullptr;
    for (const Record &record : m_list) {
        if (!rows.insert(record.row()).second || (before && order(*before, record) > 0))
            return false;
        before = &record;
    }
    const SortAid *const told = aid();
    return m_list.verify() && (!told || !told->guides() || told->guide.verify(told->digestAt()));
}

// In debug builds: goes over the list by and by, over a short one at once. Of one that the batch
// passed by the digests are looked at, and compare() is left alone.
void IndexSort::assertOrder(bool isPassedBy)
{
    Q_UNUSED(isPassedBy)
#ifndef QT_NO_DEBUG
    constexpr int kAtOnce = 512;
    const SortAid *const told = aid();
    const bool hasDigests = told && told->key.isOn();
    if (m_isMoved || (isPassedBy && !hasDigests))
        return;
    if (told)
        told->assertGuides();
    if (m_asserted + 1 >= count())
        m_asserted = 0;
    // compare() may find NaN equal to every number, which is no order: digests alone tell then.
    const QList<TableColumnDef *> columns = table()->fieldDefs();
    const bool mayHoldNaN = std::any_of(columns.begin(), columns.end(), [](const auto *column) {
        return column->type == FieldType::Double;
    });
    const int last = qMin(m_asserted + kAtOnce, count() - 1);
    for (; m_asserted < last; ++m_asserted) {
        const Record &left = m_list.at(m_asserted);
        const Record &right = m_list.at(m_asserted + 1);
        int order = 0;
        try {
            if (!isPassedBy && !mayHoldNaN)
                order = this->order(left, right);
            else if (hasDigests && told->key(left.row()) > told->key(right.row()))
                order = 1;
        } catch (...) {
            return; // out of the way of what is tested
        }
        Q_ASSERT_X(order <= 0, nameOfClass(typeid(*this)).constData(),
                   "a key cell was written without Table::updated(), or compare() reads a column "
                   "that was not told");
    }
#endif
}
