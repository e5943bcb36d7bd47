#include "PlanningTestSupport.h"
#include "TestRegistry.h"

#include "planning/RemoteInfoReader.h"

#include <QtTest>

using namespace Morvantix;

namespace {

// Every field in declaration order, so one comparison covers the whole record.
QStringList describe(const RemoteInfo& info)
{
    QStringList out;
    for (const auto* list :
        { &info.m_activityList, &info.m_announcementList, &info.m_infomationList, &info.m_extraList }) {
        QStringList items;
        for (const NoticeItem& item : *list)
            items << item.title + '/' + item.time + '/' + item.link;
        out << items.join(',');
    }
    out << info.m_activityName << info.m_announcementName << info.m_infomationName << info.m_extraName
        << info.m_bgUrl << info.m_bgMd5 << info.m_hotDot;
    QStringList carousel;
    for (const CarouselItem& item : info.m_carouselList)
        carousel << item.url + '/' + item.link + '/' + item.md5;
    out << carousel.join(',') << QString::number(info.m_bReparing) << info.m_reparingTip << info.m_zmUrl
        << info.m_agreeUrl << info.m_privacyUrl << info.m_kefuUrl << info.m_maintainStart
        << info.m_maintainContent << info.m_maintainLink << QString::number(info.m_carouselTime)
        << QString::number(info.m_bInfoSwitch) << QString::number(info.m_bMovie);
    return out;
}

} // namespace

class TestRemoteInfoReader : public QObject
{
    Q_OBJECT
private slots:
    void readsEveryKey();
    void degradesToDefaults_data();
    void degradesToDefaults();
};

void TestRemoteInfoReader::readsEveryKey()
{
    LogCapture log;
    GameUpdateContext ctx;
    SolveRemoteInfo(QString::fromUtf8(kRemoteInfoDocument), ctx);
    const QStringList expected { "Spring/03-01/a1,Summer//", "Patch/03-02/n1", "Info/03-03/i1",
        "Extra/03-04/e1", "Events", "News", "Notes", "More", "bg.png", "beef", "7", "c.png/c1/cafe", "1",
        "down", "zm", "agree", "privacy", "kefu", "02:00", "upgrade", "m1", "4500", "1", "1" };
    QCOMPARE(describe(ctx.m_remoteInfo), expected);
    QVERIFY(log.contains(QStringLiteral("default: m_bMovie: true")));
}

void TestRemoteInfoReader::degradesToDefaults_data()
{
    QTest::addColumn<QString>("document");
    QTest::addColumn<int>("carouselTime"); // the full document read before leaves 4500
    QTest::addColumn<int>("blankSlides"); // array elements that are not objects still count
    QTest::newRow("not JSON") << "<html>busy</html>" << 4500 << 0;
    QTest::newRow("array, not object") << "[1, 2]" << 4500 << 0;
    QTest::newRow("period missing") << "{}" << 4500 << 0;
    QTest::newRow("period zero") << R"({"carousel_time": 0})" << 4500 << 0;
    QTest::newRow("period as text") << R"({"carousel_time": "3000"})" << 4500 << 0;
    QTest::newRow("period fractional") << R"({"carousel_time": 2.5})" << 4500 << 0;
    QTest::newRow("period set") << R"({"carousel_time": 3000})" << 3000 << 0;
    QTest::newRow("wrong types") << R"({"activity": {"title": "x"}, "extra": "x", "bg": "x", "hot_dot": 5,
        "reparing": "true", "bmovie": 1, "carousel": [7]})"
                                 << 4500 << 1;
}

void TestRemoteInfoReader::degradesToDefaults()
{
    QFETCH(QString, document);
    QFETCH(int, carouselTime);
    QFETCH(int, blankSlides);
    LogCapture log;
    GameUpdateContext ctx;
    SolveRemoteInfo(QString::fromUtf8(kRemoteInfoDocument), ctx);
    SolveRemoteInfo(document, ctx);

    RemoteInfo expected;
    expected.m_carouselTime = carouselTime;
    expected.m_carouselList.resize(blankSlides);
    QCOMPARE(describe(ctx.m_remoteInfo), describe(expected));
}

CORE_TEST_CLASS(TestRemoteInfoReader)
#include "tst_remoteinforeader.moc"
