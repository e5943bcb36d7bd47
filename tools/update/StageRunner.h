#pragma once

#include "JobEvents.h"

#include "core/CallbackInfo.h"
#include "core/GameUpdateContext.h"

#include <QElapsedTimer>
#include <QObject>

#include <functional>

// Starts one stage at a time through the library's components and turns their callback records into
// progress events. A stage's end is handed to `done` from the event loop, after the component's
// callback has returned, so `done` may start the next stage at once (a component must not get a new
// callback from inside its own). Reports of a stage that has been left behind are ignored.
class StageRunner : public QObject
{
    Q_OBJECT
public:
    explicit StageRunner(Morvantix::GameUpdateContext& ctx, QObject* parent = nullptr);

    // The chain step that later progress belongs to; 0 outside a chain.
    void setStep(int step, int steps);
    // KB/s for the downloads that follow; -1 for none.
    void setDownloadLimit(int kbps) { m_limitKBps = kbps; }

    // maxBytes: the document's cap; a larger one ends with code ContentTooLarge.
    void fetch(const QString& url, qint64 maxBytes, std::function<void(const QString& text, int code)> done);
    void download(Stage stage, std::function<void(const Morvantix::DownloadCallbackInfo&)> done);
    void pauseDownload();
    // totalBytes: what the job hashes, to show progress in bytes.
    void verify(
        Stage stage, qint64 totalBytes, std::function<void(const Morvantix::VerifyCallbackInfo&)> done);
    void unpack(qint64 totalBytes, std::function<void(const Morvantix::UnZipCallbackInfo&)> done);
    void check(std::function<void(const Morvantix::CheckCallbackInfo&)> done);
    // Checks that no file under `folder` is open elsewhere; `done` gets the first one that is, or "".
    void checkNotInUse(const QString& folder, std::function<void(const QString& busyPath)> done);
    void applyPatch(Stage stage, std::function<void(const Morvantix::PatcherCallbackInfo&)> done);

    // Leaves the running stage: its later reports and its end are ignored.
    void abandon();

signals:
    void progressed(const ProgressEvent& event);

private:
    quint64 begin(Stage stage);
    bool isCurrent(quint64 generation) const { return generation == m_generation; }
    void report(double fraction, qint64 doneBytes, qint64 totalBytes, qint64 speed, int secondsLeft);
    // Speed and time left from the stage's own clock, for stages that report only a fraction.
    void reportFraction(double fraction, qint64 totalBytes);
    // Hands the running stage's reports to `progress` until its end, which goes to `done` from the
    // event loop; reports of an abandoned stage go nowhere.
    template <typename Info, typename Component>
    void watch(Component& component, std::function<void(const Info&)> progress,
        std::function<void(const Info&)> done);

    Morvantix::GameUpdateContext& m_ctx;
    Stage m_stage = Stage::Settings;
    int m_step = 0;
    int m_steps = 0;
    int m_limitKBps = -1;
    double m_fraction = 0.0;
    quint64 m_generation = 0;
    QElapsedTimer m_stageClock;
    QElapsedTimer m_reportClock;
    bool m_bReported = false;
};
