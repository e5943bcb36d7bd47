#pragma once

#include "Renderer.h"

#include <QJsonObject>

class QIODevice;

// One JSON object per line, each with "type" and "time" (UTC, ISO 8601 with milliseconds).
class JsonRenderer : public Renderer
{
public:
    explicit JsonRenderer(QIODevice* out);

    void stageStarted(const StageEvent& event) override;
    void progressed(const ProgressEvent& event) override;
    void noticed(const QString& text) override;
    void planned(const UpdatePlan& plan) override;
    void finished(const StageResult& result, const JobSummary& summary, int exitCode) override;

private:
    void emitObject(const QString& type, QJsonObject object);

    QIODevice* m_out;
};
