#pragma once

#include <database/icore.h>
#include <database/persistence/tableio.h>

#include "support/tablefixture.h"

#include <QtCore/qbuffer.h>
#include <QtCore/qbytearray.h>
#include <QtCore/qdatastream.h>
#include <QtCore/qmap.h>

#include <functional>

/// A core that knows the tables it is given, in force while it lives.
class TestCore : public ICore
{
public:
    TestCore() { setInstance(this); }
    ~TestCore() override { setInstance(nullptr); }
    bool hasTable(const QString &name) const override { return tables.contains(name); }
    Table *table(const QString &name) const override { return tables.value(name); }
    bool compressTableFiles() const override { return compress; }

    bool compress = false;
    QMap<QString, Table *> tables;
};

/// Writes down the rows that it hears of, rejects where asked to, and runs what a test wants first.
class Listener : public FilterProgress
{
public:
    bool operator()(int current, int total) override
    {
        if (onRow)
            onRow(current);
        calls.append(QStringLiteral("%1/%2").arg(current).arg(total));
        return false;
    }
    bool filter(const Record &record) const override { return !accepts || accepts(record); }

    std::function<void(int)> onRow;
    std::function<bool(const Record &)> accepts;
    QStringList calls;
};

/// A stream over bytes in memory.
class MemoryStream : public QDataStream
{
public:
    explicit MemoryStream(const QByteArray &bytes = QByteArray())
    {
        m_buffer.setData(bytes);
        m_buffer.open(QIODevice::ReadWrite);
        setDevice(&m_buffer);
    }
    ~MemoryStream() { setDevice(nullptr); }
    QByteArray bytes() const { return m_buffer.data(); }
    void rewind() { m_buffer.seek(0); }

private:
    QBuffer m_buffer;
};

inline QByteArray saved(Table &table)
{
    MemoryStream stream;
    TableIO(&table).write(stream, true);
    return stream.bytes();
}

/// A column of every type, and a key.
inline void addEveryType(Table &table)
{
    using Type = FieldType::Type;
    table.addColumn("key", FieldType::Integer, 0, false);
    for (int type = FieldType::Integer; type <= FieldType::XDecimal; ++type) {
        const QString name = QLatin1String(FieldType::typeName(Type(type)));
        table.addColumn(name, Type(type), 3, true, QStringLiteral("Заголовок ") + name);
    }
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QString("key")));
}

/// Rows with keys 0..count - 1, descending; every third cell is NULL.
inline void fillEveryType(Table &table, int count)
{
    for (int key = count - 1; key >= 0; --key) {
        const Record row(&table);
        row.data("key").setValue(key);
        for (int i = 1; i < table.columnCount(); ++i) {
            if ((key + i) % 3 == 0)
                continue;
            Field cell = row.data(i);
            if (cell.column()->type == FieldType::BoardList) {
                boardlist boards;
                boards.append(key, -i);
                cell.setValue(boards);
            } else if (cell.column()->type == FieldType::DateTime) {
                cell.setValue(datetime(Q_INT64_C(86400000) * (key + 1)));
            } else {
                setText(cell, QString::number(key * 7 % 1000 - i));
            }
        }
        table.appendRow(row.row());
    }
}
