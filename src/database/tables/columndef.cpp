#include "database/tables/columndef.h"

#include "database/tables/streamtext.h"

#include <QtCore/qdatastream.h>

TableColumnDef::TableColumnDef(Table *owner)
    : table(owner)
{
}

TableColumnDef::TableColumnDef(Table *owner, const TableColumnDef &other)
    : ColumnDef(other)
    , table(owner)
    , size(other.size)
{
}

void TableColumnDef::read(QDataStream &stream)
{
    qint8 typeCode = 0;
    qint32 width = 0;
    for (QString *text : {&name, &title, &description})
        readText(stream, text);
    stream >> length >> typeCode >> width >> nullable >> extraFlag;
    type = static_cast<FieldType::Type>(typeCode);
    size = width;
}

void TableColumnDef::write(QDataStream &stream) const
{
    stream << name << title << description << length << qint8(type) << qint32(size) << nullable
           << extraFlag;
}
