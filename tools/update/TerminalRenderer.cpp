#include "TerminalRenderer.h"

#include "HumanText.h"
#include "ShownText.h"

#include "util/QtUtil.h"

#include <QIODevice>

namespace {

constexpr int kBarWidth = 24;

QString stepText(int step, int steps)
{
    return step > 0 ? QStringLiteral("step %1/%2").arg(step).arg(steps) : QString();
}

QString progressText(const ProgressEvent& event)
{
    QStringList parts { StageName(event.stage) };
    if (event.step > 0)
        parts << stepText(event.step, event.steps);
    parts << QStringLiteral("%1%").arg(event.fraction * 100.0, 5, 'f', 1);
    if (event.totalBytes >= 0)
        parts << QStringLiteral("%1 of %2")
                     .arg(QtUtil::FormatSize(event.doneBytes), QtUtil::FormatSize(event.totalBytes));
    if (event.bytesPerSecond > 0)
        parts << HumanText::Speed(event.bytesPerSecond);
    if (event.secondsLeft >= 0)
        parts << QtUtil::FormatDuration(event.secondsLeft) + QStringLiteral(" left");
    return parts.join(QStringLiteral("  "));
}

QString bar(double fraction)
{
    const int filled = qBound(0, int(fraction * kBarWidth + 0.5), kBarWidth);
    return QLatin1Char('[') + QString(filled, QLatin1Char('#'))
        + QString(kBarWidth - filled, QLatin1Char('.')) + QLatin1Char(']');
}

} // namespace

TerminalRenderer::TerminalRenderer(QIODevice* out, QIODevice* err, bool bTerminal)
    : m_out(out)
    , m_err(err)
    , m_bTerminal(bTerminal)
{ }

void TerminalRenderer::write(QIODevice* device, const QString& text)
{
    device->write(text.toUtf8());
}

void TerminalRenderer::endBarLine()
{
    if (m_bBarShown)
        write(m_err, QStringLiteral("\n"));
    m_bBarShown = false;
}

void TerminalRenderer::stageStarted(const StageEvent& event)
{
    endBarLine();
    m_lastDecile = -1;
    QStringList parts { QStringLiteral("=="), StageName(event.stage) };
    if (event.step > 0)
        parts << stepText(event.step, event.steps);
    if (!event.detail.isEmpty())
        parts << event.detail;
    write(m_err, parts.join(QLatin1Char(' ')) + QLatin1Char('\n'));
}

void TerminalRenderer::progressed(const ProgressEvent& event)
{
    if (m_bTerminal) {
        write(m_err, QStringLiteral("\r%1 %2\x1b[K").arg(bar(event.fraction), progressText(event)));
        m_bBarShown = true;
        return;
    }
    // A log file gets a line per tenth, not a line per report.
    const int decile = int(event.fraction * 10.0);
    if (decile <= m_lastDecile)
        return;
    m_lastDecile = decile;
    write(m_err, progressText(event) + QLatin1Char('\n'));
}

void TerminalRenderer::noticed(const QString& text)
{
    endBarLine();
    write(m_err, QStringLiteral("notice: %1\n").arg(ShownText(text)));
}

void TerminalRenderer::planned(const UpdatePlan& plan)
{
    endBarLine();
    QString text
        = QStringLiteral("Plan: %1, installed %2, newest %3\n")
              .arg(plan.action,
                  plan.installedVersion.isEmpty() ? QStringLiteral("nothing") : plan.installedVersion,
                  plan.newestVersion);
    if (!plan.steps.isEmpty()) {
        text += QStringLiteral("  %1 %2 %3 %4 %5\n")
                    .arg(QStringLiteral("step"), -20)
                    .arg(QStringLiteral("download"), 11)
                    .arg(QStringLiteral("cache peak"), 11)
                    .arg(QStringLiteral("game peak"), 11)
                    .arg(QString());
        for (const PlanStep& step : plan.steps) {
            const QString name = step.from.isEmpty() ? QStringLiteral("full %1").arg(step.to)
                                                     : QStringLiteral("%1 -> %2").arg(step.from, step.to);
            text += QStringLiteral("  %1 %2 %3 %4\n")
                        .arg(name, -20)
                        .arg(QtUtil::FormatSize(step.downloadBytes), 11)
                        .arg(QtUtil::FormatSize(step.cacheBytes), 11)
                        .arg(QtUtil::FormatSize(step.gameBytes), 11);
        }
    }
    for (const QString& file : plan.files)
        text += QStringLiteral("  fetch %1\n").arg(file);
    text += QStringLiteral("Download %1").arg(QtUtil::FormatSize(plan.downloadBytes));
    if (plan.fullPackageBytes > 0)
        text += QStringLiteral(" against %1 for the full package (%2%)")
                    .arg(QtUtil::FormatSize(plan.fullPackageBytes))
                    .arg(100.0 * double(plan.downloadBytes) / double(plan.fullPackageBytes), 0, 'f', 1);
    write(m_out, text + QLatin1Char('\n'));
}

void TerminalRenderer::finished(const StageResult& result, const JobSummary& summary, int exitCode)
{
    endBarLine();
    if (result.bInterrupted) {
        write(m_err,
            QStringLiteral("interrupted during %1; run again to resume\n").arg(StageName(result.stage)));
        return;
    }
    if (result.bFailed) {
        write(m_err,
            QStringLiteral("error: %1: %2 (exit code %3)\n")
                .arg(StageName(result.stage), ShownText(result.text))
                .arg(exitCode));
        return;
    }
    if (!summary.message.isEmpty())
        write(m_out, summary.message + QLatin1Char('\n'));
}
