#include "database/values/boardlist.h"

#include <QtCore/qmap.h>
#include <QtCore/qstringlist.h>

bool boardlist::append(qint32 key, qint32 value)
{
    if (count >= kCapacity)
        return false;
    entries[count].key = key;
    entries[count].value = value;
    ++count;
    return true;
}

QString boardlist::toString() const
{
    // The count may come from a file.
    const int used = qBound(0, count, kCapacity);
    QMap<QString, QStringList> valuesByKey;
    for (int i = 0; i < used; ++i)
        valuesByKey[QString::number(entries[i].key)].append(QString::number(entries[i].value));

    QStringList texts;
    for (auto it = valuesByKey.begin(); it != valuesByKey.end(); ++it) {
        it->sort();
        texts.append(it.key() + QLatin1Char(':') + it->join(QLatin1Char(',')));
    }
    // The order of the keys is not that of the texts: "10:5" stands before "1:5".
    texts.sort();
    return texts.join(QLatin1Char(' '));
}
