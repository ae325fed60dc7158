#include "textgrid.h"

#include <algorithm>

void TextGrid::print(QTextStream &out) const
{
    QVector<int> widths(m_alignments.size(), 0);
    for (const QStringList &line : m_lines) {
        for (int i = 0; i < widths.size(); ++i)
            widths[i] = std::max(widths.at(i), line.at(i).size());
    }
    for (const QStringList &line : m_lines) {
        QString text;
        for (int i = 0; i < widths.size(); ++i) {
            text += QLatin1String("  ");
            text += m_alignments.at(i) == Left ? line.at(i).leftJustified(widths.at(i))
                                               : line.at(i).rightJustified(widths.at(i));
        }
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        out << text << '\n';
    }
}

QString grouped(qint64 value)
{
    return grouped(QString::number(value));
}

QString grouped(QString number)
{
    const int point = number.indexOf(QLatin1Char('.'));
    const int first = number.startsWith(QLatin1Char('-')) ? 1 : 0;
    for (int i = (point == -1 ? number.size() : point) - 3; i > first; i -= 3)
        number.insert(i, QLatin1Char(','));
    return number;
}

QString milliseconds(qint64 nanoseconds)
{
    return QString::number(double(nanoseconds) / 1e6, 'f', 2);
}
