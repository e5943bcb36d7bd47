#include "UpdatePart.h"

#include "UpdateRun.h"

UpdatePart::UpdatePart(UpdateRun& run, StageRunner* stages, TrustGate* trust, QObject* parent)
    : QObject(parent)
    , m_run(run)
    , m_stages(stages)
    , m_trust(trust)
{ }

void UpdatePart::startStage(Stage stage, const QString& detail)
{
    m_run.stage = stage;
    StageEvent event { stage, 0, 0, detail };
    const bool bChainStage = stage == Stage::Download || stage == Stage::VerifyPackage
        || stage == Stage::Unpack || stage == Stage::Check || stage == Stage::Merge;
    if (bChainStage && !m_run.bFullInstall && !m_run.plan.isEmpty()) {
        event.step = m_run.stepIndex + 1;
        event.steps = m_run.plan.size();
    }
    emit stageStarted(event);
}

void UpdatePart::fail(Stage stage, int code, const QString& text, const QString& path)
{
    emit failed(StageResult { stage, true, false, code, text, path });
}
