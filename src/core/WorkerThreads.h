#pragma once

#include <QPointer>
#include <QThread>

// The end of a worker's job thread when the worker itself goes away with the application.
namespace WorkerThreads {

// A job is asked to stop and given a moment to do so; only a job that ignores the request is
// terminated, since terminating a thread in the middle of a file operation can leave it half-written.
template <typename Thread> void stopAndDelete(QPointer<Thread>& thread)
{
    if (!thread)
        return;
    if (thread->isRunning()) {
        thread->requestInterruption();
        if (!thread->wait(3000)) {
            thread->terminate();
            thread->wait();
        }
    }
    delete thread.data();
    thread.clear();
}

} // namespace WorkerThreads
