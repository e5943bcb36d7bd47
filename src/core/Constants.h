#pragma once

// String constants shared by every source file: settings keys, folder and file names, the default
// version and the usage-report event codes.
namespace Morvantix {
namespace Const {

// Settings keys (all top-level in "config.ini").
constexpr char InstallPath[] = "InstallPath";
constexpr char GamePath[] = "GamePath";
constexpr char CurrentGameVersion[] = "CurrentGameVersion";
constexpr char TransitionGameVersion[] = "TransitionGameVersion";
constexpr char TargetGameVersion[] = "TargetGameVersion";
constexpr char CurrentStage[] = "CurrentStage";
constexpr char PatchFinished[] = "bPatchFinished";
constexpr char IsOpenBgMusic[] = "IsOpenBgMusic";
constexpr char IsAutoStart[] = "IsAutoStart";
constexpr char IsPopWhenQuitGame[] = "IsPopWhenQuitGame";
constexpr char IsMinWhenCloseLauncher[] = "IsMinWhenCloseLauncher";
constexpr char IsSkipInstallPlugin[] = "IsSkipInstallPlugin";
constexpr char LimitSpeed[] = "LimitSpeed";
constexpr char MusicVolume[] = "MusicVolume";
constexpr char MusicLanguage[] = "MusicLanguage";
constexpr char SystemExplorer[] = "SystemExplorer";
constexpr char NewAgreementCheckedFlag[] = "NewAgreementCheckedFlag";
constexpr char LoginServer[] = "LoginServer";
constexpr char GuideServer[] = "GuideServer";
constexpr char Host[] = "Host";
constexpr char Channel[] = "Channel";
constexpr char LauncherChannel[] = "LauncherChannel";
constexpr char HostAndChannel[] = "HostAndChannel";
constexpr char LauncherVersion[] = "LauncherVersion";
constexpr char CheckLauncherUpdate[] = "bCheckLauncherUpdate";
constexpr char SerializerTag[] = "SerializerTag";

// Stage values of "CurrentStage".
constexpr char InitStage[] = "INITSTAGE";
constexpr char PatchStage[] = "PATCHSTAGE";

// Folder and file names.
constexpr char ConfigFileName[] = "config.ini";
constexpr char GameFolderName[] = "MorvantixGame";
constexpr char CacheFolderName[] = "MorvantixCache";
constexpr char TempMergeFolderName[] = "TempMerge";
constexpr char DownloadFolder[] = "Download";
constexpr char GameFolder[] = "Game";
constexpr char TempFolder[] = "Temp";
constexpr char UnZipFolder[] = "UnZip";
constexpr char DefaultVersion[] = "0.0.0.1";
constexpr char LastVersionFile[] = "lastversion.txt";
constexpr char LastLauncherVersionFile[] = "lastLauncherVersion.txt";
constexpr char LaunchArgumentsFile[] = "channel.ini"; // beside the program, written by a channel's installer
constexpr char ReportQueueFile[] = "reports.jsonl"; // in the log folder: usage reports not sent yet

// Usage-report event codes.
constexpr const char* ReportEvents[] = { "2001", "2002", "2003", "2004", "2005", "2006", "2007", "2008",
    "2009", "2010", "2011", "2012", "2013", "2014", "2015", "2016", "2017", "2018" };

} // namespace Const
} // namespace Morvantix
