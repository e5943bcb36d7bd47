#include "PlanningTestSupport.h"
#include "TestRegistry.h"

#include "planning/GuideManifestReader.h"
#include "planning/GuideManifestSolver.h"
#include "planning/RemoteInfoReader.h"
#include "planning/VersionUtil.h"

#include <QRandomGenerator>
#include <QSet>
#include <QtTest>

using namespace Morvantix;

namespace {

// Pieces that mean something to one of the readers, so that mutations reach their odd corners.
const QStringList kTokens { "->", "|", "\n", "\r\n", "--last_version--", "--download_version--", ".", "-1",
    "99999999999999999999", "18446744073709551615", " ", "\t", "{", "}", "[", "]", "\"", ":", ",", "null",
    "true", "1e400", QString(QChar(0)), QString(QChar(0xD800)), "0.256.0.0", "1.0.0.01" };

QString mutated(QString text, QRandomGenerator& random)
{
    for (int edits = random.bounded(1, 6); edits > 0; --edits) {
        const int at = random.bounded(text.size() + 1);
        switch (random.bounded(5)) {
        case 0:
            text.insert(at, kTokens.at(random.bounded(kTokens.size())));
            break;
        case 1:
            text.remove(at, random.bounded(1, 12));
            break;
        case 2:
            text.insert(at, QChar(random.bounded(1, 0x3000)));
            break;
        case 3:
            text.insert(at, text.mid(random.bounded(text.size() + 1), random.bounded(1, 60)));
            break;
        default:
            text.truncate(at + random.bounded(8));
        }
    }
    return text;
}

} // namespace

class TestPlanningRobustness : public QObject
{
    Q_OBJECT
private slots:
    void guideManifestReaderAnswers();
    void remoteInfoReaderAnswers();
    void versionTextRoundTrips();
    void updateDecisionAnswers();
};

void TestPlanningRobustness::guideManifestReaderAnswers()
{
    QRandomGenerator random(101);
    const QString published = manifestText(publishedPatches() + newestFullPack(), QStringLiteral("1.0.0.3"));
    for (int round = 0; round < 4000; ++round) {
        const GuideManifestInfo info = ReadGuideManifest(mutated(published, random));
        QCOMPARE(info.lastVersion, info.lastVersion.simplified());
        QSet<QString> pairs;
        for (const PatchEntry& entry : info.patchList) {
            QVERIFY(!entry.files.isEmpty());
            QCOMPARE(entry.bEnabled, entry.fromVersion != entry.toVersion);
            quint64 sum = 0;
            for (const PatchFileInfo& file : entry.files)
                sum += file.size;
            QCOMPARE(quint64(entry.cost), sum);
            pairs.insert(entry.fromVersion + QChar(0) + entry.toVersion);
        }
        QCOMPARE(pairs.size(), info.patchList.size());
    }
}

void TestPlanningRobustness::remoteInfoReaderAnswers()
{
    LogCapture log;
    QRandomGenerator random(202);
    GameUpdateContext ctx;
    for (int round = 0; round < 4000; ++round) {
        SolveRemoteInfo(mutated(QString::fromUtf8(kRemoteInfoDocument), random), ctx);
        QVERIFY(ctx.m_remoteInfo.m_carouselTime != 0);
    }
    QCOMPARE(LogCapture::lines().size(), 4000);
}

void TestPlanningRobustness::versionTextRoundTrips()
{
    QRandomGenerator random(303);
    for (int round = 0; round < 5000; ++round) {
        Version version;
        GetVersionByString(mutated(QStringLiteral("1.2.3.4"), random), version);
        Version again;
        GetVersionByString(VersionToString(version), again);
        QCOMPARE(VersionToString(again), VersionToString(version));
    }
}

// Garbled manifests may lead anywhere, but a planned chain must still lead forward, step after step,
// from the installed version to the newest one.
void TestPlanningRobustness::updateDecisionAnswers()
{
    LogCapture log;
    QRandomGenerator random(404);
    const QString published = manifestText(publishedPatches() + newestFullPack(), QStringLiteral("1.0.0.3"));
    for (int round = 0; round < 800; ++round) {
        GameUpdateContext ctx; // no target recorded: no folder is ever wiped here
        ctx.m_updateSetting.currentGameVersion = QStringLiteral("1.0.0.1");
        SolveGuideManifest(mutated(published, random), ctx);
        QVERIFY(QList<int>({ 0, 6, 7, 8 }).contains(ctx.m_solveResult));
        const QVector<PatchStep>& steps = ctx.m_guideManifest.m_downloadList;
        if (steps.isEmpty())
            continue;
        Version reached;
        GetVersionByString(ctx.m_updateSetting.currentGameVersion, reached);
        for (const PatchStep& step : steps) {
            QVERIFY(step.from == reached && reached < step.to);
            reached = step.to;
        }
        QVERIFY(reached == ctx.m_guideManifest.m_newestVersion);
    }
}

CORE_TEST_CLASS(TestPlanningRobustness)
#include "tst_planningrobustness.moc"
