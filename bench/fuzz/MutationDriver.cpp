// Runs the fuzz targets without a coverage-guided engine: deterministic pseudo-random mutations of
// each target's seed, for builds whose compiler has no libFuzzer.
// Usage: fuzz_readers [-target=NAME] [-runs=N] [-seed=S] [corpus folder, ignored]; all targets when no
// name is given; -list_targets prints the names. The options are libFuzzer's, so scripts serve both.
#include "FuzzTargets.h"

#include <QByteArrayList>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <cstdio>

namespace {

constexpr int kLargestInput = 1 << 16;

// Pieces that mean something to one reader or another, and numbers at the edges of their types.
const QByteArrayList& tokens()
{
    static const QByteArrayList list { "->", "|", "\n", "\r\n", "--last_version--", "--download_version--",
        ".", "..", "/", "\\", "..\\", ":", "=", "[", "]", "{", "}", "\"", ",", "null", "true", "-1", "0",
        "4294967296", "18446744073709551616", "1e400", "%", "@Variant(", "\\x", QByteArray("\0", 1), "\xff",
        "\xe6\xb7", "\xf0\x9f\x98\x80" };
    return list;
}

QByteArray mutated(QByteArray data, const QByteArray& seed, QRandomGenerator& random)
{
    for (int edits = random.bounded(1, 8); edits > 0; --edits) {
        const int at = random.bounded(data.size() + 1);
        const int byte = data.isEmpty() ? 0 : at % data.size();
        switch (random.bounded(7)) {
        case 0:
            data.insert(at, tokens().at(random.bounded(tokens().size())));
            break;
        case 1:
            data.remove(at, random.bounded(1, 16));
            break;
        case 2:
            data.insert(at, seed.mid(random.bounded(seed.size() + 1), random.bounded(1, 64)));
            break;
        case 3:
            data.insert(at, data.mid(random.bounded(data.size() + 1), random.bounded(1, 256)));
            break;
        case 4:
            if (!data.isEmpty())
                data[byte] = static_cast<char>(random.bounded(256));
            break;
        case 5:
            if (!data.isEmpty())
                data[byte] = static_cast<char>(data.at(byte) ^ (1 << random.bounded(8)));
            break;
        default:
            data.truncate(at);
            break;
        }
    }
    return data.size() > kLargestInput ? seed : data;
}

// Half the inputs start again from the seed, the others mutate the previous input further, so
// damage piles up as well as staying small.
void run(const FuzzTarget& target, int runs, quint32 seed)
{
    QRandomGenerator random(seed);
    const QByteArray start(target.seed);
    QByteArray input = start;
    QElapsedTimer timer;
    timer.start();
    target.read(start);
    for (int n = 1; n < runs; ++n) {
        input = mutated(random.bounded(2) == 0 ? start : input, start, random);
        target.read(input);
    }
    std::printf("%-16s %8d inputs %8.2f s\n", target.name, runs, timer.nsecsElapsed() / 1e9);
    std::fflush(stdout);
}

QByteArray option(int argc, char** argv, const char* name, const QByteArray& fallback)
{
    const QByteArray prefix = QByteArray("-") + name + '=';
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        if (arg.startsWith(prefix))
            return arg.mid(prefix.size());
    }
    return fallback;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && qstrcmp(argv[1], "-list_targets") == 0) {
        for (const FuzzTarget& target : fuzzTargets())
            std::printf("%s\n", target.name);
        return 0;
    }
    prepareFuzzing(argc, argv);
    const QByteArray name = option(argc, argv, "target", QByteArray());
    const int runs = option(argc, argv, "runs", "2000").toInt();
    const quint32 seed = option(argc, argv, "seed", "1").toUInt();
    if (!name.isEmpty() && !findFuzzTarget(name)) {
        std::fprintf(stderr, "no fuzz target named %s\n", name.constData());
        return 2;
    }
    for (const FuzzTarget& target : fuzzTargets()) {
        if (name.isEmpty() || name == target.name)
            run(target, runs, seed);
    }
    return 0;
}
