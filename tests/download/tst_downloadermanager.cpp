#include "DownloadTestSupport.h"
#include "HttpTestServer.h"
#include "TestRegistry.h"

#include "core/ComponentAccessors.h"
#include "core/DownloadComponent.h"
#include "core/Timing.h"
#include "download/DownloadTexts.h"
#include "files/QFileUtils.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace DownloadTest;
using Morvantix::DownloadFileInfo;
using Morvantix::ErrorCode;
using Morvantix::GetDownloadComponent;

namespace {
// Every timed constant of the manager runs ten times faster here: the stall time-out is 2 s.
constexpr int kTimeDivisor = 10;

HttpTestServer::Behaviour trickle(qint64 chunkSize, int delayMs)
{
    HttpTestServer::Behaviour behaviour;
    behaviour.chunkSize = chunkSize;
    behaviour.chunkDelayMs = delayMs;
    return behaviour;
}
} // namespace

// The download manager against a real server: scheduling, resumption, restarts, failures and the
// one report each run ends with. Every completed file must equal the server's, byte for byte.
class TestDownloaderManager : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void emptyListCompletesAtOnce();
    void sixFilesRunFiveAtATime();
    void localFilesDecideWhatIsRequested_data();
    void localFilesDecideWhatIsRequested();
    void pauseKeepsPartialFilesAndResumeAppends();
    void cutAfterDataRestartsTheJob_data();
    void cutAfterDataRestartsTheJob();
    void failureBeforeAnyDataEndsTheJob_data();
    void failureBeforeAnyDataEndsTheJob();
    void restartsRunOutWithoutNewData();
    void stallFailsWithTimeout();
    void failedWriteReportsFullDisk();
    void zeroLimitHoldsUntilLifted();
    void progressFollowsTheBytesOnDisk();

private:
    QString addFile(const QString& name, const QByteArray& data);
    QString addFile(const QString& name, const QByteArray& data, const HttpTestServer::Behaviour& behaviour);
    QByteArray rangeOf(const QString& name, int request) const;
    void verifyCompleted() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<HttpTestServer> m_server;
    std::unique_ptr<Reports> m_reports;
    QMap<QString, QByteArray> m_files; // local path -> server data
    DownloaderManager* m_manager = nullptr;
};

void TestDownloaderManager::initTestCase()
{
    Morvantix::Timing::setTimeDivisorForTesting(kTimeDivisor);
}

void TestDownloaderManager::cleanupTestCase()
{
    Morvantix::Timing::setTimeDivisorForTesting(1);
}

void TestDownloaderManager::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<HttpTestServer>();
    m_reports = std::make_unique<Reports>();
    m_files.clear();
    m_manager = DownloaderManager::GetInstance();
    context()->m_downloadFileList.clear();
    QDir(m_dir->path()).mkdir(QStringLiteral("cache"));
}

void TestDownloaderManager::cleanup()
{
    m_reports.reset();
    m_server.reset();
    m_dir.reset();
}

QString TestDownloaderManager::addFile(const QString& name, const QByteArray& data)
{
    return addFile(name, data, HttpTestServer::Behaviour());
}

QString TestDownloaderManager::addFile(
    const QString& name, const QByteArray& data, const HttpTestServer::Behaviour& behaviour)
{
    const QByteArray route = '/' + name.toLatin1();
    m_server->setRoute(route, data, behaviour);
    DownloadFileInfo file;
    file.name = name;
    file.localPath = m_dir->filePath(QStringLiteral("cache/") + name);
    file.size = data.size();
    file.url = m_server->url(QString::fromLatin1(route));
    file.md5 = md5Of(data);
    context()->m_downloadFileList.append(file);
    m_files.insert(file.localPath, data);
    return file.localPath;
}

QByteArray TestDownloaderManager::rangeOf(const QString& name, int request) const
{
    const auto requests = m_server->requestsFor('/' + name.toLatin1());
    return request < requests.size() ? requests.at(request).header("range") : QByteArray("(none)");
}

void TestDownloaderManager::verifyCompleted() const
{
    QTRY_COMPARE_WITH_TIMEOUT(m_reports->endings(), 1, 15000);
    const auto info = m_reports->last();
    QVERIFY(info.bComplete);
    QVERIFY(!info.bError);
    qint64 expected = 0;
    qint64 onDisk = 0;
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        QCOMPARE(QFileUtils::GetFileMD5(it.key()), md5Of(it.value()));
        expected += it.value().size();
        onDisk += sizeOnDisk(it.key());
    }
    QCOMPARE(info.totalBytes, expected);
    QCOMPARE(info.receivedBytes, onDisk);
    QCOMPARE(info.percent, 1.0f);
}

void TestDownloaderManager::emptyListCompletesAtOnce()
{
    GetDownloadComponent()->StartDownload(*context());
    QCOMPARE(m_reports->endings(), 1);
    QVERIFY(m_reports->last().bComplete);
    QCOMPARE(m_reports->last().totalBytes, qint64(0));
}

void TestDownloaderManager::sixFilesRunFiveAtATime()
{
    // The first file is quick, the next four take about a second: the sixth may only start once
    // the first is done, and the list order is the request order.
    QStringList paths;
    paths << addFile(QStringLiteral("f1.bin"), makeData(3000, 11));
    for (int i = 2; i <= 5; ++i)
        paths << addFile(QStringLiteral("f%1.bin").arg(i), makeData(40000, 10 + i), trickle(2000, 50));
    paths << addFile(QStringLiteral("f6.bin"), makeData(5000, 16));

    QVector<qint64> sizesWhenSixthAsked;
    connect(
        m_server.get(), &HttpTestServer::requestReceived, this, [&](const HttpTestServer::Request& request) {
            if (request.path == "/f6.bin") {
                for (const QString& path : qAsConst(paths))
                    sizesWhenSixthAsked.append(sizeOnDisk(path));
            }
        });

    auto component = GetDownloadComponent();
    QVERIFY(component);
    component->StartDownload(*context());
    verifyCompleted();

    QStringList order;
    for (const auto& request : m_server->requests())
        order << QString::fromLatin1(request.path);
    QCOMPARE(order, (QStringList { "/f1.bin", "/f2.bin", "/f3.bin", "/f4.bin", "/f5.bin", "/f6.bin" }));
    QCOMPARE(sizesWhenSixthAsked.size(), 6);
    QCOMPARE(sizesWhenSixthAsked.at(0), qint64(3000));
    for (int i = 1; i <= 4; ++i)
        QVERIFY2(sizesWhenSixthAsked.at(i) < 40000, "a slow file finished before the sixth started");
}

void TestDownloaderManager::localFilesDecideWhatIsRequested_data()
{
    QTest::addColumn<bool>("fresh");
    QTest::addColumn<int>("localSize"); // -1: no local file
    QTest::addColumn<QByteArray>("range"); // empty: the file must not be requested

    QTest::newRow("resume, no local file") << false << -1 << QByteArray("bytes=0-");
    QTest::newRow("resume, partial file") << false << 12345 << QByteArray("bytes=12345-");
    QTest::newRow("resume, complete file") << false << 30000 << QByteArray();
    QTest::newRow("resume, file too long") << false << 30001 << QByteArray("bytes=0-");
    QTest::newRow("fresh start, partial file") << true << 12345 << QByteArray("bytes=0-");
    QTest::newRow("fresh start, complete file") << true << 30000 << QByteArray("bytes=0-");
}

void TestDownloaderManager::localFilesDecideWhatIsRequested()
{
    QFETCH(bool, fresh);
    QFETCH(int, localSize);
    QFETCH(QByteArray, range);
    const QByteArray data = makeData(30000, 21);
    const QString path = addFile(QStringLiteral("game.pak"), data);
    addFile(QStringLiteral("other.pak"), makeData(7000, 22));
    if (localSize >= 0)
        writeFile(path, (data + "trailing garbage").left(localSize));
    const QString stray = m_dir->filePath(QStringLiteral("cache/stray.tmp"));
    writeFile(stray, "left from an earlier job");

    if (fresh)
        m_manager->StartDownload(*context());
    else
        m_manager->ResumeDownload(*context());
    verifyCompleted();

    QCOMPARE(m_server->requestsFor("/game.pak").size(), range.isEmpty() ? 0 : 1);
    if (!range.isEmpty())
        QCOMPARE(rangeOf(QStringLiteral("game.pak"), 0), range);
    QCOMPARE(QFile::exists(stray), !fresh);
}

void TestDownloaderManager::pauseKeepsPartialFilesAndResumeAppends()
{
    const QString a = addFile(QStringLiteral("a.bin"), makeData(120000, 31), trickle(3000, 20));
    const QString b = addFile(QStringLiteral("b.bin"), makeData(90000, 32), trickle(3000, 20));
    m_manager->StartDownload(*context());
    QTRY_VERIFY(sizeOnDisk(a) >= 9000 && sizeOnDisk(b) >= 9000);

    m_manager->PauseDownload(*context());
    const qint64 keptA = sizeOnDisk(a);
    const qint64 keptB = sizeOnDisk(b);
    QVERIFY(keptA < 120000 && keptB < 90000);
    QTest::qWait(300);
    QCOMPARE(sizeOnDisk(a), keptA);
    QCOMPARE(sizeOnDisk(b), keptB);
    QCOMPARE(m_reports->endings(), 0);

    m_server->setRoute("/a.bin", m_files.value(a));
    m_server->setRoute("/b.bin", m_files.value(b));
    m_manager->ResumeDownload(*context());
    verifyCompleted();
    QCOMPARE(rangeOf(QStringLiteral("a.bin"), 1), QByteArray("bytes=") + QByteArray::number(keptA) + '-');
    QCOMPARE(rangeOf(QStringLiteral("b.bin"), 1), QByteArray("bytes=") + QByteArray::number(keptB) + '-');
}

void TestDownloaderManager::cutAfterDataRestartsTheJob_data()
{
    QTest::addColumn<int>("files");
    QTest::addColumn<QVector<int>>("cuts"); // offsets at which the first requests of f1 are cut

    QTest::newRow("one file, one cut") << 1 << QVector<int> { 6000 };
    QTest::newRow("one file, three cuts") << 1 << QVector<int> { 4000, 6000, 6000 };
    QTest::newRow("five files, one of them cut") << 5 << QVector<int> { 8000 };
}

void TestDownloaderManager::cutAfterDataRestartsTheJob()
{
    QFETCH(int, files);
    QFETCH(QVector<int>, cuts);
    for (int i = 1; i <= files; ++i)
        addFile(QStringLiteral("f%1.bin").arg(i), makeData(60000, 40 + i), trickle(2000, 10));
    QVector<HttpTestServer::Behaviour> faults;
    for (int cut : qAsConst(cuts)) {
        HttpTestServer::Behaviour fault = trickle(2000, 10);
        fault.cutAfter = cut;
        faults << fault;
    }
    m_server->setFirstBehaviours("/f1.bin", faults);

    m_manager->StartDownload(*context());
    verifyCompleted();

    // Every restart resumes from what is on disk, which is never more than what was sent.
    const auto requests = m_server->requestsFor("/f1.bin");
    QVERIFY(requests.size() >= cuts.size() + 1);
    QCOMPARE(requests.first().header("range"), QByteArray("bytes=0-"));
    int sent = 0;
    for (int cut : qAsConst(cuts))
        sent += cut;
    QVERIFY(requests.last().header("range").mid(6).chopped(1).toInt() <= sent);
}

void TestDownloaderManager::failureBeforeAnyDataEndsTheJob_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("cutAfter");
    QTest::addColumn<int>("qtError");
    QTest::newRow("cut before the body") << 200 << 0 << int(QNetworkReply::RemoteHostClosedError);
    QTest::newRow("not found") << 404 << -1 << int(QNetworkReply::ContentNotFoundError);
    QTest::newRow("server error") << 500 << -1 << int(QNetworkReply::InternalServerError);
}

void TestDownloaderManager::failureBeforeAnyDataEndsTheJob()
{
    QFETCH(int, status);
    QFETCH(int, cutAfter);
    QFETCH(int, qtError);
    HttpTestServer::Behaviour broken;
    broken.status = status;
    broken.cutAfter = cutAfter;
    const QString path = addFile(QStringLiteral("broken.bin"), makeData(20000, 51), broken);

    m_manager->StartDownload(*context());
    QTRY_COMPARE(m_reports->endings(), 1);
    const auto info = m_reports->last();
    QVERIFY(info.bError);
    QVERIFY(!info.bComplete);
    QCOMPARE(info.errorCode, ErrorCode::NetworkFailed);
    QCOMPARE(info.errorMsg, QStringLiteral("%1 [code:%2]").arg(DownloadTexts::networkFailed()).arg(qtError));

    // An error page is not file data; no restart follows, and nothing else is reported.
    QCOMPARE(sizeOnDisk(path), qint64(0));
    const int requestsAtFailure = m_server->requests().size();
    QTest::qWait(3 * Morvantix::Timing::restartDelayMs());
    QCOMPARE(m_server->requests().size(), requestsAtFailure);
    QCOMPARE(m_reports->endings(), 1);
}

void TestDownloaderManager::restartsRunOutWithoutNewData()
{
    // Data once, then only failures: four restarts, and the fifth failure ends the job.
    HttpTestServer::Behaviour deadServer;
    deadServer.cutAfter = 0;
    HttpTestServer::Behaviour firstRequest = trickle(2000, 10);
    firstRequest.cutAfter = 6000;
    const QString path = addFile(QStringLiteral("f.bin"), makeData(30000, 61), deadServer);
    m_server->setFirstBehaviours("/f.bin", { firstRequest });

    m_manager->StartDownload(*context());
    QTRY_COMPARE_WITH_TIMEOUT(m_reports->endings(), 1, 10000);
    const auto info = m_reports->last();
    QVERIFY(info.bError);
    QCOMPARE(info.errorCode, ErrorCode::NetworkFailed);
    QCOMPARE(info.errorMsg,
        QStringLiteral("%1 [code:%2]")
            .arg(DownloadTexts::networkFailed())
            .arg(int(QNetworkReply::RemoteHostClosedError)));

    const QByteArray resumed = QByteArray("bytes=") + QByteArray::number(sizeOnDisk(path)) + '-';
    int restarts = 0;
    for (const auto& request : m_server->requestsFor("/f.bin"))
        restarts += request.header("range") == resumed ? 1 : 0;
    QVERIFY2(restarts >= 4, qPrintable(QString::number(restarts)));
    QVERIFY(sizeOnDisk(path) > 0);
}

void TestDownloaderManager::stallFailsWithTimeout()
{
    HttpTestServer::Behaviour stall;
    stall.stallAfter = 5000;
    const QString path = addFile(QStringLiteral("f.bin"), makeData(40000, 71), stall);

    m_manager->StartDownload(*context());
    QTRY_COMPARE_WITH_TIMEOUT(m_reports->endings(), 1, 3 * Morvantix::Timing::stallTimeoutMs());
    const auto info = m_reports->last();
    QVERIFY(info.bError);
    QCOMPARE(info.errorCode, ErrorCode::StallTimeout);
    QCOMPARE(info.errorMsg, QStringLiteral("网络请求超时，请检查网络问题"));
    QCOMPARE(sizeOnDisk(path), qint64(5000));

    QTest::qWait(Morvantix::Timing::stallTimeoutMs() + 200);
    QCOMPARE(m_reports->endings(), 1);
}

void TestDownloaderManager::failedWriteReportsFullDisk()
{
    if (!QFile::exists(QStringLiteral("/dev/full")))
        QSKIP("needs a device that is always full");
    const QString path = addFile(QStringLiteral("f.bin"), makeData(50000, 81));
    QVERIFY(QFile::link(QStringLiteral("/dev/full"), path));

    // A resume keeps the folder as it is, and with it the full "disk".
    m_manager->ResumeDownload(*context());
    QTRY_COMPARE(m_reports->endings(), 1);
    const auto info = m_reports->last();
    QVERIFY(info.bError);
    QCOMPARE(info.errorCode, ErrorCode::WriteFailed);
    QCOMPARE(info.errorMsg, QStringLiteral("磁盘空间不足，请清除足够空间后，再进行下载"));
}

void TestDownloaderManager::zeroLimitHoldsUntilLifted()
{
    const QString path = addFile(QStringLiteral("f.bin"), makeData(30000, 91));
    context()->m_bLimitSpeed = true;
    context()->m_updateSetting.limitSpeed = 0;

    m_manager->StartDownload(*context());
    // Longer than the stall time-out: a held transfer is not a stalled one.
    QTest::qWait(Morvantix::Timing::stallTimeoutMs() * 3 / 2);
    QCOMPARE(m_reports->endings(), 0);
    QCOMPARE(sizeOnDisk(path), qint64(0));

    context()->m_bLimitSpeed = false;
    GetDownloadComponent()->SetSpeedLimit();
    verifyCompleted();
}

void TestDownloaderManager::progressFollowsTheBytesOnDisk()
{
    // A limit of 300 KB/s stretches 600 KB over about two seconds, enough for a few samples.
    addFile(QStringLiteral("a.bin"), makeData(300000, 101));
    addFile(QStringLiteral("b.bin"), makeData(314400, 102));
    context()->m_bLimitSpeed = true;
    context()->m_updateSetting.limitSpeed = 300;

    m_manager->StartDownload(*context());
    verifyCompleted();

    qint64 previous = 0;
    bool sawSpeed = false;
    const auto reports = m_reports->all();
    QVERIFY(reports.size() >= 2);
    for (int i = 0; i + 1 < reports.size(); ++i) {
        const auto& info = reports.at(i);
        QVERIFY(!info.bComplete && !info.bError);
        QVERIFY(info.receivedBytes >= previous);
        QVERIFY(info.receivedBytes <= info.totalBytes);
        QCOMPARE(info.percent, float(double(info.receivedBytes) / double(info.totalBytes)));
        previous = info.receivedBytes;
        sawSpeed = sawSpeed || info.speed > 0;
    }
    QVERIFY(sawSpeed);
}

CORE_TEST_CLASS(TestDownloaderManager)
#include "tst_downloadermanager.moc"
