#include "UpdateJob.h"

#include "Boundary.h"
#include "HumanText.h"
#include "InstallLock.h"
#include "RepairJob.h"
#include "StageRunner.h"
#include "StepStages.h"
#include "TrustGate.h"

#include "core/CoreSystem.h"
#include "core/GlobalVar.h"

#include <QDir>

using namespace Morvantix;

UpdateJob::UpdateJob(const UpdateOptions& options, const QString& settingsFolder, QObject* parent)
    : QObject(parent)
    , m_run(options, settingsFolder, CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext(),
          [this](const StageResult& result) { fail(result); })
    , m_stages(new StageRunner(*m_run.ctx, this))
    , m_repair(new RepairJob(m_stages, *m_run.ctx, this))
    , m_trust(new TrustGate(this))
    , m_preparation(new UpdatePreparation(m_run, m_stages, m_trust, this))
    , m_steps(new StepStages(m_run, m_stages, m_trust, this))
{
    connect(m_stages, &StageRunner::progressed, this, &UpdateJob::progressed);
    connect(m_preparation, &UpdatePreparation::stageStarted, this, &UpdateJob::stageStarted);
    connect(m_preparation, &UpdatePreparation::noticed, this, &UpdateJob::noticed);
    connect(m_preparation, &UpdatePreparation::planned, this, &UpdateJob::planned);
    connect(m_preparation, &UpdatePreparation::failed, this, qOverload<const StageResult&>(&UpdateJob::fail));
    connect(m_preparation, &UpdatePreparation::succeeded, this, &UpdateJob::succeed);
    connect(m_preparation, &UpdatePreparation::ready, this, &UpdateJob::onPrepared);
    connect(m_steps, &StepStages::stageStarted, this, &UpdateJob::stageStarted);
    connect(m_steps, &StepStages::noticed, this, &UpdateJob::noticed);
    connect(m_steps, &StepStages::failed, this, qOverload<const StageResult&>(&UpdateJob::fail));
    connect(m_repair, &RepairJob::stageStarted, this, [this](const StageEvent& event) {
        m_run.stage = event.stage;
        emit stageStarted(event);
    });
    connect(m_repair, &RepairJob::planned, this, &UpdateJob::planned);
    connect(m_repair, &RepairJob::finished, this, &UpdateJob::onRepairFinished);
}

UpdateJob::~UpdateJob() = default;

void UpdateJob::start()
{
    Global::Var::Host = m_run.options.serverUrl;
    Global::Var::HostAndChannel = m_run.options.serverUrl;
    if (!m_run.options.bDryRun && !takeLock())
        return;
    m_state = State::Prepare;
    m_preparation->start();
}

void UpdateJob::onPrepared(UpdatePreparation::Next next)
{
    switch (next) {
    case UpdatePreparation::Next::Chain:
        return moveTo(State::Step);
    case UpdatePreparation::Next::VerifyGame:
        return moveTo(State::VerifyGame);
    case UpdatePreparation::Next::VerifyInstalled:
        return moveTo(State::VerifyInstalled);
    }
}

bool UpdateJob::stopsBefore(State state)
{
    // A checked patch goes on to its in-use check, and an unpacked full package into place: the
    // run stops at the next state instead, with the unpacked work recorded. The verify and repair
    // commands come straight from their manifest fetch, which an interrupt ends by itself.
    return state != State::CheckPatch && state != State::Swap && state != State::VerifyInstalled;
}

void UpdateJob::moveTo(State next)
{
    if (stopsBefore(next) && leaveIfInterrupted())
        return;
    m_state = next;
    switch (next) {
    case State::Step:
        return m_steps->begin([this] { moveTo(State::Download); });
    case State::Download:
        return m_steps->download([this] { moveTo(State::VerifyPackage); });
    case State::VerifyPackage:
        return m_steps->verify([this] { moveTo(State::Unpack); }, [this] { moveTo(State::DownloadAgain); });
    case State::DownloadAgain:
        return m_steps->download([this] { moveTo(State::VerifyAgain); });
    case State::VerifyAgain:
        return m_steps->verify([this] { moveTo(State::Unpack); }, nullptr);
    case State::Unpack:
        return m_steps->unpack([this] { moveTo(m_run.bFullInstall ? State::Swap : State::CheckPatch); });
    case State::CheckPatch:
        return m_steps->checkPatch([this] { moveTo(State::CheckInUse); });
    case State::CheckInUse:
        return m_steps->checkInUse([this] { moveTo(State::Merge); });
    case State::Merge:
        return m_steps->merge([this] {
            ++m_run.stepIndex;
            moveTo(m_run.stepIndex < m_run.plan.size() ? State::Step : State::VerifyGame);
        });
    case State::Swap:
        return m_steps->swapIn([this] { moveTo(State::VerifyGame); });
    case State::VerifyGame:
        return verifyGame();
    case State::VerifyInstalled:
        return startRepairJob();
    case State::Idle:
    case State::Prepare:
    case State::Finished:
        return;
    }
}

void UpdateJob::interrupt()
{
    if (m_state == State::Finished || m_bInterrupted)
        return;
    m_bInterrupted = true;
    if (m_state == State::VerifyGame || m_state == State::VerifyInstalled) {
        m_repair->interrupt();
    } else if (m_state == State::Download || m_state == State::DownloadAgain) {
        m_stages->pauseDownload();
        leaveIfInterrupted();
    } else if (m_run.stage == Stage::Settings || m_run.stage == Stage::Trust || m_run.stage == Stage::Server
        || m_run.stage == Stage::Plan) {
        m_stages->abandon();
        leaveIfInterrupted();
    } else {
        emit noticed(QStringLiteral("stopping when the %1 stage ends").arg(StageName(m_run.stage)));
    }
}

bool UpdateJob::takeLock()
{
    m_run.stage = Stage::Lock;
    if (!QDir().mkpath(m_run.options.folder)) {
        fail(Stage::Settings, 0,
            QStringLiteral("cannot create the install folder %1").arg(m_run.options.folder));
        return false;
    }
    m_lock = std::make_unique<InstallLock>(m_run.options.folder);
    if (m_lock->tryLock())
        return true;
    fail(Stage::Lock, 0,
        QStringLiteral("another run is working in %1: %2; try again when it has ended")
            .arg(m_run.options.folder, m_lock->holder()),
        m_lock->filePath());
    return false;
}

void UpdateJob::startRepairJob()
{
    const bool bRepair = m_run.options.command == Command::Repair;
    if (bRepair && !m_run.options.bDryRun) {
        m_run.pending = PendingWork::Verify;
        if (!m_run.save())
            return;
    }
    const QString version = m_run.ctx->m_updateSetting.currentGameVersion;
    m_repair->start(m_run.manifests.value(version), version, bRepair, m_run.options.bDryRun);
}

void UpdateJob::verifyGame()
{
    Boundary::Pass("verifying");
    m_repair->start(m_run.manifests.value(m_run.newest), m_run.newest, true, false);
}

void UpdateJob::onRepairFinished(const StageResult& result, const QStringList& repaired, qint64 downloaded)
{
    m_run.summary.downloadedBytes += downloaded;
    m_run.summary.repairedFiles = repaired;
    if (result.bFailed || result.bInterrupted)
        return finish(result);
    // Every file is as published: nothing is left for a later run. A dry run changed nothing.
    if (m_run.pending == PendingWork::Verify && !m_run.options.bDryRun) {
        m_run.pending = PendingWork::None;
        if (!m_run.save())
            return;
    }
    const QString version = m_run.summary.version;
    const QString repairs = repaired.isEmpty()
        ? QString()
        : QStringLiteral(", %1 repaired").arg(HumanText::Files(repaired.size()));
    switch (m_run.options.command) {
    case Command::Verify:
        return succeed(
            Outcome::Verified, QStringLiteral("every file of version %1 is as published").arg(version));
    case Command::Repair:
        if (m_run.options.bDryRun)
            return succeed(Outcome::Planned, QStringLiteral("dry run: nothing changed"));
        return succeed(Outcome::Repaired,
            repaired.isEmpty()
                ? QStringLiteral("every file of version %1 is as published; nothing to repair").arg(version)
                : QStringLiteral("version %1 repaired: %2 fetched again")
                      .arg(version, HumanText::Files(repaired.size())));
    case Command::Install:
    case Command::Update:
        break;
    }
    if (m_run.plan.isEmpty())
        return succeed(Outcome::Updated,
            QStringLiteral("version %1 verified after an interrupted run%2").arg(version, repairs));
    if (m_run.bFullInstall)
        return succeed(Outcome::Installed, QStringLiteral("installed version %1%2").arg(version, repairs));
    succeed(Outcome::Updated,
        QStringLiteral("updated %1 to %2%3").arg(m_run.summary.installedVersion, version, repairs));
}

// --- Reporting ---

bool UpdateJob::leaveIfInterrupted()
{
    if (!m_bInterrupted)
        return false;
    StageResult result;
    result.stage = m_run.stage;
    result.bInterrupted = true;
    finish(result);
    return true;
}

void UpdateJob::fail(Stage stage, int code, const QString& text, const QString& path)
{
    fail(StageResult { stage, true, false, code, text, path });
}

void UpdateJob::fail(const StageResult& result)
{
    if (result.stage == Stage::Trust && !m_run.options.bDryRun && m_state != State::Finished) {
        m_run.restoreSettled();
        m_run.save();
    }
    finish(result);
}

void UpdateJob::succeed(Outcome outcome, const QString& message)
{
    if (!m_run.options.bDryRun)
        m_trust->recordSuccess();
    m_run.summary.outcome = outcome;
    m_run.summary.message = message;
    StageResult result;
    result.stage = m_run.stage;
    finish(result);
}

void UpdateJob::finish(const StageResult& result)
{
    if (m_state == State::Finished)
        return;
    m_state = State::Finished;
    if (result.bFailed || result.bInterrupted)
        m_run.summary.outcome = Outcome::Failed;
    emit finished(result, m_run.summary);
}
