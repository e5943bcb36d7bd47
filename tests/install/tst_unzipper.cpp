#include "InstallStages.h"
#include "LogLines.h"
#include "ScriptedTool.h"
#include "TestFiles.h"
#include "TestRegistry.h"
#include "ToolSearchPath.h"

#include "install/ExternalTools.h"
#include "install/SevenZipOutput.h"
#include "install/ZipThread.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

using namespace Morvantix;

namespace {

const QByteArray kPak = TestFiles::patternBytes(300000, 1);
const QByteArray kDat = TestFiles::patternBytes(70000, 2);
const QString kDatName = QStringLiteral("深 目录/c.dat");
const QString kNamed = QStringLiteral("资源/说明.pak");

// "pak" and "dat" hold one file each, packed by the real tool and stored (-mx0) so that the file's
// bytes can be found in the archive; "crc" is "pak" with bytes flipped inside the file, "truncated" is
// cut in half; "named" holds the pak under kNamed.
QString archiveOfKind(const QString& dir, const QString& kind)
{
    const QString source = dir + "/src-" + kind;
    const QString name = kind == "dat" ? kDatName : kind == "named" ? kNamed : QStringLiteral("a.pak");
    TestFiles::writeFile(source + '/' + name, kind == "dat" ? kDat : kPak);
    const QString path = source + ".7z";
    QProcess tool;
    tool.setWorkingDirectory(source);
    tool.start(ExternalTools::SevenZipPath(), { "a", "-mx0", path, "*" });
    tool.waitForFinished(-1);
    QByteArray bytes = TestFiles::readFile(path);
    const int at = bytes.indexOf(kPak.mid(1000, 64));
    for (int i = at; kind == "crc" && i < at + 64; ++i)
        bytes[i] = char(~bytes[i]);
    if (kind == "truncated")
        bytes.truncate(bytes.size() / 2);
    TestFiles::writeFile(path, bytes);
    return path;
}

// A job run with a stand-in tool. exitCode -1: no tool at all, neither beside the program nor on PATH.
struct ScriptRow
{
    int exitCode;
    QByteArray output;
    QByteArray error;
    int archives;
    QString folder; // under the test folder; "" for none at all
    int code; // -1: code and text not checked (they are the previous job's)
    QString errStr;
    QList<int> percents;
    int starts;
    bool startTwice = false;
};

} // namespace

Q_DECLARE_METATYPE(ScriptRow)

class TestUnZipper : public QObject
{
    Q_OBJECT
private slots:
    // The percent read from a burst of the tool's output, and whether a folder may be emptied before a
    // full unpack (never a volume root).
    void pureDecisions_data()
    {
        QTest::addColumn<bool>("percent");
        QTest::addColumn<QString>("input");
        QTest::addColumn<int>("expected");
        const QList<QPair<QString, int>> percents { { "  7% 3 - a.pak", 7 }, { " 42%", 42 }, { "100%", 0 },
            { "  5%\b\b\b\b 63%", 5 }, { "9% done", 9 }, { "Everything is Ok", -1 } };
        const QList<QPair<QString, int>> folders { { "", 0 }, { "  ", 0 }, { "/", 0 }, { "/tmp/../", 0 },
            { QDir::tempPath() + "/游戏 目录/UnZip", 1 } };
        for (const auto& row : percents)
            QTest::addRow("percent of '%s'", qPrintable(row.first)) << true << row.first << row.second;
        for (const auto& row : folders)
            QTest::addRow("deletable '%s'", qPrintable(row.first)) << false << row.first << row.second;
    }
    void pureDecisions()
    {
        QFETCH(bool, percent);
        QFETCH(QString, input);
        QFETCH(int, expected);
        QCOMPARE(
            percent ? SevenZipOutput::PercentOf(input) : int(ZipThread::IsDeletableFolder(input)), expected);
    }

    void unpacksWithRealTool_data()
    {
        QTest::addColumn<QStringList>("kinds");
        QTest::addColumn<int>("updateType");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("error"); // a part of the tool's own text
        QTest::addRow("two archives") << QStringList { "pak", "dat" } << UpdateType::Update << 0 << "";
        QTest::addRow("crc failed, next unpacked")
            << QStringList { "crc", "dat" } << UpdateType::Update << 0 << "";
        QTest::addRow("truncated") << QStringList { "truncated", "dat" } << UpdateType::Update << 2
                                   << "Unexpected end of archive";
        for (int kind : { UpdateType::Repair, UpdateType::RepairParts })
            QTest::addRow("repair kind %d", kind) << QStringList { "dat" } << kind << 0 << "";
        // 7-Zip writes the names in its messages in the local 8-bit code page (936 on Chinese Windows):
        // a file it cannot write, because a folder of that name is in the way, is named whole in the
        // player's error, not as question marks.
        QTest::addRow("name in the local code page")
            << QStringList { "named" } << UpdateType::Repair << 2 << "说明.pak";
    }
    void unpacksWithRealTool()
    {
        QFETCH(QStringList, kinds);
        QFETCH(int, updateType);
        QFETCH(int, code);
        QFETCH(QString, error);
        if (kinds.first() == "named") {
#ifdef Q_OS_WIN
            if (GetACP() != 936)
                QSKIP("needs code page 936, which the Windows suite gives this area");
#else
            if (!QTextCodec::codecForLocale()->canEncode(kNamed))
                QSKIP("needs a local 8-bit encoding with Chinese (a UTF-8 locale)");
#endif
        }
        QTemporaryDir dir;
        QStringList archives;
        for (const QString& kind : kinds)
            archives << archiveOfKind(dir.path(), kind);
        const QString folder = dir.path() + "/游戏 安装/Un Zip";
        QVERIFY(TestFiles::writeFile(folder + "/stale.txt", "left from before"));
        QVERIFY(kinds.first() != "named" || QDir().mkpath(folder + '/' + kNamed + "/in the way"));

        LogLines log;
        CallbackRecorder<UnZipCallbackInfo> recorder;
        QVERIFY(InstallStages::unZip(recorder, archives, folder, updateType));
        QCOMPARE(recorder.last().code, code);
        QVERIFY2(recorder.last().errStr.contains(error), qPrintable(recorder.last().errStr));
        QCOMPARE(QFile::exists(folder + "/stale.txt"), UpdateType::IsRepair(updateType));
        QCOMPARE(TestFiles::readFile(folder + '/' + kDatName) == kDat, code == 0);
        QVERIFY(kinds.first() != "pak" || TestFiles::readFile(folder + "/a.pak") == kPak);
        QCOMPARE(log.contains({ "ignore crc failed", "CRC Failed" }), kinds.first() == "crc");
        for (const UnZipCallbackInfo& report : recorder.progressReports())
            QVERIFY(report.totalCount == archives.size() && report.curCount < archives.size());
    }

    void scriptedTool_data()
    {
        QTest::addColumn<ScriptRow>("row");
        const auto text = [](int exitCode) { return SevenZipOutput::MeaningOfExitCode(exitCode, 0).text; };
        QTest::addRow("exit 7, silent") << ScriptRow { 7, "", "", 2, "out", 3, text(7), {}, 1 };
        QTest::addRow("exit 8 with text")
            << ScriptRow { 8, "", "ERROR:\n Can't allocate ", 1, "out", 4, "ERROR: Can't allocate", {}, 1 };
        QTest::addRow("exit 255") << ScriptRow { 255, "", "", 1, "out", 5, text(255), {}, 1 };
        QTest::addRow("one report a burst")
            << ScriptRow { 0, " 42% 1 - a\b\b 43%", "", 2, "out", 0, "", { 42, 42 }, 2 };
        QTest::addRow("second start refused") << ScriptRow { 0, "", "", 1, "out", 0, "", {}, 1, true };
        QTest::addRow("no tool") << ScriptRow { -1, "", "", 1, "out", 2, ExternalTools::MissingToolText("7z"),
            {}, 0 };
        QTest::addRow("no destination")
            << ScriptRow { 0, "", "", 1, "", 2, SevenZipOutput::UnsafeDestinationText(""), {}, 0 };
        QTest::addRow("empty list") << ScriptRow { 0, "", "", 0, "out", -1, "", {}, 0 };
    }
    void scriptedTool()
    {
        QFETCH(ScriptRow, row);
        QTemporaryDir dir;
        std::unique_ptr<ScriptedTool> tool;
        if (row.exitCode >= 0) // the sleep makes the output a burst read while the tool runs
            tool.reset(new ScriptedTool("7z", { { row.exitCode, row.output, row.error, 300 } }));
        const ToolSearchPath searchPath(tool ? qgetenv("PATH") : ToolSearchPath::none());
        QStringList archives;
        for (int i = 0; i < row.archives; ++i)
            archives << dir.filePath(QString("p%1.7z").arg(i));
        const QString folder = row.folder.isEmpty() ? QString() : dir.filePath(row.folder);
        QVERIFY(TestFiles::writeFile(dir.filePath("out/kept.txt"), "x"));

        LogLines log;
        CallbackRecorder<UnZipCallbackInfo> recorder;
        QVERIFY(InstallStages::unZip(recorder, archives, folder, 2, row.startTwice));
        if (row.code >= 0)
            QCOMPARE(
                qMakePair(recorder.last().code, recorder.last().errStr), qMakePair(row.code, row.errStr));
        QCOMPARE(recorder.progress(&UnZipCallbackInfo::percent), row.percents);
        QCOMPARE(tool ? tool->starts() : 0, row.starts);
        QCOMPARE(QFile::exists(dir.filePath("out/kept.txt")), row.starts == 0);
        if (row.starts > 0)
            QCOMPARE(tool->arguments().first(),
                QStringList({ "x", "-bsp1", "-y", "-o" + folder, archives.first() }));
        QCOMPARE(log.contains({ "Unzipper", "m_ZipThread->isRunning" }), row.startTwice);
        QCOMPARE(log.contains({ "Zipthread", "exepath is" }), row.starts > 0);
    }
};

CORE_TEST_CLASS(TestUnZipper)
#include "tst_unzipper.moc"
