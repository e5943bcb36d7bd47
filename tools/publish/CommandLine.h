#pragma once

#include <QString>
#include <QStringList>

namespace Publish {

// What the operator asked for.
struct PublishOptions
{
    QString versionsDir;
    QString outputDir;
    QString infoTemplatePath; // empty: the built-in template
    qint64 partSize = 0; // bytes per part of a full package; 0: one archive
    int patchDistance = 1; // patches from each version to every later one up to this many versions ahead
    int level = 5; // 7-Zip compression level
    qint64 memoryBudget = qint64(2) << 30; // bytes the diffs of the run may take together
    QString signingKeyPath; // empty: the channel is not signed
    int expiresDays = 30; // how long the signed list stays good
};

struct CommandLine
{
    enum class Action
    {
        Publish,
        ShowHelp,
        ShowInfoTemplate,
        Refuse, // text says what is wrong
        GenerateKey, // keyPath names the secret key file
    };
    Action action = Action::Refuse;
    PublishOptions options;
    QString keyPath;
    QString text; // the help, or what is wrong with the command line
};

// Reads the program's arguments (the program's name first); prints nothing and never ends the process.
CommandLine ParseCommandLine(const QStringList& arguments);

// "4096", "64k", "700m", "2g" (binary units) as bytes; -1 for anything else or nothing at all.
qint64 ParseByteSize(const QString& text);

} // namespace Publish
