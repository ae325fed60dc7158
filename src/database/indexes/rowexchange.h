#pragma once

#include "database/indexes/indexsort.h"
#include "database/indexes/sortaid.h"
#include "database/indexes/tieranks.h"

#include <cstring>
#include <new>
#include <optional>

/// Puts other rows into the places of those that an index holds, in the same order: what a change
/// of the rows' layout comes to. All that can fail happens in the constructor.
class IndexSort::RowExchange
{
public:
    /// \throws std::bad_alloc
    explicit RowExchange(IndexSort &index)
        : m_index(index)
        , m_view(std::in_place, index.m_list)
    {
    }
    /// The i-th handle of \p rows changes places with the i-th of the index.
    void commit(QList<Record> &rows) noexcept
    {
        int i = 0;
        for (auto &handle : *m_view) {
            static_assert(sizeof handle == sizeof(Record), "a handle's bytes");
            unsigned char bytes[sizeof(Record)];
            void *const row = &rows[i++];
            std::memcpy(bytes, row, sizeof bytes);
            std::memcpy(row, static_cast<const void *>(&handle), sizeof bytes);
            std::memcpy(static_cast<void *>(&handle), bytes, sizeof bytes);
        }
        m_view.reset();
    }
    /// Learns from the new rows once their columns have got their places.
    void finish() noexcept
    {
        m_index.m_notes.clear();
        m_index.m_ties.reset();
        SortAid *const told = m_index.aid();
        if (!told)
            return;
        told->reset();
        try {
            told->learn(m_index.m_list);
            told->setUp();
        } catch (const std::bad_alloc &) {
            told->guide.clear(); // the next batch sets it up
        }
    }

private:
    IndexSort &m_index;
    std::optional<PartitionList<Record>::FlatView> m_view;
};
