// Where the records that a batch brings belong.

#include "database/indexes/sortaid.h"
#include "database/indexes/sortbatch.h"
#include "database/services/concurrently.h"

#include <algorithm>
#include <optional>

/// Finds places among the records that stay, for records in ascending order. Looks and changes
/// nothing but their positions, so that several may be at work on a batch.
class SortBatch::PlaceFinder
{
public:
    explicit PlaceFinder(SortBatch &batch)
        : m_batch(batch)
        , m_aid(batch.m_aid)
        , m_list(batch.m_index.m_list)
        , m_leaving(batch.m_leaving)
    {
        if (m_aid)
            m_walk.emplace(m_aid->guide);
    }

    /// Searches for the places of some of those that come.
    void find(Pending *first, Pending *last)
    {
        if (!m_aid) {
            std::for_each(first, last, [this](Pending &each) { findAnywhere(each); });
            return;
        }
        for (; first != last; first += qMin(last - first, std::ptrdiff_t(kTile)))
            findGuided(first, size_t(qMin(last - first, std::ptrdiff_t(kTile))));
    }

private:
    // Searches that go on side by side, so that the rows of all of them are on their way at once.
    static constexpr int kTile = 32;
    static constexpr int kShort = 64;

    using Leaver = std::vector<int>::const_iterator;

    /// A search among the positions of a range.
    struct Search {
        SortGuide::Range range;
        SortGuide::Search probes;
        const Record *stretch; // the records of the range if they lie side by side
        size_t leaver;         // the first of those that leave in the range or behind it
        const Record *stayer;  // at the probe, or before it; null if all before it leave
        bool isBehind;         // whether one was found that it comes behind
    };

    /// The nearest record at a position or before it, down to \p first, that stays; null if there
    /// is none. Along the list the answers of a search about those change once.
    const Record *stayerUpTo(int position, int first) const
    {
        const Leaver leaver = leaverFrom(position);
        if (leaver != m_leaving.end() && *leaver == position)
            position -= int(leaver - firstOfRun(leaver)) + 1;
        return position >= first ? &m_list.at(position) : nullptr;
    }
    Leaver leaverFrom(int position) const
    {
        return std::lower_bound(m_leaving.begin(), m_leaving.end(), position);
    }
    // Those that leave side by side: along a run, positions rise as the places in the list do.
    Leaver firstOfRun(Leaver leaver) const
    {
        const int *const base = m_leaving.data();
        const auto lag = *leaver - (&*leaver - base);
        return std::partition_point(m_leaving.begin(), leaver, [=](const int &position) {
            return position - (&position - base) < lag;
        });
    }
    Leaver endOfRun(Leaver leaver) const
    {
        const int *const base = m_leaving.data();
        const auto lag = *leaver - (&*leaver - base);
        return std::partition_point(leaver, m_leaving.end(), [=](const int &position) {
            return position - (&position - base) == lag;
        });
    }
    /// The same at the probe of a search in a short range, in which few leave.
    const Record *stayerAtProbe(const Search &search) const
    {
        int position = search.probes.probe();
        size_t leaver = search.leaver;
        while (leaver < m_leaving.size() && m_leaving[leaver] < position)
            ++leaver;
        if (leaver < m_leaving.size() && m_leaving[leaver] == position) {
            for (++leaver; leaver > search.leaver && m_leaving[leaver - 1] == position; --leaver)
                --position;
        }
        if (position < search.range.first)
            return nullptr;
        return search.stretch ? search.stretch + (position - search.range.first)
                              : &m_list.at(position);
    }
    const Record *stayerFrom(int position) const
    {
        const Leaver leaver = leaverFrom(position);
        if (leaver != m_leaving.end() && *leaver == position)
            position += int(endOfRun(leaver) - leaver);
        return position < m_list.count() ? &m_list.at(position) : nullptr;
    }
    int compare(const Record &stayer, const Pending &pending) const
    {
        if (m_aid) {
            const quint64 digest = m_aid->key(stayer.row());
            if (digest != pending.digest)
                return digest < pending.digest ? -1 : 1;
        }
        const int order = m_batch.m_index.compare(stayer, pending);
        if (order == 0 && m_batch.m_index.m_isKey)
            m_batch.m_equal = pending.row;
        return order;
    }
    void look(Search &search) const
    {
        search.stayer = isShort(search) ? stayerAtProbe(search)
                                        : stayerUpTo(search.probes.probe(), search.range.first);
    }
    void narrow(Search &search, const Pending &pending) const
    {
        const bool precedes = search.stayer && compare(*search.stayer, pending) <= 0;
        search.isBehind |= precedes;
        search.probes.narrow(precedes || !search.stayer);
    }
    void findAnywhere(Pending &pending)
    {
        const SortGuide::Range all{m_done, m_list.count(), 0, 1};
        Search search{all, {all, 0}, nullptr, 0, nullptr, false};
        while (search.probes.isOpen()) {
            look(search);
            narrow(search, pending);
        }
        m_done = pending.position = search.probes.place();
    }

    void findGuided(Pending *pending, size_t n)
    {
        Search searches[kTile];
        for (size_t i = 0; i < n; ++i) {
            const SortGuide::Range range = m_walk->range(pending[i].digest);
            if (m_done == 0 && i == 0) // others may have found places for those before
                m_leaver = size_t(leaverFrom(range.first) - m_leaving.begin());
            while (m_leaver < m_leaving.size() && m_leaving[m_leaver] < range.first)
                ++m_leaver;
            const Record *const stretch = m_list.stretch(range.first, range.last);
            searches[i] = {range, {range, pending[i].digest}, stretch, m_leaver, nullptr, false};
            if (searches[i].stretch)
                ::prefetch(searches[i].stretch + (searches[i].probes.probe() - range.first));
        }
        for (bool open = true; open;) {
            open = false;
            for (size_t i = 0; i < n; ++i) {
                if (!searches[i].probes.isOpen() || !isShort(searches[i]))
                    continue;
                look(searches[i]);
                if (searches[i].stayer)
                    m_aid->key.prefetch(searches[i].stayer->row());
                open = true;
            }
            for (size_t i = 0; i < n; ++i) {
                if (searches[i].probes.isOpen() && isShort(searches[i]))
                    narrow(searches[i], pending[i]);
            }
        }
        for (size_t i = 0; i < n; ++i) {
            Search &search = searches[i];
            search.probes.skipTo(m_done);
            while (search.probes.isOpen()) {
                look(search);
                narrow(search, pending[i]);
            }
            if (fits(search, search.probes.place(), pending[i]))
                m_done = pending[i].position = search.probes.place();
            else
                findAnywhere(pending[i]);
        }
    }
    // Longer ranges hold many equals, which what was found before mostly settles.
    static bool isShort(const Search &search)
    {
        return search.range.last - search.range.first <= kShort;
    }
    // Records that stay may have changed as well, and have passed a signpost on the way: what lies
    // beside the range is looked at where the search did not come away from its edge.
    bool fits(const Search &search, int place, const Pending &pending) const
    {
        if (!search.isBehind && place > m_done) {
            const Record *const before = stayerUpTo(place - 1, m_done);
            if (before && compare(*before, pending) > 0)
                return false;
        }
        const Record *const after = place >= search.range.last ? stayerFrom(place) : nullptr;
        return !after || compare(*after, pending) > 0;
    }

    SortBatch &m_batch;
    const SortAid *const m_aid;
    const PartitionList<Record> &m_list;
    const std::vector<int> &m_leaving;
    std::optional<SortGuide::Walk> m_walk;
    int m_done = 0;      // what is still to come belongs at this position or behind it
    size_t m_leaver = 0; // those that leave before it stand before the ranges to come
};

void SortBatch::findPlaces()
{
    if (!m_aid) {
        PlaceFinder(*this).find(m_pending.data(), m_pending.data() + m_pending.size());
        return;
    }
    Concurrently::forStretches(int(m_pending.size()), [this](int first, int last) {
        PlaceFinder(*this).find(m_pending.data() + first, m_pending.data() + last);
    });
    // Several positions mean the same place where records between them leave: each stretch may have
    // begun with another one than the stretch before it ended with.
    int position = 0;
    for (Pending &pending : m_pending)
        position = pending.position = qMax(pending.position, position);
}
