#pragma once

#include <QtCore/qglobal.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

/// Sorts items that have a 64-bit \c digest by it, stably. Many are sorted by their bytes, least
/// significant first, leaving out those that all digests share; O(n) then, with a buffer of the
/// same size.
template<class T>
void sortByDigests(std::vector<T> &items)
{
    constexpr size_t kFew = 2048; // below it, counting costs more than comparing
    constexpr int kBits = 8;
    constexpr size_t kValues = size_t(1) << kBits;
    if (items.size() < kFew) {
        std::stable_sort(items.begin(), items.end(),
                         [](const T &a, const T &b) { return a.digest < b.digest; });
        return;
    }
    quint64 differing = 0;
    for (const T &item : items)
        differing |= item.digest ^ items.front().digest;
    std::vector<T> sorted(items.size());
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
            sorted[places[item.digest >> shift & (kValues - 1)]++] = item;
        items.swap(sorted);
    }
}

/// The same, and orders items of one digest by \p less, stably.
template<class T, class Less>
void sortByDigests(std::vector<T> &items, Less less)
{
    sortByDigests(items);
    for (auto first = items.begin(); first != items.end();) {
        const auto last = std::find_if(first, items.end(),
                                       [&](const T &item) { return item.digest != first->digest; });
        if (last - first > 1)
            std::stable_sort(first, last, less);
        first = last;
    }
}
