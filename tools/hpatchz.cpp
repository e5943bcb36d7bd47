// check-windows: not built for Windows (the real diff program ships there)
// The binary-diff patch program for systems where the launcher's own one does not run. It takes the
// same command line as that program (old diff out -f -s-1m -C-old-new-diff, and -c for folders), so
// the merge stage drives both alike, but has a diff format of its own: VCDIFF as "xdelta3 -e" writes
// it, decoded by "xdelta3 -d" from the search path.
//
// The new file is written to a temporary file in the folder of out and renamed over out only once it
// is complete and on disk, so a file patched in place is either the old one or the new one, whatever
// happens to this program on the way.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The exit codes the merge stage reads; anything else non-zero is a plain failure.
enum ExitCode
{
    Success = 0,
    Failure = 1,
    UsageError = 2,
    OutOfMemory = 22,
    DiskFull = 24,
};

struct Options
{
    std::string oldPath;
    std::string diffPath;
    std::string outPath;
    bool force = false;
    bool folder = false;
    std::string error;
};

// A finished step: the exit code and, for a failure, the text for standard error.
struct Outcome
{
    int code = Success;
    std::string message;
};

Outcome failure(int code, const std::string& what)
{
    return { code, what };
}

Outcome failureFromErrno(const std::string& what, int error)
{
    const int code = error == ENOSPC ? DiskFull : (error == ENOMEM ? OutOfMemory : Failure);
    return { code, what + ": " + std::strerror(error) };
}

bool startsWith(const std::string& text, const char* prefix)
{
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

Options ParseArguments(int argc, char** argv)
{
    Options options;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-f")
            options.force = true;
        else if (arg == "-c")
            options.folder = true;
        else if (startsWith(arg, "-s") || startsWith(arg, "-C-"))
            continue; // cache size and checksum choices: the decoder streams and always checks
        else if (startsWith(arg, "-") && arg.size() > 1)
            options.error = "unknown option " + arg;
        else
            positional.push_back(arg);
    }
    if (options.error.empty() && positional.size() != 3)
        options.error = "usage: hpatchz old diff out [-f] [-s-1m] [-C-old-new-diff] [-c]";
    if (options.error.empty()) {
        options.oldPath = positional[0];
        options.diffPath = positional[1];
        options.outPath = positional[2];
    }
    return options;
}

std::string folderOf(const std::string& path)
{
    const std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path)
{
    const std::string::size_type slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The file being written. An unnamed file (O_TMPFILE) disappears by itself when this program is
// killed; where the file system has none, a hidden name beside out is used and removed on failure.
class TemporaryOutput
{
public:
    explicit TemporaryOutput(const std::string& outPath)
        : m_folder(folderOf(outPath))
        , m_name(m_folder + "/." + nameOf(outPath) + ".hpatchz-" + std::to_string(getpid()))
    {
        m_fd = ::open(m_folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644);
        if (m_fd >= 0)
            return;
        std::string pattern = m_name + "-XXXXXX";
        m_fd = ::mkostemp(&pattern[0], O_CLOEXEC);
        if (m_fd >= 0) {
            m_name = pattern;
            m_named = true;
        }
    }

    ~TemporaryOutput()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        if (m_named && !m_committed)
            ::unlink(m_name.c_str());
    }

    TemporaryOutput(const TemporaryOutput&) = delete;
    TemporaryOutput& operator=(const TemporaryOutput&) = delete;

    int fd() const { return m_fd; }

    // Puts the written file in place of out: on disk first, then renamed. The folder entry is not
    // flushed: after a power cut the rename may be lost, which leaves the old file, never a torn one.
    Outcome commit(const std::string& outPath, mode_t mode)
    {
        if (::fchmod(m_fd, mode) != 0)
            return failureFromErrno("cannot set the mode of the new file", errno);
        if (::fsync(m_fd) != 0)
            return failureFromErrno("cannot write the new file to disk", errno);
        if (!m_named) {
            const std::string self = "/proc/self/fd/" + std::to_string(m_fd);
            ::unlink(m_name.c_str()); // a name left by an earlier run of the same process id
            if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, m_name.c_str(), AT_SYMLINK_FOLLOW) != 0)
                return failureFromErrno("cannot name the new file " + m_name, errno);
            m_named = true;
        }
        if (::rename(m_name.c_str(), outPath.c_str()) != 0)
            return failureFromErrno("cannot rename the new file to " + outPath, errno);
        m_committed = true;
        return {};
    }

private:
    std::string m_folder;
    std::string m_name;
    int m_fd = -1;
    bool m_named = false;
    bool m_committed = false;
};

// Runs "xdelta3 -d -c -s old diff" with its output into outputFd, and returns its exit status and
// what it wrote to standard error.
Outcome RunDecoder(const Options& options, int outputFd)
{
    int errorPipe[2];
    if (::pipe2(errorPipe, O_CLOEXEC) != 0)
        return failureFromErrno("cannot create a pipe", errno);
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0) {
        const int error = errno;
        ::close(errorPipe[0]);
        ::close(errorPipe[1]);
        return failure(error == ENOMEM || error == EAGAIN ? OutOfMemory : Failure,
            std::string("cannot start xdelta3: ") + std::strerror(error));
    }
    if (child == 0) {
        // The decoder must not outlive this program: a killed patch leaves no writer behind.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127);
        ::dup2(outputFd, STDOUT_FILENO);
        ::dup2(errorPipe[1], STDERR_FILENO);
        // Error texts compared below are the untranslated ones.
        ::setenv("LC_ALL", "C", 1);
        const char* args[] = { "xdelta3", "-d", "-c", "-f", "-s", options.oldPath.c_str(),
            options.diffPath.c_str(), nullptr };
        ::execvp(args[0], const_cast<char* const*>(args));
        std::fprintf(stderr, "xdelta3 not found on the search path: %s\n", std::strerror(errno));
        ::_exit(127);
    }
    ::close(errorPipe[1]);
    // While the decoder writes, its output is handed to the disk in the background, so the final
    // flush before the rename has little left to wait for.
    std::string errors;
    char buffer[4096];
    pollfd watch { errorPipe[0], POLLIN, 0 };
    for (;;) {
        const int ready = ::poll(&watch, 1, 10);
        ::sync_file_range(outputFd, 0, 0, SYNC_FILE_RANGE_WRITE);
        if (ready == 0 || (ready < 0 && errno == EINTR))
            continue;
        const ssize_t got = ready > 0 ? ::read(errorPipe[0], buffer, sizeof buffer) : -1;
        if (got > 0)
            errors.append(buffer, size_t(got));
        else if (got == 0 || errno != EINTR)
            break;
    }
    ::close(errorPipe[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) { }

    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {};
    if (errors.find(std::strerror(ENOSPC)) != std::string::npos)
        return failure(DiskFull, errors);
    if (errors.find(std::strerror(ENOMEM)) != std::string::npos)
        return failure(OutOfMemory, errors);
    if (WIFSIGNALED(status))
        return failure(Failure, errors + "xdelta3 ended by signal " + std::to_string(WTERMSIG(status)));
    return failure(Failure, errors.empty() ? std::string("xdelta3 failed") : errors);
}

Outcome Apply(const Options& options)
{
    struct stat oldInfo;
    if (::stat(options.oldPath.c_str(), &oldInfo) != 0)
        return failureFromErrno("cannot read old file " + options.oldPath, errno);
    if (S_ISDIR(oldInfo.st_mode) || options.folder)
        return failure(Failure, "folder diffs are not supported: " + options.oldPath);
    if (::access(options.diffPath.c_str(), R_OK) != 0)
        return failureFromErrno("cannot read diff " + options.diffPath, errno);
    struct stat outInfo;
    const bool outExists = ::stat(options.outPath.c_str(), &outInfo) == 0;
    if (outExists && !options.force)
        return failure(Failure, options.outPath + " exists; -f overwrites it");

    TemporaryOutput output(options.outPath);
    if (output.fd() < 0)
        return failureFromErrno("cannot create a file beside " + options.outPath, errno);
    const Outcome decoded = RunDecoder(options, output.fd());
    if (decoded.code != Success)
        return decoded;
    // A file patched in place keeps its permissions; a new one gets those of the old file.
    const mode_t mode = (outExists ? outInfo.st_mode : oldInfo.st_mode) & 07777;
    return output.commit(options.outPath, mode);
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = ParseArguments(argc, argv);
    if (!options.error.empty()) {
        std::fprintf(stderr, "hpatchz: %s\n", options.error.c_str());
        return UsageError;
    }
    const Outcome outcome = Apply(options);
    if (outcome.code != Success)
        std::fprintf(stderr, "hpatchz: %s\n", outcome.message.c_str());
    else
        std::printf("hpatchz: %s written\n", options.outPath.c_str());
    return outcome.code;
}
