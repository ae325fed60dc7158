#pragma once

#include "database/services/concurrently.h"

#include <algorithm>

/// How functions over arrays of options divide their work.
namespace OptionBatch
{

/// Options that advance side by side, one kind of work for all before the next. The processor
/// overlaps them then, where the steps for a single option wait for each other.
constexpr int kBlock = 32;

/// A batch of fewer stretches of work stays on the calling thread: waking others costs as much as a
/// stretch or two. A stretch is some 40 microseconds long.
constexpr int kParallel = 8;

/// Calls \p work(first, count) for blocks that cover options 0..n - 1, on the pool if they are
/// many; one thread takes \p stretch options at a time, a multiple of kBlock.
template<class F>
void forBlocks(int n, int stretch, const F &work)
{
    const auto forStretch = [&](int begin, int end) {
        for (int i = begin; i < end; i += kBlock)
            work(i, std::min(kBlock, end - i));
    };
    if (n / stretch < kParallel) {
        forStretch(0, n);
        return;
    }
    Concurrently::forEach((n - 1) / stretch + 1, [&](int i) {
        const int begin = i * stretch;
        forStretch(begin, begin + std::min(stretch, n - begin));
    });
}

} // namespace OptionBatch
