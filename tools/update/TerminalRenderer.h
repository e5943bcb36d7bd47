#pragma once

#include "Renderer.h"

class QIODevice;

class TerminalRenderer : public Renderer
{
public:
    TerminalRenderer(QIODevice* out, QIODevice* err, bool bTerminal);

    void stageStarted(const StageEvent& event) override;
    void progressed(const ProgressEvent& event) override;
    void noticed(const QString& text) override;
    void planned(const UpdatePlan& plan) override;
    void finished(const StageResult& result, const JobSummary& summary, int exitCode) override;

private:
    void endBarLine();
    void write(QIODevice* device, const QString& text);

    QIODevice* m_out;
    QIODevice* m_err;
    bool m_bTerminal;
    bool m_bBarShown = false;
    int m_lastDecile = -1;
};
