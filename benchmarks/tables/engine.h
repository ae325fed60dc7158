#pragma once

#include "market.h"
#include "require.h"

#include <functional>
#include <memory>
#include <string>

enum class Workload { Insert, Tick, Trade, Quote, Replace, Find, At, Rank, Walk, Save, Pack, Load };

/// The least value of each order.
struct Firsts {
    double last;
    std::int64_t volume;
    std::int64_t time;
};

/// Something that keeps the market's rows under their key and in three orders: the library, or what
/// would be used in its place. Every workload is written once and runs over all of them.
///
/// Calls hold whole batches, so that the dispatch costs nothing that could be measured. Rows of a
/// change are found by their key; of a row given to a change only the key and the fields that the
/// change is about are looked at.
class Engine
{
public:
    Engine() = default;
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;
    virtual ~Engine() = default;

    virtual std::string name() const = 0;
    /// The engine does one of so many operations of a workload; 0 when it does none. For what would
    /// otherwise take hours.
    virtual int share(Workload workload) const = 0;

    virtual void insert(const Row *rows, int count) = 0;
    virtual void trade(const std::vector<Row> &rows) = 0; ///< last, volume and time change
    virtual void quote(const std::vector<Row> &rows) = 0; ///< bid and ask change
    virtual void replace(const Replacement &replacement) = 0;
    virtual void tick(const Row &row) = 0; ///< last changes

    /// Answering takes that every order is up to date.
    virtual Firsts firsts() = 0;
    virtual std::int64_t find(const Key *keys, int count) = 0; ///< the sum of the volumes
    /// The same, all keys known beforehand.
    virtual std::int64_t findMany(const Key *keys, int count) { return find(keys, count); }
    virtual double at(const int *places, int count) = 0; ///< the sum of last, by last
    virtual void hold(const std::vector<Key> &keys) = 0; ///< keeps records for ranks()
    virtual std::int64_t ranks(int count) = 0;           ///< the sum of places, by last
    /// Whether each of the first records held stands where its rank says.
    virtual bool ranksAreTrue(int count) = 0;
    virtual std::int64_t walk() = 0; ///< sums volume, in the order by last

    /// Writes everything to files in a directory of the engine's own, down to the disk.
    virtual void save(const std::string &directory, bool packed) = 0;
    /// Of what save() left there, in an empty engine of the same kind.
    virtual void load(const std::string &directory) = 0;

    virtual void visit(Order order, const std::function<void(const Row &)> &visitor) = 0;
};

using EngineMaker = std::function<std::unique_ptr<Engine>()>;

EngineMaker libraryEngine();
EngineMaker orderedEngine();
EngineMaker hashedEngine();
EngineMaker sqliteEngine();
EngineMaker proxyEngine();
