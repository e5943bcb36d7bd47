#pragma once

#include <QString>
#include <QStringList>

enum class Command
{
    Install,
    Update,
    Verify,
    Repair,
};

struct UpdateOptions
{
    Command command = Command::Update;
    QString serverUrl; // the channel root, without a trailing "/"
    QString folder; // the install folder, absolute and clean
    int limitKBps = -1; // -1: the limit of the settings
    bool bJson = false;
    bool bDryRun = false;
    bool bYes = false;
    QString trustKeyPath; // the studio's public key file; empty: the key in the settings, if any
};

struct ParsedCommandLine
{
    UpdateOptions options;
    bool bHelp = false;
    QString error; // empty when the arguments are usable
};

// arguments as the program received them, the program's name first.
ParsedCommandLine ParseCommandLine(const QStringList& arguments);

QString HelpText();
