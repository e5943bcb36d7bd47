#include "CallbackRecorder.h"
#include "LogLines.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/ComponentAccessors.h"
#include "core/VerifyComponent.h"
#include "install/ManifestFileInfo.h"

#include <QtTest>

using namespace Morvantix;

namespace {

QString entry(const QString& path, const QByteArray& content)
{
    return FileListLine({ path, TestFiles::md5Hex(content), quint64(content.size()) });
}

// Specs relative to the folder verified (they may climb out of it on purpose): "path=content" writes
// a file, "path->target" makes a link, "path/" a folder.
void makeTree(const QDir& folder, const QStringList& specs)
{
    for (const QString& spec : specs) {
        const QString path = folder.filePath(spec.section(QRegularExpression("=|->"), 0, 0));
        QDir().mkpath(spec.endsWith('/') ? path : QFileInfo(path).absolutePath());
        if (spec.contains("->"))
            QVERIFY(QFile::link(folder.filePath(spec.section("->", 1)), path));
        else if (spec.contains('='))
            QVERIFY(TestFiles::writeFile(path, spec.section('=', 1).toUtf8()));
    }
}

// The reports of one job; empty unless it ended exactly once. `alsoStart` is started during the run.
QVector<VerifyCallbackInfo> runJob(GameUpdateContext& ctx, GameUpdateContext* alsoStart = nullptr)
{
    CallbackRecorder<VerifyCallbackInfo> recorder;
    GetVerifyComponent()->RegistCallbackFunc(recorder.callback());
    GetVerifyComponent()->StartVerify(ctx);
    if (alsoStart)
        GetVerifyComponent()->StartVerify(*alsoStart);
    const bool ended = recorder.waitForEnd();
    GetVerifyComponent()->RegistCallbackFunc(nullptr);
    return ended && recorder.endings() == 1 ? recorder.reports() : QVector<VerifyCallbackInfo>();
}

GameUpdateContext manifestJob(const QString& folder, const QString& manifest, int kind, bool md5)
{
    GameUpdateContext ctx;
    ctx.m_installPath = folder;
    ctx.m_manifestContent = manifest;
    ctx.m_updateType = kind;
    ctx.m_bMd5Verify = md5;
    return ctx;
}

} // namespace

class TestVerifier : public QObject
{
    Q_OBJECT
private slots:
    void verifies_data();
    void verifies();
    void randomManifestEndsOnce();
    void secondStartWhileRunningIsRefused();
};

void TestVerifier::verifies_data()
{
    // Archive mode takes the lines "path|md5" of `lines` as its two lists; manifest mode the text.
    QTest::addColumn<bool>("zip");
    QTest::addColumn<QStringList>("disk");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("md5");
    QTest::addColumn<QList<float>>("progress");
    QTest::addColumn<bool>("bError");
    QTest::addColumn<QStringList>("failedFiles");
    // Paths that must be there afterwards, or must be gone ("!path").
    QTest::addColumn<QStringList>("after");
    // Parts of log lines that must be there, or must not ("!part").
    QTest::addColumn<QStringList>("log");

    using L = QStringList;
    using P = QList<float>;
    const L seed { "seed.pak" }; // left by the repair job before each row; only a repair job replaces it
    const QByteArray big(819201, 'b');
    QTest::addRow("three archives, the middle corrupt")
        << true << L { "a0=0", "a1=1", "a2=2" } << L { entry("a0", "0"), entry("a1", "x"), entry("a2", "2") }
        << 0 << false << P { 0, 1 / 3.0f, 2 / 3.0f } << true << seed << L { "a0", "!a1", "a2" }
        << L { "a0, md5 is", "a1, md5 is", "a2, md5 is", "verify zipfile is failed !" };
    QTest::addRow("no archives") << true << L() << L() << 0 << false << P { 1 } << false << seed << L()
                                 << L();
    QTest::addRow("upper-case hash") << true << L { "a=A" } << L { "a|" + TestFiles::md5Hex("A").toUpper() }
                                     << 0 << false << P { 1, 0 } << true << seed << L { "!a" } << L();
    QTest::addRow("one archive reports inside it, by 409600 bytes")
        << true << L { "a=" + big } << L { entry("a", big) } << 0 << false
        << P { 409600 / 819201.0f, 819200 / 819201.0f, 0, 1 } << false << seed << L { "a" }
        << L { "totalBytes of files is 819201", "verify zipfile is success !" };
    QTest::addRow("an archive without a hash fails, stays")
        << true << L { "a=A", "b=B" } << L { entry("a", "A"), "b" } << 0 << false << P { 0, 0.5 } << true
        << seed << L { "b" } << L { "[Verifyer]:size is not equal Error !!!" };
    QTest::addRow("a folder for an archive fails, stays")
        << true << L { "a/" } << L { entry("a", "A") } << 0 << false << P { 0 } << true << seed << L { "a" }
        << L { "[VerifyThread]:manifest File", "cannot open, please check!" };

    QTest::addRow("size only passes other content of the same size")
        << false << L { "a=hello" } << L { entry("a", "world") } << 0 << false << P { 1 } << false << seed
        << L() << L { "[VerifyThread]:verify folder is", "verify manifest is success !", "!caculate md5" };
    for (int kind : { 1, 4 })
        QTest::addRow("repair kind %d: every failure, sorted, by MD5", kind)
            << false << L { "a=A", "b=B", "m/c=C" }
            << L { entry("z", "Z"), entry("m/c", "c!"), entry("b", "b"), entry("a", "A") } << kind << false
            << P { 0.25 } << true << L { "b", "m/c", "z" } << L { "b", "m/c" } << L();
    QTest::addRow("other kinds stop at the first failure")
        << false << L { "a=A", "b=B", "c=C" }
        << L { entry("d", "D"), entry("c", "C"), entry("b", "x"), entry("a", "A") } << 0 << true << P { 0.25 }
        << true << seed << L() << L { "!c,caculate", "!d,caculate" };
    QTest::addRow("empty manifest cleans nothing")
        << false << L { "KX/Content/Paks/x.pak=x" } << L() << 2 << true << P() << false << seed
        << L { "KX/Content/Paks/x.pak" } << L { "the number of files is 0", "verify manifest is success !" };
    QTest::addRow("pak clean-up ignores case and separators")
        << false
        << L { "KX/Content/Paks/GAME.PAK=", "KX/Content/Paks/Extra.pak=x", "KX/Content/Paks/s/b=b",
               "O/Extra.pak=x" }
        << L { "KX/Content/Paks/game.pak||0", entry("KX\\Content\\Paks\\s\\b", "z") } << 0 << false
        << P { 0.5, 1 } << false << seed
        << L { "KX/Content/Paks/GAME.PAK", "KX/Content/Paks/s/b", "O/Extra.pak",
               "!KX/Content/Paks/Extra.pak" }
        << L();
    QTest::addRow("no pak clean-up after a failure")
        << false << L { "KX/Content/Paks/x.pak=x" } << L { entry("a", "A") } << 0 << true << P() << true
        << seed << L { "KX/Content/Paks/x.pak" } << L();
    QTest::addRow("pak clean-up stays out of a linked folder")
        << false
        << L { "a=A", "../out/victim.pak=v", "KX/Content/Paks/linked->../out", "KX/Content/Paks/x.pak=x" }
        << L { entry("a", "A") } << 0 << true << P { 1 } << false << seed
        << L { "../out/victim.pak", "!KX/Content/Paks/x.pak" } << L();
    QTest::addRow("paths leaving the folder fail unopened")
        << false << L { "a=A", "../out=O" }
        << L { entry("../out", "O"), entry("..\\out", "O"), entry("<root>/out", "O"),
               entry("s/../../out", "O"), entry("a", "A") }
        << 4 << true << P { 0.8f } << true << L { "../out", "..\\out", "<root>/out", "s/../../out" }
        << L { "../out" } << L { "the path leaves the folder", "!out,caculate" };
    QTest::addRow("an entry naming a folder fails")
        << false << L { "s/in=x" } << L { entry("s", "x"), entry("s/in", "x") } << 1 << false << P { 1 }
        << true << L { "s" } << L { "s/in" } << L();
    QTest::addRow("lines of only bars fail")
        << false << L() << L { "|", " ||| " } << 1 << false << P() << true << L { "" } << L() << L();
}

void TestVerifier::verifies()
{
    QFETCH(bool, zip);
    QFETCH(QStringList, disk);
    QFETCH(QStringList, lines);
    QFETCH(int, kind);
    QFETCH(bool, md5);
    QFETCH(QList<float>, progress);
    QFETCH(bool, bError);
    QFETCH(QStringList, failedFiles);
    QFETCH(QStringList, after);
    QFETCH(QStringList, log);

    QTemporaryDir root;
    const QDir folder(root.filePath("game"));
    makeTree(folder, disk);
    failedFiles.replaceInStrings("<root>", root.path());
    GameUpdateContext seed = manifestJob(folder.path(), entry("seed.pak", "s"), 1, false);
    QCOMPARE(runJob(seed).value(0).failedFiles, QStringList { "seed.pak" });

    GameUpdateContext ctx
        = manifestJob(folder.path(), lines.join('\n').replace("<root>", root.path()), kind, md5);
    ctx.m_bVerifyZip = zip;
    for (const QString& line : lines) {
        ctx.m_archiveFileList << folder.filePath(ReadFileListLine(line).path);
        if (line.contains('|'))
            ctx.m_archiveMd5List << ReadFileListLine(line).md5;
    }
    const LogLines logLines;
    const QVector<VerifyCallbackInfo> reports = runJob(ctx);
    QVERIFY(!reports.isEmpty());
    QList<float> reported;
    for (const VerifyCallbackInfo& report : reports.mid(0, reports.size() - 1))
        reported << report.percent;
    QCOMPARE(reported, progress);
    QVERIFY(reports.last().bComplete);
    QCOMPARE(reports.last().bError, bError);
    QCOMPARE(reports.last().bSingle, zip);
    QCOMPARE(reports.last().failedFiles, failedFiles);
    for (const QString& path : after)
        QVERIFY2(QFileInfo::exists(folder.filePath(path.mid(path.startsWith('!')))) != path.startsWith('!'),
            qPrintable(path));
    for (const QString& part : log)
        QVERIFY2(logLines.contains(part.mid(part.startsWith('!'))) != part.startsWith('!'), qPrintable(part));
}

void TestVerifier::randomManifestEndsOnce()
{
    QTemporaryDir root;
    for (quint32 seed = 1; seed <= 20; ++seed) {
        const QString text = QString::fromUtf8(TestFiles::patternBytes(4096, seed));
        GameUpdateContext ctx = manifestJob(root.path(), text, seed % 2 ? 1 : 0, seed % 3 == 0);
        const QVector<VerifyCallbackInfo> reports = runJob(ctx);
        QVERIFY(!reports.isEmpty() && !reports.last().bSingle);
    }
}

void TestVerifier::secondStartWhileRunningIsRefused()
{
    QTemporaryDir cache;
    GameUpdateContext running;
    GameUpdateContext refused;
    running.m_bVerifyZip = refused.m_bVerifyZip = true;
    for (int i = 0; i < 3; ++i) {
        running.m_archiveFileList << cache.filePath(QString::number(i));
        running.m_archiveMd5List << "bad";
        QVERIFY(TestFiles::writeFile(running.m_archiveFileList.last(), TestFiles::patternBytes(4 << 20, i)));
    }
    const LogLines log;
    const QVector<VerifyCallbackInfo> reports = runJob(running, &refused);
    QVERIFY(log.contains("[Verifyer]:m_VerifyThread->isRunning"));
    QCOMPARE(reports.size(), 4); // the running job's three steps and its end, nothing of the other
    QVERIFY(reports.last().bError);
}

CORE_TEST_CLASS(TestVerifier)
#include "tst_verifier.moc"
