#include "planning/UpdatePathPlanner.h"

#include "core/ComponentAccessors.h"
#include "core/Constants.h"
#include "core/SerializeComponent.h"
#include "planning/DownloadEntry.h"
#include "planning/PlanningLog.h"
#include "planning/VersionUtil.h"

#include <QMap>

#include <algorithm>
#include <utility>
#include <vector>

namespace Morvantix {

namespace {

void logPlanning(const QString& line)
{
    qCCritical(lcStdUtil).noquote() << line;
}

std::pair<Version, Version> versionsOf(const PatchEntry& entry)
{
    std::pair<Version, Version> ends;
    GetVersionByString(entry.fromVersion, ends.first);
    GetVersionByString(entry.toVersion, ends.second);
    return ends;
}

// Positions of the patches that take part: the incremental ones whose files can be stored in the
// cache folder. A refused patch is treated as if the server had not published it.
QVector<int> usablePatches(const GuideManifestInfo& manifest, const QString& cachePath)
{
    QVector<int> positions;
    for (int position = 0; position < manifest.patchList.size(); ++position) {
        const PatchEntry& entry = manifest.patchList.at(position);
        if (entry.bEnabled && IsStorablePackage(entry, cachePath))
            positions.append(position);
    }
    return positions;
}

// Patch ends of the usable entries, oldest first, each version once. A stable sort keeps the first
// spelling of versions that share a key, so the log and the steps name them as the manifest did first.
QVector<Version> discreteVersions(const GuideManifestInfo& manifest, const QVector<int>& usable)
{
    QVector<Version> versions;
    versions.reserve(usable.size() * 2);
    for (const int position : usable) {
        const auto [from, to] = versionsOf(manifest.patchList.at(position));
        versions.append(to);
        versions.append(from);
    }
    std::stable_sort(versions.begin(), versions.end());
    versions.erase(std::unique(versions.begin(), versions.end()), versions.end());
    return versions;
}

QMap<Version, int> indexVersions(const QVector<Version>& versions)
{
    logPlanning(QStringLiteral("show Discretization"));
    QMap<Version, int> indexOf;
    for (int i = 0; i < versions.size(); ++i) {
        indexOf.insert(versions.at(i), i);
        logPlanning(QStringLiteral("%1: the index is %2").arg(VersionToString(versions.at(i))).arg(i));
    }
    return indexOf;
}

QVector<PatchEdge> patchEdges(
    const GuideManifestInfo& manifest, const QVector<int>& usable, const QMap<Version, int>& indexOf)
{
    QVector<PatchEdge> edges;
    edges.reserve(usable.size());
    for (const int position : usable) {
        const PatchEntry& entry = manifest.patchList.at(position);
        const auto [from, to] = versionsOf(entry);
        edges.append({ indexOf.value(from), indexOf.value(to), entry.cost, position });
    }
    return edges;
}

constexpr quint64 kNoRoute = ~quint64(0); // -1 read as unsigned: larger than any cost

// Sizes come from the server's text: a chain whose sizes add up past 2^64 - 1 is no route, rather
// than a sum that wraps round into a cheap one.
quint64 addCosts(quint64 a, quint64 b)
{
    const quint64 sum = a + b;
    return sum < a ? kNoRoute : sum;
}

bool byEnds(const PatchEdge& a, const PatchEdge& b)
{
    return a.from < b.from || (a.from == b.from && a.to < b.to);
}

// The patches that can lie on a route from start to target, sorted by their ends, one per pair. A
// later entry for the same pair replaces an earlier one: republished patches are appended to the
// manifest, not edited in place. A cost of -1 cannot be told from "no patch", so such a patch
// removes the pair.
QVector<PatchEdge> forwardEdges(int start, int target, const QVector<PatchEdge>& edges)
{
    QVector<PatchEdge> forward;
    for (const PatchEdge& edge : edges) {
        if (start <= edge.from && edge.from < edge.to && edge.to <= target)
            forward.append(edge);
    }
    std::stable_sort(forward.begin(), forward.end(), byEnds);
    QVector<PatchEdge> unique;
    unique.reserve(forward.size());
    for (int k = 0; k < forward.size(); ++k) {
        const bool replaced = k + 1 < forward.size() && !byEnds(forward.at(k), forward.at(k + 1));
        if (!replaced && forward.at(k).cost != -1)
            unique.append(forward.at(k));
    }
    return unique;
}

// The cheapest cost from every version between start and target up to target. Patches only lead to
// a higher index, so walking the sorted edges backwards finishes a version's cost before any patch
// that leads into it is looked at.
std::vector<quint64> costsToTarget(int start, int target, const QVector<PatchEdge>& edges)
{
    std::vector<quint64> toTarget(static_cast<std::size_t>(target - start + 1), kNoRoute);
    toTarget.back() = 0;
    for (auto edge = edges.crbegin(); edge != edges.crend(); ++edge) {
        const quint64 tail = toTarget[edge->to - start];
        if (tail == kNoRoute)
            continue;
        quint64& cost = toTarget[edge->from - start];
        cost = std::min(cost, addCosts(static_cast<quint64>(edge->cost), tail));
    }
    return toTarget;
}

// The next step from a version on a cheapest route: the direct patch to the target when it is one
// of the cheapest ways, otherwise the cheapest way's patch towards the lowest version. These are the
// ties the planner has always broken this way (a direct patch beats an equal chain, the lowest split
// point wins), and launchers in the field depend on the chain they give.
const PatchEdge* nextStep(const PatchEdge* first, const PatchEdge* last, int start, int target,
    const std::vector<quint64>& toTarget)
{
    const quint64 best = toTarget[first->from - start];
    const PatchEdge* direct = last - 1;
    if (direct->to == target && static_cast<quint64>(direct->cost) == best)
        return direct;
    for (const PatchEdge* edge = first; edge != last; ++edge) {
        const quint64 tail = toTarget[edge->to - start];
        if (tail != kNoRoute && addCosts(static_cast<quint64>(edge->cost), tail) == best)
            return edge;
    }
    return nullptr;
}

PatchStep makeStep(const PatchEntry& entry, const Version& from, const Version& to)
{
    PatchStep step;
    if (!entry.files.isEmpty())
        step.files.append(ToPackFileInfo(entry.files.first()));
    step.from = from;
    step.to = to;
    return step;
}

void failPlan(bool& found, qint64& cost, const QString& reason)
{
    found = false;
    cost = 0;
    logPlanning(reason);
}

} // namespace

bool IsPatchStageContinued(GameUpdateContext& ctx)
{
    UpdateSetting& setting = ctx.m_updateSetting;
    const bool targetChanged = !setting.targetGameVersion.isEmpty()
        && setting.targetGameVersion != VersionToString(ctx.m_guideManifest.m_newestVersion);
    if (!targetChanged) {
        logPlanning(QStringLiteral("Update not Changed"));
        return false;
    }
    if (!setting.transitionGameVersion.isEmpty()) {
        if (setting.currentStage == QLatin1String(Const::PatchStage))
            return true;
        setting.currentStage = QLatin1String(Const::InitStage);
        if (const auto serializer = GetSerializeComponent())
            serializer->SaveSetting(setting);
        logPlanning(QStringLiteral("the version should be start from %1").arg(setting.currentGameVersion));
    }
    logPlanning(QStringLiteral("show all patch infomation!"));
    return false;
}

void PlanUpdatePath(const GuideManifestInfo& manifest, GameUpdateContext& ctx, bool continuePatchStage,
    bool& found, qint64& cost)
{
    const UpdateSetting& setting = ctx.m_updateSetting;
    const QString startText = continuePatchStage ? setting.transitionGameVersion : setting.currentGameVersion;
    logPlanning(QStringLiteral("show all patch infomation!"));

    const QVector<int> usable = usablePatches(manifest, setting.cachePath);
    const QVector<Version> versions = discreteVersions(manifest, usable);
    const QMap<Version, int> indexOf = indexVersions(versions);
    Version target;
    Version start;
    GetVersionByString(manifest.lastVersion, target);
    GetVersionByString(startText, start);
    if (!indexOf.contains(target))
        return failPlan(
            found, cost, QStringLiteral("Targetversion  %1 is not match ").arg(manifest.lastVersion));
    if (!indexOf.contains(start))
        return failPlan(
            found, cost, QStringLiteral("StartVersion  %1 is not match in the server ").arg(startText));

    QVector<PatchEdge> route;
    if (!ShortestPath(
            indexOf.value(start), indexOf.value(target), patchEdges(manifest, usable, indexOf), route))
        return failPlan(found, cost, QStringLiteral("not find the shortestPath "));

    QVector<PatchStep>& steps = ctx.m_guideManifest.m_downloadList;
    steps.clear();
    logPlanning(
        QStringLiteral("show the shortest update path from %1 to %2").arg(startText, manifest.lastVersion));
    found = true;
    // Start and target alike give an empty route: nothing to apply, even when a manifest lists a
    // patch between two spellings of that version.
    for (const PatchEdge& edge : route) {
        steps.append(
            makeStep(manifest.patchList.at(edge.position), versions.at(edge.from), versions.at(edge.to)));
    }
}

bool ShortestPath(int start, int target, const QVector<PatchEdge>& edges, QVector<PatchEdge>& route)
{
    route.clear();
    if (start < 0 || target < 0)
        return false;
    qCCritical(lcStdUtilUpdate).noquote() << QString(18, QChar(0x300B));
    if (target < start)
        return false;

    const QVector<PatchEdge> forward = forwardEdges(start, target, edges);
    const std::vector<quint64> toTarget = costsToTarget(start, target, forward);
    if (toTarget.front() == kNoRoute)
        return false;
    for (int at = start; at != target;) {
        const PatchEdge* first
            = std::lower_bound(forward.cbegin(), forward.cend(), PatchEdge { at, at, 0, 0 }, byEnds);
        const PatchEdge* last
            = std::lower_bound(first, forward.cend(), PatchEdge { at + 1, at + 1, 0, 0 }, byEnds);
        const PatchEdge* step = first == last ? nullptr : nextStep(first, last, start, target, toTarget);
        if (!step)
            return false;
        route.append(*step);
        at = step->to;
    }
    return true;
}

void GetCurrentShortestDownloadFile(GameUpdateContext& ctx, const QString& version)
{
    for (const PatchStep& step : ctx.m_guideManifest.m_downloadList) {
        if (!version.isEmpty() && VersionToString(step.from) != version)
            continue;
        ctx.m_downloadFileList.clear();
        if (!step.files.isEmpty())
            ctx.m_downloadFileList.append(
                ToDownloadFileInfo(step.files.first(), ctx.m_updateSetting.cachePath));
        ctx.m_shortestDownloadFile = VersionToString(step.to);
        return;
    }
}

} // namespace Morvantix
