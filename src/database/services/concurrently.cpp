#include "database/services/concurrently.h"

#include <QtConcurrent/qtconcurrentmap.h>

#include <numeric>

// All that is made from the pool's templates stands in this file, which is built without the thread
// sanitizer like the rest of Qt: half-instrumented, the pool's own hand-overs look like races.

namespace
{

struct Call {
    void (*work)(void *context, int i);
    void *context;

    void operator()(int i) const { work(context, i); }
};

} // namespace

void Concurrently::run(int n, void (*work)(void *context, int i), void *context)
{
    std::vector<int> numbers(static_cast<size_t>(n));
    std::iota(numbers.begin(), numbers.end(), 0);
    QtConcurrent::blockingMap(numbers, Call{work, context});
}
