#include "PieceList.h"

#include <new>

namespace Delta {

Result PieceList::add(std::uint64_t oldStart, const unsigned char* oldCopy, const unsigned char* newCopy,
    std::uint64_t copy, const unsigned char* extra, std::uint64_t extraLength)
{
    try {
        m_pieces.push_back({ oldStart, oldCopy, newCopy, copy, extra, extraLength });
    } catch (const std::bad_alloc&) {
        return Result::Failure(Status::OutOfMemory, "no memory for the matches of a part of the new file");
    }
    return {};
}

Result PieceList::handTo(PieceSink& sink) const
{
    for (const Piece& piece : m_pieces) {
        const Result added = sink.add(
            piece.oldStart, piece.oldCopy, piece.newCopy, piece.copy, piece.extra, piece.extraLength);
        if (!added.ok())
            return added;
    }
    return {};
}

} // namespace Delta
