#pragma once

#include "install/ToolRunner.h"

#include <QThread>

#include <functional>
#include <memory>

// One run of a tool started before its turn, on a thread of its own, so that it overlaps the work
// in front of it; its result is taken when its turn comes, and nothing of it is reported before.
// Internal to the library.
class ToolRunAhead
{
public:
    explicit ToolRunAhead(std::function<ToolRunner::Result()> run);
    // A run still going is cancelled (the tool is killed) and waited for.
    ~ToolRunAhead();

    ToolRunAhead(const ToolRunAhead&) = delete;
    ToolRunAhead& operator=(const ToolRunAhead&) = delete;

    // Waits for the run's end. A stop asked of the calling thread meanwhile is passed on, so the
    // run then ends as cancelled.
    ToolRunner::Result take();

private:
    ToolRunner::Result m_result;
    std::unique_ptr<QThread> m_thread;
};
