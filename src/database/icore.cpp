#include "database/icore.h"

#include <QtCore/qatomic.h>

namespace
{

class BuiltInCore final : public ICore
{
public:
    bool hasTable(const QString &) const override { return false; }
    Table *table(const QString &) const override { return nullptr; }
    bool compressTableFiles() const override { return false; }
};

QAtomicPointer<ICore> s_core;

} // namespace

ICore::~ICore() = default;

ICore *ICore::instance()
{
    static BuiltInCore builtIn;
    ICore *core = s_core.loadAcquire();
    return core ? core : &builtIn;
}

void ICore::setInstance(ICore *core)
{
    s_core.storeRelease(core);
}
