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

namespace Morvantix {

namespace {

void logPlanning(const QString& line)
{
    qCCritical(lcStdUtil).noquote() << line;
}

// Patch ends of the enabled entries, oldest first, each version once. A stable sort keeps the first
// spelling of versions that share a key, so the log and the steps name them as the manifest did first.
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

// A later entry for the same pair of versions replaces an earlier one: republished patches are
// appended to the manifest, not edited in place.
void addPatchEdges(const GuideManifestInfo& manifest, const QVector<int>& usable,
    const QMap<Version, int>& indexOf, SquareMatrix<qint64>& weight, SquareMatrix<int>& patchIndex)
{
    for (const int position : usable) {
        const PatchEntry& entry = manifest.patchList.at(position);
        const auto [from, to] = versionsOf(entry);
        const int row = indexOf.value(from);
        const int column = indexOf.value(to);
        weight.at(row, column) = entry.cost;
        patchIndex.at(row, column) = position;
    }
}

// Cell (i, j) starts from the direct patch and is lowered by each split point m = i + k, k rising,
// only when strictly cheaper: a direct patch beats an equal chain and the lowest split point wins a
// tie. -1 is "none" and, read as unsigned, larger than any cost. Rows are filled from the bottom up:
// every row below i is final then, and so is cell (i, m) once the split points below m have been
// tried. That gives the same cells and ties as filling interval by interval, while the inner loop
// runs along two rows instead of down a column.
void fillIntervals(
    int target, const SquareMatrix<qint64>& weight, SquareMatrix<qint64>& dist, SquareMatrix<int>& split)
{
    for (int i = target - 1; i >= 0; --i) {
        qint64* costs = dist.row(i);
        int* splits = split.row(i);
        std::copy(weight.row(i) + i + 1, weight.row(i) + target + 1, costs + i + 1);
        for (int m = i + 1; m < target; ++m) {
            const qint64 head = costs[m];
            if (head == -1)
                continue;
            const qint64* tails = dist.row(m);
            const int k = m - i;
            for (int j = m + 1; j <= target; ++j) {
                if (tails[j] == -1)
                    continue;
                const quint64 sum = static_cast<quint64>(head) + static_cast<quint64>(tails[j]);
                if (sum < static_cast<quint64>(costs[j])) {
                    costs[j] = static_cast<qint64>(sum);
                    splits[j] = k;
                }
            }
        }
    }
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

    const int n = versions.size();
    SquareMatrix<qint64> weight(n, -1);
    SquareMatrix<qint64> dist(n, -1);
    SquareMatrix<int> split(n, -1);
    SquareMatrix<int> patchIndex(n, -1);
    addPatchEdges(manifest, usable, indexOf, weight, patchIndex);

    QVector<int> path;
    if (!ShortestPath(indexOf.value(start), indexOf.value(target), weight, dist, split, path))
        return failPlan(found, cost, QStringLiteral("not find the shortestPath "));

    QVector<PatchStep>& steps = ctx.m_guideManifest.m_downloadList;
    steps.clear();
    logPlanning(
        QStringLiteral("show the shortest update path from %1 to %2").arg(startText, manifest.lastVersion));
    found = true;
    for (int k = 0; k + 1 < path.size(); ++k) {
        const int from = path.at(k);
        const int to = path.at(k + 1);
        // Start and target alike give the route "s, s": nothing to apply, even when a manifest lists
        // a patch between two spellings of that version.
        if (from == to)
            continue;
        steps.append(
            makeStep(manifest.patchList.at(patchIndex.at(from, to)), versions.at(from), versions.at(to)));
    }
}

bool ShortestPath(int start, int target, const SquareMatrix<qint64>& weight, SquareMatrix<qint64>& dist,
    SquareMatrix<int>& split, QVector<int>& path)
{
    const int n = weight.size();
    if (start < 0 || target < 0 || start >= n || target >= n)
        return false;
    for (int k = start; k <= target; ++k)
        dist.at(k, k) = 0;
    for (int i = 0; i + 1 < n; ++i) {
        dist.at(i, i) = 0;
        dist.at(i, i + 1) = weight.at(i, i + 1);
    }
    qCCritical(lcStdUtilUpdate).noquote() << QString(18, QChar(0x300B));

    fillIntervals(target, weight, dist, split);
    if (dist.at(start, target) == -1)
        return false;
    BuildPath(path, start, target, split);
    path.append(target);
    return true;
}

void BuildPath(QVector<int>& path, int i, int j, const SquareMatrix<int>& split)
{
    while (split.at(i, j) != -1) {
        const int m = i + split.at(i, j);
        BuildPath(path, i, m, split);
        i = m;
    }
    path.append(i);
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
