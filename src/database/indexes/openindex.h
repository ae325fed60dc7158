#pragma once

#include "database/indexes/index.h"
#include "database/tables/table.h"

#include <QtCore/qpointer.h>

#include <memory>
#include <utility>

/// Destroys an index in a bracket of its table, so that no batch of another thread finds it half
/// gone.
class IndexCloser
{
public:
    explicit IndexCloser(Table *table = nullptr)
        : m_table(table)
    {
    }
    void operator()(Index *index) const
    {
        const QPointer<Table> table = m_table;
        if (table)
            table->lock();
        delete index;
        if (table)
            table->unlock();
    }

private:
    QPointer<Table> m_table; // null once it is gone
};

template<class T>
using OpenIndex = std::unique_ptr<T, IndexCloser>;

/// Makes an index of any class over a table, registered by its constructor, and builds it, all
/// under the table's lock: for tables that another thread updates. A base class that registers an
/// index cannot wait until the constructor of the derived one is through, nor can its destructor
/// come before that one's; here no batch comes in between.
/// \param arguments  of the class's constructor, behind the table
template<class T, class... Arguments>
OpenIndex<T> openIndex(Table &table, Arguments &&...arguments)
{
    struct Lock {
        Table &table;
        explicit Lock(Table &locked)
            : table(locked)
        {
            table.lock();
        }
        ~Lock() { table.unlock(); }
    } lock(table);
    OpenIndex<T> index(new T(&table, std::forward<Arguments>(arguments)...), IndexCloser(&table));
    index->build();
    return index;
}
