#!/usr/bin/env python3
"""A recorder host: one camera, 20 pictures of it to files, its relay on and off.

    host.py /path/to/Plendix.so 10.0.0.7
"""
import queue
import sys
import time
from ctypes import (CDLL, CFUNCTYPE, POINTER, Structure, byref, c_char_p, c_int, c_int32, c_uint8, c_uint16,
                    c_uint32, c_void_p, sizeof, string_at)

VIDEO, ALARM = 1, 4  # kinds of events


def record(**fields):
    """A record of plugin/host_records.h. Each begins with its own size and a version."""
    layout = [("Size", c_uint32), ("Version", c_uint32), *fields.items()]
    return type("Record", (Structure,), {"_fields_": layout})


def new(kind, **values):
    return kind(Size=sizeof(kind), Version=1, **values)


Event = record(DataLength=c_uint32, Data=c_void_p, SourceId=c_uint32, Reserved0=c_uint32, Kind=c_uint32,
               DataType=c_uint32, VideoSize=c_uint32, VideoVersion=c_uint32, Reserved1=c_uint32,
               FrameSeconds=c_uint32, FrameMilliseconds=c_uint16, FrameType=c_uint8, FrameFlags=c_uint8,
               MotionLength=c_uint32, MotionMap=c_uint8 * 128)
Answer = record(Error=c_uint32)
Callback = CFUNCTYPE(c_int, POINTER(Event), POINTER(Answer))
LoadIn = record(HostContext=c_uint32, EventCallback=Callback)
WriteIn = record(Reserved0=c_uint32, Selector=c_uint8, DataLength=c_uint32, Data=c_char_p, SourceId=c_uint32)
WriteOut = record(Reserved=c_uint32 * 2, Result=c_int32)
ControlIn = record(Code=c_uint32, Reserved=c_uint32 * 2, DataLength=c_uint32, Data=c_char_p)
ControlOut = record(Reserved=c_uint32, Result=c_int32)
Other = record(Room=c_uint8 * 52)  # as long as the longest whose contents do not matter here
events = queue.Queue()


@Callback
def on_event(event, answer):
    """Runs on the plug-in's worker, which serves no camera meanwhile: copy, and return."""
    events.put((event.contents.Kind, string_at(event.contents.Data, event.contents.DataLength)))
    return 0  # taken


def wait_for(wanted, part=b""):
    """The next event of a kind with a text in it. Documents are printed as they come."""
    end = time.monotonic() + 30
    while time.monotonic() < end:
        kind, data = events.get(timeout=30)
        if kind != VIDEO:
            print(data.decode())
        if kind == wanted and part in data:
            return data
    sys.exit(f"kind {wanted} with {part} did not come")


def hand_over(function, given, answer):
    answer.Result = 1  # no result of the plug-in's: it stays when the document is queued
    function(byref(given), byref(answer))
    if answer.Result != 1:
        sys.exit(f"refused with {answer.Result}")


def switch_relay(on):
    text = (f"<Velm><Devices ID='2162688'><Device Number='1'><Trigger><Output Number='0' Action='1' Alarm='{on}' "
            "Time='0' Milliseconds='0'/></Trigger></Device></Devices></Velm>").encode()
    hand_over(plugin.Write, new(WriteIn, Data=text, DataLength=len(text), SourceId=1), new(WriteOut))
    wait_for(ALARM, f'<Output Number="0" Alarm="{on}"'.encode())


plugin = CDLL(sys.argv[1])
plugin.Load(byref(new(LoadIn, EventCallback=on_event)), byref(new(Other)))
plugin.Open(byref(new(Other)), byref(new(Other)))  # keeps Plendix.xml in the current directory
try:
    text = (f"<Velm Delta='1'><Devices ID='2162688'><Device Number='1' Enabled='1' ipAddress='{sys.argv[2]}'><Codec>"
            "<Encoder><Channel Number='0' Width='9999' Height='9999' Standard='0' Framerate='10'/></Encoder></Codec>"
            "</Device></Devices></Velm>").encode()
    hand_over(plugin.IOCTL, new(ControlIn, Code=2, Data=text, DataLength=len(text)), new(ControlOut))
    for number in range(1, 21):
        with open(f"picture-{number}.jpg", "wb") as file:
            file.write(wait_for(VIDEO))
    switch_relay(1)
    switch_relay(0)
finally:  # or the worker would call a host that is gone
    plugin.Close(byref(new(Other)), byref(new(Other)))
    plugin.Unload(byref(new(Other)), byref(new(Other)))
