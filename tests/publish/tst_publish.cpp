#include "../planning/PlanningTestSupport.h"
#include "InstallStages.h"
#include "TestFiles.h"
#include "TestRegistry.h"
#include "ToolSearchPath.h"

#include "Archiver.h"
#include "CommandLine.h"
#include "DiffTool.h"
#include "PatchBuilder.h"
#include "Publisher.h"
#include "core/GameUpdateContext.h"
#include "files/QFileUtils.h"
#include "install/ExternalTools.h"
#include "install/ManifestFileInfo.h"
#include "install/PatchInfo.h"
#include "planning/GuideManifestReader.h"
#include "planning/RemoteInfoReader.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#ifdef Q_OS_LINUX
#include <csignal>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

using namespace Morvantix;
using namespace Publish;
using TestFiles::patternBytes;
using TestFiles::writeFile;

namespace {

// The three versions: an edited pack, an unchanged text, a removed file, a file renamed by letter case,
// a Chinese name with a blank, a small file whose diff would outgrow it, a name holding ".patch".
TestFiles::Tree versionFiles(int version)
{
    QByteArray pack = patternBytes(60000, 1);
    TestFiles::Tree files { { "readme.txt", QByteArray("hello\n").repeated(100) },
        { "notes.patch.txt", patternBytes(5000, 4) }, { "中文 目录/存档 1.dat", patternBytes(20000, 3) } };
    if (version == 1) {
        files.insert("Old/gone.bin", patternBytes(3000, 2));
        files.insert("Case/Name.TXT", "case");
        files.insert("tiny.cfg", "a=1");
    } else {
        pack.replace(1000, 10, "edited....");
        files["中文 目录/存档 1.dat"].replace(300, 4, "edit");
        files.insert("case/name.txt", "case");
        files.insert("tiny.cfg", "b=22");
    }
    if (version == 2)
        files.insert("New/added.bin", patternBytes(8000, 5));
    if (version == 3) {
        pack.replace(50000, 6, "again!");
        files["notes.patch.txt"].replace(10, 3, "new");
    }
    files.insert("Data/game.pak", pack);
    return files;
}

void writeVersion(const QString& versionsDir, int version)
{
    QVERIFY(TestFiles::writeTree(
        QStringLiteral("%1/1.0.0.%2").arg(versionsDir).arg(version), versionFiles(version)));
}

Outcome publish(const QStringList& arguments, QStringList* steps = nullptr)
{
    const CommandLine commandLine = ParseCommandLine(QStringList { "core-publish" } + arguments);
    if (commandLine.action != CommandLine::Action::Publish)
        return Outcome::Failure(ExitCode::Usage, commandLine.text);
    Publisher publisher(commandLine.options);
    if (steps)
        QObject::connect(
            &publisher, &Publisher::stepStarted, [steps](const QString& step) { *steps << step; });
    return publisher.run();
}

QStringList packageSteps(const QStringList& steps)
{
    return steps.filter(QRegularExpression(": (patch|full package)"));
}

// What a patch package does, as one line.
QString describe(const PatchInfo& info)
{
    return QStringLiteral("del %1; new %2; patch %3")
        .arg(
            info.delFiles.keys().join(','), info.newFiles.keys().join(','), info.patchFiles.keys().join(','));
}

// Unpacks archive into folder with the library's unzip stage.
void unpack(const QString& archive, const QString& folder)
{
    CallbackRecorder<UnZipCallbackInfo> recorder;
    QVERIFY(InstallStages::unZip(recorder, { archive }, folder));
    QVERIFY2(recorder.last().code == 0, qPrintable(recorder.last().errStr));
}

// Applies an unpacked patch package to game with the library's merge stage.
void merge(const QString& package, const QString& game, const QString& temp)
{
    CallbackRecorder<PatcherCallbackInfo> recorder(InstallStages::mergeEnded);
    QVERIFY(InstallStages::merge(recorder, package, game, temp));
    QVERIFY2(recorder.last().bComplete, qPrintable(recorder.last().errorString));
}

#ifdef Q_OS_LINUX
// As an ordinary user on a disk that fills up after fileSize bytes per file. Root reads every file
// whatever its mode unless it drops these two capabilities; the limit holds for the tools started too.
class ScopedUserOnSmallDisk
{
public:
    explicit ScopedUserOnSmallDisk(rlim_t fileSize)
    {
        syscall(SYS_capget, &m_header, m_caps);
        __user_cap_data_struct lowered[2] = { m_caps[0], m_caps[1] };
        lowered[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
        syscall(SYS_capset, &m_header, lowered);
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit limited { fileSize, m_limit.rlim_max };
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~ScopedUserOnSmallDisk()
    {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        syscall(SYS_capset, &m_header, m_caps);
    }

private:
    __user_cap_header_struct m_header { _LINUX_CAPABILITY_VERSION_3, 0 };
    __user_cap_data_struct m_caps[2] {};
    rlimit m_limit {};
};
#endif

// A version of one file, a.bin, staged in folder.
StagedVersion stagedVersion(const QString& folder, const QString& text, const QByteArray& bytes)
{
    StagedVersion version { text, folder, {}, {} };
    writeFile(folder + "/a.bin", bytes);
    version.files.insert("a.bin", { "a.bin", TestFiles::md5Hex(bytes), quint64(bytes.size()) });
    return version;
}

// The engine's diffs, each damaged once it is made: none of them rebuilds its file.
class DamagingDiffTool : public DiffTool
{
public:
    DamagingDiffTool()
        : DiffTool(qint64(256) << 20)
    { }

    Outcome encode(const QString& oldFile, const QString& newFile, const QString& diffFile) const override
    {
        const Outcome outcome = DiffTool::encode(oldFile, newFile, diffFile);
        QFile diff(diffFile);
        if (outcome.ok() && diff.open(QIODevice::ReadWrite) && diff.seek(diff.size() - 1)) {
            char last = 0;
            diff.getChar(&last);
            diff.seek(diff.size() - 1);
            diff.putChar(char(last ^ 1));
        }
        return outcome;
    }
};

} // namespace

class TestPublish : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // The merge stage's diff tool on this system is built beside the programs.
        ToolSearchPath::prepend(CORE_TOOL_DIR);
    }

    void parsesCommandLine_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<QString>("expected"); // action: options, or the start of the text
        const auto row = [](const char* name, const char* arguments, const char* expected) {
            QTest::newRow(name) << QString(arguments) << QString(expected);
        };
        row("defaults", "v o", "publish: v o 0 1 5 ");
        row("every option", "v o --part-size 700m --patch-distance 3 --level 9 --info-template t.json",
            "publish: v o 734003200 3 9 t.json");
        row("size in bytes", "--part-size=4096 v o", "publish: v o 4096 1 5 ");
        row("size in G, past 32 bits", "v o --part-size 2G", "publish: v o 2147483648 1 5 ");
        row("size no number", "v o --part-size big", "refuse: --part-size: \"big\"");
        row("size zero", "v o --part-size 0", "refuse: --part-size: \"0\"");
        row("distance zero", "v o --patch-distance 0", "refuse: --patch-distance");
        row("level ten", "v o --level 10", "refuse: --level");
        row("one folder", "v", "refuse: expected VERSIONS and OUTPUT");
        row("unknown option", "v o --fast", "refuse: Unknown option 'fast'");
        row("help", "--help", "help: Usage:");
        row("template", "--print-info-template", "template: ");
        // A signed channel: the key, and how many days its list stays good.
        row("signed", "v o --sign k", "publish: v o 0 1 5  k 30");
        row("signed for a week", "v o --sign k --expires 7", "publish: v o 0 1 5  k 7");
        row("expiry without a key", "v o --expires 7", "refuse: --expires needs --sign");
        row("no expiry", "v o --sign k --expires 0", "refuse: --expires: \"0\"");
        row("new key", "--generate-key k", "new key: k");
    }
    void parsesCommandLine()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, expected);
        const CommandLine parsed = ParseCommandLine(("core-publish " + arguments).split(' '));
        const PublishOptions& o = parsed.options;
        static const char* actions[] = { "publish", "help", "template", "refuse", "new key" };
        QString actual
            = QString::fromLatin1(actions[int(parsed.action)]) + ": " + parsed.text + parsed.keyPath;
        if (parsed.action == CommandLine::Action::Publish)
            actual += QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8")
                          .arg(o.versionsDir, o.outputDir)
                          .arg(o.partSize)
                          .arg(o.patchDistance)
                          .arg(o.level)
                          .arg(o.infoTemplatePath, o.signingKeyPath)
                          .arg(o.expiresDays);
        QVERIFY2(actual.startsWith(expected), qPrintable(actual));
    }

    void publishesWhatIsNewForTheLauncher()
    {
        QTemporaryDir temp;
        const QString versions = temp.filePath("versions"), root = temp.filePath("服务器 目录/channel");
        const QString infoTemplate = temp.filePath("info template.json");
        QVERIFY(writeFile(
            infoTemplate, R"({"hot_dot": "7", "bmovie": true, "carousel": [{"url": "c.png"}], "x": 1})"));
        const QStringList options { "--patch-distance", "2", "--part-size", "20k", "--info-template",
            infoTemplate };
        // Publishes the versions into root; the steps it took.
        const auto run = [&] {
            QStringList steps;
            const Outcome outcome = publish(QStringList { versions, root } + options, &steps);
            return outcome.ok() ? steps : QStringList { outcome.text };
        };
        writeVersion(versions, 1);
        writeVersion(versions, 2);
        run();
        writeVersion(versions, 3);
        QCOMPARE(packageSteps(run()),
            QStringList({ "1.0.0.1: full package unchanged", "1.0.0.2: full package unchanged",
                "1.0.0.3: full package", "1.0.0.1 -> 1.0.0.2: patch unchanged", "1.0.0.1 -> 1.0.0.3: patch",
                "1.0.0.2 -> 1.0.0.3: patch" }));
        QCOMPARE(QDir(temp.filePath("服务器 目录"))
                     .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
            QStringList { "channel" });

        // info.json: the template as the launcher reads it, every key present, the unknown one left out.
        GameUpdateContext ctx;
        const QString info = QFileUtils::ReadText(root + "/info.json");
        SolveRemoteInfo(info, ctx);
        QVERIFY(ctx.m_remoteInfo.m_hotDot == "7" && ctx.m_remoteInfo.m_bMovie);
        QCOMPARE(ctx.m_remoteInfo.m_carouselList.size(), 1);
        QCOMPARE(QJsonDocument::fromJson(info.toUtf8()).object().keys(),
            QJsonDocument::fromJson(kRemoteInfoDocument).object().keys());

        // Per version: the file list, the loose files and the full package hold the version's files.
        for (int version = 1; version <= 3; ++version) {
            const QString n = QStringLiteral("1.0.0.%1").arg(version);
            const QMap<QString, QString> expected = TestFiles::md5Tree(versionFiles(version));
            QMap<QString, QString> listed;
            for (const ManifestFileInfo& file :
                ReadFileList(QFileUtils::ReadText(root + '/' + n + "/manifest.txt")))
                listed.insert(file.path, file.md5);
            QCOMPARE(listed, expected);
            QCOMPARE(TestFiles::md5Tree(root + '/' + n + "/files"), expected);
            unpack(root + "/full/" + n + "/full_" + n + ".7z.001", temp.filePath("full " + n));
            QCOMPARE(TestFiles::md5Tree(temp.filePath("full " + n)), expected);
        }

        // The guide manifest lists every package with its files as they are. Each patch says what it
        // does, and applied to the old version it gives the new one.
        const GuideManifestInfo guide = ReadGuideManifest(QFileUtils::ReadText(root + "/manifest.txt"));
        QCOMPARE(guide.lastVersion, QString("1.0.0.3"));
        QStringList packages;
        for (const PatchEntry& entry : guide.patchList) {
            packages << entry.fromVersion + "->" + entry.toVersion;
            for (const PatchFileInfo& file : entry.files) {
                QCOMPARE(QFileUtils::GetFileMD5(root + '/' + file.path), file.md5);
                QCOMPARE(quint64(QFileInfo(root + '/' + file.path).size()), file.size);
            }
            if (!entry.bEnabled)
                continue;
            const QString package = temp.filePath("package " + entry.fromVersion + '_' + entry.toVersion);
            const QString game = temp.filePath("game");
            unpack(root + '/' + entry.files.first().path, package);
            const PatchInfo patchInfo = ReadPatchInfo(QFileUtils::ReadText(package + "/manifest.txt"));
            packages.last() += ": " + describe(patchInfo);
            const auto newFiles = versionFiles(entry.toVersion.right(1).toInt());
            for (const ManifestFileInfo& diff : patchInfo.patchFiles)
                QVERIFY(diff.size < quint64(newFiles.value(diff.path.chopped(6)).size()));
            QDir(game).removeRecursively();
            QVERIFY(TestFiles::writeTree(game, versionFiles(entry.fromVersion.right(1).toInt())));
            merge(package, game, temp.filePath("merge"));
            // The file renamed by letter case keeps its old name beside the new one on a case-sensitive
            // disk; on Windows it is one file, whose name keeps the letter case it had.
            QMap<QString, QString> result = TestFiles::md5Tree(game);
#ifdef Q_OS_WIN
            const auto lowerCaseNames = [](const QMap<QString, QString>& tree) {
                QMap<QString, QString> lower;
                for (auto it = tree.cbegin(); it != tree.cend(); ++it)
                    lower.insert(it.key().toLower(), it.value());
                return lower;
            };
            QCOMPARE(lowerCaseNames(result), lowerCaseNames(TestFiles::md5Tree(newFiles)));
#else
            result.remove("Case/Name.TXT");
            QCOMPARE(result, TestFiles::md5Tree(newFiles));
#endif
        }
        QCOMPARE(packages,
            QStringList({ "1.0.0.1->1.0.0.2: del Old/gone.bin; new New/added.bin,case/name.txt,tiny.cfg; "
                          "patch Data/game.pak.patch,中文 目录/存档 1.dat.patch",
                "1.0.0.1->1.0.0.3: del Old/gone.bin; new case/name.txt,notes.patch.txt,tiny.cfg; "
                "patch Data/game.pak.patch,中文 目录/存档 1.dat.patch",
                "1.0.0.2->1.0.0.3: del New/added.bin; new notes.patch.txt; patch Data/game.pak.patch",
                "1.0.0.1->1.0.0.1", "1.0.0.2->1.0.0.2", "1.0.0.3->1.0.0.3" }));
        QVERIFY(guide.patchList.last().files.size() > 3); // the full package in parts

        // The same versions published afresh give the same bytes, taken over or made again.
        QVERIFY(publish(QStringList { versions, temp.filePath("fresh") } + options).ok());
        QCOMPARE(TestFiles::md5Tree(temp.filePath("fresh")), TestFiles::md5Tree(root));

        // A changed version is made again, and so is every patch it takes part in.
        QVERIFY(writeFile(versions + "/1.0.0.2/readme.txt", "changed"));
        QCOMPARE(packageSteps(run()),
            QStringList({ "1.0.0.1: full package unchanged", "1.0.0.2: full package",
                "1.0.0.3: full package unchanged", "1.0.0.1 -> 1.0.0.2: patch",
                "1.0.0.1 -> 1.0.0.3: patch unchanged", "1.0.0.2 -> 1.0.0.3: patch" }));
        QCOMPARE(run().filter("unchanged").size(), 6);

        // A new empty folder alone changes its version: the full package is made again and carries it.
        QVERIFY(QDir().mkpath(versions + "/1.0.0.3/saves"));
        const QStringList steps = run();
        QVERIFY2(packageSteps(steps).contains("1.0.0.3: full package"), qPrintable(steps.join('\n')));
        unpack(root + "/full/1.0.0.3/full_1.0.0.3.7z.001", temp.filePath("with-folder"));
        QVERIFY(QFileInfo(temp.filePath("with-folder/saves")).isDir());
    }

    // An unchanged version takes over OUTPUT's loose files only where they are still whole; a damaged
    // one is copied from the version folder again, and the version still counts as unchanged.
    void takesOverOnlyIntactLooseFiles_data()
    {
        QTest::addColumn<QString>("damage");
        QTest::newRow("removed") << "removed";
        QTest::newRow("truncated") << "truncated";
        QTest::newRow("changed, same size") << "changed";
        QTest::newRow("folder in its place") << "folder";
    }

    void takesOverOnlyIntactLooseFiles()
    {
        QFETCH(QString, damage);
        QTemporaryDir temp;
        const QString versions = temp.filePath("versions"), root = temp.filePath("channel");
        writeVersion(versions, 1);
        QVERIFY(publish({ versions, root }).ok());
        const QString loose = root + "/1.0.0.1/files/readme.txt";
        QByteArray bytes = TestFiles::readFile(loose);
        QVERIFY(QFile::remove(loose));
        if (damage == "changed")
            QVERIFY(writeFile(loose, bytes.replace(0, 1, bytes.left(1) == "x" ? "y" : "x")));
        if (damage == "truncated")
            QVERIFY(writeFile(loose, patternBytes(100, 1)));
        else if (damage == "folder")
            QVERIFY(writeFile(loose + "/inside.txt", "not the game's"));

        QStringList steps;
        const Outcome outcome = publish({ versions, root }, &steps);
        QVERIFY2(outcome.ok(), qPrintable(outcome.text));
        QCOMPARE(packageSteps(steps), QStringList { "1.0.0.1: full package unchanged" });
        QCOMPARE(TestFiles::md5Tree(root + "/1.0.0.1/files"), TestFiles::md5Tree(versionFiles(1)));
    }

    // A file whose diff does not rebuild it travels whole, with a line for the operator; the run goes on.
    void unprovenDiffTravelsWhole()
    {
        QTemporaryDir temp;
        const QByteArray bytes = patternBytes(30000, 1);
        const StagedVersion from = stagedVersion(temp.filePath("a"), "1.0.0.1", bytes);
        const StagedVersion to = stagedVersion(temp.filePath("b"), "1.0.0.2", bytes + "!");
        QVERIFY(QDir().mkpath(temp.filePath("work")));
        const Archiver archiver(ExternalTools::SevenZipPath(), 5, temp.filePath("work"));
        const DamagingDiffTool diffTool;
        PatchBuilder builder(diffTool, 2, archiver, temp.filePath("work"));
        QStringList notes;
        builder.setNoticeCallback([&notes](const QString& text) { notes << text; });
        const Outcome outcome = builder.build(from, to, temp.filePath("p.7z"));
        QVERIFY2(outcome.ok(), qPrintable(outcome.text));
        QCOMPARE(describe(builder.patchInfo()), QString("del ; new a.bin; patch "));
        QCOMPARE(notes.size(), 1);
        QVERIFY2(notes.first().startsWith(
                     "a.bin goes whole from 1.0.0.1 to 1.0.0.2: its diff does not rebuild it"),
            qPrintable(notes.first()));
    }

    // Full packages carry empty folders; a patch package not smaller than the full package of its target
    // is left out with a notice, and the guide manifest does not offer it.
    void fullPackagesOutweighLargerPatches()
    {
        QTemporaryDir temp;
        const QString versions = temp.filePath("versions"), root = temp.filePath("channel");
        // Unrelated contents: the patch carries the whole file, and its patch info file besides.
        QVERIFY(writeFile(versions + "/1.0.0.1/a.bin", patternBytes(20000, 1)));
        QVERIFY(writeFile(versions + "/1.0.0.2/a.bin", patternBytes(20000, 2)));
        QVERIFY(
            QDir().mkpath(versions + "/1.0.0.1/saves/slot 1") && QDir().mkpath(versions + "/1.0.0.1/logs"));
        const CommandLine commandLine = ParseCommandLine({ "core-publish", versions, root });
        Publisher publisher(commandLine.options);
        QStringList notes;
        connect(&publisher, &Publisher::noticed, [&notes](const QString& text) { notes << text; });
        const Outcome outcome = publisher.run();
        QVERIFY2(outcome.ok(), qPrintable(outcome.text));
        QCOMPARE(notes.size(), 1);
        QVERIFY2(notes.first().startsWith("1.0.0.1 -> 1.0.0.2: patch left out"), qPrintable(notes.first()));
        const GuideManifestInfo guide = ReadGuideManifest(QFileUtils::ReadText(root + "/manifest.txt"));
        for (const PatchEntry& entry : guide.patchList)
            QCOMPARE(entry.fromVersion, entry.toVersion);
        QVERIFY(!QFileInfo::exists(root + "/patch/1.0.0.2/1.0.0.1_1.0.0.2.7z"));

        unpack(root + "/full/1.0.0.1/full_1.0.0.1.7z", temp.filePath("game"));
        QVERIFY(QFileInfo(temp.filePath("game/saves/slot 1")).isDir());
        QVERIFY(QFileInfo(temp.filePath("game/logs")).isDir());
    }

    void refusesBadInput_data()
    {
        QTest::addColumn<QStringList>("files"); // under VERSIONS; "name -> target" makes a link
        QTest::addColumn<QString>("special");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        const auto row = [](const char* name, const QStringList& files, const char* special, ExitCode code,
                             const char* message) {
            QTest::newRow(name) << files << QString(special) << int(code) << QString(message);
        };
        const QStringList good { "1.0.0.1/a.txt" };
        const ExitCode bad = ExitCode::BadInput;
        row("no version", { "1.0.0.1/a.txt", "latest/a.txt" }, "", bad, "\"latest\" is no version");
        row("minor spills", { "1.256.0.0/a.txt" }, "", bad, "\"1.256.0.0\" is no version");
        row("one version twice", { "1.0.0.2/a.txt", "1.0.0.02/a.txt" }, "", bad,
            "\"1.0.0.02\" and \"1.0.0.2\" name the same version 1.0.0.2");
        row("link", { "1.0.0.1/a.txt", "1.0.0.1/b.txt -> /etc/hostname" }, "", bad,
            "1.0.0.1/b.txt is a link");
        row("unreadable file", good, "unreadable", bad, "cannot read");
        row("letter-case twins", { "1.0.0.1/d/a.txt", "1.0.0.1/d/A.txt" }, "", bad,
            "differ only in letter case");
        row("bar in a name", { "1.0.0.1/a|b.txt" }, "", bad, "has \"|\"");
        row("double blank", { "1.0.0.1/a  b.txt" }, "", bad, "run of blanks");
        row("patch info name", { "1.0.0.1/Manifest.TXT" }, "", bad, "patch info file");
        row("template no JSON", good, "template", bad, "the info template is no JSON object");
        row("output not ours", good, "foreign", ExitCode::OutputFailed, "holds index.html");
        row("disk full while copying", { "1.0.0.1/a.bin" }, "limit", ExitCode::OutputFailed, "cannot write");
        row("disk full in 7-Zip", { "1.0.0.1/a.bin", "1.0.0.1/b.bin", "1.0.0.1/c.bin" }, "limit",
            ExitCode::ToolFailed, "7-Zip failed");
    }
    void refusesBadInput()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, special);
        QFETCH(int, code);
        QFETCH(QString, message);
#ifdef Q_OS_WIN
        const QMap<QString, QString> notOnWindows { { "link",
                                                        "a link needs rights a player's account lacks" },
            { "unreadable file", "permission bits do not make a file unreadable" },
            { "letter-case twins", "the file system folds letter case" },
            { "bar in a name",
                "a name cannot hold \"|\"" } };
        if (notOnWindows.contains(QTest::currentDataTag()))
            QSKIP(qPrintable("on Windows " + notOnWindows.value(QTest::currentDataTag())));
#endif
        QTemporaryDir temp;
        const QString versions = temp.filePath("versions"), parent = temp.filePath("public");
        const QString root = parent + "/channel";
        int seed = 0;
        for (const QString& file : files) {
            const QStringList link = file.split(" -> ");
            if (link.size() == 2)
                QVERIFY(QFile::link(link[1], versions + '/' + link[0]));
            else // one file outgrows the disk as it is copied, three fit but their package does not
                QVERIFY(writeFile(
                    versions + '/' + file, patternBytes(files.size() == 1 ? 30000 : 12000, ++seed)));
        }
        QStringList arguments { versions, root };
        if (special == "template") {
            QVERIFY(writeFile(temp.filePath("t.json"), "{oops"));
            arguments << "--info-template" << temp.filePath("t.json");
        }
        if (special == "foreign")
            QVERIFY(writeFile(root + "/manifest.txt", "") && writeFile(root + "/index.html", "<html/>"));
        if (special == "unreadable")
            QVERIFY(QFile::setPermissions(versions + '/' + files.first(), {}));

        Outcome outcome;
        if (special == "limit" || special == "unreadable") {
#ifdef Q_OS_LINUX
            ScopedUserOnSmallDisk user(special == "limit" ? 20000 : RLIM_INFINITY);
            outcome = publish(arguments);
#else
            QSKIP("simulated only on Linux");
#endif
        } else {
            outcome = publish(arguments);
        }
        QVERIFY2(int(outcome.code) == code && outcome.text.contains(message), qPrintable(outcome.text));
        // Nothing half made: no channel root (or the old one untouched), no staging folder left behind.
        const QStringList left
            = QDir(parent).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
        QCOMPARE(left, special == "foreign" ? QStringList { "channel" } : QStringList {});
        if (special == "foreign")
            QCOMPARE(QDir(root).entryList(QDir::Files), QStringList({ "index.html", "manifest.txt" }));
    }
};

CORE_TEST_CLASS(TestPublish)
#include "tst_publish.moc"
