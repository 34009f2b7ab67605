"""Reads what a Matroska file of the recorder holds, with its own eyes: element by element, to the last byte."""
import datetime
import os

HEADER, SEGMENT, INFO, DATE, DURATION, CLUSTER, TIME, BLOCK, GROUP = (
    0x1A45DFA3, 0x18538067, 0x1549A966, 0x4461, 0x4489, 0x1F43B675, 0xE7, 0xA3, 0xA0)
SECONDS_TO_2001 = int(datetime.datetime(2001, 1, 1, tzinfo=datetime.timezone.utc).timestamp())


def elements(data, at, end):
    """(ID, begin, end) of the elements in a range. An unknown size reaches to the end of the range."""
    while at < end:
        length = 9 - data[at].bit_length()
        name = int.from_bytes(data[at:at + length], "big")
        at += length
        length = 9 - data[at].bit_length()
        size = int.from_bytes(data[at:at + length], "big") & (1 << 7 * length) - 1
        at += length
        stop = end if size == (1 << 7 * length) - 1 else at + size
        if stop > end:
            raise ValueError(f"torn: an element of {size} bytes, {end - at} are there")
        yield name, at, stop
        at = stop


class Movie:
    def __init__(self, path, seen):
        self.path, self.seen, self.gone, self.copy = path, seen, None, None
        self.camera = int(path.split("/camera-")[1].split("/")[0])
        self.read, self.error, self.date, self.times = False, None, None, []

    def load(self, closed=True):
        """What was closed does not change any more. Of what goes before it is closed the first part counts."""
        try:
            with open(self.path, "rb") as file:
                data = file.read()
        except FileNotFoundError:
            return
        self.read, self.times = closed, []
        try:
            self.read_from(data)
            self.error = None if self.times else "no picture"
        except (ValueError, IndexError) as error:
            self.error = str(error) or "torn"

    def read_from(self, data):
        for name, begin, end in elements(data, 0, len(data)):
            if name == SEGMENT:
                for part, start, stop in elements(data, begin, end):
                    if part == INFO:
                        self.read_info(data, start, stop)
                    elif part == CLUSTER:
                        self.read_cluster(data, start, stop)

    def read_info(self, data, begin, end):
        for name, start, stop in elements(data, begin, end):
            if name == DATE:
                self.date = int.from_bytes(data[start:stop], "big", signed=True) / 1e9 + SECONDS_TO_2001

    def read_cluster(self, data, begin, end):
        time = 0
        for name, start, stop in elements(data, begin, end):
            if name == TIME:
                time = int.from_bytes(data[start:stop], "big")
            elif name in (BLOCK, GROUP):
                at = start if name == BLOCK else next(b for n, b, _ in elements(data, start, stop) if n == 0xA1)
                self.times.append((time + int.from_bytes(data[at + 1:at + 3], "big", signed=True)) / 1000)
