#include "database/record.h"

#include "database/masterindex_struct.h"
#include "database/services/exception.h"
#include "database/tables/pendingrow.h"
#include "database/tables/recordstrans.h"
#include "database/tables/table.h"

#include <QtCore/qstringlist.h>

const Record Record::null;

Record::Record(const Table *table)
    : m_row(table->allocRow())
{
    acquire();
}

Record::Record(const Table *table, const QString &text)
{
    const MasterIndex *master = table->masterIndex();
    if (text.isEmpty() || !master)
        return;
    // A text that is no key names no row.
    try {
        *this = master->findRecord(text);
    } catch (const QString &) {
    } catch (const Exception &) {
    }
}

void Record::freeRow(uchar *row) noexcept
{
    Table::freeRow(row);
}

Record Record::clone() const
{
    return m_row ? Record(table()->cloneRow(m_row)) : Record();
}

void Record::copy(const Record &source)
{
    if (m_row && source.m_row && m_row != source.m_row)
        table()->copyRowContent(m_row, source.m_row);
}

void Record::copy(const Record &source, int first, int last)
{
    if (m_row && source.m_row && m_row != source.m_row)
        table()->copyRowContent(m_row, source.m_row, first, last);
}

Field Record::data(int column) const
{
    return table()->dataPtr(m_row, column);
}

Field Record::data(const QString &column) const
{
    if (!m_row)
        throw QStringLiteral("A null record has no column '%1'.").arg(column);
    return data(table()->columnDef(column)->index);
}

bool Record::inTable() const
{
    return m_row && table()->masterIndex() && table()->masterIndex()->contains(*this);
}

QString Record::keyText() const
{
    return m_row && table()->masterIndex() ? table()->masterIndex()->keyText(*this) : QString();
}

QString Record::toString() const
{
    return m_row && table()->masterIndex() ? table()->masterIndex()->toText(*this) : QString();
}

QString Record::dump(bool skipNulls) const
{
    if (!m_row)
        return QStringLiteral("{ NULL }");
    QStringList cells;
    for (int i = 0; i < table()->columnCount(); ++i) {
        const Field field = data(i);
        if (field.isNull() && skipNulls)
            continue;
        cells.append(table()->columnName(i) + QLatin1Char('=') +
                     (field.isNull() ? QStringLiteral("\"\"") : field.toString()));
    }
    return QStringLiteral("%1:(ptr:0x%2 ref:%3) { %4 }")
        .arg(table()->name(),
             QString::number(quintptr(m_row), 16).rightJustified(16, QLatin1Char('0')),
             QString::number(rowHeader(m_row)->refCount.loadRelaxed()),
             cells.join(QLatin1Char(' ')));
}

RecordUpdater::RecordUpdater(RecordsTrans *transaction, Record pending)
    : m_pending(std::move(pending))
    , m_transaction(transaction)
    , m_first(std::numeric_limits<qint32>::max())
    , m_last(-1)
{
}

Field RecordUpdater::field(int column)
{
    Q_ASSERT(!m_transaction->table()->masterIndex()->keyColumns().contains(column));
    widen(column, column);
    return m_pending.data(column);
}

Field RecordUpdater::field(const QString &column)
{
    return field(m_transaction->table()->columnDef(column)->index);
}

RecordUpdater &RecordUpdater::operator=(const Record &source)
{
    Q_ASSERT(m_transaction->table()->masterIndex()->compare(m_pending, source) == 0);
    widen(0, m_transaction->table()->columnCount() - 1);
    m_pending.copy(source);
    return *this;
}

void RecordUpdater::widen(int first, int last)
{
    m_transaction->checkLayout();
    m_first = qMin(m_first, first);
    m_last = qMax(m_last, last);
    m_transaction->widen(first, last);
    PendingRow::mark(m_pending, first, last);
}

void RecordUpdater::remove()
{
    m_transaction->removePending(m_pending);
}

void RecordUpdater::insertInMap(const Record &row)
{
    m_transaction->mergeInsertedRow(row);
    m_pending = row;
}

void RecordUpdater::updateInMap()
{
    m_pending = m_transaction->pendingUpdate(m_pending);
}
