#pragma once

#include "database/services/concurrently.h"

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
    constexpr int kBits = 11;
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

/// The same, and orders items of one digest by \p less, stably: a thread of those that share work
/// (see Concurrently::share()) may take a part of them. \p askFor(item) is called some items ahead
/// of the comparisons.
template<class Vector, class Less, class AskFor>
void sortByDigests(Vector &items, Vector &buffer, Less less, AskFor askFor)
{
    constexpr std::ptrdiff_t kAhead = 16;
    constexpr size_t kManyTies = 8192; // could be worth telling other threads
    constexpr size_t kParts = 16;
    sortByDigests(items, buffer);
    const auto tie = [](const auto &a, const auto &b) { return a.digest == b.digest; };
    const auto end = items.end();
    const auto sortPart = [&](auto first, auto partEnd) {
        auto asked = first;
        while (first != partEnd) {
            auto last = first + 1;
            bool sorted = true; // mostly what shares a digest is equal, and in order already
            for (; last != partEnd && tie(*last, *first); ++last) {
                for (asked = std::max(asked, first); asked != partEnd && asked - last < kAhead;
                     ++asked)
                    askFor(*asked);
                sorted = sorted && !less(*last, last[-1]);
            }
            if (!sorted)
                sortTies(first, last, less);
            first = last;
        }
    };
    if (items.size() < kManyTies) {
        sortPart(items.begin(), end);
        return;
    }
    std::array<decltype(items.begin()), kParts + 1> cuts; // none within a run of ties
    cuts[0] = items.begin();
    for (size_t i = 1; i <= kParts; ++i) {
        cuts[i] = std::max(cuts[i - 1], items.begin() + std::ptrdiff_t(items.size() / kParts * i));
        while (cuts[i] != items.begin() && cuts[i] != end && tie(*cuts[i], cuts[i][-1]))
            ++cuts[i];
    }
    cuts[kParts] = end;
    Concurrently::forEach(
        int(kParts), [&](int i) { sortPart(cuts[size_t(i)], cuts[size_t(i) + 1]); },
        Concurrently::share);
}
