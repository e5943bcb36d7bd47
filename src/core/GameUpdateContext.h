#pragma once

// Chief header of the job records: including it gives every record the stages exchange.
#include "core/CallbackInfo.h"
#include "core/ComponentType.h"
#include "core/DownloadFileInfo.h"
#include "core/ErrorCode.h"
#include "core/LauncherManifest.h"
#include "core/RecordCodes.h"
#include "core/RemoteInfo.h"
#include "core/UpdateSetting.h"
#include "core/Version.h"
#include "core/VersionManifest.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

namespace Morvantix {

// A block of values the launcher keeps for itself inside the context.
struct HostRecord
{
    QString text1;
    QString text2;
    QString text3;
    QString text4;
    qint64 value = 0;
    QString text5;
};

// Everything one update, install or repair job reads and leaves behind. There is one per process,
// owned by the core system; every stage copies its inputs from it when it starts. Members the
// library never reads are carried for the launcher with the defaults it expects.
class GameUpdateContext
{
public:
    qint64 m_hostValue0 = 0;
    UpdateSetting m_updateSetting;
    VersionManifest m_guideManifest;
    QMap<QString, VersionManifest> m_versionManifestMap;
    qint64 m_planValue = 0;
    qint64 m_fullPackSize = 0;
    QVector<DownloadFileInfo> m_downloadFileList;
    QString m_shortestDownloadFile;
    QStringList m_archiveMd5List;
    QStringList m_archiveFileList;
    QString m_installPath = QStringLiteral("");
    QString m_manifestContent = QStringLiteral("");
    bool m_bMd5Verify = false;
    bool m_bVerifyZip = false;
    int m_updateType = 0; // UpdateType
    int m_downloadOption = 0;
    QString m_hostText0 = QStringLiteral("");
    QStringList m_unZipFileList;
    QString m_unZipFolder = QStringLiteral("");
    QString m_patchFolder = QStringLiteral("");
    QString m_mergeTargetPath = QStringLiteral("");
    QString m_mergeTempPath = QStringLiteral("");
    bool m_bSkipDiffMerge = false;
    QString m_updateInstallRoot;
    QString m_updateSourceRoot;
    QString m_updateOldFileList;
    QString m_updateNewFileList;
    QString m_hostText5;
    QString m_hostText6;
    LauncherManifest m_launcherManifest;
    bool m_bHostFlag1 = false;
    bool m_bHostFlag2 = false;
    // Two meanings, one flag: the download manager's speed-limit switch, and the patcher's choice
    // between the merge stage (true) and the file-update stage (false). The launcher sets it before
    // each of those stages.
    bool m_bLimitSpeed = false;
    RemoteInfo m_remoteInfo;
    int m_solveResult = 0; // SolveResult
    bool m_bHostFlag3 = false;
    qint64 m_patchDownloadSize = 0;
    qint64 m_hostValue1 = 0;
    qint64 m_hostValue2 = 0;
    bool m_bHostFlag4 = false;
    bool m_bHostFlag5 = false;
    HostRecord m_hostRecord;
    float m_hostFloat = 1.0f;
    QString m_hostText7 = QStringLiteral("");
    QString m_checkPath = QStringLiteral("");
    // Deployment endpoints; the launcher replaces them with its operator's servers.
    QString m_serverUrl = QStringLiteral("http://127.0.0.1:9601");
    QString m_backupServerUrl = QStringLiteral("http://localhost:8000");
    QString m_hostText8 = QStringLiteral("");
    QString m_hostText9 = QStringLiteral("0");
    QString m_hostText10 = QStringLiteral("");
    QString m_hostText11 = QStringLiteral("");
};

} // namespace Morvantix
