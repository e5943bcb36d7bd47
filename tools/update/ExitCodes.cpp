#include "ExitCodes.h"

#include "core/ErrorCode.h"

#include <QStringList>

namespace {

// The patcher tells its failures apart only by its user texts; these are the parts that stay the
// same in them (a file "is in use"; the disk "is short of space", also in the download's text).
const QString kInUseMarker = QStringLiteral("被占用");
const QString kNoSpaceMarker = QStringLiteral("磁盘空间不足");
// 7-Zip's own words for a full disk: the Windows system text, and the C library's on Linux.
const QStringList kToolNoSpaceMarkers { QStringLiteral("not enough space"),
    QStringLiteral("No space left on device") };

bool toolSaysNoSpace(const QString& text)
{
    for (const QString& marker : kToolNoSpaceMarkers) {
        if (text.contains(marker, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

ExitCode forFileChange(const StageResult& result)
{
    if (result.text.contains(kInUseMarker))
        return ExitCode::FileInUse;
    if (result.text.contains(kNoSpaceMarker))
        return ExitCode::NoSpace;
    return ExitCode::ToolFailed;
}

} // namespace

ExitCode ExitCodeFor(const StageResult& result)
{
    if (result.bInterrupted)
        return ExitCode::Interrupted;
    if (!result.bFailed)
        return ExitCode::Done;
    switch (result.stage) {
    case Stage::Settings:
        return ExitCode::Usage;
    case Stage::Server:
        return ExitCode::Network;
    case Stage::Plan:
        return ExitCode::DocumentRefused;
    case Stage::Space:
        return ExitCode::NoSpace;
    case Stage::Trust:
        return ExitCode::Untrusted;
    case Stage::Download:
    case Stage::RepairDownload:
        // A write failure is a full disk, or a file the download manager would not place outside
        // the cache: a server document's name.
        if (result.code == Morvantix::WriteFailed)
            return result.text.contains(kNoSpaceMarker) ? ExitCode::NoSpace : ExitCode::DocumentRefused;
        return ExitCode::Network;
    case Stage::VerifyPackage:
    case Stage::VerifyGame:
        return ExitCode::VerifyFailed;
    case Stage::Unpack:
        return toolSaysNoSpace(result.text) ? ExitCode::NoSpace : ExitCode::ToolFailed;
    case Stage::Lock:
        return ExitCode::Busy;
    case Stage::Record:
        return ExitCode::SettingsUnwritable;
    case Stage::Swap:
        return ExitCode::FileInUse;
    case Stage::Check:
        return ExitCode::FileInUse;
    case Stage::Merge:
    case Stage::RepairCopy:
        return forFileChange(result);
    }
    return ExitCode::ToolFailed;
}

QString ExitCodeTable()
{
    return QStringLiteral(
        "Exit codes:\n"
        "  0    done, up to date, or the installed version is newer than the server's\n"
        "  1    usage: bad arguments, nothing installed to verify, a question --yes must answer\n"
        "  2    network: the server could not be reached, or it is under maintenance\n"
        "  3    verification still failing after a second download or a repair\n"
        "  4    not enough disk space (both figures named)\n"
        "  5    a game file is in use (named)\n"
        "  6    an external tool failed (7-Zip, the patch tool)\n"
        "  7    a server document refused: unusable, too large, or a path outside its folder\n"
        "  8    another run holds this install folder (the folder and the process named)\n"
        "  9    the settings (config.ini) cannot be written; nothing was changed\n"
        "  10   untrusted channel: a signature, list, document or package not as the studio signed it\n"
        "  130  interrupted (Ctrl-C); the next run resumes\n");
}
