#pragma once

#include <QtCore/qstringlist.h>
#include <QtCore/qtextstream.h>
#include <QtCore/qvector.h>

/// Lines of cells, printed in columns that are as wide as their widest cell.
class TextGrid
{
public:
    enum Alignment { Left, Right };

    /// \param alignments  one per column; every line has that many cells
    explicit TextGrid(const QVector<Alignment> &alignments)
        : m_alignments(alignments)
    {
    }

    void add(const QStringList &cells) { m_lines.append(cells); }
    void print(QTextStream &out) const;

private:
    const QVector<Alignment> m_alignments;
    QVector<QStringList> m_lines;
};

/// "1,234,567"
QString grouped(qint64 value);
/// Plain decimal text, "-1234567.50", with its integer digits grouped.
QString grouped(QString number);
/// Nanoseconds as milliseconds with two decimals.
QString milliseconds(qint64 nanoseconds);
