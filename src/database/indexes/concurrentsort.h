#pragma once

#include "database/services/concurrently.h"

#include <QtCore/qglobal.h>

#include <algorithm>

/// Stable sort of a large range on Qt's global thread pool.
///
/// Elements are only moved and swapped, never copied. The tasks of one level work on disjoint
/// stretches that are fixed before the level starts; the comparison is copied into each task and
/// must bear being called by several threads at once.
namespace ConcurrentSort
{

/// One piece to sort.
template<class It, class Less>
struct BeginEnd {
    It begin;
    It end;
    Less lessThan;
};

/// Two adjacent sorted pieces to merge.
template<class It, class Less>
struct BeginMiddleEnd {
    It begin;
    It middle;
    It end;
    Less lessThan;
};

/// Sorts a piece stably, through a temporary buffer when one can be had, else in place.
template<class It, class Less>
void sort(const BeginEnd<It, Less> &piece)
{
    std::stable_sort(piece.begin, piece.end, piece.lessThan);
}

/// Merges two pieces into one; of equal elements those of the first piece come first.
template<class It, class Less>
void inplaceMerge(const BeginMiddleEnd<It, Less> &pieces)
{
    std::inplace_merge(pieces.begin, pieces.middle, pieces.end, pieces.lessThan);
}

/// Sorts [\p begin, \p end) stably by \p lessThan.
///
/// Fewer than 512 elements are sorted on the calling thread. More are cut into eight pieces that
/// differ in length by one at most; the pieces are sorted concurrently and merged in pairs on three
/// levels, the last of them on the calling thread. An exception from lessThan reaches the caller
/// as itself when all tasks of its level have ended; what the sort had in its buffers is lost then,
/// so that a list which must survive it is sorted through PartitionList::FlatView.
template<class It, class Less>
void stableSortHelper(It begin, It end, Less lessThan)
{
    using Piece = BeginEnd<It, Less>;
    using Pair = BeginMiddleEnd<It, Less>;
    constexpr int kPieces = 8;
    constexpr int kSortedDirectly = 512; // below it, starting threads costs more than it saves

    const qint64 n = end - begin;
    if (n < kSortedDirectly) {
        sort(Piece{begin, end, lessThan});
        return;
    }
    It cuts[kPieces + 1]; // piece i is [cuts[i], cuts[i + 1])
    for (int i = 0; i < kPieces; ++i)
        cuts[i] = begin + ((i * n) >> 3);
    cuts[kPieces] = end;

    Concurrently::forEach(kPieces, [&](int i) { sort(Piece{cuts[i], cuts[i + 1], lessThan}); });
    for (int width = 1; width < kPieces / 2; width *= 2) {
        Concurrently::forEach(kPieces / 2 / width, [&](int i) {
            const It *pair = &cuts[i * 2 * width];
            inplaceMerge(Pair{pair[0], pair[width], pair[2 * width], lessThan});
        });
    }
    inplaceMerge(Pair{begin, cuts[kPieces / 2], end, lessThan});
}

} // namespace ConcurrentSort
