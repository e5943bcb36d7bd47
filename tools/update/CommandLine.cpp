#include "CommandLine.h"

#include "ExitCodes.h"

#include <QCommandLineParser>
#include <QDir>
#include <QUrl>

namespace {

const QStringList kCommands { QStringLiteral("install"), QStringLiteral("update"), QStringLiteral("verify"),
    QStringLiteral("repair") };

struct Parser
{
    QCommandLineParser parser;
    QCommandLineOption help { { QStringLiteral("h"), QStringLiteral("help") },
        QStringLiteral("Show this help and the exit codes.") };
    QCommandLineOption server { QStringLiteral("server"),
        QStringLiteral("The channel root on the server (http or https)."), QStringLiteral("URL") };
    QCommandLineOption dir { QStringLiteral("dir"),
        QStringLiteral("The install folder: the game goes to FOLDER/MorvantixGame, downloads to "
                       "FOLDER/MorvantixCache."),
        QStringLiteral("FOLDER") };
    QCommandLineOption limit { QStringLiteral("limit"),
        QStringLiteral("Download at most this many KB per second."), QStringLiteral("KB/s") };
    QCommandLineOption json { QStringLiteral("json"),
        QStringLiteral("One JSON object per line on standard output instead of the progress line.") };
    QCommandLineOption dryRun { QStringLiteral("dry-run"),
        QStringLiteral("Show the plan (steps, sizes, disk space at the peak) and change nothing.") };
    QCommandLineOption trust { QStringLiteral("trust"),
        QStringLiteral("Install only what the studio signed: FILE.pub is its public key (without it, the "
                       "key recorded in the settings)."),
        QStringLiteral("FILE.pub") };
    QCommandLineOption yes { QStringLiteral("yes"),
        QStringLiteral("Answer yes: reinstall over an installed game, go on while the server is under "
                       "maintenance.") };

    Parser()
    {
        parser.setApplicationDescription(
            QStringLiteral("Installs, updates, verifies and repairs a game from its update server.\n\n"
                           "Commands:\n"
                           "  install  install the newest version (asks for --yes over an installed game)\n"
                           "  update   bring the game to the newest version; on an empty folder it installs\n"
                           "  verify   check every file of the installed version (MD5)\n"
                           "  repair   verify, then fetch again only the files that fail"));
        parser.addPositionalArgument(
            QStringLiteral("command"), QStringLiteral("install|update|verify|repair"));
        parser.addOptions({ help, server, dir, limit, json, dryRun, trust, yes });
    }
};

QString checkServer(const QString& text, QString& url)
{
    const QUrl parsed(text, QUrl::StrictMode);
    const QString scheme = parsed.scheme();
    if (!parsed.isValid() || parsed.host().isEmpty()
        || (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return QStringLiteral("--server needs an http or https address, not \"%1\"").arg(text);
    url = text;
    while (url.endsWith(QLatin1Char('/')))
        url.chop(1);
    return QString();
}

} // namespace

ParsedCommandLine ParseCommandLine(const QStringList& arguments)
{
    Parser p;
    ParsedCommandLine result;
    if (!p.parser.parse(arguments)) {
        result.error = p.parser.errorText();
        return result;
    }
    if (p.parser.isSet(p.help)) {
        result.bHelp = true;
        return result;
    }

    UpdateOptions& options = result.options;
    const QStringList positional = p.parser.positionalArguments();
    if (positional.size() != 1 || !kCommands.contains(positional.first())) {
        result.error = positional.isEmpty()
            ? QStringLiteral("a command is needed: install, update, verify or repair")
            : QStringLiteral("unknown command \"%1\"").arg(positional.join(' '));
        return result;
    }
    options.command = static_cast<Command>(kCommands.indexOf(positional.first()));

    if (!p.parser.isSet(p.server) || !p.parser.isSet(p.dir)) {
        result.error = QStringLiteral("--server and --dir are needed");
        return result;
    }
    result.error = checkServer(p.parser.value(p.server), options.serverUrl);
    if (!result.error.isEmpty())
        return result;
    const QString folder = p.parser.value(p.dir).trimmed();
    if (folder.isEmpty()) {
        result.error = QStringLiteral("--dir needs a folder");
        return result;
    }
    options.folder = QDir::cleanPath(QDir(folder).absolutePath());

    if (p.parser.isSet(p.limit)) {
        bool ok = false;
        options.limitKBps = p.parser.value(p.limit).toInt(&ok);
        if (!ok || options.limitKBps <= 0) {
            result.error = QStringLiteral("--limit needs a whole number of KB/s above 0");
            return result;
        }
    }
    options.bJson = p.parser.isSet(p.json);
    options.bDryRun = p.parser.isSet(p.dryRun);
    options.bYes = p.parser.isSet(p.yes);
    options.trustKeyPath = p.parser.value(p.trust);
    return result;
}

QString HelpText()
{
    Parser p;
    return p.parser.helpText() + QLatin1Char('\n') + ExitCodeTable();
}
