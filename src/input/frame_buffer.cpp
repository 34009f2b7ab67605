#include "input/frame_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace {

// The delimiter's room, such that the block space begins at a multiple of 16.
constexpr std::size_t Behind = 16;
static_assert(CFrameBuffer::DelimiterRoom <= Behind);

std::size_t PageSize() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// Bytes of the pages that may be used.
std::size_t Usable(std::size_t page) {
    return (CFrameBuffer::HeaderRoom + CFrameBuffer::Size + Behind + page - 1) / page * page;
}

}  // namespace

CFrameBuffer::CFrameBuffer() {
    const std::size_t page = PageSize();
    const std::size_t usable = Usable(page);
    void* const pages = mmap(nullptr, usable + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    m_pPages = static_cast<unsigned char*>(pages);
    if (mprotect(m_pPages + page, usable, PROT_READ | PROT_WRITE) != 0) {
        munmap(m_pPages, usable + 2 * page);
        throw std::bad_alloc();
    }
    madvise(m_pPages + page, usable, MADV_NOHUGEPAGE);  // one block would take 2 MiB
    m_pData = m_pPages + page + usable - Behind - Size;
}

CFrameBuffer::~CFrameBuffer() {
    const std::size_t page = PageSize();
    munmap(m_pPages, Usable(page) + 2 * page);
}
