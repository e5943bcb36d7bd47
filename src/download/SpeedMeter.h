#pragma once

#include "core/CallbackInfo.h"

#include <QVector>
#include <QtGlobal>

// The figures a download reports: what the job has on disk against its total, and the speed,
// smoothed over the last samples of one second each. The transfers add what they read to one
// counter; a sample takes what the counter gained since the one before.
class SpeedMeter
{
public:
    // The counter every transfer of the job adds its reads to.
    qint64* ReceivedCounter() { return &m_bytesTotalReceived; }

    // A new run of the job: nothing received yet.
    void Restart();
    // totalSize: the whole list; onDisk: what its partial files already hold.
    void SetJob(qint64 totalSize, qint64 onDisk);
    // A partial file thrown away: its bytes are no longer on disk, and getting them again is no gain.
    void Discard(qint64 bytes);
    // The files gained bytes since the run started, beyond those that replace discarded ones.
    bool GainedSinceRestart() const { return m_bytesTotalReceived > m_bytesDiscarded; }
    // The average starts again, as it does whenever a file starts or the limit changes.
    void ClearRecord();

    // The one-second sample: bytes received since the previous one. Only a running job reports it.
    qint64 TakeDelta();
    // Speed, progress and time left of a running job, from the sample just taken.
    void Report(qint64 delta, Morvantix::DownloadCallbackInfo& info);
    // What is on disk now, for the completion: the last sample may be up to a second old.
    void ReportFinal(Morvantix::DownloadCallbackInfo& info);

    qint64 TotalSize() const { return m_totalSize; }
    qint64 OnDisk() const { return m_bytesCurrentTotalReceived; }

private:
    qint64 SmoothedSpeed(qint64 delta);
    void FillProgress(Morvantix::DownloadCallbackInfo& info) const;

    qint64 m_bytesTotalReceived = 0;
    qint64 m_bytesLastSample = 0;
    qint64 m_totalSize = 0;
    qint64 m_bytesCurrentTotalReceived = 0;
    qint64 m_bytesDiscarded = 0; // of partial files started again since Restart
    QVector<qint64> m_speedRecord;
    int m_speedRecordIndex = 0;
};
