// One camera's video input: its settings, the picture that is requested, and the frame that is
// being assembled. Worker thread only (host's thread while the worker does not run).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "input/actions.h"
#include "input/block_set.h"
#include "input/frame_buffer.h"
#include "input/mask.h"
#include "input/rectangle.h"

class TiXmlElement;

class CInput {
public:
    CInput(unsigned long device, unsigned long number);
    CInput(const CInput&) = delete;
    CInput& operator=(const CInput&) = delete;
    ~CInput();

    // Derives the active rectangle, the resolution and the delivered size from the crop and the
    // sensor, and fills in the standard and the frame rate where none is set. A crop that leaves
    // no area leaves the rectangle invalid and everything else as it was.
    void Init(const CRectangle& sensor, int standard);

    // Ends the stream: the next frame is a key frame, and the input waits for Init.
    void Reset();

    // The camera's MAC address as "01-23-45-67-89-AB"; zeros while none is known.
    std::string MAC() const;

    // The file name to request next, until the next call; requires an active rectangle. now is
    // timeGetTime.
    const std::string& Request(unsigned long now);

    // Where the block m_wNextBlock is filed, for one to be received there that may turn out to be
    // another: with room for so many bytes, and 4 bytes in front. Null once blocks were out of order;
    // and where the last picture had no block, as it is the trailer that is expected there.
    char* NextPlace(unsigned short blockSize, std::size_t room) const;
    void FileNext();  // it is there, all of it
    void EndOrder();  // no more places for this picture, if a block of it has come

    // Takes one data block in order of arrival. Returns 1 when the host sees a change, else 0.
    int Response(const char* data, int length, unsigned short blockSize, unsigned short block);

    // Sends a frame, and the connection and motion events that it causes. codec 8 is JPEG, 64
    // H.264; type is a FrameType; map may be null.
    void FireVideo(char* frame, int length, unsigned long codec, unsigned char type, bool motion,
                   unsigned char* map, unsigned long mapLength);
    void FireMotion(const long long& now);
    void FireConnected(long time);  // seconds since 1970
    void FireAlarm(const TiXmlElement& element);

    // Apply an element of a configuration document; true when the host sees a change.
    bool ParseInput(TiXmlElement* element);
    bool ParseChannel(TiXmlElement* element);

    // Fill an empty element. zone is the edge of a motion zone in sensor pixels.
    void FillInput(TiXmlElement& element);
    void FillChannel(TiXmlElement& element, unsigned short zone);
    void AddResolutions(TiXmlElement& codec);
    void AddResolution(TiXmlElement& codec, unsigned short width, unsigned short height);

    // Applies a recording command of a write document.
    void WriteInput(TiXmlElement* element);

    // The SourceId of the input's frames and the ID of its Channel element.
    std::uint32_t SourceId() const;

    const std::uint32_t m_nDevice;  // the camera's Number
    const std::uint32_t m_nNumber;  // always 0

    // Settings, as the host sees them.
    bool m_bEnabled = true;
    std::string m_sName = "Camera";
    std::unique_ptr<TiXmlElement> m_pOSD;  // kept and echoed, never interpreted, as the next two
    std::unique_ptr<TiXmlElement> m_pSchedule;
    std::unique_ptr<TiXmlElement> m_pDigPTZ;
    std::int32_t m_nBrightness = 50;
    std::int32_t m_nSaturation = 50;
    std::int32_t m_nSharpness = 50;
    std::int32_t m_nPreMotion = 1000;
    std::int32_t m_nWidth = 0;  // wanted; after Init, delivered
    std::int32_t m_nHeight = 0;
    std::int32_t m_nStandard = 0;   // 0 JPEG, otherwise H.264
    std::int32_t m_nFramerate = 0;  // frames per second; 0 until set or known
    std::int32_t m_nQuality = 8;    // twice the Quality attribute: 2 to 20
    std::int32_t m_nSensitivity = 6;
    bool m_bHalf = false;  // half resolution is requested
    unsigned char m_MAC[6] = {};
    unsigned char m_Mask[MotionMapSize];              // zone (row r, column c): bit 7 - c of byte 3 * r
    static constexpr std::int32_t CropScale = 10000;  // of the sensor's width or height
    std::int32_t m_nCropLeft = 0;                     // all four in 1/CropScale
    std::int32_t m_nCropTop = 0;
    std::int32_t m_nCropWidth = CropScale;
    std::int32_t m_nCropHeight = CropScale;

    // The stream.
    CRectangle m_Active;             // the part of the sensor that is requested
    CBlockSet m_Blocks;              // received for the current request
    std::uint16_t m_wNextBlock = 0;  // the blocks before it have come, and none behind; 0: not so
    std::size_t m_nUsed = 0;         // bytes of the block space that the last complete transfer took
    CFrameBuffer m_Buffer;
    bool m_bConnected = false;
    std::uint16_t m_wSsn = 1;
    std::uint32_t m_dwRequestTime = 0;   // timeGetTime of the current request
    std::uint32_t m_dwKeyFrameTime = 0;  // of the last request answered with a key frame; 0 asks for one
    std::int32_t m_nMotion = -1;         // last reported; -1 not yet
    ActionMap m_Actions;                 // recording actions

private:
    struct Frame;

    // A run of frames that no decoder takes. It ends with Reset, or when good frames have come for
    // long enough; only its first frame is logged.
    struct Refusals {
        bool running = false;
        bool good = false;        // frames have been good since
        std::uint32_t since = 0;  // this request time
    };

    Refusals m_Refusals;
    std::string m_sRequest;  // kept for its memory

    // Of the last JPEG frame; as a rule the next one has the same.
    struct {
        int width = 0;
        int height = 0;
        unsigned char quality = 0;
        std::vector<unsigned char> bytes;
    } m_Header;

    void StoreBlock(const char* data, int length, unsigned short blockSize, unsigned short block);
    int CompleteFrame(const unsigned char* trailer, int length, unsigned short blockSize,
                      unsigned short block);
    int PayloadLength(unsigned short blockSize) const;
    bool UpdateMAC(const unsigned char* mac);
    bool ReadMotion(const unsigned char* activity, unsigned char* map) const;
    bool IsDecodable(const Frame& frame);
    void CountGoodFrame();
    bool ReplaceCopy(const TiXmlElement& parent, const char* name, std::unique_ptr<TiXmlElement>& copy);
    void DeliverH264(Frame& frame);
    void DeliverJpeg(Frame& frame);
    const std::vector<unsigned char>& Header(const Frame& frame);
    bool ParseStreamShape(const TiXmlElement& element);
    bool ParseMask(const TiXmlElement& element);
    void ParseCrop(const TiXmlElement& element);
};
