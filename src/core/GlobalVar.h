#pragma once

#include "core/CoreExport.h"

#include <QString>

namespace Global {

// Process-wide switches and names the launcher sets before it uses the library.
struct CORE_EXPORT Var
{
    Var& operator=(const Var&) = default;
    Var& operator=(Var&&) = default;

    static bool bCheckLauncherUpdate;
    static bool bTest;
    static bool bLog; // the log file is written only while this is true
    static bool hideInfo;

    static QString FullZipPrefix;
    static QString Launcher;
    static QString ImageCache;
    static QString Channel;
    static QString Updater;
    static QString BuildStr;
    static QString fakeLauncherManifestPath;
    static QString lastVersionFileName;
    static QString lastLauncherVersionFileName;
    static QString fakeGameManifestPath;
    static QString PatchManifestName;
    static QString Host;
    static QString FullZipManifestName;
    static QString UpdateGUI;
    static QString ZMImageCache;
    static QString InfoName;
    static QString UpdateGUITemp;
    static QString GuideManifestName;
    static QString UpdateGUIExe;
    static QString FullPackManifestName;
    static QString StartBat;
    static QString HostAndChannel;
    static QString GameName;
    static QString LauncherChannel;
    static QString LauncherGUIExe;
};

} // namespace Global
