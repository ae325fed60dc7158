#pragma once

#include "database/indexes/indexsort.h"

#include <QtCore/qstringlist.h>

/// The primary order of a table: the sorted index whose records are the table's rows, whose key
/// makes two rows the same to a transaction, and which turns a row's key into text and back.
///
/// Receives each batch before all other indexes. Classes that tell their key by setColumns() are
/// passed by where it does not change; a class derived from one of them that does not tell again is
/// compared by compare() alone. When the memory for a batch cannot be had here, its rows neither
/// come nor leave, though other indexes have taken it: Table::build() brings them back in step. The
/// updates of the batch stand. The table that it is given to by
/// Table::setMasterIndex() owns it. Every class of the family answers "MasterIndex" to
/// getClassName().
class DATABASE_EXPORT MasterIndex : public IndexSort
{
public:
    explicit MasterIndex(Table *table);

    QString getClassName() const override;

    // Keys as text, exactly -------------------------------------------------------------------

    /// The key of a record as a text that always reads back to the same row: what to store, to send
    /// and to show where a row has to be found again. Empty for a null record and for an index
    /// without key columns, never for another row.
    ///
    /// The parts stand in key order with "," between them. Numbers have every digit and keep their
    /// scale, for which one below zero stands behind an "e" as its type reads it: 500 of scale -2
    /// is "5e-2" as a decimal, whose texts have a count of places there, and "5e2" as an extended
    /// one. Dates are those of datetime::toString(), or the milliseconds where that does not read
    /// back, as for no date. NULL is NULL. A text stands in double quotes, its own ones doubled,
    /// when it is empty or NULL, has a comma, a quote or a control character, or a space at an end.
    QString keyText(const Record &record) const;
    /// A new row of the table, in no index, that carries the key in \p keyText. Plain parts need no
    /// quotes: what people type, as fromText() reads it, reads here.
    /// \throws QString as fromText() and for quotes that do not match; Exception for a part that
    /// does not convert or is longer than its column
    Record fromKeyText(const QString &keyText) const;
    /// The first record whose key is the one in \p keyText; null when there is none, and for an
    /// index without key columns. \throws as fromKeyText()
    Record findByKeyText(const QString &keyText) const;

    // Keys as text, the older form -------------------------------------------------------------

    /// The key cells' texts joined with "," (no quoting: a value with a comma does not read back,
    /// nor do all digits of a large decimal, which decimal::toString() writes through a double);
    /// empty for a null record. keyText() has neither flaw.
    virtual QString toText(const Record &record) const = 0;
    /// A new row of the table, in no index, that carries the key read from \p text.
    /// \throws QString when the number of parts is wrong, Exception when a part does not convert
    virtual Record fromText(const QString &text) const = 0;
    /// The numbers of the key columns, most significant first; empty for an index without a key.
    virtual QList<int> keyColumns() const;

    /// The first record whose key is the one in \p text, or null. \throws as fromText()
    Record findRecord(const QString &text) const;
    /// The names of the key columns, in key order.
    QStringList columnNames() const;
};

/// A master index without a key: every record has the same key, so the rows keep the order in which
/// they came. What every new table starts with.
class DATABASE_EXPORT MasterIndexOrdered : public MasterIndex
{
public:
    explicit MasterIndexOrdered(Table *table);

    int compare(const Record &a, const Record &b) const override;
    QString toText(const Record &record) const override;
    /// A new row of the table, whatever the text: every record has its key.
    Record fromText(const QString &text) const override;
};
