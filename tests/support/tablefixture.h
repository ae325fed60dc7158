#pragma once

#include <database/masterindex_column.h>
#include <database/record.h>
#include <database/services/exception.h>
#include <database/tables/table.h>

#include "support/printing.h"

#include <QtCore/qstringlist.h>

#include <initializer_list>

/// What a call throws: "QString: text", "Exception: text", or "nothing".
template<class Call>
QString thrownBy(Call &&call)
{
    try {
        call();
    } catch (const QString &text) {
        return QStringLiteral("QString: ") + text;
    } catch (const Exception &exception) {
        return QStringLiteral("Exception: ") + exception.message;
    }
    return QStringLiteral("nothing");
}

inline void setText(Field field, const QString &text)
{
    field = QStringRef(&text);
}

/// A row that is in no index, with its first cells read from texts; a null pointer makes NULL.
inline Record newRow(const Table &table, std::initializer_list<const char *> texts)
{
    Record row(&table);
    int column = 0;
    for (const char *text : texts)
        setText(row.data(column++), QString::fromUtf8(text));
    return row;
}

/// newRow(), appended to the table.
inline Record appendTexts(Table &table, std::initializer_list<const char *> texts)
{
    const Record row = newRow(table, texts);
    table.appendRow(row.row());
    return row;
}

inline int refCount(const Record &record)
{
    return rowHeader(record.row())->refCount.loadRelaxed();
}

/// A row's cells as one text, "7 NULL abc".
inline QString cells(const Record &record)
{
    QStringList texts;
    for (int i = 0; i < record.table()->columnCount(); ++i)
        texts.append(record.data(i).isNull() ? QStringLiteral("NULL") : record.data(i).toString());
    return texts.join(QLatin1Char(' '));
}

/// cells() of every row of a list or an index.
template<class Rows>
QStringList rows(const Rows &records)
{
    QStringList texts;
    for (const Record &record : records)
        texts.append(cells(record));
    return texts;
}

/// A table with the primary key "key" and three nullable columns "a", "b" and "c", all Integer.
class KeyedTable : public Table
{
public:
    KeyedTable()
        : Table(QStringLiteral("quotes"), QString())
    {
        addColumn(QStringLiteral("key"), FieldType::Integer, 0, false);
        for (const char *name : {"a", "b", "c"})
            addColumn(QLatin1String(name), FieldType::Integer, 0);
        setMasterIndex(new MasterIndex_Column_Pure(this, QStringLiteral("key")));
    }
};
