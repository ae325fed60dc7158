#include "support/batches.h"

#include <algorithm>
#include <limits>

namespace
{

const char *const kNames[] = {"Ticks",      "RiseTogether", "FallTogether", "Swaps",      "Ties",
                              "Nulls",      "HiddenTexts",  "MixedScales",  "NotANumber", "Churn",
                              "ReplaceAll", "Folds",        "Ranges",       "SideBySide"};
constexpr int kPatterns = int(std::size(kNames));
constexpr int kOfBatches = int(Pattern::SideBySide); // those that a batch can be
constexpr int kActive = 50;

} // namespace

BatchMaker::BatchMaker(const TableModel &model, int keys, Random &random, int largest)
    : m_model(model)
    , m_keys(keys)
    , m_largest(largest)
    , m_random(random)
{
    const QList<QByteArray> names = qgetenv("DATABASE_WITHOUT").split(',');
    for (int i = 0; i < kPatterns; ++i) {
        if (names.contains(kNames[i]))
            leaveOut(Pattern(i));
    }
}

void BatchMaker::setKeys(int first, int step)
{
    m_first = first;
    m_step = step;
}

// Cells ------------------------------------------------------------------------------------------

int BatchMaker::anyColumn()
{
    return m_model.schema.keys +
           m_random.below(int(m_model.schema.columns.size()) - m_model.schema.keys);
}

// A column whose values have neighbours, or any where a table has none.
int BatchMaker::steppableColumn()
{
    int column = anyColumn();
    const auto hasSteps = [&] {
        const ModelColumn &def = m_model.schema.columns[size_t(column)];
        return def.type != FieldType::VarChar && def.type != FieldType::BoardList && !def.draw;
    };
    for (int tries = 0; tries < 20 && !hasSteps(); ++tries)
        column = anyColumn();
    return column;
}

Cell BatchMaker::draw(int column, int range)
{
    const ModelColumn &def = m_model.schema.columns[size_t(column)];
    if ((m_pattern == Pattern::Nulls && m_random.oneIn(2)) || (def.nullable && m_random.oneIn(12)))
        return Cell();
    if (def.draw)
        return def.draw(m_random);
    const bool atTheEdge = m_random.oneIn(8);
    const int span = range * (column % 2 == 0 ? 1000 : 1); // some columns hardly have equals
    const int number = m_random.below(span) - span / 4;
    switch (def.type) {
    case FieldType::Integer: {
        constexpr qint64 kEdges[] = {std::numeric_limits<qint32>::min(),
                                     std::numeric_limits<qint32>::max(), 0, -1, 256};
        return numberCell(atTheEdge ? m_random.any(kEdges) : number);
    }
    case FieldType::Integer64: {
        constexpr qint64 kEdges[] = {std::numeric_limits<qint64>::min(),
                                     std::numeric_limits<qint64>::max(), Q_INT64_C(1) << 53,
                                     (Q_INT64_C(1) << 53) + 1, -1};
        return numberCell(atTheEdge ? m_random.any(kEdges) : number);
    }
    case FieldType::Double: {
        using Limits = std::numeric_limits<double>;
        constexpr double kEdges[] = {-0.0, 0.0, Limits::infinity(), -Limits::infinity(),
                                     Limits::denorm_min()};
        Cell cell = numberCell(number);
        if (m_pattern == Pattern::NotANumber && m_random.oneIn(2))
            cell.real = Limits::quiet_NaN();
        else if (atTheEdge)
            cell.real = m_random.any(kEdges);
        return cell;
    }
    case FieldType::VarChar: {
        const QString texts[] = {"", QString(def.length, 'Z'), "Ж", QChar(0xFFFF), "  "};
        QString text = atTheEdge ? m_random.any(texts) : QString::number(number);
        if (m_pattern == Pattern::HiddenTexts && m_random.oneIn(2))
            text += QChar(0) + QString::number(m_random.below(10));
        return textCell(text);
    }
    case FieldType::DateTime:
        return numberCell(atTheEdge ? m_random.below(3) - 1
                                    : Q_INT64_C(1700000000000) + number * 1000);
    case FieldType::BoardList:
        return numberCell(m_random.below(200));
    default: {
        // Packed decimals of ours and those of a feed that cuts its zeros.
        qint64 mantissa = atTheEdge ? number % 1000 * Q_INT64_C(100000000000) : number * 10;
        int scale = 2;
        if (m_pattern == Pattern::MixedScales) {
            scale = 1 + m_random.below(4);
            for (int i = 2; i < scale; ++i)
                mantissa *= 10;
            if (scale == 1)
                mantissa /= 10;
        }
        return numberCell(mantissa, scale);
    }
    }
}

Cell BatchMaker::stepped(int column, const Cell &cell, int by)
{
    const ModelColumn &def = m_model.schema.columns[size_t(column)];
    const bool overflows = std::abs(double(cell.number)) > std::numeric_limits<qint32>::max() / 2 &&
                           def.type <= FieldType::Integer64;
    if (cell.isNull || overflows || def.draw || def.type == FieldType::VarChar ||
        def.type == FieldType::BoardList)
        return draw(column);
    Cell next = cell;
    next.number += by;
    next.real += by / 8.0;
    return next;
}

std::map<int, Cell> BatchMaker::drawSome(int columns)
{
    std::map<int, Cell> cells;
    for (int i = 0; i < columns; ++i) {
        const int column = anyColumn();
        cells[column] = draw(column);
    }
    return cells;
}

// Rows -------------------------------------------------------------------------------------------

std::vector<RowPointer> BatchMaker::someRows(int n)
{
    std::vector<RowPointer> rows;
    for (int i = 0; i < n; ++i) {
        if (const RowPointer row = m_model.live(anyKey()))
            rows.push_back(row);
    }
    return rows;
}

std::vector<RowPointer> BatchMaker::neighbours(int n, int column)
{
    std::vector<RowPointer> rows;
    for (const auto &[key, row] : m_model.rows) {
        if ((key - m_first) % m_step == 0)
            rows.push_back(row);
    }
    const ModelColumn &def = m_model.schema.columns[size_t(column)];
    std::sort(rows.begin(), rows.end(), [&](const RowPointer &a, const RowPointer &b) {
        const int order = compareCell(def, a->cells[size_t(column)], b->cells[size_t(column)]);
        return order != 0 ? order < 0 : a->key < b->key;
    });
    const int kept = std::min(n, int(rows.size()));
    const int from = m_random.below(int(rows.size()) - kept + 1);
    return {rows.begin() + from, rows.begin() + from + kept};
}

// Operations -------------------------------------------------------------------------------------

// Leaves out what has no meaning here: a key whose row has left while an entry waits for it.
void BatchMaker::enter(Operation::Kind kind, int key, std::map<int, Cell> cells)
{
    const RowPointer live = m_model.live(key);
    const auto found = m_pending.find(key);
    const bool isEntered = found != m_pending.end();
    const bool isInserted = isEntered && found->second.kind == Operation::Insert;
    if (isEntered && !isInserted && found->second.row != live)
        return;
    if (kind == Operation::Insert || kind == Operation::Upsert) {
        if (!has(Pattern::Folds) && isEntered)
            return;
        // Whoever may be late, or meets another operation, writes every column.
        if (isEntered || has(Pattern::SideBySide) || !live) {
            for (int i = m_model.schema.keys; i < int(m_model.schema.columns.size()); ++i)
                cells.emplace(i, draw(i));
        }
        if (kind == Operation::Insert && ((!isEntered && live) || (isInserted && live)))
            return;
        if (has(Pattern::SideBySide) && !live)
            kind = Operation::Upsert;
        else if (has(Pattern::SideBySide) && kind == Operation::Upsert)
            kind = Operation::Update;
    }
    if (kind == Operation::Update || kind == Operation::Merge || kind == Operation::Remove) {
        if (!live || isInserted || (isEntered && !has(Pattern::Folds)))
            return;
        if (kind != Operation::Remove && cells.empty())
            return;
    }
    const bool inForms = has(Pattern::HiddenTexts) && has(Pattern::MixedScales);
    const Operation operation{kind, key, m_model.schema.key(key, inForms ? &m_random : nullptr),
                              cells};
    m_batch.operations.push_back(operation);
    m_model.fill(m_pending, {"", {operation}});
}

void BatchMaker::enterAny(int key)
{
    constexpr Operation::Kind kKinds[] = {Operation::Insert, Operation::Update, Operation::Upsert,
                                          Operation::Remove};
    enter(m_random.any(kKinds), key, drawSome(1 + m_random.below(3)));
}

void BatchMaker::makeRowsMove(int n, int direction)
{
    std::vector<RowPointer> rows = neighbours(n, m_column);
    if (!m_random.oneIn(3)) {
        rows.clear();
        for (const int key : m_active)
            rows.push_back(m_model.live(key));
    }
    constexpr int kSteps[] = {1, 3, 40, 1000, 100000};
    const int step = m_random.any(kSteps);
    const int common = m_random.below(step + 1);
    const bool alike = m_random.oneIn(2);
    for (const RowPointer &row : rows) {
        const int by = step + common + (alike ? 0 : m_random.below(2));
        if (row)
            enter(Operation::Update, row->key,
                  {{m_column, stepped(m_column, row->cells[size_t(m_column)], direction * by)}});
    }
}

Batch BatchMaker::everything()
{
    m_batch = Batch();
    m_pending.clear();
    for (int i = 0; i < m_keys; ++i)
        enter(Operation::Insert, m_first + m_step * i);
    return m_batch;
}

Batch BatchMaker::next(const TableModel::Pending &pending)
{
    m_batch = Batch();
    m_pending = pending;
    if (m_active.empty() || m_random.oneIn(40)) {
        m_active.clear();
        m_column = steppableColumn();
        if (m_random.oneIn(2)) {
            for (const RowPointer &row : neighbours(kActive, m_column))
                m_active.push_back(row->key);
        }
        for (int i = int(m_active.size()); i < std::min(kActive, m_keys); ++i)
            m_active.push_back(anyKey());
    }
    // A feed does the same again and again.
    const bool feeds = m_pattern <= Pattern::FallTogether && has(m_pattern);
    if (!feeds || m_random.oneIn(8)) {
        do
            m_pattern = Pattern(m_random.below(kOfBatches));
        while (!has(m_pattern) || (m_pattern == Pattern::ReplaceAll && !m_random.oneIn(4)));
    }
    m_batch.pattern = kNames[int(m_pattern)];
    const int n = 1 + m_random.below(m_random.oneIn(6) ? m_largest : std::min(m_largest, 12));
    switch (m_pattern) {
    case Pattern::Ticks:
        for (const RowPointer &row : someRows(1 + m_random.below(3))) {
            const int column = m_random.oneIn(2) ? m_column : steppableColumn();
            const int by = 1 - 2 * m_random.below(2);
            enter(Operation::Update, row->key,
                  {{column, stepped(column, row->cells[size_t(column)], by)}});
        }
        break;
    case Pattern::RiseTogether:
    case Pattern::FallTogether:
        makeRowsMove(n, m_pattern == Pattern::RiseTogether ? 1 : -1);
        break;
    case Pattern::Swaps: {
        const int column = anyColumn();
        const std::vector<RowPointer> rows = someRows(n);
        for (size_t i = 1; i < rows.size(); i += 2) {
            enter(Operation::Update, rows[i]->key, {{column, rows[i - 1]->cells[size_t(column)]}});
            enter(Operation::Update, rows[i - 1]->key, {{column, rows[i]->cells[size_t(column)]}});
        }
        break;
    }
    case Pattern::Ties: {
        const int column = anyColumn();
        for (const RowPointer &row : someRows(2 * n))
            enter(Operation::Update, row->key, {{column, draw(column, 2)}});
        break;
    }
    case Pattern::Nulls:
    case Pattern::HiddenTexts:
    case Pattern::MixedScales:
    case Pattern::NotANumber:
        for (const RowPointer &row : someRows(n))
            enter(Operation::Update, row->key, drawSome(4));
        break;
    case Pattern::Churn:
        for (int i = 0; i < n; ++i) {
            const int key = anyKey();
            if (m_model.live(key) && m_random.oneIn(4))
                enter(Operation::Remove, key);
            else
                enterAny(key);
        }
        break;
    case Pattern::ReplaceAll:
        for (const auto &[key, row] : m_model.rows) {
            if ((key - m_first) % m_step == 0)
                enter(Operation::Remove, key);
        }
        for (int i = 0; i < m_keys; ++i) {
            if (!m_random.oneIn(10))
                enter(Operation::Insert, m_first + m_step * i);
        }
        break;
    case Pattern::Folds:
        for (int i = 0; i < n; ++i) {
            const int key = anyKey();
            for (int times = 0; times < 3; ++times)
                enterAny(key);
        }
        break;
    case Pattern::Ranges:
        for (const RowPointer &row : someRows(n)) {
            const int first = anyColumn();
            const int last = std::max(first, anyColumn());
            std::map<int, Cell> cells;
            for (int i = first; i <= last; ++i)
                cells[i] = draw(i);
            enter(Operation::Merge, row->key, cells);
        }
        break;
    case Pattern::SideBySide:
        break; // what the test does with batches
    }
    return m_batch;
}
