#include "TestDirs.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/GlobalVar.h"
#include "log/Logger.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QtTest>

namespace {

const QString kLog = QStringLiteral("log/launcher.log");

QStringList logLines()
{
    return QString::fromUtf8(TestFiles::readFile(kLog)).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
}

void logOn(bool on)
{
    Global::Var::bLog = on;
    Logger::LogToFile(on);
}

} // namespace

// The log file's name and run stamp are fixed by the first written message of the process, so the
// whole class runs in one working folder, prepared before anything is logged.
class TestLogger : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(TestFiles::writeFile(kLog, "previous run\r\n"));
        QVERIFY(TestFiles::writeFile(QStringLiteral("VKD64/CSLog/customLog.txt"), "stale"));
    }
    void cleanup() { logOn(false); }

    void writesOnlyWhileSwitchedOn()
    {
        const QByteArray before = TestFiles::readFile(kLog);
        Global::Var::bLog = false;
        Logger::LogToFile(true);
        Logger::LogInfo(QStringLiteral("Patcher"), QStringLiteral("must not appear"));
        qWarning("must not appear either");
        QCOMPARE(TestFiles::readFile(kLog), before);

        logOn(true);
        Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("on"));
        Logger::LogToFile(false);
        Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("off"));
        Logger::LogToFile(true);
        Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("on again"));
        const QStringList lines = logLines().mid(logLines().size() - 2);
        // Switched on again, the same file goes on.
        QVERIFY(lines.size() == 2 && lines[0].endsWith("[Test]:on") && lines[1].endsWith("[Test]:on again"));
    }

    void lineFormat_data()
    {
        QTest::addColumn<int>("type"); // a message type, or -1 - n for the n-th Logger function
        QTest::addColumn<QString>("ending"); // all that follows the time part and ": "
        // Every Logger function leaves a debug-type message without a source location.
        for (int n = 0; n < 4; ++n)
            QTest::addRow("Logger function %d", n) << -1 - n << QStringLiteral("Debug/(0): [Patcher]:x 安装");
        const QList<QPair<int, QString>> prefixes { { QtInfoMsg, "Info/" }, { QtWarningMsg, "Warning/" },
            { QtCriticalMsg, "Critical/" }, { QtDebugMsg, "Debug/" }, { 42, "" } };
        for (const auto& prefix : prefixes)
            QTest::addRow("message type %d", prefix.first)
                << prefix.first << prefix.second + QStringLiteral("Widget.cpp(17): from elsewhere");
    }
    void lineFormat()
    {
        QFETCH(int, type);
        QFETCH(QString, ending);
        logOn(true);
        if (type < 0) {
            const decltype(&Logger::LogInfo) functions[]
                = { Logger::LogInfo, Logger::LogDebug, Logger::LogWarning, Logger::LogCritical };
            functions[-1 - type](QStringLiteral("Patcher"), QStringLiteral("x 安装"));
        } else {
            // Foreign code's messages, fed to the installed handler as Qt would.
            const QtMessageHandler handler = qInstallMessageHandler(nullptr);
            qInstallMessageHandler(handler);
            handler(QtMsgType(type), QMessageLogContext("C:\\src\\game\\Widget.cpp", 17, "f", "default"),
                QStringLiteral("from elsewhere"));
        }
        const QString line = logLines().last();
        const QRegularExpression time(QStringLiteral("^\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: "));
        QVERIFY2(time.match(line).hasMatch() && line.mid(20) == ending, qPrintable(line));
    }

    void firstMessageKeepsPreviousRunAndClearsCustomLog()
    {
        logOn(true);
        Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("first or later"));
        const QStringList kept = QDir("log").entryList({ "log_*.log" }, QDir::Files);
        QCOMPARE(kept.size(), 1);
        const QDateTime stamp
            = QDateTime::fromString(kept.first().mid(4, 12), QStringLiteral("yyyyMMddhhmm"));
        QVERIFY(stamp.secsTo(m_started) < 60 && stamp.secsTo(QDateTime::currentDateTime()) >= 0);
        QCOMPARE(TestFiles::readFile(QStringLiteral("log/") + kept.first()), QByteArray("previous run\r\n"));
        QVERIFY(!QFile::exists(QStringLiteral("VKD64/CSLog/customLog.txt")));
        QVERIFY(QDir(QStringLiteral("VKD64/CSLog")).exists());
    }

private:
    ScopedWorkingDir m_dir;
    const QDateTime m_started = QDateTime::currentDateTime();
};

CORE_TEST_CLASS(TestLogger)
#include "tst_logger.moc"
