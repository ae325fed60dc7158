// What an index promises of its comparison, and what becomes of it when that is not so.

#include "indexes/indexfixture.h"

#include <database/indexes/indexvector.h>
#include <database/tables/cellcompare.h>

#include "support/printing.h"

#include <QtCore/qscopeguard.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <random>

namespace
{

int failingAllocation = 0; // counts down; at 1 the next one fails

} // namespace

void *operator new(std::size_t size)
{
    if (failingAllocation > 0 && --failingAllocation == 0)
        throw std::bad_alloc();
    if (void *const memory = std::malloc(size > 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    const bool fails = failingAllocation > 0 && --failingAllocation == 0;
    return fails ? nullptr : std::malloc(size > 0 ? size : 1);
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace
{

/// The warnings since it was made.
class Warnings
{
public:
    Warnings()
    {
        texts().clear();
        m_previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &,
                                               const QString &text) { texts().append(text); });
    }
    ~Warnings() { qInstallMessageHandler(m_previous); }
    static QStringList &texts()
    {
        static QStringList texts;
        return texts;
    }

private:
    QtMessageHandler m_previous;
};

/// Instruments by a code, which a class derived from the key index compares in its own way.
class Codes : public Table
{
public:
    Codes()
        : Table(QStringLiteral("codes"), QString())
    {
        addColumn(QStringLiteral("Code"), FieldType::VarChar, 8, false);
        addColumn(QStringLiteral("Count"), FieldType::Integer, 0, false);
    }
    Record keyed(const QString &code) const
    {
        const Record record(this);
        record.data(0).setValue(code);
        return record;
    }
    static QString codeOf(const Record &record) { return record.data(0).value<QString>(); }
};

using Order = int (*)(const QString &a, const QString &b);

class ByCode : public MasterIndex_Column_Pure
{
public:
    ByCode(Table *table, Order order)
        : MasterIndex_Column_Pure(table, QStringLiteral("Code"))
        , m_order(order)
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        return m_order(Codes::codeOf(a), Codes::codeOf(b));
    }

private:
    const Order m_order;
};

TEST(DerivedKey, isComparedInItsOwnWay)
{
    const std::pair<const char *, Order> orders[] = {
        {"case-insensitive",
         [](const QString &a, const QString &b) { return a.compare(b, Qt::CaseInsensitive); }},
        {"descending", [](const QString &a, const QString &b) { return b.compare(a); }},
        {"numeric", [](const QString &a,
                       const QString &b) { return a.toInt(nullptr, 36) - b.toInt(nullptr, 36); }},
    };
    for (const auto &[name, order] : orders) {
        SCOPED_TRACE(name);
        Codes table;
        table.setMasterIndex(new ByCode(&table, order));
        std::mt19937 random(1);
        std::vector<QString> codes;
        for (int i = 0; i < 300; ++i)
            codes.push_back(QString::number(i * 37 % 300, 36));
        for (int round = 0; round < 6; ++round) {
            std::shuffle(codes.begin(), codes.end(), random);
            RecordsTrans batch(&table);
            for (size_t i = 0; i < codes.size() / (round == 0 ? 1 : 10); ++i) {
                const bool isUpper = order == orders[0].second && random() % 2;
                const Record key = table.keyed(isUpper ? codes[i].toUpper() : codes[i]);
                batch.upsertRow(key).field(1).setValue(round);
            }
            const TableUpdate bracket(table);
            batch.execute();
        }
        EXPECT_EQ(table.rowCount(), 300) << "no twins";
        EXPECT_TRUE(table.masterIndex()->verify());
        for (const Record &record : *table.masterIndex())
            ASSERT_EQ(table.masterIndex()->find(record.clone(), -1), record);
    }
}

/// Tells what it is asked to, and compares as it likes.
class Teller : public IndexSort
{
public:
    using Compare = int (*)(const Record &a, const Record &b);

    Teller(Table *table, Compare compare, const QList<int> &sorted, const QList<int> &others = {})
        : IndexSort(table, true)
        , m_compare(compare)
    {
        setColumns(sorted, others);
    }
    int compare(const Record &a, const Record &b) const override { return m_compare(a, b); }
    using IndexSort::forgetColumns;
    using IndexSort::reads;
    using IndexSort::setKeyBytes;

private:
    const Compare m_compare;
};

/// Inherits from a class that has told.
class Heir : public Teller
{
public:
    Heir(Table *table, bool tellsAgain)
        : Teller(table,
                 [](const Record &a, const Record &b) {
                     return cellOf(a, kPrice) - cellOf(b, kPrice);
                 },
                 {kPrice})
    {
        if (tellsAgain)
            setColumns({kPrice}, {kListed});
    }
};

TEST(ToldColumns, holdForTheClassThatTellsThem)
{
    QuoteTable table;
    Heir silent(&table, false);
    EXPECT_TRUE(silent.reads(kLots, kLots)) << "what its filter reads is not known";
    Heir telling(&table, true);
    EXPECT_FALSE(telling.reads(kLots, kLots));
    EXPECT_TRUE(telling.reads(kListed, kListed));
    telling.forgetColumns();
    EXPECT_TRUE(telling.reads(kLots, kLots));
    const Teller nothing(
        &table,
        [](const Record &a, const Record &b) { return cellOf(a, kLots) - cellOf(b, kLots); }, {});
    EXPECT_TRUE(nothing.reads(kLots, kLots)) << "columns that are not told are not none";
    for (Index *index : {static_cast<Index *>(&silent), static_cast<Index *>(&telling)})
        EXPECT_FALSE(index->contains(Record()));
    EXPECT_EQ(silent.find(Record(), -1), Record());
    EXPECT_EQ(silent.findAll({Record()}), QList<Record>{Record()});
    EXPECT_EQ(silent.searchLast(Record(), -1), -1);
    EXPECT_EQ(silent.searchFull(Record(), -1), -1);
    EXPECT_EQ(silent.indexOfs({Record()}), (QMap<Record, int>{{Record(), -1}}));
}

TEST(ToldColumns, existOrAreRefused)
{
    QuoteTable table;
    const auto tell = [&](const QList<int> &sorted, const QList<int> &others) {
        return thrownBy([&] {
            Teller(
                &table, [](const Record &, const Record &) { return 0; }, sorted, others);
        });
    };
    EXPECT_EQ(tell({kPrice, 4}, {}), "Column 4 not found in table 'quotes' to sort an index by.");
    EXPECT_EQ(tell({kPrice}, {-1}), "Column -1 not found in table 'quotes' to sort an index by.");
    EXPECT_TRUE(table.indexes().isEmpty());
    Teller index(&table, [](const Record &, const Record &) { return 0; }, {kPrice});
    for (const auto &[offset, length] : {std::pair{8, 8}, {16, 40}, {20, 8}, {16, -8}})
        EXPECT_NE(thrownBy([&] { index.setKeyBytes({kPrice}, offset, length); }), "") << offset;
    EXPECT_FALSE(index.reads(kLots, kLots)) << "what was told before stays";
}

// Through every road that a record takes. Rows that bring the contradiction come at once, or only
// when the index has been in use for long.
TEST(ToldColumns, costSpeedAndOneWarningWhereCompareContradicts)
{
    const std::pair<const char *, Teller::Compare> orders[] = {
        {"descending",
         [](const Record &a, const Record &b) { return cellOf(b, kPrice) - cellOf(a, kPrice); }},
        {"another column",
         [](const Record &a, const Record &b) { return cellOf(a, kId) % 7 - cellOf(b, kId) % 7; }},
        {"by tens",
         [](const Record &a, const Record &b) {
             return cellOf(a, kPrice) / 10 - cellOf(b, kPrice) / 10;
         }},
        {"descending above",
         [](const Record &a, const Record &b) {
             const auto keyOf = [](const Record &record) {
                 const int price = cellOf(record, kPrice);
                 return price < 1000 ? price : 5000 - price;
             };
             return keyOf(a) - keyOf(b);
         }},
    };
    for (const auto &[name, order] : orders) {
        for (const char *way : {"append", "build", "tick", "batch", "large batch", "update"}) {
            SCOPED_TRACE(testing::Message() << name << ", " << way);
            std::mt19937 random(9);
            QuoteTable table;
            Warnings warnings;
            Teller index(&table, order, {kPrice});
            const bool isBuilt = way == QLatin1String("build");
            if (isBuilt)
                table.removeIndex(&index);
            const int late = order == orders[3].second ? 1 : 2;
            for (int i = 0; i < 600; ++i)
                table.append(i, int(random() % (late == 1 && !isBuilt ? 1000 : 2000)));
            if (isBuilt) {
                index.build();
                table.addIndex(&index);
            }
            const int changes = way == QLatin1String("batch")         ? 20
                                : way == QLatin1String("large batch") ? 300
                                                                      : 1;
            for (int step = 0; step < 60; ++step) {
                RecordsTrans batch(&table);
                for (int i = 0; i < changes; ++i) {
                    const Record row = table.at(int(random() % 600));
                    const int price = int(random() % 2000);
                    if (way == QLatin1String("update")) {
                        row.data(kPrice).setValue(price);
                        table.updated(row, kPrice, kPrice, -1);
                    } else {
                        batch.updateRow(row).field(kPrice).setValue(price);
                    }
                }
                batch.execute();
                index.find(table.row(-1, int(random() % 2000)), -1);
            }
            const QString expected = QStringLiteral("(anonymous namespace)::Teller of table "
                                                    "'quotes': compare() does not order by the "
                                                    "columns that were told; sorting by compare() "
                                                    "alone");
            Warnings::texts().removeAll("update Full search can impact the performance");
            EXPECT_EQ(Warnings::texts(), QStringList{expected});
            EXPECT_EQ(index.count(), 600);
            EXPECT_TRUE(index.verify());
            EXPECT_TRUE(std::is_sorted(index.begin(), index.end(), IndexSort::LessThan(&index)));
            for (const Record &record : index)
                ASSERT_EQ(index.at(index.indexOf(record)), record);
        }
    }
}

/// By a price in a double.
class ByDouble : public IndexSort
{
public:
    explicit ByDouble(Table *table)
        : IndexSort(table, true)
    {
        setColumns({1});
    }
    int compare(const Record &a, const Record &b) const override
    {
        return compareCells(*table()->columnDef(1), a, b);
    }
};

TEST(DoublesInAnIndex, haveNanBehindInfinity)
{
    Table table(QStringLiteral("doubles"), QString());
    table.addColumn(QStringLiteral("id"), FieldType::Integer, 0, false);
    table.addColumn(QStringLiteral("price"), FieldType::Double, 0);
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringLiteral("id")));
    ByDouble index(&table);
    const auto row = [&](int id, double price) {
        const Record record(&table);
        record.data(0).setValue(id);
        record.data(1).setValue(price);
        return record;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    std::mt19937 random(2);
    const auto draw = [&] {
        const double rare[] = {nan, infinity, -infinity, -0.0};
        return random() % 5 ? double(random() % 100) / 4 - 10 : rare[random() % 4];
    };
    Warnings warnings;
    for (int i = 0; i < 500; ++i)
        table.appendRow(row(i, draw()).row());
    for (int step = 0; step < 200; ++step) {
        RecordsTrans batch(&table);
        for (int i = step % 4 == 0 ? 100 : 1; i > 0; --i)
            batch.updateRow(table.at(int(random() % 500))).field(1).setValue(draw());
        batch.execute();
        ASSERT_TRUE(index.verify()) << step;
        for (const double sought : {nan, infinity, 0.0, 3.25}) {
            const auto matches = [&](const Record &record) {
                const double price = record.data(1).value<double>();
                return price == sought || (std::isnan(price) && std::isnan(sought));
            };
            const auto place = std::find_if(index.begin(), index.end(), matches);
            const int expected = place == index.end() ? -1 : int(place - index.begin());
            ASSERT_EQ(index.search(row(-1, sought), -1), expected) << sought;
            const auto matching = int(std::count_if(index.begin(), index.end(), matches));
            ASSERT_EQ(index.searchLast(row(-1, sought), -1),
                      matching ? expected + matching - 1 : -1);
        }
    }
    EXPECT_EQ(Warnings::texts(), QStringList());
}

#ifndef QT_NO_DEBUG
TEST(KeyWrittenUnseen, isAsserted)
{
    for (const bool tells : {false, true}) {
        const auto writeAndGoOn = [=] {
            QuoteTable table;
            QuoteSort index(&table, kPrice, false, true, tells);
            for (int i = 0; i < 100; ++i)
                table.append(i, i);
            for (const Record &record : index) {
                if (cellOf(record, kId) == 50)
                    record.data(kPrice).setValue(1); // through a const handle
            }
            RecordsTrans batch(&table);
            batch.updateRow(table.at(90)).field(kPrice).setValue(200);
            batch.execute();
        };
        EXPECT_DEATH(writeAndGoOn(), "ASSERT");
    }
}
#endif

/// Counts what it hears of.
template<class Base>
class Counting : public Base
{
public:
    using Base::Base;
    int compare(const Record &a, const Record &b) const
    {
        return cellOf(a, kPrice) - cellOf(b, kPrice);
    }
    bool filter(const Record &record) const override { return cellOf(record, kListed) != 0; }
    void add(const Record &record) override
    {
        ++added;
        Base::add(record);
    }
    void remove(const Record &record, int index) override
    {
        ++removed;
        Base::remove(record, index);
    }
    int added = 0;
    int removed = 0;
};

TEST(SingleRecordCalls, areMadeAsTheHeadersSay)
{
    for (const int rows : {1, 2, 40}) { // a tick, a batch, a walk past all
        QuoteTable table;
        Counting<IndexSort> sorted(&table, true);
        Counting<IndexVector> vector(&table);
        Counting<IndexList> list(&table, true);
        for (int i = 0; i < 60; ++i)
            table.append(i, i);
        EXPECT_EQ(sorted.added, 60);
        RecordsTrans batch(&table);
        for (int i = 0; i < rows; ++i)
            batch.updateRow(table.at(i)).field(kListed).setValue(0);
        batch.execute();
        EXPECT_EQ(sorted.removed, 0) << rows;
        EXPECT_EQ(vector.removed, rows);
        EXPECT_EQ(list.removed, rows);
        sorted.added = vector.added = list.added = 0;
        table.build();
        EXPECT_EQ(sorted.added, 0);
        EXPECT_EQ(vector.added, 60 - rows);
        EXPECT_EQ(list.added, 60 - rows);
        EXPECT_EQ(idsOf(list), idsOf(sorted));
        EXPECT_EQ(idsOf(vector.records()), idsOf(sorted));
    }
}

/// Has no memory for a batch.
class StarvingKey : public MasterIndex_Column_Pure
{
public:
    using MasterIndex_Column_Pure::MasterIndex_Column_Pure;
    void process(const QList<Record> &removed, const QList<Record> &updated, int from, int to,
                 const QList<Record> &inserted) override
    {
        failingAllocation = failing;
        const auto end = qScopeGuard([] { failingAllocation = 0; });
        MasterIndex_Column_Pure::process(removed, updated, from, to, inserted);
    }
    int failing = 0; // which allocation of a batch; 0: none
};

TEST(MasterIndex, isCaughtUpWithByBuildWhenMemoryFailedInIt)
{
    int failures = 0;
    for (int failing = 1;; ++failing) {
        SCOPED_TRACE(failing);
        QuoteTable table;
        auto *const key = new StarvingKey(&table, QStringLiteral("Id"));
        table.setMasterIndex(key);
        QuoteSort index(&table, kPrice);
        for (int i = 0; i < 300; ++i)
            table.append(i, 300 - i);
        key->failing = failing;
        RecordsTrans batch(&table);
        for (int i = 0; i < 5; ++i) {
            batch.insertRow(table.row(1000 + i, i));
            batch.removeRow(table.at(20 + i));
            batch.updateRow(table.at(40 + i)).field(kPrice).setValue(5 * i);
        }
        bool failed = false;
        try {
            const TableUpdate bracket(table);
            batch.execute();
        } catch (const std::bad_alloc &) {
            failed = true;
        }
        key->failing = 0;
        failures += failed;
        table.build();
        const bool isIn = !key->find(table.row(1000), -1).isNull();
        EXPECT_EQ(isIn, !failed) << "all or nothing";
        EXPECT_EQ(table.rowCount(), 300);
        Ids ids = idsOf(index);
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(ids, idsOf(*key));
        EXPECT_TRUE(index.verify() && key->verify());
        EXPECT_EQ(cellOf(key->find(table.row(41), -1), kPrice), 5) << "updates stand";
        RecordsTrans next(&table);
        next.updateRow(table.at(7)).field(kPrice).setValue(1);
        next.execute();
        EXPECT_TRUE(index.verify());
        if (!failed || HasFailure())
            break;
    }
    EXPECT_GT(failures, 3);
}

} // namespace
