#include "ScriptedTool.h"
#include "TestPlatform.h"
#include "TestRegistry.h"

#include "util/ProcessUtil.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// A program of our own, so that the only processes running it are the test's; it waits, holding
// heldFile open when one is named.
std::unique_ptr<ScriptedTool> waitingProgram(
    const QTemporaryDir& dir, const QString& name, const QString& heldFile = QString())
{
    return std::make_unique<ScriptedTool>(
        dir.path(), name, QVector<ScriptedTool::Step> { { 0, {}, {}, 30000, heldFile } });
}

} // namespace

// Processes found by their program and by the files they hold, against a real child.
class TestProcesses : public QObject
{
    Q_OBJECT
private slots:
    void foundHeldAndEnded()
    {
        QTemporaryDir dir;
        const QString held = dir.filePath(QStringLiteral("data 数据.pak"));
        const QString free = dir.filePath(QStringLiteral("free.pak"));
        QVERIFY(QFile(held).open(QIODevice::WriteOnly) && QFile(free).open(QIODevice::WriteOnly));
        const auto gameProgram = waitingProgram(dir, QStringLiteral("游戏 game"), held);
        const auto idleProgram = waitingProgram(dir, QStringLiteral("idle"));
        const QString game = gameProgram->path();
        const QString idle = idleProgram->path();
        // The child opens the file itself, so the test process never has it open.
        QProcess child;
        child.start(game, QStringList());
        QVERIFY(child.waitForStarted());
        QTRY_VERIFY(gameProgram->processId(1) > 0); // the file is open from here on
        QCOMPARE(ProcessUtil::FindByExecutable(game), QList<qint64> { child.processId() });
        QVERIFY(ProcessUtil::FindByExecutable(idle).isEmpty());

        if (TestPlatform::runsUnderWine()) {
            qInfo("not checked under Wine: the processes holding a file (its Restart Manager names none)");
        } else {
            const QList<ProcessUtil::Entry> holders = ProcessUtil::FindFileHolders(held);
            QCOMPARE(holders.size(), 1);
            QCOMPARE(qMakePair(holders.first().pid, holders.first().name),
                qMakePair(child.processId(), QFileInfo(game).fileName()));
            QVERIFY(ProcessUtil::FindFileHolders(free).isEmpty());
        }

        QCOMPARE(ProcessUtil::EndByExecutable(game), 1);
        QTRY_COMPARE(child.state(), QProcess::NotRunning);
#ifdef Q_OS_WIN
        // Ended with exit code 1, which Windows does not tell apart from the program's own.
        QCOMPARE(qMakePair(child.exitStatus(), child.exitCode()), qMakePair(QProcess::NormalExit, 1));
#else
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
#endif
        QVERIFY(ProcessUtil::FindByExecutable(game).isEmpty());
    }
};

CORE_TEST_CLASS(TestProcesses)
#include "tst_processes.moc"
