#pragma once

#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "planning/GuideManifestInfo.h"

#include <QString>
#include <QVector>
#include <QtGlobal>

namespace Morvantix {

// The update decision for the game. Reads the guide manifest text and leaves in ctx the newest
// version, its full pack and the download list of the next step; ctx.m_solveResult tells the outcome
// (SolveResult). A fresh install also plans the full pack, with SolveResult::Solved.
CORE_EXPORT void SolveGuideManifest(const QString& text, GameUpdateContext& ctx);

// The full pack of version (the package from version to itself) as download entries with their total
// size, also kept in ctx.m_versionManifestMap under version. False when the manifest has none, or when
// it cannot be stored in the cache folder (IsStorablePackage): the update then stops as for a missing pack.
CORE_EXPORT bool FindFullPack(GameUpdateContext& ctx, const GuideManifestInfo& manifest,
    const QString& version, QVector<PackFileInfo>& files, qint64& size);

// Makes the full pack's files the download list. A half-finished install of another target is
// wiped first, so the new version does not land on top of it.
CORE_EXPORT void PlanFullPack(GameUpdateContext& ctx, const QVector<PackFileInfo>& files);

} // namespace Morvantix
