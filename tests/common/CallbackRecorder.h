#pragma once

#include <QTest>
#include <QVector>

#include <algorithm>
#include <functional>
#include <iterator>

// Keeps a copy of every record a worker hands to its callback and tells when the job has ended.
// isEnd decides which records are endings; by default those with bComplete set.
template <typename Info> class CallbackRecorder
{
public:
    explicit CallbackRecorder(
        std::function<bool(const Info&)> isEnd = [](const Info& info) { return info.bComplete; })
        : m_isEnd(std::move(isEnd))
    { }

    std::function<void(Info&)> callback()
    {
        return [this](Info& info) {
            m_reports.append(info);
            m_endings += m_isEnd(info) ? 1 : 0;
        };
    }

    // Waits for the first ending, then a moment more so that a second one would be seen.
    bool waitForEnd(int timeoutMs = 30000)
    {
        const bool ended = QTest::qWaitFor([this] { return m_endings > 0; }, timeoutMs);
        QTest::qWait(20);
        return ended;
    }

    // Registers with a component, lets start begin the job, waits for its end and unregisters again:
    // true when the job ended exactly once.
    template <typename Component, typename Start>
    bool run(const Component& component, Start start, int timeoutMs = 30000)
    {
        component->RegistCallbackFunc(callback());
        start();
        const bool ended = waitForEnd(timeoutMs);
        component->RegistCallbackFunc(nullptr);
        return ended && m_endings == 1;
    }

    int endings() const { return m_endings; }
    const QVector<Info>& reports() const { return m_reports; }
    const Info& last() const { return m_reports.last(); }
    QVector<Info> progressReports() const
    {
        QVector<Info> progress;
        std::copy_if(m_reports.cbegin(), m_reports.cend(), std::back_inserter(progress),
            [this](const Info& info) { return !m_isEnd(info); });
        return progress;
    }
    // One field of every progress report, in order.
    template <typename T> QList<T> progress(T Info::*field) const
    {
        QList<T> values;
        for (const Info& info : progressReports())
            values.append(info.*field);
        return values;
    }

private:
    std::function<bool(const Info&)> m_isEnd;
    QVector<Info> m_reports;
    int m_endings = 0;
};
