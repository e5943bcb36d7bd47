#pragma once

#include <QString>

namespace Morvantix {
class SerializeComponent;
}

// Work a run must finish before it may say the game is up to date, kept in the settings so that a run
// killed at any moment is taken up by the next one.
enum class PendingWork
{
    None,
    // A full package lies unpacked beside the game (FOLDER/<game>.new): swap the folders, then
    // record the target version.
    Swap,
    // The game folder changed (a merge, a swap, a repair's copies): verify it, and repair what fails,
    // against the recorded version.
    Verify,
};

PendingWork ReadPendingWork(Morvantix::SerializeComponent& settings);
// False when the settings could not be written.
bool WritePendingWork(Morvantix::SerializeComponent& settings, PendingWork work);
