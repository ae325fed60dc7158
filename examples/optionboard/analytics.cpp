#include "analytics.h"

#include <database/masterindex_struct.h>
#include <database/pricing/impliedvolatility.h>

#include <QtCore/qcoreapplication.h>

#include <cmath>
#include <limits>

namespace
{

constexpr int kChunk = 1024; // options of a job
constexpr int kBlock = 128;  // between two looks at whether to stop

// Percent; prices are exact to hundredths, and half of one is as good as none.
constexpr double kLowest = 0.5, kHighest = 500, kPriceError = 0.005, kVolatilityError = 1e-4;

} // namespace

double yearsToExpiry(datetime now, datetime expiry)
{
    constexpr double kDay = 86'400'000; // milliseconds
    return (double(expiry.toMSecsSinceEpoch() - now.toMSecsSinceEpoch()) + kDay) / (365 * kDay);
}

/// Neighbouring options: what goes into the model, and what comes out.
struct Analytics::Chunk {
    std::vector<Record> options;
    std::vector<VolatInputParams> inputs;
    std::vector<double> prices;       // NaN while never traded
    std::vector<double> volatilities; // where to start, then the solution, -1 for none
    std::vector<VolatOutputParams> outputs;
    std::unique_ptr<bool[]> arePuts = std::make_unique<bool[]>(kChunk);
    bool isComplete = false; // set by the job; read after its end

    void add(const Record &option, datetime now)
    {
        const double stockPrice = option.data(OptionTable::kStockLast).value<decimal>().toDouble();
        arePuts[options.size()] =
            option.data(OptionTable::kSide).toChar() == QLatin1Char(char(Side::Put));
        const double years =
            yearsToExpiry(now, option.data(OptionTable::kExpiry).value<datetime>());
        VolatInputParams input;
        input.strike = option.data(OptionTable::kStrike).value<decimal>().toDouble();
        input.price = stockPrice;
        input.sqrtTime = std::sqrt(std::max(years, 0.0));
        inputs.push_back(input);
        const Field last = option.data(OptionTable::kLast);
        const bool isPriced = !last.isNull() && years > 0 && stockPrice > 0;
        prices.push_back(isPriced ? last.value<decimal>().toDouble()
                                  : std::numeric_limits<double>::quiet_NaN());
        volatilities.push_back(option.data(OptionTable::kVolatility).value<double>()); // 0 for NULL
        options.push_back(option);
    }

    std::optional<ModelValues> values(size_t i) const
    {
        if (volatilities[i] < 0)
            return std::nullopt;
        const VolatOutputParams &out = outputs[i];
        return ModelValues{volatilities[i], arePuts[i] ? out.deltaPut : out.delta, out.gamma,
                           out.vega, out.theta};
    }
};

class Analytics::Job : public Runnable
{
public:
    explicit Job(std::shared_ptr<Chunk> chunk)
        : m_chunk(std::move(chunk))
    {
    }

    void run() override
    {
        Chunk &c = *m_chunk;
        c.outputs.resize(c.options.size());
        for (size_t at = 0; at < c.options.size(); at += kBlock) {
            if (!canRun())
                return;
            const int n = int(std::min(c.options.size() - at, size_t(kBlock)));
            double *const volatilities = &c.volatilities[at];
            volatByTheorPrice(volatilities, &c.inputs[at], &c.arePuts[at], &c.prices[at],
                              volatilities, kLowest, kHighest, kPriceError, kVolatilityError, n);
            calcVolatParams(&c.outputs[at], &c.inputs[at], volatilities, n);
        }
        c.isComplete = true;
    }

private:
    const std::shared_ptr<Chunk> m_chunk;
};

Analytics::Analytics(Board &board)
    : m_board(board)
{
    // In the thread that the manager lives in: the one that writes the board.
    QObject::connect(&m_manager, &RunnableManager::finished, &m_manager, [this](HRunnable job) {
        const auto ended = m_chunks.find(job);
        if (ended->second->isComplete)
            enter(*ended->second);
        m_chunks.erase(ended);
    });
}

Analytics::~Analytics()
{
    stop();
}

void Analytics::startJob(const std::shared_ptr<Chunk> &chunk)
{
    m_chunks.emplace(m_manager.startRunnable(new Job(chunk), &m_pool), chunk);
    ++m_totals.jobs;
}

void Analytics::start(datetime now)
{
    auto chunk = std::make_shared<Chunk>();
    for (const Record &option : *m_board.options().masterIndex()) {
        chunk->add(option, now);
        if (chunk->options.size() == kChunk) {
            startJob(chunk);
            chunk = std::make_shared<Chunk>();
        }
    }
    if (!chunk->options.empty())
        startJob(chunk);
}

void Analytics::enter(const Chunk &chunk)
{
    std::vector<std::optional<ModelValues>> values;
    values.reserve(chunk.options.size());
    for (size_t i = 0; i < chunk.options.size(); ++i) {
        values.push_back(chunk.values(i));
        if (values.back())
            ++m_totals.solved;
        else if (!std::isnan(chunk.prices[i]))
            ++m_totals.unsolved;
    }
    m_totals.changed += m_board.enterModel(chunk.options, values);
    ++m_totals.batches;
}

void Analytics::finish()
{
    while (!m_chunks.empty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

void Analytics::stop()
{
    m_manager.stopRunnables(true);
}
