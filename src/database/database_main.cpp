#include "database/database_main.h"

#include "database/decimal.h"
#include "database/record.h"
#include "database/settings.h"
#include "database/values/datetime.h"
#include "database/xdecimal.h"

#include <QtCore/qmetatype.h>
#include <QtCore/qvector.h>

namespace
{

template<class T>
void registerValueType(const char *name)
{
    qRegisterMetaType<T>(name);
    QMetaType::registerComparators<T>();
    QMetaType::registerConverter<T, QString>(&T::toString);
}

} // namespace

Database::Main::Main()
{
    registerValueType<datetime>("datetime");
    registerValueType<decimal>("decimal");
    qRegisterMetaTypeStreamOperators<decimal>("decimal");
    registerValueType<xdecimal>("xdecimal");
    qRegisterMetaTypeStreamOperators<xdecimal>("xdecimal");
    qRegisterMetaType<Record>("Record");
    qRegisterMetaType<void *>("HRunnable"); // the handle of a background task
    qRegisterMetaType<UnknownSetting>("UnknownSetting");
    qRegisterMetaType<QVector<SettingsChange>>("QVector<SettingsChange>");
    // Declares the converter to a sequential iterable as well.
    qRegisterMetaType<QVector<int>>("QVector<int>");
}

Database::Main Database::main;
