// The program behind ScriptedTool: copied under a tool's name, it plays the script whose folder the
// file "<its own path>.state" names. Each start counts itself, keeps its arguments, then plays its
// step (the n-th, or the last when there are fewer): its output and error bytes as they are, an
// optional file held open, a wait, and its exit code.
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QThread>

#include <cstdio>

#ifdef Q_OS_WIN
#include <fcntl.h>
#include <io.h>
#endif

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeAll(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

// Output bytes untouched: no line-end translation on Windows, where the tests feed code-page text.
void writeRaw(FILE* stream, const QByteArray& data)
{
#ifdef Q_OS_WIN
    _setmode(_fileno(stream), _O_BINARY);
#endif
    fwrite(data.constData(), 1, size_t(data.size()), stream);
    fflush(stream);
}

// Counted through a file created exclusively, so two starts at once do not take the same number.
int takeStartNumber(const QDir& state)
{
    for (int n = 1;; ++n) {
        QFile mark(state.filePath(QStringLiteral("start%1").arg(n)));
        if (mark.open(QIODevice::NewOnly))
            return n;
        if (!mark.exists())
            return -1;
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QString self = QCoreApplication::applicationFilePath();
    const QDir state(QString::fromUtf8(readAll(self + ".state")).trimmed());
    if (state.path().isEmpty() || !state.exists()) {
        writeRaw(stderr, "no script beside " + self.toUtf8() + "\n");
        return 127;
    }
    const int start = takeStartNumber(state);
    if (start < 0)
        return 126;
    writeAll(state.filePath(QStringLiteral("args%1").arg(start)), app.arguments().mid(1).join('\n').toUtf8());
    const int steps = readAll(state.filePath("steps")).trimmed().toInt();
    const QString step = state.filePath(QString::number(qMin(start, steps)));
    QFile held(QString::fromUtf8(readAll(step + ".hold")));
    if (!held.fileName().isEmpty() && !held.open(QIODevice::ReadOnly))
        return 125;
    // Written once the file is held: a test waiting for it knows the step has begun.
    writeAll(state.filePath(QStringLiteral("pid%1").arg(start)), QByteArray::number(app.applicationPid()));

    writeRaw(stdout, readAll(step + ".out"));
    writeRaw(stderr, readAll(step + ".err"));
    const QList<QByteArray> plan = readAll(step + ".plan").split(' '); // exit code, wait in ms
    QThread::msleep(plan.value(1).toULong());
    return plan.value(0).toInt();
}
