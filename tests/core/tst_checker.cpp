#include "TestRegistry.h"

#include "core/CheckComponent.h"
#include "core/Checker.h"
#include "core/CheckerThread.h"
#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace Morvantix;

namespace {

struct Report
{
    bool bComplete;
    bool bError;
    float percent;
    QString errorPath;
};

void makeFile(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write("x");
}

} // namespace

class TestChecker : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void reportsUntilFirstFileInUse_data();
    void reportsUntilFirstFileInUse();
    void secondStartWhileRunningIsRefused();
    void withoutCallbackNothingIsReported();

private:
    void startAndWait(const QString& folder);

    std::shared_ptr<CheckComponent> m_component;
    QList<Report> m_reports;
    QTemporaryDir m_dir;
};

void TestChecker::init()
{
    m_component = GetCheckComponent();
    QVERIFY(m_component);
    m_reports.clear();
    m_component->RegistCallbackFunc([this](CheckCallbackInfo& info) {
        m_reports.append({ info.bComplete, info.bError, info.percent, info.errorPath });
    });
}

void TestChecker::cleanup()
{
    m_component->RegistCallbackFunc(nullptr);
    QDir(m_dir.path()).removeRecursively();
    QDir().mkpath(m_dir.path());
}

void TestChecker::startAndWait(const QString& folder)
{
    auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_checkPath = folder;
    m_component->StartChecker(*ctx);
    QTRY_VERIFY_WITH_TIMEOUT(!m_reports.isEmpty() && m_reports.last().bComplete, 10000);
}

void TestChecker::reportsUntilFirstFileInUse_data()
{
    QTest::addColumn<QStringList>("files");
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

void TestChecker::reportsUntilFirstFileInUse()
{
    QFETCH(QStringList, files);
    QFETCH(int, heldIndex);
    QFETCH(QList<float>, progress);

    QString folder = m_dir.filePath(QStringLiteral("game"));
    QDir().mkpath(folder);
    if (files == QStringList { QStringLiteral("<missing>") })
        folder = m_dir.filePath(QStringLiteral("no/such/folder"));
    else
        for (const QString& name : files)
            if (name.endsWith(QLatin1String("->")))
                QVERIFY(QFile::link(folder, QDir(folder).filePath(name.chopped(2))));
            else
                makeFile(QDir(folder).filePath(name));

    QProcess holder;
    QString heldPath;
    if (heldIndex >= 0) {
        heldPath = QDir(folder).absoluteFilePath(files.at(heldIndex));
        holder.start(QStringLiteral("sh"),
            { QStringLiteral("-c"), QStringLiteral("exec 3<\"$0\"; echo ready; exec sleep 60"), heldPath });
        QVERIFY(holder.waitForReadyRead(5000));
    }

    startAndWait(folder);
    holder.kill();
    holder.waitForFinished();

    QCOMPARE(m_reports.size(), progress.size() + 1);
    for (int i = 0; i < progress.size(); ++i) {
        QVERIFY(!m_reports.at(i).bComplete);
        QCOMPARE(m_reports.at(i).percent, progress.at(i));
    }
    const Report& done = m_reports.last();
    QVERIFY(done.bComplete);
    QCOMPARE(done.bError, heldIndex >= 0);
    QCOMPARE(done.errorPath, heldPath.isEmpty() ? QString() : heldPath);
    QVERIFY(!done.errorPath.isNull());
}

void TestChecker::secondStartWhileRunningIsRefused()
{
    const QString folder = m_dir.filePath(QStringLiteral("many"));
    for (int i = 0; i < 400; ++i)
        makeFile(QDir(folder).filePath(QStringLiteral("f%1.bin").arg(i, 4, 10, QLatin1Char('0'))));

    static QStringList* sink = nullptr;
    QStringList lines;
    sink = &lines;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& msg) { sink->append(msg); });
    auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_checkPath = folder;
    m_component->StartChecker(*ctx);
    ctx->m_checkPath = m_dir.filePath(QStringLiteral("elsewhere"));
    m_component->StartChecker(*ctx);
    qInstallMessageHandler(previous);
    QVERIFY(lines.contains(QStringLiteral("[Verifyer]:m_VerifyThread->isRunning")));

    QTRY_VERIFY_WITH_TIMEOUT(!m_reports.isEmpty() && m_reports.last().bComplete, 10000);
    // The running job went on with its own folder and reported once.
    QTest::qWait(100);
    int completions = 0;
    for (const Report& r : m_reports)
        completions += r.bComplete ? 1 : 0;
    QCOMPARE(completions, 1);
    QCOMPARE(m_reports.size(), 401);
    QCOMPARE(m_reports.at(399).percent, 1.0f);
}

void TestChecker::withoutCallbackNothingIsReported()
{
    const QString folder = m_dir.filePath(QStringLiteral("quiet"));
    makeFile(QDir(folder).filePath(QStringLiteral("a.bin")));
    makeFile(QDir(folder).filePath(QStringLiteral("b.bin")));
    m_component->RegistCallbackFunc(nullptr);

    auto* thread = Checker::GetInstance()->findChild<CheckerThread*>();
    QVERIFY(thread);
    QSignalSpy completed(thread, &CheckerThread::CheckComplete);
    auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_checkPath = folder;
    m_component->StartChecker(*ctx);
    QVERIFY(completed.wait(10000));
    QTest::qWait(50);
    QVERIFY(m_reports.isEmpty());
}

CORE_TEST_CLASS(TestChecker)
#include "tst_checker.moc"
