#pragma once

// How often a job may restart after network failures. A failure before any data arrived is the
// server's or the address's, which retrying will not mend; after data has flowed the job restarts,
// at most a few times in a row without fresh progress.
class RestartBudget
{
public:
    enum class Verdict
    {
        Report, // the failure ends the job
        Restart, // a restart is spent: stop every transfer and start again after the delay
        Wait, // a restart is already waiting; this failure is part of the same one
    };

    explicit RestartBudget(int maxRetry);

    // A fresh job: nothing has arrived from its server yet.
    void Reset();
    // bGained: the files grew since the last (re)start, which renews the budget.
    Verdict OnFailure(bool bGained, bool bRestartPending);
    int MaxRetry() const { return m_maxTimeoutRetry; }

private:
    const int m_maxTimeoutRetry;
    int m_timeoutRetryCount = 0; // restarts done since data last arrived
    bool m_bDataArrived = false; // "startDownloadedFlag" in the traces
};
