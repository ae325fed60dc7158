#pragma once

#include "database/database_global.h"

namespace Database
{

/// Registers the library's value types with the meta-type system, so that variants, queued signals
/// and streams know them by name: datetime, decimal, xdecimal, Record, HRunnable, UnknownSetting,
/// QVector<SettingsChange>, QVector<int>.
class DATABASE_EXPORT Main
{
public:
    Main();
};

/// The one instance; constructed when the library is loaded, before any application code runs.
extern DATABASE_EXPORT Main main;

} // namespace Database
