#pragma once

#include "database/indexes/digestsort.h"

/// Sorts items that have a 64-bit \c digest by it, stably. Some thousands at most whose digests lie
/// about evenly, as those of a batch do, are laid out by a guess of where they end up and then
/// moved by a few places each; O(n). Others are left to sortByDigests().
template<class Vector>
void spreadByDigests(Vector &items)
{
    using T = typename Vector::value_type;
    constexpr size_t kFew = 32;
    constexpr size_t kMany = 4096; // do not fit the nearest cache, places and all
    constexpr size_t kCrowd = 4;   // neighbours that an item passes, on average
    const size_t n = items.size();
    if (n < kFew || n > kMany) {
        sortByDigests(items);
        return;
    }
    quint64 low = items.front().digest;
    quint64 high = low;
    for (const T &item : items) {
        low = qMin(low, item.digest);
        high = qMax(high, item.digest);
    }
    int shift = 0; // leaves 32 bits of the distance from the lowest
    while ((high - low) >> shift >> 32 != 0)
        ++shift;
    const quint64 factor = (quint64(n) << 32) / (((high - low) >> shift) + 1);
    const auto slotOf = [=](const T &item) {
        return size_t((((item.digest - low) >> shift) * factor) >> 32);
    };
    std::array<quint32, kMany> places{}; // where the next item of a slot goes
    for (const T &item : items)
        ++places[slotOf(item)];
    size_t place = 0;
    size_t pairs = 0;
    for (size_t slot = 0; slot < n; ++slot) {
        const quint32 count = std::exchange(places[slot], quint32(place));
        place += count;
        pairs += size_t(count) * count;
    }
    if (pairs > kCrowd * n) {
        sortByDigests(items);
        return;
    }
    Vector sorted(n);
    for (const T &item : items)
        sorted[places[slotOf(item)]++] = item;
    for (size_t i = 1; i < n; ++i) {
        const T item = sorted[i];
        size_t at = i;
        for (; at > 0 && sorted[at - 1].digest > item.digest; --at)
            sorted[at] = sorted[at - 1];
        sorted[at] = item;
    }
    items.swap(sorted);
}

/// The same, and orders items of one digest by \p less, stably.
template<class Vector, class Less>
void spreadByDigests(Vector &items, Less less)
{
    spreadByDigests(items);
    const auto tie = [](const auto &a, const auto &b) { return a.digest == b.digest; };
    auto first = items.begin();
    while ((first = std::adjacent_find(first, items.end(), tie)) != items.end()) {
        const auto last =
            std::find_if(first, items.end(), [&](const auto &item) { return !tie(*first, item); });
        sortTies(first, last, less);
        first = last;
    }
}
