#include "HostBench.h"
#include "ScriptedTool.h"
#include "TestFiles.h"
#include "TestPlatform.h"
#include "TestRegistry.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

#include <algorithm>
#include <memory>

#ifndef Q_OS_WIN
#include <csignal>
#include <unistd.h>
#endif

// The host and the publisher as programs, against a real nginx: three versions of a small game are
// published into two channels, "a" (1.0.0.1 only) and "b" (1.0.0.1 to 1.0.0.3, patches one version
// apart so an update is a chain of two), and every case installs into a folder of its own with a copy
// of core-update, whose settings live beside it.
namespace {

const QString kBin = QStringLiteral(CORE_BIN_DIR);
#ifdef Q_OS_WIN
// The channels are published by the Linux build's publisher, which Wine starts as the Linux program
// it is.
const QString kPublisher = QStringLiteral(CORE_PUBLISHER);
#else
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
    // The pak folder is the one the verifier cleans of files its list does not name.
    TestFiles::Tree files { { "Paks/game.pak", patternBytes(1200000, 1) },
        { "KX/Content/Paks/main.pak", patternBytes(100000, 7) },
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

#ifndef Q_OS_WIN
// The host in a process group of its own, as a shell starts a command: a Ctrl-C at the terminal goes
// to that whole group.
class GroupLeader : public QProcess
{
protected:
    void setupChildProcess() override { ::setpgid(0, 0); }
};

// A stand-in for 7-Zip beside the host, which the library finds first: it records its process id,
// waits, then becomes the real 7-Zip.
void writeSlowSevenZip(const QString& appFolder, int waitSeconds)
{
    const QString real = QStandardPaths::findExecutable("7zz");
    const QByteArray script = "#!/bin/sh\necho $$ > '" + appFolder.toUtf8() + "/7z.pid'\nsleep "
        + QByteArray::number(waitSeconds) + "\nexec '" + real.toUtf8() + "' \"$@\"\n";
    QVERIFY(TestFiles::writeFile(appFolder + "/7z", script));
    QVERIFY(QFile::setPermissions(appFolder + "/7z", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}
#endif

using Run = HostBench::Run;

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        if (!HostBench::canRun(kPublisher))
            QSKIP("needs nginx and core-publish");
        const QString root = m_bench.work();
        QVERIFY(TestFiles::writeTree(root + "/a/1.0.0.1", version(1)));
        for (int n = 1; n <= 3; ++n)
            QVERIFY(TestFiles::writeTree(QStringLiteral("%1/b/1.0.0.%2").arg(root).arg(n), version(n)));
        // Nothing leads from 1.0.0.1 here: an update from it takes the full package.
        for (int n = 2; n <= 3; ++n)
            QVERIFY(TestFiles::writeTree(QStringLiteral("%1/d/1.0.0.%2").arg(root).arg(n), version(n)));
        for (const QString channel : { "a", "b", "d" }) {
            const QStringList arguments { NginxServer::unixPath(root + '/' + channel),
                NginxServer::unixPath(root + "/www/" + channel) };
#ifdef Q_OS_WIN
            // Wine does not see the end of a Linux program it started: the channel is published once
            // its folder is moved into place, which the publisher does last.
            QVERIFY(QProcess::startDetached(kPublisher, arguments));
            QVERIFY(QTest::qWaitFor(
                [&] { return QFile::exists(root + "/www/" + channel + "/manifest.txt"); }, 120000));
#else
            QCOMPARE(HostBench::publish(kPublisher, arguments), 0);
#endif
        }
        QVERIFY(m_bench.serve());
    }

    void init()
    {
        QVERIFY(m_bench.newCase());
    }

    void installs_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<int>("depth"); // -1: the case's folder; else a Windows folder this deep
        QTest::newRow("empty cache") << "" << -1;
        // Complete in size, wrong inside: fetched again rather than unpacked.
        QTest::newRow("corrupt package in the cache") << "corrupt" << -1;
        // A run killed during the download: the next one asks for the rest only.
        QTest::newRow("killed while downloading") << "killed" << -1;
#ifdef Q_OS_WIN
        // The install folder as players type it into the settings: a drive letter and backslashes, and
        // deep enough that the game's files lie past the 260 characters of a classic Windows path.
        QTest::newRow("drive letter and backslashes") << "" << 0;
        QTest::newRow("over 260 characters") << "" << 12;
#endif
    }
    void installs()
    {
        QFETCH(QString, before);
        QFETCH(int, depth);
        if (depth >= 0) {
            QString folder = m_bench.installDir();
            for (int i = 0; i < depth; ++i)
                folder += QStringLiteral("/%1").arg(i).repeated(10);
            m_bench.setInstallDir(QDir::toNativeSeparators(folder));
            QVERIFY(m_bench.installDir().at(1) == ':' && m_bench.installDir().contains('\\'));
            QVERIFY(depth == 0 || (m_bench.game() + "/文件/说明.txt").size() > 260);
        }
        const QString game = QDir::fromNativeSeparators(m_bench.game());
        const QString cached = m_bench.installDir() + "/MorvantixCache/full_1.0.0.3.7z";
        const QString published = m_bench.www("b") + "/full/1.0.0.3/full_1.0.0.3.7z";
        if (before == "corrupt")
            QVERIFY(TestFiles::writeFile(cached, QByteArray(int(QFileInfo(published).size()), 'x')));
        if (before == "killed") {
            auto host = startHost("install", "b", { "--limit", "100" });
            QVERIFY(QTest::qWaitFor([&] { return QFileInfo(cached).size() > 200000; }, 20000));
            host->kill();
            host->waitForFinished();
        }
        QCOMPARE(m_bench.run("install", "b").result(), "0 installed");
        QCOMPARE(md5Tree(game), md5Tree(version(3)));
        QVERIFY(QFileInfo(m_bench.settingsFile()).isFile());
        const QString full = "/b/full/1.0.0.3/full_1.0.0.3.7z";
        QCOMPARE(m_bench.packageRequests(),
            (before == "killed" ? QStringList { full, full } : QStringList { full }));
        const QString last = m_bench.server().accessLog().filter(".7z").last();
        const bool resumed = last.contains(" 206 bytes=") && !last.endsWith("bytes=0-");
        QVERIFY2(resumed == (before == "killed"), qPrintable(last));
        if (depth >= 0) {
            QVERIFY(TestFiles::writeFile(m_bench.game() + "/文件/说明.txt", "damaged"));
            QCOMPARE(m_bench.run("repair", "b").exitCode, 0);
            QCOMPARE(md5Tree(game), md5Tree(version(3)));
        }
    }

    void changesNothingNeedlesslyAndRepairsOneFile()
    {
        QCOMPARE(m_bench.run("install", "b").exitCode, 0);
        m_bench.server().clearAccessLog();
        QCOMPARE(m_bench.run("update", "b").result(), "0 up-to-date");
        QCOMPARE(m_bench.run("update", "a").result(), "0 installed-newer");
        QCOMPARE(m_bench.run("install", "b").exitCode, 1); // over an installed game only with --yes
        QVERIFY(m_bench.packageRequests().isEmpty());

        QVERIFY(TestFiles::writeFile(m_bench.game() + "/文件/说明.txt", "damaged"));
        QCOMPARE(m_bench.run("verify", "b").exitCode, 3);
        const Run repair = m_bench.run("repair", "b");
        QCOMPARE(repair.exitCode, 0);
        QCOMPARE(
            repair.last["result"]["repaired"].toVariant().toStringList(), QStringList { "文件/说明.txt" });
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(3)));
        QCOMPARE(m_bench.packageRequests(), QStringList { "/b/1.0.0.3/files/文件/说明.txt" });
        QCOMPARE(m_bench.run("verify", "b").exitCode, 0);
    }

    void updatesThroughChainOnceFileReleased()
    {
        QCOMPARE(m_bench.run("install", "a").exitCode, 0);
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(1)));
        m_bench.server().clearAccessLog();
        const QByteArray settings = TestFiles::readFile(m_bench.settingsFile());
        const Run plan = m_bench.run("update", "b", { "--dry-run" });
        QCOMPARE(plan.exitCode, 0);
        QCOMPARE(plan.last["plan"]["steps"].toArray().size(), 2);
        QCOMPARE(TestFiles::readFile(m_bench.settingsFile()), settings);
        QVERIFY(m_bench.packageRequests().isEmpty());

        QFile held(m_bench.game() + "/Paks/game.pak");
        QVERIFY(held.open(QIODevice::ReadOnly));
        const Run inUse = m_bench.run("update", "b");
        held.close();
        QCOMPARE(inUse.exitCode, 5);
        QCOMPARE(inUse.last["error"]["stage"].toString(), "check");
        QVERIFY(inUse.last["error"]["path"].toString().endsWith("MorvantixGame/Paks/game.pak"));
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(1)));

        const Run run = m_bench.run("update", "b");
        QCOMPARE(run.result(), "0 updated");
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(3)));
        // Each patch of the chain fetched once over the failed run and this one.
        QCOMPARE(m_bench.packageRequests(),
            QStringList({ "/b/patch/1.0.0.2/1.0.0.1_1.0.0.2.7z", "/b/patch/1.0.0.3/1.0.0.2_1.0.0.3.7z" }));
    }

    // Channel "bad" with one document replaced: refused before any package is fetched, the game as it
    // was. A version's file list that is no list would let every entry pass (a missing file and an
    // empty MD5 agree) and the pak clean-up take every pak.
    void refusesBadDocument_data()
    {
        QTest::addColumn<QString>("installed"); // the channel installed first; empty: nothing
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("document");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("named"); // what the error names
        QTest::addColumn<qint64>("size"); // > 0: a sparse file of that size, cheap to make and serve
        const auto row
            = [](const char* name, const char* installed, const char* command, const QString& document,
                  const QByteArray& content, const QStringList& named, qint64 size = 0) {
                  QTest::newRow(name)
                      << QString(installed) << QString(command) << document << content << named << size;
              };
        const QString list = "1.0.0.3/manifest.txt";
        const QByteArray noFile = "|d41d8cd98f00b204e9800998ecf8427e|";
        row("climbing entry, verify manifest", "", "install", list,
            "../../escape.txt" + noFile + "0\n" + publishedDocument(list), {});
        row("climbing entry, guide manifest", "", "install", "manifest.txt",
            "--download_version--\n1.0.0.2->1.0.0.3|../escape.7z" + noFile + "1\n"
                + publishedDocument("manifest.txt"),
            {});
        row("file list empty, repair", "b", "repair", list, "", { list });
        row("file list cut in its last line, verify", "b", "verify", list,
            publishedDocument(list) + "KX/Content/Paks/main.pak|01", { list });
        row("file list an error page, update", "a", "update", list,
            "<html><body><h1>502 Bad Gateway</h1></body></html>\n", { list });
        const qint64 mib = 1 << 20;
        row("info.json over 1 MiB", "a", "update", "info.json", "", { "info.json", "larger than" }, mib + 1);
        row("guide manifest over 16 MiB", "a", "update", "manifest.txt", "",
            { "manifest.txt", "larger than" }, 16 * mib + 1);
        row("file list over 128 MiB", "a", "update", list, "", { list, "larger than" }, 128 * mib + 1);
    }
    void refusesBadDocument()
    {
        QFETCH(QString, installed);
        QFETCH(QString, command);
        QFETCH(QString, document);
        QFETCH(QByteArray, content);
        QFETCH(QStringList, named);
        QFETCH(qint64, size);
        if (!installed.isEmpty())
            QCOMPARE(m_bench.run("install", installed).exitCode, 0);
        const auto before = md5Tree(m_bench.game());
        serveDocuments({ { document, content } });
        if (size > 0)
            QVERIFY(QFile::resize(m_bench.www("bad/") + document, size));
        m_bench.server().clearAccessLog();
        const Run run = m_bench.run(command, "bad");
        QCOMPARE(run.exitCode, 7);
        const QString text = run.last["error"]["text"].toString();
        for (const QString& name : named)
            QVERIFY2(text.contains(name), qPrintable(text));
        QCOMPARE(md5Tree(m_bench.game()), before);
        QCOMPARE(QFile::exists(m_bench.game()), !installed.isEmpty());
        QVERIFY(m_bench.packageRequests().isEmpty());
    }

    // A notice written to clear the screen and retitle the window, long enough to fill the memory.
    void showsServerTextsTamed()
    {
        QJsonObject info = QJsonDocument::fromJson(publishedDocument("info.json")).object();
        info["maintain_content"] = "\x1b[2J\x1b]0;owned\x07" + QString(900000, 'm');
        serveDocuments({ { "info.json", QJsonDocument(info).toJson() } });
        QProcess host;
        host.start(m_bench.program(),
            { "update", "--server", m_bench.server().url("bad"), "--dir", m_bench.installDir(),
                "--dry-run" });
        QVERIFY(host.waitForFinished(60000));
        const QByteArray err = host.readAllStandardError();
        const QByteArray notice = err.mid(err.indexOf("notice: maintenance")).split('\n').first();
        QVERIFY2(
            notice.contains("[2J]0;owned") && !err.contains('\x1b') && !err.contains('\x07'), err.left(200));
        QVERIFY2(notice.size() < 2100, QByteArray::number(notice.size()));
    }

    void unwritableSettingsChangeNothing_data()
    {
        QTest::addColumn<QString>("place");
        QTest::newRow("config.ini replaced by a folder") << "folder";
        QTest::newRow("config.ini a link into a missing folder") << "dangling link";
    }
    void unwritableSettingsChangeNothing()
    {
        QFETCH(QString, place);
#ifdef Q_OS_WIN
        if (place != "folder")
            QSKIP("on Windows QFile::link makes a shortcut, not a link");
#endif
        QCOMPARE(m_bench.run("install", "a").exitCode, 0);
        const auto before = md5Tree(m_bench.game());
        const QString config = m_bench.settingsFile();
        QVERIFY(QFile::remove(config));
        if (place == "folder")
            QVERIFY(QDir().mkpath(config));
        else
            QVERIFY(QFile::link(m_bench.casePath() + "/missing/config.ini", config));
        m_bench.server().clearAccessLog();
        const Run run = m_bench.run("update", "b");
        QCOMPARE(run.exitCode, 9);
        QCOMPARE(run.last["error"]["stage"].toString(), "record");
        QCOMPARE(md5Tree(m_bench.game()), before);
        QVERIFY(m_bench.packageRequests().isEmpty());
    }

    void oneRunPerFolder()
    {
        QCOMPARE(m_bench.run("install", "a").exitCode, 0);
        const auto before = md5Tree(m_bench.game());
        auto first = startHost("update", "d", { "--limit", "100" });
        const QString cached = m_bench.installDir() + "/MorvantixCache/full_1.0.0.3.7z";
        QVERIFY(QTest::qWaitFor([&] { return QFileInfo(cached).size() > 0; }, 20000));
        const Run second = m_bench.run("repair", "d");
        QCOMPARE(second.exitCode, 8);
        const QString text = second.last["error"]["text"].toString();
        QVERIFY2(text.contains(m_bench.installDir()) && text.contains(QString::number(first->processId())),
            qPrintable(text));
        QCOMPARE(md5Tree(m_bench.game()), before);
        // A run killed with the lock held leaves it stale; the next run takes it over.
        first->kill();
        first->waitForFinished();
        QCOMPARE(m_bench.run("update", "d").result(), "0 installed");
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(3)));
    }

    // Killed at every point between stages, as kill -9 or a power cut would stop it: the folder
    // holds one whole version (the new one may wait beside the game, between the two renames), and
    // the next run ends at the newest version exactly, with nothing left in the cache.
    void killedAtBoundaryEndsWhole_data()
    {
        QTest::addColumn<QString>("channel");
        QTest::addColumn<QString>("boundary");
        QTest::addColumn<bool>("damage"); // a game file damaged after the kill, left for the next run
        for (const char* boundary : { "downloaded", "package-verified", "unpacked", "old-moved", "swapped" })
            QTest::addRow("full package: %s", boundary) << "d" << boundary << false;
        for (const char* boundary :
            { "downloaded", "package-verified", "unpacked", "checked", "merged", "step-recorded" })
            QTest::addRow("patch chain: %s", boundary) << "b" << boundary << false;
        // The settings name the newest version before its verification has run.
        for (const char* channel : { "d", "b" })
            QTest::addRow("%s: verifying, a file damaged", *channel == 'd' ? "full package" : "patch chain")
                << channel << "verifying" << true;
    }
    void killedAtBoundaryEndsWhole()
    {
        QFETCH(QString, channel);
        QFETCH(QString, boundary);
        QFETCH(bool, damage);
        QCOMPARE(m_bench.run("install", "a").exitCode, 0);
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(1)));

        auto host = startHost("update", channel, {}, boundary);
        QVERIFY(host->waitForFinished(60000));
#ifdef Q_OS_WIN
        QCOMPARE(host->exitCode(), 137); // TerminateProcess's code, which Windows does not call a crash
#else
        QCOMPARE(host->exitStatus(), QProcess::CrashExit);
#endif
        const QString whole = QFileInfo::exists(m_bench.game()) ? m_bench.game() : m_bench.game() + ".new";
        const auto versions = { md5Tree(version(1)), md5Tree(version(2)), md5Tree(version(3)) };
        QVERIFY2(
            std::find(versions.begin(), versions.end(), md5Tree(whole)) != versions.end(), qPrintable(whole));
        if (damage)
            QVERIFY(TestFiles::writeFile(m_bench.game() + "/bin/game.exe", "damaged"));

        const Run run = m_bench.run("update", channel);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(3)));
        QCOMPARE(QDir(m_bench.installDir() + "/MorvantixCache").entryList(QDir::Files), QStringList());
        QVERIFY(!QFile::exists(m_bench.game() + ".new") && !QFile::exists(m_bench.game() + ".old"));
        QCOMPARE(m_bench.run("update", channel).result(), "0 up-to-date");
    }

    // A Ctrl-C at the terminal reaches the host's whole process group; 7-Zip runs in a group of its
    // own, so the unpack ends and the host leaves after it.
    void ctrlCDuringUnpackLeavesAfterIt()
    {
#ifdef Q_OS_WIN
        QSKIP("a Ctrl-C reaches a console's process group; the test's host has no console to send it to");
#else
        QCOMPARE(m_bench.run("install", "a").exitCode, 0);
        writeSlowSevenZip(m_bench.casePath() + "/app", 2);
        auto host = startHost("update", "d");
        QVERIFY(QTest::qWaitFor([&] { return QFile::exists(m_bench.casePath() + "/app/7z.pid"); }, 30000));
        QCOMPARE(::kill(-pid_t(host->processId()), SIGINT), 0);
        QVERIFY(host->waitForFinished(30000));
        QCOMPARE(host->exitStatus(), QProcess::NormalExit);
        QCOMPARE(host->exitCode(), 130);
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(version(3)));
        QVERIFY(QFile::remove(m_bench.casePath() + "/app/7z"));
        QCOMPARE(m_bench.run("update", "d").result(), "0 updated");
#endif
    }

    // A 7-Zip that only waits, beside the host where the library finds it first, dies with the host.
    void killedHostTakesItsToolAlong()
    {
        QCOMPARE(m_bench.run("install", "a").exitCode, 0);
        const auto before = md5Tree(m_bench.game());
        const ScriptedTool tool(m_bench.casePath() + "/app", "7z", { { 0, {}, {}, 60000 } });
        auto host = startHost("update", "d");
        QVERIFY(QTest::qWaitFor([&] { return tool.processId(1) > 0; }, 30000));
        QVERIFY(TestPlatform::processRuns(tool.processId(1)));
        host->kill();
        host->waitForFinished();
        QVERIFY(QTest::qWaitFor([&] { return !TestPlatform::processRuns(tool.processId(1)); }, 5000));
        QCOMPARE(md5Tree(m_bench.game()), before);
    }

private:
    // The host in a process group of its own; killAt: the boundary where it is to be killed.
    std::unique_ptr<QProcess> startHost(const QString& command, const QString& channel,
        const QStringList& extra = {}, const QString& killAt = QString())
    {
#ifdef Q_OS_WIN
        auto host = std::make_unique<QProcess>();
#else
        auto host = std::make_unique<GroupLeader>();
#endif
        if (!killAt.isEmpty()) {
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert("CORE_UPDATE_KILL_AT", killAt);
            host->setProcessEnvironment(environment);
        }
        return m_bench.start(command, channel, extra, std::move(host));
    }
    QByteArray publishedDocument(const QString& name) const
    {
        return TestFiles::readFile(m_bench.www("b/") + name);
    }
    // Channel "bad": the documents of "b" (no packages), some of them replaced.
    void serveDocuments(const QMap<QString, QByteArray>& replaced)
    {
        const QString channel = m_bench.www("bad");
        QDir(channel).removeRecursively();
        for (const QString& name : { "info.json", "manifest.txt", "1.0.0.3/manifest.txt" })
            QVERIFY(
                TestFiles::writeFile(channel + "/" + name, replaced.value(name, publishedDocument(name))));
    }

    HostBench m_bench { "e2e", kBin };
};

CORE_TEST_CLASS(TestEndToEnd)
#include "tst_endtoend.moc"
