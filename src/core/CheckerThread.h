#pragma once

#include "core/CoreExport.h"

#include <QString>
#include <QThread>

// Walks a folder and stops at the first file another process holds open.
class CORE_EXPORT CheckerThread : public QThread
{
    Q_OBJECT
public:
    explicit CheckerThread(QObject* parent = nullptr);

    bool m_bError = false;
    QString m_checkPath;
    QString m_errorPath;

signals:
    void CheckComplete(bool bError, QString errorPath);
    void CheckProgress(float percent);

public slots:
    void finishedThread();

protected:
    void run() override;
};
