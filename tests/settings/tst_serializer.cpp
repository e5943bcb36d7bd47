#include "TestRegistry.h"

#include "core/Constants.h"
#include "settings/Cryptor.h"
#include "settings/Serializer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QtTest>

using namespace Morvantix;

// The settings file lives beside the program, so every test starts without one and removes the one
// it made.
class TestSerializer : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void missingFileGetsDefaults();
    void emptyStageReadsAsInitStage();
    void saveThenReadRoundTrips();
    void nonAsciiPathsSurvive();
    void singleKeys();
    void cryptorTransformsNothing();

private:
    QString configPath() const
    {
        return QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("config.ini"));
    }
    void writeConfig(const QByteArray& text)
    {
        QFile file(configPath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
    }
    static QVariantMap fieldsOf(const UpdateSetting& s)
    {
        return { { "installPath", s.installPath }, { "gamePath", s.gamePath }, { "cachePath", s.cachePath },
            { "unZipPath", s.unZipPath }, { "tempMergePath", s.tempMergePath },
            { "currentGameVersion", s.currentGameVersion },
            { "transitionGameVersion", s.transitionGameVersion },
            { "targetGameVersion", s.targetGameVersion }, { "currentStage", s.currentStage },
            { "bPatchFinished", s.bPatchFinished }, { "isOpenBgMusic", s.isOpenBgMusic },
            { "isAutoStart", s.isAutoStart }, { "isPopWhenQuitGame", s.isPopWhenQuitGame },
            { "isMinWhenCloseLauncher", s.isMinWhenCloseLauncher },
            { "isSkipInstallPlugin", s.isSkipInstallPlugin }, { "limitSpeed", s.limitSpeed },
            { "musicVolume", s.musicVolume }, { "musicLanguage", s.musicLanguage },
            { "systemExplorer", s.systemExplorer }, { "newAgreementCheckedFlag", s.newAgreementCheckedFlag },
            { "loginServer", s.loginServer }, { "guideServer", s.guideServer } };
    }
    QStringList storedKeys() const
    {
        QSettings ini(configPath(), QSettings::IniFormat);
        QStringList keys = ini.allKeys();
        keys.sort();
        return keys;
    }
};

void TestSerializer::init()
{
    QFile::remove(configPath());
}

void TestSerializer::cleanup()
{
    QFile::remove(configPath());
}

void TestSerializer::missingFileGetsDefaults()
{
    UpdateSetting s;
    {
        Serializer serializer;
        serializer.ReadSetting(s);
    }
    const QString appDir = QCoreApplication::applicationDirPath();
    QCOMPARE(s.installPath, appDir);
    QCOMPARE(s.gamePath, appDir + QStringLiteral("/MorvantixGame"));
    QCOMPARE(s.cachePath, appDir + QStringLiteral("/MorvantixCache"));
    QCOMPARE(s.unZipPath, appDir + QStringLiteral("/MorvantixCache/UnZip"));
    QCOMPARE(s.tempMergePath, appDir + QStringLiteral("/MorvantixCache/TempMerge"));
    QVERIFY(s.currentGameVersion.isEmpty());
    QCOMPARE(s.currentStage, QStringLiteral("INITSTAGE"));
    QVERIFY(!s.bPatchFinished);
    QVERIFY(s.isOpenBgMusic);
    QVERIFY(!s.isAutoStart);
    QCOMPARE(s.limitSpeed, -1);
    QCOMPARE(s.musicVolume, 50);
    QCOMPARE(s.musicLanguage, QStringLiteral("chinese"));
    QVERIFY(s.loginServer.isEmpty());

    // Exactly the switches with written defaults; no path, version, stage or server key.
    const QStringList expected { "IsAutoStart", "IsMinWhenCloseLauncher", "IsOpenBgMusic",
        "IsPopWhenQuitGame", "IsSkipInstallPlugin", "LimitSpeed", "MusicLanguage", "MusicVolume",
        "NewAgreementCheckedFlag", "SystemExplorer" };
    QCOMPARE(storedKeys(), expected);
    QSettings ini(configPath(), QSettings::IniFormat);
    QCOMPARE(ini.value(QStringLiteral("IsOpenBgMusic")).toString(), QStringLiteral("true"));
    QCOMPARE(ini.value(QStringLiteral("LimitSpeed")).toString(), QStringLiteral("-1"));
}

void TestSerializer::emptyStageReadsAsInitStage()
{
    writeConfig("[General]\nCurrentStage=\nCurrentGameVersion=1.0.0.1\n");
    UpdateSetting s;
    Serializer().ReadSetting(s);
    QCOMPARE(s.currentStage, QStringLiteral("INITSTAGE"));
    QCOMPARE(s.currentGameVersion, QStringLiteral("1.0.0.1"));
    QSettings ini(configPath(), QSettings::IniFormat);
    QVERIFY(ini.contains(QStringLiteral("CurrentStage")));
    QCOMPARE(ini.value(QStringLiteral("CurrentStage")).toString(), QString());
}

void TestSerializer::saveThenReadRoundTrips()
{
    writeConfig("[General]\nLoginServer=http://login\nGuideServer=http://guide\n");
    UpdateSetting saved;
    saved.installPath = QStringLiteral("/opt/games/launcher");
    saved.gamePath = QStringLiteral("/opt/games/launcher/Game");
    saved.currentGameVersion = QStringLiteral("1.0.0.2");
    saved.transitionGameVersion = QStringLiteral("1.0.0.3");
    saved.targetGameVersion = QStringLiteral("1.0.0.4");
    saved.currentStage = QStringLiteral("PATCHSTAGE");
    saved.bPatchFinished = saved.isAutoStart = saved.isPopWhenQuitGame = saved.isMinWhenCloseLauncher = true;
    saved.isSkipInstallPlugin = saved.systemExplorer = saved.newAgreementCheckedFlag = true;
    saved.isOpenBgMusic = false;
    saved.limitSpeed = 512;
    saved.musicVolume = 7;
    saved.musicLanguage = QStringLiteral("japanese");
    saved.loginServer = QStringLiteral("never saved");
    Serializer().SaveSetting(saved);
    QCOMPARE(saved.cachePath, QStringLiteral("/opt/games/launcher/MorvantixCache"));

    UpdateSetting read;
    Serializer().ReadSetting(read);
    QVariantMap expected = fieldsOf(saved);
    expected[QStringLiteral("loginServer")] = QStringLiteral("http://login");
    expected[QStringLiteral("guideServer")] = QStringLiteral("http://guide");
    QCOMPARE(fieldsOf(read), expected);
}

void TestSerializer::nonAsciiPathsSurvive()
{
    UpdateSetting saved;
    saved.installPath = QStringLiteral("D:/游戏/启动器");
    saved.gamePath = QStringLiteral("D:/游戏/启动器/游戏本体");
    saved.currentStage = QStringLiteral("INITSTAGE");
    saved.musicLanguage = QStringLiteral("中文");
    Serializer().SaveSetting(saved);

    QFile raw(configPath());
    QVERIFY(raw.open(QIODevice::ReadOnly));
    const QByteArray bytes = raw.readAll();
    // Stored as readable UTF-8, not as escapes.
    QVERIFY2(bytes.contains(QStringLiteral("游戏/启动器").toUtf8()), bytes.constData());

    UpdateSetting read;
    Serializer().ReadSetting(read);
    QCOMPARE(read.installPath, saved.installPath);
    QCOMPARE(read.gamePath, saved.gamePath);
    QCOMPARE(read.cachePath, QStringLiteral("D:/游戏/启动器/MorvantixCache"));
    QCOMPARE(read.musicLanguage, saved.musicLanguage);
}

void TestSerializer::singleKeys()
{
    Serializer serializer;
    QVERIFY(serializer.GetValueByKey(QStringLiteral("Channel")).isNull());

    QStringList lines;
    static QStringList* sink = nullptr;
    sink = &lines;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& msg) { sink->append(msg); });
    serializer.SetValueByKey(QStringLiteral("Channel"), QStringLiteral("渠道A"));
    qInstallMessageHandler(previous);
    QVERIFY(lines.contains(QStringLiteral("[SerializerTag]:save key is Channel, value is 渠道A")));

    QCOMPARE(serializer.GetValueByKey(QStringLiteral("Channel")), QStringLiteral("渠道A"));
    // A copy shares the same settings.
    Serializer copy = serializer;
    QCOMPARE(copy.GetValueByKey(QStringLiteral("Channel")), QStringLiteral("渠道A"));
    // Written through at once: a fresh reader of the file sees it.
    QCOMPARE(Serializer().GetValueByKey(QStringLiteral("Channel")), QStringLiteral("渠道A"));

    writeConfig("[General]\nLimitSpeed=300\n");
    QCOMPARE(Serializer().GetValueByKey(QStringLiteral("LimitSpeed")), QStringLiteral("300"));
    // A limit of 0 would hold every download; it and a mangled value read as no limit.
    for (const char* stored : { "300", "0", "fast" }) {
        writeConfig(QByteArray("[General]\nLimitSpeed=") + stored + '\n');
        UpdateSetting s;
        Serializer().ReadSetting(s);
        QCOMPARE(s.limitSpeed, qstrcmp(stored, "300") == 0 ? 300 : -1);
    }
}

void TestSerializer::cryptorTransformsNothing()
{
    Cryptor cryptor;
    std::string out = "unchanged";
    cryptor.Encode("secret", out);
    QCOMPARE(out, std::string("unchanged"));
    cryptor.Decode("secret", out);
    QCOMPARE(out, std::string("unchanged"));
}

CORE_TEST_CLASS(TestSerializer)
#include "tst_serializer.moc"
