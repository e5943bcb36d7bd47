#include "PieceList.h"

#include <new>

namespace Delta {

PieceList::PieceList(const unsigned char* old, std::uint64_t oldBase, const unsigned char* newBytes)
    : m_old(old)
    , m_oldBase(oldBase)
    , m_new(newBytes)
{ }

Result PieceList::add(std::uint64_t oldStart, const unsigned char*, const unsigned char*, std::uint64_t copy,
    const unsigned char*, std::uint64_t extraLength)
{
    try {
        m_pieces.push_back({ oldStart, copy, extraLength });
    } catch (const std::bad_alloc&) {
        return Result::Failure(Status::OutOfMemory, "no memory for the matches of a part of the new file");
    }
    return {};
}

Result PieceList::handTo(PieceSink& sink) const
{
    // The pieces cover the part's new bytes one after the other.
    const unsigned char* at = m_new;
    for (const Piece& piece : m_pieces) {
        const unsigned char* oldCopy = piece.copy > 0 ? m_old + (piece.oldStart - m_oldBase) : nullptr;
        const unsigned char* newCopy = piece.copy > 0 ? at : nullptr;
        const Result added
            = sink.add(piece.oldStart, oldCopy, newCopy, piece.copy, at + piece.copy, piece.extraLength);
        if (!added.ok())
            return added;
        at += piece.copy + piece.extraLength;
    }
    return {};
}

} // namespace Delta
