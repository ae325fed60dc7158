#pragma once

#include <database/joins/tablejoindep.h>
#include <database/joins/tablejoinmain.h>
#include <database/tables/cellcompare.h>
#include <database/tables/recordstrans.h>

#include "support/recordingindex.h"
#include "support/tablefixture.h"

/// Three tables in a chain: options show the price and the sector's name of their stock, which the
/// stocks show of their sector, and the price of a second stock, the hedge. They also show the
/// stock's sector number, by which they look up the sector's name themselves.
class Market
{
public:
    enum Sector { kSectorId, kSectorName };
    enum Stock { kCode, kLast, kSector, kStockSectorName };
    enum Option { kId, kOf, kHedge, kLots, kOfLast, kOfSector, kOfSectorId, kHedgeLast, kName };

    Market()
    {
        sectors.addColumn("Id", FieldType::Integer, 0, false);
        sectors.addColumn("Name", FieldType::VarChar, 6);
        sectors.setMasterIndex(new MasterIndex_Column_Pure(&sectors, QString("Id")));
        stocks.addColumn("Code", FieldType::VarChar, 3, false);
        stocks.addColumn("Last", FieldType::Integer, 0);
        stocks.addColumn("Sector", FieldType::Integer, 0);
        stocks.setMasterIndex(new MasterIndex_Column_Pure(&stocks, QString("Code")));
        options.addColumn("Id", FieldType::Integer, 0, false);
        options.addColumn("Of", FieldType::VarChar, 5);
        options.addColumn("Hedge", FieldType::VarChar, 3);
        options.addColumn("Lots", FieldType::Integer, 0);
        options.addColumn("OfLast", FieldType::Integer64, 0);
        options.setMasterIndex(new MasterIndex_Column_Pure(&options, QString("Id")));
        stockJoin.addTable(&sectors, {"Sector"}, {{"Name", "SectorName"}});
        optionJoin.addTable(&stocks, {"Of"},
                            {{"Last", "OfLast"}, {"SectorName", ""}, {"Sector", "OfSectorId"}});
        optionJoin.addTable(&stocks, {"Hedge"}, {{"Last", "HedgeLast"}});
        optionJoin.addTable(&sectors, {"OfSectorId"}, {{"Name", ""}});
    }

    Table sectors{"sectors", QString()}, stocks{"stocks", QString()}, options{"options", QString()};
    TableJoinMain stockJoin{&stocks}, optionJoin{&options};
};

/// Sorts by a column, then by the key.
struct ByColumn : IndexSort {
    ByColumn(Table *table, int column)
        : IndexSort(table, true)
        , def(table->columnDef(column))
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        const int order = compareCells(*def, a, b);
        return order ? order : table()->masterIndex()->compare(a, b);
    }
    const TableColumnDef *const def;
};
