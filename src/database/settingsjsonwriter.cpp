#include "database/settingsjson.h"
#include "database/settingstags.h"
#include "database/settingsvalue.h"

#include <QtCore/qlocale.h>

#include <cmath>

namespace
{

const QString kType = QStringLiteral("$type");
constexpr int kIndentation = 4;
constexpr int kLineWidth = 100; // up to which a list stays on one line

bool isLoneSurrogate(const QString &text, int i)
{
    if (text.at(i).isHighSurrogate())
        return i + 1 == text.size() || !text.at(i + 1).isLowSurrogate();
    return text.at(i).isLowSurrogate() && (i == 0 || !text.at(i - 1).isHighSurrogate());
}

void appendQuoted(QString *out, const QString &text)
{
    out->append(QLatin1Char('"'));
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('"') || c == QLatin1Char('\\')) {
            out->append(QLatin1Char('\\'));
            out->append(c);
        } else if (c == QLatin1Char('\n')) {
            out->append(QLatin1String("\\n"));
        } else if (c == QLatin1Char('\t')) {
            out->append(QLatin1String("\\t"));
        } else if (c < QLatin1Char(' ') || c == QChar(0x7F) || isLoneSurrogate(text, i)) {
            out->append(QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0')));
        } else {
            out->append(c);
        }
    }
    out->append(QLatin1Char('"'));
}

QString doubleText(double value)
{
    QString text = QString::number(std::abs(value), 'g', QLocale::FloatingPointShortest);
    if (std::signbit(value)) // which Qt leaves out before a zero
        text.prepend(QLatin1Char('-'));
    if (!text.contains(QLatin1Char('.')) && !text.contains(QLatin1Char('e')))
        text += QLatin1String(".0");
    return text;
}

class Writer
{
public:
    QByteArray write(const SettingsMap &values)
    {
        auto it = values.begin();
        m_out += QLatin1Char('{');
        writeGroup(it, values.end(), QString(), 1);
        endObject(0, values.isEmpty());
        m_out += QLatin1Char('\n');
        return m_out.toUtf8();
    }

private:
    void newLine(int level)
    {
        m_out += QLatin1Char('\n');
        m_out += QString(level * kIndentation, QLatin1Char(' '));
    }
    void beginMember(bool *first, const QString &name, int level)
    {
        if (!*first)
            m_out += QLatin1Char(',');
        *first = false;
        newLine(level);
        appendQuoted(&m_out, name);
        m_out += QLatin1String(": ");
    }
    void endObject(int level, bool empty)
    {
        if (!empty)
            newLine(level);
        m_out += QLatin1Char('}');
    }

    /// Writes the keys that begin with \p prefix, from \p it on; ends behind them. The keys of a
    /// group are neighbours, since nothing that begins otherwise sorts between them.
    void writeGroup(SettingsMap::const_iterator &it, SettingsMap::const_iterator end,
                    const QString &prefix, int level)
    {
        bool first = true;
        while (it != end && it.key().startsWith(prefix)) {
            const int slash = it.key().indexOf(QLatin1Char('/'), prefix.size());
            if (slash < 0) {
                beginMember(&first, it.key().mid(prefix.size()), level);
                writeValue(it.value(), level, true);
                ++it;
            } else {
                const QString group = it.key().left(slash + 1);
                beginMember(&first, group.mid(prefix.size(), slash - prefix.size()), level);
                m_out += QLatin1Char('{');
                writeGroup(it, end, group, level + 1);
                endObject(level, false);
            }
        }
    }

    /// \param inGroup  whether an object without a tag would be a group here
    void writeValue(const QVariant &value, int level, bool inGroup)
    {
        switch (value.userType()) {
        case QMetaType::UnknownType:
            m_out += QLatin1String("null");
            return;
        case QMetaType::Bool:
            m_out += value.toBool() ? QLatin1String("true") : QLatin1String("false");
            return;
        case QMetaType::Int:
            m_out += QString::number(value.toInt());
            return;
        case QMetaType::QString:
            appendQuoted(&m_out, value.toString());
            return;
        case QMetaType::QVariantList:
            writeList(value.toList(), level);
            return;
        case QMetaType::QVariantMap:
            writeMap(value.toMap(), level, inGroup);
            return;
        default:
            break;
        }
        if (value.userType() == qMetaTypeId<UnknownSetting>()) {
            m_out += value.value<UnknownSetting>().json;
            return;
        }
        const SettingsTags::Tagged tagged = SettingsTags::encoded(value);
        if (tagged.type)
            writeTagged(tagged, level);
        else
            m_out += doubleText(value.toDouble());
    }

    void writeTagged(const SettingsTags::Tagged &tagged, int level)
    {
        m_out += QLatin1String("{\"$type\": ");
        appendQuoted(&m_out, QLatin1String(tagged.type));
        for (auto it = tagged.fields.begin(); it != tagged.fields.end(); ++it) {
            m_out += QLatin1String(", ");
            appendQuoted(&m_out, it.key());
            m_out += QLatin1String(": ");
            writeValue(it.value(), level, false);
        }
        m_out += QLatin1Char('}');
    }

    /// On one line when it fits and nothing nests in it; else an element a line.
    void writeList(const QVariantList &list, int level)
    {
        const int begin = m_out.size();
        const int longest = begin + kLineWidth - level * kIndentation;
        bool fits = true;
        m_out += QLatin1Char('[');
        for (int i = 0; i < list.size() && fits; ++i) {
            const int type = list.at(i).userType();
            fits = type != QMetaType::QVariantList && type != QMetaType::QVariantMap;
            if (!fits)
                break;
            if (i > 0)
                m_out += QLatin1String(", ");
            writeValue(list.at(i), level, false);
            fits = m_out.size() < longest;
        }
        if (fits) {
            m_out += QLatin1Char(']');
            return;
        }
        m_out.truncate(begin + 1);
        for (int i = 0; i < list.size(); ++i) {
            if (i > 0)
                m_out += QLatin1Char(',');
            newLine(level + 1);
            writeValue(list.at(i), level + 1, false);
        }
        newLine(level);
        m_out += QLatin1Char(']');
    }

    void writeMap(const QVariantMap &map, int level, bool inGroup)
    {
        const bool tagged = inGroup || map.contains(kType);
        if (tagged)
            m_out += QLatin1String("{\"$type\": \"map\", \"value\": ");
        m_out += QLatin1Char('{');
        bool first = true;
        for (auto it = map.begin(); it != map.end(); ++it) {
            beginMember(&first, it.key(), level + 1);
            writeValue(it.value(), level + 1, false);
        }
        endObject(level, first);
        if (tagged)
            m_out += QLatin1Char('}');
    }

    QString m_out;
};

} // namespace

QByteArray SettingsJson::write(const SettingsMap &values)
{
    return Writer().write(values);
}
