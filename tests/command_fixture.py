"""A folder with pictures and a table of mounts, and the command as a process in it; the environment
variable ZEL_COMMAND says how the command is called."""
import contextlib
import json
import os
import pathlib
import random
import re
import resource
import shlex
import signal
import struct
import subprocess
import tempfile
import time
import unittest
import zlib

COMMAND = shlex.split(os.environ["ZEL_COMMAND"])
RESERVES_MEMORY = bool(os.environ.get("ZEL_RESERVES_MEMORY"))  # as sanitizers and emulators do
PATIENCE = 300 if RESERVES_MEMORY else 120  # seconds that a run may take
WITHOUT_PRIVILEGES = ["setpriv", "--bounding-set=-all"] if os.geteuid() == 0 else []
MANY_BYTES = 1 << 20
MOCK_DEVICES = pathlib.Path(__file__).parent / "mock-devices.umockdev"
USB = "/opt/storage/usb/"
RED, GREEN, BLUE, YELLOW = COLOURS = (255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 0)
SAVE = "save --index i --cache c --device D1 --size 100"


def corners(width, height, colours=COLOURS):
    """Pixels with these colours at the top left, top right, bottom left and bottom right."""
    top, bottom = (bytes(left) * (width // 2) + bytes(right) * (width - width // 2)
                   for left, right in (colours[:2], colours[2:]))
    return top * (height // 2) + bottom * (height - height // 2)


def png(width, height, data=None):
    data = corners(width, height) if data is None else data
    channels = len(data) // (width * height) or 3
    rows = b"".join(b"\0" + data[start:start + width * channels]
                    for start in range(0, len(data), width * channels))
    header = struct.pack(">IIBBBBB", width, height, 8, {3: 2, 4: 6}[channels], 0, 0, 0)
    chunks = b"IHDR" + header, b"IDAT" + zlib.compress(rows), b"IEND"
    return b"\x89PNG\r\n\x1a\n" + b"".join(struct.pack(">I", len(chunk) - 4) + chunk + struct.pack(
        ">I", zlib.crc32(chunk)) for chunk in chunks)


def jpeg(width, height, orientation=1, data=None):
    data = corners(width, height) if data is None else data
    ppm = b"P6 %d %d 255\n" % (width, height) + data
    data = subprocess.run(["cjpeg"], input=ppm, capture_output=True, check=True).stdout
    exif = b"Exif\0\0MM" + struct.pack(">HIHHHIHHI", 42, 8, 1, 0x112, 3, 1, orientation, 0, 0)
    return data[:2] + b"\xff\xe1" + struct.pack(">H", len(exif) + 2) + exif + data[2:]


def decode(thumbnail):
    """The size, and the colours in the middle of each quarter."""
    ppm = subprocess.run(["djpeg", "-strict", thumbnail], capture_output=True, check=True).stdout
    _, size, _, data = ppm.split(b"\n", 3)
    width, height = map(int, size.split())
    return (width, height), b"".join(
        data[3 * (y * width + x):][:3] for y in (height // 4, height * 3 // 4)
        for x in (width // 4, width * 3 // 4))


def read_terminal(terminal):
    """All that was written at the other end, which is closed."""
    shown = b""
    with contextlib.suppress(OSError):  # the end of a terminal
        while True:
            shown += os.read(terminal, 65536)
    return shown.decode()


def table(output):
    return {words[0]: words[1:] for words in map(str.split, output.splitlines()) if words}


class CommandTestCase(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not RESERVES_MEMORY:
            resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        self.settings = {
            "cwd": self.folder, "encoding": "utf-8", "errors": "surrogateescape",
            "env": {**os.environ, "LC_ALL": "C.UTF-8", "ZEL_MOUNTINFO": f"{self.folder}/table/now"}}
        self.attach("D1")
        self.write({"p.png": png(6, 4), "large.png": png(512, 2)})

    def write(self, files):
        for name, data in files.items():
            (self.folder / name).parent.mkdir(parents=True, exist_ok=True)
            (self.folder / name).write_bytes(data)

    def attach(self, *names):
        mounts = [(10, "/"), *((ord(name[-1]), USB + name) for name in names)]
        self.write({"table/new": "".join(
            f"{id} 1 0:40{id} / {path} rw - vfat /dev/x rw\n" for id, path in mounts).encode()})
        (self.folder / "table/new").rename(self.folder / "table/now")

    def run_command(self, line, *words, before=(), **settings):
        pipes = dict.fromkeys(("stdout", "stderr"), subprocess.PIPE)
        return subprocess.run([*before, *COMMAND, *line.split(), *words], check=False, timeout=PATIENCE,
                              **{**pipes, **self.settings, **settings})

    def make_thumbnails(self, *pictures):
        """Saves thumbnails, and takes what tells equal names apart from their names again."""
        self.assertEqual(self.run_command(SAVE, *pictures).returncode, 0)
        index = self.folder / "i"
        index.write_bytes(re.sub(rb"-[0-9a-f]{10}(?=\.jpg)", b"", index.read_bytes()))
        for file in (self.folder / "c/D1").iterdir():
            file.rename(re.sub(r"-[0-9a-f]{10}(?=\.jpg$)", "", str(file)))

    def start(self, words, **settings):
        process = subprocess.Popen(words, **{**self.settings, **settings}, stdout=subprocess.PIPE,
                                   preexec_fn=lambda: signal.alarm(PATIENCE))
        for clean_up in (process.stdout.close, process.wait, process.kill):
            self.addCleanup(clean_up)
        return process

    def start_watch(self, *words, before=()):
        with open(self.folder / "errors", "w", encoding="utf-8") as errors:
            watch = self.start([*before, *COMMAND, "watch", "--index", "i", *words], stderr=errors)
        self.assertEqual(watch.stdout.readline(), "ready\n")
        return watch

    def errors(self):
        """What `watch` has told on standard error, without its name."""
        return (self.folder / "errors").read_text("utf-8").replace("zel-thumbnail-cache: ", "")

    def with_mounts(self, script):
        """The words before a command that sees what a script mounts, as nobody else does."""
        words = ["unshare", "--map-root-user", "--mount", "sh", "-c", script + ' && exec "$@"', "sh"]
        if subprocess.run([*words, "true"], check=False, capture_output=True,
                          **self.settings).returncode != 0:
            self.skipTest("not checked, since nothing may be mounted here")
        return words

    def with_sticks(self):
        """The words before a command that sees the folder usb as /opt/storage/usb."""
        (self.folder / "usb").mkdir(exist_ok=True)
        return self.with_mounts("mount -t tmpfs none /opt && mkdir -p /opt/storage/usb && "
                                "mount --bind usb /opt/storage/usb")

    def nest_folders(self, folder):
        """Folders in one another, so deep that a path is too long; the pattern of that path."""
        outer = os.open(folder, os.O_RDONLY)
        for _ in range(17):
            os.mkdir("n" * 250, dir_fd=outer)
            inner = os.open("n" * 250, os.O_RDONLY, dir_fd=outer)
            os.close(outer)
            outer = inner
        os.close(outer)
        return f"(?:{'n' * 250}/?)+"

    def write_many(self, folder, count=2000):
        """So many pictures in a folder that a command works on them for seconds."""
        noise = jpeg(1000, 1000, data=random.Random(1).randbytes(3000000))
        self.write({f"{folder}/0.jpg": noise})
        for number in range(1, count):
            os.link(self.folder / folder / "0.jpg", self.folder / folder / f"{number}.jpg")

    def wait_until(self, condition, process):
        """Waits until a condition is true, which it is to become before a process ends."""
        while not condition():
            self.assertIsNone(process.poll())
            time.sleep(0.01)

    def thumbnails(self, device):
        return list(self.folder.glob(f"c/{device}/*.jpg"))

    def listed(self):
        """The recorded thumbnails, oldest first, once it is clear that the index is sound."""
        devices = json.loads(self.run_command("list i --json").stdout)["devices"]
        files = [thumbnail["file"] for device in devices for thumbnail in device["thumbnails"]]
        there = [str(path) for path in self.folder.glob("c/*/*.jpg")]
        self.assertEqual(sorted(files), sorted(there))
        return files

    def files(self):
        """By path: what a file holds, with its size when it is large."""
        def content(path):
            size = path.stat().st_size
            with open(path, "rb") as file:
                return file.read() if size < MANY_BYTES else (size, file.read(MANY_BYTES))
        return {path: path.is_file() and content(path) for path in self.folder.rglob("*")}

    def check_refusal(self, line, status, pattern):
        with self.subTest(line):
            before = self.files()
            run = self.run_command(line)
            self.assertEqual(run.returncode, status)
            self.assertEqual(run.stdout, "")
            self.assertRegex(run.stderr, pattern)
            self.assertRegex(run.stderr, "^zel-thumbnail-cache: [^\0-\x1f\x7f]+%s\n$" % (
                r" \(zel-thumbnail-cache --help explains\)" if status == 2 else ""))
            self.assertEqual(self.files(), before)


class SaveTestCase(CommandTestCase):
    def save(self, *words):
        """By picture: its thumbnail and what became of it."""
        run = self.run_command(SAVE, "--verbose", *words)
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.returncode, 0)
        return {picture: (row[0], row[-1]) for picture, row in self.rows(run.stdout).items()}

    def rows(self, output, failed=0):
        """The rows of the table by picture, once it is clear that they are true, and the sums."""
        *rows, sums, total = map(str.split, output.splitlines())
        if rows:
            self.assertEqual(rows.pop(0), ["SOURCE", "THUMBNAIL", "PIXELS", "BYTES", "STATE"])
        for _, thumbnail, _, size, state in rows:
            path = pathlib.Path(thumbnail)
            self.assertEqual(size, "-" if state == "evicted" else str(path.stat().st_size))
            self.assertEqual(path.exists(), state != "evicted")
        states = [row[-1] for row in rows]
        counts = [f"{states.count(state)} {state}" for state in ("saved", "kept")]
        self.assertRegex(" ".join(sums), ", ".join(
            [*counts, f"{failed} failed", rf"{states.count('evicted')} evicted in \d+\.\d seconds$"]))
        size = sum(int(row[3]) for row in rows if row[3] != "-")
        there = len(rows) - states.count("evicted")
        self.assertEqual(" ".join(total), f"{there} thumbnail{'s' * (there != 1)}, {size} bytes, "
                         f"{size / 1048576:.2f} % of 104857600")
        return {row[0]: row[1:] for row in rows}

    def check_states(self, words, expected):
        rows = self.save(*words.split())
        self.assertEqual([(picture, state) for picture, (_, state) in rows.items()],
                         list(expected.items()))
        return [thumbnail for thumbnail, _ in rows.values()]
