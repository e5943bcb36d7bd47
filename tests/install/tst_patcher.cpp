#include "InstallStages.h"
#include "ScopedTimeDivisor.h"
#include "ScriptedTool.h"
#include "TestFiles.h"
#include "TestRegistry.h"
#include "ToolSearchPath.h"

#include "core/CoreSystem.h"
#include "delta/Encoder.h"
#include "install/ExternalTools.h"
#include "install/PatchInfo.h"
#include "install/PatchTexts.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Morvantix;
using TestFiles::Tree;

namespace {

// Listed in the patch info file but left out of the package.
const QByteArray kNotInPackage = "<not in package>";
const QString kPak = QStringLiteral("Game/Paks/a.pak");

bool diffEncode(const QString& oldPath, const QString& newPath, const QString& diffPath)
{
    return Delta::Encoder({})
        .encode(QFile::encodeName(oldPath).toStdString(), QFile::encodeName(newPath).toStdString(),
            QFile::encodeName(diffPath).toStdString())
        .ok();
}

} // namespace

class TestPatcher : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // The real diff tool is found on the search path whenever no scripted one sits beside the tests.
        ToolSearchPath::prepend(CORE_TOOL_DIR);
    }
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        m_recorder = CallbackRecorder<PatcherCallbackInfo>(InstallStages::mergeEnded);
    }

    // A 50 MB pak, larger than the tool's 1 MB stream cache: a tool killed half-way leaves the old game
    // as it was, and the merge then applies the whole package.
    void bigPakKilledThenMerged()
    {
#ifdef Q_OS_WIN
        QSKIP("needs a FIFO in the file system to hold the tool half-way; Windows has none");
#else
        const QByteArray old = TestFiles::patternBytes(50 * 1024 * 1024, 7);
        Tree oldTree { { kPak, old } };
        Tree newTree { { kPak,
            old.left(20000000) + TestFiles::patternBytes(1000000, 8) + old.mid(21000000) + "tail" } };
        oldTree.insert({ { "中文/资源.dat", TestFiles::patternBytes(300000, 1) }, { "keep.bin", "same" },
            { "删除/旧文件.txt", "gone" }, { "Game/old.bin", "gone too" } });
        newTree.insert({ { "中文/资源.dat", TestFiles::patternBytes(300000, 1).replace(1000, 5, "12345") },
            { "keep.bin", "same" }, { "新文件/新.txt", "added" }, { "Game/Paks/b.pak", "new pak" },
            { "missing.bin", kNotInPackage } });
        makePackage(oldTree, newTree);
        // The tool is stopped half-way through the new file, however fast the machine: the file size
        // limit ends it with a signal after a few megabytes of the 50 MB pak.
        QProcess tool;
        tool.start("/bin/sh",
            { "-c", "ulimit -f 4000; exec \"$0\" \"$@\"", CORE_TOOL_DIR "/hpatchz", path("game/" + kPak),
                path("pkg/" + kPak + ".patch"), path("game/" + kPak), "-f", "-s-1m", "-C-old-new-diff" });
        QVERIFY(tool.waitForFinished(30000));
        QCOMPARE(tool.exitStatus(), QProcess::CrashExit);
        QCOMPARE(TestFiles::md5Tree(path("game")), TestFiles::md5Tree(oldTree));

        start(true);
        newTree.remove("missing.bin");
        QCOMPARE(TestFiles::md5Tree(path("game")), TestFiles::md5Tree(newTree));
        QVERIFY(!m_recorder.last().bError);
        QCOMPARE(m_recorder.progress(&PatcherCallbackInfo::status), (QList<int> { 0, 0, 1, 1, 1, 2, 2 }));
#endif
    }

    void mergeWithScriptedTool_data()
    {
        QTest::addColumn<QVector<int>>("exitCodes"); // -1: the tool hangs
        QTest::addColumn<QString>("twist");
        QTest::addColumn<int>("starts");
        QTest::addColumn<QString>("error");
        const QString inUse = PatchTexts::mergeFileInUse("%1/game/" + kPak);
        QTest::newRow("fails twice, then succeeds") << QVector<int> { 1, 1, 0 } << "" << 3 << "";
        QTest::newRow("fails three times: merged") << QVector<int> { 1 } << "" << 3 << "";
        QTest::newRow("disk full") << QVector<int> { 24 } << "" << 3 << PatchTexts::diskFull();
        QTest::newRow("out of memory") << QVector<int> { 1, 22 } << "" << 3 << PatchTexts::outOfMemory();
        QTest::newRow("hang: killed, file in use") << QVector<int> { -1 } << "" << 1 << inUse;
        QTest::newRow("old is a folder") << QVector<int> { 0 } << "folder" << 1 << "";
        QTest::newRow("skip merge") << QVector<int> { 1 } << "skip" << 0 << "";
        QTest::newRow("no tool") << QVector<int>() << "" << 0 << ExternalTools::MissingToolText("hpatchz");
        QTest::newRow("added file held")
            << QVector<int> { 0 } << "held" << 1 << PatchTexts::mergeFileInUse("%1/game/add.txt");
    }
    void mergeWithScriptedTool()
    {
        QFETCH(QVector<int>, exitCodes);
        QFETCH(QString, twist);
        QFETCH(int, starts);
        QFETCH(QString, error);
        error.replace("%1", m_dir->path());
        makePackage({ { kPak, "old" }, { "del.txt", "d" } }, { { kPak, "new" }, { "add.txt", "a" } });
        const QString old = path("game/" + kPak);
        if (twist == "folder")
            QVERIFY(QFile::remove(old) && QDir().mkpath(old));
        else if (twist == "held")
            QVERIFY(QDir().mkpath(path("game/add.txt/held")));
        QVector<ScriptedTool::Step> steps;
        for (int code : exitCodes)
            steps.append({ qMax(code, 0), "patched\n", "some trouble\n", code < 0 ? 20000 : 0 });
        std::unique_ptr<ScriptedTool> tool(steps.isEmpty() ? nullptr : new ScriptedTool("hpatchz", steps));
        const ToolSearchPath searchPath(tool ? qgetenv("PATH") : ToolSearchPath::none());
        // The 30 min wait becomes 3 s: room for a start of the stand-in under Wine, which loads Qt.
        ScopedTimeDivisor shortWait(600);
        start(true, twist == "skip");

        QCOMPARE(m_recorder.last().errorString, error);
        QCOMPARE(m_recorder.last().bError, !error.isEmpty());
        QCOMPARE(m_recorder.last().bComplete, error.isEmpty());
        QCOMPARE(tool ? tool->starts() : 0, starts);
        QStringList arguments { old, path("pkg/" + kPak + ".patch"), old, "-f", "-s-1m", "-C-old-new-diff" };
        if (twist == "folder")
            arguments << "-c";
        for (int i = 0; i < starts; ++i)
            QCOMPARE(tool->arguments().at(i), arguments);
        // Files are added and deleted only after every diff applied.
        QCOMPARE(QFileInfo::exists(path("game/del.txt")), !error.isEmpty());
        QCOMPARE(QFileInfo(path("game/add.txt")).isFile(), error.isEmpty());
    }

    void unsafeEntriesChangeNothing_data()
    {
        QTest::addColumn<QString>("list");
        QTest::addColumn<QString>("entry");
        // The list the entry goes into, a blank, the entry.
        for (const QString& row : { "del ../outside.txt", "new ..\\outside.txt", "new C:/outside.txt",
                 "patch /abs/outside.txt.patch", "patch Game/../../outside.txt.patch", "old ../outside.txt",
                 "newlist /tmp/outside.txt", "newlist sub\\..\\..\\outside.txt" })
            QTest::newRow(qPrintable(row)) << row.section(' ', 0, 0) << row.section(' ', 1);
    }
    void unsafeEntriesChangeNothing()
    {
        QFETCH(QString, list);
        QFETCH(QString, entry);
        const Tree game { { "del.txt", "d" }, { "keep.txt", "old" } };
        QVERIFY(TestFiles::writeTree(path("game"), game));
        QVERIFY(TestFiles::writeTree(path("pkg"), { { "keep.txt", "new" }, { "outside.txt", "evil" } }));
        QVERIFY(TestFiles::writeFile(path("outside.txt"), "mine"));
        // The patch info file's three lists, then the update applier's two.
        QMap<QString, QStringList> lists { { "del", { "del.txt" } }, { "new", { "keep.txt" } },
            { "patch", {} }, { "old", { "del.txt", "keep.txt" } }, { "newlist", { "keep.txt" } } };
        lists[list] << entry;
        const QString manifest = "--del_file--\n" + lists["del"].join('\n') + "\n--new_file--\n"
            + lists["new"].join('\n') + "\n--patch_file--\n" + lists["patch"].join('\n');
        QVERIFY(TestFiles::writeFile(path("pkg/manifest.txt"), manifest.toUtf8()));
        setUpdateLists(lists["old"], lists["newlist"], "pkg");
        ScriptedTool tool("hpatchz", { {} });
        start(list == "del" || list == "new" || list == "patch");

        QCOMPARE(m_recorder.last().errorString, PatchTexts::unsafeEntry(entry));
        QCOMPARE(TestFiles::md5Tree(path("game")), TestFiles::md5Tree(game));
        QCOMPARE(TestFiles::readFile(path("outside.txt")), QByteArray("mine"));
        QCOMPARE(tool.starts(), 0);
    }

    void updateReplacesLauncherFiles_data()
    {
        // The installed files form the old list, the source files the new one.
        QTest::addColumn<Tree>("installed");
        QTest::addColumn<Tree>("source");
        QTest::addColumn<Tree>("expected");
        QTest::addColumn<QString>("sourceRoot"); // below the test folder; its parent is the download area
        QTest::addColumn<QString>("errorFile");
        QTest::newRow("deletes, replaces, stages the updater, keeps the video")
            << Tree { { "a.txt", "old a" }, { "b.txt", "old b" }, { "bg.wmv", "old video" },
                   { "UpdateGUI/u.exe", "old u" }, { "UpdateGUI/old.dll", "old" },
                   { "UpdateGUITemp/stale", "x" } }
            << Tree { { "a.txt", "new a" }, { "c/c.txt", "new c" }, { "bg.wmv", "new video" },
                   { "UpdateGUI/u.exe", "new u" }, { "UpdateGUI/sub/.v.dll", "new v" } }
            << Tree { { "a.txt", "new a" }, { "c/c.txt", "new c" }, { "bg.wmv", "old video" },
                   { "bg.wmv.copy", "new video" }, { "UpdateGUI/u.exe", "old u" },
                   { "UpdateGUI/old.dll", "old" }, { "UpdateGUITemp/u.exe", "new u" },
                   { "UpdateGUITemp/sub/.v.dll", "new v" } }
            << "dl/src" << QString();
        // A folder in the way makes the copy over a file fail, as a held file does on Windows.
        QTest::newRow("held prerequisite installer is skipped")
            << Tree { { "vc_redist.x64.exe/held", "x" } }
            << Tree { { "vc_redist.x64.exe", "new" }, { "a", "a" } } << Tree { { "a", "a" } } << "dl/src"
            << QString();
        QTest::newRow("another held file ends the run")
            << Tree { { "game.exe/held", "x" } } << Tree { { "game.exe", "new" }, { "z.txt", "z" } } << Tree()
            << "dl/src" << QStringLiteral("game.exe");
        QTest::newRow("a download area holding the installation is kept")
            << Tree { { "a.txt", "old" } } << Tree { { "a.txt", "new" } }
            << Tree { { "a.txt", "new" }, { "src/a.txt", "new" } } << "game/src" << QString();
    }
    void updateReplacesLauncherFiles()
    {
        QFETCH(Tree, installed);
        QFETCH(Tree, source);
        QFETCH(Tree, expected);
        QFETCH(QString, sourceRoot);
        QFETCH(QString, errorFile);
        QVERIFY(
            TestFiles::writeTree(path("game"), installed) && TestFiles::writeTree(path(sourceRoot), source));
        setUpdateLists(installed.keys(), source.keys(), sourceRoot);
        start(false);

        const QString error
            = errorFile.isEmpty() ? QString() : PatchTexts::updateFileInUse(path("game/" + errorFile));
        QCOMPARE(m_recorder.last().errorString, error);
        QCOMPARE(TestFiles::md5Tree(path("game")), TestFiles::md5Tree(expected));
        // The download area goes only after a complete run, and never with the installation in it.
        QCOMPARE(QFileInfo::exists(path(sourceRoot)), !error.isEmpty() || sourceRoot.startsWith("game/"));
        if (error.isEmpty())
            QCOMPARE(m_recorder.progressReports().last().percent,
                m_recorder.progressReports().last().totalpercent);
    }

private:
    QString path(const QString& name) const
    {
        return m_dir->filePath(name);
    }

    // Writes the old game and a package that turns it into newTree, with real diffs.
    void makePackage(const Tree& oldTree, const Tree& newTree)
    {
        QVERIFY(TestFiles::writeTree(path("game"), oldTree));
        PatchInfo info;
        for (auto it = newTree.cbegin(); it != newTree.cend(); ++it) {
            const ManifestFileInfo entry { it.key(), TestFiles::md5Hex(it.value()),
                quint64(it.value().size()) };
            const QString diff = it.key() + ".patch";
            if (!oldTree.contains(it.key())) {
                QVERIFY(
                    it.value() == kNotInPackage || TestFiles::writeFile(path("pkg/" + it.key()), it.value()));
                info.newFiles.insert(it.key(), entry);
            } else if (oldTree.value(it.key()) != it.value()) {
                QVERIFY(TestFiles::writeFile(path("new.tmp"), it.value())
                    && TestFiles::writeFile(path("pkg/" + diff), QByteArray()));
                QVERIFY(diffEncode(path("game/" + it.key()), path("new.tmp"), path("pkg/" + diff)));
                info.patchFiles.insert(diff, { diff, entry.md5, entry.size });
            }
        }
        for (auto it = oldTree.cbegin(); it != oldTree.cend(); ++it) {
            if (!newTree.contains(it.key()))
                info.delFiles.insert(it.key(), { it.key(), QString(), 0 });
        }
        QFile::remove(path("new.tmp"));
        QVERIFY(TestFiles::writeFile(path("pkg/manifest.txt"), WritePatchInfo(info).toUtf8()));
    }

    // The update applier's two lists (installed files and the ones that replace them) and its folders.
    void setUpdateLists(const QStringList& oldFiles, const QStringList& newFiles, const QString& sourceRoot)
    {
        const auto fileList = [](const QStringList& paths) {
            QString text;
            for (const QString& file : paths)
                text += FileListLine({ file, "0", 1 }) + '\n';
            return text;
        };
        auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
        ctx->m_updateInstallRoot = path("game");
        ctx->m_updateSourceRoot = path(sourceRoot);
        ctx->m_updateOldFileList = fileList(oldFiles);
        ctx->m_updateNewFileList = fileList(newFiles);
    }

    void start(bool merge, bool skipDiffMerge = false)
    {
        QVERIFY(
            InstallStages::merge(m_recorder, path("pkg"), path("game"), path("temp"), merge, skipDiffMerge));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    CallbackRecorder<PatcherCallbackInfo> m_recorder { InstallStages::mergeEnded };
};

CORE_TEST_CLASS(TestPatcher)
#include "tst_patcher.moc"
