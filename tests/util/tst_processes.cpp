#include "TestRegistry.h"

#include "util/ProcessUtil.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// A program of our own, so that the only processes running it are the test's.
QString copyOfSleep(const QTemporaryDir& dir, const QString& name)
{
    const QString path = dir.filePath(name);
    return QFile::copy(QStringLiteral("/bin/sleep"), path) ? path : QString();
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
        const QString game = copyOfSleep(dir, QStringLiteral("游戏 game"));
        const QString idle = copyOfSleep(dir, QStringLiteral("idle"));
        const QString held = dir.filePath(QStringLiteral("data 数据.pak"));
        const QString free = dir.filePath(QStringLiteral("free.pak"));
        QVERIFY(QFile(held).open(QIODevice::WriteOnly) && QFile(free).open(QIODevice::WriteOnly));
        // The shell opens the file and becomes the holder, so the test process never has it open.
        QProcess child;
        child.start(QStringLiteral("/bin/sh"),
            { QStringLiteral("-c"), QStringLiteral("exec \"$0\" 30 < \"$1\""), game, held });
        QVERIFY(child.waitForStarted());
        QTRY_COMPARE(ProcessUtil::FindByExecutable(game), QList<qint64> { child.processId() }); // exec done
        QVERIFY(ProcessUtil::FindByExecutable(idle).isEmpty());

        const QList<ProcessUtil::Entry> holders = ProcessUtil::FindFileHolders(held);
        QCOMPARE(holders.size(), 1);
        QCOMPARE(qMakePair(holders.first().pid, holders.first().name),
            qMakePair(child.processId(), QStringLiteral("游戏 game")));
        QVERIFY(ProcessUtil::FindFileHolders(free).isEmpty());

        QCOMPARE(ProcessUtil::EndByExecutable(game), 1);
        QTRY_COMPARE(child.state(), QProcess::NotRunning);
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY(ProcessUtil::FindByExecutable(game).isEmpty());
    }
};

CORE_TEST_CLASS(TestProcesses)
#include "tst_processes.moc"
