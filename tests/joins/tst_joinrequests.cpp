#include "joins/joinfixture.h"

#include <gtest/gtest.h>

namespace
{

struct Request {
    const char *name;
    QStringList key;
    QList<QPair<QString, QString>> columns;
    const char *thrown; // behind "Table 'options' can't join 'stocks': "
};

void PrintTo(const Request &request, std::ostream *out)
{
    *out << request.name;
}

class JoinRequest : public testing::TestWithParam<Request>
{
};

} // namespace

TEST_P(JoinRequest, isRefusedBeforeAnythingHasChanged)
{
    Market market;
    market.options.addColumn("Fixed", FieldType::Integer, 0, false);
    market.options.addColumn("Short", FieldType::VarChar, 2);
    const int columns = market.options.columnCount();
    EXPECT_EQ(thrownBy([&] {
                  market.optionJoin.addTable(&market.stocks, GetParam().key, GetParam().columns);
              }),
              QString("QString: Table 'options' can't join 'stocks': ") + GetParam().thrown);
    EXPECT_EQ(market.options.columnCount(), columns);
    EXPECT_EQ(market.optionJoin.dependents().size(), 3);
    EXPECT_EQ(market.stocks.dependentIndexes().size(), 2);
}

INSTANTIATE_TEST_SUITE_P(
    Joins, JoinRequest,
    testing::Values(
        Request{"too_many_keys",
                {"Of", "Hedge"},
                {},
                "its key has 1 columns (Code), given are 2 (Of, Hedge)."},
        Request{"no_such_key", {"Off"}, {}, "there is no key column 'Off' in 'options'."},
        Request{"key_of_another_type",
                {"Lots"},
                {},
                "key column 'Lots' (Integer) does not match 'Code' (VarChar[3])."},
        Request{"no_such_column",
                {"Of"},
                {{"Last", "New"}, {"Price", ""}},
                "it has no column 'Price'."},
        Request{"twice",
                {"Of"},
                {{"Last", "New"}, {"Sector", "New"}},
                "column 'New' is to be joined twice."},
        Request{"another_type",
                {"Of"},
                {{"Last", "Short"}},
                "column 'Short' (VarChar[2]) can't take the values of 'Last' (Integer)."},
        Request{"too_short",
                {"Of"},
                {{"Code", "Short"}},
                "column 'Short' (VarChar[2]) can't take the values of 'Code' (VarChar[3])."},
        Request{"not_nullable",
                {"Of"},
                {{"Last", "Fixed"}},
                "column 'Fixed' (Integer) is not nullable."},
        Request{"own_key", {"Of"}, {{"Last", "Id"}}, "column 'Id' (Integer) is not nullable."},
        Request{"partner_s_key",
                {"Of"},
                {{"Code", "Of"}},
                "column 'Of' (VarChar[5]) is a key column of the same join."},
        Request{"earlier_key",
                {"Of"},
                {{"Code", "Hedge"}},
                "column 'Hedge' (VarChar[3]) is a key column of an earlier join."},
        Request{"joined_already",
                {"Of"},
                {{"Last", "HedgeLast"}},
                "column 'HedgeLast' (Integer) is joined already."}));

TEST(JoinRequestTest, refusesTablesThatDependOnEachOtherOrHaveNoKey)
{
    Market market;
    Table keyless("log", QString());
    keyless.addColumn("a", FieldType::Integer, 0);
    TableJoinMain back(&market.sectors);
    EXPECT_EQ(thrownBy([&] {
                  back.addTable(&market.options, {"Id"}, {{"Lots", ""}});
              }),
              "QString: Table 'sectors' can't join 'options': it depends on 'sectors' itself.");
    EXPECT_EQ(thrownBy([&] {
                  back.addTable(&market.sectors, {"Id"}, {{"Name", "x"}});
              }),
              "QString: Table 'sectors' can't join 'sectors': it depends on 'sectors' itself.");
    EXPECT_EQ(thrownBy([&] {
                  back.addTable(&keyless, {}, {{"a", ""}});
              }),
              "QString: Table 'sectors' can't join 'log': it has no key.");
    EXPECT_EQ(thrownBy([&] { back.addTable(nullptr, {}, {}); }),
              "QString: Table 'sectors' can't join '': there is no table to join.");
}
