#include "JsonRenderer.h"

#include <QDateTime>
#include <QIODevice>
#include <QJsonArray>
#include <QJsonDocument>

namespace {

void addStep(QJsonObject& object, int step, int steps)
{
    if (step > 0) {
        object.insert(QStringLiteral("step"), step);
        object.insert(QStringLiteral("steps"), steps);
    }
}

} // namespace

JsonRenderer::JsonRenderer(QIODevice* out)
    : m_out(out)
{ }

void JsonRenderer::emitObject(const QString& type, QJsonObject object)
{
    object.insert(QStringLiteral("type"), type);
    object.insert(QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    m_out->write(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

void JsonRenderer::stageStarted(const StageEvent& event)
{
    QJsonObject object { { QStringLiteral("stage"), StageName(event.stage) },
        { QStringLiteral("detail"), event.detail } };
    addStep(object, event.step, event.steps);
    emitObject(QStringLiteral("stage"), object);
}

void JsonRenderer::progressed(const ProgressEvent& event)
{
    QJsonObject object { { QStringLiteral("stage"), StageName(event.stage) },
        { QStringLiteral("percent"), qRound(event.fraction * 1000.0) / 10.0 } };
    addStep(object, event.step, event.steps);
    if (event.totalBytes >= 0) {
        object.insert(QStringLiteral("bytes"), double(event.doneBytes));
        object.insert(QStringLiteral("total"), double(event.totalBytes));
    }
    if (event.bytesPerSecond >= 0)
        object.insert(QStringLiteral("speed"), double(event.bytesPerSecond));
    if (event.secondsLeft >= 0)
        object.insert(QStringLiteral("eta"), event.secondsLeft);
    emitObject(QStringLiteral("progress"), object);
}

void JsonRenderer::noticed(const QString& text)
{
    emitObject(QStringLiteral("notice"), { { QStringLiteral("text"), text } });
}

void JsonRenderer::planned(const UpdatePlan& plan)
{
    QJsonArray steps;
    for (const PlanStep& step : plan.steps) {
        steps.append(QJsonObject { { QStringLiteral("from"), step.from }, { QStringLiteral("to"), step.to },
            { QStringLiteral("download"), double(step.downloadBytes) },
            { QStringLiteral("cachePeak"), double(step.cacheBytes) },
            { QStringLiteral("gamePeak"), double(step.gameBytes) } });
    }
    emitObject(QStringLiteral("plan"),
        { { QStringLiteral("action"), plan.action }, { QStringLiteral("installed"), plan.installedVersion },
            { QStringLiteral("newest"), plan.newestVersion }, { QStringLiteral("steps"), steps },
            { QStringLiteral("download"), double(plan.downloadBytes) },
            { QStringLiteral("fullPackage"), double(plan.fullPackageBytes) },
            { QStringLiteral("files"), QJsonArray::fromStringList(plan.files) } });
}

void JsonRenderer::finished(const StageResult& result, const JobSummary& summary, int exitCode)
{
    if (result.bFailed || result.bInterrupted) {
        emitObject(QStringLiteral("error"),
            { { QStringLiteral("stage"), StageName(result.stage) }, { QStringLiteral("code"), exitCode },
                { QStringLiteral("stageCode"), result.code },
                { QStringLiteral("text"), result.bInterrupted ? QStringLiteral("interrupted") : result.text },
                { QStringLiteral("path"), result.path } });
    }
    emitObject(QStringLiteral("result"),
        { { QStringLiteral("code"), exitCode }, { QStringLiteral("outcome"), OutcomeName(summary.outcome) },
            { QStringLiteral("installed"), summary.installedVersion },
            { QStringLiteral("version"), summary.version },
            { QStringLiteral("downloaded"), double(summary.downloadedBytes) },
            { QStringLiteral("fullPackage"), double(summary.fullPackageBytes) },
            { QStringLiteral("repaired"), QJsonArray::fromStringList(summary.repairedFiles) },
            { QStringLiteral("message"), summary.message } });
}
