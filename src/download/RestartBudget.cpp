#include "download/RestartBudget.h"

#include <QDebug>

RestartBudget::RestartBudget(int maxRetry)
    : m_maxTimeoutRetry(maxRetry)
{ }

void RestartBudget::Reset()
{
    m_timeoutRetryCount = 0;
    m_bDataArrived = false;
}

RestartBudget::Verdict RestartBudget::OnFailure(bool bGained, bool bRestartPending)
{
    if (bGained) {
        m_bDataArrived = true;
        m_timeoutRetryCount = 0;
    }
    if (!m_bDataArrived) {
        qDebug() << "timeout"
                 << "direct";
        return Verdict::Report;
    }
    qDebug() << "timeout"
             << "startDownloadedFlag" << m_timeoutRetryCount;
    if (m_timeoutRetryCount <= m_maxTimeoutRetry) {
        if (bRestartPending)
            return Verdict::Wait;
        qDebug() << "timeout"
                 << "add";
        ++m_timeoutRetryCount;
        return Verdict::Restart;
    }
    qDebug() << "timeout"
             << "onError";
    Reset();
    return Verdict::Report;
}
