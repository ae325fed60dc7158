#include "database/settingsjson.h"

#include "database/settingstags.h"
#include "database/settingsvalue.h"

#include <QtCore/qtextcodec.h>

#include <cmath>

// The reader is written here and not taken from Qt, whose own keeps no difference between 2 and
// 2.0, replaces lone surrogates, drops all but the last of repeated names in silence, and tells an
// offset in place of a line.

using namespace SettingsValue;

namespace
{

const QString kType = QStringLiteral("$type");
const QString kMap = QStringLiteral("map");
const QString kValue = QStringLiteral("value");
const QLatin1Char kSlash('/');

bool isDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

/// What stands at the cursor, for a message.
QString foundText(const QChar *at, const QChar *end)
{
    if (at == end)
        return QStringLiteral("the end");
    if (at->isHighSurrogate() && at + 1 != end)
        return QStringLiteral("'%1'").arg(QString(at, 2));
    if (*at < QLatin1Char(' ') || at->isSurrogate())
        return QStringLiteral("the character U+%1").arg(at->unicode(), 4, 16, QLatin1Char('0'));
    return QStringLiteral("'%1'").arg(*at);
}

[[noreturn]] void failAt(const QChar *begin, const QChar *at, const QString &problem)
{
    int line = 1, column = 1;
    for (const QChar *c = begin; c != at; ++c) {
        if (*c == QLatin1Char('\n')) {
            ++line;
            column = 1;
        } else if (!c->isLowSurrogate()) {
            ++column;
        }
    }
    throw QStringLiteral("line %1, column %2: %3").arg(line).arg(column).arg(problem);
}

/// Reads one text. Levels are those of groups, lists and maps that a value stands in; the object of
/// a tag counts only when the tag is unknown.
class Reader
{
public:
    /// Borrows the text.
    explicit Reader(const QString &text, int levels = Settings::kMaxDepth)
        : m_begin(text.constData())
        , m_end(m_begin + text.size())
        , m_levels(levels)
        , m_at(m_begin)
    {
    }

    SettingsMap readSettings()
    {
        skipBlanks();
        require('{', "an object, '{',");
        readGroup(QString(), 0);
        skipBlanks();
        if (m_at != m_end)
            fail("the end");
        return m_settings;
    }

    /// A tagged object that is the whole text.
    QVariant readTaggedAlone()
    {
        require('{', "an object, '{',");
        if (!isAtTag())
            fail("the name \"$type\"");
        QVariant value = readTagged(0);
        if (m_at != m_end)
            fail("the end");
        return value;
    }

private:
    [[noreturn]] void fail(const char *expected) const
    {
        failAt(m_begin, m_at,
               QStringLiteral("%1 is expected, %2 found")
                   .arg(QLatin1String(expected), foundText(m_at, m_end)));
    }
    [[noreturn]] void failRepeated(const QString &name, const QChar *where) const
    {
        failAt(m_begin, where,
               QStringLiteral("another name is expected, \"%1\" found again").arg(name));
    }

    bool isAt(char c) const { return m_at != m_end && *m_at == QLatin1Char(c); }
    bool take(char c)
    {
        if (!isAt(c))
            return false;
        ++m_at;
        return true;
    }
    void require(char c, const char *expected)
    {
        if (!take(c))
            fail(expected);
    }
    void skipBlanks()
    {
        while (isAt(' ') || isAt('\n') || isAt('\r') || isAt('\t'))
            ++m_at;
    }
    void enter(int level, const QChar *where) const
    {
        if (level > m_levels)
            failAt(m_begin, where,
                   QStringLiteral("at most %1 levels of groups, lists and maps are expected, more "
                                  "found")
                       .arg(Settings::kMaxDepth));
    }

    // Members and elements are read by calls with the cursor at the value, names with the place
    // where they stand.

    /// The members of an object whose brace is taken.
    template<class ReadMember>
    void readMembers(ReadMember &&readMember)
    {
        skipBlanks();
        if (!take('}'))
            readMoreMembers(readMember);
    }
    /// The members behind one that has been read already.
    template<class ReadMember>
    void readOtherMembers(ReadMember &&readMember)
    {
        skipBlanks();
        if (take('}'))
            return;
        require(',', "',' or '}'");
        readMoreMembers(readMember);
    }
    template<class ReadMember>
    void readMoreMembers(ReadMember &&readMember)
    {
        do {
            skipBlanks();
            const QChar *where = m_at;
            const QString name = readString("a name in '\"'");
            skipBlanks();
            require(':', "':'");
            skipBlanks();
            readMember(name, where);
            skipBlanks();
        } while (take(','));
        require('}', "',' or '}'");
    }
    template<class ReadElement>
    void readElements(ReadElement &&readElement)
    {
        require('[', "a list");
        skipBlanks();
        if (take(']'))
            return;
        do {
            skipBlanks();
            readElement();
            skipBlanks();
        } while (take(','));
        require(']', "',' or ']'");
    }

    /// The members of a group. \param level  the parts of its path
    void readGroup(const QString &group, int level)
    {
        readMembers([&](const QString &name, const QChar *where) {
            if (name == kType)
                failAt(m_begin, where,
                       QStringLiteral("a name of a setting is expected, \"$type\" found, which "
                                      "belongs first into the object of a value"));
            const QString key = group.isEmpty() ? name : group + kSlash + name;
            const int parts = level + name.count(kSlash) + 1;
            enter(parts, where);
            if (!isPath(name))
                failAt(m_begin, where,
                       QStringLiteral("a name, or names with '/' between them, is expected, "
                                      "\"%1\" found")
                           .arg(name));
            if (isAt('{') && !isAtTagged()) {
                ++m_at;
                readGroup(key, parts);
            } else {
                insert(key, readValue(parts), where);
            }
        });
    }

    void insert(const QString &key, const QVariant &value, const QChar *where)
    {
        if (m_settings.contains(key))
            failRepeated(key, where);
        const QString above = valueAbove(m_settings, key);
        const auto below = firstBelow(m_settings, key);
        if (!above.isEmpty() || (below != m_settings.constEnd() && isBelow(below.key(), key)))
            failAt(m_begin, where,
                   QStringLiteral("a value or a group is expected, both found at \"%1\"")
                       .arg(above.isEmpty() ? key : above));
        m_settings.insert(key, value);
    }

    /// A value that stands in \p level groups, lists and maps.
    QVariant readValue(int level)
    {
        if (isAt('{')) {
            const bool tagged = isAtTagged();
            ++m_at;
            return tagged ? readTagged(level) : readMap(level + 1, false);
        }
        if (!isAt('['))
            return readScalar();
        enter(level + 1, m_at);
        QVariantList list;
        readElements([&] { list.append(readValue(level + 1)); });
        return list;
    }

    /// A map whose brace is taken.
    /// \param free  whether any name may be in it, because the map itself is the value of a tag
    QVariant readMap(int level, bool free)
    {
        enter(level, m_at - 1);
        QVariantMap map;
        readMembers([&](const QString &name, const QChar *where) {
            if (!free && name == kType)
                failAt(m_begin, where,
                       QStringLiteral("\"$type\" is expected to be the first name, it is found "
                                      "behind others"));
            if (map.contains(name))
                failRepeated(name, where);
            map.insert(name, readValue(level));
        });
        return map;
    }

    /// Whether an object with a tag begins at the cursor, or behind the brace that is taken.
    bool isAtTagged()
    {
        const QChar *object = m_at++;
        const bool found = isAtTag();
        m_at = object;
        return found;
    }
    bool isAtTag()
    {
        const QChar *inside = m_at;
        skipBlanks();
        const bool found = isAt('"') && readString("") == kType;
        m_at = inside;
        return found;
    }

    /// The tagged object whose brace is taken.
    QVariant readTagged(int level)
    {
        const QChar *object = m_at - 1;
        skipBlanks();
        readString("the name \"$type\"");
        skipBlanks();
        require(':', "':'");
        skipBlanks();
        const QString type = readString("the name of a type in '\"'");
        const bool known = SettingsTags::isKnown(type);
        const QChar *valueAt = object;
        QVariantMap fields;
        readOtherMembers([&](const QString &name, const QChar *where) {
            if (name == kType || fields.contains(name))
                failRepeated(name, where);
            if (name == kValue)
                valueAt = m_at;
            if (!known) {
                skipValue(level + 1);
                fields.insert(name, QVariant());
            } else if (type == kMap && name == kValue && take('{')) {
                fields.insert(name, readMap(level + 1, true));
            } else {
                fields.insert(name, readValue(level + 1));
            }
        });
        QVariant value;
        QString expected;
        switch (SettingsTags::decode(type, fields, &value, &expected)) {
        case SettingsTags::Understood:
            return value;
        case SettingsTags::Wrong:
            failAt(m_begin, valueAt,
                   QStringLiteral("%1 is expected as the \"value\" of the type '%2'")
                       .arg(expected, type));
        case SettingsTags::Unknown:
            break;
        }
        enter(level + 1, object);
        return QVariant::fromValue(UnknownSetting{type, QString(object, int(m_at - object))});
    }

    /// A value that nobody here has to understand.
    void skipValue(int level)
    {
        if (isAt('{')) {
            enter(level + 1, m_at++);
            readMembers([&](const QString &, const QChar *) { skipValue(level + 1); });
        } else if (isAt('[')) {
            enter(level + 1, m_at);
            readElements([&] { skipValue(level + 1); });
        } else {
            readScalar();
        }
    }

    QVariant readScalar()
    {
        if (isAt('"'))
            return readString("");
        if (isAt('-') || (m_at != m_end && isDigit(*m_at)))
            return readNumber();
        if (takeWord("true"))
            return true;
        if (takeWord("false"))
            return false;
        if (!takeWord("null"))
            fail("a value");
        return {};
    }

    bool takeWord(const char *word)
    {
        const int length = int(qstrlen(word));
        if (m_end - m_at < length || QString::fromRawData(m_at, length) != QLatin1String(word))
            return false;
        m_at += length;
        return true;
    }

    void takeDigits()
    {
        if (m_at == m_end || !isDigit(*m_at))
            fail("a digit");
        while (m_at != m_end && isDigit(*m_at))
            ++m_at;
    }

    QVariant readNumber()
    {
        const QChar *begin = m_at;
        bool whole = true;
        take('-');
        if (!take('0'))
            takeDigits();
        if (take('.')) {
            whole = false;
            takeDigits();
        }
        if (take('e') || take('E')) {
            whole = false;
            if (!take('+'))
                take('-');
            takeDigits();
        }
        const QString text = QString::fromRawData(begin, int(m_at - begin));
        bool ok = whole && text != QLatin1String("-0"); // no integer has that sign
        const qlonglong number = ok ? text.toLongLong(&ok) : 0;
        if (ok)
            return number == int(number) ? QVariant(int(number)) : QVariant(number);
        const double real = text.toDouble();
        if (!std::isfinite(real))
            failAt(m_begin, begin,
                   QStringLiteral("a number within the range of a double is expected, a larger one "
                                  "found"));
        return real;
    }

    QString readString(const char *expected)
    {
        require('"', expected);
        QString text = QStringLiteral("");
        for (;;) {
            const QChar *run = m_at;
            while (m_at != m_end && *m_at >= QLatin1Char(' ') && *m_at != QLatin1Char('"') &&
                   *m_at != QLatin1Char('\\'))
                ++m_at;
            text.append(run, int(m_at - run));
            if (take('"'))
                return text;
            if (!take('\\'))
                fail("a character of a text, or '\"' behind it,");
            text.append(readEscaped());
        }
    }

    QChar readEscaped()
    {
        static const char letters[] = "\"\\/bfnrt", meant[] = "\"\\/\b\f\n\r\t";
        for (int i = 0; letters[i] != 0; ++i) {
            if (take(letters[i]))
                return QLatin1Char(meant[i]);
        }
        require('u', "one of \"\\/bfnrtu behind '\\'");
        ushort code = 0;
        for (int i = 0; i < 4; ++i) {
            const int digit = m_at == m_end ? -1 : hexDigit(*m_at);
            if (digit < 0)
                fail("a hexadecimal digit");
            code = ushort(code * 16 + digit);
            ++m_at;
        }
        return code;
    }

    static int hexDigit(QChar c)
    {
        if (isDigit(c))
            return c.unicode() - '0';
        const ushort letter = c.unicode() | 0x20;
        return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
    }

    const QChar *const m_begin;
    const QChar *const m_end;
    const int m_levels;
    const QChar *m_at;
    SettingsMap m_settings;
};

/// The text without a byte order mark. Throws for bytes that are no UTF-8.
QString decoded(const QByteArray &json)
{
    const QByteArray mark("\xEF\xBB\xBF");
    const QByteArray bytes = json.startsWith(mark) ? json.mid(mark.size()) : json;
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    QString text = QTextCodec::codecForMib(106)->toUnicode(bytes.constData(), bytes.size(), &state);
    if (state.invalidChars == 0 && state.remainingChars == 0)
        return text;
    const QByteArray sound = text.toUtf8();
    const auto wrong = std::mismatch(sound.begin(), sound.end(), bytes.begin(), bytes.end());
    const QString before = QString::fromUtf8(bytes.constData(), int(wrong.second - bytes.begin()));
    failAt(before.constData(), before.constData() + before.size(),
           QStringLiteral("a character in UTF-8 is expected, %1 found")
               .arg(wrong.second == bytes.end()
                        ? QStringLiteral("half of one")
                        : QStringLiteral("the byte 0x%1")
                              .arg(uchar(*wrong.second), 2, 16, QLatin1Char('0'))));
}

} // namespace

SettingsMap SettingsJson::read(const QByteArray &json)
{
    if (json.size() > kMaxBytes)
        throw QStringLiteral("at most %1 bytes are expected, more found").arg(kMaxBytes);
    const QString text = decoded(json);
    return Reader(text).readSettings();
}

void SettingsJson::checkUnknown(const QString &key, const UnknownSetting &value, int levels)
{
    QString problem = QStringLiteral("it is a value of a type that is known");
    try {
        if (QString::fromUtf8(value.json.toUtf8()) != value.json)
            throw QStringLiteral("it is no Unicode text");
        const QVariant read = Reader(value.json, levels).readTaggedAlone();
        if (read.userType() == qMetaTypeId<UnknownSetting>() &&
            read.value<UnknownSetting>().type == value.type)
            return;
    } catch (const QString &fault) {
        problem = fault;
    }
    throw QStringLiteral("setting '%1': no value of an unknown type '%2': %3")
        .arg(key, value.type, problem);
}
