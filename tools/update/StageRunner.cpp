#include "StageRunner.h"

#include "core/CheckComponent.h"
#include "core/ComponentAccessors.h"
#include "core/DownloadComponent.h"
#include "core/PatchComponent.h"
#include "core/UnZipComponent.h"
#include "core/VerifyComponent.h"

#include <QTimer>

using namespace Morvantix;

namespace {

// Progress reaches the renderers at most this often; a stage's end always does.
constexpr int kReportIntervalMs = 250;
constexpr qint64 kSettleMs = 1000;

} // namespace

StageRunner::StageRunner(GameUpdateContext& ctx, QObject* parent)
    : QObject(parent)
    , m_ctx(ctx)
{ }

void StageRunner::setStep(int step, int steps)
{
    m_step = step;
    m_steps = steps;
}

quint64 StageRunner::begin(Stage stage)
{
    m_stage = stage;
    m_fraction = 0.0;
    m_bReported = false;
    m_stageClock.start();
    return ++m_generation;
}

void StageRunner::abandon()
{
    ++m_generation;
}

void StageRunner::report(double fraction, qint64 doneBytes, qint64 totalBytes, qint64 speed, int secondsLeft)
{
    // Some tools restart their count (7-Zip shows 100% as 0); a bar never runs backwards.
    fraction = qBound(m_fraction, fraction, 1.0);
    const bool due = !m_bReported || fraction >= 1.0 || m_reportClock.elapsed() >= kReportIntervalMs;
    m_fraction = fraction;
    if (!due)
        return;
    m_bReported = true;
    m_reportClock.start();
    ProgressEvent event;
    event.stage = m_stage;
    event.step = m_step;
    event.steps = m_steps;
    event.fraction = fraction;
    event.doneBytes = doneBytes;
    event.totalBytes = totalBytes;
    event.bytesPerSecond = speed;
    event.secondsLeft = secondsLeft;
    emit progressed(event);
}

void StageRunner::reportFraction(double fraction, qint64 totalBytes)
{
    fraction = qBound(m_fraction, fraction, 1.0);
    const qint64 elapsedMs = qMax<qint64>(1, m_stageClock.elapsed());
    if (totalBytes <= 0) {
        report(fraction, -1, -1, -1, -1);
        return;
    }
    const qint64 done = qint64(fraction * double(totalBytes));
    // Over the first second a rate says more about the clock than about the work.
    const qint64 speed = elapsedMs >= kSettleMs ? done * 1000 / elapsedMs : -1;
    const int left = speed > 0 ? int((totalBytes - done) / speed) : -1;
    report(fraction, done, totalBytes, speed, left);
}

void StageRunner::fetch(const QString& url, qint64 maxBytes, std::function<void(const QString&, int)> done)
{
    const quint64 generation = begin(Stage::Server);
    GetDownloadComponent()->GetContentByUrl(
        url,
        [this, generation, done](const QString& text, int code) {
            QTimer::singleShot(0, this, [this, generation, done, text, code] {
                if (isCurrent(generation))
                    done(text, code);
            });
        },
        QString(), false, maxBytes);
}

namespace {

// What sets one stage apart from another: which report is its end, and how its reports become
// progress. Everything else (the stale-report guard, the deferred end) is the same for all.
template <typename Info> struct StageTraits;

template <> struct StageTraits<DownloadCallbackInfo>
{
    static bool ended(const DownloadCallbackInfo& info) { return info.bComplete || info.bError; }
};
template <> struct StageTraits<VerifyCallbackInfo>
{
    static bool ended(const VerifyCallbackInfo& info) { return info.bComplete; }
};
template <> struct StageTraits<UnZipCallbackInfo>
{
    static bool ended(const UnZipCallbackInfo& info) { return info.bComplete; }
};
template <> struct StageTraits<CheckCallbackInfo>
{
    static bool ended(const CheckCallbackInfo& info) { return info.bComplete; }
};
template <> struct StageTraits<PatcherCallbackInfo>
{
    static bool ended(const PatcherCallbackInfo& info) { return info.bComplete || info.bError; }
};

} // namespace

template <typename Info, typename Component>
void StageRunner::watch(
    Component& component, std::function<void(const Info&)> progress, std::function<void(const Info&)> done)
{
    const quint64 generation = m_generation;
    component.RegistCallbackFunc([this, generation, progress, done](Info& info) {
        if (!isCurrent(generation))
            return;
        if (!StageTraits<Info>::ended(info)) {
            progress(info);
            return;
        }
        const Info copy = info;
        QTimer::singleShot(0, this, [this, generation, done, copy] {
            if (isCurrent(generation))
                done(copy);
        });
    });
}

void StageRunner::download(Stage stage, std::function<void(const DownloadCallbackInfo&)> done)
{
    begin(stage);
    auto component = GetDownloadComponent();
    watch<DownloadCallbackInfo>(
        *component,
        [this](const DownloadCallbackInfo& info) {
            report(info.percent, info.receivedBytes, info.totalBytes, info.speed,
                info.speed > 0 ? info.remainTime : -1);
        },
        std::move(done));
    m_ctx.m_updateSetting.limitSpeed = m_limitKBps;
    m_ctx.m_bLimitSpeed = m_limitKBps > 0;
    // Always a resuming start: a fresh start clears the cache folder, and with it every partial file
    // an interrupted run left to be continued.
    component->ResumeDownload(m_ctx);
}

void StageRunner::pauseDownload()
{
    abandon();
    GetDownloadComponent()->PauseDownload(m_ctx);
}

void StageRunner::verify(Stage stage, qint64 totalBytes, std::function<void(const VerifyCallbackInfo&)> done)
{
    begin(stage);
    auto component = GetVerifyComponent();
    watch<VerifyCallbackInfo>(
        *component,
        [this, totalBytes](const VerifyCallbackInfo& info) { reportFraction(info.percent, totalBytes); },
        std::move(done));
    component->StartVerify(m_ctx);
}

void StageRunner::unpack(qint64 totalBytes, std::function<void(const UnZipCallbackInfo&)> done)
{
    begin(Stage::Unpack);
    auto component = GetUnZipComponent();
    watch<UnZipCallbackInfo>(
        *component,
        [this, totalBytes](const UnZipCallbackInfo& info) {
            const int archives = qMax(1, info.totalCount);
            reportFraction((info.curCount + info.percent / 100.0) / archives, totalBytes);
        },
        std::move(done));
    component->StartUnZip(m_ctx);
}

void StageRunner::check(std::function<void(const CheckCallbackInfo&)> done)
{
    begin(Stage::Check);
    auto component = GetCheckComponent();
    watch<CheckCallbackInfo>(
        *component, [this](const CheckCallbackInfo& info) { reportFraction(info.percent, -1); },
        std::move(done));
    component->StartChecker(m_ctx);
}

void StageRunner::checkNotInUse(const QString& folder, std::function<void(const QString&)> done)
{
    m_ctx.m_checkPath = folder;
    check([done](const CheckCallbackInfo& info) { done(info.bError ? info.errorPath : QString()); });
}

void StageRunner::applyPatch(Stage stage, std::function<void(const PatcherCallbackInfo&)> done)
{
    begin(stage);
    auto component = GetPatchComponent();
    watch<PatcherCallbackInfo>(
        *component,
        [this](const PatcherCallbackInfo& info) {
            // Reports count the files of the step being worked on: diffs, then added, then deleted.
            reportFraction(info.totalpercent > 0 ? double(info.percent) / info.totalpercent : 0.0, -1);
        },
        std::move(done));
    // The one flag is the patcher's choice of the merge stage here, and the download's speed-limit
    // switch elsewhere; the download stage sets it back.
    m_ctx.m_bLimitSpeed = true;
    component->StartApplyPatch(m_ctx);
}
