// A descriptor kept for the time when the process has none left.
#pragma once

// One thread at a time. Where none can be had when it is made, there is no reserve.
class CDescriptorReserve {
public:
    CDescriptorReserve();
    CDescriptorReserve(const CDescriptorReserve&) = delete;
    CDescriptorReserve& operator=(const CDescriptorReserve&) = delete;
    ~CDescriptorReserve();

    // While it lives, the reserve is there to be opened; another thread may be faster.
    class Use {
    public:
        explicit Use(CDescriptorReserve& reserve);
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use();

    private:
        CDescriptorReserve& m_Reserve;
    };

private:
    void Take();
    void Release();

    int m_nDescriptor = -1;
};
