#include "database/indexes/scratchmemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace
{

constexpr size_t kLargePage = size_t(2) << 20;

// Around the sizes at which memory is mapped, and mapped in large pages.
TEST(ScratchMemory, holdsWhatIsWrittenFromItsFirstByteToItsLast)
{
    for (const size_t size : {size_t(1), size_t(4096), size_t(128) << 10, kLargePage,
                              3 * kLargePage, 3 * kLargePage + kLargePage / 2}) {
        for (const size_t bytes : {size - 1, size, size + 1}) {
            SCOPED_TRACE(bytes);
            ScratchVector<unsigned char> first(bytes, 1);
            ScratchVector<unsigned char> second(bytes, 2); // next to the first one, maybe
            EXPECT_EQ(std::count(first.begin(), first.end(), 1), std::ptrdiff_t(bytes));
            EXPECT_EQ(std::count(second.begin(), second.end(), 2), std::ptrdiff_t(bytes));
            const bool isAligned = reinterpret_cast<uintptr_t>(first.data()) % kLargePage == 0;
            EXPECT_TRUE(isAligned || bytes < kLargePage);
        }
    }
}

TEST(ScratchMemory, keepsItemsWhileAnArrayGrowsAndMoves)
{
    ScratchVector<int> items;
    constexpr int kItems = 2000000;
    for (int i = 0; i < kItems; ++i)
        items.push_back(i);
    ScratchVector<int> taken;
    taken.swap(items);
    for (int i = 0; i < kItems; ++i)
        ASSERT_EQ(taken[size_t(i)], i);
    EXPECT_TRUE(items.empty());
}

TEST(ScratchMemory, isHandedOnWhileItIsKept)
{
    using Array = ScratchVector<unsigned char>;
    constexpr size_t kBytes = 3 * kLargePage - 5;
    std::optional<ScratchMemory::Keep> outer(std::in_place);
    const unsigned char *place = Array(kBytes).data();
    const ScratchMemory::Keep inner;
    outer.reset(); // one is enough
    const Array first(kBytes, 1);
    const Array second(kBytes, 2);
    const Array larger(kBytes + kLargePage, 3);
    EXPECT_EQ(first.data(), place);
    EXPECT_EQ(std::count(first.begin(), first.end(), 1), std::ptrdiff_t(kBytes));
}

TEST(ScratchMemory, saysThatThereIsNone)
{
    EXPECT_THROW(ScratchMemory::allocate(size_t(1) << 60), std::bad_alloc);
}

} // namespace
