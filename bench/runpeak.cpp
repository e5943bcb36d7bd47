// Runs a program and prints its wall time and its own peak resident memory, for the update
// benchmark:
//
//   runpeak <program> [arguments...]
//
// prints "seconds=<wall> peak_kib=<own peak> tree_peak_kib=<largest of it and its tools> exit=<code>"
// on standard error. The program's own peak is read from /proc while it runs (the kernel's figure
// at the end would include the tools it starts).
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

long highWaterKib(pid_t pid)
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/status", int(pid));
    FILE* status = std::fopen(path, "r");
    if (!status)
        return 0;
    char line[256];
    long kib = 0;
    while (std::fgets(line, sizeof line, status)) {
        if (std::strncmp(line, "VmHWM:", 6) == 0)
            kib = std::strtol(line + 6, nullptr, 10);
    }
    std::fclose(status);
    return kib;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: runpeak <program> [arguments...]\n");
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    rusage usage {};
    long peak = 0;
    while (wait4(child, &status, WNOHANG, &usage) == 0) {
        const long now = highWaterKib(child);
        peak = now > peak ? now : peak;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::fprintf(stderr, "seconds=%.3f peak_kib=%ld tree_peak_kib=%ld exit=%d\n", seconds, peak,
        usage.ru_maxrss, code);
    return code;
}
