#pragma once

#include "core/CallbackInfo.h"

#include <functional>

class SpeedMeter;

// What the caller of a download job hears, always through the one record: the progress of a running
// job, and exactly one ending per run, a completion or a failure. Ending and telling are two steps, so
// that the transfers can be let go of in between, with no second ending possible meanwhile.
class DownloadReport
{
public:
    void Register(std::function<void(Morvantix::DownloadCallbackInfo&)> callback);

    // A new run, which may end once more; its speed starts at nothing.
    void Open();
    // The run ends with `code` and `text`; false when it had ended already.
    bool EndFailed(Morvantix::ErrorCode code, const QString& text);
    // The run ends complete, with what is on disk now; false when it had ended already.
    bool EndComplete(SpeedMeter& meter);
    // The one-second sample of a running job, told at once.
    void Progress(SpeedMeter& meter, qint64 delta);
    void Send();

private:
    std::function<void(Morvantix::DownloadCallbackInfo&)> m_callback;
    Morvantix::DownloadCallbackInfo m_callbackInfo; // outlives runs
    bool m_bFinished = false; // this run has ended
};
