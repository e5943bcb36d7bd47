#include "TestRegistry.h"

#include "CommandLine.h"
#include "ExitCodes.h"

#include <QDir>
#include <QtTest>

class TestHostCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void parses_data();
    void parses();
    void mapsExitCodes_data();
    void mapsExitCodes();
};

void TestHostCommandLine::parses_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>(
        "expected"); // "command server folder limit json dry yes", or "error: <part of it>"
    const QString base = QStringLiteral("--server http://127.0.0.1:8080/ch/ --dir /tmp/g ");
    QTest::newRow("update") << base + "update"
                            << "1 http://127.0.0.1:8080/ch /tmp/g -1 0 0 0";
    QTest::newRow("install, every switch") << base + "install --limit 512 --json --dry-run --yes"
                                           << "0 http://127.0.0.1:8080/ch /tmp/g 512 1 1 1";
    QTest::newRow("verify, folder cleaned") << "repair --server https://h/c --dir /tmp/a/../g/"
                                            << "3 https://h/c /tmp/g -1 0 0 0";
    QTest::newRow("no command") << base << "error: a command is needed";
    QTest::newRow("unknown command") << base + "upgrade"
                                     << "error: unknown command";
    QTest::newRow("two commands") << base + "update verify"
                                  << "error: unknown command";
    QTest::newRow("no server") << "update --dir /tmp/g"
                               << "error: --server and --dir";
    QTest::newRow("ftp server") << "update --dir /tmp/g --server ftp://h/c"
                                << "error: http or https";
    QTest::newRow("server without host") << "update --dir /tmp/g --server http://"
                                         << "error: http or https";
    QTest::newRow("limit zero") << base + "update --limit 0"
                                << "error: --limit";
    QTest::newRow("limit text") << base + "update --limit fast"
                                << "error: --limit";
    QTest::newRow("unknown option") << base + "update --fast"
                                    << "error: Unknown option 'fast'";
}

void TestHostCommandLine::parses()
{
    QFETCH(QString, arguments);
    QFETCH(QString, expected);
    const ParsedCommandLine parsed
        = ParseCommandLine(QStringList { "core-update" } + arguments.split(' ', Qt::SkipEmptyParts));
    if (expected.startsWith("error: ")) {
        QVERIFY2(parsed.error.contains(expected.mid(7)), qPrintable(parsed.error));
        return;
    }
    QVERIFY2(parsed.error.isEmpty(), qPrintable(parsed.error));
    const UpdateOptions& o = parsed.options;
    const QString actual = QStringLiteral("%1 %2 %3 %4 %5 %6 %7")
                               .arg(int(o.command))
                               .arg(o.serverUrl, QDir::fromNativeSeparators(o.folder))
                               .arg(o.limitKBps)
                               .arg(int(o.bJson))
                               .arg(int(o.bDryRun))
                               .arg(int(o.bYes));
    QCOMPARE(actual, expected);
}

void TestHostCommandLine::mapsExitCodes_data()
{
    QTest::addColumn<int>("stage");
    QTest::addColumn<bool>("failed");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("done") << int(Stage::VerifyGame) << false << 0 << "" << 0;
    QTest::newRow("settings") << int(Stage::Settings) << true << 0 << "" << 1;
    QTest::newRow("server") << int(Stage::Server) << true << 203 << "" << 2;
    QTest::newRow("stall") << int(Stage::Download) << true << 3 << "" << 2;
    QTest::newRow("download disk full") << int(Stage::Download) << true << 5
                                        << QStringLiteral("磁盘空间不足，请清除足够空间后，再进行下载") << 4;
    QTest::newRow("download outside cache")
        << int(Stage::Download) << true << 5 << QStringLiteral("下载文件的保存位置不在缓存目录内") << 7;
    QTest::newRow("repair download") << int(Stage::RepairDownload) << true << 2 << "" << 2;
    QTest::newRow("package") << int(Stage::VerifyPackage) << true << 0 << "" << 3;
    QTest::newRow("game") << int(Stage::VerifyGame) << true << 4 << "" << 3;
    QTest::newRow("space") << int(Stage::Space) << true << 0 << "" << 4;
    QTest::newRow("in use") << int(Stage::Check) << true << 0 << "" << 5;
    QTest::newRow("merge in use") << int(Stage::Merge) << true << 0 << QStringLiteral("文件/g/a.pak被占用中")
                                  << 5;
    QTest::newRow("merge disk") << int(Stage::Merge) << true << 0
                                << QStringLiteral("电脑磁盘空间不足，请清理后重试") << 4;
    QTest::newRow("merge memory") << int(Stage::Merge) << true << 0 << QStringLiteral("电脑运行内存不足")
                                  << 6;
    QTest::newRow("copy in use") << int(Stage::RepairCopy) << true << 0 << QStringLiteral("被占用") << 5;
    QTest::newRow("unpack") << int(Stage::Unpack) << true << 2 << "" << 6;
    QTest::newRow("unpack disk full")
        << int(Stage::Unpack) << true << 2 << "There is not enough space on the disk" << 4;
    QTest::newRow("refused") << int(Stage::Plan) << true << 7 << "" << 7;
}

void TestHostCommandLine::mapsExitCodes()
{
    QFETCH(int, stage);
    QFETCH(bool, failed);
    QFETCH(int, code);
    QFETCH(QString, text);
    QFETCH(int, exitCode);
    StageResult result { Stage(stage), failed, false, code, text, QString() };
    QCOMPARE(int(ExitCodeFor(result)), exitCode);
    result.bInterrupted = true;
    QCOMPARE(int(ExitCodeFor(result)), 130);
}

CORE_TEST_CLASS(TestHostCommandLine)
#include "tst_hostcommandline.moc"
