#!/usr/bin/env python3
"""The command as a process."""
import contextlib
import json
import os
import pathlib
import pty
import random
import re
import resource
import signal
import struct
import subprocess
import unittest

from command_fixture import (BLUE, COLOURS, COMMAND, GREEN, PATIENCE, RED, SAVE, USB, YELLOW,
                             CommandTestCase, corners, decode, jpeg, png, table)

OPTIONS = "--index=i", "--cache=c", "--device=D1", "--mount=M1", "--size=9", "--camera", "--json"
VERBS = {f"{SAVE} p.png": OPTIONS[:-1], "devices": (), "list i": OPTIONS[-1:],
         "watch --index i": OPTIONS[:1]}
WRONG = {  # by command line: what the message names
    "": "save", "frob": "frob", "\x1b[31m": "[31m", "--bogus": "--bogus", f"{SAVE} p.png -z": "-z",
    "watch": "--index", "list": "INDEX", SAVE: "FILE", "save --cache c p.png": "--index",
    "save --index i p.png": "--cache", "save --index i --cache c --camera p.png": "--device",
    "save --index i --cache c --mount M1 p.png": "--device",
    f"{SAVE} --mount M1 --camera p.png": "--camera", f"{SAVE} --device D p.png": "--mount",
    f"{SAVE} --mount M p.png": "--mount",
    **{f"{verb} --bogus": "--bogus" for verb in VERBS},
    **{f"{verb} extra": "extra" for verb in VERBS if not verb.startswith("save")},
    **{f"{verb} {option}": option.split("=")[0]
       for verb, own in VERBS.items() for option in OPTIONS if option not in own},
    **{f"{SAVE} p.png {option.split('=')[0]}{value}": option.split("=")[0]
       for option in OPTIONS[:5] for value in ("", "=")},
    **{f"{SAVE} p.png --size={size}": "--size" for size in ("0", "4097", "-1", "1x", "9" * 20)},
    **{f"{SAVE} p.png {option} {name}": option for option in ("--device", "--mount")
       for name in (".", "..", "a/b", 'a"b', "a>b")}}
RIGHT = {  # by command line: what the output holds
    "--help": "watch", "save --help": "--cache", "devices": USB + "D1",
    "--version": r"\d+\.\d+\.\d+", "devices --version": r"\d+\.\d+\.\d+",
    **{f"{SAVE} p.png {options}": "saved|kept" for options in
       ("", "--size 1", "--size 4096", "--mount M1", "--camera", "--device D --camera")},
    "save --index i --cache c --device D1 large.png": "256x1",  # the size when none is given
    "list i": "D1", "list --json i": "D1"}
UNUSABLE = {  # by command line: the path that the message names
    "save --index no/i --cache new --device D1 p.png": "no/i", "watch --index no/i": "no/i",
    "save --index i --cache p.png/c --device D1 p.png": "p.png/c", "watch --index table": "table",
    "list gone": "gone", "list table": "table", "list no\x1b[31m": "no?[31m"}


class CommandTest(CommandTestCase):
    def test_what_cannot_be_done_is_refused(self):
        for status, lines in ((1, UNUSABLE), (2, WRONG)):
            for line, culprit in lines.items():
                self.check_refusal(line, status, re.escape(culprit))

    def test_right_command_line_succeeds_unless_its_output_cannot_be_written(self):
        for line, result in RIGHT.items():
            with self.subTest(line), open("/dev/full", "w", encoding="utf-8") as full:
                run = self.run_command(line)
                self.assertEqual(run.returncode, 0)
                self.assertEqual(run.stderr, "")
                self.assertRegex(run.stdout, result)
                run = self.run_command(line, stdout=full)
                self.assertEqual(run.returncode, 1)
                self.assertIn("No space left", run.stderr)

    def test_pixels(self):
        clear = (255, 0, 0, 255), (0, 0, 0, 0), (0, 0, 0, 128), (0, 0, 255, 255)
        over_white = RED, (255, 255, 255), (127, 127, 127), BLUE
        svg = (b'<svg xmlns="http://www.w3.org/2000/svg" width="30000" height="20000">'
               b'<rect width="30000" height="20000" fill="red"/></svg>')
        turns = "0123 1032 3210 2301 0213 2031 3120 1302".split()  # where each corner comes from
        cases = {
            "odd.png": (png(67, 41), (67, 41), COLOURS),
            "wide.png": (png(300, 170), (100, 57), COLOURS),
            "tall.png": (png(170, 300), (57, 100), COLOURS),
            "line.png": (png(1000, 2, bytes(RED) * 2000), (100, 1), [RED] * 4),
            "clear.png": (png(60, 40, corners(60, 40, clear)), (60, 40), over_white),
            "scalable.svg": (svg, (100, 67), [RED] * 4),
            "large.jpg": (jpeg(300, 170, 6), (57, 100), (BLUE, RED, YELLOW, GREEN)),
            **{f"turned{i}.jpg": (jpeg(60, 40, i), (60, 40) if i < 5 else (40, 60),
                                  [COLOURS[int(corner)] for corner in turn])
               for i, turn in enumerate(turns, 1)}}
        self.write({name: data for name, (data, _, _) in cases.items()})
        run = self.run_command(SAVE, *cases)
        rows = table(run.stdout)
        total = sum(int(rows[name][2]) for name in cases)
        self.assertRegex(run.stdout, rf"\n{len(cases)} thumbnails, {total} bytes.*\n$")
        for name, (_, size, colours) in cases.items():
            with self.subTest(name):
                thumbnail, pixels, count, _ = rows[name]
                found_size, found = decode(thumbnail)
                self.assertEqual(found_size, size)
                self.assertEqual(pixels, "%dx%d" % size)
                self.assertEqual(int(count), os.path.getsize(thumbnail))
                self.assertLess(max(abs(a - b) for a, b in zip(found, sum(colours, ()))), 16, found)

    def test_states(self):
        def states():
            rows = table(self.run_command(SAVE, "a.png", "p.png").stdout)
            return rows["a.png"][-1] + " " + rows["p.png"][-1]

        thumbnail = self.folder / "c/D1/a.jpg"
        self.write({"a.png": png(6, 4), thumbnail: jpeg(6, 4, 1)})  # which has no record
        self.assertEqual(states(), "saved saved")
        before = self.files()
        self.assertEqual(states(), "kept kept")
        self.assertEqual(self.files(), before)
        made = thumbnail.stat().st_mtime_ns
        self.write({"a.png": png(8, 2)})
        os.utime(self.folder / "a.png", ns=(made, made))
        self.assertEqual(states(), "kept kept")
        os.utime(self.folder / "a.png", ns=(made + 1, made + 1))
        self.assertEqual(states(), "saved kept")
        self.assertEqual(decode(thumbnail)[0], (8, 2))
        self.write({thumbnail: b"damaged"})
        self.assertEqual(states(), "saved kept")

    def test_thumbnail_that_makes_room_is_evicted(self):
        self.run_command(SAVE, "p.png")
        full = re.sub(rb"Size=\d+", b"Size=104857599", (self.folder / "i").read_bytes())
        self.write({"i": full})
        run = self.run_command(SAVE, "p.png", "large.png")
        rows = table(run.stdout)
        self.assertEqual(rows["p.png"][-2:], ["-", "evicted"])
        self.assertEqual(rows["large.png"][-1], "saved")
        self.assertRegex(run.stdout, rf"\n1 thumbnail, {rows['large.png'][-2]} bytes.*\n$")

    def test_failed_pictures_are_named_and_the_others_saved(self):
        small, huge = png(6, 4), png(60000, 60000, b"")
        icns = struct.pack(">4sI4sI", b"icns", len(huge) + 16, b"ic08", len(huge) + 8) + huge
        noise = png(64, 64, random.Random(1).randbytes(64 * 64 * 3))
        cases = {  # by name: what it holds, and the reason given
            "missing.png": (None, "No such file"), "folder": (None, "regular"),
            "text.png": (b"text", "."), "cut.png": (noise[:-99], "."), 'a".png': (small, '"'),
            "b>.png": (small, ">"), "folder/p.jpeg": (small, "taken"), "n" * 255: (small, "long"),
            "blocked.png": (small, "blocked.jpg"), "c/D1/own.jpg": (small, "replace"),
            "noise.png": (noise, "cache"),
            "most.png": (png(16384, 16384, b""), "^(?!.*megapixels)"),
            "wide.png": (png(16385, 16384, b""), "16385 x 16384.*megapixels"),
            "huge.png": (huge, "60000 x 60000.*megapixels"),
            "huge.icns": (icns, "recognize")}
        self.write({"c/D1/blocked.jpg/file": b"", "p.jpeg": small, "folder/p.png": small})
        self.write({name: data for name, (data, _) in cases.items() if data is not None})
        # No file becomes as large as the thumbnail of noise.
        run = self.run_command(
            SAVE, "p.png", "p.jpeg", "folder/p.png", *cases, restore_signals=False,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096)))
        self.assertEqual(run.returncode, 1)
        reasons = dict(re.findall(r"(?m)^[^:\n]*: (.*?): (.*)$", run.stderr))
        self.assertEqual(set(reasons), set(cases))
        for name, (_, reason) in cases.items():
            with self.subTest(name):
                self.assertRegex(reasons[name], reason)
        saved = {name: os.path.basename(words[0]) for name, words in table(run.stdout).items()}
        self.assertEqual(saved, {
            "SOURCE": "THUMBNAIL", "p.png": "p.jpg", "p.jpeg": "p.jpeg.jpg",
            "folder/p.png": "p.png.jpg", "3": "thumbnails,"})
        self.assertEqual(self.files()[self.folder / "c/D1/own.jpg"], small)

    def test_list(self):
        self.write({"i": b'<Type=1,Sid="A\\B",Path="/c/A\\B",Devicetype=1>\r\n' + b"".join(
            b'<Type=0,Path="/c/%s",URL="/c/%s/%s",Size=%d,Devicetype=%d>\r\n' % (id, id, *rest)
            for id, *rest in ((b"D1", b"\\\x1b[31m\t\x7f\xff\xc3\xa4.jpg", 100, 0),
                              (b"A\\B", b"a.jpg", 104857600, 1), (b"D1", b"b.jpg", 23, 0)))})
        self.assertEqual(
            re.sub(" +", " ", self.run_command("list i").stdout),
            "camera A\\B in /c/A\\B\nTHUMBNAIL BYTES\n/c/A\\B/a.jpg 104857600\n"
            "1 thumbnail, 104857600 bytes, 100.00 % of 104857600\n\n"
            "usb D1 in /c/D1\nTHUMBNAIL BYTES\n/c/D1/\\?[31m??\\xffä.jpg 100\n/c/D1/b.jpg 23\n"
            "2 thumbnails, 123 bytes, 0.00 % of 104857600\n\n"
            "3 thumbnails, 104857723 bytes, 100.00 % of 104857600\n")
        self.assertEqual(json.loads(self.run_command("list i --json").stdout), {
            "devices": [{"id": "A\\B", "kind": "camera", "path": "/c/A\\B", "bytes": 104857600,
                         "thumbnails": [{"file": "/c/A\\B/a.jpg", "bytes": 104857600}]},
                        {"id": "D1", "kind": "usb", "path": "/c/D1", "bytes": 123, "thumbnails": [
                            {"file": "/c/D1/\\\x1b[31m\t\x7f\ufffdä.jpg", "bytes": 100},
                            {"file": "/c/D1/b.jpg", "bytes": 23}]}],
            "thumbnails": 3, "bytes": 104857723, "ceiling": 104857600})

        run = self.run_command("list i", env={**self.settings["env"], "LC_ALL": "C"})
        self.assertIn(r"\xc3\xa4.jpg", run.stdout)

    def test_picture_belongs_to_the_innermost_storage_that_holds_it(self):
        namespace = ["unshare", "--map-root-user", "--mount"]
        if subprocess.run([*namespace, "mount", "-t", "tmpfs", "none", "/opt"],
                          check=False, capture_output=True).returncode != 0:
            self.skipTest("not checked, since nothing may be mounted here")
        self.attach("D1", "D1/D2", "D1b")
        outer, inner, neighbour = (USB + path for path in ("D1/..a.png", "D1/D2/b.png", "D3/c.png"))
        self.write({"script": f"""mount -t tmpfs none /opt; cp p.png {self.folder}/x.png
            for file in {outer} {inner} {neighbour}
            do mkdir -p ${{file%/*}}; cp p.png $file; done; exec "$@\"""".encode()})
        run = subprocess.run(
            [*namespace, "sh", "script", *COMMAND, *"save --index i --cache c".split(), outer, inner,
             neighbour, "x.png"], check=False, capture_output=True, timeout=PATIENCE,
            **self.settings)
        rows = table(run.stdout)
        self.assertEqual(run.returncode, 1)
        self.assertEqual(rows[outer][0], f"{self.folder}/c/D1/..a.jpg")
        self.assertEqual(rows[inner][0], f"{self.folder}/c/D2/b.jpg")
        self.assertRegex(run.stderr, rf"{neighbour}: on no storage.*\n.* x.png: on no storage")

    def test_devices(self):
        self.attach(r"A\040B", r"E\033[31m")
        self.assertRegex(self.run_command("devices").stdout, rf"\nusb +A B +{USB}A B +-\n"
                         rf"usb +E\?\[31m +{USB}E\?\[31m +-\n")
        (self.folder / "table/now").unlink()
        self.check_refusal("devices", 1, "database")

    def test_watch_removes_what_goes(self):
        self.attach("D1", "D2")
        self.run_command(f"{SAVE} p.png")
        self.run_command(f"{SAVE} p.png --device D2")
        watch = self.start_watch()
        self.attach("D1", "D2", "D3")
        self.assertEqual(watch.stdout.readline(), f"connected {USB}D3\n")
        self.attach("D2", "D3")
        self.assertEqual(watch.stdout.readline(), f"removed {USB}D1\n")
        self.assertEqual(os.listdir(self.folder / "c"), ["D2"])
        self.assertRegex(self.run_command("list i").stdout, "^usb D2")

    def test_second_command_on_an_index_is_refused(self):
        (self.folder / "sub").mkdir()
        (self.folder / "sub/link").symlink_to("../i")
        for number in (signal.SIGINT, signal.SIGTERM):
            watch = self.start_watch()
            locks = pathlib.Path("/proc/locks").read_text(encoding="utf-8")
            culprit = watch.pid if f" {watch.pid} " in locks else "another process"
            for line in ("watch --index sub/../i", "watch --index sub/link",
                         "save --index sub/link --cache new --device D1 p.png"):
                self.check_refusal(line, 1, rf"sub/\S+ .*{culprit}")
            self.assertEqual(self.run_command(f"{SAVE} p.png --index sub/i").returncode, 0)
            self.assertEqual(self.run_command("list sub/i").returncode, 0)
            watch.send_signal(number)
            self.assertEqual(watch.stdout.read(), "")
            self.assertEqual(watch.wait(), 0)
        self.assertEqual(self.run_command(f"{SAVE} p.png --index sub/link").returncode, 0)

    def test_progress_is_shown_on_a_terminal_and_erased(self):
        terminal, other_end = pty.openpty()
        self.addCleanup(os.close, terminal)
        self.run_command(SAVE, "p.png", "no\x1b.png", stderr=other_end)
        os.close(other_end)
        shown = b""
        with contextlib.suppress(OSError):  # the end of a terminal
            while True:
                shown += os.read(terminal, 65536)
        self.assertRegex(shown.decode(), r"1/2 p\.png.*\r\x1b\[K2/2 no\?\.png"
                         r"\r\x1b\[K[^\r]*no\?\.png: .*\r\n\r\x1b\[K$")


if __name__ == "__main__":
    unittest.main()
