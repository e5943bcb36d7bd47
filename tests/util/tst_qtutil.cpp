#include "TestDirs.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/GlobalVar.h"
#include "util/DpiUtil.h"
#include "util/LaunchArguments.h"
#include "util/QtUtil.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QScreen>
#include <QTextCodec>
#include <QWidget>
#include <QtTest>

namespace {

// Channel, Host, HostAndChannel and LauncherChannel, joined by "|".
QString* const kChannelVars[] = { &Global::Var::Channel, &Global::Var::Host, &Global::Var::HostAndChannel,
    &Global::Var::LauncherChannel };

QString channelVars()
{
    QStringList values;
    for (const QString* var : kChannelVars)
        values << *var;
    return values.join(QLatin1Char('|'));
}

void setChannelVars(const QString& joined)
{
    const QStringList values = joined.split(QLatin1Char('|'));
    for (int i = 0; i < values.size(); ++i)
        *kChannelVars[i] = values[i];
}

} // namespace

// Text, formats, disk space, widget helpers and the launch-channel argument file.
class TestQtUtil : public QObject
{
    Q_OBJECT
private slots:
    void unicodeText_data();
    void unicodeText();
    void formats_data();
    void formats();
    void freeDiskSpaceOfMissingPathIsItsAncestors();
    void widgetHelpers();
    void argumentFile_data();
    void argumentFile();
};

void TestQtUtil::unicodeText_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    const QString chinese = QStringLiteral("文件被占用，请重试");
    QTest::newRow("GBK") << QTextCodec::codecForName("GBK")->fromUnicode(chinese) << chinese;
    QTest::newRow("UTF-8") << chinese.toUtf8() << chinese;
    QTest::newRow("ASCII") << QByteArray("7z.exe") << QStringLiteral("7z.exe");
    QTest::newRow("empty") << QByteArray() << QString();
}

void TestQtUtil::unicodeText()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    // The local code page of a Chinese Windows, whatever this machine's locale is.
    QTextCodec* previous = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("GBK"));
    const QString text = QtUtil::GetUnicodeString(bytes);
    QTextCodec::setCodecForLocale(previous);
    QCOMPARE(text, expected);
}

void TestQtUtil::formats_data()
{
    QTest::addColumn<bool>("isSize");
    QTest::addColumn<qint64>("value");
    QTest::addColumn<QString>("expected");
    const qint64 KB = 1024, MB = KB * KB, GB = MB * KB, TB = GB * KB;
    QTest::newRow("0 B") << true << 0LL << "0 B";
    QTest::newRow("1023 B") << true << KB - 1 << "1023 B";
    QTest::newRow("1 KB") << true << KB << "1 KB";
    QTest::newRow("1.5 KB") << true << KB + KB / 2 << "1.5 KB";
    QTest::newRow("512 KB") << true << 512 * KB << "512 KB";
    QTest::newRow("just under 1 MB") << true << MB - 1 << "1 MB";
    QTest::newRow("1.5 GB") << true << GB + GB / 2 << "1.5 GB";
    QTest::newRow("2048 TB") << true << 2048 * TB << "2048 TB";
    QTest::newRow("0s") << false << 0LL << "0s";
    QTest::newRow("45s") << false << 45LL << "45s";
    QTest::newRow("1m 00s") << false << 60LL << "1m 00s";
    QTest::newRow("3m 05s") << false << 185LL << "3m 05s";
    QTest::newRow("1h 02m") << false << 3720LL << "1h 02m";
    QTest::newRow("25h 00m") << false << 90000LL << "25h 00m";
}

void TestQtUtil::formats()
{
    QFETCH(bool, isSize);
    QFETCH(qint64, value);
    QFETCH(QString, expected);
    QCOMPARE(isSize ? QtUtil::FormatSize(value) : QtUtil::FormatDuration(value), expected);
}

void TestQtUtil::freeDiskSpaceOfMissingPathIsItsAncestors()
{
    QTemporaryDir dir;
    const qint64 existing = QtUtil::GetFreeDiskSpace(dir.path());
    const qint64 missing = QtUtil::GetFreeDiskSpace(dir.filePath(QStringLiteral("Game/新版本/data.pak")));
    QVERIFY(existing > 0);
    QVERIFY(qAbs(missing - existing) < 64 * 1024 * 1024); // other processes write meanwhile
}

void TestQtUtil::widgetHelpers()
{
    QTemporaryDir dir;
    const QString sheet = QStringLiteral("QWidget { color: #c0ffee; } /* 主题 */");
    QVERIFY(TestFiles::writeFile(dir.filePath(QStringLiteral("main.qss")), sheet.toUtf8()));
    QWidget window;
    QVERIFY(QtUtil::LoadStyleSheet(&window, dir.filePath(QStringLiteral("main.qss"))));
    QVERIFY(!QtUtil::LoadStyleSheet(&window, dir.filePath(QStringLiteral("missing.qss"))));
    QCOMPARE(window.styleSheet(), sheet);

    const QStringList families = QFontDatabase().families();
    if (!families.isEmpty()) {
        const QFont font = QtUtil::GetFont(QStringLiteral("No Such Family"), 17, families.first());
        QCOMPARE(font.family(), families.first());
        QCOMPARE(font.pixelSize(), 17);
    }

    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    window.resize(200, 100);
    QtUtil::CenterWidget(&window);
    QCOMPARE(window.frameGeometry().center(), screen.center());
    QWidget child(&window);
    child.resize(50, 30);
    QtUtil::CenterWidget(&child);
    QCOMPARE(child.geometry().center(), window.rect().center());

    QCOMPARE(DpiUtil::GetScaleFactor(&window), QGuiApplication::primaryScreen()->logicalDotsPerInch() / 96.0);
    QVERIFY(!DpiUtil::EnableDpiAwareness()); // too late: the application object exists
}

void TestQtUtil::argumentFile_data()
{
    QTest::addColumn<QByteArray>("content"); // no file at all when null
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("applied");
    QTest::newRow("missing file") << QByteArray() << "IOS|http://h||Launcher" << 0;
    QTest::newRow("Chinese values, blanks, comments, unknown keys")
        << QStringLiteral("\xFEFF# 渠道\r\n\r\n  Channel = 官方渠道  \r\nUnknown=1\n"
                          "HostAndChannel=http://cdn/官方渠道\n; note\nLauncherChannel=启动器\nbroken line\n")
               .toUtf8()
        << "官方渠道|http://h|http://cdn/官方渠道|启动器" << 3;
    QTest::newRow("empty value ignored, last line wins")
        << QByteArray("Host=\nChannel=A\nChannel=B\n") << "B|http://h||Launcher" << 2;
}

void TestQtUtil::argumentFile()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, expected);
    QFETCH(int, applied);
    const QString saved = channelVars();
    setChannelVars(QStringLiteral("IOS|http://h||Launcher"));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("channel.ini"));
    if (!content.isNull())
        QVERIFY(TestFiles::writeFile(path, content));

    const int count = LaunchArguments::Apply(path);
    const QString actual = channelVars();
    setChannelVars(saved);
    QCOMPARE(actual, expected);
    QCOMPARE(count, applied);
}

CORE_TEST_CLASS(TestQtUtil)
#include "tst_qtutil.moc"
