// The entry points libFuzzer calls. The target is chosen with -target=NAME, which is taken out of the
// arguments before libFuzzer reads them (-list_targets prints the names); an empty corpus folder gets
// the target's seed.
#include "FuzzTargets.h"

#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

const FuzzTarget* s_target = nullptr;

void seedEmptyCorpus(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const QString folder = QFile::decodeName(argv[i]);
        if (argv[i][0] == '-' || !QDir(folder).exists())
            continue;
        if (QDir(folder).isEmpty()) {
            QFile seed(QDir(folder).filePath(QStringLiteral("seed")));
            if (seed.open(QIODevice::WriteOnly))
                seed.write(s_target->seed);
        }
        return;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    const QByteArray prefix("-target=");
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        const QByteArray arg((*argv)[i]);
        if (arg == "-list_targets") {
            for (const FuzzTarget& target : fuzzTargets())
                std::printf("%s\n", target.name);
            std::exit(0);
        }
        if (arg.startsWith(prefix))
            s_target = findFuzzTarget(arg.mid(prefix.size()));
        else
            (*argv)[kept++] = (*argv)[i];
    }
    *argc = kept;
    (*argv)[kept] = nullptr;
    if (!s_target) {
        std::fprintf(stderr, "choose a target with -target=NAME\n");
        std::exit(2);
    }
    prepareFuzzing(*argc, *argv);
    seedEmptyCorpus(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    s_target->read(QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size)));
    return 0;
}
