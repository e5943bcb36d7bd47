#include "NginxServer.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <memory>

// The host and the publisher as programs, against a real nginx: three versions of a small game are
// published into two channels, "a" (1.0.0.1 only) and "b" (1.0.0.1 to 1.0.0.3, patches one version
// apart so an update is a chain of two), and every case installs into a folder of its own with a copy
// of core-update, whose settings live beside it.
namespace {

const QString kBin = QStringLiteral(CORE_BIN_DIR);
#ifdef Q_OS_WIN
const QString kExe = QStringLiteral(".exe");
const char kPathSeparator = ';';
// The channels are published by the Linux build's publisher (its diffs need xdelta3), which Wine
// starts as the Linux program it is.
const QString kPublisher = QStringLiteral(CORE_PUBLISHER);
#else
const QString kExe;
const char kPathSeparator = ':';
const QString kPublisher = kBin + QStringLiteral("/core-publish");
#endif
using TestFiles::md5Tree;
using TestFiles::patternBytes;

QByteArray edited(QByteArray data, int offset, quint32 seed)
{
    return data.replace(offset, 4096, patternBytes(4096, seed));
}

TestFiles::Tree version(int n)
{
    TestFiles::Tree files { { "Paks/game.pak", patternBytes(1200000, 1) },
        { "Paks/voice.pak", patternBytes(600000, 2) }, { "bin/game.exe", patternBytes(300000, 3) },
        { "config/settings.ini", "quality=low\n" }, { "文件/说明.txt", "版本一\n" },
        { "old/removed.txt", "gone\n" } };
    if (n >= 2) {
        files["Paks/game.pak"] = edited(files["Paks/game.pak"], 100000, 20);
        files["config/settings.ini"] = "quality=high\n";
        files["new/added.dat"] = patternBytes(50000, 5);
        files.remove("old/removed.txt");
    }
    if (n >= 3) {
        files["Paks/game.pak"] = edited(files["Paks/game.pak"], 800000, 30);
        files["Paks/voice.pak"] = edited(files["Paks/voice.pak"], 0, 31);
        files["文件/说明.txt"] = "版本三\n";
    }
    return files;
}

// How the host ended, and the last JSON object it printed of each type.
struct Run
{
    int exitCode = -1;
    QMap<QString, QJsonObject> last;

    QString result() const
    {
        return QStringLiteral("%1 %2").arg(exitCode).arg(last["result"]["outcome"].toString());
    }
};

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        if (NginxServer::program().isEmpty() || !QFile::exists(kPublisher))
            QSKIP("needs nginx and core-publish");
        // the host's patch tool is there
        qputenv("PATH", QFile::encodeName(kBin) + kPathSeparator + qgetenv("PATH"));
        const QString root = m_work.path();
        QVERIFY(TestFiles::writeTree(root + "/a/1.0.0.1", version(1)));
        for (int n = 1; n <= 3; ++n)
            QVERIFY(TestFiles::writeTree(QStringLiteral("%1/b/1.0.0.%2").arg(root).arg(n), version(n)));
        for (const QString channel : { "a", "b" }) {
            const QStringList arguments { NginxServer::unixPath(root + '/' + channel),
                NginxServer::unixPath(root + "/www/" + channel) };
#ifdef Q_OS_WIN
            // Wine does not see the end of a Linux program it started: the channel is published once
            // its folder is moved into place, which the publisher does last.
            QVERIFY(QProcess::startDetached(kPublisher, arguments));
            QVERIFY(QTest::qWaitFor(
                [&] { return QFile::exists(root + "/www/" + channel + "/manifest.txt"); }, 120000));
#else
            QProcess publisher;
            publisher.start(kPublisher, arguments);
            QVERIFY(publisher.waitForFinished(120000) && publisher.exitCode() == 0);
#endif
        }
        m_nginx = std::make_unique<NginxServer>(root + "/www");
        QVERIFY(m_nginx->isRunning());
    }

    void init()
    {
        m_case = std::make_unique<QTemporaryDir>();
        m_installDir = m_case->path() + "/install";
        QDir().mkpath(m_case->path() + "/app");
        QVERIFY(QFile::copy(kBin + "/core-update" + kExe, m_case->path() + "/app/core-update" + kExe));
        m_nginx->clearAccessLog();
    }

    void installs_data()
    {
        QTest::addColumn<QString>("before");
        QTest::newRow("empty cache") << "";
        // Complete in size, wrong inside: fetched again rather than unpacked.
        QTest::newRow("corrupt package in the cache") << "corrupt";
        // A run killed during the download: the next one asks for the rest only.
        QTest::newRow("killed while downloading") << "killed";
    }
    void installs()
    {
        QFETCH(QString, before);
        const QString cached = m_installDir + "/MorvantixCache/full_1.0.0.3.7z";
        const QString published = m_work.path() + "/www/b/full/1.0.0.3/full_1.0.0.3.7z";
        if (before == "corrupt")
            QVERIFY(TestFiles::writeFile(cached, QByteArray(int(QFileInfo(published).size()), 'x')));
        if (before == "killed") {
            auto host = startHost("install", "b", { "--limit", "100" });
            QVERIFY(QTest::qWaitFor([&] { return QFileInfo(cached).size() > 200000; }, 20000));
            host->kill();
            host->waitForFinished();
        }
        QCOMPARE(runHost("install", "b").result(), "0 installed");
        QCOMPARE(md5Tree(game()), md5Tree(version(3)));
        QVERIFY(QFileInfo(m_case->path() + "/app/config.ini").isFile());
        const QString full = "/b/full/1.0.0.3/full_1.0.0.3.7z";
        QCOMPARE(packageRequests(), (before == "killed" ? QStringList { full, full } : QStringList { full }));
        const QString last = m_nginx->accessLog().filter(".7z").last();
        const bool resumed = last.contains(" 206 bytes=") && !last.endsWith("bytes=0-");
        QVERIFY2(resumed == (before == "killed"), qPrintable(last));
    }

#ifdef Q_OS_WIN
    // The install folder as players type it into the settings: a drive letter and backslashes, and
    // deep enough that the game's files lie past the 260 characters of a classic Windows path.
    void installsIntoWindowsFolders_data()
    {
        QTest::addColumn<int>("depth");
        QTest::newRow("drive letter and backslashes") << 0;
        QTest::newRow("over 260 characters") << 6;
    }
    void installsIntoWindowsFolders()
    {
        QFETCH(int, depth);
        for (int i = 0; i < depth; ++i)
            m_installDir += QStringLiteral("/%1").arg(i).repeated(10);
        m_installDir = QDir::toNativeSeparators(m_installDir);
        QVERIFY(m_installDir.at(1) == ':' && m_installDir.contains('\\'));
        QVERIFY(depth == 0 || (game() + "/文件/说明.txt").size() > 260);
        QCOMPARE(runHost("install", "b").result(), "0 installed");
        QCOMPARE(md5Tree(QDir::fromNativeSeparators(game())), md5Tree(version(3)));
        QVERIFY(TestFiles::writeFile(game() + "/文件/说明.txt", "damaged"));
        QCOMPARE(runHost("repair", "b").exitCode, 0);
        QCOMPARE(md5Tree(QDir::fromNativeSeparators(game())), md5Tree(version(3)));
    }
#endif

    void changesNothingNeedlesslyAndRepairsOneFile()
    {
        QCOMPARE(runHost("install", "b").exitCode, 0);
        m_nginx->clearAccessLog();
        QCOMPARE(runHost("update", "b").result(), "0 up-to-date");
        QCOMPARE(runHost("update", "a").result(), "0 installed-newer");
        QCOMPARE(runHost("install", "b").exitCode, 1); // over an installed game only with --yes
        QVERIFY(packageRequests().isEmpty());

        QVERIFY(TestFiles::writeFile(game() + "/文件/说明.txt", "damaged"));
        QCOMPARE(runHost("verify", "b").exitCode, 3);
        const Run repair = runHost("repair", "b");
        QCOMPARE(repair.exitCode, 0);
        QCOMPARE(
            repair.last["result"]["repaired"].toVariant().toStringList(), QStringList { "文件/说明.txt" });
        QCOMPARE(md5Tree(game()), md5Tree(version(3)));
        QCOMPARE(packageRequests(), QStringList { "/b/1.0.0.3/files/文件/说明.txt" });
        QCOMPARE(runHost("verify", "b").exitCode, 0);
    }

    void updatesThroughChainOnceFileReleased()
    {
        QCOMPARE(runHost("install", "a").exitCode, 0);
        QCOMPARE(md5Tree(game()), md5Tree(version(1)));
        m_nginx->clearAccessLog();
        const QByteArray settings = TestFiles::readFile(m_case->path() + "/app/config.ini");
        const Run plan = runHost("update", "b", { "--dry-run" });
        QCOMPARE(plan.exitCode, 0);
        QCOMPARE(plan.last["plan"]["steps"].toArray().size(), 2);
        QCOMPARE(TestFiles::readFile(m_case->path() + "/app/config.ini"), settings);
        QVERIFY(packageRequests().isEmpty());

        QFile held(game() + "/Paks/game.pak");
        QVERIFY(held.open(QIODevice::ReadOnly));
        const Run inUse = runHost("update", "b");
        held.close();
        QCOMPARE(inUse.exitCode, 5);
        QCOMPARE(inUse.last["error"]["stage"].toString(), "check");
        QVERIFY(inUse.last["error"]["path"].toString().endsWith("MorvantixGame/Paks/game.pak"));
        QCOMPARE(md5Tree(game()), md5Tree(version(1)));

#ifdef Q_OS_WIN
        if (!QFile::exists(kBin + "/hpatchz.exe"))
            QSKIP("the chain needs hpatchz.exe, the Windows diff tool, which this build does not have yet");
#endif
        const Run run = runHost("update", "b");
        QCOMPARE(run.result(), "0 updated");
        QCOMPARE(md5Tree(game()), md5Tree(version(3)));
        // Each patch of the chain fetched once over the failed run and this one.
        QCOMPARE(packageRequests(),
            QStringList({ "/b/patch/1.0.0.2/1.0.0.1_1.0.0.2.7z", "/b/patch/1.0.0.3/1.0.0.2_1.0.0.3.7z" }));
    }

    void refusesClimbingEntry_data()
    {
        QTest::addColumn<QString>("document");
        QTest::addColumn<QString>("line");
        QTest::newRow("verify manifest") << "1.0.0.3/manifest.txt"
                                         << "../../escape.txt|d41d8cd98f00b204e9800998ecf8427e|0";
        QTest::newRow("guide manifest")
            << "manifest.txt"
            << "--download_version--\n1.0.0.2->1.0.0.3|../escape.7z|d41d8cd98f00b204e9800998ecf8427e|1";
    }
    void refusesClimbingEntry()
    {
        QFETCH(QString, document);
        QFETCH(QString, line);
        const QString channel = m_work.path() + "/www/bad";
        QDir(channel).removeRecursively();
        for (const QString& name : { "info.json", "manifest.txt", "1.0.0.3/manifest.txt" })
            QVERIFY(TestFiles::writeFile(
                channel + "/" + name, TestFiles::readFile(m_work.path() + "/www/b/" + name)));
        QVERIFY(TestFiles::writeFile(
            channel + "/" + document, line.toUtf8() + "\n" + TestFiles::readFile(channel + "/" + document)));
        QCOMPARE(runHost("install", "bad").exitCode, 7);
        QVERIFY(!QFile::exists(game()));
        QVERIFY(packageRequests().isEmpty());
    }

private:
    // Starts the host in the case's folder; the returned process is running.
    std::unique_ptr<QProcess> startHost(
        const QString& command, const QString& channel, const QStringList& extra = {})
    {
        auto host = std::make_unique<QProcess>();
        host->start(m_case->path() + "/app/core-update" + kExe,
            QStringList { command, "--server", m_nginx->url(channel), "--dir", m_installDir, "--json" }
                + extra);
        host->waitForStarted();
        return host;
    }
    Run runHost(const QString& command, const QString& channel, const QStringList& extra = {})
    {
        auto host = startHost(command, channel, extra);
        Run run;
        if (host->waitForFinished(60000))
            run.exitCode = host->exitCode();
        for (const QByteArray& line : host->readAllStandardOutput().split('\n')) {
            const QJsonObject object = QJsonDocument::fromJson(line).object();
            run.last[object["type"].toString()] = object;
        }
        return run;
    }
    QString game() const
    {
        return m_installDir + "/MorvantixGame";
    }
    QStringList packageRequests() const
    {
        QStringList requests;
        for (const QString& line : m_nginx->accessLog()) {
            if (line.contains(".7z") || line.contains("/files/"))
                requests << line.section(' ', 1, 1);
        }
        return requests;
    }

    QTemporaryDir m_work { QStringLiteral("/tmp/core-e2e-XXXXXX") }; // where nginx can read it
    std::unique_ptr<NginxServer> m_nginx;
    std::unique_ptr<QTemporaryDir> m_case;
    QString m_installDir;
};

CORE_TEST_CLASS(TestEndToEnd)
#include "tst_endtoend.moc"
