#include "files/FileBlockReader.h"

#include <QFile>
#include <QFileInfo>

FileBlockReader::Result FileBlockReader::Read(const QString& path, QByteArray& buffer, qint64 limit,
    const std::atomic<bool>* stop, const std::function<void(const char* data, qint64 size)>& onBlock)
{
    Result result;
    const QFileInfo info(path);
    QFile file(path);
    if (path.isEmpty() || buffer.isEmpty() || !info.isFile()
        || !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return result;
    qint64 remaining = limit == kOpenSize ? info.size() : limit;
    result.end = End::Read;
    while (remaining > 0) {
        if (stop && stop->load(std::memory_order_relaxed)) {
            result.end = End::Stopped;
            break;
        }
        const qint64 n = file.read(buffer.data(), qMin<qint64>(remaining, buffer.size()));
        if (n == 0)
            break;
        if (n < 0) {
            result.end = End::ReadFailed;
            break;
        }
        onBlock(buffer.constData(), n);
        result.bytes += n;
        remaining -= n;
    }
    return result;
}
