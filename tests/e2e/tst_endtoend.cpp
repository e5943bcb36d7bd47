#include "NginxServer.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include <QDirIterator>
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
using FileSet = QMap<QString, QByteArray>;

QByteArray edited(QByteArray data, int offset, quint32 seed)
{
    data.replace(offset, 4096, TestFiles::patternBytes(4096, seed));
    return data;
}

FileSet version(int n)
{
    FileSet files { { "Paks/game.pak", TestFiles::patternBytes(1200000, 1) },
        { "Paks/voice.pak", TestFiles::patternBytes(600000, 2) },
        { "bin/game.exe", TestFiles::patternBytes(300000, 3) }, { "config/settings.ini", "quality=low\n" },
        { "文件/说明.txt", "版本一\n" }, { "old/removed.txt", "gone\n" } };
    if (n >= 2) {
        files["Paks/game.pak"] = edited(files["Paks/game.pak"], 100000, 20);
        files["config/settings.ini"] = "quality=high\n";
        files["new/added.dat"] = TestFiles::patternBytes(50000, 5);
        files.remove("old/removed.txt");
    }
    if (n >= 3) {
        files["Paks/game.pak"] = edited(files["Paks/game.pak"], 800000, 30);
        files["Paks/voice.pak"] = edited(files["Paks/voice.pak"], 0, 31);
        files["文件/说明.txt"] = "版本三\n";
    }
    return files;
}

FileSet filesUnder(const QString& folder)
{
    FileSet files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(QDir(folder).relativeFilePath(path), TestFiles::readFile(path));
    }
    return files;
}

bool publish(const QString& versions, const QString& channel)
{
    QProcess publisher;
    publisher.start(kBin + "/core-publish", { versions, channel });
    return publisher.waitForFinished(120000) && publisher.exitCode() == 0;
}

struct Run
{
    int exitCode = -1;
    QList<QJsonObject> objects;

    QJsonObject last(const QString& type) const
    {
        for (auto it = objects.crbegin(); it != objects.crend(); ++it) {
            if ((*it)["type"].toString() == type)
                return *it;
        }
        return {};
    }
};

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void installsFresh();
    void updatesThroughChain();
    void endsWithoutChange();
    void resumesAfterKill();
    void fetchesCorruptPackageAgain();
    void repairsDamagedFileOnly();
    void stopsAtFileInUse();
    void refusesClimbingEntry_data();
    void refusesClimbingEntry();

private:
    // Starts the host in the case's folder; the returned process is running.
    std::unique_ptr<QProcess> startHost(
        const QString& command, const QString& channel, const QStringList& extra = {});
    Run runHost(const QString& command, const QString& channel, const QStringList& extra = {});
    QString game() const { return m_case->path() + "/install/MorvantixGame"; }
    QStringList packageRequests() const;

    QTemporaryDir m_work;
    std::unique_ptr<NginxServer> m_nginx;
    std::unique_ptr<QTemporaryDir> m_case;
};

void TestEndToEnd::initTestCase()
{
    if (NginxServer::program().isEmpty() || !QFile::exists(kBin + "/core-publish"))
        QSKIP("needs nginx and core-publish");
    const QString root = m_work.path();
    for (int n = 1; n <= 3; ++n) {
        const FileSet files = version(n);
        for (auto it = files.cbegin(); it != files.cend(); ++it) {
            QVERIFY(TestFiles::writeFile(
                QStringLiteral("%1/b/1.0.0.%2/%3").arg(root).arg(n).arg(it.key()), it.value()));
            if (n == 1)
                QVERIFY(
                    TestFiles::writeFile(QStringLiteral("%1/a/1.0.0.1/%2").arg(root, it.key()), it.value()));
        }
    }
    QVERIFY(publish(root + "/a", root + "/www/a"));
    QVERIFY(publish(root + "/b", root + "/www/b"));
    m_nginx = std::make_unique<NginxServer>(root + "/www");
    QVERIFY(m_nginx->isRunning());
}

void TestEndToEnd::init()
{
    m_case = std::make_unique<QTemporaryDir>();
    QDir().mkpath(m_case->path() + "/app");
    QVERIFY(QFile::copy(kBin + "/core-update", m_case->path() + "/app/core-update"));
    m_nginx->clearAccessLog();
}

void TestEndToEnd::cleanup()
{
    m_case.reset();
}

std::unique_ptr<QProcess> TestEndToEnd::startHost(
    const QString& command, const QString& channel, const QStringList& extra)
{
    auto host = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("PATH", kBin + ":" + env.value("PATH")); // the patch tool is found there
    host->setProcessEnvironment(env);
    host->start(m_case->path() + "/app/core-update",
        QStringList {
            command, "--server", m_nginx->url(channel), "--dir", m_case->path() + "/install", "--json" }
            + extra);
    host->waitForStarted();
    return host;
}

Run TestEndToEnd::runHost(const QString& command, const QString& channel, const QStringList& extra)
{
    auto host = startHost(command, channel, extra);
    Run run;
    if (!host->waitForFinished(60000))
        return run;
    run.exitCode = host->exitCode();
    for (const QByteArray& line : host->readAllStandardOutput().split('\n')) {
        if (!line.isEmpty())
            run.objects << QJsonDocument::fromJson(line).object();
    }
    return run;
}

QStringList TestEndToEnd::packageRequests() const
{
    QStringList requests;
    for (const QString& line : m_nginx->accessLog()) {
        if (line.contains(".7z") || line.contains("/files/"))
            requests << line.section(' ', 1, 1);
    }
    return requests;
}

void TestEndToEnd::installsFresh()
{
    const Run run = runHost("install", "b");
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.last("result")["outcome"].toString(), "installed");
    QCOMPARE(filesUnder(game()), version(3));
    QVERIFY(QFileInfo(m_case->path() + "/app/config.ini").isFile());
    QCOMPARE(packageRequests(), QStringList { "/b/full/1.0.0.3/full_1.0.0.3.7z" });
}

void TestEndToEnd::updatesThroughChain()
{
    QCOMPARE(runHost("install", "a").exitCode, 0);
    QCOMPARE(filesUnder(game()), version(1));
    m_nginx->clearAccessLog();
    const QByteArray settings = TestFiles::readFile(m_case->path() + "/app/config.ini");
    const Run plan = runHost("update", "b", { "--dry-run" });
    QCOMPARE(plan.exitCode, 0);
    QCOMPARE(plan.last("plan")["steps"].toArray().size(), 2);
    QCOMPARE(TestFiles::readFile(m_case->path() + "/app/config.ini"), settings);
    QVERIFY(packageRequests().isEmpty());
    const Run run = runHost("update", "b");
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.last("result")["outcome"].toString(), "updated");
    QCOMPARE(filesUnder(game()), version(3));
    QCOMPARE(packageRequests(),
        QStringList({ "/b/patch/1.0.0.2/1.0.0.1_1.0.0.2.7z", "/b/patch/1.0.0.3/1.0.0.2_1.0.0.3.7z" }));
}

void TestEndToEnd::endsWithoutChange()
{
    QCOMPARE(runHost("install", "b").exitCode, 0);
    m_nginx->clearAccessLog();
    const Run upToDate = runHost("update", "b");
    QCOMPARE(upToDate.exitCode, 0);
    QCOMPARE(upToDate.last("result")["outcome"].toString(), "up-to-date");
    const Run newer = runHost("update", "a");
    QCOMPARE(newer.exitCode, 0);
    QCOMPARE(newer.last("result")["outcome"].toString(), "installed-newer");
    const Run reinstall = runHost("install", "b");
    QCOMPARE(reinstall.exitCode, 1); // over an installed game only with --yes
    QVERIFY(packageRequests().isEmpty());
    QCOMPARE(filesUnder(game()), version(3));
}

void TestEndToEnd::resumesAfterKill()
{
    auto host = startHost("install", "b", { "--limit", "100" });
    const QString cache = m_case->path() + "/install/MorvantixCache";
    QVERIFY(QTest::qWaitFor(
        [&] {
            const FileSet partial = filesUnder(cache);
            return !partial.isEmpty() && partial.first().size() > 200000;
        },
        20000));
    host->kill();
    host->waitForFinished();

    const Run run = runHost("install", "b");
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(filesUnder(game()), version(3));
    const QStringList log = m_nginx->accessLog().filter(".7z");
    QCOMPARE(log.size(), 2);
    // The second run asked for the rest only.
    QVERIFY2(log.last().contains(" 206 bytes=") && !log.last().endsWith("bytes=0-"), qPrintable(log.last()));
}

void TestEndToEnd::fetchesCorruptPackageAgain()
{
    const QString package = m_case->path() + "/install/MorvantixCache/full_1.0.0.3.7z";
    const qint64 size = QFileInfo(m_work.path() + "/www/b/full/1.0.0.3/full_1.0.0.3.7z").size();
    QVERIFY(TestFiles::writeFile(package, QByteArray(int(size), 'x'))); // complete in size, wrong inside
    const Run run = runHost("install", "b");
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(filesUnder(game()), version(3));
    QCOMPARE(packageRequests().size(), 1);
}

void TestEndToEnd::repairsDamagedFileOnly()
{
    QCOMPARE(runHost("install", "b").exitCode, 0);
    QVERIFY(TestFiles::writeFile(game() + "/文件/说明.txt", "damaged"));
    QCOMPARE(runHost("verify", "b").exitCode, 3);
    m_nginx->clearAccessLog();
    const Run run = runHost("repair", "b");
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.last("result")["repaired"].toVariant().toStringList(), QStringList { "文件/说明.txt" });
    QCOMPARE(filesUnder(game()), version(3));
    QCOMPARE(packageRequests(), QStringList { "/b/1.0.0.3/files/文件/说明.txt" });
    QCOMPARE(runHost("verify", "b").exitCode, 0);
}

void TestEndToEnd::stopsAtFileInUse()
{
    QCOMPARE(runHost("install", "a").exitCode, 0);
    QFile held(game() + "/Paks/game.pak");
    QVERIFY(held.open(QIODevice::ReadOnly));
    const Run run = runHost("update", "b");
    QCOMPARE(run.exitCode, 5);
    QCOMPARE(run.last("error")["stage"].toString(), "check");
    QVERIFY(run.last("error")["path"].toString().endsWith("MorvantixGame/Paks/game.pak"));
    held.close();
    QCOMPARE(filesUnder(game()), version(1));
}

void TestEndToEnd::refusesClimbingEntry_data()
{
    QTest::addColumn<QString>("document");
    QTest::addColumn<QString>("line");
    QTest::newRow("verify manifest") << "1.0.0.3/manifest.txt"
                                     << "../../escape.txt|d41d8cd98f00b204e9800998ecf8427e|0";
    QTest::newRow("guide manifest")
        << "manifest.txt"
        << "--download_version--\n1.0.0.2->1.0.0.3|../escape.7z|d41d8cd98f00b204e9800998ecf8427e|1";
}

void TestEndToEnd::refusesClimbingEntry()
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
    const Run run = runHost("install", "bad");
    QCOMPARE(run.exitCode, 7);
    QVERIFY(!QFile::exists(game()));
    QVERIFY(packageRequests().isEmpty());
}

CORE_TEST_CLASS(TestEndToEnd)
#include "tst_endtoend.moc"
