#pragma once

#include "DeltaStatus.h"
#include "DiffFormat.h"

#include <cstdint>
#include <string>

namespace Delta {

struct EncodeOptions
{
    // Memory the encoder may take for this diff. Files that fit are indexed whole; larger ones are
    // matched span by span, each changed span against a window of the old file around it.
    std::uint64_t memoryBudget = std::uint64_t(2) << 30;
    Codec codec = Codec::Stored;
};

// Makes diff files: old file and new file to a diff the decoder turns back into the new file.
class Encoder
{
public:
    explicit Encoder(const EncodeOptions& options);

    Result encode(const std::string& oldPath, const std::string& newPath, const std::string& diffPath);

    // Memory of a diff of files of these sizes made whole, in bytes.
    static std::uint64_t WholeMemory(std::uint64_t oldSize, std::uint64_t newSize);
    // The most memory encode takes for files of these sizes under budget.
    static std::uint64_t MemoryFor(std::uint64_t oldSize, std::uint64_t newSize, std::uint64_t budget);

private:
    class Files;
    Result encodeWhole(Files& files);
    Result encodeBySpans(Files& files);
    Result matchSpan(Files& files, std::uint64_t begin, std::uint64_t end);

    EncodeOptions m_options;
    std::uint64_t m_window = 0; // longest span matched at once
    std::uint64_t m_block = 0; // unit of the comparison of new and old at the same place
};

} // namespace Delta
