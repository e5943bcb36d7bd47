#include "DownloadTestSupport.h"
#include "HttpTestServer.h"
#include "TestRegistry.h"

#include "download/DownloadTexts.h"
#include "download/downloader.h"
#include "files/QFileUtils.h"

#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <QtTest>

using namespace DownloadTest;
using Morvantix::ErrorCode;

// One transfer on its own, driven the way the manager's loop drives it: every ReadyToTransfer is
// answered by a read of all that is buffered.
class TestDownloader : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void requestAsksForTheMissingBytes_data();
    void requestAsksForTheMissingBytes();
    void completeFileIsNotRequested();
    void writesNoMoreThanTheFileLacks();
    void shortReplyGivesNoResult();
    void networkErrorIsReported_data();
    void networkErrorIsReported();
    void releaseEndsQuietly();
    void failedWriteIsReported();

private:
    downloader* start(const QString& path, const QString& url, qint64 size);

    QObject* m_owner = nullptr; // of the transfers of one test
    QNetworkAccessManager* m_network = nullptr;
    HttpTestServer* m_server = nullptr;
    QTemporaryDir* m_dir = nullptr;
    qint64 m_total = 0;
};

void TestDownloader::init()
{
    m_owner = new QObject(this);
    m_network = new QNetworkAccessManager(this);
    m_server = new HttpTestServer(this);
    m_dir = new QTemporaryDir;
    m_total = 0;
}

void TestDownloader::cleanup()
{
    delete m_owner;
    delete m_server;
    delete m_network;
    delete m_dir;
}

downloader* TestDownloader::start(const QString& path, const QString& url, qint64 size)
{
    auto* transfer = new downloader(m_owner, m_network, &m_total);
    connect(transfer, &downloader::ReadyToTransfer, transfer,
        [transfer] { transfer->TransferData(transfer->BytesAvailable()); });
    transfer->SetRequest(path, QUrl(url), size);
    return transfer;
}

void TestDownloader::requestAsksForTheMissingBytes_data()
{
    QTest::addColumn<int>("existing");
    QTest::addColumn<bool>("redirected");
    QTest::addColumn<bool>("honourRange");
    QTest::newRow("new file") << 0 << false << true;
    QTest::newRow("partial file") << 7000 << false << true;
    QTest::newRow("partial file behind a redirect") << 7000 << true << true;
    QTest::newRow("partial file, server ignores Range") << 7000 << false << false;
}

void TestDownloader::requestAsksForTheMissingBytes()
{
    QFETCH(int, existing);
    QFETCH(bool, redirected);
    QFETCH(bool, honourRange);
    const QByteArray data = makeData(20000, 1);
    HttpTestServer::Behaviour served;
    served.honourRange = honourRange;
    m_server->setRoute("/file.bin", data, served);
    HttpTestServer::Behaviour redirect;
    redirect.redirectTo = m_server->url(QStringLiteral("/file.bin")).toLatin1();
    m_server->setRoute("/moved.bin", QByteArray(), redirect);
    const QString path = m_dir->filePath(QStringLiteral("file.bin"));
    if (existing > 0)
        writeFile(path, data.left(existing));

    downloader* transfer = start(path, m_server->url(redirected ? "/moved.bin" : "/file.bin"), data.size());
    QSignalSpy results(transfer, &downloader::DownloadResult);
    transfer->ReStartDownload();

    QTRY_COMPARE(results.count(), 1);
    QCOMPARE(results.at(0).at(0).value<ErrorCode>(), ErrorCode::FileFinished);
    QCOMPARE(results.at(0).at(2).toString(), path);
    transfer->Release();
    QCOMPARE(QFileUtils::GetFileMD5(path), md5Of(data));
    QCOMPARE(m_total, qint64(data.size() - existing));

    const auto requests = m_server->requestsFor("/file.bin");
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.at(0).header("range"), QByteArray("bytes=") + QByteArray::number(existing) + '-');
    QCOMPARE(requests.at(0).header("accept-encoding"), QByteArray("identity"));
    QVERIFY(requests.at(0).query.isEmpty());
    QCOMPARE(downloader::s_writingFiles.value(path), 0);
}

void TestDownloader::completeFileIsNotRequested()
{
    const QByteArray data = makeData(5000, 2);
    m_server->setRoute("/file.bin", data);
    const QString path = m_dir->filePath(QStringLiteral("file.bin"));
    writeFile(path, data);

    downloader* transfer = start(path, m_server->url("/file.bin"), data.size());
    QSignalSpy results(transfer, &downloader::DownloadResult);
    transfer->ReStartDownload();

    QCOMPARE(results.count(), 1);
    QCOMPARE(results.at(0).at(0).value<ErrorCode>(), ErrorCode::FileFinished);
    QTest::qWait(100);
    QVERIFY(m_server->requests().isEmpty());
    QCOMPARE(QFileUtils::GetFileMD5(path), md5Of(data));
}

void TestDownloader::writesNoMoreThanTheFileLacks()
{
    // The server's file is longer than the list says: the surplus must not reach the disk.
    const QByteArray data = makeData(9000, 3);
    m_server->setRoute("/file.bin", data);
    const QString path = m_dir->filePath(QStringLiteral("file.bin"));

    downloader* transfer = start(path, m_server->url("/file.bin"), 6000);
    QSignalSpy results(transfer, &downloader::DownloadResult);
    transfer->ReStartDownload();

    QTRY_COMPARE(results.count(), 1);
    QCOMPARE(results.at(0).at(0).value<ErrorCode>(), ErrorCode::FileFinished);
    QVERIFY(transfer->IsComplete());
    transfer->Release();
    QCOMPARE(QFileUtils::GetFileMD5(path), md5Of(data.left(6000)));
    QCOMPARE(m_total, qint64(6000));
}

void TestDownloader::shortReplyGivesNoResult()
{
    const QByteArray data = makeData(3000, 4);
    m_server->setRoute("/file.bin", data);
    const QString path = m_dir->filePath(QStringLiteral("file.bin"));

    downloader* transfer = start(path, m_server->url("/file.bin"), 5000);
    QSignalSpy results(transfer, &downloader::DownloadResult);
    transfer->ReStartDownload();

    QTRY_COMPARE(sizeOnDisk(path), qint64(3000));
    QTest::qWait(200);
    QCOMPARE(results.count(), 0);
    QVERIFY(!transfer->IsComplete());
    transfer->Release();
}

void TestDownloader::networkErrorIsReported_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("cutAfter");
    QTest::addColumn<int>("qtError");
    QTest::newRow("connection cut") << 200 << 4000 << int(QNetworkReply::RemoteHostClosedError);
    QTest::newRow("not found") << 404 << -1 << int(QNetworkReply::ContentNotFoundError);
    QTest::newRow("server error") << 500 << -1 << int(QNetworkReply::InternalServerError);
}

void TestDownloader::networkErrorIsReported()
{
    QFETCH(int, status);
    QFETCH(int, cutAfter);
    QFETCH(int, qtError);
    HttpTestServer::Behaviour behaviour;
    behaviour.status = status;
    behaviour.cutAfter = cutAfter;
    m_server->setRoute("/file.bin", makeData(10000, 5), behaviour);
    const QString path = m_dir->filePath(QStringLiteral("file.bin"));

    downloader* transfer = start(path, m_server->url("/file.bin"), 10000);
    QSignalSpy results(transfer, &downloader::DownloadResult);
    transfer->ReStartDownload();

    QTRY_COMPARE(results.count(), 1);
    QCOMPARE(results.at(0).at(0).value<ErrorCode>(), ErrorCode::NetworkFailed);
    QCOMPARE(results.at(0).at(1).toString(),
        QStringLiteral("%1 [code:%2]").arg(DownloadTexts::networkFailed()).arg(qtError));
    transfer->Release();
    QVERIFY(sizeOnDisk(path) <= 4000);
}

void TestDownloader::releaseEndsQuietly()
{
    HttpTestServer::Behaviour slow;
    slow.chunkSize = 1000;
    slow.chunkDelayMs = 20;
    m_server->setRoute("/file.bin", makeData(100000, 6), slow);
    const QString path = m_dir->filePath(QStringLiteral("file.bin"));

    downloader* transfer = start(path, m_server->url("/file.bin"), 100000);
    QSignalSpy results(transfer, &downloader::DownloadResult);
    transfer->ReStartDownload();
    QCOMPARE(downloader::s_writingFiles.value(path), 1);
    QTRY_VERIFY(sizeOnDisk(path) > 0);

    transfer->Release();
    const qint64 kept = sizeOnDisk(path);
    QTest::qWait(200);
    QCOMPARE(results.count(), 0);
    QCOMPARE(sizeOnDisk(path), kept);
    QCOMPARE(downloader::s_writingFiles.value(path), 0);
}

void TestDownloader::failedWriteIsReported()
{
    if (!QFile::exists(QStringLiteral("/dev/full")))
        QSKIP("needs a device that is always full");
    m_server->setRoute("/file.bin", makeData(50000, 7));
    const QString path = m_dir->filePath(QStringLiteral("file.bin"));
    QVERIFY(QFile::link(QStringLiteral("/dev/full"), path));

    downloader* transfer = start(path, m_server->url("/file.bin"), 50000);
    QSignalSpy results(transfer, &downloader::DownloadResult);
    transfer->ReStartDownload();

    QTRY_VERIFY(!results.isEmpty());
    QCOMPARE(results.at(0).at(0).value<ErrorCode>(), ErrorCode::WriteFailed);
    transfer->Release();
}

CORE_TEST_CLASS(TestDownloader)
#include "tst_downloader.moc"
