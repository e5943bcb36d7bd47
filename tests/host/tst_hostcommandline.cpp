#include "TestRegistry.h"

#include "CommandLine.h"
#include "ExitCodes.h"

#include <QDir>
#include <QtTest>

class TestHostCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void parses_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<QString>("expected"); // "command server folder limit json dry yes", or "error: ..."
        const QString base = QStringLiteral("--server http://127.0.0.1:8080/ch/ --dir /tmp/g ");
        const auto row = [](const char* name, const QString& arguments, const QString& expected) {
            QTest::newRow(name) << arguments << expected;
        };
        row("update", base + "update", "1 http://127.0.0.1:8080/ch /tmp/g -1 0 0 0");
        row("install, every switch", base + "install --limit 512 --json --dry-run --yes",
            "0 http://127.0.0.1:8080/ch /tmp/g 512 1 1 1");
        // Absolute as the system sees it: on Windows that adds the current drive.
        row("folder cleaned", "repair --server https://h/c --dir /tmp/a/../g/",
            "3 https://h/c " + QFileInfo("/tmp/g").absoluteFilePath() + " -1 0 0 0");
        row("no command", base, "error: a command is needed");
        row("unknown command", base + "upgrade", "error: unknown command");
        row("two commands", base + "update verify", "error: unknown command");
        row("no server", "update --dir /tmp/g", "error: --server and --dir");
        row("ftp server", "update --dir /tmp/g --server ftp://h/c", "error: --server needs an http or https");
        row("server without host", "update --dir /tmp/g --server http://",
            "error: --server needs an http or https");
        row("limit zero", base + "update --limit 0", "error: --limit");
        row("limit text", base + "update --limit fast", "error: --limit");
        row("unknown option", base + "update --fast", "error: Unknown option 'fast'");
    }
    void parses()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, expected);
        const ParsedCommandLine parsed
            = ParseCommandLine(QStringList { "core-update" } + arguments.split(' ', Qt::SkipEmptyParts));
        const UpdateOptions& o = parsed.options;
        const QString actual = !parsed.error.isEmpty()
            ? "error: " + parsed.error
            : QStringLiteral("%1 %2 %3 %4 %5 %6 %7")
                  .arg(int(o.command))
                  .arg(o.serverUrl, QDir::fromNativeSeparators(o.folder))
                  .arg(o.limitKBps)
                  .arg(int(o.bJson))
                  .arg(int(o.bDryRun))
                  .arg(int(o.bYes));
        QVERIFY2(actual.startsWith(expected), qPrintable(actual));
    }

    void mapsExitCodes_data()
    {
        QTest::addColumn<int>("stage");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("exitCode"); // 0: the stage did not fail
        const auto row = [](const char* name, Stage stage, int code, const char* text, int exitCode) {
            QTest::newRow(name) << int(stage) << code << QString(text) << exitCode;
        };
        row("done", Stage::VerifyGame, 0, "", 0);
        row("settings", Stage::Settings, 0, "", 1);
        row("server", Stage::Server, 203, "", 2);
        row("stall", Stage::Download, 3, "", 2);
        row("download disk full", Stage::Download, 5, "磁盘空间不足，请清除足够空间后，再进行下载", 4);
        row("download outside cache", Stage::Download, 5, "下载文件的保存位置不在缓存目录内", 7);
        row("repair download", Stage::RepairDownload, 2, "", 2);
        row("package", Stage::VerifyPackage, 0, "", 3);
        row("game", Stage::VerifyGame, 4, "", 3);
        row("space", Stage::Space, 0, "", 4);
        row("in use", Stage::Check, 0, "", 5);
        row("merge in use", Stage::Merge, 0, "文件/g/a.pak被占用中", 5);
        row("merge disk", Stage::Merge, 0, "电脑磁盘空间不足，请清理后重试", 4);
        row("merge memory", Stage::Merge, 0, "电脑运行内存不足", 6);
        row("copy in use", Stage::RepairCopy, 0, "被占用", 5);
        row("unpack", Stage::Unpack, 2, "", 6);
        row("unpack disk full", Stage::Unpack, 2, "There is not enough space on the disk", 4);
        // What 7zz on Linux writes when the disk fills during the unpack.
        row("unpack disk full, Linux", Stage::Unpack, 2, "System ERROR:\nerrno=28 : No space left on device",
            4);
        row("refused", Stage::Plan, 7, "", 7);
        row("folder held by another run", Stage::Lock, 0, "", 8);
        row("settings not written", Stage::Record, 0, "", 9);
        row("swap blocked", Stage::Swap, 0, "", 5);
        row("untrusted channel", Stage::Trust, 0, "", 10);
    }
    void mapsExitCodes()
    {
        QFETCH(int, stage);
        QFETCH(int, code);
        QFETCH(QString, text);
        QFETCH(int, exitCode);
        StageResult result { Stage(stage), exitCode != 0, false, code, text, QString() };
        QCOMPARE(int(ExitCodeFor(result)), exitCode);
        result.bInterrupted = true;
        QCOMPARE(int(ExitCodeFor(result)), 130);
    }
};

CORE_TEST_CLASS(TestHostCommandLine)
#include "tst_hostcommandline.moc"
