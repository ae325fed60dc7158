#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <database/tables/tableindexrebuilder.h>

#include <gtest/gtest.h>

class IndexRebuilder : public ::testing::Test
{
protected:
    IndexRebuilder()
    {
        appendTexts(m_table, {"1", "1"});
        m_table.setIndexName("last", &m_limit);
        m_log.clear();
    }

    QStringList m_log;
    KeyedTable m_table;
    RecordingIndex m_sort{"IndexSort", &m_log, &m_table};
    RecordingIndex m_depend{"IndexDependList", &m_log, &m_table};
    RecordingIndex m_join{"TableJoinMain", &m_log, &m_table};
    RecordingIndex m_limit{"IndexLimit", &m_log, &m_table};
    const QList<Index *> m_before = m_table.indexes();
};

TEST_F(IndexRebuilder, buildsByGroupsAndRegistersInTheOldOrder)
{
    const auto logAs = [this](const char *what) {
        return [=](Index *index) { m_log.append(what + index->getClassName()); };
    };
    const QObject scope;
    QObject::connect(&m_table, &Table::indexRemoved, &scope, logAs("removed "));
    QObject::connect(&m_table, &Table::indexAdded, &scope, logAs("added "));
    {
        const TableIndexRebuilder rebuilder(&m_table);
        EXPECT_EQ(m_log,
                  (QStringList{"removed IndexSort", "removed IndexDependList",
                               "removed TableJoinMain", "removed IndexLimit", "TableJoinMain.clear",
                               "IndexDependList.clear", "IndexSort.clear", "IndexLimit.clear"}));
        EXPECT_TRUE(m_table.indexes().isEmpty());
        m_log.clear();
        appendTexts(m_table, {"2", "2"});
        m_sort.accepts = [](const Record &row) { return row.data(0).value<qint32>() == 2; };
    }
    EXPECT_EQ(m_log, (QStringList{"TableJoinMain.build", "IndexDependList.build", "IndexSort.build",
                                  "IndexLimit.build", "added IndexSort", "added IndexDependList",
                                  "added TableJoinMain", "added IndexLimit"}));
    EXPECT_EQ(m_table.indexes(), m_before);
    EXPECT_EQ(m_table.indexName(&m_limit), "last");
    EXPECT_EQ(rows(m_sort), QStringList{"2 2 NULL NULL"});
}

TEST_F(IndexRebuilder, putsEveryIndexBackWhenACallThrows)
{
    for (const QString where : {"clear", "build"}) {
        for (RecordingIndex *index : {&m_join, &m_sort}) {
            index->onCall = [=](const QString &call) {
                if (call == where)
                    throw index->getClassName();
            };
        }
        EXPECT_EQ(thrownBy([&] { const TableIndexRebuilder rebuilder(&m_table); }),
                  "QString: TableJoinMain");
        EXPECT_EQ(m_table.indexes(), m_before);
        EXPECT_EQ(rows(m_limit), rows(*m_table.masterIndex()));
    }
    // The builds still throw, but another error under way is the one that counts.
    EXPECT_EQ(thrownBy([&] {
                  const TableIndexRebuilder rebuilder(&m_table);
                  throw QStringLiteral("disk");
              }),
              "QString: disk");
    m_sort.onCall = m_join.onCall = nullptr;
}
