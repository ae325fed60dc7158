#include "choices.h"

#include <database/services/exception.h>

namespace
{

const QString kTop = QStringLiteral("top");
const QString kData = QStringLiteral("data");
const QString kGzip = QStringLiteral("gzip");
const QString kTables = QStringLiteral("tables");
const QString kColumns = QStringLiteral("columns");

/// The choice of a list: some of the names that there are, each once.
QStringList chosen(const Settings &settings, const QString &key, const QStringList &all,
                   const QStringList &fallback)
{
    QStringList names = settings.value<QStringList>(key, fallback);
    QStringList seen;
    for (const QString &name : qAsConst(names)) {
        if (!all.contains(name) || seen.contains(name))
            throw QStringLiteral("setting '%1': '%2' is not accepted, but each once of: %3")
                .arg(key, name, all.join(QLatin1String(", ")));
        seen.append(name);
    }
    return names;
}

/// The value that a text of the command line means for a key.
QVariant valueOf(const QString &key, const QString &text)
{
    if (key == kData)
        return text;
    if (key == kTables || key == kColumns)
        return text.split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (key == kGzip && (text == QLatin1String("true") || text == QLatin1String("false")))
        return text == QLatin1String("true");
    if (key == kGzip)
        throw QStringLiteral("setting 'gzip' is true or false, not '%1'").arg(text);
    bool ok = false;
    const int number = text.toInt(&ok);
    if (key == kTop && ok)
        return number;
    if (key == kTop)
        throw QStringLiteral("setting 'top' is a whole number above 0, not '%1'").arg(text);
    throw QStringLiteral("there is no setting '%1', but: columns, data, gzip, tables, top")
        .arg(key);
}

} // namespace

Choices Choices::from(const Settings &settings)
{
    try {
        Choices choices;
        choices.top = settings.value<int>(kTop, choices.top);
        if (choices.top < 1)
            throw QStringLiteral("setting 'top' is a whole number above 0, not %1")
                .arg(choices.top);
        choices.data = settings.value<QString>(kData);
        choices.gzip = settings.value<bool>(kGzip, false);
        choices.tables = chosen(settings, kTables, allTables(), allTables());
        choices.columns = chosen(settings, kColumns, allColumns(), allColumns().mid(0, 12));
        return choices;
    } catch (const Exception &fault) {
        throw fault.message;
    }
}

QStringList Choices::allTables()
{
    return {QStringLiteral("top"),   QStringLiteral("movers"), QStringLiteral("chain"),
            QStringLiteral("model"), QStringLiteral("times"),  QStringLiteral("memory")};
}

QStringList Choices::allColumns()
{
    return {QStringLiteral("stock"),  QStringLiteral("expiry"),     QStringLiteral("strike"),
            QStringLiteral("side"),   QStringLiteral("last"),       QStringLiteral("change"),
            QStringLiteral("volume"), QStringLiteral("interest"),   QStringLiteral("volatility"),
            QStringLiteral("delta"),  QStringLiteral("underlying"), QStringLiteral("moneyness"),
            QStringLiteral("gamma"),  QStringLiteral("vega"),       QStringLiteral("theta")};
}

ChoiceSettings::ChoiceSettings(const QString &folder, const QString &workplace)
    : m_locations(folder.isEmpty() ? SettingsLocations::standard()
                                   : SettingsLocations::below(folder))
    , m_application(m_locations)
{
    if (workplace.isEmpty())
        return;
    m_workplace = std::make_unique<WorkplaceSettings>(workplace, &m_application);
    m_top = m_workplace.get();
}

bool ChoiceSettings::exists() const
{
    return !m_workplace || Workplaces(m_locations).contains(m_workplace->workplace());
}

void ChoiceSettings::set(const QString &assignment)
{
    const int equals = assignment.indexOf(QLatin1Char('='));
    if (equals < 0)
        throw QStringLiteral("--set takes KEY=VALUE, not '%1'").arg(assignment);
    const QString key = assignment.left(equals);
    const QVariant value = valueOf(key, assignment.mid(equals + 1));
    MapSettings tried;
    tried.setValue(key, value);
    Choices::from(tried);
    m_top->setValue(key, value);
    if (!m_top->sync())
        throw m_top->errorString();
}
