#!/usr/bin/env python3
"""What the command says and leaves when calls to the system and to the platform fail."""
import errno
import os
import shutil
import signal
import tempfile
import unittest
from collections import Counter

from check_fixture import ALL, CheckTestCase
from command_fixture import RESERVES_MEMORY, SAVE, USB, png

FAILING_CALLS = os.environ.get("ZEL_FAILING_CALLS")
EVERY_STICK = "KIND ID MOUNT PATH SERIAL\n" + "".join(
    f"usb {name} {USB}{name} -\n" for name in ("D1", "D2"))
UNREACHABLE, UNREADABLE = (f"the media-content database cannot be {verb}"
                           for verb in ("reached", "read"))
READING = {  # by what fails: what is said
    ("access", "EACCES", "i"): "i: Permission denied",
    ("open", "EMFILE", "i"): "i: Input/output error",
    ("read", "EIO", "/i"): "i: Input/output error"}
CHECKING = {  # by what fails, and how many calls go well before: what is found
    ("openat", "EMFILE", "a.jpg"): "c/D1/a.jpg: the image cannot be read: Too many open files",
    ("read", "EIO", "/a.jpg"): "c/D1/a.jpg: the image cannot be read: Input/output error",
    ("fstatat", "EIO", "a.jpg"): "c/D1/a.jpg: the image cannot be read: Input/output error",
    ("fstatat", "EIO", "a.jpg", 1): "c/D1/a.jpg: the image cannot be read: Input/output error",
    ("open", "EACCES", "/c/D1"): "c/D1: the folder cannot be looked into: Permission denied",
    ("fstat", "EIO", "/c/D1"): "c/D1: the folder cannot be looked into: Input/output error"}
LISTING = {  # by what fails: what is said
    ("openat", "EMFILE", "."): "a device's folder: Too many open files",
    ("fdopendir", "ENOMEM", "/c/D1"): "a device's folder: Cannot allocate memory",
    ("readdir", "EIO", "/c/D1"): "a device's folder: Input/output error"}
SAVING = {  # by command line and what fails: what is said
    ("p.png", "realpath", "EACCES", "/p.png"): "p.png: Permission denied",
    ("p.png", "stat", "EIO", "p.png"): "p.png: Input/output error",
    ("f", "lstat", "EIO", "f/p.png"): "f/p.png: Input/output error",
    ("f", "readdir", "EIO", "/f"): "f: Input/output error",
    ("p.png", "gdk_pixbuf_apply_embedded_orientation", "EIO", ""): "p.png: memory is short",
    ("large.png", "gdk_pixbuf_scale_simple", "EIO", ""): "large.png: memory is short"}
DEVICES = {  # by what fails, and how many calls go well before: the output, and what is said
    ("media_content_connect", 0): ("", UNREACHABLE),
    ("media_filter_create", 0): ("", UNREADABLE),
    ("media_storage_foreach_storage_from_db", 0): ("", UNREADABLE),
    ("zel_get_usb_list", 1): (EVERY_STICK, ""),
    ("zel_storage_get_storage", 1): (EVERY_STICK[:EVERY_STICK.index("usb D2")], ""),
    ("zel_storage_get_serialnumber", 0): (EVERY_STICK, ""),
    ("zel_storage_get_mountpath", 1): (EVERY_STICK.replace(f"D2 {USB}D2", "- -"), "")}
PAIRS = {"media_content_connect": "media_content_disconnect",
         "media_filter_create": "media_filter_destroy",
         "zel_get_usb_list": "zel_storage_list_destory",
         "zel_storage_register_event_cb": "zel_storage_unregister_event_cb"}


@unittest.skipIf(RESERVES_MEMORY or not FAILING_CALLS, "a sanitizer has to be loaded first")
class FailuresTest(CheckTestCase):
    def setUp(self):
        super().setUp()
        self.calls = tempfile.NamedTemporaryFile("r", encoding="utf-8")
        self.addCleanup(self.calls.close)

    def failing(self, call="", error="EIO", path="", skipped=0):
        """An environment in which the calls of a function fail, on paths that end so, when so many
        have gone well."""
        return {**self.settings["env"], "LD_PRELOAD": FAILING_CALLS, "ZEL_CALLS": self.calls.name,
                "ZEL_LOG_LEVEL": "error",
                "ZEL_FAILING": f"{call} {getattr(errno, error)} {skipped} {path}"}

    def check_run(self, failure, line, output, message, status):
        run = self.run_command(line, env=self.failing(*failure))
        self.assertEqual(
            [run.stdout.replace(f"{self.folder}/", ""), run.stderr.replace(f"{self.folder}/", ""),
             run.returncode],
            [output, f"zel-thumbnail-cache: {message}\n" if message else "", status])

    def check_calls(self):
        """Sees that what was begun was ended, also when something failed."""
        self.calls.seek(0)
        calls = Counter(self.calls.read().split())
        for begin, end in PAIRS.items():
            self.assertEqual(calls[begin], calls[end], begin)
        return calls

    def test_index_that_cannot_be_read(self):
        self.make_cache()
        for failure, message in READING.items():
            for verb, status in ("list", 1), ("stats", 1), ("sheet", 1), ("check", 8):
                with self.subTest(verb=verb, failure=failure):
                    self.check_run(failure, f"{verb} i", "", message, status)

    def test_what_cannot_be_looked_at_is_told_and_kept(self):
        self.make_cache()
        before = self.files()
        for failure, finding in CHECKING.items():
            with self.subTest(failure):
                self.check_run(failure, "check i", f"{finding}\ni: 1 finding; --repair mends what can "
                               "be mended\n", "", 4)
                self.check_run(failure, "check i --repair",
                               f"{finding}\ni: not mended:\n{finding}\n", "", 4)
                self.assertEqual(self.files(), before)

    def test_folder_that_cannot_be_listed_ends_the_check(self):
        self.make_cache()
        for failure, message in LISTING.items():
            for options in "", " --repair":
                with self.subTest(failure):
                    self.check_run(failure, f"check i{options}", "", message, 8)

    def test_index_that_cannot_be_locked(self):
        self.make_cache()
        for call, error, path, reason in (
                ("flock", "ENOLCK", "", " cannot be locked: No locks available"),
                ("open", "EACCES", self.folder.name, ": Permission denied")):
            failure = call, error, path
            before = self.files()
            for line, status in ("check i --repair", 8), (f"{SAVE} p.png", 1), ("watch --index i", 1):
                with self.subTest(line, call=call):
                    self.check_run(failure, line, "", f"the directory of the index i{reason}", status)
            self.check_run(failure, "check i", self.sound(), "", 0)
            self.assertEqual(self.files(), before)

    def test_index_that_cannot_be_replaced_stays(self):
        for failure in (("fdatasync", "EIO", "/i.new"), ("rename", "EIO", "/i"),
                        ("open", "EIO", "/i.new"), ("fsync", "EIO", self.folder.name)):
            with self.subTest(failure):
                self.make_cache()
                self.cache.append(b"<Type=7,>\r\n")
                self.cache.put("x.jpg", b"")
                before = self.files()
                offset = len(self.cache.index.read_bytes()) - 11
                self.check_run(
                    failure, "check i --repair", f"i: at byte {offset}, 9 bytes: a record that does "
                    "not load: type 7 is unknown\nc/D1/x.jpg: an image that no record names\n",
                    "the index i cannot be rewritten (ZEL_LOG_LEVEL=info shows why)", 8)
                if failure[0] == "fsync":  # which comes when the new one is in its place
                    before[self.cache.index] = self.cache.index.read_bytes()
                self.assertEqual(self.files(), before)

    def test_repair_that_fails_anywhere_loses_nothing(self):
        for call in "open", "openat", "read", "fstatat", "unlinkat":
            for skipped in range(0, 15, 3):
                with self.subTest(call, skipped=skipped):
                    self.make_cache()
                    self.cache.append(b"text")
                    self.cache.put("x.jpg", b"")
                    path = "/i" if call == "open" else ".jpg"
                    run = self.run_command("check i --repair",
                                           env=self.failing(call, "EIO", path, skipped))
                    self.assertIn(run.returncode, (1, 4, 8))
                    self.assertEqual(self.cache.recorded(), ALL)
                    self.assertLessEqual(set(ALL), set(self.cache.there()))
                    self.assertIn(self.run_command("check i --repair").returncode,
                                  (0,) if run.returncode == 1 else (0, 1))
                    self.assertEqual(self.check(0), self.sound())

    def test_image_that_cannot_be_removed_stays_and_is_told(self):
        self.make_cache()
        self.cache.put("x.jpg", b"")
        found = "c/D1/x.jpg: an image that no record names\n"
        closed = "c/D1: the folder cannot be looked into: Permission denied\n"
        for failure, left, reason in (
                (("unlinkat", "EIO", "x.jpg"), found, "Input/output error"),
                (("open", "EACCES", "/c/D1", 1), closed, "Permission denied")):
            with self.subTest(failure):
                self.check_run(failure, "check i --repair", f"{found}i: not mended:\n{left}",
                               f"c/D1/x.jpg: it cannot be removed: {reason}", 4)
                self.assertEqual(self.cache.there(), [*ALL, "x.jpg"])

    def test_image_that_cannot_be_shown_says_why(self):
        self.make_cache()
        for failure, troubles in ((("openat", "EMFILE", "a.jpg"), ["Too many open files"]),
                                  (("read", "EIO", "/a.jpg"), ["Input/output error"]),
                                  (("open", "EACCES", "/c/D1"), ["Permission denied"] * 3)):
            with self.subTest(failure):
                page = self.run_command("sheet i", env=self.failing(*failure)).stdout
                self.assertEqual(page.count('<figure class="absent"'), len(troubles))
                self.assertEqual(page.count(f'<div class="frame">{troubles[0]}</div>'), len(troubles))

    def test_page_that_cannot_be_replaced_stays(self):
        self.make_cache()
        self.write({"page.html": b"old"})
        for failure, reason in ((("open", "EIO", "page.html"), "Input/output error"),
                                (("open", "EMFILE", "page.html.new"), "Too many open files"),
                                (("fdatasync", "ENOSPC", "page.html.new"), "No space left on device"),
                                (("rename", "EIO", "page.html"), "Input/output error")):
            with self.subTest(failure):
                before = self.files()
                self.check_run(failure, "sheet i --output page.html", "", f"page.html: {reason}", 1)
                self.assertEqual(self.files(), before)

    def test_picture_that_cannot_be_saved_is_told(self):
        self.write({"f/p.png": png(6, 4)})
        for (picture, *failure), message in SAVING.items():
            with self.subTest(failure):
                run = self.run_command(f"{SAVE} {picture}", env=self.failing(*failure))
                self.assertEqual(run.stderr, f"zel-thumbnail-cache: {message}\n")
                self.assertRegex(run.stdout, r"^0 saved, 0 kept, 1 failed, 0 evicted in .*\n"
                                 r"0 thumbnails, 0 bytes, 0\.00 % of 104857600\n$")
                self.assertEqual(run.returncode, 1)
                self.check_calls()

    def test_signal_stops_what_is_still_to_be_saved(self):
        self.write({"f/p.png": png(6, 4), "f/q.png": png(6, 5)})
        for pictures, message, status in (
                ("f/p.png", "", 0),
                ("f/p.png f/q.png", "zel-thumbnail-cache: stopped: 1 of 2 pictures are done\n", 143)):
            with self.subTest(pictures):
                shutil.rmtree(self.folder / "c", ignore_errors=True)
                run = self.run_command(f"{SAVE} {pictures}", env=self.failing("open", "EINTR", ".jpg"))
                self.assertRegex(run.stdout, r"(?m)^1 saved, 0 kept, 0 failed")
                self.assertEqual(run.stderr, message)
                self.assertEqual(run.returncode, status)

    def test_signal_that_comes_while_the_watch_begins_ends_it_in_order(self):
        self.check_run(("flock", "EINTR"), "watch --index i", "ready\n", "", 0)

    def test_cache_that_cannot_be_started(self):
        for verb in f"{SAVE} p.png", "watch --index i":
            for call, skipped, message in (("zel_thumbnail_flash_cache_init", 0,
                                            "the cache cannot be started"),
                                           ("pthread_create", 0, "the cache cannot be started"),
                                           ("pthread_create", 1, "")):
                with self.subTest(verb, call=call, skipped=skipped):
                    if not message:
                        message = ("the storages cannot be watched" if verb.startswith("watch") else
                                   "Resource temporarily unavailable")
                    self.check_run((call, "EAGAIN", "", skipped), verb, "", message, 1)

    def test_cache_that_cannot_be_started_is_stopped(self):
        run = self.run_command(f"{SAVE} p.png", env={
            **self.failing("pthread_create", "EAGAIN"), "ZEL_LOG_LEVEL": "info"})
        self.assertRegex(run.stderr, r"zel_thumbnail_flash_cache_clear\S*\n.*cannot be started\n$")

    def test_folder_of_the_cache_that_cannot_be_made(self):
        for line in f"{SAVE} p.png", "watch --index i --cache c":
            self.check_run(("mkdir", "EACCES", "c"), line, "", "the folder c: Permission denied", 1)

    def test_storages_that_cannot_be_listed(self):
        self.attach("D1", "D2")
        for (call, skipped), (output, message) in DEVICES.items():
            with self.subTest(call):
                run = self.run_command("devices", env=self.failing(call, "EIO", "", skipped))
                self.assertEqual([" ".join(line.split()) for line in run.stdout.splitlines()],
                                 output.splitlines())
                self.assertEqual(run.stderr, f"zel-thumbnail-cache: {message}\n" if message else "")
                self.assertEqual(run.returncode, 1 if message else 0)
                if call not in PAIRS:
                    self.check_calls()
                os.truncate(self.calls.name, 0)
        connecting_again = "media_content_connect", "EIO", "", 1  # behind that of the cache
        self.check_run(connecting_again, "save --index i --cache c p.png", "", UNREACHABLE, 1)

    def test_storage_whose_id_cannot_be_read_gets_no_thumbnails(self):
        sticks = self.with_sticks()
        self.write({"usb/D1/p.png": png(6, 4)})
        run = self.run_command("save --index i --cache c", USB + "D1/p.png", before=sticks,
                               env=self.failing("media_storage_get_storage_id"))
        self.assertIn("D1/p.png: on no storage that the platform knows", run.stderr)
        self.assertEqual(os.listdir(self.folder / "c"), [])

    def test_storages_that_cannot_be_watched(self):
        for call in "zel_storage_register_event_cb", "inotify_init1":
            self.check_run((call, "EMFILE"), "watch --index i", "", "the storages cannot be watched", 1)

    def test_what_is_begun_is_ended(self):
        self.settings["env"] = self.failing()
        self.run_command("devices")
        self.assertEqual(self.check_calls(), {
            "media_content_connect": 1, "media_content_disconnect": 1, "media_filter_create": 1,
            "media_filter_destroy": 1, "zel_get_usb_list": 2, "zel_storage_list_destory": 2})
        self.run_command("save --index i --cache c p.png")
        self.check_calls()
        os.truncate(self.calls.name, 0)
        watch = self.start_watch()
        watch.send_signal(signal.SIGTERM)
        self.assertEqual(watch.wait(), 0)
        self.assertEqual(self.check_calls()["zel_storage_register_event_cb"], 1)


if __name__ == "__main__":
    unittest.main()
