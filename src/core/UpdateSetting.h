#pragma once

#include <QString>

namespace Morvantix {

// The persisted settings. Defaults of the settings file are applied by Serializer::ReadSetting; a
// default-constructed record is empty except for the three explicitly empty strings.
struct UpdateSetting
{
    QString installPath;
    QString gamePath;
    QString cachePath;
    QString unZipPath;
    QString tempMergePath;
    QString currentGameVersion;
    QString transitionGameVersion;
    QString targetGameVersion;
    QString currentStage;
    bool bPatchFinished = false;
    bool isOpenBgMusic = false;
    bool isAutoStart = false;
    bool isPopWhenQuitGame = false;
    bool isMinWhenCloseLauncher = false;
    bool isSkipInstallPlugin = false;
    int limitSpeed = 0;
    int musicVolume = 0;
    QString musicLanguage = QStringLiteral("");
    bool systemExplorer = false;
    bool newAgreementCheckedFlag = false;
    QString loginServer = QStringLiteral("");
    QString guideServer = QStringLiteral("");
};

} // namespace Morvantix
