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

using Recorder = CallbackRecorder<VerifyCallbackInfo>;

QString entry(const QString& path, const QByteArray& content)
{
    return FileListLine({ path, TestFiles::md5Hex(content), quint64(content.size()) });
}

// Items relative to the folder verified (they may climb out of it on purpose): "path=content" writes
// a file, "path->target" makes a link, "path/" a folder.
void makeTree(const QDir& folder, const QStringList& items)
{
    for (const QString& item : items) {
        const QString path = folder.filePath(item.section(QRegularExpression("=|->"), 0, 0));
        QDir().mkpath(item.endsWith('/') ? path : QFileInfo(path).absolutePath());
        if (item.contains("->"))
            QVERIFY(QFile::link(folder.filePath(item.section("->", 1)), path));
        else if (item.contains('='))
            QVERIFY(TestFiles::writeFile(path, item.section('=', 1).toUtf8()));
    }
}

// Archive mode takes the lines "path|md5" of `lines` as its two lists; manifest mode the text.
struct VerifyRow
{
    bool zip;
    QStringList disk, lines;
    int kind;
    bool md5;
    QList<float> progress;
    bool bError;
    QStringList failedFiles;
    QStringList after; // paths that must be there afterwards, or must be gone ("!path")
    QStringList log; // parts of log lines that must be there, or must not ("!part")
    bool startTwice = false; // another job is started while this one runs
};

} // namespace

Q_DECLARE_METATYPE(VerifyRow)

class TestVerifier : public QObject
{
    Q_OBJECT
private slots:
    void verifies_data()
    {
        QTest::addColumn<VerifyRow>("row");
        // Left by the repair job before each row; only a repair job replaces it.
        const QStringList seed { "seed.pak" };
        const QByteArray big(819201, 'b');
        const QByteArray large(4 << 20, 'l'); // still being read when the second start comes
        QTest::addRow("three archives, the middle corrupt; a second start refused") << VerifyRow { true,
            { "a0=" + large, "a1=1", "a2=2" }, { entry("a0", large), entry("a1", "x"), entry("a2", "2") }, 0,
            false, { 0, 1 / 3.0f, 2 / 3.0f }, true, seed, { "a0", "!a1", "a2" },
            { "a0, md5 is", "a1, md5 is", "a2, md5 is", "verify zipfile is failed !",
                "[Verifyer]:m_VerifyThread->isRunning" },
            true };
        QTest::addRow("no archives") << VerifyRow { true, {}, {}, UpdateType::Update, false, { 1 }, false,
            seed, {}, {} };
        QTest::addRow("upper-case hash")
            << VerifyRow { true, { "a=A" }, { "a|" + TestFiles::md5Hex("A").toUpper() }, UpdateType::Update,
                   false, { 1, 0 }, true, seed, { "!a" }, {} };
        QTest::addRow("one archive reports inside it, by 409600 bytes") << VerifyRow { true, { "a=" + big },
            { entry("a", big) }, UpdateType::Update, false, { 409600 / 819201.0f, 819200 / 819201.0f, 0, 1 },
            false, seed, { "a" }, { "totalBytes of files is 819201", "verify zipfile is success !" } };
        QTest::addRow("an archive without a hash fails, stays")
            << VerifyRow { true, { "a=A", "b=B" }, { entry("a", "A"), "b" }, UpdateType::Update, false,
                   { 0, 0.5 }, true, seed, { "b" }, { "[Verifyer]:size is not equal Error !!!" } };
        QTest::addRow("a folder for an archive fails, stays")
            << VerifyRow { true, { "a/" }, { entry("a", "A") }, UpdateType::Update, false, { 0 }, true, seed,
                   { "a" }, { "[VerifyThread]:manifest File", "cannot open, please check!" } };

        QTest::addRow("size only passes other content of the same size") << VerifyRow { false, { "a=hello" },
            { entry("a", "world") }, UpdateType::Update, false, { 1 }, false, seed, {},
            { "[VerifyThread]:verify folder is", "verify manifest is success !", "!caculate md5" } };
        for (int kind : { UpdateType::Repair, UpdateType::RepairParts })
            QTest::addRow("repair kind %d: every failure, sorted, by MD5", kind)
                << VerifyRow { false, { "a=A", "b=B", "m/c=C" },
                       { entry("z", "Z"), entry("m/c", "c!"), entry("b", "b"), entry("a", "A") }, kind, false,
                       { 0.25 }, true, { "b", "m/c", "z" }, { "b", "m/c" }, {} };
        QTest::addRow("other kinds stop at the first failure") << VerifyRow { false, { "a=A", "b=B", "c=C" },
            { entry("d", "D"), entry("c", "C"), entry("b", "x"), entry("a", "A") }, UpdateType::Update, true,
            { 0.25 }, true, seed, {}, { "!c,caculate", "!d,caculate" } };
        QTest::addRow("empty manifest cleans nothing") << VerifyRow { false, { "KX/Content/Paks/x.pak=x" },
            {}, 2, true, {}, false, seed, { "KX/Content/Paks/x.pak" },
            { "the number of files is 0", "verify manifest is success !" } };
        QTest::addRow("pak clean-up ignores case and separators") << VerifyRow { false,
            { "KX/Content/Paks/GAME.PAK=", "KX/Content/Paks/Extra.pak=x", "KX/Content/Paks/s/b=b",
                "O/Extra.pak=x" },
            { "KX/Content/Paks/game.pak||0", entry("KX\\Content\\Paks\\s\\b", "z") }, UpdateType::Update,
            false, { 0.5, 1 }, false, seed,
            { "KX/Content/Paks/GAME.PAK", "KX/Content/Paks/s/b", "O/Extra.pak",
                "!KX/Content/Paks/Extra.pak" },
            {} };
        QTest::addRow("no pak clean-up after a failure") << VerifyRow { false, { "KX/Content/Paks/x.pak=x" },
            { entry("a", "A") }, UpdateType::Update, true, {}, true, seed, { "KX/Content/Paks/x.pak" }, {} };
        QTest::addRow("pak clean-up stays out of a linked folder") << VerifyRow { false,
            { "KX/Content/Paks/a.pak=A", "../out/victim.pak=v", "KX/Content/Paks/linked->../out",
                "KX/Content/Paks/x.pak=x" },
            { entry("KX/Content/Paks/a.pak", "A") }, UpdateType::Update, true, { 1 }, false, seed,
            { "../out/victim.pak", "!KX/Content/Paks/x.pak" }, {} };
        // A list that names no pak is not the game's own (an error page served in its place, a list
        // cut short): its entries may even pass, as a missing file and an empty MD5 agree.
        QTest::addRow("a list naming no pak deletes no pak") << VerifyRow { false,
            { "a=A", "KX/Content/Paks/x.pak=x" }, { entry("a", "A") }, UpdateType::Update, true, { 1 }, false,
            seed, { "KX/Content/Paks/x.pak" }, { "the manifest names no pak" } };
        QTest::addRow("an error page for a list deletes no pak") << VerifyRow { false,
            { "KX/Content/Paks/x.pak=x" }, { "<html><body>404 Not Found</body></html>" }, UpdateType::Update,
            true, { 1 }, false, seed, { "KX/Content/Paks/x.pak" }, { "the manifest names no pak" } };
        QTest::addRow("paths leaving the folder fail unopened") << VerifyRow { false, { "a=A", "../out=O" },
            { entry("../out", "O"), entry("..\\out", "O"), entry("<root>/out", "O"),
                entry("s/../../out", "O"), entry("a", "A") },
            4, true, { 0.8f }, true, { "../out", "..\\out", "<root>/out", "s/../../out" }, { "../out" },
            { "the path leaves the folder", "!out,caculate" } };
        QTest::addRow("an entry naming a folder fails") << VerifyRow { false, { "s/in=x" },
            { entry("s", "x"), entry("s/in", "x") }, 1, false, { 1 }, true, { "s" }, { "s/in" }, {} };
        QTest::addRow("lines of only bars fail")
            << VerifyRow { false, {}, { "|", " ||| " }, UpdateType::Repair, false, {}, true, { "" }, {}, {} };
    }

    void verifies()
    {
        QFETCH(VerifyRow, row);
        QTemporaryDir root;
        const QDir folder(root.filePath("game"));
        makeTree(folder, row.disk);
        row.failedFiles.replaceInStrings("<root>", root.path());
        GameUpdateContext seed;
        seed.m_installPath = folder.path();
        seed.m_manifestContent = entry("seed.pak", "s");
        seed.m_updateType = UpdateType::Repair;
        Recorder seeded;
        QVERIFY(seeded.run(GetVerifyComponent(), [&] { GetVerifyComponent()->StartVerify(seed); }));
        QCOMPARE(seeded.last().failedFiles, QStringList { "seed.pak" });

        GameUpdateContext ctx = seed;
        ctx.m_manifestContent = row.lines.join('\n').replace("<root>", root.path());
        ctx.m_updateType = row.kind;
        ctx.m_bMd5Verify = row.md5;
        ctx.m_bVerifyZip = row.zip;
        for (const QString& line : row.lines) {
            ctx.m_archiveFileList << folder.filePath(ReadFileListLine(line).path);
            if (line.contains('|'))
                ctx.m_archiveMd5List << ReadFileListLine(line).md5;
        }
        const LogLines logLines;
        Recorder recorder;
        QVERIFY(recorder.run(GetVerifyComponent(), [&] {
            GetVerifyComponent()->StartVerify(ctx);
            if (row.startTwice)
                GetVerifyComponent()->StartVerify(seed);
        }));
        QCOMPARE(recorder.progress(&VerifyCallbackInfo::percent), row.progress);
        QVERIFY(recorder.last().bComplete);
        QCOMPARE(recorder.last().bError, row.bError);
        QCOMPARE(recorder.last().bSingle, row.zip);
        QCOMPARE(recorder.last().failedFiles, row.failedFiles);
        for (const QString& path : row.after)
            QVERIFY2(
                QFileInfo::exists(folder.filePath(path.mid(path.startsWith('!')))) != path.startsWith('!'),
                qPrintable(path));
        for (const QString& part : row.log)
            QVERIFY2(
                logLines.contains(part.mid(part.startsWith('!'))) != part.startsWith('!'), qPrintable(part));
    }
};

CORE_TEST_CLASS(TestVerifier)
#include "tst_verifier.moc"
