#pragma once

#include "database/database_global.h"
#include "database/indexes/partitionlist.h"
#include "database/persistence/fielddefconvertor.h"
#include "database/persistence/filterprogress.h"
#include "database/persistence/tablefilereport.h"
#include "database/record.h"
#include "database/tables/columndef.h"

#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qpair.h>
#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>

class IndexList;
class QDataStream;
class QDir;
class Table;

/// Saves a table (columns, names of the key columns, rows) and loads it back, also after its
/// columns have changed: into a stream, or into a file named after the table in a directory. Row
/// lists of any number of tables go into one stream, section by section.
///
/// docs/table-file-format.md describes the bytes. Rows are the bytes of row blocks, so a file
/// belongs to machines of this byte order.
///
/// What is always true:
///  (1) A save replaces the old file as a whole or leaves it as it was, whatever fails: see
///      TableDataStreamWrite.
///  (2) A load closes the update bracket and puts the table's indexes back, built, on every way
///      out. Once the stream delivered its first byte, the table's old rows are gone.
///  (3) Nothing in a file is trusted with memory: cells are filled within their own widths, and
///      memory follows the bytes that came. Only the number of rows is believed: a file that is cut
///      gives the rows that it holds, and rows with initial values in place of the others. Ask
///      check() first where that matters.
///
/// Threads: loads and filterRecords() belong to the thread that updates the table. Writes hold the
/// table's lock from the header to the last row.
class DATABASE_EXPORT TableIO
{
public:
    static constexpr qint32 kMagic = 0x20151002; ///< the only version of the format

    /// What stands before the rows, in stream order.
    struct TableHeader {
        qint32 magic = 0;
        qint16 columnCount = 0;
        qint32 rowCount = 0;
        qint32 rowLength = 0;          ///< bytes of a row's cells in the stream
        qint32 flagBytes = 0;          ///< bytes of a row's presence bits in the stream
        QList<TableColumnDef> columns; ///< in table order
        QStringList keyColumns;        ///< of the master index
    };

    /// The name of a column of the table and of the column of the file that it is fed from.
    using ConvertKey = QPair<QString, QString>;
    /// The application's convertors. Several may feed one column; they run in key order. An entry
    /// with an empty first name keeps the file's column of the second name from being added.
    ///
    /// A load deletes the convertors that it took: all whose two columns exist, once it gets as far
    /// as the rows. The others, named in a warning, stay the application's.
    using Convertors = QMap<ConvertKey, FieldDefConvertor *>;
    /// A column's offset in the file's rows and its convertor; ordered by the offset.
    using Range = QPair<qint32, FieldDefConvertor *>;

    class FieldDefConvertor_Copy;
    class FieldDefConvertor_Copy4;
    class FieldDefConvertor_Copy8;

    /// \p table is borrowed.
    explicit TableIO(Table *table);
    /// For a table that is saved or looked at only. What would change it throws a QString,
    /// "Table '%1' is constant here.", before anything is read.
    explicit TableIO(const Table *table);

    /// The path of the table's file in a directory: the table's name, without an extension. A
    /// compressed file has ".gz" behind it.
    QString fileName(const QDir &dir) const;

    // Header ------------------------------------------------------------------------------------

    /// \throws QString for a table beyond 32767 columns or rows beyond 2 GiB
    static void setupHeader(TableHeader &header, const Table *table);
    static void writeHeader(const TableHeader &header, QDataStream &stream);
    /// Reads up to the first error of the stream, and no further than a wrong magic number.
    static void readHeader(TableHeader &header, QDataStream &stream);

    // Writing -----------------------------------------------------------------------------------

    /// Writes header and, if \p withRows, the rows in the order of the master index. Failures are
    /// the stream's status. \p progress hears of each row after it was packed. \throws QString as
    /// setupHeader()
    void write(FilterProgress &progress, QDataStream &stream, bool withRows) const;
    void write(QDataStream &stream, bool withRows) const;
    /// Saves to the table's file, compressed when the application's core asks for it.
    /// \param[out] error  why it failed, when it did; may be null
    /// \return whether the file is safely stored; if not, the old one is still in place
    bool write(FilterProgress &progress, const QDir &dir, bool withRows,
               QString *error = nullptr) const;
    bool write(const QDir &dir, QString *error = nullptr) const;
    /// Writes the rows alone. \throws QString when the header is not one of this table's columns
    void writeRows(FilterProgress &progress, const TableHeader &header, QDataStream &stream) const;

    // Reading -----------------------------------------------------------------------------------

    /// Replaces the table's contents by those of a stream. At the stream's end nothing happens; a
    /// wrong magic number leaves the table empty.
    ///
    /// Columns are matched by name and converted where their definitions differ; columns that the
    /// file does not have keep the values of a new row. Records that \p progress rejects are left
    /// out. Rows go into the table by up to 10240 at a time.
    /// \param addColumns  whether columns that only the file has are added to the table
    /// \param withRows    if not, only the columns are added and the table stays empty
    /// \throws QString for a header that is cut or contradicts itself, as Table::addColumn(), and
    /// with Exception what a conversion throws; std::bad_alloc. Rows that have reached the table by
    /// then stay in it.
    void read(FilterProgress &progress, QDataStream &stream, bool addColumns,
              const Convertors &convertors, bool withRows);
    void read(QDataStream &stream, bool addColumns, const Convertors &convertors);
    void read(QDataStream &stream, bool addColumns);
    /// Loads the table's file, the plain one if there are two; does nothing when there is none.
    void read(FilterProgress &progress, const QDir &dir, bool addColumns);
    void read(const QDir &dir, bool addColumns);

    /// Says what a stream holds, without touching any table; reads it to its end.
    static TableFileReport check(QDataStream &stream);
    /// The same for the file that read() would take.
    TableFileReport check(const QDir &dir) const;

    // Row lists ---------------------------------------------------------------------------------

    /// Appends the records of one table as a section; an empty list writes nothing. A table without
    /// a name writes the empty name that ends the sections for a reader.
    static void writeRowList(FilterProgress &progress, QDataStream &stream,
                             const PartitionList<Record> &list);
    /// Reads a section and appends the records that \p progress accepts to \p out. There is no
    /// conversion: the columns must be those of the table, in number, type and size.
    /// \param createTable  whether to make a table with the section's columns, which becomes the
    ///                     caller's, instead of asking the application's core for it by name
    /// \return the table of the records; null at the end of the stream, for an empty name, and for
    ///         a table that the core does not know, whose section is skipped
    /// \throws QString for a header that is cut or contradicts itself or the table (the section is
    /// skipped then where its length is known); \p out is as it was before
    static Table *readRowList(FilterProgress &progress, QDataStream &stream,
                              PartitionList<Record> &out, bool createTable);

    // Tables in memory --------------------------------------------------------------------------

    /// Removes every record that \p progress rejects; it hears of those that are kept. An exception
    /// leaves the rows as they were.
    void filterRecords(FilterProgress &progress);

    /// Bytes of all rows of a table, and those among them that only pad cells. A table without a
    /// master index leaves both alone.
    static void memoryUsage(const Table *table, unsigned long &total, unsigned long &padding);
    /// Bytes of an index's handles, and those among them that are not in use.
    static void memoryUsage(IndexList *index, unsigned long &total, unsigned long &unused);

    // Conversion --------------------------------------------------------------------------------

    /// Appends what fills the columns of this table from those of \p source: the application's
    /// convertors, else copies where the definitions agree, else FieldDefConvertor. What is
    /// appended is the caller's to delete, those out of \p map included.
    void make_fromDefs(QList<FieldDefConvertor *> &out, const Table *source,
                       const Convertors &map) const;
    /// Runs convertors in list order from a row block of their source table to one of their target.
    static void convertDefs(const QList<FieldDefConvertor *> &list, uchar *target, uchar *source);

private:
    Table &changeable() const;

    Table *m_table; // borrowed
    bool m_isConstant = false;
};

/// Copies a cell's bytes and its presence, between columns of one size.
class DATABASE_EXPORT TableIO::FieldDefConvertor_Copy : public FieldDefConvertor
{
public:
    explicit FieldDefConvertor_Copy(quint64 size)
        : m_size(size)
    {
    }
    void convert(Field &target, const Field &source) override;
    quint64 size() const { return m_size; } ///< bytes

private:
    const quint64 m_size;
};

class DATABASE_EXPORT TableIO::FieldDefConvertor_Copy4 : public FieldDefConvertor_Copy
{
public:
    FieldDefConvertor_Copy4()
        : FieldDefConvertor_Copy(4)
    {
    }
    void convert(Field &target, const Field &source) override;
};

class DATABASE_EXPORT TableIO::FieldDefConvertor_Copy8 : public FieldDefConvertor_Copy
{
public:
    FieldDefConvertor_Copy8()
        : FieldDefConvertor_Copy(8)
    {
    }
    void convert(Field &target, const Field &source) override;
};
