#pragma once

#include "core/CoreExport.h"
#include "core/RecordCodes.h"
#include "install/PatchInfo.h"

#include <QMetaType>
#include <QString>
#include <QThread>
#include <QVariant>

#include <vector>

class ToolRunAhead;

// What a merge progress report is about travels as a variant to the patcher.
Q_DECLARE_METATYPE(Morvantix::MergeStatus)

// One file rebuilt from its diff. The output is the old file itself: files are patched in place.
struct MergeTask
{
    QString oldPath;
    QString relPath;
    QString diffPath;
    QString outPath;
};

// Applies one unpacked patch package to the game folder: rebuilds the changed files with the diff
// tool, then copies the files the package carries whole, then deletes the files the new version drops.
// A failure ends the job before the next step, so files are added and deleted only after every diff
// has been applied.
class CORE_EXPORT MergeThread : public QThread
{
    Q_OBJECT
public:
    explicit MergeThread(QObject* parent = nullptr);

    // Reads the package's patch info file; called before the thread starts.
    void LoadPatchInfo(const QString& manifestFilePath, const QString& targetPath, const QString& tempPath);

    bool m_bNoMerge = false;
    bool m_bPatchMerge = false;

signals:
    void MergeFinished(QString errorString);
    void MergeProgress(int percent, int totalpercent, QVariant status);

public slots:
    void finishedThread();

protected:
    void run() override;

private:
    bool CheckPaths();
    void BuildMergeList();
    bool MergeFiles();
    // `firstRun`, when given, is the first attempt already started ahead of its turn.
    bool MergeOne(
        const QString& tool, const MergeTask& task, const QStringList& arguments, ToolRunAhead* firstRun);
    void AddFiles();
    void DeleteFiles();
    void Fail(const QString& errorString);

    int m_total = 0;
    int m_index = 0;
    bool m_bHasError = false;
    QString m_errorString;
    Morvantix::PatchInfo m_patchInfo;
    QString m_patchDir;
    QString m_targetPath;
    QString m_tempPath;
    std::vector<MergeTask> m_mergeList;
};
