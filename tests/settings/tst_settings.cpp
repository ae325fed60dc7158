#include <database/database.h>

#include "support/printing.h"
#include "support/random.h"

#include <QtTest/QtTest>

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

/// How many keys show another value, to the last bit, once they have been through a file's text.
static int changesByJson(MapSettings &settings)
{
    const QSignalSpy told(&settings, &Settings::changed);
    settings.replace(SettingsJson::read(SettingsJson::write(settings.values())));
    return told.size();
}

template<class Call>
static std::string thrownBy(Call &&call)
{
    try {
        call();
    } catch (const QString &text) {
        return text.toStdString();
    }
    return {};
}

static QVariantList specialValues()
{
    using Double = std::numeric_limits<double>;
    const QString odd = QString("\"\\/\b\f\n\r\t\x7F Ж€") + QChar(0) + QChar(0xD800) + "x" +
                        QChar(0xDC00) + QChar(0xFFFF) + QString::fromUtf8("\U0001F4C8");
    const QDateTime autumn = QDateTime::fromMSecsSinceEpoch(1793494800123, Qt::UTC); // 2:00, twice
    const QTimeZone berlin("Europe/Berlin");
    const QVariantMap odds{{"", odd}, {"$type", "map"}, {"a/b", QVariantMap{{"$type", 2.0}}}};
    QVariantList values;
    values << QVariant() << true << 0 << INT_MIN << 5LL << (1LL << 53) + 1 << LLONG_MIN << ~0ULL
           << 2.0 << -0.0 << 0.1 << 1e22 << Double::max() << Double::denorm_min()
           << Double::infinity() << -Double::infinity() << Double::quiet_NaN() << "" << odd
           << QByteArray("") << QByteArray("\0\xFF{}", 4) << QVariant(QVariantList())
           << QVariantMap() << odds
           << QVariant(QVariantList{odds, QVariantList{1, "x"}, QString(200, 'y')}) << QDateTime()
           << autumn << autumn.toLocalTime() << autumn.toOffsetFromUtc(-12345)
           << autumn.toTimeZone(berlin) << autumn.addSecs(-3600).toTimeZone(berlin)
           << QDateTime::fromMSecsSinceEpoch(-99999999999999, Qt::UTC);
    for (const short scale : {0, 2, 17, 63, -1, -64})
        values.append(decimal::fromParts(decimal::kMinMantissa, scale).toVariant());
    for (const short scale : {0, 5, 62, -7, -62})
        values.append(xdecimal::fromInt64(-1203, scale).toVariant());
    xdecimal null;
    BCDIIInit(reinterpret_cast<quint16 *>(&null), BCDIIType(26 << 8 | 0xFE));
    values << null.toVariant() << xdecimal::minimum().toVariant();
    for (const qint64 msecs : {0LL, -1LL, 1793000000123LL, 253402300800000LL, -99999999999999LL})
        values.append(QVariant::fromValue(datetime(msecs)));
    values.append(QVariant::fromValue(UnknownSetting{
        "rgb", "{\"$type\" :\"rgb\",\n\"of\":[1.10, {\"a\":1, \"a\":99999999999999999999}]}"}));
    return values;
}

static QVariant randomValue(std::mt19937 &random, int depth)
{
    static const QVariantList special = specialValues();
    const int kind = int(random() % (depth < 4 ? 5 : 3));
    QVariantMap map;
    for (unsigned i = random() % 6; kind > 2 && i > 0; --i)
        map.insert(i == 3 ? "$type" : QString::number(i), randomValue(random, depth + 1));
    if (kind > 2)
        return kind == 3 ? QVariant(map) : QVariant(map.values());
    if (kind == 1)
        return std::ldexp(double(random()) * random(), int(random() % 2000) - 1100);
    return kind == 0 ? QVariant(qint64(random()) * random()) : special[random() % special.size()];
}

TEST(SettingsValues, areTheSameToTheLastBitOnlyAndComeBackSoFromJson)
{
    MapSettings settings;
    const QSignalSpy told(&settings, &Settings::changed);
    const QVariantList values = specialValues();
    for (int i = 0; i < values.size() * values.size(); ++i) {
        settings.setValue("group/value", values.at(i % values.size()));
        settings.setValue("list", QVariantList{values.at(i % values.size())});
        const int before = told.size();
        settings.setValue("group/value", values.at(i / values.size()));
        settings.setValue("list", QVariantList{values.at(i / values.size())});
        ASSERT_EQ(told.size() - before, i % (values.size() + 1) == 0 ? 0 : 2) << i;
        ASSERT_EQ(changesByJson(settings), 0) << i;
    }
    const unsigned seed = runSeed();
    std::mt19937 random(seed);
    for (int n = 0; n < 300; ++n) {
        settings.replace({});
        for (int i = 0; i < 40; ++i) {
            QString key = "k";
            while (random() % 3 != 0)
                key += QStringList{"/a", "/a-b", "a.", "/Ж", "\""}.at(int(random() % 5));
            thrownBy([&] { settings.setValue(key, randomValue(random, 0)); }); // unless in the way
        }
        ASSERT_EQ(changesByJson(settings), 0) << "seed " << seed;
    }
}

TEST(SettingsValues, readAsOtherTypesOnlyWhenNothingIsLost)
{
    MapSettings settings;
    settings.replace(SettingsJson::read(
        "\xEF\xBB\xBF{\"i\": 7, \"d\": {\"two\": 2.0, \"big\": 1e300}, \"list\": [\"a\"], "
        "\"mixed\": "
        "[1], \"minus\": -0, \"wide\": 9007199254740993, \"null\": null, \"d/half\": 0.5}"));
    EXPECT_EQ(settings.value<double>("i") + settings.value<quint8>("d/two"), 9.0);
    EXPECT_EQ(settings.value<qint64>("wide"), 9007199254740993LL);
    EXPECT_TRUE(std::signbit(settings.value<double>("minus")));
    EXPECT_EQ(settings.value<QStringList>("list", {"null"}), QStringList{"a"});
    EXPECT_EQ(settings.value<int>("null", 4) + settings.value<int>("absent", 4), 8);
    for (const char *key : {"d/half", "d/big", "mixed"})
        EXPECT_THROW(settings.value<qint64>(key), Exception);
    EXPECT_THROW(settings.value<double>("wide"), Exception);
    EXPECT_THROW(settings.value<QStringList>("mixed"), Exception);
}

TEST(SettingsValues, keysAndTypesThatWillNotDoAreRefusedAndNothingChanges)
{
    MapSettings settings;
    settings.setValue("chart/main/color", "red");
    const SettingsMap before = settings.values();
    QVariant deep = 1;
    for (int i = 0; i < Settings::kMaxDepth - 1; ++i)
        deep = QVariantList{deep};
    for (const char *key : {"", "/a", "a/", "a//b", "a/$type", "chart/main", "chart/main/color/x"})
        EXPECT_NE(thrownBy([&] { settings.setValue(key, 1); }), "") << key;
    EXPECT_NE(thrownBy([&] { settings.setValue("x", QVariantList{QRegExp()}); }), "");
    EXPECT_NE(thrownBy([&] { settings.setValue("x/y", deep); }), "");
    EXPECT_NE(thrownBy([&] { settings.setValue("x", UnknownSetting{"int64", "{}"}); }), "");
    EXPECT_EQ(settings.values(), before);
    settings.setValue("x", deep);
    EXPECT_EQ(changesByJson(settings), 0);
    SettingsGroup group(settings, "chart");
    group.setValue("main-x", 3);
    EXPECT_EQ((group.groups() + group.childKeys() + settings.keys()).join(' '),
              "main main-x chart/main-x chart/main/color x");
    EXPECT_EQ(SettingsGroup(group, "main").value<QString>("color"), "red");
    group.remove("main");
    EXPECT_EQ(settings.groups() + group.keys(), (QStringList{"chart", "main-x"}));
}

TEST(SettingsValues, malformedTextsAreRefusedWithThePlace)
{
    const std::pair<QByteArray, const char *> cases[] = {
        {"", "line 1, column 1: an object, '{', is expected, the end found"},
        {"{\n  \"Ж\": 1,\n}", "line 3, column 1: a name in '\"' is expected, '}' found"},
        {"{\"a\": 01}", "column 8: ',' or '}' is expected, '1' found"},
        {"{\"a\": 1e999}", "column 7: a number within the range of a double is expected"},
        {"{\"a\": {\"b\": 1}, \"a/b\": 2}", "column 17: another name is expected"},
        {"{\"a\": 1, \"a/b\": 2}", "column 10: a value or a group is expected, both found"},
        {"{\"a\": \"x\ty\"}", "column 9: a character of a text, or '\"' behind it, is expected"},
        {"{\"a\": \"\\u12g4\"}", "column 12: a hexadecimal digit is expected, 'g' found"},
        {"{\"\xD0\x96\": \"\xFF\"}", "column 8: a character in UTF-8 is expected, the byte 0xff"},
        {"{} {}", "line 1, column 4: the end is expected, '{' found"},
        {"{\"a/\": 1}", "line 1, column 2: a name, or names with '/' between them, is expected"},
        {"{\"a\": {\"b\": 1, \"$type\": \"map\"}}", "column 16: a name of a setting is expected"},
        {"{\"a\": {\"$type\": \"int64\", \"value\": 1.5}}", "column 35: a whole number of 64 bits"},
        {"{\"a\": " + QByteArray(512, '[') + "}", "column 518: at most 512 levels"},
        {QByteArray(SettingsJson::kMaxBytes + 1, ' '), "at most 67108864 bytes"}};
    for (const auto &[json, problem] : cases) {
        const std::string thrown = thrownBy([json = json] { SettingsJson::read(json); });
        EXPECT_NE(thrown.find(problem), std::string::npos) << problem << " / " << thrown;
    }
}

TEST(LayeredSettings, showChangeAndTellWhatAModelDoes)
{
    const unsigned seed = runSeed();
    std::mt19937 random(seed);
    const QStringList keys = {"a", "a/b", "a/b/c", "a/d", "e", "e/f"};
    MapSettings low, middle, high;
    LayeredSettings lower("lower"), all("all");
    lower.addLayer(&low);
    lower.addLayer(&middle);
    all.addLayer(&lower);
    all.addLayer(&high);
    const auto owner = [&](const QString &key, bool below = false) -> const Settings * {
        for (const Settings *layer : {&high, &middle, &low}) {
            for (const QString &other : layer == &high && below ? QStringList() : layer->keys()) {
                if (other == key)
                    return layer;
                if (other.startsWith(key + '/') || key.startsWith(other + '/'))
                    return nullptr;
            }
        }
        return nullptr;
    };
    SettingsMap told;
    int notices = 0, expected = 0;
    QObject::connect(&all, &Settings::changed, [&](const QString &key, auto &before, auto &after) {
        ++notices;
        EXPECT_EQ(told.value(key), before);
        after.isValid() ? void(told.insert(key, after)) : void(told.remove(key));
    });
    for (int step = 0; step < 4000; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
        Settings *target = QVector<Settings *>{&low, &middle, &high, &all}.at(int(random() % 4));
        const QString key = keys.at(int(random() % 6));
        const int value = int(random() % 3);
        const SettingsMap before = all.values();
        if (random() % 3 == 0) {
            target->remove(key);
        } else if (thrownBy([&] { target->setValue(key, value); }).empty() && target == &all) {
            const Settings *below = owner(key, true);
            ASSERT_EQ(high.contains(key), !below || below->value(key) != value);
        }
        for (const QString &one : keys) {
            const Settings *shown = owner(one);
            ASSERT_EQ(all.origin(one), shown);
            ASSERT_EQ(all.value(one), shown ? shown->value(one) : QVariant());
            expected += before.value(one) != all.value(one);
        }
        ASSERT_EQ(told, all.values());
        ASSERT_EQ(notices, expected);
    }
}

struct SettingsFile : testing::Test {
    void write(const QByteArray &bytes) const
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }
    template<class Body>
    static pid_t inChild(Body &&body)
    {
        const pid_t child = fork();
        if (child == 0)
            _exit(body() ? 0 : 1);
        return child;
    }
    const QTemporaryDir dir;
    const SettingsLocations places = SettingsLocations::below(dir.path());
    const QString path = dir.filePath("s.json");
};

TEST_F(SettingsFile, ofAWorkplaceLiesOverTheOthersAndComesBack)
{
    ASSERT_TRUE(QDir().mkpath(places.defaults));
    write("{\"top\": 10, \"font\": 9}");
    ASSERT_TRUE(QFile::rename(path, places.defaultsFile()));
    const QString office = "Büro/../1";
    Workplaces workplaces(places);
    workplaces.create(office);
    {
        AppSettings application(places);
        WorkplaceSettings workplace(office, &application);
        application.setValue("top", 20);
        workplace.setValue("top", 30);
        workplace.setValue("font", 9); // the default
        EXPECT_NE(thrownBy([&] { application.defaults().setValue("top", 1); }), "");
    }
    workplaces.copy(office, "b");
    workplaces.rename("b", "c.");
    EXPECT_NE(thrownBy([&] { workplaces.copy(office, "c."); }), "");
    EXPECT_NE(thrownBy([&] { workplaces.rename("c.", office); }), "");
    EXPECT_NE(thrownBy([&] { workplaces.remove("b"); }), "");
    EXPECT_NE(thrownBy([&] { workplaces.create(QChar(0xD800)); }), "");
    EXPECT_EQ(workplaces.names(), (QStringList{office, "c."}));
    AppSettings application(places);
    WorkplaceSettings workplace("c.", &application);
    EXPECT_EQ(workplace.own().values(), SettingsMap({{"top", 30}}));
    workplace.reset("top");
    EXPECT_EQ(workplace.value<int>("top"), 20);
    EXPECT_EQ(workplace.origin("top")->name() + workplace.origin("font")->name(), "userdefaults");
}

TEST_F(SettingsFile, ofTwoProcessesHoldsTheKeysOfBoth)
{
    const auto writeKeys = [&](const QString &own) {
        QtJsonSettings settings(path);
        bool stored = true;
        for (int i = 0; i < 10000; ++i) {
            settings.setValue(own + QString::number(i), i);
            stored = stored && (i % 500 != 0 || settings.sync());
        }
        return stored && settings.sync();
    };
    for (const pid_t child :
         {inChild([&] { return writeKeys("a/"); }), inChild([&] { return writeKeys("b/"); })}) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const QtJsonSettings settings(path);
    for (int i = 0; i < 20000; ++i)
        ASSERT_EQ(settings.value<int>(QString(i % 2 ? "a/%1" : "b/%1").arg(i / 2), -1), i / 2);
}

// scripts/torture sets the number of kills.
TEST_F(SettingsFile, isWholeAfterAKilledSave)
{
    const int kills = qMax(100, qEnvironmentVariableIntValue("DATABASE_KILLS"));
    const unsigned seed = runSeed();
    std::mt19937 random(seed);
    int version = 0, caught = 0;
    // How much of a save fits between two kills is the machine's affair.
    for (int i = 0; i < kills || (caught == 0 && i < 50 * kills); ++i) {
        int saved[2];
        ASSERT_EQ(pipe(saved), 0);
        const pid_t child = inChild([&] {
            QtJsonSettings settings(path);
            for (int next = version + 1;; ++next) {
                for (int key = 0; key < 200; ++key)
                    settings.setValue(QString("group/%1").arg(key), next);
                if (!settings.sync() || ::write(saved[1], "", 1) != 1)
                    return false;
            }
        });
        char first = 1;
        ASSERT_EQ(read(saved[0], &first, 1), 1);
        usleep(random() % 4000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(saved[0]);
        close(saved[1]);
        qint64 saver = 0;
        QString host, program;
        caught += QLockFile(path + ".lock").getLockInfo(&saver, &host, &program) && saver == child;
        const QtJsonSettings settings(path);
        ASSERT_GE(settings.value<int>("group/0", 0), version) << "kill " << i << ", seed " << seed;
        version = settings.value<int>("group/0", 0);
        for (const QVariant &value : settings.values())
            ASSERT_EQ(value, QVariant(version)) << "kill " << i << ", seed " << seed;
    }
    EXPECT_GT(caught, 0);
    QStringList left = QDir(dir.path()).entryList(QDir::Files);
    for (const QString &lock : left.filter(".lock"))
        left.removeAll(lock);
    left.removeAll("s.json.saving");
    EXPECT_EQ(left, QStringList{"s.json"});
    RecordProperty("caught_while_saving", caught);
}

TEST_F(SettingsFile, thatIsMalformedIsMovedAsideAndNeverWrittenOver)
{
    const auto aside = [&] { return QDir(dir.path()).entryInfoList({"s.json.broken-*"}); };
    write("{\"a\": 1,");
    QtJsonSettings settings(path);
    ASSERT_EQ(aside().size(), 1);
    EXPECT_TRUE(settings.errorString().contains("line 1, column 9: a name in '\"' is expected"));
    EXPECT_TRUE(settings.errorString().contains(aside()[0].filePath()));
    settings.setValue("a", 2);
    write("{\"b\": }"); // while it is open
    EXPECT_TRUE(settings.sync());
    EXPECT_EQ(QtJsonSettings(path).values(), settings.values());
    write("[]");
    EXPECT_TRUE(settings.sync()); // nothing to store, so nothing is in the way
    EXPECT_EQ(QFileInfo(path).size(), 2);
    EXPECT_EQ(settings.value("a"), QVariant(2));
    ASSERT_EQ(aside().size(), 2);
    EXPECT_EQ(aside()[0].size() + aside()[1].size(), 15);
}

TEST_F(SettingsFile, thatCannotBeWrittenKeepsTheChangesForTheNextTry)
{
    write("no folder");
    QtJsonSettings settings(path + "/deep/s.json");
    settings.setValue("a", 1);
    EXPECT_FALSE(settings.sync());
    EXPECT_TRUE(settings.errorString().contains("cannot be stored"));
    QFile::remove(path);
    EXPECT_TRUE(settings.sync());
    EXPECT_EQ(settings.errorString(), "");
    EXPECT_EQ(QtJsonSettings(settings.fileName()).values(), settings.values());
}

TEST_F(SettingsFile, isStoredAndFollowedByTheEventLoop)
{
    int count = 0;
    const QCoreApplication application(count, nullptr);
    QtJsonSettings one(path), other(path);
    one.setSaveDelay(20, 100);
    one.setValue("a", 1);
    EXPECT_FALSE(QFile::exists(path));
    ASSERT_TRUE(QTest::qWaitFor([&] { return other.contains("a"); }, 60000));
    one.setValue("a", "mine");
    other.setValue("b", "yours");
    other.setValue("a", 1.5);
    EXPECT_TRUE(other.sync() && one.sync() && other.sync()); // one is the later
    EXPECT_EQ(one.values(), SettingsMap({{"a", "mine"}, {"b", "yours"}}));
    EXPECT_EQ(other.values(), one.values());
    write("{\"c\": 3}");
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return other.contains("c") && one.values().size() == 1; }, 60000));
    QFile::remove(path);
    const auto isBack = [&] { return one.setValue("busy", rand()), QFile::exists(path); };
    ASSERT_TRUE(QTest::qWaitFor(isBack, 60000)); // though the changes do not end
    EXPECT_TRUE(one.contains("c"));              // a file that goes takes nothing with it
}
