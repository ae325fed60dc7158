#pragma once

// How a PartitionList takes a whole batch: the body of exchange(), included at the end of
// partitionlist.h.

#include "database/indexes/partitionlist.h"

/// One exchange. Everything that may fail is done while the list is still as it was: plan() finds
/// what happens to which chunk and gets all memory, run() moves handles.
template<class T>
class PartitionList<T>::Exchange
{
public:
    Exchange(PartitionList &list, const std::vector<int> &leaving, Arrival *first, Arrival *last)
        : m_list(list)
        , m_leaving(leaving)
        , m_arrivals(first)
        , m_arrivalCount(int(last - first))
        , m_left(leaving.size())
    {
    }

    void plan();
    std::vector<T> run() noexcept;

private:
    /// What happens to one chunk.
    struct Step {
        int part;
        int leavingFirst, leavingLast; // those that leave it
        int firstArrival, lastArrival; // those that come
        int total;                     // handles afterwards
        int pieces;                    // chunks that they are cut into
    };
    /// Handles of the chunk that stay side by side.
    struct Segment {
        int from;
        int size;
        int to;
    };

    /// The new order of a chunk, worked out by one thread for one chunk after the other.
    struct Traces {
        std::vector<Segment> segments;
        std::vector<int> places; // of those that come
    };
    // One thread alone waits for memory most of the time.
    static constexpr int kThreads = 4;
    // So many chunks, and handles that come or leave, are worth telling other threads.
    static constexpr int kManySteps = 8;
    static constexpr int kManyChanges = 128;

    int piecesOf(const Step &step) const;
    void takeLeaving() noexcept;
    void rearrangeAll() noexcept;
    void cut() noexcept;
    void trace(const Step &step, Traces &traces) const noexcept;
    int shiftOf(const Step &step, const Traces &traces) const noexcept;
    void rearrange(const Step &step, const Traces &traces) noexcept;
    void distribute(const Step &step, const Traces &traces, PartPtr *pieces) noexcept;
    T *itemOf(Arrival &arrival) noexcept
    {
        return arrival.left == -1 ? &arrival.item : &m_left[size_t(arrival.left)];
    }

    PartitionList &m_list;
    const std::vector<int> &m_leaving;
    Arrival *const m_arrivals;
    const int m_arrivalCount;
    std::vector<T> m_left;
    std::vector<Step> m_steps;
    std::vector<PartPtr> m_fresh; // the pieces of the chunks that are cut, in order
    std::vector<Traces> m_traces; // one for each thread
    QVector<typename PartitionList::Part *> m_parts; // the list's to be, when chunks are cut
};

// ------------------------------------------------------------------------------------------------

template<class T>
std::vector<T> PartitionList<T>::exchange(const std::vector<int> &leaving, Arrival *first,
                                          Arrival *last)
{
    Exchange exchange(*this, leaving, first, last);
    exchange.plan();
    std::vector<T> left = exchange.run();
    if (!leaving.empty())
        joinSmall(); // takes memory where joinSize is larger than a chunk
    return left;
}

template<class T>
void PartitionList<T>::Exchange::plan()
{
    m_list.reserveParts(1);
    const int leavers = int(m_leaving.size());
    const int arrivals = m_arrivalCount;
    int most = 0; // of what happens to one chunk
    for (int l = 0, a = 0; l < leavers || a < arrivals;) {
        int c = m_list.partCount();
        if (a < arrivals)
            c = m_list.partForInsert(m_arrivals[a].position);
        if (l < leavers)
            c = qMin(c, m_list.locate(m_leaving[size_t(l)]).part);
        if (c == m_list.partCount()) { // everything into an empty list
            Q_ASSERT(c == 0);
            m_steps.push_back({c, l, l, a, arrivals, arrivals - a, 1});
            break;
        }
        const int end = m_list.partStart(c + 1);
        Step step{c, l, l, a, a, m_list.part(c).size, 1};
        while (step.leavingLast < leavers && m_leaving[size_t(step.leavingLast)] < end)
            ++step.leavingLast;
        while (step.lastArrival < arrivals && m_arrivals[step.lastArrival].position <= end)
            ++step.lastArrival;
        l = step.leavingLast;
        a = step.lastArrival;
        step.total += (a - step.firstArrival) - (l - step.leavingFirst);
        m_steps.push_back(step);
    }
    int added = 0;
    for (Step &step : m_steps) {
        most =
            qMax(most, step.leavingLast - step.leavingFirst + step.lastArrival - step.firstArrival);
        const bool isNew = step.part == m_list.partCount();
        step.pieces = piecesOf(step);
        for (int j = 0; (isNew || step.pieces > 1) && j < step.pieces; ++j)
            m_fresh.push_back(m_list.makePart(pieceStart(step.total, step.pieces, j + 1) -
                                              pieceStart(step.total, step.pieces, j)));
        added += isNew ? step.pieces : step.pieces - 1;
    }
    const bool isShared = m_fresh.empty() && m_steps.size() >= size_t(kManySteps) &&
                          leavers + arrivals >= kManyChanges;
    m_traces.resize(isShared ? kThreads : 1);
    for (Traces &traces : m_traces) {
        traces.segments.reserve(size_t(most) + 1);
        traces.places.reserve(size_t(most));
    }
    if (!m_fresh.empty()) {
        m_parts.reserve(m_list.m_parts.size() + added);
        m_list.m_starts.reserve(size_t(m_parts.capacity()));
    }
}

template<class T>
int PartitionList<T>::Exchange::piecesOf(const Step &step) const
{
    if (step.total < m_list.m_partSize || step.firstArrival == step.lastArrival)
        return 1;
    const bool isOneBlock =
        step.leavingFirst == step.leavingLast &&
        m_arrivals[step.firstArrival].position == m_arrivals[step.lastArrival - 1].position;
    if (isOneBlock)
        return 2;
    return (step.total + m_list.m_partSize - 2) / (m_list.m_partSize - 1);
}

template<class T>
std::vector<T> PartitionList<T>::Exchange::run() noexcept
{
    takeLeaving();
    if (m_fresh.empty())
        rearrangeAll();
    else
        cut();
    m_list.dropEmpty();
    return std::move(m_left);
}

template<class T>
void PartitionList<T>::Exchange::takeLeaving() noexcept
{
    for (const Step &step : m_steps) {
        for (int l = step.leavingFirst; l < step.leavingLast; ++l) {
            const int offset = m_leaving[size_t(l)] - m_list.partStart(step.part);
            Relocate::replace(&m_left[size_t(l)], m_list.part(step.part).begin + offset, 1);
        }
    }
}

/// Each chunk keeps what is in it: threads may take different ones.
template<class T>
void PartitionList<T>::Exchange::rearrangeAll() noexcept
{
    const auto work = [](void *context, int thread) {
        Exchange &exchange = *static_cast<Exchange *>(context);
        const size_t threads = exchange.m_traces.size();
        const size_t steps = exchange.m_steps.size();
        Traces &traces = exchange.m_traces[size_t(thread)];
        for (size_t i = steps * size_t(thread) / threads; i < steps * size_t(thread + 1) / threads;
             ++i) {
            exchange.trace(exchange.m_steps[i], traces);
            exchange.rearrange(exchange.m_steps[i], traces);
        }
    };
    if (m_traces.size() == 1)
        work(this, 0);
    else
        Relocate::share(int(m_traces.size()), work, this);
}

/// Some chunks become several.
template<class T>
void PartitionList<T>::Exchange::cut() noexcept
{
    Traces &traces = m_traces.front();
    PartPtr *fresh = m_fresh.data();
    Entry from = m_list.m_parts.constData(); // entries before it stand in m_parts
    for (const Step &step : m_steps) {
        const bool isNew = step.part == m_list.partCount();
        trace(step, traces);
        if (!isNew && step.pieces == 1) {
            rearrange(step, traces);
            continue;
        }
        for (const Entry next = m_list.firstEntry() + step.part; from != next; ++from)
            m_parts.append(*from);
        distribute(step, traces, fresh);
        for (int j = 0; j < step.pieces; ++j) {
            (*fresh)->releaseTail();
            m_parts.append((fresh++)->release());
        }
        if (!isNew) {
            m_list.chunk(step.part).resize(0); // its handles have moved on
            delete *from++;
        }
    }
    for (; from != m_list.m_parts.constData() + m_list.m_parts.size(); ++from)
        m_parts.append(*from);
    m_list.m_parts.swap(m_parts);
}

/// Finds which handles of a chunk stay side by side, and the places of all that is in it
/// afterwards.
template<class T>
void PartitionList<T>::Exchange::trace(const Step &step, Traces &traces) const noexcept
{
    traces.segments.clear();
    traces.places.clear();
    const int start = m_list.partStart(step.part);
    const int size = m_list.partStart(qMin(step.part + 1, m_list.partCount())) - start;
    int from = 0;
    int to = 0;
    const auto passTo = [&](int offset) {
        if (offset > from)
            traces.segments.push_back({from, offset - from, to});
        to += offset - from;
        from = offset;
    };
    int l = step.leavingFirst;
    for (int a = step.firstArrival; a < step.lastArrival; ++a) {
        const int offset = m_arrivals[a].position - start;
        for (; l < step.leavingLast && m_leaving[size_t(l)] - start < offset; ++l, ++from)
            passTo(m_leaving[size_t(l)] - start);
        passTo(offset);
        traces.places.push_back(to++);
    }
    for (; l < step.leavingLast; ++l, ++from)
        passTo(m_leaving[size_t(l)] - start);
    passTo(size);
}

/// By how much a chunk's first handle moves in its array: not at all, or so that the last one
/// stays, whichever moves fewer handles, if there is room.
template<class T>
int PartitionList<T>::Exchange::shiftOf(const Step &step, const Traces &traces) const noexcept
{
    const Part &part = m_list.part(step.part);
    const int room = int(part.begin - part.array);
    const auto fits = [&](int shift) {
        return room + shift >= 0 && room + shift + step.total <= part.capacity;
    };
    const auto moved = [&](int shift) {
        int handles = 0;
        for (const Segment &segment : traces.segments)
            handles += segment.to + shift != segment.from ? segment.size : 0;
        return handles;
    };
    const int lastStays = part.size - step.total;
    if (!fits(0))
        return fits(lastStays) ? lastStays : -room;
    return fits(lastStays) && moved(lastStays) < moved(0) ? lastStays : 0;
}

/// Moves a chunk's handles within it. Segments that go down move first, in ascending order, then
/// those that go up, in descending order: no segment lands on one that has not moved yet.
template<class T>
void PartitionList<T>::Exchange::rearrange(const Step &step, const Traces &traces) noexcept
{
    Part &part = m_list.chunk(step.part);
    const int shift = shiftOf(step, traces);
    const T *const from = part.begin;
    T *const to = part.begin + shift;
    for (auto segment = traces.segments.begin(); segment != traces.segments.end(); ++segment) {
        if (segment->to + shift < segment->from)
            Relocate::move(to + segment->to, from + segment->from, segment->size);
    }
    for (auto segment = traces.segments.rbegin(); segment != traces.segments.rend(); ++segment) {
        if (segment->to + shift > segment->from)
            Relocate::move(to + segment->to, from + segment->from, segment->size);
    }
    for (int a = step.firstArrival; a < step.lastArrival; ++a) {
        T *const item = itemOf(m_arrivals[a]);
        Relocate::move(to + traces.places[size_t(a - step.firstArrival)], item, 1);
        Relocate::makeEmpty(item, 1);
    }
    part.begin = to;
    part.resize(step.total);
}

/// Moves a chunk's handles, and what comes, to the pieces that it is cut into.
template<class T>
void PartitionList<T>::Exchange::distribute(const Step &step, const Traces &traces,
                                            PartPtr *pieces) noexcept
{
    int piece = 0;
    const auto pieceEnd = [&] { return pieceStart(step.total, step.pieces, piece + 1); };
    int next = 0; // place among all of them
    const auto put = [&](const T *from, int n) {
        while (n > 0) {
            while (next == pieceEnd())
                ++piece;
            Part &target = *pieces[piece];
            const int fits = qMin(n, pieceEnd() - next);
            Relocate::move(target.end, from, fits);
            target.resize(target.size + fits);
            from += fits;
            n -= fits;
            next += fits;
        }
    };
    const T *const old = step.part < m_list.partCount() ? m_list.part(step.part).begin : nullptr;
    auto segment = traces.segments.begin();
    for (int a = step.firstArrival; a < step.lastArrival; ++a) {
        for (; segment != traces.segments.end() && segment->to == next; ++segment)
            put(old + segment->from, segment->size);
        T *const item = itemOf(m_arrivals[a]);
        put(item, 1);
        Relocate::makeEmpty(item, 1);
    }
    for (; segment != traces.segments.end(); ++segment)
        put(old + segment->from, segment->size);
}
