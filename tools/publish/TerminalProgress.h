#pragma once

#include <QObject>
#include <QString>

#include <cstdio>

namespace Publish {

// Shows the publisher's steps on standard error: one line per step, its percentage redrawn in place
// on a terminal and every tenth step of it otherwise, so a log file stays short.
class TerminalProgress : public QObject
{
    Q_OBJECT
public:
    TerminalProgress(FILE* stream, bool bInteractive, QObject* parent = nullptr);
    ~TerminalProgress() override;

    // Whether the stream is a terminal.
    static bool IsTerminal(FILE* stream);

public slots:
    void showStep(const QString& what);
    void showPercent(int percent);
    void showNotice(const QString& text);
    void showError(const QString& text);

private:
    void endLine();
    void write(const QString& text);

    FILE* m_stream;
    bool m_bInteractive;
    bool m_bLineOpen = false;
    QString m_step;
    int m_shownPercent = -1;
};

} // namespace Publish
