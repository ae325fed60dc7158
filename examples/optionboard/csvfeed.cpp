#include "csvfeed.h"

#include "csvsnapshot.h"

#include <QtCore/qfile.h>

CsvFeed::CsvFeed(const QDir &folder, int limit)
    : m_folder(folder)
{
    m_names = folder.entryList({QStringLiteral("*.csv")}, QDir::Files, QDir::Name);
    if (limit > 0)
        m_names = m_names.mid(0, limit);
}

Snapshot CsvFeed::next()
{
    const QString path = m_folder.filePath(m_names.at(m_next++));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw QStringLiteral("%1: %2").arg(path, file.errorString());
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw QStringLiteral("%1: %2").arg(path, file.errorString());
    return readCsvSnapshot(path, bytes);
}
