// Batches as feeds and people make them, run on a table and on a naive model of it, which are
// compared cell by cell. Keys that can be hashed and others enter a batch in different ways, and so
// do many keys that seldom meet and few that often do.

#include "support/batches.h"

#include <database/indexes/indexlist.h>

namespace
{

struct Kind {
    KeyKind keys;
    int count;
};

class Batches : public ::testing::TestWithParam<Kind>
{
protected:
    Batches() { model.schema.addTo(table, GetParam().keys); }

    Table table{QStringLiteral("quotes"), QString()};
    TableModel model{Schema::ofEveryType(GetParam().keys)};
};

} // namespace

// Each entry changes what it names and nothing else, in whatever order the batches run.
TEST_P(Batches, leaveTheTableOfThePlainModel)
{
    IndexList index(&table, true);
    Random random(unsigned(GetParam().keys * 100 + GetParam().count));
    BatchMaker maker(model, GetParam().count, random);
    for (const Pattern pattern : {Pattern::ReplaceAll, Pattern::Folds, Pattern::Ranges,
                                  Pattern::HiddenTexts, Pattern::SideBySide})
        maker.leaveOut(pattern);
    const bool sideBySide = maker.has(Pattern::SideBySide);
    RecordsTrans batches[2]{RecordsTrans(&table), RecordsTrans(&table)};
    TableModel::Pending pending[2];
    for (int step = 0; step < runSteps(1000); ++step) {
        TRACE_STEP(step);
        if (step % 200 == 199 && pending[0].empty() && pending[1].empty())
            model.addColumn(table, {QString::number(step), FieldType::Type(1 + step / 200 % 8), 3,
                                    random.oneIn(2)});
        const int which = sideBySide ? random.below(2) : 0;
        const Batch batch = maker.next(pending[which]);
        SCOPED_TRACE(batch.pattern);
        ASSERT_NO_FATAL_FAILURE(fill(batches[which], batch));
        model.fill(pending[which], batch);
        ASSERT_EQ(batches[which].isEmpty(), pending[which].empty());
        const int ready = sideBySide ? random.below(2) : 0;
        if (random.oneIn(3)) // the batch takes more in
            continue;
        const bool inBracket = random.oneIn(2);
        if (inBracket)
            table.beginUpdate();
        batches[ready].execute();
        if (inBracket)
            table.endUpdate();
        model.run(pending[ready]);
        ASSERT_NO_FATAL_FAILURE(model.compare(table));
        ASSERT_EQ(index.count(), table.rowCount());
        for (int i = 0; i < table.rowCount(); ++i)
            ASSERT_TRUE(index.contains(table.at(i))) << i;
    }
    for (RecordsTrans &batch : batches)
        batch.clear();
    for (const Record &record : index)
        ASSERT_EQ(refCount(record), 2) << "the table's and the list's";
}

INSTANTIATE_TEST_SUITE_P(Tables, Batches,
                         ::testing::Values(Kind{AsBytes, 200}, Kind{ByValue, 200},
                                           Kind{ByOwnOrder, 200}, Kind{AsBytes, 12},
                                           Kind{ByValue, 12}, Kind{ByOwnOrder, 12}));
