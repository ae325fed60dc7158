#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <database/indexes/indexlist.h>
#include <database/tables/tableindexrebuilder.h>

#include <gtest/gtest.h>

#include <memory>

class IndexRebuilder : public ::testing::Test
{
protected:
    IndexRebuilder()
    {
        appendTexts(m_table, {"1", "1"});
        for (RecordingIndex *index : all())
            m_table.addIndex(index);
        m_table.setIndexName(QStringLiteral("second"), &m_dependent);
        m_table.setIndexName(QStringLiteral("last"), &m_limit);
        QObject::connect(&m_table, &Table::indexRemoved,
                         [this](Index *index) { m_log.append("removed " + nameOf(index)); });
        QObject::connect(&m_table, &Table::indexAdded,
                         [this](Index *index) { m_log.append("added " + nameOf(index)); });
    }
    ~IndexRebuilder() override { m_table.setIndexes({}); }

    QList<RecordingIndex *> all() { return {&m_sort, &m_dependent, &m_join, &m_almost, &m_limit}; }
    QString nameOf(Index *index) { return index->getClassName(); }

    QStringList m_log;
    KeyedTable m_table;
    RecordingIndex m_sort{&m_table, "s", &m_log, "IndexSort"};
    RecordingIndex m_dependent{&m_table, "d", &m_log, "IndexDependList"};
    RecordingIndex m_join{&m_table, "j", &m_log, "TableJoinMain"};
    RecordingIndex m_almost{&m_table, "x", &m_log, "indexDependList"}; // the case counts
    RecordingIndex m_limit{&m_table, "l", &m_log, "IndexLimit"};
};

TEST_F(IndexRebuilder, buildsByGroupsAndRegistersInTheOldOrder)
{
    const QList<Index *> before = m_table.indexes();
    {
        const TableIndexRebuilder rebuilder(&m_table);
        EXPECT_EQ(m_log, (QStringList{"removed IndexSort", "removed IndexDependList",
                                      "removed TableJoinMain", "removed indexDependList",
                                      "removed IndexLimit", "j.clear", "d.clear", "s.clear",
                                      "x.clear", "l.clear"}));
        EXPECT_TRUE(m_table.indexes().isEmpty());
        EXPECT_EQ(m_table.namedIndex(QStringLiteral("last")), nullptr);
        m_log.clear();
        appendTexts(m_table, {"2", "2"});
        EXPECT_EQ(m_log, QStringList());
        m_sort.accepts = [](const Record &row) { return row.data(0).value<qint32>() == 2; };
    }
    EXPECT_EQ(m_log, (QStringList{"j.build", "d.build", "s.build", "x.build", "l.build",
                                  "added IndexSort", "added IndexDependList", "added TableJoinMain",
                                  "added indexDependList", "added IndexLimit"}));
    EXPECT_EQ(m_table.indexes(), before);
    EXPECT_EQ(m_table.indexName(&m_dependent), QStringLiteral("second"));
    EXPECT_EQ(m_table.indexName(&m_limit), QStringLiteral("last"));
    EXPECT_EQ(m_table.indexName(&m_sort), QString());
    EXPECT_EQ(m_table.namedIndex(QString()), nullptr);
    EXPECT_EQ(rows(m_join.held), rows(m_table));
    EXPECT_EQ(rows(m_sort.held), QStringList{"2 2 NULL NULL"});
}

TEST_F(IndexRebuilder, putsEveryIndexBackWhenABuildThrows)
{
    const QList<Index *> before = m_table.indexes();
    for (RecordingIndex *index : {&m_join, &m_sort}) {
        index->onCall = [index](const QString &call) {
            if (call == QLatin1String("build"))
                throw index->getClassName();
        };
    }
    auto rebuilder = std::make_unique<TableIndexRebuilder>(&m_table);
    EXPECT_EQ(thrownBy([&] { delete rebuilder.release(); }),
              QStringLiteral("QString: TableJoinMain"));
    EXPECT_EQ(m_table.indexes(), before);
    EXPECT_EQ(rows(m_limit.held), rows(m_table));
    // Another error under way is the one that counts.
    EXPECT_EQ(thrownBy([&] {
                  const TableIndexRebuilder inner(&m_table);
                  throw QStringLiteral("disk");
              }),
              QStringLiteral("QString: disk"));
    EXPECT_EQ(m_table.indexes(), before);
    m_table.setIndexes({});
    m_join.onCall = m_sort.onCall = nullptr;
}

TEST_F(IndexRebuilder, putsEveryIndexBackWhenAClearThrows)
{
    const QList<Index *> before = m_table.indexes();
    m_dependent.onCall = [](const QString &) { throw QStringLiteral("busy"); };
    EXPECT_EQ(thrownBy([&] { const TableIndexRebuilder rebuilder(&m_table); }),
              QStringLiteral("QString: busy"));
    EXPECT_EQ(m_table.indexes(), before);
    EXPECT_EQ(m_table.indexName(&m_limit), QStringLiteral("last"));
    EXPECT_EQ(rows(m_limit.held), rows(m_table));
    m_dependent.onCall = nullptr;
}
