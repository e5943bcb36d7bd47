#include "CallbackRecorder.h"
#include "LogLines.h"
#include "ScriptedTool.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/CheckComponent.h"
#include "core/Checker.h"
#include "core/CheckerThread.h"
#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"

#include <QDir>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace Morvantix;

namespace {

void start(const QString& folder)
{
    auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_checkPath = folder;
    GetCheckComponent()->StartChecker(*ctx);
}

} // namespace

class TestCore : public QObject
{
    Q_OBJECT
private slots:
    void componentsRegistry()
    {
        // Each accessor asks for its own type: a wrong number would fail the checked cast.
        QVERIFY(GetDownloadComponent() && GetUnZipComponent() && GetSerializeComponent()
            && GetVerifyComponent() && GetCheckComponent());

        // A second registration must not replace a component the launcher already holds.
        const auto first = GetCheckComponent();
        CoreSystem::GetCoreSystemInst()->RegistComponent(
            EComponentType::Check, std::make_shared<CheckComponent>());
        QCOMPARE(GetCheckComponent(), first);
    }

    void reportsUntilFirstFileInUse_data()
    {
        QTest::addColumn<QStringList>("files"); // "name->": a link back to the folder
        QTest::addColumn<int>("heldIndex");
        QTest::addColumn<QList<float>>("progress");
        QTest::addRow("second of three in use")
            << QStringList { "a.pak", "b.pak", "c.pak" } << 1 << QList<float> { 1.0f / 3.0f };
        QTest::addRow("none in use") << QStringList { "a.pak", "sub/b.pak", "sub/深/c.pak", "z.pak" } << -1
                                     << QList<float> { 0.25f, 0.5f, 0.75f, 1.0f };
        QTest::addRow("first in use") << QStringList { "a游戏.exe", "z.pak" } << 0 << QList<float>();
        QTest::addRow("two links back to the parent") << QStringList { "a.pak", "sub/b.pak", "sub/up1->",
            "sub/up2->" } << -1 << QList<float> { 0.5f, 1.0f };
        QTest::addRow("empty folder") << QStringList() << -1 << QList<float>();
        QTest::addRow("missing folder") << QStringList { "<missing>" } << -1 << QList<float>();
    }
    void reportsUntilFirstFileInUse()
    {
        QFETCH(QStringList, files);
        QFETCH(int, heldIndex);
        QFETCH(QList<float>, progress);
#ifdef Q_OS_WIN
        if (files.contains(QStringLiteral("sub/up1->")))
            QSKIP("on Windows QFile::link makes shortcuts, not links a folder walk could follow");
#endif
        const QTemporaryDir dir;
        QString folder = dir.filePath(QStringLiteral("game"));
        QDir().mkpath(folder);
        if (files == QStringList { QStringLiteral("<missing>") })
            folder = dir.filePath(QStringLiteral("no/such/folder"));
        else
            for (const QString& name : files)
                if (name.endsWith(QLatin1String("->")))
                    QVERIFY(QFile::link(folder, QDir(folder).filePath(name.chopped(2))));
                else
                    QVERIFY(TestFiles::writeFile(QDir(folder).filePath(name), "x"));

        // Another process holds the file, as a running game holds its own.
        QProcess holder;
        QString heldPath;
        std::unique_ptr<ScriptedTool> holderProgram;
        if (heldIndex >= 0) {
            heldPath = QDir(folder).absoluteFilePath(files.at(heldIndex));
            holderProgram = std::make_unique<ScriptedTool>(
                dir.path(), "holder", QVector<ScriptedTool::Step> { { 0, {}, {}, 60000, heldPath } });
            holder.start(holderProgram->path(), QStringList());
            QTRY_VERIFY_WITH_TIMEOUT(holderProgram->processId(1) > 0, 10000);
        }
        CallbackRecorder<CheckCallbackInfo> recorder;
        QVERIFY(recorder.run(GetCheckComponent(), [&] { start(folder); }));
        holder.kill();
        holder.waitForFinished();

        QCOMPARE(recorder.progress(&CheckCallbackInfo::percent), progress);
        QVERIFY(recorder.last().bComplete);
        QCOMPARE(recorder.last().bError, heldIndex >= 0);
        QCOMPARE(recorder.last().errorPath, heldPath.isEmpty() ? QString("") : heldPath);
        QVERIFY(!recorder.last().errorPath.isNull());
    }

    // The running job goes on with its own folder and ends once; run again without a callback, it
    // reports to nobody.
    void secondStartRefusedThenNoCallback()
    {
        const QTemporaryDir dir;
        for (int i = 0; i < 400; ++i)
            QVERIFY(TestFiles::writeFile(dir.filePath(QStringLiteral("many/f%1.bin").arg(i)), "x"));
        const LogLines log;
        CallbackRecorder<CheckCallbackInfo> recorder;
        QVERIFY(recorder.run(GetCheckComponent(), [&] {
            start(dir.filePath(QStringLiteral("many")));
            start(dir.filePath(QStringLiteral("elsewhere")));
        }));
        QVERIFY(log.all().contains(QStringLiteral("[Verifyer]:m_VerifyThread->isRunning")));
        QCOMPARE(recorder.reports().size(), 401);
        QCOMPARE(recorder.reports().at(399).percent, 1.0f);

        GetCheckComponent()->RegistCallbackFunc(nullptr);
        QSignalSpy completed(
            Checker::GetInstance()->findChild<CheckerThread*>(), &CheckerThread::CheckComplete);
        QVERIFY(completed.isValid());
        start(dir.filePath(QStringLiteral("many")));
        QVERIFY(completed.wait(10000));
        QTest::qWait(50); // a report to no callback would end the program here
        QCOMPARE(recorder.reports().size(), 401);
    }
};

CORE_TEST_CLASS(TestCore)
#include "tst_core.moc"
