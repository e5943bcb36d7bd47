#pragma once

#include "JobEvents.h"

#include <memory>

class QIODevice;

// Turns what the job reports into output. Chosen once per run; the job never prints.
class Renderer
{
public:
    virtual ~Renderer() = default;

    virtual void stageStarted(const StageEvent& event) = 0;
    virtual void progressed(const ProgressEvent& event) = 0;
    virtual void noticed(const QString& text) = 0;
    virtual void planned(const UpdatePlan& plan) = 0;
    virtual void finished(const StageResult& result, const JobSummary& summary, int exitCode) = 0;
};

// json: one object per line on out. Otherwise people's text: progress and errors on err (a redrawn
// bar when err is a terminal, plain lines otherwise), the plan and the closing line on out.
std::unique_ptr<Renderer> MakeRenderer(bool json, QIODevice* out, QIODevice* err, bool errIsTerminal);
