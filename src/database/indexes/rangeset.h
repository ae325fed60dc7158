#pragma once

#include <QtCore/qlist.h>

#include <algorithm>

/// A sorted set of disjoint half-open ranges, most often of positions in a list.
///
/// Invariants:
///  (1) bounds() holds start, end, start, end, ... and rises strictly.
///  (2) No two ranges touch: a range that ends where the next begins is stored as one.
template<class T>
class RangeSet
{
public:
    /// Starts at even places, the matching ends (exclusive) at odd ones.
    const QList<T> &bounds() const { return m_bounds; }
    bool isEmpty() const { return m_bounds.isEmpty(); }

    /// Adds [\p a, \p b); a range that is empty or runs backwards (a >= b) adds nothing.
    /// Amortised O(1) when the ranges come in ascending order, else O(log n) comparisons and one
    /// move of the bounds behind the new range.
    void addRange(const T &a, const T &b);

    void clear() { m_bounds.clear(); }

private:
    bool addAtEnd(const T &a, const T &b);

    QList<T> m_bounds; // invariants (1), (2)
};

// ------------------------------------------------------------------------------------------------

template<class T>
void RangeSet<T>::addRange(const T &a, const T &b)
{
    if (!(a < b) || addAtEnd(a, b))
        return;
    const auto begin = m_bounds.constBegin();
    const auto i = std::lower_bound(begin, m_bounds.constEnd(), a);
    const auto j = std::lower_bound(i, m_bounds.constEnd(), b);
    int first = int(i - begin); // bounds from first up to last give way to the new range
    int last = int(j - begin);
    T start = a;
    T end = b;
    if (first % 2 != 0) { // a lies in a range or on its end: that range's start stands
        --first;
        start = m_bounds.at(first);
    }
    if (last % 2 != 0) { // b lies in a range or on its end
        end = m_bounds.at(last);
        ++last;
    } else if (last < m_bounds.size() && !(b < m_bounds.at(last))) { // a range begins at b
        end = m_bounds.at(last + 1);
        last += 2;
    }
    // first and last are even: either whole ranges give way, or none does.
    if (first == last) {
        m_bounds.insert(first, end);
        m_bounds.insert(first, start);
        return;
    }
    m_bounds[first] = start;
    m_bounds[first + 1] = end;
    m_bounds.erase(m_bounds.begin() + first + 2, m_bounds.begin() + last);
}

/// Handles a range that lies behind all others or continues the last one; false for any other.
template<class T>
bool RangeSet<T>::addAtEnd(const T &a, const T &b)
{
    if (m_bounds.isEmpty() || m_bounds.constLast() < a) {
        m_bounds.append(a);
        m_bounds.append(b);
        return true;
    }
    if (a < m_bounds.at(m_bounds.size() - 2))
        return false;
    if (m_bounds.constLast() < b)
        m_bounds.last() = b;
    return true;
}
