#include "ByteFile.h"

#include "Crc32.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#ifdef _WIN32
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace Delta {

namespace {

// How much is written before it is handed to the disk in the background.
constexpr std::uint64_t kWriteBehindPiece = 8 << 20;

#ifdef _WIN32
std::wstring wide(const std::string& utf8)
{
    const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), nullptr, 0);
    std::wstring out(std::size_t(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), &out[0], n);
    return out;
}

std::FILE* openFile(const std::string& path, const char* mode)
{
    return _wfopen(wide(path).c_str(), mode[0] == 'r' ? L"rb" : L"wb");
}

int seekTo(std::FILE* file, std::uint64_t offset)
{
    return _fseeki64(file, static_cast<__int64>(offset), SEEK_SET);
}

std::uint64_t sizeOf(std::FILE* file)
{
    struct _stat64 info;
    return _fstat64(_fileno(file), &info) == 0 ? std::uint64_t(info.st_size) : 0;
}
#else
std::FILE* openFile(const std::string& path, const char* mode)
{
    return std::fopen(path.c_str(), mode[0] == 'r' ? "rbe" : "wbe");
}

int seekTo(std::FILE* file, std::uint64_t offset)
{
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET);
}

std::uint64_t sizeOf(std::FILE* file)
{
    struct stat info;
    return fstat(fileno(file), &info) == 0 ? std::uint64_t(info.st_size) : 0;
}
#endif

// A file without a name in the folder of path, or null where the system or file system has none.
std::FILE* openUnnamedBeside(const std::string& path)
{
#ifdef O_TMPFILE
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const int fd = ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0)
        return nullptr;
    std::FILE* file = fdopen(fd, "wb");
    if (!file)
        ::close(fd);
    return file;
#else
    (void)path;
    return nullptr;
#endif
}

} // namespace

ByteFile::~ByteFile()
{
    close();
}

Result ByteFile::ErrnoFailure(const std::string& what, int error, Status otherwise)
{
    const Status status = error == ENOSPC ? Status::DiskFull
        : error == ENOMEM                 ? Status::OutOfMemory
                                          : otherwise;
    return Result::Failure(status, what + ": " + std::strerror(error));
}

Result ByteFile::open(const std::string& path, Mode mode)
{
    close();
    m_path = path;
    m_position = 0;
    errno = 0;
    m_unnamed = false;
    m_writeBehind = mode == Mode::WriteUnnamed;
    m_handedToDisk = 0;
    if (mode == Mode::WriteUnnamed) {
        m_file = openUnnamedBeside(path);
        m_unnamed = m_file != nullptr;
    }
    if (!m_file)
        m_file = openFile(path, mode == Mode::Read ? "r" : "w");
    if (!m_file)
        return ErrnoFailure("cannot open " + path, errno ? errno : EIO,
            mode == Mode::Read ? Status::ReadFailed : Status::WriteFailed);
    m_size = mode == Mode::Read ? sizeOf(m_file) : 0;
    return {};
}

void ByteFile::close()
{
    if (m_file)
        std::fclose(m_file);
    m_file = nullptr;
}

Result ByteFile::seek(std::uint64_t offset)
{
    if (offset != m_position && seekTo(m_file, offset) != 0)
        return ErrnoFailure("cannot seek in " + m_path, errno, Status::ReadFailed);
    m_position = offset;
    return {};
}

Result ByteFile::readAt(std::uint64_t offset, void* data, std::size_t n)
{
    const Result moved = seek(offset);
    return moved.ok() ? read(data, n) : moved;
}

Result ByteFile::read(void* data, std::size_t n)
{
    const std::size_t got = std::fread(data, 1, n, m_file);
    m_position += got;
    if (got == n)
        return {};
    if (std::ferror(m_file))
        return ErrnoFailure("cannot read " + m_path, errno, Status::ReadFailed);
    return Result::Failure(Status::ReadFailed, m_path + " ends early");
}

std::intptr_t ByteFile::systemHandle() const
{
#ifdef _WIN32
    return _get_osfhandle(_fileno(m_file));
#else
    return fileno(m_file);
#endif
}

Result ByteFile::readPositioned(std::uint64_t offset, void* data, std::size_t n)
{
#ifdef _WIN32
    // The CRT's buffer no longer matches the handle's place: make the next seek a real one.
    m_position = ~std::uint64_t(0);
    const HANDLE handle = HANDLE(systemHandle());
    auto* to = static_cast<unsigned char*>(data);
    while (n > 0) {
        OVERLAPPED at {};
        at.Offset = DWORD(offset);
        at.OffsetHigh = DWORD(offset >> 32);
        DWORD got = 0;
        const DWORD wanted = DWORD(std::min<std::size_t>(n, 1u << 30));
        if (!ReadFile(handle, to, wanted, &got, &at) && GetLastError() != ERROR_HANDLE_EOF)
            return Result::Failure(Status::ReadFailed,
                "cannot read " + m_path + " (Windows error " + std::to_string(GetLastError()) + ")");
        if (got == 0)
            return Result::Failure(Status::ReadFailed, m_path + " ends early");
        to += got;
        offset += got;
        n -= got;
    }
    return {};
#else
    auto* to = static_cast<unsigned char*>(data);
    while (n > 0) {
        const ssize_t got = ::pread(fileno(m_file), to, n, off_t(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return ErrnoFailure("cannot read " + m_path, errno, Status::ReadFailed);
        if (got == 0)
            return Result::Failure(Status::ReadFailed, m_path + " ends early");
        to += got;
        offset += std::uint64_t(got);
        n -= std::size_t(got);
    }
    return {};
#endif
}

Result ByteFile::addToChecksum(
    std::uint64_t n, unsigned char* buffer, std::size_t bufferSize, std::uint32_t& crc)
{
    while (n > 0) {
        const std::size_t piece = std::size_t(std::min<std::uint64_t>(n, bufferSize));
        const Result got = read(buffer, piece);
        if (!got.ok())
            return got;
        crc = Crc32(crc, buffer, piece);
        n -= piece;
    }
    return {};
}

Result ByteFile::write(const void* data, std::size_t n)
{
    if (std::fwrite(data, 1, n, m_file) != n)
        return ErrnoFailure("cannot write " + m_path, errno, Status::WriteFailed);
    m_position += n;
    m_size += n;
    if (m_writeBehind && m_size - m_handedToDisk >= kWriteBehindPiece)
        handToDisk();
    return {};
}

void ByteFile::handToDisk()
{
#ifdef SYNC_FILE_RANGE_WRITE
    // Only a start: errors surface in sync, which every caller of this mode makes.
    if (std::fflush(m_file) == 0)
        sync_file_range(
            fileno(m_file), off_t(m_handedToDisk), off_t(m_size - m_handedToDisk), SYNC_FILE_RANGE_WRITE);
#endif
    m_handedToDisk = m_size;
}

Result ByteFile::nameIt()
{
#ifdef O_TMPFILE
    if (m_unnamed) {
        const std::string self = "/proc/self/fd/" + std::to_string(fileno(m_file));
        if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, m_path.c_str(), AT_SYMLINK_FOLLOW) != 0)
            return ErrnoFailure("cannot name the new file " + m_path, errno, Status::WriteFailed);
        m_unnamed = false;
    }
#endif
    return {};
}

Result ByteFile::flush()
{
    if (std::fflush(m_file) != 0)
        return ErrnoFailure("cannot write " + m_path, errno, Status::WriteFailed);
    return {};
}

Result ByteFile::sync()
{
    const Result flushed = flush();
    if (!flushed.ok())
        return flushed;
#ifdef _WIN32
    const int synced = _commit(_fileno(m_file));
#else
    const int synced = fsync(fileno(m_file));
#endif
    if (synced != 0)
        return ErrnoFailure("cannot write " + m_path + " to disk", errno, Status::WriteFailed);
    return {};
}

namespace Files {

bool Exists(const std::string& path, bool* isFolder)
{
#ifdef _WIN32
    const DWORD attributes = GetFileAttributesW(wide(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return false;
    if (isFolder)
        *isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
#else
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        return false;
    if (isFolder)
        *isFolder = S_ISDIR(info.st_mode);
#endif
    return true;
}

bool Replace(const std::string& from, const std::string& to)
{
#ifdef _WIN32
    if (MoveFileExW(wide(from).c_str(), wide(to).c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return true;
    errno = GetLastError() == ERROR_DISK_FULL ? ENOSPC : EACCES;
    return false;
#else
    return std::rename(from.c_str(), to.c_str()) == 0;
#endif
}

bool Remove(const std::string& path)
{
#ifdef _WIN32
    return _wremove(wide(path).c_str()) == 0;
#else
    return std::remove(path.c_str()) == 0;
#endif
}

void CopyMode(const std::string& model, const std::string& path)
{
#ifdef _WIN32
    (void)model;
    (void)path;
#else
    struct stat info;
    if (stat(model.c_str(), &info) == 0)
        chmod(path.c_str(), info.st_mode & 07777);
#endif
}

std::string TemporaryNameBeside(const std::string& path)
{
    static std::atomic<unsigned> counter { 0 };
#ifdef _WIN32
    const std::size_t slash = path.find_last_of("/\\");
    const unsigned pid = unsigned(_getpid());
#else
    const std::size_t slash = path.rfind('/');
    const unsigned pid = unsigned(getpid());
#endif
    const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    // Hidden on Linux, and a name the launcher's own file lists never hold.
    return path.substr(0, nameStart) + "." + path.substr(nameStart) + ".hpatchz-" + std::to_string(pid) + "-"
        + std::to_string(counter++);
}

} // namespace Files

} // namespace Delta
