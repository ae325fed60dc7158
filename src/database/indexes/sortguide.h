#pragma once

#include <QtCore/qglobal.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

/// Signposts along a sorted sequence of rows: the digest of every 16th row or so, and where it
/// stands. A search that begins between two of them looks at a handful of rows instead of at one on
/// each level of the whole sequence, which is what costs when rows are not in the cache.
///
/// A post divides the sequence; the rows from one post up to the next are a group. Invariants:
///  (1) No row before a post has a greater digest than the post; no row behind it a smaller one.
///      The row that gave the digest may be gone.
///  (2) The first post stands at position 0, posts rise strictly, no group is empty.
///  (3) Posts lie in blocks of at most kPosts, with places counted from the block's first row, so
///      that an insertion touches one block and shifts the others as a whole.
///
/// About a byte of memory per row. Threads: as for a container.
class SortGuide
{
public:
    /// Positions first..last - 1, and the digests between which the rows there lie.
    struct Range {
        int first;
        int last;
        quint64 low;
        quint64 high;
    };
    /// A range, and where it begins: with the rows of that post of that block.
    struct Group : Range {
        int block;
        int post;
    };
    /// Marks of the rows of a group, a byte each that is made from the digest: by them a row is
    /// found without a look at most of the others. Made for groups that are asked for repeatedly,
    /// and forgotten when their rows change. Threads: readers of the guide may set them side by
    /// side, as all make the same.
    class Marks
    {
    public:
        static constexpr int kMost = 32; // rows

        bool areSet() const { return isSet(m_words[0].load(std::memory_order_acquire)); }
        /// Whether the group, whose marks are not set, has been asked for often enough.
        bool areDue();
        void set(const quint64 *digests, int rows);
        void forget();
        /// The bit of each row that may have the digest.
        quint32 fitting(quint64 digest) const;

    private:
        static constexpr quint64 kVisit = 0x100;
        static constexpr quint64 kVisits = 2; // before marks are made

        static quint64 markOf(quint64 digest); // not 0
        static bool isSet(quint64 first) { return first % kVisit != 0; }

        // Each holds the marks of eight rows, the first in its lowest byte. While that is 0 in the
        // first word no marks are set, and the rest of it counts visits.
        std::atomic<quint64> m_words[kMost / 8]{};
    };
    /// A search for a digest in a range, one probe after the other: first where the row should
    /// stand if digests lie evenly, then beside that, then where it should stand by what has been
    /// seen, and in the end halving what is left.
    class Search
    {
    public:
        Search() = default; ///< means nothing until another one is assigned
        Search(const Range &range, quint64 digest)
            : m_first(range.first)
            , m_last(range.last)
            , m_probe(guess(range, digest))
            , m_centre(m_probe)
            , m_probes(0)
            , m_digest(digest)
            , m_seen(range)
        {
        }
        bool isOpen() const { return m_first < m_last; }
        /// The position to look at.
        int probe() const { return m_probe; }
        /// \p precedes: whether what is looked for comes behind the row there.
        void narrow(bool precedes)
        {
            (precedes ? m_first : m_last) = m_probe + int(precedes);
            if (++m_probes < kProbesNearby)
                m_probe = precedes ? m_first : m_last - 1;
            else
                m_probe = m_first + (m_last - m_first) / 2;
        }
        /// The same where the digest of the row there is known.
        void narrow(bool precedes, quint64 digest)
        {
            if (precedes)
                m_first = m_probe + 1;
            else
                m_last = m_probe;
            (precedes ? m_seen.first : m_seen.last) = m_probe;
            (precedes ? m_seen.low : m_seen.high) = digest;
            m_probe = precedes ? m_first : m_last - 1;
            if (isNear(m_probe) || !isOpen())
                return;
            if (++m_probes < kGuesses)
                m_probe = qBound(m_first, guess(m_seen, m_digest), m_last - 1);
            else
                m_probe = m_first + (m_last - m_first) / 2;
            m_centre = m_probe;
        }
        /// The positions around the last guess, whose rows may as well be asked for together with
        /// the one to look at: most likely they come next.
        int nearFirst() const { return qMax(m_first, m_centre - kNear); }
        int nearEnd() const { return qMin(m_last, m_centre + kNear + 1); }
        /// Whether the probe is a guess, and not beside the one before.
        bool isGuess() const { return m_probe == m_centre; }
        /// Leaves out what lies before a position.
        void skipTo(int first)
        {
            m_first = qMax(m_first, first);
            m_last = qMax(m_last, first);
            m_probe = qMax(m_probe, first);
        }
        /// Once it is not open: where the row belongs.
        int place() const { return m_first; }
        int size() const { return m_last - m_first; }

    private:
        static constexpr int kProbesNearby = 3;
        static constexpr int kNear = 2;
        static constexpr int kGuesses = 4;

        bool isNear(int position) const
        {
            return position >= m_centre - kNear && position <= m_centre + kNear;
        }
        // Never outside the range, also for a digest that is: a position read by it is one of a
        // row.
        static int guess(const Range &range, quint64 digest)
        {
            if (digest <= range.low || range.high <= range.low)
                return range.first;
            const double share = double(digest - range.low) / (double(range.high - range.low) + 1);
            const double rows = range.last - range.first;
            return range.first + int(qMin(share * rows + 0.5, qMax(rows - 1, 0.0)));
        }

        int m_first;
        int m_last;
        int m_probe;
        int m_centre; // the last guess
        int m_probes;
        quint64 m_digest;
        Range m_seen; // the rows next to the open ones whose digests are known, and those
    };
    /// Asks for the ranges of ascending digests: goes on from one to the next.
    class Walk
    {
    public:
        explicit Walk(const SortGuide &guide)
            : m_guide(guide)
        {
        }
        Range range(quint64 digest);

    private:
        const SortGuide &m_guide;
        int m_block = -1; // the last one whose first digest is below the one before; -1 at first
        int m_post = 0;   // in it, the first one that is not
    };
    /// A row that comes before the row at \p position of the sequence as it was.
    struct Insertion {
        int position;
        quint64 digest;
    };
    using DigestAt = std::function<quint64(int position)>;

    SortGuide();
    ~SortGuide();

    /// The rows that the guide knows of.
    int count() const { return m_bases.back(); }
    /// Where rows of that digest stand, and where one more belongs: rows before the range have
    /// smaller digests or equal ones, and so on. O(log n); as long as a group or two, unless many
    /// rows share the digest.
    Range range(quint64 digest) const { return group(digest); }
    /// The same, with where the range begins.
    Group group(quint64 digest) const;
    /// The marks of a group that the guide has given since its last change. Null for a range that
    /// is more than that, and when there is no memory. Takes two bytes a row once it is called.
    Marks *marks(const Group &group) const;

    void clear();
    /// Sets posts along \p count rows.
    void build(int count, const DigestAt &digestAt);
    /// Follows a change of the sequence: the rows at so many positions \p removed left, others
    /// came; both ascend, and \p digestAt reads the sequence as it is now. A row that stays and
    /// takes another digest is one that left and came before the row behind it.
    void update(const int *removed, int removals, const Insertion *inserted, int insertions,
                const DigestAt &digestAt);
    /// Follows one row that left its position for another, or stayed and took another digest.
    /// \p from and \p to are groups as the guide has given them since its last change: that of the
    /// row, where \p removed lies in, and that of its new digest.
    /// \param inserted  where it comes, as Insertion::position
    void move(const Group &from, int removed, const Group &to, int inserted, quint64 digest,
              const DigestAt &digestAt);

    /// Whether invariant (2) and (3) hold, and (1) for the rows next to posts.
    bool verify(const DigestAt &digestAt) const;

private:
    static constexpr int kPosts = 128;
    static constexpr int kGroup = 16; // rows of a new group
    static constexpr int kLargeGroup = 2 * kGroup;
    static_assert(kLargeGroup <= Marks::kMost);

    static constexpr int kFewPosts = kPosts / 8;
    static constexpr int kRebuiltShare = 4; // more events than one in so many rows: begin anew

    struct Block;
    Group groupAt(int block, int post, quint64 digest) const;
    struct Post {
        int place; // of the rows that a list of posts divides
        quint64 digest;
    };

    void replace(int block, int blocks, const std::vector<Post> &posts, int rows);
    void shiftBases(int &next, int block, int by);
    int blockOf(int first, int position) const;
    void takeOut(const int *removed, const int *end, std::vector<bool> &untidy);
    bool putIn(const int *removed, int removals, const Insertion *inserted, int insertions,
               std::vector<bool> &untidy);
    void tidy(int block, const DigestAt &digestAt);

    std::vector<std::unique_ptr<Block>> m_blocks;
    std::vector<quint64> m_digests; // of each block's first post
    std::vector<int> m_bases;       // rows before each block, and behind the last one
};
