// What feeds and desks make of a table, saved and loaded again, in step with a naive model.

#include "persistence/filefixture.h"
#include "support/batches.h"

#include <QtCore/qdir.h>
#include <QtCore/qtemporarydir.h>

namespace
{

class Files : public testing::TestWithParam<KeyKind>
{
protected:
    Files() { model.schema.addTo(table, GetParam()); }

    void run(const Batch &batch)
    {
        RecordsTrans trans(&table);
        TableModel::Pending pending;
        ASSERT_NO_FATAL_FAILURE(fill(trans, batch));
        trans.execute();
        model.fill(pending, batch);
        model.run(pending);
    }
    void compare(Table &loaded)
    {
        model.forgetBlocks();
        ASSERT_NO_FATAL_FAILURE(model.compare(loaded));
        model.forgetBlocks();
    }

    Table table{QStringLiteral("quotes"), QString()};
    TableModel model{Schema::ofEveryType(GetParam())};
    Random random{unsigned(GetParam())};
    BatchMaker maker{model, 300, random, 100};
};

} // namespace

TEST_P(Files, holdTheTableOfThePlainModel)
{
    TestCore core;
    const QTemporaryDir place;
    const QDir dir(place.path());
    Table standing(table.name(), QString()); // one that loads again and again
    model.schema.addTo(standing, GetParam());
    run(maker.everything());
    for (int step = 0; step < runSteps(60); ++step) {
        TRACE_STEP(step);
        ASSERT_NO_FATAL_FAILURE(run(maker.next()));
        if (step % 20 == 19) { // which the standing table does not have, or gets from the file
            model.addColumn(table,
                            {QString::number(step), FieldType::Type(1 + random.below(8)), 3});
        }
        core.compress = random.oneIn(2);
        QString error;
        ASSERT_TRUE(TableIO(&table).write(dir, &error)) << error.toStdString();
        ASSERT_TRUE(TableIO(&table).check(dir).sound);
        standing.clear();
        TableIO(&standing).read(dir, true);
        ASSERT_NO_FATAL_FAILURE(compare(standing));
        ASSERT_EQ(saved(standing), saved(table));
        if (GetParam() == ByValue) { // the key that a table without columns gets from a file
            Table fresh(table.name(), QString());
            TableIO(&fresh).read(dir, true);
            ASSERT_NO_FATAL_FAILURE(compare(fresh));
        }
        if (random.oneIn(10)) {
            table.clear();
            TableIO(&table).read(dir, false);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(TableIO, Files, testing::Values(AsBytes, ByValue, ByOwnOrder));
