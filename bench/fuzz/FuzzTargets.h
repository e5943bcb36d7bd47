#pragma once

#include <QByteArray>

#include <vector>

// The text readers under fuzzing. Each target takes raw bytes as a server (or a hand-edited settings
// file) could send them, and a seed that shows the reader what a well-formed text looks like.
struct FuzzTarget
{
    const char* name;
    const char* seed;
    void (*read)(const QByteArray& data);
};

const std::vector<FuzzTarget>& fuzzTargets();

// The target named name, or nullptr.
const FuzzTarget* findFuzzTarget(const QByteArray& name);

// Sets up what the readers need (an application object, no console output) and removes the files
// the targets write when the process ends.
void prepareFuzzing(int argc, char** argv);
