"""Judges the movies of a night: each plays, its times fit the clock of its day, and between two pictures of a
camera there is never more than a fault, and what comes back after it, explains."""
import collections
import json
import subprocess

INTERVAL = 2.5    # seconds: between two pictures at two a second, one lost, on a busy machine
TIMEOUT = 10 + 3  # the driver's limit for an answer, and identifying the camera again
RETRY = 1 + 3     # a disk that refused is tried again after a second; then a key frame is waited for
START = 6         # of a recorder with all its cameras
STALLING = ("loss", "ack-loss", "error")
LASTING = {"silent": 12, "reboot": 2}  # seconds at most


def place(movies, steps):
    """Puts the movies on the monotonic time line, by the wall clock as it stood when each began."""
    faults = []
    for movie in movies:
        movie.begin = None
        ends = [moment for moment, _ in steps[1:]] + [float("inf")]
        for (moment, base), end in zip(steps, ends):
            begin = (movie.date or 0) - base
            if moment - 0.1 <= begin <= end + 0.1 and movie.seen - 3 <= begin <= movie.seen + 0.1:
                movie.begin = begin
        if movie.begin is None:
            faults.append(f"{movie.path}: its date {movie.date} fits no clock; seen first after {movie.seen:.1f} s")
    return faults


def causes_of(night):
    """By camera: what may keep its pictures away, from when until when."""
    common = [(0, START, "start")] + [(begin, started + START, "kill") for begin, started in night.kills]
    common += [(begin, end + RETRY, "disk full") for begin, end, _ in night.fills]
    common += [(begin, end + 1, "busy machine") for begin, end, _ in night.busy]
    causes = collections.defaultdict(lambda: list(common))
    for moment, camera, kind in night.camera_faults:
        if kind in LASTING:
            causes[camera].append((moment, moment + LASTING[kind] + TIMEOUT, kind))
        elif kind in STALLING:
            causes[camera].append((moment, moment + TIMEOUT, kind))
    return causes


def explain(begin, end, causes):
    """What of a gap no cause explains, in seconds, and the cause that explains most."""
    spans = sorted((max(start, begin), min(stop, end), name) for start, stop, name in causes
                   if start < end and stop > begin)
    covered, at = 0, begin
    for start, stop, _ in spans:
        covered += max(0, stop - max(start, at))
        at = max(at, stop)
    longest = max(spans, key=lambda span: span[1] - span[0], default=(0, 0, "nothing"))
    return end - begin - covered, longest[2]


def judge_camera(movies, end, causes, gaps):
    faults, at, before = [], 0, "the start"
    for movie in movies:
        if movie.begin < at - 0.1:
            faults.append(f"{movie.path}: begins {at - movie.begin:.1f} s before {before} ends")
        if movie.times != sorted(set(movie.times)) or movie.times[0] != 0:
            faults.append(f"{movie.path}: times are not in order")
        for moment in movie.times:
            gaps.append((movie.begin + moment - at, at, movie))
            at = movie.begin + moment
        before = movie.path
    gaps.append((end - at, at, movies[-1]))
    for length, begin, movie in gaps:
        rest, _ = explain(begin, begin + length, causes) if length > INTERVAL else (0, "")
        if rest > INTERVAL:
            faults.append(f"{movie.path}: gap of {length:.1f} s after {begin:.1f} s, {rest:.1f} s without a cause")
    return faults


def unnoticed(night):
    """Steps forward within a second before a kill, or before the next process looks: nobody was there to note them."""
    bases = zip(night.steps, night.steps[1:])
    steps = [(moment, base - before) for (_, before), (moment, base) in bases if base > before]
    return [(moment, by) for moment, by in steps
            if any(begin - 1 < moment < started + 1 for begin, started in night.kills)]


def judge_removal(movies, night):
    """What went before it was old, while there was room."""
    faults, steps, keep = [], unnoticed(night), 6 * night.segment
    for movie in movies:
        if movie.begin is None or movie.gone is None:
            continue
        ended = movie.begin + movie.times[-1]
        seeming = movie.gone - ended + sum(by for moment, by in steps if ended < moment < movie.gone)
        full = any(begin - 1 < movie.gone < end + RETRY for begin, end, _ in night.fills)
        if seeming < keep - 1 and not full:
            faults.append(f"{movie.path}: removed after {movie.gone - ended:.1f} s")
    return faults


def decode(files):
    """Those that do not play."""
    words = ["ffmpeg", "-nostdin", "-v", "error", "-xerror", "-err_detect", "crccheck+bitstream+buffer"]
    for file in files:
        words += ["-i", file]
    for i in range(len(files)):
        words += ["-map", str(i)]
    words += ["-enc_time_base", "-1", "-f", "null", "-"]
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode == 0 and not done.stdout:
        return []
    if len(files) == 1:
        return [f"{files[0]}: {done.stdout.decode(errors='replace').strip()}"]
    return [text for file in files for text in decode([file])]


def judge_process(night):
    faults = []
    if night.exit_code != 0 or night.stopped_in > 10:
        faults.append(f"the recorder ended with {night.exit_code} after {night.stopped_in:.1f} s")
    last = [sample for sample in night.samples if sample[1] == night.samples[-1][1]]
    early = [sample for sample in last if sample[0] - last[0][0] >= (180 if night.long else 1)][:30]
    late = last[-30:]
    if early and late:
        resident = [sum(sample[2] for sample in part) / len(part) / 1024 for part in (early, late)]
        print(f"memory of the last process: {resident[0]:.1f} MB from {early[0][0]:.0f} s on, {resident[1]:.1f} MB at "
              f"the end; at most {max(sample[2] for sample in night.samples) / 1024:.1f} MB")
        if night.long and resident[1] > resident[0] + 1:
            faults.append("memory grows")
        few = [[min(sample[column] for sample in part) for part in (early, late)] for column in (4, 3)]
        print(f"descriptors: {few[0][0]} without movies, then {few[0][1]}; {few[1][1]} with them at the end")
        if few[0][1] > few[0][0] or few[1][1] > few[0][1] + 2 * night.cameras:
            faults.append("descriptors are left open")
    return faults


def judge(night):
    movies = [movie for _, movie in sorted(night.movies.items()) if movie.times]
    faults = [f"{movie.path}: {movie.error}" for movie in night.movies.values() if movie.read and movie.error]
    whole = [movie for movie in movies if not movie.error]
    faults += place(whole, night.steps)
    causes, table = causes_of(night), {}
    for camera in range(1, night.cameras + 1):
        mine, gaps = [movie for movie in whole if movie.camera == camera and movie.begin is not None], []
        faults += judge_camera(mine, night.now_at_end, causes[camera], gaps) if mine else [f"camera {camera}: no movie"]
        for length, begin, _ in gaps:
            if length > INTERVAL:
                table.setdefault(explain(begin, begin + length, causes[camera])[1], []).append(length)
    faults += judge_removal(whole, night)
    left = [movie.path for movie in movies if movie.gone is None]
    files = left + [movie.copy for movie in movies if movie.copy]
    bad = [text for i in range(0, len(files), 20) for text in decode(files[i:i + 20])]
    print(f"{night.cameras} cameras, {night.seconds} s: {len(night.movies)} segments, {len(left)} left at the end, "
          f"{len(night.movies) - len(movies)} gone unread; {len(files)} decoded, {len(bad)} with an error")
    sent = json.load(open(f"{night.folder}/cameras.json"))["total"]["frames"]
    print(f"{sent} pictures sent whole, {sum(len(movie.times) for movie in movies)} recorded")
    print(f"{len(night.kills)} kills, {len(night.fills)} times a full disk, {len(night.steps) - 1} clock steps, "
          f"{len(night.camera_faults)} faults of the cameras")
    print(f"in {len(night.busy)} of the seconds recorder or cameras waited 0.5 s and more for a processor")
    for cause, lengths in sorted(table.items()):
        print(f"gaps by {cause}: {len(lengths)}, the longest {max(lengths):.1f} s")
    faults = bad + faults + judge_process(night)
    said = open(f"{night.folder}/recorder.log", errors="replace").read().count("the clock was set")
    if said > len(night.steps) - 1:
        faults.append(f"{said} clock steps told of {len(night.steps) - 1}")
    print("\n".join(faults[:40] + [f"{len(faults)} findings"]))
    return faults
