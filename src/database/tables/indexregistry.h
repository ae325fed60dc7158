#pragma once

#include <QtCore/qlist.h>

class Index;

/// The indexes that a table tells of something, in the order of registration. They may come and go
/// while they are told: those that come meanwhile are left out, having been built by whoever made
/// them, and so are those that went, which may be gone for good.
///
/// Threads: whoever calls arranges that nobody else does, also between two steps of a walk.
class IndexRegistry
{
public:
    IndexRegistry() = default;
    IndexRegistry(const IndexRegistry &) = delete;
    IndexRegistry &operator=(const IndexRegistry &) = delete;

    const QList<Index *> &list() const { return m_list; }

    void append(Index *index)
    {
        keepWalks();
        m_list.append(index);
    }
    void removeOne(Index *index)
    {
        keepWalks();
        m_list.removeOne(index);
        leaveWalks(index);
    }
    void replace(const QList<Index *> &indexes)
    {
        const QList<Index *> before = m_list;
        keepWalks();
        m_list = indexes;
        for (Index *index : before) {
            if (!indexes.contains(index))
                leaveWalks(index);
        }
    }

    /// One walk, in the list of those under way, innermost first. It reads the registry itself
    /// until that changes, and from then on a copy.
    class Walk
    {
    public:
        explicit Walk(IndexRegistry &registry)
            : m_registry(registry)
            , m_indexes(&registry.m_list)
            , m_outer(registry.m_walks)
        {
            registry.m_walks = this;
        }
        ~Walk()
        {
            // Walks of several threads do not end in the order of a stack.
            Walk **walk = &m_registry.m_walks;
            while (*walk != this)
                walk = &(*walk)->m_outer;
            *walk = m_outer;
        }
        Walk(const Walk &) = delete;
        Walk &operator=(const Walk &) = delete;

        /// The next index, null at the end.
        Index *next()
        {
            while (m_next < m_indexes->size()) {
                if (Index *index = m_indexes->at(m_next++))
                    return index;
            }
            return nullptr;
        }
        /// Begins again, with the indexes that next() has given: all, or all but the last one.
        void turnBack(bool withLast)
        {
            keep();
            m_kept.erase(m_kept.begin() + qMax(m_next - int(!withLast), 0), m_kept.end());
            m_next = 0;
        }

    private:
        friend class IndexRegistry;

        void keep()
        {
            m_kept = *m_indexes;
            m_indexes = &m_kept;
        }

        IndexRegistry &m_registry;
        const QList<Index *> *m_indexes; // the registry's or m_kept
        QList<Index *> m_kept;           // null where one left
        int m_next = 0;
        Walk *m_outer;
    };

private:
    /// Called before the registry changes: the walks under way go on as it was.
    void keepWalks()
    {
        for (Walk *walk = m_walks; walk; walk = walk->m_outer)
            walk->keep();
    }
    /// Takes an index that left out of the walks under way. Its address is not looked for later: a
    /// new index may have it by then.
    void leaveWalks(Index *index)
    {
        for (Walk *walk = m_walks; walk; walk = walk->m_outer) {
            const int i = walk->m_kept.indexOf(index);
            if (i != -1)
                walk->m_kept[i] = nullptr;
        }
    }

    QList<Index *> m_list;   // borrowed
    Walk *m_walks = nullptr; // innermost of those under way
};
