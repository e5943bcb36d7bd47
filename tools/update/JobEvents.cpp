#include "JobEvents.h"

QString StageName(Stage stage)
{
    switch (stage) {
    case Stage::Settings:
        return QStringLiteral("settings");
    case Stage::Lock:
        return QStringLiteral("lock");
    case Stage::Record:
        return QStringLiteral("record");
    case Stage::Swap:
        return QStringLiteral("swap");
    case Stage::Server:
        return QStringLiteral("server");
    case Stage::Plan:
        return QStringLiteral("plan");
    case Stage::Trust:
        return QStringLiteral("trust");
    case Stage::Space:
        return QStringLiteral("space");
    case Stage::Download:
        return QStringLiteral("download");
    case Stage::VerifyPackage:
        return QStringLiteral("verify-package");
    case Stage::Unpack:
        return QStringLiteral("unpack");
    case Stage::Check:
        return QStringLiteral("check");
    case Stage::Merge:
        return QStringLiteral("merge");
    case Stage::VerifyGame:
        return QStringLiteral("verify");
    case Stage::RepairDownload:
        return QStringLiteral("repair-download");
    case Stage::RepairCopy:
        return QStringLiteral("repair-copy");
    }
    return QString();
}

QString OutcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Installed:
        return QStringLiteral("installed");
    case Outcome::Updated:
        return QStringLiteral("updated");
    case Outcome::UpToDate:
        return QStringLiteral("up-to-date");
    case Outcome::InstalledNewer:
        return QStringLiteral("installed-newer");
    case Outcome::Verified:
        return QStringLiteral("verified");
    case Outcome::Repaired:
        return QStringLiteral("repaired");
    case Outcome::Planned:
        return QStringLiteral("planned");
    case Outcome::Failed:
        return QStringLiteral("failed");
    }
    return QString();
}
