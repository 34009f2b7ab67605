#include "platform/reserve.h"

#include <fcntl.h>
#include <unistd.h>

CDescriptorReserve::CDescriptorReserve() {
    Take();
}

CDescriptorReserve::~CDescriptorReserve() {
    Release();
}

void CDescriptorReserve::Take() {
    m_nDescriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void CDescriptorReserve::Release() {
    if (m_nDescriptor != -1) close(m_nDescriptor);
    m_nDescriptor = -1;
}

CDescriptorReserve::Use::Use(CDescriptorReserve& reserve) : m_Reserve(reserve) {
    m_Reserve.Release();
}

CDescriptorReserve::Use::~Use() {
    m_Reserve.Take();
}
