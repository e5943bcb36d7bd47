#include "download/SpeedMeter.h"

#include <QDebug>

namespace {
// Samples kept for the smoothing: a dozen rotating ones plus one that is never overwritten.
constexpr int kSpeedRecordSize = 13;
constexpr int kSpeedRecordRotation = 12;
} // namespace

void SpeedMeter::Restart()
{
    m_bytesTotalReceived = 0;
    m_bytesLastSample = 0;
    m_bytesDiscarded = 0;
}

void SpeedMeter::SetJob(qint64 totalSize, qint64 onDisk)
{
    m_totalSize = totalSize;
    m_bytesCurrentTotalReceived = onDisk;
}

void SpeedMeter::Discard(qint64 bytes)
{
    m_bytesCurrentTotalReceived -= bytes;
    m_bytesDiscarded += bytes;
}

void SpeedMeter::ClearRecord()
{
    m_speedRecord.clear();
    m_speedRecordIndex = 0;
}

qint64 SpeedMeter::TakeDelta()
{
    const qint64 delta = m_bytesTotalReceived - m_bytesLastSample;
    m_bytesLastSample = m_bytesTotalReceived;
    return delta;
}

qint64 SpeedMeter::SmoothedSpeed(qint64 delta)
{
    qint64 sum = delta;
    for (qint64 sample : qAsConst(m_speedRecord))
        sum += sample;
    const qint64 count = 1 + m_speedRecord.size();

    // The record grows to thirteen entries; after that only the first twelve rotate, and the
    // thirteenth keeps its sample for as long as the record is not cleared.
    if (m_speedRecord.size() < kSpeedRecordSize) {
        m_speedRecord.append(delta);
    } else {
        m_speedRecord[m_speedRecordIndex] = delta;
        m_speedRecordIndex = (m_speedRecordIndex + 1) % kSpeedRecordRotation;
    }
    return sum / count;
}

void SpeedMeter::Report(qint64 delta, Morvantix::DownloadCallbackInfo& info)
{
    const qint64 speed = SmoothedSpeed(delta);
    qDebug() << "m_bytesCurrentTotalReceived: " << m_bytesCurrentTotalReceived;

    info.speed = speed;
    m_bytesCurrentTotalReceived += delta;
    info.bError = false;
    info.bComplete = false;
    FillProgress(info);
    qDebug() << info.receivedBytes << "/" << info.totalBytes << "ProgValue   ---------------" << info.percent;

    if (info.speed > 0)
        info.remainTime = static_cast<int>((info.totalBytes - info.receivedBytes) / info.speed);
}

void SpeedMeter::ReportFinal(Morvantix::DownloadCallbackInfo& info)
{
    m_bytesCurrentTotalReceived += TakeDelta();
    FillProgress(info);
}

void SpeedMeter::FillProgress(Morvantix::DownloadCallbackInfo& info) const
{
    info.receivedBytes = m_bytesCurrentTotalReceived;
    info.totalBytes = m_totalSize;
    // An empty job is done as soon as it starts.
    info.percent = m_totalSize > 0
        ? static_cast<float>(static_cast<double>(info.receivedBytes) / static_cast<double>(m_totalSize))
        : 1.0f;
}
