#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/GlobalVar.h"
#include "util/LaunchArguments.h"
#include "util/QtUtil.h"

#include <QTextCodec>
#include <QtTest>

namespace {

// Sets Channel, Host, HostAndChannel and LauncherChannel from one text joined by "|" and returns their
// previous values, joined the same way.
QString swapChannelVars(const QString& joined)
{
    QString* const vars[] = { &Global::Var::Channel, &Global::Var::Host, &Global::Var::HostAndChannel,
        &Global::Var::LauncherChannel };
    QStringList previous;
    const QStringList values = joined.split(QLatin1Char('|'));
    for (int i = 0; i < 4; ++i) {
        previous << *vars[i];
        *vars[i] = values.value(i);
    }
    return previous.join(QLatin1Char('|'));
}

} // namespace

// Text, formats, disk space and the launch-channel argument file.
class TestQtUtil : public QObject
{
    Q_OBJECT
private slots:
    void texts_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<QVariant>("input");
        QTest::addColumn<QString>("expected");
        const QString chinese = QStringLiteral("文件被占用，请重试");
        QTest::newRow("GBK") << "unicode" << QVariant(QTextCodec::codecForName("GBK")->fromUnicode(chinese))
                             << chinese;
        QTest::newRow("UTF-8") << "unicode" << QVariant(chinese.toUtf8()) << chinese;
        QTest::newRow("empty") << "unicode" << QVariant(QByteArray()) << QString();
        const qint64 KB = 1024, MB = KB * KB, GB = MB * KB, TB = GB * KB;
        const QList<QPair<qint64, QString>> sizes { { 0, "0 B" }, { KB - 1, "1023 B" }, { KB, "1 KB" },
            { KB + KB / 2, "1.5 KB" }, { MB - 1, "1 MB" }, { GB + GB / 2, "1.5 GB" },
            { 2048 * TB, "2048 TB" } };
        const QList<QPair<qint64, QString>> durations { { 45, "45s" }, { 60, "1m 00s" }, { 185, "3m 05s" },
            { 3720, "1h 02m" }, { 90000, "25h 00m" } };
        for (const auto& row : sizes)
            QTest::addRow("%s", qPrintable(row.second)) << "size" << QVariant(row.first) << row.second;
        for (const auto& row : durations)
            QTest::addRow("%s", qPrintable(row.second)) << "duration" << QVariant(row.first) << row.second;
    }
    void texts()
    {
        QFETCH(QString, function);
        QFETCH(QVariant, input);
        QFETCH(QString, expected);
        // The local code page of a Chinese Windows, whatever this machine's locale is.
        QTextCodec* previous = QTextCodec::codecForLocale();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("GBK"));
        const QString text = function == "size" ? QtUtil::FormatSize(input.toLongLong())
            : function == "duration"            ? QtUtil::FormatDuration(input.toLongLong())
                                                : QtUtil::GetUnicodeString(input.toByteArray());
        QTextCodec::setCodecForLocale(previous);
        QCOMPARE(text, expected);
    }

    void freeDiskSpaceOfMissingPathIsItsAncestors()
    {
        QTemporaryDir dir;
        const qint64 existing = QtUtil::GetFreeDiskSpace(dir.path());
        const qint64 missing = QtUtil::GetFreeDiskSpace(dir.filePath(QStringLiteral("Game/新版本/data.pak")));
        QVERIFY(existing > 0);
        QVERIFY(qAbs(missing - existing) < 64 * 1024 * 1024); // other processes write meanwhile
    }

    void argumentFile_data()
    {
        QTest::addColumn<QByteArray>("content"); // no file at all when null
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("applied");
        QTest::newRow("missing file") << QByteArray() << "IOS|http://h||Launcher" << 0;
        QTest::newRow("Chinese values, blanks, comments, unknown keys")
            << QStringLiteral(
                   "\xFEFF# 渠道\r\n\r\n  Channel = 官方渠道  \r\nUnknown=1\n"
                   "HostAndChannel=http://cdn/官方渠道\n; note\nLauncherChannel=启动器\nbroken line\n")
                   .toUtf8()
            << "官方渠道|http://h|http://cdn/官方渠道|启动器" << 3;
        QTest::newRow("empty value ignored, last line wins")
            << QByteArray("Host=\nChannel=A\nChannel=B\n") << "B|http://h||Launcher" << 2;
    }
    void argumentFile()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        QFETCH(int, applied);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("channel.ini"));
        if (!content.isNull())
            QVERIFY(TestFiles::writeFile(path, content));
        const QString saved = swapChannelVars(QStringLiteral("IOS|http://h||Launcher"));
        const int count = LaunchArguments::Apply(path);
        QCOMPARE(swapChannelVars(saved), expected);
        QCOMPARE(count, applied);
    }
};

CORE_TEST_CLASS(TestQtUtil)
#include "tst_qtutil.moc"
