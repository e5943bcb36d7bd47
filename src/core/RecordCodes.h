#pragma once

// The integers the records carry for outcomes and kinds, named once. The members stay plain ints,
// as launchers built against the records read and write them as such; code compares them with these.
namespace Morvantix {

// GameUpdateContext::m_solveResult: what the guide manifest's solver decided.
namespace SolveResult {
constexpr int Solved = 0; // a chain of patches, up to date, or a full install of an empty folder
constexpr int InstalledNewer = 6; // the installed version is newer than the server's newest
constexpr int NoFullPack = 7; // the newest version's full package is missing or refused
constexpr int FullPack = 8; // the full package is cheaper than any chain, or no chain exists
} // namespace SolveResult

// GameUpdateContext::m_updateType: the kind of job. Verification and unpacking treat the two repair
// kinds alike: every failure is collected, and what is unpacked lands in place.
namespace UpdateType {
constexpr int Update = 0; // install or update
constexpr int Repair = 1; // the files of the installed version, against its file list
constexpr int RepairParts = 4; // a repair of some files only
constexpr bool IsRepair(int type)
{
    return type == Repair || type == RepairParts;
}
} // namespace UpdateType

// PatcherCallbackInfo::status: the kind of merge step being reported.
enum MergeStatus : int
{
    MergeStatusPatch = 0, // rebuilding a file from its diff
    MergeStatusAdd = 1, // adding a file the package carries whole
    MergeStatusDelete = 2, // deleting a file the new version drops
};

} // namespace Morvantix
