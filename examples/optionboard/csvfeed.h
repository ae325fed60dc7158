#pragma once

#include "feed.h"

#include <QtCore/qdir.h>
#include <QtCore/qstringlist.h>

/// The CSV files of a folder, in the order of their names, one snapshot each.
class CsvFeed : public Feed
{
public:
    /// \param limit  takes at most that many files, the first ones; 0 takes all
    CsvFeed(const QDir &folder, int limit);

    int count() const override { return m_names.size(); }
    QString name(int i) const override { return m_names.at(i); }
    /// \throws QString also for a file that cannot be read
    Snapshot next() override;

private:
    const QDir m_folder;
    QStringList m_names;
    int m_next = 0;
};
