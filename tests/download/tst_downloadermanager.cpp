#include "CallbackRecorder.h"
#include "HttpTestServer.h"
#include "LogLines.h"
#include "ScopedTimeDivisor.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"
#include "core/DownloadComponent.h"
#include "download/DownloaderManager.h"

#include <QDateTime>
#include <QNetworkReply>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace Morvantix;
using namespace TestFiles;
using Behaviour = HttpTestServer::Behaviour;

namespace {
constexpr qint64 kReadBufferCap = 4 << 20; // what a reply may hold unread without a speed limit
constexpr int kFetchCap = 300000;

GameUpdateContext& context()
{
    return *CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
}

// The most that any running reply of the manager held unread, seen each time one of them grew.
std::shared_ptr<qint64> watchReplyBuffers()
{
    const auto peak = std::make_shared<qint64>(0);
    for (QNetworkReply* reply : DownloaderManager::GetInstance()->findChildren<QNetworkReply*>())
        QObject::connect(reply, &QIODevice::readyRead, [=] { *peak = qMax(*peak, reply->bytesAvailable()); });
    return peak;
}

// How a fetch is made: a text answered later, a text the caller waits for, an image.
constexpr int Later = 0, CallerWaits = 1, Image = 2;

struct Answer
{
    int calls = 0;
    QString content;
    int code = -1;
    void record(const QString& text, int result) { *this = { calls + 1, text, result }; }
};

// Starts a fetch; its answers land in the returned record. cap: the most bytes the text may have.
std::shared_ptr<Answer> fetch(
    const QString& url, int how = Later, const QString& postData = QString(), qint64 cap = -1)
{
    const auto answer = std::make_shared<Answer>();
    const auto text = [answer](const QString& content, int code) { answer->record(content, code); };
    const auto image
        = [answer](const char* data, int size) { answer->record(QString::fromUtf8(data, size), 0); };
    if (how == Image)
        GetDownloadComponent()->GetImageByUrl(url, image);
    else
        GetDownloadComponent()->GetContentByUrl(url, text, postData, how == CallerWaits, cap);
    return answer;
}

} // namespace

// The download manager, reached through its component, against a real server: scheduling,
// resumption, restarts, failures and the one report that ends each run, and the small fetches beside
// them. Whatever happens, a file on disk holds only the server's bytes at their own offsets.
class TestDownloaderManager : public QObject
{
    Q_OBJECT
    // The stall time-out is 2 s, the restart delay 200 ms; a fetch's attempt lasts 500 ms, its pause 100 ms.
    const ScopedTimeDivisor m_divisor { 10 };

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir(m_dir->path()).mkdir("cache"));
        m_server = std::make_unique<HttpTestServer>();
        m_recorder = Recorder([](const DownloadCallbackInfo& info) { return info.bComplete || info.bError; });
        context().m_downloadFileList.clear();
        context().m_updateSetting.cachePath = m_dir->filePath("cache");
        m_component->RegistCallbackFunc(m_recorder.callback());
    }

    void cleanup()
    {
        // The manager outlives the test: leave it stopped, deaf and without a list.
        m_component->PauseDownload(context());
        m_component->RegistCallbackFunc(nullptr);
        context().m_downloadFileList.clear();
        context().m_bLimitSpeed = false;
    }

    // Lists that end before anything is fetched: an empty one completes, and one with an entry
    // outside the cache folder fails without deleting or creating a file anywhere.
    void endsBeforeAnyRequest_data()
    {
        QTest::addColumn<QStringList>("names"); // entries' file names, under the cache folder
        QTest::addColumn<bool>("cacheKnown"); // false: the settings name no cache folder yet
        QTest::newRow("empty list") << QStringList() << true;
        QTest::newRow("the cache itself") << QStringList { "" } << true;
        QTest::newRow("climbs out with backslashes") << QStringList { "..\\..\\x.bin" } << true;
        QTest::newRow("second entry climbs out") << QStringList { "ok.bin", "../out.bin" } << true;
        QTest::newRow("no cache folder") << QStringList { "ok.bin" } << false;
    }

    void endsBeforeAnyRequest()
    {
        QFETCH(QStringList, names);
        QFETCH(bool, cacheKnown);
        for (const QString& name : names)
            addFile(name, patternBytes(3000, 121));
        if (!cacheKnown)
            context().m_updateSetting.cachePath.clear();
        QVERIFY(writeFile(m_dir->filePath("sibling.txt"), "the game"));
        QVERIFY(writeFile(m_dir->filePath("cache/partial.bin"), "kept"));

        m_component->StartDownload(context());
        QCOMPARE(m_recorder.endings(), 1);
        if (names.isEmpty()) {
            verifyCompleted();
        } else {
            QCOMPARE(int(m_recorder.last().errorCode), int(WriteFailed));
            QCOMPARE(
                m_recorder.last().errorMsg, QStringLiteral("下载文件的保存位置不在缓存目录内，已停止下载"));
        }
        QVERIFY(m_server->requests().isEmpty());
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
            QStringList({ "cache", "sibling.txt" }));
        QCOMPARE(QDir(m_dir->filePath("cache")).entryList(QDir::Files), QStringList { "partial.bin" });
    }

    // Each file found complete on disk reports inside its own start. However many there are, the
    // job's one report must come from a shallow stack: a Windows main thread has 1 MiB in all.
    void resumeOfThousandsOfCompleteFiles()
    {
        constexpr int kFiles = 3000;
        for (int i = 0; i < kFiles; ++i)
            QVERIFY(writeFile(addFile(QStringLiteral("f%1.bin").arg(i), "done"), "done"));
        const char top = 0;
        qint64 stackUsed = -1;
        m_component->RegistCallbackFunc([&](DownloadCallbackInfo& info) {
            const char here = 0;
            if (info.bComplete || info.bError)
                stackUsed = qAbs(qint64(quintptr(&top)) - qint64(quintptr(&here)));
            m_recorder.callback()(info);
        });
        m_component->ResumeDownload(context());
        verifyCompleted();
        QVERIFY2(stackUsed >= 0 && stackUsed < 128 * 1024, QByteArray::number(stackUsed));
        QVERIFY(m_server->requests().isEmpty());
    }

    void fiveAtATimeAndResumedWherePaused()
    {
        // The first file is quick and the next four take a second or more: the sixth may only start
        // once the first is done, and while the other four still run.
        QStringList paths { addFile("f1.bin", patternBytes(3000, 1)) };
        for (int i = 2; i <= 5; ++i)
            paths << addFile(QStringLiteral("f%1.bin").arg(i), patternBytes(40000, i), { trickle(2000, 50) });
        addFile("f6.bin", patternBytes(5000, 6));
        const auto sizes = [&] {
            QVector<qint64> all;
            for (const QString& path : paths)
                all << QFileInfo(path).size();
            return all;
        };
        QVector<qint64> whenSixthAsked;
        connect(
            m_server.get(), &HttpTestServer::requestReceived, this, [&](const HttpTestServer::Request& r) {
                if (r.path == "/f6.bin" && whenSixthAsked.isEmpty())
                    whenSixthAsked = sizes();
            });
        m_component->StartDownload(context());
        QTRY_VERIFY(std::all_of(
            paths.cbegin() + 1, paths.cend(), [](const QString& p) { return QFileInfo(p).size() >= 6000; }));

        // Paused, the partial files stay as they are; resumed, each goes on from its own end.
        m_component->PauseDownload(context());
        const QVector<qint64> kept = sizes();
        QTest::qWait(300);
        QCOMPARE(sizes(), kept);
        QCOMPARE(m_recorder.endings(), 0);
        m_component->ResumeDownload(context());
        verifyCompleted();
        QCOMPARE(whenSixthAsked.value(0), qint64(3000));
        for (int i = 1; i <= 4; ++i) {
            QVERIFY2(whenSixthAsked.value(i) < 40000, "a slow file was done before the sixth started");
            const auto requests = m_server->requests('/' + QFileInfo(paths.at(i)).fileName().toLatin1());
            QCOMPARE(requests.size(), 2);
            QCOMPARE(requests.at(1).header("range"), "bytes=" + QByteArray::number(kept.at(i)) + '-');
        }
    }

    void localFilesDecideWhatIsRequested_data()
    {
        QTest::addColumn<bool>("fresh");
        QTest::addColumn<int>("localSize"); // -1: no local file
        QTest::addColumn<int>("copy"); // its validator: 0 none, 1 the server's, 2 an older copy's
        QTest::addColumn<QString>("served"); // "", "ignore range", "ignore if-range", "redirect", "longer"
        QTest::addColumn<int>("offset"); // asked for with "Range"; -1: the file must not be requested
        QTest::addColumn<int>("limitKb"); // 0: no speed limit

        QTest::newRow("resume, no local file") << false << -1 << 0 << "" << 0 << 0;
        QTest::newRow("resume, partial file") << false << 12345 << 1 << "" << 12345 << 0;
        QTest::newRow("resume, complete file") << false << 30000 << 0 << "" << -1 << 0;
        QTest::newRow("resume, file too long") << false << 30001 << 0 << "" << 0 << 0;
        QTest::newRow("fresh start, partial file") << true << 12345 << 1 << "" << 0 << 0;
        // The server's copy is not the one the partial came from: the whole new file, not a splice.
        QTest::newRow("server's copy changed") << false << 12345 << 2 << "" << 12345 << 0;
        // Honouring Range but not If-Range, the server sends the new copy's tail: asked again whole.
        QTest::newRow("server ignores If-Range") << false << 12345 << 2 << "ignore if-range" << 12345 << 0;
        QTest::newRow("server ignores Range") << false << 12345 << 1 << "ignore range" << 12345 << 0;
        QTest::newRow("behind a redirect") << false << 12345 << 1 << "redirect" << 12345 << 0;
        QTest::newRow("server's file longer") << false << 12345 << 1 << "longer" << 12345 << 0;
        // Under a limit the reply buffers less than the offset it must drop: the drop cannot wait for
        // the transfer budget.
        QTest::newRow("server ignores Range, limited")
            << false << 900000 << 1 << "ignore range" << 900000 << 100;
    }

    void localFilesDecideWhatIsRequested()
    {
        QFETCH(bool, fresh);
        QFETCH(int, localSize);
        QFETCH(int, copy);
        QFETCH(QString, served);
        QFETCH(int, offset);
        QFETCH(int, limitKb);
        context().m_bLimitSpeed = limitKb > 0;
        context().m_updateSetting.limitSpeed = limitKb;
        // A limited row needs an offset well above the four seconds of data the reply may buffer.
        const QByteArray data = patternBytes(limitKb > 0 ? 1000000 : 30000, 21);
        const QString path = addFile("game.pak", data);
        addFile("other.pak", patternBytes(7000, 22));
        Behaviour behaviour;
        behaviour.honourRange = served != "ignore range";
        behaviour.honourIfRange = served != "ignore if-range";
        const QByteArray body = served == "longer" ? data + "surplus" : data;
        m_server->setRoute("/game.pak", body, { behaviour });
        if (served == "redirect") {
            behaviour.redirectTo = m_server->url("/game.pak").toLatin1();
            m_server->setRoute("/moved.pak", QByteArray(), { behaviour });
            context().m_downloadFileList.first().url = m_server->url("/moved.pak");
        }
        const QByteArray older = patternBytes(data.size(), 23);
        const QByteArray validator = HttpTestServer::etagOf(copy == 2 ? older : body);
        if (localSize >= 0)
            QVERIFY(writeFile(path, ((copy == 2 ? older : data) + "trailing garbage").left(localSize)));
        if (copy > 0)
            QVERIFY(writeFile(path + ".validator", validator));
        const QString stray = m_dir->filePath("cache/stray.tmp");
        QVERIFY(writeFile(stray, "left from an earlier job"));

        if (fresh)
            m_component->StartDownload(context());
        else
            m_component->ResumeDownload(context());
        verifyCompleted();
        const auto requests = m_server->requests("/game.pak");
        const bool askedAgain = served == "ignore if-range";
        QCOMPARE(requests.size(), offset < 0 ? 0 : askedAgain ? 2 : 1);
        if (askedAgain)
            QCOMPARE(requests.at(1).header("range"), QByteArray("bytes=0-"));
        if (offset >= 0) {
            QCOMPARE(requests.at(0).header("range"), "bytes=" + QByteArray::number(offset) + '-');
            QCOMPARE(requests.at(0).header("if-range"), copy > 0 && !fresh ? validator : QByteArray());
        }
        QCOMPARE(QFile::exists(stray), !fresh);
        QVERIFY(!QFile::exists(path + ".validator"));
    }

    void faultEndsInOneReport_data()
    {
        QTest::addColumn<QVector<Behaviour>>("behaviours"); // of f.bin's requests, the last one repeating
        QTest::addColumn<int>("served"); // bytes of the 60000 the server has
        QTest::addColumn<int>("others"); // healthy files in the same job
        QTest::addColumn<int>("requests"); // of f.bin, until and after the report
        QTest::addColumn<int>("code"); // 0: the job completes
        QTest::addColumn<QString>("message");
        const auto row = [](const char* name, const QVector<Behaviour>& faults, int requests, int code = 0,
                             const QString& message = QString(), int served = 60000, int others = 0) {
            QTest::newRow(name) << faults << served << others << requests << code << message;
        };
        const auto cutAt = [](qint64 bytes) { return trickle(2000, 10, bytes); };
        const Behaviour slow = trickle(2000, 10);
        const QString failed = QStringLiteral("下载失败，请检查网络 [code:%1]");
        const QString closed = failed.arg(int(QNetworkReply::RemoteHostClosedError));
        const Behaviour stall { 200, false, 0, 0, -1, 5000 };

        // Data had flowed: every transfer restarts from what is on disk.
        row("four cuts after data", { cutAt(4000), cutAt(6000), cutAt(6000), cutAt(2000), slow }, 5);
        row("cut after data, four others", { cutAt(8000), slow }, 2, 0, "", 60000, 4);
        // The last bytes and the cut reach the client together.
        row("burst, then cut", { trickle(0, 0, 6000), slow }, 2);
        row("restarts run out", { cutAt(6000), cutAt(0) }, 5, NetworkFailed, closed);
        // Bytes sent again before the resume offset are no progress.
        row("Range ignored, cut before the offset",
            { cutAt(6000), { 200, false, 2000, 10, 4000, -1, false } }, 5, NetworkFailed, closed);
        // A clean end short of the file is a cut connection, not a stall.
        row("short file", { {} }, 5, NetworkFailed, closed, 40000);
        // Nothing had flowed: the server is at fault and retrying will not help.
        row("cut before any data", { cutAt(0) }, 1, NetworkFailed, closed);
        row("error page", { { 404 } }, 1, NetworkFailed,
            failed.arg(int(QNetworkReply::ContentNotFoundError)));
        row("stall", { stall }, 1, StallTimeout, QStringLiteral("网络请求超时，请检查网络问题"));
        row("full disk", { {} }, 1, WriteFailed,
            QStringLiteral("磁盘空间不足，请清除足够空间后，再进行下载"));
    }

    void faultEndsInOneReport()
    {
        QFETCH(QVector<Behaviour>, behaviours);
        QFETCH(int, served);
        QFETCH(int, others);
        QFETCH(int, requests);
        QFETCH(int, code);
        QFETCH(QString, message);
        const LogLines log;
        const QByteArray data = patternBytes(60000, 51);
        const QString path = addFile("f.bin", data);
        m_server->setRoute("/f.bin", data.left(served), behaviours);
        for (int i = 1; i <= others; ++i)
            addFile(QStringLiteral("g%1.bin").arg(i), patternBytes(60000, 60 + i), { trickle(2000, 10) });
        if (code == WriteFailed) {
            if (!QFile::exists("/dev/full"))
                QSKIP("needs a device that is always full");
            QVERIFY(QFile::link("/dev/full", path));
            m_component->ResumeDownload(context()); // a fresh start would wipe the "disk" away
        } else {
            m_component->StartDownload(context());
        }

        if (code == NoError) {
            verifyCompleted();
        } else {
            QVERIFY(m_recorder.waitForEnd(3 * Timing::stallTimeoutMs()));
            const DownloadCallbackInfo info = m_recorder.last();
            QVERIFY(info.bError && !info.bComplete);
            QCOMPARE(int(info.errorCode), code);
            QCOMPARE(info.errorMsg, message);
            if (code != WriteFailed) // what was kept is the server's own head: no error page, nothing twice
                QCOMPARE(readFile(path), data.left(readFile(path).size()));
        }
        QTest::qWait(2 * Timing::restartDelayMs()); // a restart too many would have asked again by now
        QCOMPARE(m_recorder.endings(), 1);
        // The manager's own requests, one per start of the file. The server may see more: a cut right
        // behind the headers can reach the network layer before the headers do (under Wine it does at
        // times), and the layer then sends the same request again by itself, twice at most.
        const QString started = "we start download " + path;
        QCOMPARE(log.all().filter(started).size(), requests);
        QVERIFY(m_server->requests("/f.bin").size() >= requests);
    }

    // A cut after data lets every transfer go and makes a restart due; what the caller does in that
    // moment decides whether, and how often, the list is asked for again.
    void dueRestart_data()
    {
        QTest::addColumn<QString>("action"); // taken as soon as the restart is due
        QTest::addColumn<int>("requests");
        QTest::addColumn<bool>("completes");
        QTest::newRow("none: the restart resumes") << "" << 2 << true;
        QTest::newRow("pause cancels it") << "pause" << 1 << false;
        QTest::newRow("resume is the restart, once") << "resume" << 2 << true;
        QTest::newRow("a fresh start waits for it") << "start" << 2 << true;
    }

    void dueRestart()
    {
        QFETCH(QString, action);
        QFETCH(int, requests);
        QFETCH(bool, completes);
        const QString path = addFile("f.bin", patternBytes(60000, 71), { trickle(2000, 10, 6000), {} });
        m_component->StartDownload(context());
        QNetworkReply* const reply = DownloaderManager::GetInstance()->findChild<QNetworkReply*>();
        QVERIFY(reply && reply->url().path() == "/f.bin");
        // Connected after the transfer's own handler, so it runs once the manager has seen the cut.
        connect(reply, &QNetworkReply::finished, this, [&] {
            if (action == "pause")
                m_component->PauseDownload(context());
            else if (action == "resume")
                m_component->ResumeDownload(context());
            else if (action == "start")
                m_component->StartDownload(context());
        });
        if (completes)
            verifyCompleted();
        else
            QTRY_COMPARE(QFileInfo(path).size(), qint64(6000));
        QTest::qWait(3 * Timing::restartDelayMs()); // a restart too many would have asked by now
        QCOMPARE(m_recorder.endings(), completes ? 1 : 0);
        const auto asked = m_server->requests("/f.bin");
        QCOMPARE(asked.size(), requests);
        if (requests > 1)
            QCOMPARE(asked.last().header("range"), QByteArray("bytes=6000-"));
    }

    void fetchAnswersOnce_data()
    {
        QTest::addColumn<QString>("query"); // the caller's own, which the time stamp must follow
        QTest::addColumn<int>("how");
        QTest::addColumn<QString>("postData");
        QTest::addColumn<QVector<Behaviour>>("attempts"); // the server's behaviour per request
        QTest::addColumn<int>("code"); // -1: no answer at all
        QTest::addColumn<int>("requests");
        QTest::addColumn<int>("size"); // 0: a short notice; else that many bytes against a cap of 300000
        const auto row = [](const char* name, const char* query, int how, const QVector<Behaviour>& attempts,
                             int code, int requests, const QString& postData = QString(), int size = 0) {
            QTest::newRow(name) << QString(query) << how << postData << attempts << code << requests << size;
        };
        // One byte at a time: every three-byte character arrives in pieces.
        const Behaviour pieces { 200, false, 1, 2 };
        const Behaviour silent { 200, true };
        row("no query", "", Later, { pieces }, 0, 1);
        row("with a query, caller waits", "a=1", CallerWaits, { pieces }, 0, 1);
        row("percent-encoded query", "dir=a%2Fb", Later, { pieces }, 0, 1);
        row("with a body", "", Later, { pieces }, 0, 1, QStringLiteral("channel=IOS&名字=值"));
        row("three failures, then the text", "", Later, { { 503 }, silent, { 503 }, pieces }, 0, 4);
        // Each attempt's reply is dropped unanswered, and a dropped reply may never say "finished".
        row("never answers", "", Later, { silent }, ContentTimeout, 5);
        row("not found", "", Later, { { 404 } }, QNetworkReply::ContentNotFoundError, 5);
        // An image is fetched once, and an error page is never handed over as one.
        row("image", "", Image, { pieces }, 0, 1);
        row("image not found", "", Image, { { 404 } }, -1, 1);
        // In pieces, as a document far larger than its cap would arrive; one too large is asked once.
        const Behaviour large { 200, false, 65536, 1 };
        row("at the cap", "", Later, { large }, 0, 1, QString(), kFetchCap);
        row("one byte over the cap", "", Later, { large }, ContentTooLarge, 1, QString(), kFetchCap + 1);
        row("far over the cap", "", Later, { large }, ContentTooLarge, 1, QString(), 20 * kFetchCap);
    }

    void fetchAnswersOnce()
    {
        QFETCH(QString, query);
        QFETCH(int, how);
        QFETCH(QString, postData);
        QFETCH(QVector<Behaviour>, attempts);
        QFETCH(int, code);
        QFETCH(int, requests);
        QFETCH(int, size);
        const QString text = size > 0 ? QString(size, 'd') : QStringLiteral("维护公告：停机");
        m_server->setRoute("/notice.txt", text.toUtf8(), attempts);
        m_server->setRoute("/fast.txt", "fast");
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        // Another fetch at the same time gets its own text, whichever ends first.
        const auto fast = fetch(m_server->url("/fast.txt"));
        const auto answer = fetch(m_server->url("/notice.txt" + (query.isEmpty() ? "" : '?' + query)), how,
            postData, size > 0 ? kFetchCap : -1);
        if (how == CallerWaits)
            QCOMPARE(answer->calls, 1);
        // At most five attempts of 500 ms with 100 ms between them.
        QTRY_VERIFY_WITH_TIMEOUT(
            answer->calls > 0 || (code < 0 && !m_server->requests("/notice.txt").isEmpty()), 6000);
        // Long enough for one attempt too many to start after its pause, or a late answer to come.
        QTest::qWait(3 * Timing::fetchRetryPauseMs());
        QCOMPARE(answer->calls, code < 0 ? 0 : 1);
        QCOMPARE(answer->code, code);
        QCOMPARE(answer->content, code == 0 ? text : QString());
        QCOMPARE(fast->calls, 1);
        QCOMPARE(fast->content, QStringLiteral("fast"));
        QCOMPARE(m_server->requests("/notice.txt").size(), requests);
        for (const auto& request : m_server->requests("/notice.txt")) {
            QCOMPARE(request.method, postData.isEmpty() ? QByteArray("GET") : QByteArray("POST"));
            QCOMPARE(request.body, postData.toUtf8());
            const QString head = query.isEmpty() ? "timestamp=" : query + "&timestamp=";
            QVERIFY2(request.query.startsWith(head.toLatin1()), request.query.constData());
            const qint64 late = request.query.mid(head.size()).toLongLong() - before; // in seconds
            QVERIFY2(late >= 0 && late <= 5, request.query.constData());
        }
    }

    void speedLimitHoldsThenPaces()
    {
        // Far larger than the sockets' kernel buffers: a file whose rest fits in them is read to its
        // end by the network layer, whatever the read buffer says, and would arrive whole while held.
        const QString a = addFile("a.bin", patternBytes(32 << 20, 101));
        addFile("b.bin", patternBytes(314400, 102));
        context().m_bLimitSpeed = true;
        context().m_updateSetting.limitSpeed = 0;
        m_component->StartDownload(context());
        const auto peak = watchReplyBuffers();
        // Longer than the stall time-out: a held transfer is not a stalled one. Nor does it keep the
        // whole file in memory while nothing is written.
        QTest::qWait(Timing::stallTimeoutMs() * 3 / 2);
        QCOMPARE(m_recorder.endings(), 0);
        QCOMPARE(QFileInfo(a).size(), qint64(0));
        QVERIFY2(*peak > 0 && *peak <= kReadBufferCap, QByteArray::number(*peak));

        // 16000 KB/s stretches 33.9 MB over about two seconds: a few samples. A slow machine only
        // makes it longer.
        QElapsedTimer paced;
        paced.start();
        context().m_updateSetting.limitSpeed = 16000;
        m_component->SetSpeedLimit();
        verifyCompleted();
        QVERIFY2(paced.elapsed() >= 1500, QByteArray::number(paced.elapsed()));
        qint64 previous = 0;
        bool sawSpeed = false;
        for (const DownloadCallbackInfo& info : m_recorder.progressReports()) {
            QVERIFY(info.receivedBytes >= previous && info.receivedBytes <= info.totalBytes);
            QCOMPARE(info.percent, float(double(info.receivedBytes) / double(info.totalBytes)));
            previous = info.receivedBytes;
            sawSpeed = sawSpeed || info.speed > 0;
        }
        QVERIFY(sawSpeed);
    }

    void busyLoopLeavesReplyBuffersCapped()
    {
        addFile("big.bin", patternBytes(32 << 20, 111));
        // The server sends from a thread of its own, so it goes on while this thread is held busy.
        QThread serverThread;
        m_server->moveToThread(&serverThread);
        serverThread.start();
        const auto bringBack = qScopeGuard([&] {
            QMetaObject::invokeMethod(
                m_server.get(), [&] { m_server->moveToThread(thread()); }, Qt::BlockingQueuedConnection);
            serverThread.quit();
            serverThread.wait();
        });
        m_component->StartDownload(context());
        const auto peak = watchReplyBuffers();
        // Each pass waits long enough for the network thread to take in far more than the cap.
        QTimer busy;
        connect(&busy, &QTimer::timeout, [] { QThread::msleep(40); });
        busy.start(5);
        QVERIFY(m_recorder.waitForEnd(15000));
        QVERIFY(m_recorder.last().bComplete);
        // When the response ends, the network layer hands over the one read it still holds whatever
        // the cap, and that read is capped as well: twice the cap at most, never the file.
        QVERIFY2(*peak > 0 && *peak <= 2 * kReadBufferCap, QByteArray::number(*peak));
    }

private:
    using Recorder = CallbackRecorder<DownloadCallbackInfo>;

    static Behaviour trickle(qint64 chunkSize, int delayMs, qint64 cutAfter = -1)
    {
        return { 200, false, chunkSize, delayMs, cutAfter };
    }

    QString addFile(
        const QString& name, const QByteArray& data, const QVector<Behaviour>& behaviours = { {} })
    {
        m_server->setRoute('/' + name.toLatin1(), data, behaviours);
        DownloadFileInfo file { name, m_dir->filePath("cache/" + name), data.size(),
            m_server->url('/' + name), md5Hex(data) };
        context().m_downloadFileList.append(file);
        return file.localPath;
    }

    void verifyCompleted()
    {
        QVERIFY(m_recorder.waitForEnd(15000));
        QCOMPARE(m_recorder.endings(), 1);
        const DownloadCallbackInfo& info = m_recorder.last();
        QVERIFY(info.bComplete && !info.bError);
        qint64 expected = 0;
        for (const DownloadFileInfo& file : context().m_downloadFileList) {
            QCOMPARE(md5Hex(readFile(file.localPath)), file.md5);
            expected += file.size;
        }
        QCOMPARE(info.receivedBytes, expected);
        QCOMPARE(info.percent, 1.0f);
        // Resume offsets count bytes of the file, which a compressed answer would not be.
        for (const auto& request : m_server->requests())
            QCOMPARE(request.header("accept-encoding"), QByteArray("identity"));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<HttpTestServer> m_server;
    const std::shared_ptr<DownloadComponent> m_component = GetDownloadComponent();
    Recorder m_recorder;
};

CORE_TEST_CLASS(TestDownloaderManager)
#include "tst_downloadermanager.moc"
