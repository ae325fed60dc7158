#include "engine.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{

/// A prepared statement, ready for its next use once it is run to the end.
class Statement
{
public:
    Statement(sqlite3 *database, const char *text)
    {
        require(sqlite3_prepare_v3(database, text, -1, SQLITE_PREPARE_PERSISTENT, &m_statement,
                                   nullptr) == SQLITE_OK,
                std::string("preparing ") + text);
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    void bind(int parameter, double value) { sqlite3_bind_double(m_statement, parameter, value); }
    void bind(int parameter, std::int64_t value)
    {
        sqlite3_bind_int64(m_statement, parameter, value);
    }
    /// The texts of markets are ASCII, which takes half the space in a database of UTF-8.
    template<int N>
    void bind(int parameter, const char16_t (&text)[N])
    {
        char narrow[N];
        int length = 0;
        for (; length < N && text[length]; ++length)
            narrow[length] = char(text[length]);
        sqlite3_bind_text(m_statement, parameter, narrow, length, SQLITE_TRANSIENT);
    }
    void bind(int parameter, const Key &key)
    {
        bind(parameter, key.board);
        bind(parameter + 1, key.code);
    }

    /// Steps to the next row of the answer, if there is one.
    bool next()
    {
        const int result = sqlite3_step(m_statement);
        if (result == SQLITE_ROW)
            return true;
        require(result == SQLITE_DONE, std::string("running ") + sqlite3_sql(m_statement));
        sqlite3_reset(m_statement);
        return false;
    }
    /// Runs a statement that has one row for an answer, or none.
    template<class Read>
    void one(const Read &read)
    {
        require(next(), std::string("finding a row by ") + sqlite3_sql(m_statement));
        read();
        sqlite3_reset(m_statement);
    }
    void run() { require(!next(), std::string("running ") + sqlite3_sql(m_statement)); }
    std::int64_t integer(int column) const { return sqlite3_column_int64(m_statement, column); }
    double real(int column) const { return sqlite3_column_double(m_statement, column); }
    template<int N>
    void getText(char16_t (&text)[N], int column) const
    {
        const unsigned char *value = sqlite3_column_text(m_statement, column);
        std::copy_n(value, sqlite3_column_bytes(m_statement, column), text);
    }

private:
    sqlite3_stmt *m_statement = nullptr;
};

/// An open database; the file "" is one in memory.
struct Connection {
    explicit Connection(const std::string &file)
    {
        require(sqlite3_open(file.empty() ? ":memory:" : file.c_str(), &database) == SQLITE_OK,
                "opening a database");
    }
    ~Connection() { sqlite3_close(database); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void run(const char *text) const
    {
        require(sqlite3_exec(database, text, nullptr, nullptr, nullptr) == SQLITE_OK, text);
    }
    sqlite3 *database = nullptr;
};

void copyDatabase(const Connection &target, const Connection &source)
{
    sqlite3_backup *backup = sqlite3_backup_init(target.database, "main", source.database, "main");
    require(backup && sqlite3_backup_step(backup, -1) == SQLITE_DONE &&
                sqlite3_backup_finish(backup) == SQLITE_OK,
            "copying a database");
}

/// A connection with the tables and indexes, which the statements are prepared on.
struct Schema : Connection {
    Schema()
        : Connection({})
    {
        // No journal to roll back to: it would only cost.
        run("PRAGMA journal_mode = OFF; PRAGMA locking_mode = EXCLUSIVE;"
            "CREATE TABLE quotes (board TEXT NOT NULL, code TEXT NOT NULL, strike REAL,"
            " bid INTEGER, ask INTEGER, last REAL, volume INTEGER, time INTEGER, iv REAL,"
            " flags INTEGER, UNIQUE (board, code));"
            "CREATE INDEX by_last ON quotes (last);"
            "CREATE INDEX by_volume ON quotes (volume);"
            "CREATE INDEX by_time ON quotes (time);");
    }
};

constexpr int kFarPositions = 10000; // a position costs a walk: one in so many is measured

class SqliteEngine : public Engine
{
public:
    std::string name() const override { return "SQLite"; }
    int share(Workload workload) const override
    {
        if (workload == Workload::At || workload == Workload::Rank)
            return kFarPositions;
        return workload == Workload::Pack ? 0 : 1;
    }

    void insert(const Row *rows, int count) override
    {
        transaction([&] {
            for (int i = 0; i < count; ++i)
                insertRow(rows[i]);
        });
    }
    void trade(const std::vector<Row> &rows) override
    {
        transaction([&] {
            for (const Row &row : rows) {
                m_trade.bind(1, row.last);
                m_trade.bind(2, row.volume);
                m_trade.bind(3, row.time);
                m_trade.bind(4, row.key);
                m_trade.run();
            }
        });
    }
    void quote(const std::vector<Row> &rows) override
    {
        transaction([&] {
            for (const Row &row : rows) {
                m_quote.bind(1, row.bid);
                m_quote.bind(2, row.ask);
                m_quote.bind(3, row.key);
                m_quote.run();
            }
        });
    }
    void replace(const Replacement &replacement) override
    {
        transaction([&] {
            for (const Key &key : replacement.removed) {
                m_remove.bind(1, key);
                m_remove.run();
            }
            for (const Row &row : replacement.inserted)
                insertRow(row);
        });
    }
    void tick(const Row &row) override
    {
        m_tick.bind(1, row.last);
        m_tick.bind(2, row.key);
        m_tick.run(); // a transaction of its own
    }

    Firsts firsts() override
    {
        Firsts result = {};
        m_firstLast.one([&] { result.last = m_firstLast.real(0); });
        m_firstVolume.one([&] { result.volume = m_firstVolume.integer(0); });
        m_firstTime.one([&] { result.time = m_firstTime.integer(0); });
        return result;
    }
    std::int64_t find(const Key *keys, int count) override
    {
        std::int64_t sum = 0;
        transaction([&] {
            for (int i = 0; i < count; ++i) {
                m_find.bind(1, keys[i]);
                m_find.one([&] { sum += m_find.integer(0); });
            }
        });
        return sum;
    }
    double at(const int *places, int count) override
    {
        double sum = 0;
        for (int i = 0; i < count; ++i)
            sum += heldAt(places[i]).last;
        return sum;
    }
    void hold(const std::vector<Key> &keys) override
    {
        m_held.clear();
        for (const Key &key : keys) {
            m_find.bind(1, key);
            m_find.one([&] { m_held.push_back({m_find.real(1), m_find.integer(2)}); });
        }
    }
    std::int64_t ranks(int count) override
    {
        std::int64_t sum = 0;
        for (int i = 0; i < count; ++i)
            sum += rank(m_held[size_t(i)]);
        return sum;
    }
    bool ranksAreTrue(int count) override
    {
        return std::all_of(m_held.begin(), m_held.begin() + count,
                           [this](const Held &held) { return heldAt(rank(held)).id == held.id; });
    }
    std::int64_t walk() override
    {
        std::int64_t sum = 0;
        while (m_walk.next())
            sum += m_walk.integer(0);
        return sum;
    }

    void save(const std::string &directory, bool) override
    {
        std::remove(path(directory).c_str()); // or pages of an older one would be kept
        copyDatabase(Connection(path(directory)), m_schema);
    }
    void load(const std::string &directory) override
    {
        copyDatabase(m_schema, Connection(path(directory)));
        firsts(); // reads the schema anew
    }

    void visit(Order order, const std::function<void(const Row &)> &visitor) override
    {
        static constexpr std::array<const char *, 3> kOrders = {"last", "volume", "time"};
        Statement all(m_schema.database,
                      (std::string("SELECT * FROM quotes INDEXED BY by_") + kOrders[size_t(order)] +
                       " ORDER BY " + kOrders[size_t(order)])
                          .c_str());
        while (all.next()) {
            Row row = {};
            all.getText(row.key.board, 0);
            all.getText(row.key.code, 1);
            row.strike = all.real(2);
            row.bid = all.integer(3);
            row.ask = all.integer(4);
            row.last = all.real(5);
            row.volume = all.integer(6);
            row.time = all.integer(7);
            row.iv = all.real(8);
            row.flags = std::int32_t(all.integer(9));
            visitor(row);
        }
    }

private:
    struct Held {
        double last;
        std::int64_t id;
    };

    static std::string path(const std::string &directory) { return directory + "/quotes.sqlite"; }

    template<class Work>
    void transaction(const Work &work)
    {
        m_begin.run();
        work();
        m_commit.run();
    }
    void insertRow(const Row &row)
    {
        m_insert.bind(1, row.key);
        m_insert.bind(3, row.strike);
        m_insert.bind(4, row.bid);
        m_insert.bind(5, row.ask);
        m_insert.bind(6, row.last);
        m_insert.bind(7, row.volume);
        m_insert.bind(8, row.time);
        m_insert.bind(9, row.iv);
        m_insert.bind(10, std::int64_t(row.flags));
        m_insert.run();
    }
    Held heldAt(std::int64_t place)
    {
        m_at.bind(1, place);
        Held result = {};
        m_at.one([&] { result = {m_at.real(0), m_at.integer(1)}; });
        return result;
    }
    std::int64_t rank(const Held &held)
    {
        m_rank.bind(1, held.last);
        m_rank.bind(2, held.id);
        std::int64_t result = 0;
        m_rank.one([&] { result = m_rank.integer(0); });
        return result;
    }

    const Schema m_schema;
    sqlite3 *const m_database = m_schema.database;
    Statement m_begin{m_database, "BEGIN"};
    Statement m_commit{m_database, "COMMIT"};
    Statement m_insert{m_database,
                       "INSERT INTO quotes VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)"};
    Statement m_remove{m_database, "DELETE FROM quotes WHERE board = ?1 AND code = ?2"};
    Statement m_trade{m_database, "UPDATE quotes SET last = ?1, volume = ?2, time = ?3"
                                  " WHERE board = ?4 AND code = ?5"};
    Statement m_quote{m_database, "UPDATE quotes SET bid = ?1, ask = ?2"
                                  " WHERE board = ?3 AND code = ?4"};
    Statement m_tick{m_database, "UPDATE quotes SET last = ?1 WHERE board = ?2 AND code = ?3"};
    Statement m_find{m_database, "SELECT volume, last, rowid FROM quotes"
                                 " WHERE board = ?1 AND code = ?2"};
    Statement m_at{m_database, "SELECT last, rowid FROM quotes INDEXED BY by_last"
                               " ORDER BY last LIMIT 1 OFFSET ?1"};
    // The index ends in the rowid, which breaks ties.
    Statement m_rank{m_database,
                     "SELECT (SELECT count(*) FROM quotes INDEXED BY by_last WHERE last < ?1)"
                     " + (SELECT count(*) FROM quotes INDEXED BY by_last"
                     " WHERE last = ?1 AND rowid < ?2)"};
    Statement m_walk{m_database, "SELECT volume FROM quotes INDEXED BY by_last ORDER BY last"};
    Statement m_firstLast{m_database, "SELECT last FROM quotes ORDER BY last LIMIT 1"};
    Statement m_firstVolume{m_database, "SELECT volume FROM quotes ORDER BY volume LIMIT 1"};
    Statement m_firstTime{m_database, "SELECT time FROM quotes ORDER BY time LIMIT 1"};
    std::vector<Held> m_held;
};

} // namespace

EngineMaker sqliteEngine()
{
    return [] { return std::make_unique<SqliteEngine>(); };
}
