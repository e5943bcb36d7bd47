#pragma once

#include <QString>

// A full package is unpacked beside the game, on the same volume, and put in place by two renames
// once it is complete: the game folder holds the old version or the new one, never a half of either.
// Between the two renames the new version lies complete in the staging folder, and Finish() called
// again completes the swap.
namespace FolderSwap {

QString StagingFolder(const QString& gameFolder); // <game>.new: the unpacked package
QString RetiredFolder(const QString& gameFolder); // <game>.old: the version replaced

// Moves the staging folder into the game folder's place, from whatever point an earlier call was
// stopped at. Empty on success, else what failed (nothing is lost: a failed second rename moves the
// old version back).
QString Finish(const QString& gameFolder);

// Removes the folders an interrupted unpack or swap left; only after the swap is recorded.
void RemoveLeftovers(const QString& gameFolder);

} // namespace FolderSwap
