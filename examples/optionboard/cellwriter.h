#pragma once

#include <database/record.h>
#include <database/tables/recordstrans.h>

#include <optional>

/// Writes the cells of one row of a batch, and only those whose value differs from what the row
/// holds. A live row enters the batch with the first of them, so that a row without changes stays
/// out of it.
class CellWriter
{
public:
    /// For a new row, which enters the batch at once; its key cells are set already.
    static CellWriter insertion(RecordsTrans &batch, const Record &row)
    {
        CellWriter writer(batch, row);
        writer.m_inserts = true;
        writer.m_updater.emplace(batch.insertRow(row));
        return writer;
    }
    /// For a row of the table.
    static CellWriter update(RecordsTrans &batch, const Record &live) { return {batch, live}; }

    bool inserts() const { return m_inserts; }
    /// Whether the batch has something to do for the row.
    bool isEntered() const { return m_updater.has_value(); }
    /// The new row as far as it is written, or the live row as it was.
    const Record &row() const { return m_row; }

    template<class T>
    void set(int column, const T &value)
    {
        const Field cell = m_row.data(column);
        if (cell.isNull() || cell.value<T>() != value)
            updater().field(column).setValue(value);
    }
    /// No value is NULL.
    template<class T>
    void set(int column, const std::optional<T> &value)
    {
        if (value)
            set(column, *value);
        else if (!m_row.data(column).isNull())
            updater().field(column).setNull();
    }

private:
    CellWriter(RecordsTrans &batch, const Record &row)
        : m_batch(batch)
        , m_row(row)
    {
    }

    RecordUpdater &updater()
    {
        if (!m_updater)
            m_updater.emplace(m_batch.updateRow(m_row));
        return *m_updater;
    }

    RecordsTrans &m_batch;
    Record m_row;
    bool m_inserts = false;
    std::optional<RecordUpdater> m_updater;
};
