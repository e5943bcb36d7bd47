// Times the update decision over generated guide manifests and reports the process's peak memory.
// Usage: planning [versions ...]; each count runs in a child process of its own so that every peak
// belongs to one manifest size. Without arguments it runs 50, 200, 500 and 10,000 versions.

#include "ProcessStatus.h"

#include "core/GameUpdateContext.h"
#include "planning/GuideManifestReader.h"
#include "planning/GuideManifestSolver.h"
#include "planning/UpdatePathPlanner.h"
#include "planning/VersionUtil.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QStringList>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

using namespace Morvantix;

namespace {

constexpr int kRepeats = 7;
constexpr int kJumps[] = { 1, 2, 3, 5, 10 }; // patches published from every version, by distance

QString versionText(int index)
{
    return VersionToString(Version { 1, 2, index / 100, index % 100 });
}

// Every version has patches to the next few versions and to the one ten ahead; the longer ones
// cost a little less than the chain they replace, and one in four comes in two volumes. Every tenth
// version and the newest have a full pack.
QString generatedManifest(int versions, int* patchCount)
{
    QRandomGenerator random(static_cast<quint32>(versions));
    QStringList lines { QStringLiteral("--download_version--") };
    *patchCount = 0;
    for (int from = 0; from < versions; ++from) {
        for (int jump : kJumps) {
            const int to = from + jump;
            if (to >= versions)
                continue;
            ++*patchCount;
            const QString pair = versionText(from) + "->" + versionText(to);
            const int volumes = random.bounded(4) == 0 ? 2 : 1;
            for (int volume = 1; volume <= volumes; ++volume) {
                const quint64 size = (40 + random.bounded(30)) * quint64(1 << 20) * jump * 9 / 10 / volumes;
                lines << QStringLiteral("%1|patch/%2/p%3.7z.%4|%5|%6")
                             .arg(pair, versionText(to))
                             .arg(from)
                             .arg(volume)
                             .arg(QString(32, QLatin1Char('0' + volume)))
                             .arg(size);
            }
        }
        if (from % 10 == 0 || from == versions - 1) {
            const QString full = versionText(from);
            lines << QStringLiteral("%1->%1|full/%1/full_%1.7z|%2|%3")
                         .arg(full, QString(32, 'f'))
                         .arg(Q_UINT64_C(30) << 30);
        }
    }
    lines << QStringLiteral("--last_version--") << versionText(versions - 1);
    return lines.join(QLatin1Char('\n'));
}

// Best of several runs, in milliseconds: the figure least disturbed by the other work on the machine.
double bestMilliseconds(const std::function<void()>& work)
{
    double best = 1e300;
    for (int run = 0; run < kRepeats; ++run) {
        QElapsedTimer timer;
        timer.start();
        work();
        best = std::min(best, timer.nsecsElapsed() / 1e6);
    }
    return best;
}

// The kernel restarts the peak resident size (VmHWM) on request, and the allocator hands back what
// earlier steps freed first, so each peak belongs to the step measured after it.
void resetPeakMemory()
{
    malloc_trim(0);
    QFile clearRefs(QStringLiteral("/proc/self/clear_refs"));
    if (clearRefs.open(QIODevice::WriteOnly))
        clearRefs.write("5");
}

constexpr int kGoalVersions = 10000;
constexpr double kGoalPlanMs = 1000;
constexpr double kGoalPeakMib = 64;

double mibFromStatus(const char* field)
{
    return kibFromStatus(field) / 1024.0;
}

// The manifest the planner gets is read once, as a launcher reads it; the repeated reads that time
// the reader come after planning, so their freed memory does not inflate the planning figures.
int measure(int versions)
{
    int patches = 0;
    const QString text = generatedManifest(versions, &patches);
    resetPeakMemory();
    const double beforeMib = mibFromStatus("VmRSS:");
    const GuideManifestInfo manifest = ReadGuideManifest(text);
    const double readPeakMib = mibFromStatus("VmHWM:");

    resetPeakMemory();
    const double beforePlanMib = mibFromStatus("VmRSS:");
    GameUpdateContext ctx;
    ctx.m_updateSetting.currentGameVersion = versionText(0);
    ctx.m_updateSetting.cachePath = QStringLiteral("/cache");
    bool found = false;
    const double planMs = bestMilliseconds([&] {
        qint64 cost = 0;
        PlanUpdatePath(manifest, ctx, false, found, cost);
    });
    const int steps = ctx.m_guideManifest.m_downloadList.size();
    const double planPeakMib = mibFromStatus("VmHWM:");
    const double planGrowthMib = planPeakMib - beforePlanMib;

    const double readMs = bestMilliseconds([&] { ReadGuideManifest(text); });
    resetPeakMemory();
    const double decideMs = bestMilliseconds([&] { SolveGuideManifest(text, ctx); });

    std::printf("%8d %8d %9.2f %9.2f %9.2f %6d %12.1f %8.1f %9.1f %9.1f %8.1f %11.1f\n", versions, patches,
        readMs, planMs, decideMs, found ? steps : -1, ctx.m_patchDownloadSize / 1048576.0, beforeMib,
        readPeakMib, planPeakMib, planGrowthMib, mibFromStatus("VmHWM:"));
    if (versions == kGoalVersions) {
        std::printf("goal at %d versions: plan %.0f ms of %.0f (%.2f); plan peak %.1f MiB of %.0f (%.2f), of "
                    "which the planner's own %.1f MiB\n",
            versions, planMs, kGoalPlanMs, planMs / kGoalPlanMs, planPeakMib, kGoalPeakMib,
            planPeakMib / kGoalPeakMib, planGrowthMib);
    }
    return found && ctx.m_solveResult == Morvantix::SolveResult::Solved ? 0 : 1;
}

void discardMessages(QtMsgType, const QMessageLogContext&, const QString&) { }

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList sizes = app.arguments().mid(1);
    if (sizes.size() == 1) {
        // The planner logs every version it indexes; the console would dominate the timing.
        qInstallMessageHandler(discardMessages);
        return measure(sizes.first().toInt());
    }

    if (sizes.isEmpty())
        sizes = QStringList { "50", "200", "500", "10000" };
    std::printf("versions  patches   read ms   plan ms decide ms  steps download MiB   before read peak "
                "plan peak  planner decide peak (MiB)\n");
    std::fflush(stdout);
    int failures = 0;
    for (const QString& size : sizes) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(app.applicationFilePath(), { size });
        child.waitForFinished(-1);
        failures += child.exitCode() != 0 || child.exitStatus() != QProcess::NormalExit;
    }
    return failures == 0 ? 0 : 1;
}
