#!/usr/bin/env python3
"""The command as a process."""
import fcntl
import json
import os
import pathlib
import pty
import re
import signal
import socket
import termios
import unittest

from command_fixture import (MOCK_DEVICES, RESERVES_MEMORY, SAVE, USB, CommandTestCase, png,
                             read_terminal)

OPTIONS = ("--index=i", "--cache=c", "--device=D1", "--mount=M1", "--size=9", "--jobs=2",
           "--camera", "--verbose", "--json")
VERBS = {f"{SAVE} p.png": OPTIONS[:-1], "devices": (), "list i": OPTIONS[-1:],
         "check i": (), "stats i": OPTIONS[-1:], "sheet i": (),
         "watch --index i": OPTIONS[:2]}
WRONG = {  # by command line: what the message names
    "": "save", "frob": "frob", "\x1b[31m": "[31m", "--bogus": "--bogus", f"{SAVE} p.png -z": "-z",
    "watch": "--index", "list": "INDEX", "check": "INDEX", "stats": "INDEX", "sheet": "INDEX",
    "sheet i --output=": "--output", SAVE: "FILE", "save --cache c p.png": "--index",
    "save --index i p.png": "--cache", "save --index i --cache c --camera p.png": "--device",
    "save --index i --cache c --mount M1 p.png": "--device",
    f"{SAVE} --mount M1 --camera p.png": "--camera", f"{SAVE} --device D p.png": "--mount",
    f"{SAVE} --mount M p.png": "--mount",
    **{f"{verb} --bogus": "--bogus" for verb in VERBS},
    **{f"{verb} extra": "extra" for verb in VERBS if not verb.startswith("save")},
    **{f"{verb} {option}": option.split("=")[0]
       for verb, own in VERBS.items() for option in OPTIONS if option not in own},
    **{f"{SAVE} p.png {option.split('=')[0]}{value}": option.split("=")[0]
       for option in OPTIONS[:6] for value in ("", "=")},
    **{f"{SAVE} p.png --size={size}": "--size" for size in ("0", "4097", "-1", "1x", "9" * 20)},
    **{f"{SAVE} p.png --jobs={jobs}": "--jobs" for jobs in ("0", "257", "-1", "1x")},
    **{f"{SAVE} p.png {option} {name}": option for option in ("--device", "--mount")
       for name in (".", "..", "a/b", 'a"b', "a>b")}}
RIGHT = {  # by command line: what the output holds
    "--help": "watch", "save --help": "--cache", "devices": USB + "D1",
    "--version": r"\d+\.\d+\.\d+", "devices --version": r"\d+\.\d+\.\d+",
    **{f"{SAVE} p.png {options}": "saved|kept" for options in
       ("", "--size 1", "--size 4096", "--mount M1", "--camera", "--device D --camera",
        "--jobs 256", "--verbose")},
    "save --index=i --cache=c= --device D1 -- p.png": "c=/D1/p-",
    "save --index i --cache c --device D1 large.png": "256x1",  # the size when none is given
    "list i": "D1", "list --json i": "D1", "list --bytes i": "BYTES", "stats i": "D1",
    "stats --json i": "D1", "sheet i": "D1", "sheet --embed i": "D1"}
UNUSABLE = {  # by command line: the message
    **dict.fromkeys(("save --index no/i --cache new --device D1 p.png", "watch --index no/i"),
                    "the directory of the index no/i does not exist"),
    **dict.fromkeys(("save --index p.png/i --cache new --device D1 p.png", "watch --index p.png/i"),
                    "the directory of the index p.png/i: Not a directory"),
    **dict.fromkeys(("save --index i --cache p.png/c --device D1 p.png",
                     "watch --index i --cache p.png/c"), "the folder p.png/c: Not a directory"),
    "save --index table --cache c --device D1 p.png": "the index table is a directory",
    "watch --index table": "the index table is a directory",
    **{f"{verb} {path}": f"{shown}: {reason}" for verb in ("list", "stats", "sheet")
       for path, shown, reason in (
           ("gone", "gone", "No such file or directory"), ("table", "table", "Is a directory"),
           ("p.png/i", "p.png/i", "Not a directory"), ("socket", "socket", "Input/output error"),
           ("no\x1b[31m", "no?[31m", "No such file or directory"),
           ("/proc/self/mem", "/proc/self/mem", "Input/output error"))}}


class CommandTest(CommandTestCase):
    def test_what_cannot_be_done_is_refused(self):
        with socket.socket(socket.AF_UNIX) as server:  # it can be looked at, but not opened
            server.bind(str(self.folder / "socket"))
        (self.folder / "c").mkdir()
        for line, message in UNUSABLE.items():
            self.check_refusal(line, 1, f": {re.escape(message)}\n")
        step = 4 if RESERVES_MEMORY else 1  # where the command takes long to start
        for line, culprit in list(WRONG.items())[::step]:
            self.check_refusal(line, 2, re.escape(culprit))
        for line in (f"{SAVE} p.png --index", f"{SAVE} p.png --cache", "watch --index i --cache",
                     "sheet i --output"):
            self.assertEqual(self.run_command(line, "").returncode, 2, line)

    def test_only_an_unknown_verb_is_answered_with_the_known_ones(self):
        for line, is_told in {"": True, "frob": True, "list": False, "save p.png": False}.items():
            with self.subTest(line):
                error = self.run_command(line).stderr
                self.assertEqual("the first argument is save, watch" in error, is_told, error)

    def test_picture_may_have_the_name_of_an_option_behind_dashes(self):
        self.write({"--x=": png(6, 4)})
        self.assertEqual(self.run_command(f"{SAVE} -- --x=").returncode, 0)

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

    def test_list(self):
        self.write({"i": b'<Type=1,Sid="A\\B",Path="/c/A\\B",Devicetype=1>\r\n' + b"".join(
            b'<Type=0,Path="/c/%s",URL="/c/%s/%s",Size=%d,Devicetype=%d>\r\n' % (id, id, *rest)
            for id, *rest in ((b"D1", b"\\\x1b[31m\t\x1f\x7f\xff\xc3\xa4.jpg", 100, 0),
                              (b"A\\B", b"a.jpg", 104857600, 1), (b"D1", b"b.jpg", 23, 0)))})
        text = self.run_command("list i --bytes").stdout
        self.assertRegex(text, r"\nTHUMBNAIL {8}BYTES\n/c/A\\B/a.jpg 104857600\n")
        self.assertEqual(
            re.sub(" +", " ", text),
            "camera A\\B in /c/A\\B\nTHUMBNAIL BYTES\n/c/A\\B/a.jpg 104857600\n"
            "1 thumbnail, 104857600 bytes, 100.00 % of 104857600\n\n"
            "usb D1 in /c/D1\nTHUMBNAIL BYTES\n/c/D1/\\?[31m???\\xffä.jpg 100\n/c/D1/b.jpg 23\n"
            "2 thumbnails, 123 bytes, 0.00 % of 104857600\n\n"
            "3 thumbnails, 104857723 bytes, 100.00 % of 104857600\n")
        self.assertEqual(json.loads(self.run_command("list i --json").stdout), {
            "devices": [{"id": "A\\B", "kind": "camera", "path": "/c/A\\B", "bytes": 104857600,
                         "thumbnails": [{"file": "/c/A\\B/a.jpg", "bytes": 104857600}]},
                        {"id": "D1", "kind": "usb", "path": "/c/D1", "bytes": 123, "thumbnails": [
                            {"file": "/c/D1/\\\x1b[31m\t\x1f\x7f\ufffdä.jpg", "bytes": 100},
                            {"file": "/c/D1/b.jpg", "bytes": 23}]}],
            "thumbnails": 3, "bytes": 104857723, "ceiling": 104857600})

        run = self.run_command("list i", env={**self.settings["env"], "LC_ALL": "C"})
        self.assertIn(r"\xc3\xa4.jpg", run.stdout)

    def test_long_names_are_wrapped_on_a_terminal(self):
        path = "/c/D1/" + "".join(f"{i:03}" for i in range(60))
        self.write({"i": b'<Type=0,Path="/c/D1",URL="%s",Size=9,Devicetype=0>\r\n' % path.encode()})
        terminal, other_end = pty.openpty()
        self.addCleanup(os.close, terminal)
        termios.tcsetwinsize(other_end, (24, 60))
        self.run_command("list i", stdout=other_end)
        os.close(other_end)
        shown = read_terminal(terminal)
        self.assertIn(path, re.sub(r"\s|9 B", "", shown))
        self.assertLessEqual(max(map(len, shown.split("\r\n"))), 60)

    def test_devices(self):
        self.attach(r"A\040B", r"E\033[31m")
        self.assertEqual(re.sub(" +", " ", self.run_command("devices").stdout),
                         "KIND ID MOUNT PATH SERIAL\n"
                         f"usb A B {USB}A B -\nusb E?[31m {USB}E?[31m -\n")
        (self.folder / "table/now").unlink()
        self.settings["env"]["ZEL_LOG_LEVEL"] = "error"
        self.check_refusal("devices", 1, ": the media-content database cannot be reached\n")

    @unittest.skipIf(RESERVES_MEMORY, "the library of the mock devices has to be loaded first")
    def test_cameras_are_devices(self):
        self.write({"camera": b"P: /devices/usb1/1-9\nE: SUBSYSTEM=usb\n"
                              b"E: DEVTYPE=usb_device\nE: ID_GPHOTO2=1\n"})
        run = self.run_command("devices", before=["umockdev-run", "--device", MOCK_DEVICES,
                                                  "--device", "camera", "--"])
        self.assertRegex(run.stdout, rf"\nusb +D1 +{USB}D1 .*\ncamera +C1 +- +C1\n"
                         r"camera +C2 +- +C2\ncamera +- +- +-\n$")

    def test_cache_is_told_where_a_picture_lies(self):
        self.settings["env"]["ZEL_LOG_LEVEL"] = "info"
        places = {"--size=1": USB + "D1", "--size=2 --mount=M1": USB + "M1",
                  "--size=3 --camera": "ptp://D1/p.png"}
        for options, place in places.items():
            log = self.run_command(f"{SAVE} p.png {options}").stderr
            self.assertEqual(re.findall(r"str(?:MountPath|Url)\[(.*?)\]", log), [place])
            self.assertRegex(log, r"zel_thumbnail_flash_cache_clear\S*\n$")

    def test_cache_is_told_the_mount_path_that_the_platform_knows(self):
        sticks = self.with_sticks()
        self.write({"usb/real/p.png": png(6, 4)})
        (self.folder / "usb/D1").symlink_to("real")
        self.settings["env"]["ZEL_LOG_LEVEL"] = "info"
        log = self.run_command("save --index i --cache c", USB + "D1", before=sticks).stderr
        self.assertEqual(re.findall(r"strMountPath\[(.*?)\]", log), [USB + "D1"])

    def hold_other_locks(self):
        """This process gets locks on a folder, which come first in the kernel's table."""
        processors = os.sched_getaffinity(0)
        for processor in processors:  # each has a part of the table
            os.sched_setaffinity(0, {processor})
            lock = os.open(self.folder / "table", os.O_RDONLY)
            self.addCleanup(os.close, lock)
            fcntl.flock(lock, fcntl.LOCK_SH)
        os.sched_setaffinity(0, processors)

    def test_who_has_a_lock_of_another_kind_is_not_in_the_way(self):
        watch = self.start_watch()
        processors = os.sched_getaffinity(0)
        os.sched_setaffinity(0, {min(processors)})  # the first part of the kernel's table
        self.addCleanup(os.close, lock := os.open(self.folder, os.O_RDONLY))
        fcntl.lockf(lock, fcntl.LOCK_SH)
        os.sched_setaffinity(0, processors)
        run = self.run_command("watch --index i")
        self.assertRegex(run.stderr, rf"in use by (another process|.* \(process {watch.pid}\))\n$")

    def test_second_command_on_an_index_is_refused(self):
        (self.folder / "sub").mkdir()
        (self.folder / "sub/link").symlink_to("link2")
        (self.folder / "sub/link2").symlink_to("../link3")
        (self.folder / "link3").symlink_to(self.folder / "i")
        for number in (signal.SIGINT, signal.SIGTERM):
            watch = self.start_watch()
            self.hold_other_locks()
            locks = pathlib.Path("/proc/locks").read_text(encoding="utf-8")
            name = pathlib.Path(f"/proc/{watch.pid}/comm").read_text(encoding="utf-8").strip()
            culprit = (re.escape(f"{name} (process {watch.pid})") if f" {watch.pid} " in locks
                       else "another process")
            for line in ("watch --index sub/../i", "watch --index sub/link",
                         "save --index sub/link --cache new --device D1 p.png"):
                self.check_refusal(
                    line, 1, rf": the directory of the index sub/\S+ is in use by {culprit}\n")
            self.assertEqual(self.run_command(f"{SAVE} p.png --index sub/i").returncode, 0)
            self.assertEqual(self.run_command("list sub/i").returncode, 0)
            watch.send_signal(number)
            self.assertEqual(watch.stdout.read(), "")
            self.assertEqual(watch.wait(), 0)
        self.assertEqual(self.run_command(f"{SAVE} p.png --index sub/link").returncode, 0)


if __name__ == "__main__":
    unittest.main()
