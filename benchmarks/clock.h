#pragma once

#include <chrono>

/// How long \p work takes.
template<class Work>
double nanoseconds(const Work &work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto taken = std::chrono::steady_clock::now() - start;
    return std::chrono::duration<double, std::nano>(taken).count();
}
