// The records that cross the boundary between the recorder host and the plug-in, and the
// types of the eight exported functions and of the host's event callback.
//
// This is the one header a host needs, in C (C99) as well as in C++; the library is loaded with
// dlopen and its functions are looked up by name. All words are in the host's byte order. Every
// record begins with its own size in bytes and a version; the plug-in fills them in the records it
// builds and ignores them in those it receives. A field called Reserved is 0 in an event record and
// neither read nor written in any other.
//
// On 32-bit hosts the offsets are those pinned at the end of this file. On 64-bit hosts the
// fields, their order and their widths are the same and only the pointers are wider, so an
// event record is 192 bytes long instead of 184.
#ifndef PLENDIX_HOST_RECORDS_H
#define PLENDIX_HOST_RECORDS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define PLENDIX_CONSTANT(type, name, value) constexpr type name = (value)
#define PLENDIX_ASSERT(condition, text) static_assert(condition, text)
#else
#define PLENDIX_CONSTANT(type, name, value) enum { name = (value) }  // C has no typed constants
#define PLENDIX_ASSERT(condition, text) extern char PlendixLayout[(condition) ? 1 : -1]
#endif

// Identifies the plug-in in records (SourceId) and documents (ID="2162688").
PLENDIX_CONSTANT(uint32_t, PluginId, 0x210000);

// What an event record carries (_EventParmsIn::Kind).
PLENDIX_CONSTANT(uint32_t, EventKindVideo, 1);     // one frame
PLENDIX_CONSTANT(uint32_t, EventKindAlarm, 4);     // motion, trigger, relay or connection document
PLENDIX_CONSTANT(uint32_t, EventKindLog, 64);      // log_msg document
PLENDIX_CONSTANT(uint32_t, EventKindConfig, 256);  // version or configuration document

// The format of an event's data (_EventParmsIn::DataType).
PLENDIX_CONSTANT(uint32_t, DataTypeXml, 0x1000010);
PLENDIX_CONSTANT(uint32_t, DataTypeJpeg, 0x1000008);
PLENDIX_CONSTANT(uint32_t, DataTypeH264, 0x1000040);

// Values of the Result fields.
PLENDIX_CONSTANT(int32_t, ResultDone, 0);        // done, or nothing to do
PLENDIX_CONSTANT(int32_t, ResultNotServed, -1);  // operation, selector or code not served
PLENDIX_CONSTANT(int32_t, ResultNoData, -2);     // Data is null or DataLength is 0

// _EventParmsIn::FrameType.
PLENDIX_CONSTANT(uint8_t, FrameTypeKey, 1);    // JPEG frame, or H.264 frame that starts with an IDR picture
PLENDIX_CONSTANT(uint8_t, FrameTypeDelta, 2);  // any other H.264 frame

// Bits of _EventParmsIn::FrameFlags.
PLENDIX_CONSTANT(uint8_t, FrameFlagMotion, 0x80);     // motion in a zone that the mask enables
PLENDIX_CONSTANT(uint8_t, FrameFlagRecording, 0x40);  // a recording action is in force

// One event. Owned by the plug-in; it and the bytes at Data are valid until the callback returns.
typedef struct _EventParmsIn {
    uint32_t Size;
    uint32_t Version;
    uint32_t DataLength;  // bytes at Data; a document's terminating NUL is not counted
    const void* Data;
    uint32_t SourceId;  // PluginId; for frames also device number << 8 and input number
    uint32_t Reserved0;
    uint32_t Kind;
    uint32_t DataType;
    // From here on all zero unless Kind is EventKindVideo.
    uint32_t VideoSize;     // bytes from VideoSize to the end of the record: 152
    uint32_t VideoVersion;  // 1
    uint32_t Reserved1;
    uint32_t FrameSeconds;       // delivery time, seconds since 1970-01-01 UTC
    uint16_t FrameMilliseconds;  // 0 to 999 within that second
    uint8_t FrameType;
    uint8_t FrameFlags;
    uint32_t MotionLength;   // bytes used in MotionMap: 24, or 0 without a map
    uint8_t MotionMap[128];  // before the mask; zone (row r, column c): bit 7 - c of byte 3 * r
} _EventParmsIn;

// The host's answer to an event.
typedef struct _EventParmsOut {
    uint32_t Size;
    uint32_t Version;
    uint32_t Error;  // 0 when handed over; the host sets it nonzero to refuse the event
} _EventParmsOut;

// Called on the thread that runs Open while it runs, on the plug-in's worker thread until that has
// ended within Close, and then on the thread that runs Close; never on two threads at once. A nonzero
// return value, too, is a refusal.
typedef int (*EventCallbackFunction)(_EventParmsIn*, _EventParmsOut*);

typedef struct _LoadParmsIn {
    uint32_t Size;
    uint32_t Version;
    uint32_t HostContext;  // the host's own word; not used
    EventCallbackFunction EventCallback;
} _LoadParmsIn;

typedef struct _LoadParmsOut {
    uint32_t Size;
    uint32_t Version;
    uint32_t PluginId;
    uint32_t Format0;  // class << 24 | format bits, as in DataType
    uint32_t Format1;
    uint32_t Format2;
    uint32_t Format3;
    uint32_t Zero[4];
    uint32_t Reserved[2];
    uint8_t Flag0;
    uint8_t Flag1;
    uint8_t Flag2;
    uint8_t Flag3;
    uint8_t Flag4;
    uint8_t Flag5;
} _LoadParmsOut;

typedef struct _UnloadParmsIn {
    uint32_t Size;
    uint32_t Version;
} _UnloadParmsIn;

typedef struct _UnloadParmsOut {
    uint32_t Size;
    uint32_t Version;
} _UnloadParmsOut;

typedef struct _OpenParmsIn {
    uint32_t Size;
    uint32_t Version;
} _OpenParmsIn;

typedef struct _OpenParmsOut {
    uint32_t Size;
    uint32_t Version;
    int32_t Result;
    uint32_t OpenExtra;
} _OpenParmsOut;

typedef struct _CloseParmsIn {
    uint32_t Size;
    uint32_t Version;
} _CloseParmsIn;

typedef struct _CloseParmsOut {
    uint32_t Size;
    uint32_t Version;
    int32_t Result;
} _CloseParmsOut;

typedef struct _ReadParmsIn {
    uint32_t Size;
    uint32_t Version;
} _ReadParmsIn;

typedef struct _ReadParmsOut {
    uint32_t Size;
    uint32_t Version;
    uint32_t Reserved[2];
    int32_t Result;
} _ReadParmsOut;

typedef struct _SeekParmsIn {
    uint32_t Size;
    uint32_t Version;
} _SeekParmsIn;

typedef struct _SeekParmsOut {
    uint32_t Size;
    uint32_t Version;
    int32_t Result;
} _SeekParmsOut;

// A write document: relay outputs and recording marks.
typedef struct _WriteParmsIn {
    uint32_t Size;
    uint32_t Version;
    uint32_t Reserved0;
    uint8_t Selector;  // must be 0
    uint8_t Reserved1[3];
    uint32_t DataLength;  // bytes of XML text at Data
    const void* Data;     // copied before Write returns; needs no NUL
    uint32_t SourceId;    // the module that wrote the document; PluginId: it is not taken
} _WriteParmsIn;

typedef struct _WriteParmsOut {
    uint32_t Size;
    uint32_t Version;
    uint32_t Reserved[2];
    int32_t Result;  // untouched when the document was queued
} _WriteParmsOut;

// A configuration document.
typedef struct _IOCTLParmsIn {
    uint32_t Size;
    uint32_t Version;
    uint32_t Code;  // 2; no other is served
    uint32_t Reserved[2];
    uint32_t DataLength;  // bytes of XML text at Data
    const void* Data;     // copied before IOCTL returns; needs no NUL
} _IOCTLParmsIn;

typedef struct _IOCTLParmsOut {
    uint32_t Size;
    uint32_t Version;
    uint32_t Reserved;
    int32_t Result;  // untouched when the document was queued
} _IOCTLParmsOut;

// The exports: "Load", "Unload", "Open", "Close", "Read", "Write", "Seek" and "IOCTL".
// Each returns 0 always; what happened is in Result. No record may be null.
typedef int (*LoadFunction)(_LoadParmsIn*, _LoadParmsOut*);
typedef int (*UnloadFunction)(_UnloadParmsIn*, _UnloadParmsOut*);
typedef int (*OpenFunction)(_OpenParmsIn*, _OpenParmsOut*);
typedef int (*CloseFunction)(_CloseParmsIn*, _CloseParmsOut*);
typedef int (*ReadFunction)(_ReadParmsIn*, _ReadParmsOut*);
typedef int (*WriteFunction)(_WriteParmsIn*, _WriteParmsOut*);
typedef int (*SeekFunction)(_SeekParmsIn*, _SeekParmsOut*);
typedef int (*IOCTLFunction)(_IOCTLParmsIn*, _IOCTLParmsOut*);

// Offsets in front of a record's first pointer are the same everywhere; behind it they move
// by the extra width (and alignment) of the pointer.
#if UINTPTR_MAX == UINT32_MAX
#define PLENDIX_OFFSET(record, field, narrow, wide) \
    PLENDIX_ASSERT(offsetof(record, field) == (narrow), #field)
#else
#define PLENDIX_OFFSET(record, field, narrow, wide) PLENDIX_ASSERT(offsetof(record, field) == (wide), #field)
#endif

PLENDIX_OFFSET(_LoadParmsIn, HostContext, 8, 8);
PLENDIX_OFFSET(_LoadParmsIn, EventCallback, 12, 16);
PLENDIX_OFFSET(_LoadParmsOut, PluginId, 8, 8);
PLENDIX_OFFSET(_LoadParmsOut, Format0, 12, 12);
PLENDIX_OFFSET(_LoadParmsOut, Format1, 16, 16);
PLENDIX_OFFSET(_LoadParmsOut, Format2, 20, 20);
PLENDIX_OFFSET(_LoadParmsOut, Format3, 24, 24);
PLENDIX_OFFSET(_LoadParmsOut, Zero, 28, 28);
PLENDIX_OFFSET(_LoadParmsOut, Reserved, 44, 44);
PLENDIX_OFFSET(_LoadParmsOut, Flag0, 52, 52);
PLENDIX_OFFSET(_LoadParmsOut, Flag1, 53, 53);
PLENDIX_OFFSET(_LoadParmsOut, Flag2, 54, 54);
PLENDIX_OFFSET(_LoadParmsOut, Flag3, 55, 55);
PLENDIX_OFFSET(_LoadParmsOut, Flag4, 56, 56);
PLENDIX_OFFSET(_LoadParmsOut, Flag5, 57, 57);
PLENDIX_OFFSET(_OpenParmsOut, Result, 8, 8);
PLENDIX_OFFSET(_OpenParmsOut, OpenExtra, 12, 12);
PLENDIX_OFFSET(_CloseParmsOut, Result, 8, 8);
PLENDIX_OFFSET(_ReadParmsOut, Result, 16, 16);
PLENDIX_OFFSET(_SeekParmsOut, Result, 8, 8);
PLENDIX_OFFSET(_WriteParmsIn, Selector, 12, 12);
PLENDIX_OFFSET(_WriteParmsIn, DataLength, 16, 16);
PLENDIX_OFFSET(_WriteParmsIn, Data, 20, 24);
PLENDIX_OFFSET(_WriteParmsIn, SourceId, 24, 32);
PLENDIX_OFFSET(_WriteParmsOut, Result, 16, 16);
PLENDIX_OFFSET(_IOCTLParmsIn, Code, 8, 8);
PLENDIX_OFFSET(_IOCTLParmsIn, DataLength, 20, 20);
PLENDIX_OFFSET(_IOCTLParmsIn, Data, 24, 24);
PLENDIX_OFFSET(_IOCTLParmsOut, Result, 12, 12);
PLENDIX_OFFSET(_EventParmsIn, Size, 0, 0);
PLENDIX_OFFSET(_EventParmsIn, Version, 4, 4);
PLENDIX_OFFSET(_EventParmsIn, DataLength, 8, 8);
PLENDIX_OFFSET(_EventParmsIn, Data, 12, 16);
PLENDIX_OFFSET(_EventParmsIn, SourceId, 16, 24);
PLENDIX_OFFSET(_EventParmsIn, Reserved0, 20, 28);
PLENDIX_OFFSET(_EventParmsIn, Kind, 24, 32);
PLENDIX_OFFSET(_EventParmsIn, DataType, 28, 36);
PLENDIX_OFFSET(_EventParmsIn, VideoSize, 32, 40);
PLENDIX_OFFSET(_EventParmsIn, VideoVersion, 36, 44);
PLENDIX_OFFSET(_EventParmsIn, Reserved1, 40, 48);
PLENDIX_OFFSET(_EventParmsIn, FrameSeconds, 44, 52);
PLENDIX_OFFSET(_EventParmsIn, FrameMilliseconds, 48, 56);
PLENDIX_OFFSET(_EventParmsIn, FrameType, 50, 58);
PLENDIX_OFFSET(_EventParmsIn, FrameFlags, 51, 59);
PLENDIX_OFFSET(_EventParmsIn, MotionLength, 52, 60);
PLENDIX_OFFSET(_EventParmsIn, MotionMap, 56, 64);
PLENDIX_OFFSET(_EventParmsOut, Error, 8, 8);

#define PLENDIX_SIZE(record, narrow, wide) \
    PLENDIX_ASSERT(sizeof(record) == (sizeof(void*) == 4 ? (narrow) : (wide)), #record)
// NOLINTBEGIN(bugprone-branch-clone): of one size everywhere
PLENDIX_SIZE(_EventParmsIn, 184, 192);
PLENDIX_SIZE(_EventParmsOut, 12, 12);
PLENDIX_SIZE(_LoadParmsIn, 16, 24);
PLENDIX_SIZE(_LoadParmsOut, 60, 60);
PLENDIX_SIZE(_UnloadParmsIn, 8, 8);
PLENDIX_SIZE(_UnloadParmsOut, 8, 8);
PLENDIX_SIZE(_OpenParmsIn, 8, 8);
PLENDIX_SIZE(_OpenParmsOut, 16, 16);
PLENDIX_SIZE(_CloseParmsIn, 8, 8);
PLENDIX_SIZE(_CloseParmsOut, 12, 12);
PLENDIX_SIZE(_ReadParmsIn, 8, 8);
PLENDIX_SIZE(_ReadParmsOut, 20, 20);
PLENDIX_SIZE(_SeekParmsIn, 8, 8);
PLENDIX_SIZE(_SeekParmsOut, 12, 12);
PLENDIX_SIZE(_WriteParmsIn, 28, 40);
PLENDIX_SIZE(_WriteParmsOut, 20, 20);
PLENDIX_SIZE(_IOCTLParmsIn, 28, 32);
PLENDIX_SIZE(_IOCTLParmsOut, 16, 16);
// NOLINTEND(bugprone-branch-clone)

#undef PLENDIX_SIZE
#undef PLENDIX_OFFSET
#undef PLENDIX_ASSERT
#undef PLENDIX_CONSTANT

#endif
