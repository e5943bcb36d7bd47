#include "TestRegistry.h"

#include "core/GlobalVar.h"
#include "log/Logger.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

// The log file's name and run stamp are fixed by the first written message of the process, so the
// whole class runs in one working folder, prepared before anything is logged.
class TestLogger : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void nothingWrittenWhileLogIsOff();
    void moduleLineFormat_data();
    void moduleLineFormat();
    void levelPrefixOfOtherMessages_data();
    void levelPrefixOfOtherMessages();
    void firstMessageKeepsPreviousRunAndClearsCustomLog();
    void switchingOffStopsWriting();
    void concurrentWritersKeepWholeLines();

private:
    QStringList logLines() const;
    QString lastLine() const { return logLines().value(logLines().size() - 1); }

    QTemporaryDir m_dir;
    QString m_previousDir;
    QDateTime m_started;
};

void TestLogger::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_previousDir = QDir::currentPath();
    QDir::setCurrent(m_dir.path());
    m_started = QDateTime::currentDateTime();

    QDir().mkpath(QStringLiteral("log"));
    QFile previous(QStringLiteral("log/launcher.log"));
    QVERIFY(previous.open(QIODevice::WriteOnly));
    previous.write("previous run\r\n");
    previous.close();

    QDir().mkpath(QStringLiteral("VKD64/CSLog"));
    QFile custom(QStringLiteral("VKD64/CSLog/customLog.txt"));
    QVERIFY(custom.open(QIODevice::WriteOnly));
    custom.write("stale");
    custom.close();
}

void TestLogger::cleanupTestCase()
{
    Logger::LogToFile(false);
    Global::Var::bLog = false;
    QDir::setCurrent(m_previousDir);
}

void TestLogger::cleanup()
{
    Logger::LogToFile(false);
    Global::Var::bLog = false;
}

QStringList TestLogger::logLines() const
{
    QFile file(m_dir.filePath(QStringLiteral("log/launcher.log")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines = QString::fromUtf8(file.readAll()).split(QStringLiteral("\r\n"));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

void TestLogger::nothingWrittenWhileLogIsOff()
{
    const QByteArray before = [this] {
        QFile f(m_dir.filePath(QStringLiteral("log/launcher.log")));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }();
    Global::Var::bLog = false;
    Logger::LogToFile(true);
    Logger::LogInfo(QStringLiteral("Patcher"), QStringLiteral("must not appear"));
    qWarning("must not appear either");

    QFile after(m_dir.filePath(QStringLiteral("log/launcher.log")));
    QVERIFY(after.open(QIODevice::ReadOnly));
    QCOMPARE(after.readAll(), before);
}

void TestLogger::moduleLineFormat_data()
{
    QTest::addColumn<int>("level");
    QTest::addRow("info") << 0;
    QTest::addRow("debug") << 1;
    QTest::addRow("warning") << 2;
    QTest::addRow("critical") << 3;
}

void TestLogger::moduleLineFormat()
{
    QFETCH(int, level);
    using LogFunction = void (*)(const QString&, const QString&);
    const LogFunction functions[]
        = { Logger::LogInfo, Logger::LogDebug, Logger::LogWarning, Logger::LogCritical };
    const LogFunction logFunction = functions[level];
    Global::Var::bLog = true;
    Logger::LogToFile(true);
    logFunction(QStringLiteral("Patcher"), QStringLiteral("x 安装"));

    // Every level leaves a debug-type message without a source location.
    const QRegularExpression pattern(
        QStringLiteral("^\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: Debug/\\(0\\): \\[Patcher\\]:x 安装$"));
    QVERIFY2(pattern.match(lastLine()).hasMatch(), qPrintable(lastLine()));
}

void TestLogger::levelPrefixOfOtherMessages_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("prefix");
    QTest::addRow("info") << int(QtInfoMsg) << QStringLiteral("Info/");
    QTest::addRow("warning") << int(QtWarningMsg) << QStringLiteral("Warning/");
    QTest::addRow("critical") << int(QtCriticalMsg) << QStringLiteral("Critical/");
    QTest::addRow("debug") << int(QtDebugMsg) << QStringLiteral("Debug/");
    QTest::addRow("unknown type") << 42 << QString();
}

void TestLogger::levelPrefixOfOtherMessages()
{
    QFETCH(int, type);
    QFETCH(QString, prefix);
    Global::Var::bLog = true;
    Logger::LogToFile(true);
    // Ask Qt for the installed handler and feed it directly, as foreign code's messages would be.
    const QtMessageHandler handler = qInstallMessageHandler(nullptr);
    qInstallMessageHandler(handler);
    const QMessageLogContext context("C:\\src\\game\\Widget.cpp", 17, "f", "default");
    handler(static_cast<QtMsgType>(type), context, QStringLiteral("from elsewhere"));

    QVERIFY2(lastLine().endsWith(QStringLiteral(": %1Widget.cpp(17): from elsewhere").arg(prefix)),
        qPrintable(lastLine()));
    QCOMPARE(lastLine().mid(18, 2), QStringLiteral(": "));
}

void TestLogger::firstMessageKeepsPreviousRunAndClearsCustomLog()
{
    Global::Var::bLog = true;
    Logger::LogToFile(true);
    Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("first or later"));

    const QStringList kept
        = QDir(m_dir.filePath(QStringLiteral("log"))).entryList({ QStringLiteral("log_*.log") }, QDir::Files);
    QCOMPARE(kept.size(), 1);
    const QDateTime stamp = QDateTime::fromString(kept.first().mid(4, 12), QStringLiteral("yyyyMMddhhmm"));
    QVERIFY(stamp.isValid());
    QVERIFY(stamp.secsTo(m_started) < 60 && stamp.secsTo(QDateTime::currentDateTime()) >= 0);
    QFile keptFile(m_dir.filePath(QStringLiteral("log/") + kept.first()));
    QVERIFY(keptFile.open(QIODevice::ReadOnly));
    QCOMPARE(keptFile.readAll(), QByteArray("previous run\r\n"));

    QVERIFY(!QFile::exists(m_dir.filePath(QStringLiteral("VKD64/CSLog/customLog.txt"))));
    QVERIFY(QDir(m_dir.filePath(QStringLiteral("VKD64/CSLog"))).exists());
}

void TestLogger::switchingOffStopsWriting()
{
    Global::Var::bLog = true;
    Logger::LogToFile(true);
    Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("on"));
    const int count = logLines().size();
    Logger::LogToFile(false);
    Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("off"));
    QCOMPARE(logLines().size(), count);
    Logger::LogToFile(true);
    Logger::LogInfo(QStringLiteral("Test"), QStringLiteral("on again"));
    QCOMPARE(logLines().size(), count + 1);
    // Switching back on continues the same file rather than starting a new run.
    QCOMPARE(
        QDir(m_dir.filePath(QStringLiteral("log"))).entryList({ QStringLiteral("log_*.log") }).size(), 1);
}

void TestLogger::concurrentWritersKeepWholeLines()
{
    Global::Var::bLog = true;
    Logger::LogToFile(true);
    const int before = logLines().size();
    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    QList<QThread*> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads << QThread::create([t] {
            for (int i = 0; i < kLines; ++i)
                Logger::LogInfo(QStringLiteral("Worker%1").arg(t), QStringLiteral("line %1").arg(i));
        });
        threads.last()->start();
    }
    for (QThread* thread : threads) {
        QVERIFY(thread->wait(30000));
        delete thread;
    }
    const QStringList lines = logLines().mid(before);
    QCOMPARE(lines.size(), kThreads * kLines);
    const QRegularExpression pattern(QStringLiteral("^.{18}: Debug/\\(0\\): \\[Worker\\d\\]:line \\d+$"));
    for (const QString& line : lines)
        QVERIFY2(pattern.match(line).hasMatch(), qPrintable(line));
}

CORE_TEST_CLASS(TestLogger)
#include "tst_logger.moc"
