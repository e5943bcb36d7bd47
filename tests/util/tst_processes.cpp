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

// Processes found by their program and by the files they hold, against real children.
class TestProcesses : public QObject
{
    Q_OBJECT
private slots:
    void cleanup()
    {
        m_child.kill();
        m_child.waitForFinished();
    }

    void foundByProgramAndEnded()
    {
        QTemporaryDir dir;
        const QString game = copyOfSleep(dir, QStringLiteral("游戏 game"));
        const QString idle = copyOfSleep(dir, QStringLiteral("idle"));
        m_child.start(game, { QStringLiteral("30") });
        QVERIFY(m_child.waitForStarted());

        QCOMPARE(ProcessUtil::FindByExecutable(game), QList<qint64> { m_child.processId() });
        QVERIFY(ProcessUtil::FindByExecutable(idle).isEmpty());
        QCOMPARE(ProcessUtil::EndByExecutable(game), 1);
        QTRY_COMPARE(m_child.state(), QProcess::NotRunning);
        QCOMPARE(m_child.exitStatus(), QProcess::CrashExit);
        QVERIFY(ProcessUtil::FindByExecutable(game).isEmpty());
    }

    void fileHolderNamed_data()
    {
        QTest::addColumn<bool>("held");
        QTest::newRow("held as standard input") << true;
        QTest::newRow("not held") << false;
    }
    void fileHolderNamed()
    {
        QFETCH(bool, held);
        QTemporaryDir dir;
        const QString holder = copyOfSleep(dir, QStringLiteral("holder"));
        const QString file = dir.filePath(QStringLiteral("data 数据.pak"));
        QVERIFY(QFile(file).open(QIODevice::WriteOnly));
        // The shell opens the file and becomes the holder, so the test process never has it open.
        m_child.start(QStringLiteral("/bin/sh"),
            { QStringLiteral("-c"), QStringLiteral("exec \"$0\" 30 < \"$1\""), holder,
                held ? file : QStringLiteral("/dev/null") });
        QVERIFY(m_child.waitForStarted());
        QTRY_COMPARE(ProcessUtil::FindByExecutable(holder).size(), 1); // the exec has happened

        const QList<ProcessUtil::Entry> holders = ProcessUtil::FindFileHolders(file);
        QCOMPARE(holders.size(), held ? 1 : 0);
        if (held)
            QCOMPARE(qMakePair(holders.first().pid, holders.first().name),
                qMakePair(m_child.processId(), QStringLiteral("holder")));
    }

private:
    QProcess m_child;
};

CORE_TEST_CLASS(TestProcesses)
#include "tst_processes.moc"
