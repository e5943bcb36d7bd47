#pragma once

#include "UpdatePart.h"

#include <functional>

struct PackageCheck;

// The work of each state of one step of a plan: its package is downloaded, checked and unpacked, and
// a patch merged into the game or a full package put in its place, with the version reached recorded.
// Each call starts one stage and, when it ends well, calls the continuation it was given.
class StepStages : public UpdatePart
{
    Q_OBJECT
public:
    using Then = std::function<void()>;

    StepStages(UpdateRun& run, StageRunner* stages, TrustGate* trust, QObject* parent = nullptr);

    // Readies the plan's current step: its download list, its disk space, the cache pruned.
    void begin(const Then& then);
    void download(const Then& then);
    // fetchAgain: the parts that failed their check were deleted and are to be downloaded once more;
    // empty on the check after that download, when a part that fails again fails the step.
    void verify(const Then& verified, const Then& fetchAgain);
    void unpack(const Then& then);
    void checkPatch(const Then& then);
    void checkInUse(const Then& then);
    // Merges the patch, records the version reached and removes the step's files.
    void merge(const Then& then);
    // Puts the unpacked full package in place of the game, recording it before and after.
    void swapIn(const Then& then);

private:
    void onPackageChecked(
        bool bMd5Failed, const PackageCheck& check, const Then& verified, const Then& fetchAgain);
    // The version reached is recorded after every step, so a run that stops later goes on from there.
    bool recordStep();
};
