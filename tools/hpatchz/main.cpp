// The merge stage's patch program, on Linux and on Windows (hpatchz.exe beside the launcher): the
// command line the stage gives it (old diff out -f -s-1m -C-old-new-diff, and -c for folders), and the
// diff format of the engine in src/delta. This front end only reads the arguments, calls the engine
// and turns what happened into an exit code.

#include "delta/DeltaStatus.h"
#include "delta/FilePatch.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

// The exit codes; the merge stage stops the job on 22 and 24, and leaves the rest to the verifier.
enum ExitCode
{
    Success = 0,
    Failure = 1, // a file could not be read, written or renamed
    UsageError = 2,
    OldMismatch = 3, // the old file is not the one the diff was made from
    CorruptDiff = 4, // the diff is damaged, truncated or no diff
    UnknownVersion = 5, // a diff of a later format
    OutOfMemory = 22,
    DiskFull = 24,
};

int ExitCodeOf(Delta::Status status)
{
    switch (status) {
    case Delta::Status::Done:
        return Success;
    case Delta::Status::OldMismatch:
        return OldMismatch;
    case Delta::Status::CorruptDiff:
        return CorruptDiff;
    case Delta::Status::UnknownVersion:
        return UnknownVersion;
    case Delta::Status::DiskFull:
        return DiskFull;
    case Delta::Status::OutOfMemory:
        return OutOfMemory;
    case Delta::Status::ReadFailed:
    case Delta::Status::WriteFailed:
        break;
    }
    return Failure;
}

struct Options
{
    Delta::ApplyRequest request;
    bool folder = false;
    std::string error;
};

bool startsWith(const std::string& text, const char* prefix)
{
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// "-s-1m", "-s-64k", "-s-4096" as bytes; 0 when it is none of these.
std::size_t cacheSizeOf(const std::string& option)
{
    char* end = nullptr;
    const unsigned long long number = std::strtoull(option.c_str() + 3, &end, 10);
    const std::string unit = end;
    const int shift = unit == "k" ? 10 : unit == "m" ? 20 : unit == "g" ? 30 : unit.empty() ? 0 : -1;
    if (shift < 0 || number == 0 || number > (1ull << 20))
        return 0;
    return std::size_t(number << shift);
}

Options ParseArguments(const std::vector<std::string>& arguments)
{
    Options options;
    std::vector<std::string> positional;
    for (const std::string& arg : arguments) {
        if (arg == "-f") {
            options.request.overwrite = true;
        } else if (arg == "-c") {
            options.folder = true;
        } else if (startsWith(arg, "-s-")) {
            options.request.cacheSize = cacheSizeOf(arg);
            if (options.request.cacheSize == 0)
                options.error = "not a cache size: " + arg;
        } else if (startsWith(arg, "-C-")) {
            continue; // the old file, the new file and the diff are always checked
        } else if (startsWith(arg, "-") && arg.size() > 1) {
            options.error = "unknown option " + arg;
        } else {
            positional.push_back(arg);
        }
    }
    if (options.error.empty() && positional.size() != 3)
        options.error = "usage: hpatchz old diff out [-f] [-s-1m] [-C-old-new-diff] [-c]";
    if (options.error.empty()) {
        options.request.oldPath = positional[0];
        options.request.diffPath = positional[1];
        options.request.outPath = positional[2];
    }
    return options;
}

// The arguments in UTF-8. On Windows they are read as the launcher wrote them, in UTF-16, so a game
// folder whose name is outside the local code page still works.
std::vector<std::string> Arguments(int argc, char** argv)
{
    std::vector<std::string> arguments;
#ifdef _WIN32
    (void)argc;
    (void)argv;
    int count = 0;
    LPWSTR* wide = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; wide && i < count; ++i) {
        const int n = WideCharToMultiByte(CP_UTF8, 0, wide[i], -1, nullptr, 0, nullptr, nullptr);
        std::string text(std::size_t(n > 0 ? n - 1 : 0), '\0');
        WideCharToMultiByte(CP_UTF8, 0, wide[i], -1, &text[0], n, nullptr, nullptr);
        arguments.push_back(text);
    }
    LocalFree(wide);
#else
    for (int i = 1; i < argc; ++i)
        arguments.emplace_back(argv[i]);
#endif
    return arguments;
}

int Run(const Options& options)
{
    const Delta::Result result = Delta::ApplyDiffFile(options.request);
    if (result.ok())
        std::printf("hpatchz: %s written\n", options.request.outPath.c_str());
    else
        std::fprintf(stderr, "hpatchz: %s\n", result.message.c_str());
    return ExitCodeOf(result.status);
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = ParseArguments(Arguments(argc, argv));
    if (!options.error.empty()) {
        std::fprintf(stderr, "hpatchz: %s\n", options.error.c_str());
        return UsageError;
    }
    if (options.folder) {
        std::fprintf(
            stderr, "hpatchz: folder diffs are not supported: %s\n", options.request.oldPath.c_str());
        return Failure;
    }
    try {
        return Run(options);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "hpatchz: out of memory\n");
        return OutOfMemory;
    }
}
