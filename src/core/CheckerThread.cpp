#include "core/CheckerThread.h"

#include "files/QFileUtils.h"

#include <QStringList>

CheckerThread::CheckerThread(QObject* parent)
    : QThread(parent)
{
    connect(this, &QThread::finished, this, &CheckerThread::finishedThread);
}

void CheckerThread::run()
{
    m_bError = false;
    QStringList files;
    QFileUtils::getFileListUnderDir(m_checkPath, files);
    const int total = files.size();
    m_errorPath = QStringLiteral("");
    for (int i = 1; i <= total; ++i) {
        if (isInterruptionRequested())
            return;
        const QString& file = files.at(i - 1);
        if (QFileUtils::FileIsUsing(file)) {
            m_bError = true;
            m_errorPath = file;
            return;
        }
        emit CheckProgress(static_cast<float>(i) / static_cast<float>(total));
    }
}

void CheckerThread::finishedThread()
{
    emit CheckComplete(m_bError, m_errorPath);
}
