#include "input/frame_buffer.h"

#include <sys/mman.h>

#include <new>

namespace {

constexpr std::size_t Length = CFrameBuffer::HeaderRoom + CFrameBuffer::Size + CFrameBuffer::DelimiterRoom;

}  // namespace

CFrameBuffer::CFrameBuffer() {
    void* const pages = mmap(nullptr, Length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    madvise(pages, Length, MADV_NOHUGEPAGE);  // one block would take 2 MiB
    m_pPages = static_cast<unsigned char*>(pages);
}

CFrameBuffer::~CFrameBuffer() {
    munmap(m_pPages, Length);
}
