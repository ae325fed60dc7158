#pragma once

#include <database/indexes/indexlist.h>
#include <database/masterindex_column.h>
#include <database/tables/table.h>

#include <QtCore/qscopedvaluerollback.h>
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

    const QString m_name;

private:
    QStringList *m_log;
};

/// An index that records what its table calls; what it calls on itself meanwhile is left out.
template<class Base>
class Recording : public Base, public CallRecorder
{
public:
    template<class... Arguments>
    Recording(const QString &name, QStringList *log, Arguments... arguments)
        : Base(arguments...)
        , CallRecorder(name, log)
    {
    }

    void clear() override
    {
        record("clear", {}, [&] { Base::clear(); });
    }
    void add(const Record &row) override
    {
        record("add", {}, [&] { Base::add(row); });
    }
    void remove(const Record &row, int index) override
    {
        record("remove", QStringLiteral(" %1").arg(index), [&] { Base::remove(row, index); });
    }
    void update(const Record &row, int from, int to, int index) override
    {
        record("update", QStringLiteral(" [%1..%2] %3").arg(from).arg(to).arg(index),
               [&] { Base::update(row, from, to, index); });
    }
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int from, int to,
                    const QList<Record> &inserted, const QList<Record> &) override
    {
        note("preprocess", batch(removed, updated, from, to, inserted));
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int from, int to,
                 const QList<Record> &inserted) override
    {
        record("process", batch(removed, updated, from, to, inserted),
               [&] { Base::process(removed, updated, from, to, inserted); });
    }
    void beginUpdate() override { note("beginUpdate"); }
    void endUpdate() override { note("endUpdate"); }
    void dependentBeginUpdate(Table *) override { note("dependentBeginUpdate"); }
    void dependentEndUpdate(Table *) override { note("dependentEndUpdate"); }
    QString getClassName() const override { return m_name; }

protected:
    template<class Act>
    void record(const QString &call, const QString &details, Act act)
    {
        if (!m_acting)
            note(call, details);
        const QScopedValueRollback<bool> acting(m_acting, true);
        act();
    }

private:
    static QString batch(const QList<Record> &removed, const QList<Record> &updated, int from,
                         int to, const QList<Record> &inserted)
    {
        const QString text = QStringLiteral(" -%1 ~%2 +%3 [%4..%5]");
        return text.arg(removed.size()).arg(updated.size()).arg(inserted.size()).arg(from).arg(to);
    }

    bool m_acting = false;
};

using RecordingMaster = Recording<MasterIndex_Column_Pure>;

/// A secondary index over all rows, or those that \a accepts says.
class RecordingIndex : public Recording<IndexList>
{
public:
    RecordingIndex(const QString &name, QStringList *log, Table *table, bool addToTable = true)
        : Recording(name, log, table, addToTable)
    {
    }

    std::function<bool(const Record &)> accepts;

    void build() override
    {
        record("build", {}, [&] { IndexList::build(); });
    }
    bool filter(const Record &row) const override { return !accepts || accepts(row); }
};
