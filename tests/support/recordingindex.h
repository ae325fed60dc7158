#pragma once

#include <database/indexes/index.h>
#include <database/masterindex_column.h>
#include <database/tables/table.h>

#include <QtCore/qstringlist.h>

#include <functional>

/// Writes down calls as "name.call" in a list that several indexes share, and runs what a test
/// wants to happen, or to be thrown, inside them.
class CallRecorder
{
public:
    CallRecorder(const QString &name, QStringList *log)
        : m_name(name)
        , m_log(log)
    {
    }

    std::function<void(const QString &call)> onCall; ///< runs after the call was written down

protected:
    void note(const QString &call, const QString &details = QString()) const
    {
        m_log->append(m_name + QLatin1Char('.') + call + details);
        if (onCall)
            onCall(call);
    }
    void noteBatch(const QString &call, int removed, int updated, int from, int to,
                   int inserted) const
    {
        const QString details = QStringLiteral(" -%1 ~%2 +%3 [%4..%5]");
        note(call, details.arg(removed).arg(updated).arg(inserted).arg(from).arg(to));
    }

private:
    QString m_name;
    QStringList *m_log;
};

/// A secondary index over all rows, or those that \a accepts says, that records every call. It is
/// not registered by itself.
class RecordingIndex : public Index, public CallRecorder
{
public:
    RecordingIndex(Table *table, const QString &name, QStringList *log,
                   const QString &className = QStringLiteral("RecordingIndex"))
        : CallRecorder(name, log)
        , m_table(table)
        , m_className(className)
    {
    }

    std::function<bool(const Record &)> accepts;
    QList<Record> held;

    void clear() override
    {
        note(QStringLiteral("clear"));
        held.clear();
    }
    void build() override
    {
        note(QStringLiteral("build"));
        held.clear();
        for (int i = 0; i < m_table->rowCount(); ++i) {
            if (filter(m_table->at(i)))
                held.append(m_table->at(i));
        }
    }
    void add(const Record &record) override
    {
        note(QStringLiteral("add"));
        held.append(record);
    }
    void remove(const Record &record, int index) override
    {
        note(QStringLiteral("remove "), QString::number(index));
        held.removeOne(record);
    }
    void update(const Record &, int colFrom, int colTo, int index) override
    {
        note(QStringLiteral("update"),
             QStringLiteral(" [%1..%2] %3").arg(colFrom).arg(colTo).arg(index));
    }
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int colFrom,
                    int colTo, const QList<Record> &inserted, const QList<Record> &) override
    {
        noteBatch(QStringLiteral("preprocess"), removed.size(), updated.size(), colFrom, colTo,
                  inserted.size());
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted) override
    {
        noteBatch(QStringLiteral("process"), removed.size(), updated.size(), colFrom, colTo,
                  inserted.size());
        for (const Record &record : removed)
            held.removeOne(record);
        held.append(inserted);
    }
    bool filter(const Record &record) const override { return !accepts || accepts(record); }
    bool contains(const Record &record) const override { return held.contains(record); }
    void beginUpdate() override { note(QStringLiteral("beginUpdate")); }
    void endUpdate() override { note(QStringLiteral("endUpdate")); }
    void dependentBeginUpdate(Table *) override { note(QStringLiteral("dependentBeginUpdate")); }
    void dependentEndUpdate(Table *) override { note(QStringLiteral("dependentEndUpdate")); }
    QString getClassName() const override { return m_className; }

private:
    Table *m_table;
    QString m_className;
};

/// A primary key that records its calls as "master.call".
class RecordingMaster : public MasterIndex_Column_Pure, public CallRecorder
{
public:
    RecordingMaster(Table *table, const QString &column, QStringList *log)
        : MasterIndex_Column_Pure(table, column)
        , CallRecorder(QStringLiteral("master"), log)
    {
    }

    void clear() override
    {
        note(QStringLiteral("clear"));
        MasterIndex_Column_Pure::clear();
    }
    void add(const Record &record) override
    {
        note(QStringLiteral("add"));
        MasterIndex_Column_Pure::add(record);
    }
    void remove(const Record &record, int index) override
    {
        note(QStringLiteral("remove "), QString::number(index));
        MasterIndex_Column_Pure::remove(record, index);
    }
    void update(const Record &record, int colFrom, int colTo, int index) override
    {
        note(QStringLiteral("update"),
             QStringLiteral(" [%1..%2] %3").arg(colFrom).arg(colTo).arg(index));
        MasterIndex_Column_Pure::update(record, colFrom, colTo, index);
    }
    void preprocess(const QList<Record> &, const QList<Record> &, int, int, const QList<Record> &,
                    const QList<Record> &) override
    {
        note(QStringLiteral("preprocess"));
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int colFrom, int colTo,
                 const QList<Record> &inserted) override
    {
        noteBatch(QStringLiteral("process"), removed.size(), updated.size(), colFrom, colTo,
                  inserted.size());
        MasterIndex_Column_Pure::process(removed, updated, colFrom, colTo, inserted);
    }
    void beginUpdate() override { note(QStringLiteral("beginUpdate")); }
    void endUpdate() override { note(QStringLiteral("endUpdate")); }
};
