#include "database/indexes/sortguide.h"

#include <algorithm>
#include <limits>
#include <new>

struct SortGuide::Block {
    Block() { std::fill_n(digests, kPosts, kNoDigest); }

    static constexpr quint64 kNoDigest = std::numeric_limits<quint64>::max();

    int posts = 0;
    quint16 places[kPosts];  // counted from the block's first row
    quint64 digests[kPosts]; // kNoDigest behind the last post

    /// Takes a row with the digest in before the one at \p place, into a block of \p rows.
    /// \return false when its group has become too large
    bool insert(int place, quint64 digest, int rows);
    /// Takes the row at \p place out of \p rows. \return false when few posts are left
    bool remove(int place, int rows) { return removeFrom(postOf(place), rows); }
    /// The same where the post of its group is known.
    bool insertInto(int post, quint64 digest, int rows);
    bool removeFrom(int post, int rows);
    /// The same for a row that goes from one group to another, of \p rows.
    bool move(int from, int to, quint64 digest, int rows);

    int countBelow(quint64 limit) const;
    int countUpTo(quint64 limit) const;
    int sizeOf(int post, int rows) const
    {
        return (post + 1 < posts ? places[post + 1] : rows) - places[post];
    }

    Marks *marksOf(int post) const;

private:
    struct AllMarks {
        Marks of[kPosts];
    };

    void forgetMarks(int post)
    {
        if (AllMarks *const all = m_marks.get())
            all->of[post].forget();
    }
    void erase(int post)
    {
        for (int behind = post; behind < posts; ++behind)
            forgetMarks(behind);
        --posts;
        std::copy(places + post + 1, places + posts + 1, places + post);
        std::copy(digests + post + 1, digests + posts + 1, digests + post);
        digests[posts] = kNoDigest;
    }
    /// Joins a group that has lost a row with the next one if that is called for.
    bool joinSmall(int post, int rows);
    template<class Before>
    int count(Before before) const;
    void shift(int from, int by)
    {
        for (int post = from; post < posts; ++post)
            places[post] = quint16(places[post] + by);
    }
    /// The last post at or before a place. All are compared: that takes fewer cycles than the
    /// branches of a search that cannot be predicted.
    int postOf(int place) const
    {
        quint16 count = 0;
        for (int post = 0; post < posts; ++post)
            count = quint16(count + (places[post] <= quint16(place)));
        return int(count) - 1;
    }

    /// Made by whichever reader comes first.
    class MarksPointer
    {
    public:
        ~MarksPointer() { delete get(); }
        AllMarks *get() const { return m_marks.load(std::memory_order_acquire); }
        AllMarks *make();

    private:
        std::atomic<AllMarks *> m_marks{nullptr};
    };
    mutable MarksPointer m_marks;
};

bool SortGuide::Block::insert(int place, quint64 digest, int rows)
{
    if (posts == 0) {
        posts = 1;
        places[0] = 0;
        digests[0] = digest;
        return true;
    }
    const int post = postOf(place);
    const bool isBefore = places[post] == place && digest < digests[post] && post > 0;
    return insertInto(isBefore ? post - 1 : post, digest, rows);
}

bool SortGuide::Block::insertInto(int post, quint64 digest, int rows)
{
    forgetMarks(post);
    digests[post] = qMin(digests[post], digest); // less only before all rows
    shift(post + 1, 1);
    return sizeOf(post, rows + 1) <= kLargeGroup;
}

bool SortGuide::Block::removeFrom(int post, int rows)
{
    forgetMarks(post);
    shift(post + 1, -1);
    return joinSmall(post, rows - 1);
}

bool SortGuide::Block::move(int from, int to, quint64 digest, int rows)
{
    forgetMarks(from);
    forgetMarks(to);
    digests[to] = qMin(digests[to], digest);
    for (int post = from + 1; post <= to; ++post)
        --places[post];
    for (int post = to + 1; post <= from; ++post)
        ++places[post];
    const bool fits = sizeOf(to, rows) <= kLargeGroup;
    return joinSmall(from, rows) && fits;
}

bool SortGuide::Block::joinSmall(int post, int rows)
{
    if (sizeOf(post, rows) == 0)
        erase(post);
    else if (post + 1 < posts && sizeOf(post, rows) + sizeOf(post + 1, rows) <= kGroup / 2)
        erase(post + 1);
    return posts >= kFewPosts;
}

/// The number of posts whose digests come before something, which those of no post do not, or are
/// all taken for it. Few steps of many comparisons that do not wait for each other, nor for a
/// branch.
template<class Before>
int SortGuide::Block::count(Before before) const
{
    constexpr int kStride = 16;
    int from = 0;
    for (int post = kStride - 1; post < kPosts - 1; post += kStride)
        from += before(digests[post]) ? kStride : 0;
    int count = from;
    for (int post = 0; post < kStride; ++post)
        count += int(before(digests[from + post]));
    return qMin(count, posts);
}

int SortGuide::Block::countBelow(quint64 limit) const
{
    return count([limit](quint64 digest) { return digest < limit; });
}

int SortGuide::Block::countUpTo(quint64 limit) const
{
    return count([limit](quint64 digest) { return digest <= limit; });
}

// Marks -------------------------------------------------------------------------------------------

SortGuide::Block::AllMarks *SortGuide::Block::MarksPointer::make()
{
    AllMarks *marks = get();
    if (marks)
        return marks;
    std::unique_ptr<AllMarks> fresh(new (std::nothrow) AllMarks);
    if (!fresh || !m_marks.compare_exchange_strong(marks, fresh.get(), std::memory_order_acq_rel))
        return marks; // another thread's, or none
    return fresh.release();
}

SortGuide::Marks *SortGuide::Block::marksOf(int post) const
{
    AllMarks *const all = m_marks.make();
    return all ? &all->of[post] : nullptr;
}

SortGuide::Marks *SortGuide::marks(const Group &group) const
{
    const size_t b = size_t(group.block);
    if (b >= m_blocks.size())
        return nullptr;
    const Block &block = *m_blocks[b];
    const int size = block.sizeOf(group.post, m_bases[b + 1] - m_bases[b]);
    if (size > Marks::kMost || group.last - group.first != size ||
        group.first != m_bases[b] + block.places[group.post])
        return nullptr;
    return block.marksOf(group.post);
}

quint64 SortGuide::Marks::markOf(quint64 digest)
{
    return qMax(digest * Q_UINT64_C(0x9E3779B97F4A7C15) >> 56, quint64(1));
}

bool SortGuide::Marks::areDue()
{
    // Another reader may count as well, or set marks, which must not be overwritten.
    quint64 visits = m_words[0].load(std::memory_order_relaxed);
    return !isSet(visits) &&
           m_words[0].compare_exchange_strong(visits, visits + kVisit, std::memory_order_relaxed) &&
           visits >= kVisits * kVisit;
}

void SortGuide::Marks::set(const quint64 *digests, int rows)
{
    for (int word = kMost / 8; word-- > 0;) { // the first one last: it tells that all are set
        quint64 marks = 0;
        for (int row = qMin(8 * word + 8, rows); row-- > 8 * word;)
            marks = marks << 8 | markOf(digests[row]);
        m_words[word].store(marks, std::memory_order_release);
    }
}

void SortGuide::Marks::forget()
{
    m_words[0].store(0, std::memory_order_relaxed);
}

quint32 SortGuide::Marks::fitting(quint64 digest) const
{
    constexpr quint64 kLowBits = Q_UINT64_C(0x7F7F7F7F7F7F7F7F);
    constexpr quint64 kGather = Q_UINT64_C(0x0102040810204080); // the lowest bits of bytes, on top
    const quint64 sought = markOf(digest) * Q_UINT64_C(0x0101010101010101);
    quint32 fitting = 0;
    for (int word = 0; word < kMost / 8; ++word) {
        const quint64 differing = m_words[word].load(std::memory_order_relaxed) ^ sought;
        const quint64 equal = ~(((differing & kLowBits) + kLowBits) | differing | kLowBits);
        fitting |= quint32((equal >> 7) * kGather >> 56) << (8 * word);
    }
    return fitting;
}

namespace
{

// The number of values, which rise, that come before something. Few steps of several comparisons
// that do not wait for each other.
template<class Before>
int partition(const quint64 *values, int n, Before before)
{
    constexpr int kWays = 8;
    int from = 0;
    int end = n;
    while (end - from > 2 * kWays) {
        const int stride = (end - from + kWays - 1) / kWays;
        int passed = 0;
        for (int way = 1; way < kWays; ++way)
            passed += int(before(values[qMin(from + way * stride, end) - 1]));
        from = qMin(from + passed * stride, end);
        end = qMin(from + stride, end);
    }
    int count = from;
    for (int i = from; i < end; ++i)
        count += int(before(values[i]));
    return count;
}

int countBelow(const quint64 *values, int n, quint64 limit)
{
    return partition(values, n, [limit](quint64 value) { return value < limit; });
}

int countUpTo(const quint64 *values, int n, quint64 limit)
{
    return partition(values, n, [limit](quint64 value) { return value <= limit; });
}

} // namespace

SortGuide::SortGuide()
    : m_bases(1, 0)
{
}

SortGuide::~SortGuide() = default;

SortGuide::Group SortGuide::group(quint64 digest) const
{
    const int b = countBelow(m_digests.data(), int(m_digests.size()), digest) - 1;
    if (b < 0)
        return groupAt(0, 0, digest);
    return groupAt(b, m_blocks[size_t(b)]->countBelow(digest), digest);
}

/// The range of a digest, given a block and in it, or behind it, the first post that is not below
/// the digest.
SortGuide::Group SortGuide::groupAt(int b, int post, quint64 digest) const
{
    const int blocks = int(m_blocks.size());
    Group range{{0, count(), 0, std::numeric_limits<quint64>::max()}, b, 0};
    if (blocks == 0)
        return range;
    if (post > 0) {
        const Block &block = *m_blocks[size_t(b)];
        range.post = post - 1;
        range.first = m_bases[size_t(b)] + block.places[post - 1];
        range.low = block.digests[post - 1];
    }
    const auto skipEnd = [&] { // from behind a block's posts to the next one's
        if (post == m_blocks[size_t(b)]->posts) {
            post = 0;
            ++b;
        }
        return b < blocks;
    };
    if (!skipEnd())
        return range;
    if (m_blocks[size_t(b)]->digests[post] == digest) { // rows that are equal may fill many groups
        // Never back, also where rows were written unseen and posts do not rise: a range is one.
        const int last = countUpTo(m_digests.data(), blocks, digest) - 1;
        post = qMax(last > b ? 0 : post, m_blocks[size_t(qMax(b, last))]->countUpTo(digest));
        b = qMax(b, last);
        if (!skipEnd())
            return range;
    }
    range.last = m_bases[size_t(b)] + m_blocks[size_t(b)]->places[post];
    range.high = m_blocks[size_t(b)]->digests[post];
    return range;
}

SortGuide::Range SortGuide::Walk::range(quint64 digest)
{
    constexpr int kSteps = 8; // before a search is cheaper
    const auto &digests = m_guide.m_digests;
    const int blocks = int(digests.size());
    if (blocks == 0)
        return {0, 0, 0, 0};
    const bool isFirst = m_block == -1;
    const int before = m_block;
    m_block = qMax(m_block, 0);
    for (int steps = 0; m_block + 1 < blocks && digests[size_t(m_block) + 1] < digest; ++m_block) {
        if (isFirst || ++steps == kSteps) {
            m_block += countBelow(&digests[size_t(m_block) + 1], blocks - m_block - 1, digest);
            break;
        }
    }
    if (m_block != before)
        m_post = 0;
    const Block &block = *m_guide.m_blocks[size_t(m_block)];
    for (int steps = 0; m_post < block.posts && block.digests[m_post] < digest; ++m_post) {
        if (isFirst || ++steps == kSteps) {
            m_post += countBelow(block.digests + m_post, block.posts - m_post, digest);
            break;
        }
    }
    return m_guide.groupAt(m_block, m_post, digest);
}

void SortGuide::clear()
{
    m_blocks.clear();
    m_digests.clear();
    m_bases.assign(1, 0);
}

void SortGuide::build(int count, const DigestAt &digestAt)
{
    clear();
    // Blocks begin three quarters full, so that they bear some growth.
    constexpr int kRows = kPosts * 3 / 4 * kGroup;
    std::vector<Post> posts;
    for (int base = 0; base < count; base += kRows) {
        const int rows = std::min(kRows, count - base);
        posts.clear();
        for (int place = 0; place < rows; place += kGroup)
            posts.push_back({place, digestAt(base + place)});
        replace(int(m_blocks.size()), 0, posts, rows);
    }
}

/// Puts blocks with \p posts, which divide so many rows, in the place of \p blocks old ones.
void SortGuide::replace(int block, int blocks, const std::vector<Post> &posts, int rows)
{
    const size_t pieces = (posts.size() + kPosts - 1) / kPosts;
    const int base = m_bases[size_t(block)];
    std::vector<std::unique_ptr<Block>> fresh;
    std::vector<quint64> digests;
    std::vector<int> bases; // behind each of them
    for (size_t p = 0; p < pieces; ++p) {
        const size_t first = posts.size() * p / pieces;
        const size_t last = posts.size() * (p + 1) / pieces;
        const int start = posts[first].place;
        fresh.push_back(std::make_unique<Block>());
        Block &filled = *fresh.back();
        for (size_t i = first; i < last; ++i) {
            filled.places[filled.posts] = quint16(posts[i].place - start);
            filled.digests[filled.posts++] = posts[i].digest;
        }
        digests.push_back(filled.digests[0]);
        bases.push_back(base + (last < posts.size() ? posts[last].place : rows));
    }
    const auto at = m_blocks.erase(m_blocks.begin() + block, m_blocks.begin() + block + blocks);
    m_blocks.insert(at, std::make_move_iterator(fresh.begin()),
                    std::make_move_iterator(fresh.end()));
    m_digests.erase(m_digests.begin() + block, m_digests.begin() + block + blocks);
    m_digests.insert(m_digests.begin() + block, digests.begin(), digests.end());
    m_bases.erase(m_bases.begin() + block + 1, m_bases.begin() + block + 1 + blocks);
    m_bases.insert(m_bases.begin() + block + 1, bases.begin(), bases.end());
}

// Following a change ------------------------------------------------------------------------------

// All rows that leave go before the first one comes. A row that stays and takes another digest is
// one that leaves and comes: beside a neighbour that has not been taken out yet it would be put
// into that neighbour's group, though its digest may be past the next post.
void SortGuide::update(const int *removed, int removals, const Insertion *inserted, int insertions,
                       const DigestAt &digestAt)
{
    const int rows = count() + insertions - removals;
    std::vector<bool> untidy(m_blocks.size());
    if (m_blocks.empty() || removals + insertions > qMax(count() / kRebuiltShare, 2)) {
        build(rows, digestAt);
        return;
    }
    takeOut(removed, removed + removals, untidy);
    if (m_blocks.empty() || !putIn(removed, removals, inserted, insertions, untidy)) {
        build(rows, digestAt);
        return;
    }
    for (int block = int(untidy.size()); block-- > 0;) {
        if (untidy[size_t(block)])
            tidy(block, digestAt);
    }
}

/// Moves the bases up to that of a block, those that have not been moved yet.
void SortGuide::shiftBases(int &next, int block, int by)
{
    int *const bases = m_bases.data();
    for (int b = next; b <= block; ++b)
        bases[b] += by;
    next = qMax(next, block + 1);
}

/// The last block from \p first on that begins at a position or before it.
int SortGuide::blockOf(int first, int position) const
{
    const auto above = std::upper_bound(m_bases.begin() + first + 1, m_bases.end() - 1, position);
    return int(above - m_bases.begin()) - 1;
}

/// Takes the rows at ascending positions out, and blocks that have none left.
void SortGuide::takeOut(const int *removed, const int *end, std::vector<bool> &untidy)
{
    const int blocks = int(m_blocks.size());
    bool isOneEmpty = false;
    int shifted = 0; // from this one on bases are those from before
    int taken = 0;
    for (int b = 0; removed != end; ++b) {
        b = blockOf(b, *removed);
        const int base = m_bases[size_t(b)];
        const int next = m_bases[size_t(b) + 1];
        shiftBases(shifted, b, -taken);
        int rows = next - base;
        for (int offset = base; removed != end && *removed < next; ++removed, ++offset, ++taken) {
            if (!m_blocks[size_t(b)]->remove(*removed - offset, rows--))
                untidy[size_t(b)] = true;
        }
        m_digests[size_t(b)] = m_blocks[size_t(b)]->digests[0];
        isOneEmpty |= rows == 0;
    }
    shiftBases(shifted, blocks, -taken);
    if (!isOneEmpty)
        return;
    size_t kept = 0;
    for (size_t b = 0; b < size_t(blocks); ++b) {
        if (m_bases[b] == m_bases[b + 1])
            continue;
        m_blocks[kept].swap(m_blocks[b]);
        m_digests[kept] = m_digests[b];
        m_bases[kept] = m_bases[b];
        untidy[kept++] = untidy[b];
    }
    m_bases[kept] = m_bases[size_t(blocks)];
    m_blocks.resize(kept);
    m_digests.resize(kept);
    m_bases.resize(kept + 1);
    untidy.resize(kept);
}

/// Takes rows in that come before ascending positions of the sequence as it was before rows were
/// taken out. \return false when a block has more rows than its places can count
bool SortGuide::putIn(const int *removed, int removals, const Insertion *inserted, int insertions,
                      std::vector<bool> &untidy)
{
    const int blocks = int(m_blocks.size());
    const int *const removedEnd = removed + removals;
    const Insertion *const end = inserted + insertions;
    int taken = 0; // rows taken out before the next one that comes
    const auto positionOfNext = [&] {
        for (; removed != removedEnd && *removed < inserted->position; ++removed)
            ++taken;
        return inserted->position - taken;
    };
    int shifted = 0; // from this one on bases are those from before
    int came = 0;
    for (int b = 0; inserted != end; ++b) {
        const int first = qMin(b, blocks - 1);
        b = blockOf(first, positionOfNext());
        if (b > first && positionOfNext() == m_bases[size_t(b)] &&
            inserted->digest < m_digests[size_t(b)])
            --b; // to the end of the block before
        const int base = m_bases[size_t(b)];
        const int next = m_bases[size_t(b) + 1];
        const bool isLast = b + 1 == blocks;
        shiftBases(shifted, b, came);
        int rows = next - base;
        for (; inserted != end; ++inserted) {
            const int position = positionOfNext();
            if (!isLast && (position > next ||
                            (position == next && inserted->digest >= m_digests[size_t(b) + 1])))
                break;
            if (!m_blocks[size_t(b)]->insert(position - next + rows, inserted->digest, rows))
                untidy[size_t(b)] = true;
            if (++rows > std::numeric_limits<quint16>::max())
                return false;
        }
        m_digests[size_t(b)] = m_blocks[size_t(b)]->digests[0];
        came += rows - (next - base);
    }
    shiftBases(shifted, blocks, came);
    return true;
}

void SortGuide::move(const Group &from, int removed, const Group &to, int inserted, quint64 digest,
                     const DigestAt &digestAt)
{
    // A row that stays comes behind itself or before itself, whichever its new group has.
    if (inserted == removed + 1 && inserted > to.last)
        --inserted;
    // Rows of one digest may fill several groups. One that comes between two of them goes to the
    // end of the earlier one.
    const auto seek = [this](const Group &group, int position) {
        int block = group.block;
        int post = group.post;
        for (; position >= m_bases[size_t(block) + 1]; post = 0)
            ++block;
        const Block &in = *m_blocks[size_t(block)];
        while (post + 1 < in.posts && m_bases[size_t(block)] + in.places[post + 1] <= position)
            ++post;
        return std::make_pair(block, post);
    };
    const auto [source, sourcePost] = seek(from, removed);
    const auto [target, targetPost] =
        inserted > to.first ? seek(to, inserted - 1) : std::make_pair(to.block, to.post);
    const auto rowsOf = [this](int block) {
        return m_bases[size_t(block) + 1] - m_bases[size_t(block)];
    };
    Block &targetBlock = *m_blocks[size_t(target)];
    Block &sourceBlock = *m_blocks[size_t(source)];
    bool isTidy[] = {true, true}; // the earlier block, the later one
    if (source == target) {
        isTidy[0] = targetBlock.move(sourcePost, targetPost, digest, rowsOf(source));
    } else {
        isTidy[target > source] = targetBlock.insertInto(targetPost, digest, rowsOf(target));
        isTidy[target < source] = sourceBlock.removeFrom(sourcePost, rowsOf(source));
        for (int block = source + 1; block <= target; ++block)
            --m_bases[size_t(block)];
        for (int block = target + 1; block <= source; ++block)
            ++m_bases[size_t(block)];
    }
    m_digests[size_t(source)] = sourceBlock.digests[0];
    m_digests[size_t(target)] = targetBlock.digests[0];
    if (!isTidy[1])
        tidy(qMax(source, target), digestAt);
    if (!isTidy[0])
        tidy(qMin(source, target), digestAt);
}

/// Divides a block's groups that have become too large, and joins a block that has become too small
/// with a neighbour.
void SortGuide::tidy(int block, const DigestAt &digestAt)
{
    if (size_t(block) >= m_blocks.size())
        return; // gone with a neighbour
    int blocks = 1;
    if (m_blocks[size_t(block)]->posts < kFewPosts && m_blocks.size() > 1) {
        blocks = 2;
        if (size_t(block) + 1 == m_blocks.size())
            --block;
    }
    const int base = m_bases[size_t(block)];
    std::vector<Post> posts;
    for (int b = block; b < block + blocks; ++b) {
        const Block &old = *m_blocks[size_t(b)];
        const int offset = m_bases[size_t(b)] - base;
        const int rows = m_bases[size_t(b) + 1] - m_bases[size_t(b)];
        for (int post = 0; post < old.posts; ++post) {
            const int place = old.places[post];
            const int size = (post + 1 < old.posts ? old.places[post + 1] : rows) - place;
            const int pieces = size > kLargeGroup ? (size + kGroup - 1) / kGroup : 1;
            posts.push_back({offset + place, old.digests[post]});
            for (int piece = 1; piece < pieces; ++piece) {
                const int at = offset + place + int(qint64(size) * piece / pieces);
                posts.push_back({at, digestAt(base + at)});
            }
        }
    }
    replace(block, blocks, posts, m_bases[size_t(block + blocks)] - base);
}

bool SortGuide::verify(const DigestAt &digestAt) const
{
    if (m_bases.size() != m_blocks.size() + 1 || m_digests.size() != m_blocks.size())
        return false;
    for (size_t b = 0; b < m_blocks.size(); ++b) {
        const Block &block = *m_blocks[b];
        if (block.posts < 1 || block.posts > kPosts || block.places[0] != 0 ||
            block.digests[0] != m_digests[b])
            return false;
        for (int post = 0; post < block.posts; ++post) {
            const int start = block.places[post];
            const int end =
                post + 1 < block.posts ? block.places[post + 1] : m_bases[b + 1] - m_bases[b];
            const int position = m_bases[b] + start;
            if (end <= start || end - start > kLargeGroup)
                return false;
            if (digestAt(position) < block.digests[post] ||
                (position > 0 && digestAt(position - 1) > block.digests[post]))
                return false;
        }
    }
    return true;
}
