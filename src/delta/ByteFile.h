#pragma once

#include "DeltaStatus.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace Delta {

// A file read or written in plain bytes, on Linux and on Windows alike. Paths are UTF-8 on both; on
// Windows they are opened through the wide-character calls, so any name the launcher uses works.
class ByteFile
{
public:
    enum class Mode
    {
        Read,
        Write, // created or emptied
        // Written without a name where the system allows it (Linux), so that a process killed
        // half-way leaves nothing behind; nameIt gives it the path once it is complete.
        WriteUnnamed,
    };

    ByteFile() = default;
    ~ByteFile();
    ByteFile(const ByteFile&) = delete;
    ByteFile& operator=(const ByteFile&) = delete;

    Result open(const std::string& path, Mode mode);
    void close();
    bool isOpen() const { return m_file != nullptr; }
    const std::string& path() const { return m_path; }
    std::uint64_t size() const { return m_size; }
    // The system's handle of the open file: a descriptor, or a HANDLE on Windows.
    std::intptr_t systemHandle() const;

    // The next read or write happens at offset.
    Result seek(std::uint64_t offset);
    // Reads exactly n bytes at offset (or from where the last read ended).
    Result readAt(std::uint64_t offset, void* data, std::size_t n);
    Result read(void* data, std::size_t n);
    // Exactly n bytes at offset in one call to the system. It leaves the place of read alone on Linux
    // and moves it on Windows: a read there needs a seek first.
    Result readPositioned(std::uint64_t offset, void* data, std::size_t n);
    Result write(const void* data, std::size_t n);
    // Reads the next n bytes through buffer, carrying the CRC-32 crc on over them.
    Result addToChecksum(std::uint64_t n, unsigned char* buffer, std::size_t bufferSize, std::uint32_t& crc);
    // Gives a file opened WriteUnnamed its path.
    Result nameIt();
    // Everything written so far is handed to the system.
    Result flush();
    // Everything written so far is on the disk.
    Result sync();

    // A status for the error in errno: disk full and memory are told apart from the rest.
    static Result ErrnoFailure(const std::string& what, int error, Status otherwise);

private:
    std::FILE* m_file = nullptr;
    std::string m_path;
    std::uint64_t m_size = 0;
    std::uint64_t m_position = 0;
    bool m_unnamed = false;
    // A file that replaces another is synced before it gets its name: its bytes are handed to the
    // disk as they come, so that the sync waits for the last piece only.
    bool m_writeBehind = false;
    std::uint64_t m_handedToDisk = 0;

    void handToDisk();
};

// File system steps of the apply: each returns false and sets errno on failure.
namespace Files {
bool Exists(const std::string& path, bool* isFolder = nullptr);
// Puts from in place of to, replacing it.
bool Replace(const std::string& from, const std::string& to);
bool Remove(const std::string& path);
// Gives path the permission bits of model (POSIX only; Windows files have none to copy).
void CopyMode(const std::string& model, const std::string& path);
// A name beside path for a file being written, unique to this process.
std::string TemporaryNameBeside(const std::string& path);
} // namespace Files

} // namespace Delta
