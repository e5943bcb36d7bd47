#pragma once

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>

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

// A folder's files by relative path ("/" separated).
using Tree = QMap<QString, QByteArray>;

inline bool writeTree(const QString& root, const Tree& files)
{
    bool written = true;
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        written = written && writeFile(root + QLatin1Char('/') + it.key(), it.value());
    return written;
}

// The MD5 of every file below root (hidden ones included), by relative path.
inline QMap<QString, QString> md5Tree(const QString& root)
{
    QMap<QString, QString> sums;
    for (QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();) {
        const QString path = it.next();
        sums.insert(QDir(root).relativeFilePath(path), md5Hex(readFile(path)));
    }
    return sums;
}

inline QMap<QString, QString> md5Tree(const Tree& files)
{
    QMap<QString, QString> sums;
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        sums.insert(it.key(), md5Hex(it.value()));
    return sums;
}

} // namespace TestFiles
