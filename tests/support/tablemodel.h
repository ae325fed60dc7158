#pragma once

#include "support/random.h"
#include "support/tablefixture.h"

#include <database/tables/recordstrans.h>

#include <functional>
#include <map>
#include <memory>
#include <vector>

/// What a cell means, in plain terms; which member counts depends on the column's type.
struct Cell {
    bool isNull = true;
    qint64 number = 0; // integers, dates, mantissas; of a board list what its entries follow from
    int scale = 0;     // of decimals
    double real = 0;
    QString text; // as it is written; the value ends at a 0 unit and at the column's length
};
using Cells = std::vector<Cell>;

struct ModelColumn {
    QString name;
    FieldType::Type type;
    int length = 0;
    bool nullable = true;
    /// Draws values instead of the type's usual ones, where a column refers to something.
    std::function<Cell(Random &)> draw = {};
};

Cell numberCell(qint64 number, int scale = 0);
Cell textCell(const QString &text);
void writeCell(Field field, const Cell &cell);
/// Whether a field shows the cell, to the last digit.
bool showsCell(const Field &field, const Cell &cell);
/// By value, NULL first, as rows are ordered and keys are the same.
int compareCell(const ModelColumn &column, const Cell &a, const Cell &b);

/// How a table's master index compares keys; an order of the application's own is not hashed.
enum KeyKind { AsBytes, ByValue, ByOwnOrder };

MasterIndex *newMaster(Table &table, const QStringList &columns, KeyKind kind);

/// A table's columns, the key's first. Keys go by number, and stand in the table in that order.
struct Schema {
    std::vector<ModelColumn> columns;
    int keys = 1; // columns of the key
    /// The cells of a key; with chance, in one of several forms that mean the same.
    std::function<Cells(int key, Random *)> key;

    /// Two columns of each type behind the key, one of them not nullable.
    static Schema ofEveryType(KeyKind kind);
    void addTo(Table &table, KeyKind kind) const;
    Cell initial(int column) const;
};

/// One operation of a batch, on the row of a key.
struct Operation {
    enum Kind { Insert, Update, Upsert, Merge, Remove } kind;
    int key;
    Cells keyCells;
    std::map<int, Cell> cells; // of Merge all columns from the first to the last
};

/// A batch in plain terms: what a table and its model take alike.
struct Batch {
    const char *pattern = "";
    std::vector<Operation> operations;
};

struct ModelRow {
    int key = 0;
    Cells cells;
    const uchar *block = nullptr; // of the table's row, once it has been seen
    enum { Stands, Leaves, Changes, Stays } mark = Stands; // while a sorted model takes a batch
};
using RowPointer = std::shared_ptr<ModelRow>;

/// What a batch did, each in the order of keys.
struct Changes {
    std::vector<RowPointer> removed, updated, inserted;
};

/// Rows in the order of their keys, and what batches are to make of them: an entry changes the
/// columns that it names in the row that it names, if that is still there when the batch runs.
class TableModel
{
public:
    explicit TableModel(Schema schema)
        : schema(std::move(schema))
    {
    }

    struct Entry {
        Operation::Kind kind; // Insert, Update or Remove
        RowPointer row;       // null for an insertion
        std::map<int, Cell> cells;
        bool replaces = false; // an insertion over another entry: for whichever row has the key
    };
    using Pending = std::map<int, Entry>;

    RowPointer live(int key) const;
    void fill(Pending &pending, const Batch &batch) const;
    /// Folds another transaction's entries in. Both are for the rows that are live now.
    void merge(Pending &into, Pending &from) const;
    bool isCurrent(const Pending &pending) const;
    Changes run(Pending &pending);
    /// Each operation by itself.
    void applyDirectly(const Batch &batch);
    /// Adds a column while rows are there, to the table as well.
    void addColumn(Table &table, const ModelColumn &column);
    /// Rows may lie elsewhere from now on.
    void forgetBlocks();
    /// Compares everything and learns which row is which: a row keeps its place in memory.
    void compare(const Table &table);

    Schema schema;
    std::map<int, RowPointer> rows;
};

/// Enters the operations into a transaction of the table.
void fill(RecordsTrans &trans, const Batch &batch);
/// Appends, writes into live rows and removes without a transaction, as applications do.
void applyDirectly(Table &table, const Batch &batch);

/// A sorted index in the plainest terms. Equal rows stand as they came; a batch sends those behind
/// their equals that it put out of order.
class SortedModel
{
public:
    using Compare = std::function<int(const ModelRow &, const ModelRow &)>;
    using Accepts = std::function<bool(const ModelRow &)>;

    explicit SortedModel(Compare compare, Accepts accepts = {})
        : m_compare(std::move(compare))
        , m_accepts(std::move(accepts))
    {
    }

    void build(const TableModel &table);
    void apply(const Changes &changes);
    const std::vector<RowPointer> &order() const { return m_order; }
    bool accepts(const ModelRow &row) const { return !m_accepts || m_accepts(row); }
    bool less(const RowPointer &a, const RowPointer &b) const { return m_compare(*a, *b) < 0; }

private:
    Compare m_compare;
    Accepts m_accepts;
    std::vector<RowPointer> m_order;
};
