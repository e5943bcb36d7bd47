// The diff engine's encoder alone, for bench/delta.sh:
//
//   encode [--budget SIZE] [--deflate] old new diff
//
// SIZE in bytes or with k, m, g (binary units); the publisher's default budget otherwise. --deflate
// compresses the difference and extra streams inside the diff.
#include "delta/Encoder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv)
{
    Delta::EncodeOptions options;
    int i = 1;
    for (; i < argc && argv[i][0] == '-' && argv[i][1] == '-'; ++i) {
        if (std::strcmp(argv[i], "--deflate") == 0) {
            options.codec = Delta::Codec::Deflate;
        } else if (std::strcmp(argv[i], "--budget") == 0 && i + 1 < argc) {
            char* unit = nullptr;
            options.memoryBudget = std::strtoull(argv[++i], &unit, 10);
            options.memoryBudget <<= *unit == 'g' ? 30 : *unit == 'm' ? 20 : *unit == 'k' ? 10 : 0;
        }
    }
    if (argc - i != 3) {
        std::fprintf(stderr, "usage: encode [--budget SIZE] [--deflate] old new diff\n");
        return 2;
    }
    const Delta::Result result = Delta::Encoder(options).encode(argv[i], argv[i + 1], argv[i + 2]);
    if (!result.ok())
        std::fprintf(stderr, "encode: %s\n", result.message.c_str());
    return result.ok() ? 0 : 1;
}
