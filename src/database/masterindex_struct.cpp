#include "database/masterindex_struct.h"

#include "database/tables/keytext.h"
#include "database/tables/table.h"

MasterIndex::MasterIndex(Table *table)
    : IndexSort(table, false)
{
}

QString MasterIndex::getClassName() const
{
    return QStringLiteral("MasterIndex");
}

QList<int> MasterIndex::keyColumns() const
{
    return {};
}

QString MasterIndex::keyText(const Record &record) const
{
    if (record.isNull())
        return QString();
    const QList<int> columns = keyColumns();
    if (columns.isEmpty()) // an application's own kind of key
        return toText(record);
    QString text;
    for (int i = 0; i < columns.size(); ++i) {
        if (i > 0)
            text += QLatin1Char(',');
        appendKeyPart(&text, record.data(columns.at(i)));
    }
    return text;
}

Record MasterIndex::fromKeyText(const QString &keyText) const
{
    const QList<int> columns = keyColumns();
    if (columns.isEmpty())
        return fromText(keyText);
    const QVector<KeyPart> parts = keyParts(keyText);
    if (parts.size() != columns.size())
        throw QStringLiteral("Master index can't restore from text. Incorrect columns numbers: "
                             "%1 != %2")
            .arg(parts.size())
            .arg(columns.size());
    const Record key(table());
    for (int i = 0; i < parts.size(); ++i)
        readKeyPart(key.data(columns.at(i)), parts.at(i));
    return key;
}

Record MasterIndex::findByKeyText(const QString &keyText) const
{
    const Record found = find(fromKeyText(keyText), -1);
    // Without a key every text finds the first row, and none names it.
    const bool isNamed = !keyColumns().isEmpty() || !toText(found).isEmpty();
    return isNamed ? found : Record();
}

Record MasterIndex::findRecord(const QString &text) const
{
    return find(fromText(text), -1);
}

QStringList MasterIndex::columnNames() const
{
    QStringList names;
    for (const int column : keyColumns())
        names.append(table()->columnName(column));
    return names;
}

MasterIndexOrdered::MasterIndexOrdered(Table *table)
    : MasterIndex(table)
{
}

int MasterIndexOrdered::compare(const Record &, const Record &) const
{
    return 0;
}

QString MasterIndexOrdered::toText(const Record &) const
{
    return QLatin1String("");
}

Record MasterIndexOrdered::fromText(const QString &) const
{
    return Record(table());
}
