#pragma once

#include <database/indexes/indexlist.h>
#include <database/tables/table.h>

#include <QtCore/qstringlist.h>

#include <functional>

/// Writes down what an index is told as "name.call", in a list that several indexes share, and runs
/// what a test wants to happen, or to be thrown, there. Calls that an index makes of itself are not
/// written down.
class CallRecorder
{
public:
    QString name;
    QStringList *log = nullptr;
    std::function<void(const QString &call)> onCall; ///< runs after the call was written down

protected:
    struct Call {
        Call(CallRecorder *recorder, const char *call, const QString &details = QString())
            : depth(recorder->m_depth)
        {
            if (depth == 0 && recorder->log) {
                recorder->log->append(recorder->name + '.' + call + details);
                if (recorder->onCall)
                    recorder->onCall(QLatin1String(call));
            }
            ++depth;
        }
        ~Call() { --depth; }
        int &depth;
    };
    static QString batch(int removed, int updated, int from, int to, int inserted)
    {
        return QStringLiteral(" -%1 ~%2 +%3 [%4..%5]")
            .arg(QString::number(removed), QString::number(updated), QString::number(inserted),
                 QString::number(from), QString::number(to));
    }

private:
    int m_depth = 0;
};

/// An index of any kind that records every call and then does its work.
template<class Base>
class Recording : public Base, public CallRecorder
{
public:
    using Records = const QList<Record> &;

    template<class... Arguments>
    Recording(const QString &itsName, QStringList *itsLog, Arguments &&...arguments)
        : Base(std::forward<Arguments>(arguments)...)
    {
        name = itsName;
        log = itsLog;
    }

    std::function<bool(const Record &)> accepts;
    QString className; ///< in the place of the base's, unless empty

    void clear() override
    {
        const Call call(this, "clear");
        Base::clear();
    }
    void build() override
    {
        const Call call(this, "build");
        Base::build();
    }
    void add(const Record &record) override
    {
        const Call call(this, "add");
        Base::add(record);
    }
    void remove(const Record &record, int index) override
    {
        const Call call(this, "remove", QStringLiteral(" %1").arg(index));
        Base::remove(record, index);
    }
    void update(const Record &record, int from, int to, int index) override
    {
        const Call call(this, "update",
                        QStringLiteral(" [%1..%2] %3").arg(from).arg(to).arg(index));
        Base::update(record, from, to, index);
    }
    void preprocess(Records removed, Records updated, int from, int to, Records inserted,
                    Records values) override
    {
        const Call call(this, "preprocess",
                        batch(removed.size(), updated.size(), from, to, inserted.size()));
        Base::preprocess(removed, updated, from, to, inserted, values);
    }
    void process(Records removed, Records updated, int from, int to, Records inserted) override
    {
        const Call call(this, "process",
                        batch(removed.size(), updated.size(), from, to, inserted.size()));
        Base::process(removed, updated, from, to, inserted);
    }
    bool filter(const Record &record) const override { return !accepts || accepts(record); }
    void beginUpdate() override { Call(this, "beginUpdate"); }
    void endUpdate() override { Call(this, "endUpdate"); }
    void dependentBeginUpdate(Table *) override { Call(this, "dependentBeginUpdate"); }
    void dependentEndUpdate(Table *) override { Call(this, "dependentEndUpdate"); }
    QString getClassName() const override
    {
        return className.isEmpty() ? Base::getClassName() : className;
    }
};

using RecordingIndex = Recording<IndexList>;
