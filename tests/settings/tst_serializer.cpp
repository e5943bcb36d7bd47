#include "LogLines.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "settings/Serializer.h"

#include <QCoreApplication>
#include <QSettings>
#include <QtTest>

using namespace Morvantix;

namespace {

QString configPath()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/config.ini");
}

QStringList storedKeys()
{
    QStringList keys = QSettings(configPath(), QSettings::IniFormat).allKeys();
    keys.sort();
    return keys;
}

QVariantMap fieldsOf(const UpdateSetting& s)
{
    return { { "installPath", s.installPath }, { "gamePath", s.gamePath }, { "cachePath", s.cachePath },
        { "unZipPath", s.unZipPath }, { "tempMergePath", s.tempMergePath },
        { "currentGameVersion", s.currentGameVersion }, { "transitionGameVersion", s.transitionGameVersion },
        { "targetGameVersion", s.targetGameVersion }, { "currentStage", s.currentStage },
        { "bPatchFinished", s.bPatchFinished }, { "isOpenBgMusic", s.isOpenBgMusic },
        { "isAutoStart", s.isAutoStart }, { "isPopWhenQuitGame", s.isPopWhenQuitGame },
        { "isMinWhenCloseLauncher", s.isMinWhenCloseLauncher },
        { "isSkipInstallPlugin", s.isSkipInstallPlugin }, { "limitSpeed", s.limitSpeed },
        { "musicVolume", s.musicVolume }, { "musicLanguage", s.musicLanguage },
        { "systemExplorer", s.systemExplorer }, { "newAgreementCheckedFlag", s.newAgreementCheckedFlag },
        { "loginServer", s.loginServer }, { "guideServer", s.guideServer } };
}

} // namespace

// The settings file lives beside the program, so every test starts without one and removes the one
// it made.
class TestSerializer : public QObject
{
    Q_OBJECT
private slots:
    void init() { QFile::remove(configPath()); }
    void cleanup()
    {
        QFile::remove(configPath());
        QDir(configPath()).removeRecursively();
    }
    void readsWithDefaults_data()
    {
        QTest::addColumn<QByteArray>("ini"); // null: no file
        // "field=value" of the record read, "Key=value" of the file afterwards; @: the program's folder
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("missing file")
            << QByteArray()
            << QStringList { "installPath=@", "gamePath=@/MorvantixGame", "cachePath=@/MorvantixCache",
                   "unZipPath=@/MorvantixCache/UnZip", "tempMergePath=@/MorvantixCache/TempMerge",
                   "currentGameVersion=", "currentStage=INITSTAGE", "bPatchFinished=false",
                   "isOpenBgMusic=true", "isAutoStart=false", "limitSpeed=-1", "musicVolume=50",
                   "musicLanguage=chinese", "loginServer=", "IsOpenBgMusic=true" };
        QTest::newRow("empty stage") << QByteArray("CurrentStage=\nCurrentGameVersion=1.0.0.1\n")
                                     << QStringList { "currentStage=INITSTAGE", "currentGameVersion=1.0.0.1",
                                            "CurrentStage=" };
        QTest::newRow("music off stays off") << QByteArray("IsOpenBgMusic=false\n")
                                             << QStringList { "isOpenBgMusic=false", "IsOpenBgMusic=false" };
        QTest::newRow("speed limit") << QByteArray("LimitSpeed=300\n") << QStringList { "limitSpeed=300" };
        // A limit of 0 would hold every download; it and a mangled value read as no limit.
        QTest::newRow("speed limit 0") << QByteArray("LimitSpeed=0\n") << QStringList { "limitSpeed=-1" };
        QTest::newRow("speed limit mangled")
            << QByteArray("LimitSpeed=fast\n") << QStringList { "limitSpeed=-1" };
    }
    // Reading writes back exactly the ten switches with defaults that the file lacks: no path, version,
    // stage or server key.
    void readsWithDefaults()
    {
        QFETCH(QByteArray, ini);
        QFETCH(QStringList, expected);
        if (!ini.isNull())
            QVERIFY(TestFiles::writeFile(configPath(), "[General]\n" + ini));
        QStringList keys = storedKeys()
            + QStringList { "IsAutoStart", "IsMinWhenCloseLauncher", "IsOpenBgMusic", "IsPopWhenQuitGame",
                  "IsSkipInstallPlugin", "LimitSpeed", "MusicLanguage", "MusicVolume",
                  "NewAgreementCheckedFlag", "SystemExplorer" };
        keys.removeDuplicates();
        keys.sort();

        UpdateSetting s;
        Serializer().ReadSetting(s);
        const QVariantMap read = fieldsOf(s);
        const QSettings file(configPath(), QSettings::IniFormat);
        for (const QString& check : expected) {
            const QString key = check.section('=', 0, 0);
            const QVariant value = key[0].isLower() ? read.value(key) : file.value(key);
            QCOMPARE(
                value.toString(), check.section('=', 1).replace('@', QCoreApplication::applicationDirPath()));
        }
        QCOMPARE(storedKeys(), keys);
    }

    // Non-ASCII paths and texts as a player's system gives them.
    void saveThenReadRoundTrips()
    {
        QVERIFY(TestFiles::writeFile(
            configPath(), "[General]\nLoginServer=http://login\nGuideServer=http://guide\n"));
        UpdateSetting saved;
        saved.installPath = QStringLiteral("D:/游戏/启动器");
        saved.gamePath = QStringLiteral("D:/游戏/启动器/游戏本体");
        saved.musicLanguage = QStringLiteral("中文");
        saved.currentGameVersion = QStringLiteral("1.0.0.2");
        saved.transitionGameVersion = QStringLiteral("1.0.0.3");
        saved.targetGameVersion = QStringLiteral("1.0.0.4");
        saved.currentStage = QStringLiteral("PATCHSTAGE");
        saved.bPatchFinished = saved.isAutoStart = saved.isPopWhenQuitGame = saved.isMinWhenCloseLauncher
            = true;
        saved.isSkipInstallPlugin = saved.systemExplorer = saved.newAgreementCheckedFlag = true;
        saved.isOpenBgMusic = false;
        saved.limitSpeed = 512;
        saved.musicVolume = 7;
        saved.loginServer = QStringLiteral("never saved");
        Serializer().SaveSetting(saved);
        QCOMPARE(saved.cachePath, QStringLiteral("D:/游戏/启动器/MorvantixCache"));
        // Stored as readable UTF-8, not as escapes.
        QVERIFY(TestFiles::readFile(configPath()).contains(saved.gamePath.toUtf8()));

        UpdateSetting read;
        Serializer().ReadSetting(read);
        QVariantMap expected = fieldsOf(saved);
        expected["loginServer"] = QStringLiteral("http://login");
        expected["guideServer"] = QStringLiteral("http://guide");
        QCOMPARE(fieldsOf(read), expected);
    }

    void savesOrTellsAFailedWrite_data()
    {
        QTest::addColumn<QString>("place"); // what stands where config.ini goes
        QTest::addColumn<bool>("written");
        QTest::newRow("nothing yet") << "" << true;
        QTest::newRow("a file") << "file" << true;
        QTest::newRow("a folder") << "folder" << false;
        QTest::newRow("a link into a missing folder") << "dangling link" << false;
    }
    void savesOrTellsAFailedWrite()
    {
        QFETCH(QString, place);
        QFETCH(bool, written);
        if (place == "file")
            QVERIFY(TestFiles::writeFile(configPath(), "[General]\nCurrentGameVersion=1.0.0.1\n"));
        if (place == "folder")
            QVERIFY(QDir().mkpath(configPath()));
        QTemporaryDir gone;
        if (place == "dangling link")
            QVERIFY(QFile::link(gone.filePath("missing/config.ini"), configPath()));
        UpdateSetting setting;
        setting.currentGameVersion = QStringLiteral("1.0.0.2");
        Serializer serializer;
        // Qt keeps the values a failed write could not store for later readers of the same path: only
        // the first row is sure to start without a channel.
        QVERIFY(!place.isEmpty() || serializer.GetValueByKey(QStringLiteral("Channel")).isNull());
        QCOMPARE(serializer.SaveSetting(setting), written);
        const LogLines log;
        QCOMPARE(serializer.SetValueByKey(QStringLiteral("Channel"), QStringLiteral("渠道A")), written);
        QVERIFY(log.all().contains(QStringLiteral("[SerializerTag]:save key is Channel, value is 渠道A")));
        // A copy shares the settings, and a fresh reader of the file sees the values at once.
        if (written) {
            QCOMPARE(
                Serializer(serializer).GetValueByKey(QStringLiteral("Channel")), QStringLiteral("渠道A"));
            QCOMPARE(Serializer().GetValueByKey(QStringLiteral("Channel")), QStringLiteral("渠道A"));
            QCOMPARE(
                Serializer().GetValueByKey(QStringLiteral("CurrentGameVersion")), QStringLiteral("1.0.0.2"));
        }
        QVERIFY(!QFile::exists(gone.filePath("missing")));
    }
};

CORE_TEST_CLASS(TestSerializer)
#include "tst_serializer.moc"
