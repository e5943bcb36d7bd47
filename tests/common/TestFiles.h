#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

// Files and data for tests: reproducible bytes, whole-file writes and reads, MD5 texts.
namespace TestFiles {

// The same size and seed always give the same bytes; different seeds differ everywhere.
inline QByteArray patternBytes(qint64 size, quint32 seed = 1)
{
    QByteArray data(int(size), Qt::Uninitialized);
    quint32 state = seed * 2654435761u + 1;
    for (int i = 0; i < data.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        data[i] = char(state >> 24);
    }
    return data;
}

// Creates the parent folders; returns false when the file cannot be written.
inline bool writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline QString md5Hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

} // namespace TestFiles
