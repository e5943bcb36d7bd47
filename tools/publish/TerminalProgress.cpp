#include "TerminalProgress.h"

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

namespace Publish {

TerminalProgress::TerminalProgress(FILE* stream, bool bInteractive, QObject* parent)
    : QObject(parent)
    , m_stream(stream)
    , m_bInteractive(bInteractive)
{ }

TerminalProgress::~TerminalProgress()
{
    endLine();
}

bool TerminalProgress::IsTerminal(FILE* stream)
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stream));
#else
    return isatty(fileno(stream));
#endif
}

void TerminalProgress::write(const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), m_stream);
    std::fflush(m_stream);
}

void TerminalProgress::endLine()
{
    if (m_bLineOpen)
        write(QStringLiteral("\n"));
    m_bLineOpen = false;
}

void TerminalProgress::showStep(const QString& what)
{
    endLine();
    m_step = what;
    m_shownPercent = -1;
    write(what);
    m_bLineOpen = true;
}

void TerminalProgress::showPercent(int percent)
{
    if (percent == m_shownPercent || (!m_bInteractive && percent / 10 == m_shownPercent / 10))
        return;
    m_shownPercent = percent;
    if (m_bInteractive)
        write(QStringLiteral("\r%1  %2%").arg(m_step).arg(percent, 3));
    else
        write(QStringLiteral(" %1%").arg(percent));
}

void TerminalProgress::showNotice(const QString& text)
{
    endLine();
    write(QStringLiteral("note: %1\n").arg(text));
}

void TerminalProgress::showError(const QString& text)
{
    endLine();
    write(QStringLiteral("core-publish: %1\n").arg(text));
}

} // namespace Publish
