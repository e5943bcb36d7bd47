#include "PlanningTestSupport.h"
#include "TestRegistry.h"

#include "planning/GuideManifestReader.h"
#include "planning/GuideManifestSolver.h"
#include "planning/RemoteInfoReader.h"
#include "planning/VersionUtil.h"

#include <QMap>
#include <QRandomGenerator>
#include <QtTest>

using namespace Morvantix;

namespace {

Version parsed(const QString& text)
{
    Version version;
    GetVersionByString(text, version);
    return version;
}

// Every field in declaration order, so that one comparison covers the whole record.
QStringList describe(const RemoteInfo& info)
{
    QStringList out;
    for (const auto* list :
        { &info.m_activityList, &info.m_announcementList, &info.m_infomationList, &info.m_extraList })
        for (const NoticeItem& item : *list)
            out << item.title + '/' + item.time + '/' + item.link;
    for (const CarouselItem& item : info.m_carouselList)
        out << item.url + '/' + item.link + '/' + item.md5;
    return out << info.m_activityName << info.m_announcementName << info.m_infomationName << info.m_extraName
               << info.m_bgUrl << info.m_bgMd5 << info.m_hotDot << QString::number(info.m_bReparing)
               << info.m_reparingTip << info.m_zmUrl << info.m_agreeUrl << info.m_privacyUrl << info.m_kefuUrl
               << info.m_maintainStart << info.m_maintainContent << info.m_maintainLink
               << QString::number(info.m_carouselTime) << QString::number(info.m_bInfoSwitch)
               << QString::number(info.m_bMovie);
}

// Insertions of pieces that mean something to one of the readers, deletions, repeats of a stretch
// and stray characters, so that mutations reach the readers' odd corners.
QString mutated(QString text, QRandomGenerator& random)
{
    static const QStringList pieces { "->", "|", "\n", "--last_version--", "--download_version--", ".", "-1",
        "\"", "18446744073709551616", "{", "}", "[", ":", "null", "1e400", "0.256.0.0" };
    for (int edits = random.bounded(1, 6); edits > 0; --edits) {
        const int at = random.bounded(text.size() + 1);
        const int kind = random.bounded(4);
        if (kind == 0)
            text.insert(at, pieces.at(random.bounded(pieces.size())));
        else if (kind == 1)
            text.remove(at, random.bounded(1, 12));
        else if (kind == 2)
            text.insert(at, text.mid(random.bounded(text.size() + 1), random.bounded(1, 60)));
        else
            text.insert(at, QChar(random.bounded(1, 0xE000)));
    }
    return text;
}

} // namespace

class TestPlanningReaders : public QObject
{
    Q_OBJECT
private slots:
    void readsAndOrdersVersions_data()
    {
        QTest::addColumn<QStringList>("texts"); // a, a read back, b
        QTest::addColumn<int>("order"); // -1: a older than b, 0: the same version, 1: a newer
        QTest::newRow("three parts") << QStringList { "1.2.3", "1.2.3.0", "1.2.3.1" } << -1;
        QTest::newRow("empty") << QStringList { "", "0.0.0.0", "0.0.0.0" } << 0;
        QTest::newRow("empty section, numbers") << QStringList { "1..3.10", "1.0.3.10", "1.0.3.9" } << 1;
        QTest::newRow("extra section") << QStringList { "1.2.3.4.5", "1.2.3.4", "1.2.3.4" } << 0;
        QTest::newRow("not numbers") << QStringList { "1.x.3.99999999999", "1.0.3.0", "1.0.3.0" } << 0;
        QTest::newRow("minor spills into major") << QStringList { "0.256.0.0", "0.256.0.0", "1.0.0.0" } << 0;
        QTest::newRow("OR-ed, not added") << QStringList { "1.256.0.0", "1.256.0.0", "1.0.0.0" } << 0;
        QTest::newRow("patch spills into minor")
            << QStringList { "0.0.65536.0", "0.0.65536.0", "0.1.0.0" } << 0;
        QTest::newRow("spilt minor outranks major")
            << QStringList { "1.999.0.0", "1.999.0.0", "2.0.0.0" } << 1;
        QTest::newRow("negative sets every bit")
            << QStringList { "-01.2.3.-1", "-1.2.3.-1", "99.99.99.99" } << 1;
    }
    void readsAndOrdersVersions()
    {
        QFETCH(QStringList, texts);
        QFETCH(int, order);
        const Version a = parsed(texts[0]);
        const Version b = parsed(texts[2]);
        QCOMPARE(VersionToString(a), texts[1]);
        QCOMPARE(a < b ? -1 : (b < a ? 1 : 0), order);
        QCOMPARE(a == b, order == 0);
        QCOMPARE((QMap<Version, int> { { a, 1 }, { b, 2 } }.size()), order == 0 ? 1 : 2);
    }

    void readsEveryRemoteKey()
    {
        GameUpdateContext ctx;
        SolveRemoteInfo(QString::fromUtf8(kRemoteInfoDocument), ctx);
        QCOMPARE(describe(ctx.m_remoteInfo),
            QStringList({ "Spring/03-01/a1", "//", "Patch//n1", "/03-03/", "//e1", "c.png/c1/cafe", "Events",
                "News", "Notes", "More", "bg.png", "beef", "7", "1", "down", "zm", "agree", "privacy", "kefu",
                "02:00", "upgrade", "m1", "4500", "1", "1" }));
        GameUpdateContext written;
        SolveRemoteInfo(WriteRemoteInfo(ctx.m_remoteInfo), written);
        QCOMPARE(describe(written.m_remoteInfo), describe(ctx.m_remoteInfo));

        // A busy page instead of JSON empties everything but keeps the period, as does a period of 0.
        SolveRemoteInfo(QStringLiteral("<html>busy</html>"), ctx);
        SolveRemoteInfo(QStringLiteral(R"({"carousel_time": 0, "carousel": [7]})"), ctx);
        RemoteInfo expected;
        expected.m_carouselTime = 4500;
        expected.m_carouselList.resize(1); // an element that is not an object still makes a slide
        QCOMPARE(describe(ctx.m_remoteInfo), describe(expected));
    }

    void readsGuideManifest_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // newest version; then from->to, enabled, cost and files
        QTest::newRow("markers, blanks, line ends")
            << " --last_version-- \r\n1.0.0.1\n1.0.0.3\n\n --download_version--\n\t1.0.0.1->1.0.0.3|a  "
               "b|m|2\r\n"
               "1.0.0.3->1.0.0.3|f|n|7\n--last_version--\n1.0.0.4\n--LAST_VERSION--"
            << "--LAST_VERSION--; 1.0.0.1->1.0.0.3 1 2 a b:m:2; 1.0.0.3->1.0.0.3 0 7 f:n:7";
        QTest::newRow("lines of a package apart")
            << "1.0.0.1->1.0.0.2|a|m|10\n1.0.0.1->1.0.0.3|x|m|5\n1.0.0.1->1.0.0.2|b|n|20"
            << "; 1.0.0.1->1.0.0.2 1 30 a:m:10 b:n:20; 1.0.0.1->1.0.0.3 1 5 x:m:5";
        QTest::newRow("pairs compare as text") << "1.0.0.2->1.0.0.3|a|m|1\n1.0.0.02->1.0.0.3|b|m|2"
                                               << "; 1.0.0.2->1.0.0.3 1 1 a:m:1; 1.0.0.02->1.0.0.3 1 2 b:m:2";
        QTest::newRow("odd fields")
            << "1.0.0.1->1.0.0.2|a|m|12ab\n1.0.0.1->1.0.0.2|b|m|-3\n1.0.0.5|p\n1.0.0.6 ->|q|m|1|x|7"
            << "; 1.0.0.1->1.0.0.2 1 0 a:m:0 b:m:0; 1.0.0.5-> 1 0 p::0; 1.0.0.6 -> 1 1 q:m:1";
    }
    void readsGuideManifest()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        const auto describe = [](const GuideManifestInfo& info) {
            QString actual = info.lastVersion;
            for (const PatchEntry& entry : info.patchList) {
                actual += QStringLiteral("; %1->%2 %3 %4")
                              .arg(entry.fromVersion, entry.toVersion)
                              .arg(entry.bEnabled)
                              .arg(entry.cost);
                for (const PatchFileInfo& file : entry.files)
                    actual += QStringLiteral(" %1:%2:%3").arg(file.path, file.md5).arg(file.size);
            }
            return actual;
        };
        const GuideManifestInfo info = ReadGuideManifest(text);
        QCOMPARE(describe(info), expected);
        QCOMPARE(describe(ReadGuideManifest(WriteGuideManifest(info))), expected);
    }

    // Whatever the text, the answers stay self-consistent: packages summed, a carousel that
    // turns, version texts that read back as themselves, and a chain that goes forward step after step
    // from the installed version to the newest one.
    void answersMutatedTexts()
    {
        const LogLines log;
        QRandomGenerator random(2026);
        GameUpdateContext remote;
        for (int round = 0; round < 4000; ++round) {
            const GuideManifestInfo info = ReadGuideManifest(mutated(manifestText("1.0.0.3"), random));
            for (const PatchEntry& entry : info.patchList) {
                quint64 sum = 0;
                for (const PatchFileInfo& file : entry.files)
                    sum += file.size;
                QVERIFY(!entry.files.isEmpty() && quint64(entry.cost) == sum);
                QCOMPARE(entry.bEnabled, entry.fromVersion != entry.toVersion);
            }

            SolveRemoteInfo(mutated(QString::fromUtf8(kRemoteInfoDocument), random), remote);
            QVERIFY(remote.m_remoteInfo.m_carouselTime != 0);

            const QString version = VersionToString(parsed(mutated(QStringLiteral("1.2.3.4"), random)));
            QCOMPARE(VersionToString(parsed(version)), version);

            if (round % 4 != 0)
                continue;
            GameUpdateContext ctx; // no target recorded, so no folder is ever wiped here
            ctx.m_updateSetting.currentGameVersion = QStringLiteral("1.0.0.1");
            ctx.m_updateSetting.cachePath = QStringLiteral("/cache");
            SolveGuideManifest(mutated(manifestText("1.0.0.3"), random), ctx);
            QVERIFY(QList<int>({ SolveResult::Solved, SolveResult::InstalledNewer, SolveResult::NoFullPack,
                                   SolveResult::FullPack })
                        .contains(ctx.m_solveResult));
            Version reached = parsed(ctx.m_updateSetting.currentGameVersion);
            for (const PatchStep& step : ctx.m_guideManifest.m_downloadList) {
                QVERIFY(step.from == reached && reached < step.to);
                reached = step.to;
            }
            QVERIFY(ctx.m_guideManifest.m_downloadList.isEmpty()
                || reached == ctx.m_guideManifest.m_newestVersion);
        }
    }
};

CORE_TEST_CLASS(TestPlanningReaders)
#include "tst_planningreaders.moc"
