#include "core/CoreSystem.h"
#include "planning/GuideManifestSolver.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const auto core = Morvantix::GetCoreSystemInstance();
    return core && core->GetCurGameUpdateContext() ? 0 : 1;
}
