// The memory in which a frame is assembled.
#pragma once

#include <cstddef>

#include "media/parameter_sets.h"

// Zero-filled pages that the kernel hands out when they are first written, so that a camera
// costs what its pictures need. In front of the block space there is room for a header even when
// blocks are smaller than it, behind it for the delimiter that ends an H.264 frame. A page that
// cannot be touched lies on either side: no fault here reaches another camera's picture.
class CFrameBuffer {
public:
    static constexpr std::size_t Size = 2097152;  // block space: block b of size s lies at b * s
    static constexpr std::size_t HeaderRoom = 1024;
    static constexpr std::size_t DelimiterRoom = sizeof(UnitDelimiter);

    CFrameBuffer();  // throws std::bad_alloc
    CFrameBuffer(const CFrameBuffer&) = delete;
    CFrameBuffer& operator=(const CFrameBuffer&) = delete;
    ~CFrameBuffer();

    // The first byte of the block space; bytes -HeaderRoom to Size + DelimiterRoom - 1 exist.
    unsigned char* Data() const { return m_pData; }

private:
    unsigned char* m_pPages;
    unsigned char* m_pData;
};
