#include "HttpTestServer.h"
#include "ScopedTimeDivisor.h"
#include "TestRegistry.h"

#include "core/ErrorCode.h"
#include "download/ContentFetcher.h"

#include <QNetworkAccessManager>
#include <QtTest>

// The one-shot fetches on a network of their own: the pieces of text they decode, and two fetchers
// that know nothing of each other or of the download manager. The time stamp they add is checked on
// the requests the download manager's fetches send.
class TestContentFetcher : public QObject
{
    Q_OBJECT
    const ScopedTimeDivisor m_divisor { 10 };

private slots:
    void decodesOnlyWholeCharacters_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("whole"); // the length that ends on a whole character
        const QByteArray two = QStringLiteral("é").toUtf8(); // 2 bytes
        const QByteArray three = QStringLiteral("维").toUtf8(); // 3 bytes
        const QByteArray four = QString::fromUcs4(U"😀", 1).toUtf8(); // 4 bytes
        QTest::newRow("empty") << QByteArray() << 0;
        QTest::newRow("ascii") << QByteArray("abc") << 3;
        QTest::newRow("two-byte whole") << "a" + two << 3;
        QTest::newRow("two-byte lead only") << "a" + two.left(1) << 1;
        QTest::newRow("three-byte, one of three") << "ab" + three.left(1) << 2;
        QTest::newRow("three-byte, two of three") << "ab" + three.left(2) << 2;
        QTest::newRow("three-byte whole") << "ab" + three << 5;
        QTest::newRow("four-byte, three of four") << four.left(3) << 0;
        QTest::newRow("four-byte whole") << four << 4;
    }

    void decodesOnlyWholeCharacters()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, whole);
        QCOMPARE(ContentFetcher::CompleteUtf8Length(data), whole);
    }

    void fetchersStandAlone()
    {
        HttpTestServer server;
        server.setRoute("/a.txt", "first");
        server.setRoute("/b.txt", "second", { { 404 } });
        QNetworkAccessManager network;
        ContentFetcher one(&network, 0, nullptr);
        ContentFetcher other(&network, 1, nullptr);
        QString text;
        int code = -1;
        one.GetContentByUrl(
            server.url("/a.txt"), [&](const QString& t, int c) { text = t, code = c; }, QString(), true);
        QCOMPARE(code, int(Morvantix::NoError));
        QCOMPARE(text, QStringLiteral("first"));

        // Each fetcher keeps its own retry limit: here two attempts after the first.
        int calls = 0;
        other.GetContentByUrl(
            server.url("/b.txt"), [&](const QString& t, int c) { ++calls, text = t, code = c; }, QString(),
            false);
        QTRY_COMPARE(calls, 1);
        QCOMPARE(code, int(QNetworkReply::ContentNotFoundError));
        QVERIFY(text.isEmpty());
        QCOMPARE(server.requests("/b.txt").size(), 3);
    }
};

CORE_TEST_CLASS(TestContentFetcher)
#include "tst_contentfetcher.moc"
