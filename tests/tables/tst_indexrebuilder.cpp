#include "support/recordingindex.h"
#include "support/tablefixture.h"

#include <database/tables/tableindexrebuilder.h>

#include <gtest/gtest.h>

#include <memory>

class IndexRebuilder : public ::testing::Test
{
protected:
    IndexRebuilder()
    {
        m_dependent.className = QStringLiteral("IndexDependList");
        m_join.className = QStringLiteral("TableJoinMain");
        m_almost.className = QStringLiteral("indexDependList"); // the case counts
        appendTexts(m_table, {"1", "1"});
        m_table.setIndexName(QStringLiteral("second"), &m_dependent);
        m_table.setIndexName(QStringLiteral("last"), &m_almost);
        m_before = m_table.indexes();
        m_log.clear();
        QObject::connect(&m_table, &Table::indexRemoved,
                         [this](Index *index) { m_log.append("-" + index->getClassName()); });
        QObject::connect(&m_table, &Table::indexAdded,
                         [this](Index *index) { m_log.append("+" + index->getClassName()); });
    }
    QString calls() { return std::exchange(m_log, QStringList()).join(QStringLiteral(", ")); }
    void expectAllBack()
    {
        EXPECT_EQ(m_table.indexes(), m_before);
        EXPECT_EQ(m_table.indexName(&m_dependent), QStringLiteral("second"));
        EXPECT_EQ(m_table.indexName(&m_almost), QStringLiteral("last"));
        EXPECT_EQ(m_table.indexName(&m_sort), QString());
        EXPECT_EQ(m_table.namedIndex(QString()), nullptr);
        EXPECT_EQ(rows(m_almost), rows(m_table));
    }

    QStringList m_log;
    KeyedTable m_table;
    RecordingIndex m_sort{"s", &m_log, &m_table, true};
    RecordingIndex m_dependent{"d", &m_log, &m_table, true};
    RecordingIndex m_join{"j", &m_log, &m_table, true};
    RecordingIndex m_almost{"x", &m_log, &m_table, true};
    QList<Index *> m_before;
};

TEST_F(IndexRebuilder, buildsByGroupsAndRegistersInTheOldOrder)
{
    {
        const TableIndexRebuilder rebuilder(&m_table);
        EXPECT_EQ(calls(), QStringLiteral("-IndexList, -IndexDependList, -TableJoinMain, "
                                          "-indexDependList, j.clear, d.clear, s.clear, x.clear"));
        EXPECT_TRUE(m_table.indexes().isEmpty());
        EXPECT_EQ(m_table.namedIndex(QStringLiteral("last")), nullptr);
        appendTexts(m_table, {"2", "2"});
        EXPECT_EQ(calls(), QString());
        m_sort.accepts = [](const Record &row) { return row.data(0).value<qint32>() == 2; };
    }
    EXPECT_EQ(calls(), QStringLiteral("j.build, d.build, s.build, x.build, +IndexList, "
                                      "+IndexDependList, +TableJoinMain, +indexDependList"));
    expectAllBack();
    EXPECT_EQ(rows(m_sort), QStringLiteral("2 2 NULL NULL"));
}

TEST_F(IndexRebuilder, putsEveryIndexBackWhenOneThrows)
{
    const auto throwFrom = [](const char *where, const char *what) {
        return [=](const QString &call) {
            if (call == QLatin1String(where))
                throw QString::fromLatin1(what);
        };
    };
    m_sort.onCall = throwFrom("build", "second");
    m_join.onCall = throwFrom("build", "first");
    auto rebuilder = std::make_unique<TableIndexRebuilder>(&m_table);
    EXPECT_EQ(thrownBy([&] { delete rebuilder.release(); }), QStringLiteral("QString: first"));
    expectAllBack();
    // Another error under way is the one that counts.
    EXPECT_EQ(thrownBy([&] {
                  const TableIndexRebuilder inner(&m_table);
                  throw QStringLiteral("disk");
              }),
              QStringLiteral("QString: disk"));
    expectAllBack();
    m_dependent.onCall = throwFrom("clear", "busy");
    EXPECT_EQ(thrownBy([&] { const TableIndexRebuilder refused(&m_table); }),
              QStringLiteral("QString: busy"));
    expectAllBack();
}
