#pragma once

#include "JobEvents.h"

#include <QObject>

class StageRunner;
class TrustGate;
class UpdateRun;

// A part of an update that does the work of some of its states on the run's shared record: it says
// which stage it starts, and a stage that fails it reports through failed, once, calling nothing
// further (a settings write that fails is reported by the run's own save). Which state follows is
// the job's to decide.
class UpdatePart : public QObject
{
    Q_OBJECT
public:
    UpdatePart(UpdateRun& run, StageRunner* stages, TrustGate* trust, QObject* parent);

signals:
    void stageStarted(const StageEvent& event);
    void noticed(const QString& text);
    void failed(const StageResult& result);

protected:
    // The stages of a chain's step carry the step's number.
    void startStage(Stage stage, const QString& detail);
    void fail(Stage stage, int code, const QString& text, const QString& path = QString());

    UpdateRun& m_run;
    StageRunner* const m_stages;
    TrustGate* const m_trust;
};
