#pragma once

#include <QtCore/qglobal.h>

#include <algorithm>
#include <array>
#include <functional>
#include <utility>
#include <vector>

/// Sorts items that have a 64-bit \c digest by it, stably. Many are sorted by their bytes, least
/// significant first, leaving out those that all digests share; O(n) then, through \p buffer, which
/// is left with as many items that mean nothing. Items that are in order already, or in strictly
/// descending order, cost one look at each.
template<class Vector>
void sortByDigests(Vector &items, Vector &buffer)
{
    constexpr size_t kFew = 2048; // below it, counting costs more than comparing
    constexpr int kBits = 8;
    constexpr size_t kValues = size_t(1) << kBits;
    using T = typename Vector::value_type;
    const auto rises = [](const T &a, const T &b) { return a.digest < b.digest; };
    const auto falls = [](const T &a, const T &b) { return a.digest > b.digest; };
    if (items.size() < kFew) {
        std::stable_sort(items.begin(), items.end(), rises);
        return;
    }
    if (std::is_sorted(items.begin(), items.end(), rises))
        return;
    if (std::adjacent_find(items.begin(), items.end(), std::not_fn(falls)) == items.end()) {
        std::reverse(items.begin(), items.end());
        return;
    }
    quint64 differing = 0;
    for (const T &item : items)
        differing |= item.digest ^ items.front().digest;
    buffer.resize(items.size());
    for (int shift = 0; shift < 64; shift += kBits) {
        if ((differing >> shift & (kValues - 1)) == 0)
            continue;
        std::array<size_t, kValues> places{}; // where the next item of a value goes
        for (const T &item : items)
            ++places[item.digest >> shift & (kValues - 1)];
        size_t place = 0;
        for (size_t &each : places)
            place += std::exchange(each, place);
        for (const T &item : items)
            buffer[places[item.digest >> shift & (kValues - 1)]++] = item;
        items.swap(buffer);
    }
}

template<class Vector>
void sortByDigests(Vector &items)
{
    Vector buffer;
    sortByDigests(items, buffer);
}

/// Sorts items of one digest stably by \p less. Most are few, and a sort through a buffer would
/// allocate for each of them.
template<class It, class Less>
void sortTies(It first, It last, Less less)
{
    constexpr std::ptrdiff_t kFew = 16;
    if (last - first > kFew) {
        std::stable_sort(first, last, less);
        return;
    }
    for (It item = first; item != last; ++item)
        std::rotate(std::upper_bound(first, item, *item, less), item, item + 1);
}

/// The same, and orders items of one digest by \p less, stably. \p askFor(item) is called some
/// items ahead of the comparisons.
template<class Vector, class Less, class AskFor>
void sortByDigests(Vector &items, Vector &buffer, Less less, AskFor askFor)
{
    constexpr std::ptrdiff_t kAhead = 16;
    sortByDigests(items, buffer);
    auto asked = items.begin();
    for (auto first = items.begin(); first != items.end();) {
        const auto digest = first->digest;
        auto last = first + 1;
        bool sorted = true; // mostly what shares a digest is equal, and in order already
        for (; last != items.end() && last->digest == digest; ++last) {
            for (asked = std::max(asked, first); asked != items.end() && asked - last < kAhead;
                 ++asked)
                askFor(*asked);
            sorted = sorted && !less(*last, last[-1]);
        }
        if (!sorted)
            sortTies(first, last, less);
        first = last;
    }
}
