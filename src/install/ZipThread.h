#pragma once

#include "core/CoreExport.h"

#include <QString>
#include <QStringList>
#include <QThread>

// Unpacks the job's archives one after another into one folder with the 7-Zip console program and
// turns its output into progress.
class CORE_EXPORT ZipThread : public QThread
{
    Q_OBJECT
public:
    explicit ZipThread(QObject* parent = nullptr);

    // False for an empty name and for a volume root: the folder a full unpack empties first comes
    // from settings a player can edit, and a mistyped one must not wipe a drive.
    static bool IsDeletableFolder(const QString& folder);

    QStringList m_fileList;
    QString m_unZipFolder;
    bool m_bRepair = false;
    int m_exitCode = 0;
    QString m_errStr;

signals:
    void DecompressFinished(int code, QString errStr);
    void DecompressProgress(int percent, int curCount, int totalCount);

public slots:
    void finishedThread();

protected:
    void run() override;

private:
    bool DecompressFile(int index, const QString& archive, const QString& folder, const QString& toolPath);
    bool ClearDestination();
    void ReportOutput(int index, const QByteArray& burst);
    bool Fail(const QString& archive, int exitCode, const QString& errStr);
};
