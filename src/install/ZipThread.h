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
