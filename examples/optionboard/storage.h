#pragma once

#include "board.h"

#include <database/icore.h>

#include <QtCore/qdir.h>
#include <QtCore/qtextstream.h>

/// The example as the library's host: says whether table files are compressed.
class HostCore : public ICore
{
public:
    /// In force while it lives.
    explicit HostCore(bool compress);
    ~HostCore() override;

    bool hasTable(const QString &name) const override;
    Table *table(const QString &name) const override;
    bool compressTableFiles() const override { return m_compress; }

private:
    const bool m_compress;
};

/// The options as the next version of the application declares them: the stock's name got wider,
/// the strike another scale, OpenInterest is called Interest, and the time is gone.
class NextOptionTable : public Table
{
public:
    enum Column { kStock, kExpiry, kStrike, kSide, kLast, kInterest, kVolume };

    NextOptionTable();
};

/// Keeps the quotes of a board in a folder, prints what it does, and proves that nothing changes on
/// the way.
class Storage
{
public:
    Storage(QTextStream &out, const QString &folder);

    /// \throws QString why a table could not be stored; its old file is in place then
    void save(const Board &board);
    /// Loads the folder's files into new tables, the options also into those of the next version,
    /// with the board's orders over them.
    /// \param board  what was saved, to compare with; may be null
    /// \throws QString which file is not sound, or which rows differ
    void load(const Board *board);

private:
    void printDone(const char *what, const Table &table, qint64 nanoseconds);

    QTextStream &m_out; // borrowed
    const QDir m_dir;
};

/// CRC-64 over the texts of some columns of all rows, in key order.
quint64 checksum(const Table &table, const QStringList &columns);
