#include "install/ToolRunAhead.h"

namespace {

// How often a wait for the run looks whether the waiting thread is asked to stop.
constexpr unsigned long kStopPollMs = 10;

} // namespace

ToolRunAhead::ToolRunAhead(std::function<ToolRunner::Result()> run)
    : m_thread(QThread::create([this, run = std::move(run)] { m_result = run(); }))
{
    m_thread->start();
}

ToolRunAhead::~ToolRunAhead()
{
    m_thread->requestInterruption();
    m_thread->wait();
}

ToolRunner::Result ToolRunAhead::take()
{
    QThread* waiting = QThread::currentThread();
    while (!m_thread->wait(kStopPollMs)) {
        if (waiting->isInterruptionRequested())
            m_thread->requestInterruption();
    }
    return m_result;
}
