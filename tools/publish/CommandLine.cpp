#include "CommandLine.h"

#include "Outcome.h"

#include <QCommandLineParser>
#include <QRegularExpression>

namespace Publish {

namespace {

// A whole number within [low, high], or false.
bool readNumber(const QString& text, int low, int high, int& out)
{
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    if (!ok || value < low || value > high)
        return false;
    out = value;
    return true;
}

} // namespace

qint64 ParseByteSize(const QString& text)
{
    static const QRegularExpression form(
        QStringLiteral("^(\\d{1,12})([kmg]?)$"), QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = form.match(text.trimmed());
    if (!match.hasMatch())
        return -1;
    const qint64 number = match.captured(1).toLongLong();
    const QString unit = match.captured(2).toLower();
    const int shift = unit == QLatin1String("k") ? 10
        : unit == QLatin1String("m")             ? 20
        : unit == QLatin1String("g")             ? 30
                                                 : 0;
    if (number <= 0 || number > (Q_INT64_C(1) << (50 - shift)))
        return -1;
    return number << shift;
}

CommandLine ParseCommandLine(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Publishes the game versions in VERSIONS as an update channel in OUTPUT: full packages, patches,\n"
        "loose files for repair, the guide manifest and info.json. Publishing again adds what is new."));
    parser.addPositionalArgument(QStringLiteral("VERSIONS"),
        QStringLiteral("Folder whose subfolders are the game versions, named 1.0.0.1, 1.0.0.2, ..."));
    parser.addPositionalArgument(
        QStringLiteral("OUTPUT"), QStringLiteral("The channel root the server serves."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption partSize(QStringLiteral("part-size"),
        QStringLiteral("Split each full package into 7-Zip parts of SIZE bytes (k, m, g: binary units)."),
        QStringLiteral("SIZE"));
    const QCommandLineOption distance(QStringLiteral("patch-distance"),
        QStringLiteral("Patches from each version to every later one up to K versions ahead (default 1)."),
        QStringLiteral("K"), QStringLiteral("1"));
    const QCommandLineOption level(QStringLiteral("level"),
        QStringLiteral("7-Zip compression level, 0 (store) to 9 (default 5)."), QStringLiteral("N"),
        QStringLiteral("5"));
    const QCommandLineOption infoTemplate(QStringLiteral("info-template"),
        QStringLiteral("JSON template of info.json (default: the built-in one)."), QStringLiteral("FILE"));
    const QCommandLineOption printTemplate(QStringLiteral("print-info-template"),
        QStringLiteral("Print the built-in info.json template and exit."));
    const QCommandLineOption memoryBudget(QStringLiteral("memory-budget"),
        QStringLiteral(
            "Memory the diffs may take together (k, m, g: binary units; default 2g). Larger files\n"
            "are diffed piece by piece."),
        QStringLiteral("SIZE"), QStringLiteral("2g"));
    const QCommandLineOption sign(QStringLiteral("sign"),
        QStringLiteral("Sign the channel with the secret key in FILE (channel.json, channel.json.sig)."),
        QStringLiteral("FILE"));
    const QCommandLineOption expires(QStringLiteral("expires"),
        QStringLiteral("Days the signed channel stays good, 1 to 3650 (default 30)."), QStringLiteral("DAYS"),
        QStringLiteral("30"));
    const QCommandLineOption generateKey(QStringLiteral("generate-key"),
        QStringLiteral("Write a new signing key to FILE and its public key to FILE.pub, then exit."),
        QStringLiteral("FILE"));
    parser.addOptions(
        { partSize, distance, level, memoryBudget, infoTemplate, printTemplate, sign, expires, generateKey });

    CommandLine result;
    if (!parser.parse(arguments)) {
        result.text = parser.errorText();
        return result;
    }
    if (parser.isSet(help) || parser.isSet(QStringLiteral("help-all"))) {
        result.action = CommandLine::Action::ShowHelp;
        result.text = parser.helpText() + QLatin1Char('\n') + ExitCodeTable();
        return result;
    }
    if (parser.isSet(printTemplate)) {
        result.action = CommandLine::Action::ShowInfoTemplate;
        return result;
    }
    if (parser.isSet(generateKey)) {
        result.action = CommandLine::Action::GenerateKey;
        result.keyPath = parser.value(generateKey);
        return result;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 2) {
        result.text = QStringLiteral("expected VERSIONS and OUTPUT, got %1 arguments").arg(positional.size());
        return result;
    }
    PublishOptions& options = result.options;
    options.versionsDir = positional.at(0);
    options.outputDir = positional.at(1);
    options.infoTemplatePath = parser.value(infoTemplate);
    if (parser.isSet(partSize)) {
        options.partSize = ParseByteSize(parser.value(partSize));
        if (options.partSize < 0) {
            result.text = QStringLiteral("--part-size: \"%1\" is no size").arg(parser.value(partSize));
            return result;
        }
    }
    options.memoryBudget = ParseByteSize(parser.value(memoryBudget));
    if (options.memoryBudget < (qint64(64) << 20)) {
        result.text = QStringLiteral("--memory-budget: \"%1\" is no size of 64m or more")
                          .arg(parser.value(memoryBudget));
        return result;
    }
    if (!readNumber(parser.value(distance), 1, 1000, options.patchDistance)) {
        result.text = QStringLiteral("--patch-distance: \"%1\" is not a number from 1 to 1000")
                          .arg(parser.value(distance));
        return result;
    }
    if (!readNumber(parser.value(level), 0, 9, options.level)) {
        result.text = QStringLiteral("--level: \"%1\" is not a number from 0 to 9").arg(parser.value(level));
        return result;
    }
    options.signingKeyPath = parser.value(sign);
    if (!readNumber(parser.value(expires), 1, 3650, options.expiresDays)) {
        result.text
            = QStringLiteral("--expires: \"%1\" is not a number from 1 to 3650").arg(parser.value(expires));
        return result;
    }
    if (parser.isSet(expires) && options.signingKeyPath.isEmpty()) {
        result.text = QStringLiteral("--expires needs --sign");
        return result;
    }
    result.action = CommandLine::Action::Publish;
    return result;
}

} // namespace Publish
