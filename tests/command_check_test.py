#!/usr/bin/env python3
"""What `check` finds in a cache, and what --repair makes of it."""
import fcntl
import os
import random
import re
import resource
import shutil
import subprocess
import unittest

from command_fixture import COMMAND, PATIENCE, WITHOUT_PRIVILEGES, CommandTestCase, jpeg, png

MIB = 1 << 20


class Cache:
    """The folder of a cache with the thumbnails a.jpg, b.jpg and c.jpg of the device D1."""
    def __init__(self, folder):
        self.index = folder / "i"
        self.images = folder / "c/D1"
        self.outside = folder / "outside.jpg"

    def put(self, name, data):
        (self.images / name).write_bytes(data)

    def cut(self, name, end):
        self.put(name, (self.images / name).read_bytes()[:end])

    def pad(self, name, size):
        os.truncate(self.images / name, size)
        self.edit(rb'(/%s",Size=)\d+' % name.encode(), rb"\g<1>%d" % size)

    def replace(self, name, make):
        (self.images / name).unlink()
        make(self.images / name)

    def edit(self, pattern, text):
        data, count = re.subn(pattern, text, self.index.read_bytes())
        assert count == 1, f"{count} matches of {pattern}"
        self.index.write_bytes(data)

    def append(self, text):
        self.index.write_bytes(self.index.read_bytes() + text)

    def record(self, name):
        return re.search(rb"<Type=0[^>]*/%s\"[^>]*>\r\n" % name.encode(),
                         self.index.read_bytes())[0]

    def recorded(self):
        return sorted(re.findall(r'URL="[^"]*/(.*?)"', self.index.read_text(errors="replace")))

    def there(self):
        return sorted(os.listdir(self.images)) if self.images.is_dir() else []


ALL, NO_A, NO_B, NO_C = (["a.jpg", "b.jpg", "c.jpg"], ["b.jpg", "c.jpg"], ["a.jpg", "c.jpg"],
                         ["a.jpg", "b.jpg"])
FOLDER = rb"<Type=1[^>]*>\r\n"
SMALL = jpeg(6, 4)
DAMAGES = {  # by name: the damage, what is found, and the thumbnails that are left
    "missing image": (lambda c: (c.images / "a.jpg").unlink(), "/a.jpg: .*missing", NO_A),
    "empty image": (lambda c: c.put("a.jpg", b""), "/a.jpg: .*empty", NO_A),
    "image without its end": (lambda c: c.cut("a.jpg", -2), "/a.jpg: .*cut short", NO_A),
    "image without its picture": (lambda c: c.cut("a.jpg", 30), "/a.jpg: .*cut short", NO_A),
    "image without a scan": (lambda c: c.put("a.jpg", SMALL[:SMALL.index(b"\xff\xda")] + b"\xff\xd9"),
                             "/a.jpg: .*cut short", NO_A),
    "image without height": (lambda c: c.put("a.jpg", SMALL.replace(b"\x08\0\4", b"\x08\0\0")),
                             "/a.jpg: .*cut short", NO_A),
    "image without two bytes": (lambda c: c.cut("a.jpg", 3), "/a.jpg: .*cut short", NO_A),
    "wrong size": (lambda c: c.edit(rb'(/a.jpg",Size=)\d+', rb"\g<1>7"),
                   r"/a.jpg: the image has \d+ bytes, its record says 7$", ALL),
    "unnamed image": (lambda c: c.put("x.jpeg", jpeg(6, 4, 1)),
                      "/x.jpeg: an image that no record names", ALL),
    "empty unnamed image": (lambda c: c.put("x.jpg", b""), "/x.jpg: an image that no", ALL),
    "part of an unnamed image": (lambda c: c.put("x.jpg", jpeg(6, 4, 1)[:20]), "/x.jpg: an", ALL),
    "two records": (lambda c: c.append(c.record("a.jpg")), "/a.jpg: a newer record", NO_A + ALL[:1]),
    "text at the beginning": (lambda c: c.edit(b"^", b"text\r\n"),
                              "i: at byte 0, 4 bytes: text that belongs to no record", ALL),
    "line feeds": (lambda c: c.edit(b"^", b"\n>\r\n\r\n"), "i: at byte 1, 1 byte: text that", ALL),
    "lost end of the index": (lambda c: c.cut("../../i", -9), r"i: at byte \d+, \d+ bytes: text",
                              NO_C),
    "zeros at the end": (lambda c: c.append(bytes(99)), "i: at byte .*, 99 bytes: text that", ALL),
    "text behind a mebibyte": (
        lambda c: [c.edit(b"^", b"\r\n" * 500000), c.edit(rb"(?=<[^>]*b.jpg)", b"\r\n" * 300000),
                   c.edit(rb"\r\n\Z", b"text")], r"i: at byte \d+, 4 bytes: text that", ALL),
    "zeros in the middle": (lambda c: c.edit(rb"(<[^>]*b.jpg)", rb"\0\g<1>"),
                            r"i: at byte \d+, \d+ bytes: text that", ["a.jpg"]),
    "record that joins two": (lambda c: c.edit(rb">\r\n(?=[^>]*b.jpg)", b""),
                              "i: at byte .*: a record that the library would write otherwise",
                              NO_B),
    "record that is too long": (lambda c: c.edit(rb"=0(?=>\r\n<[^>]*b.jpg)", b"=0" + b" " * 1023),
                                "i: at byte .*: a record that the library would", ALL),
    "record of names that are too long": (
        lambda c: c.append(b'<Type=0,Path="/%b",URL="/%b",Size=7,Devicetype=0>\r\n' % (
            b"p" * 500, b"u" * 510)), "i: at byte .*: a record that the library would", ALL),
    "record of another type": (lambda c: c.append(b"<Type=7,>\r\n"),
                               "i: at byte .*, 9 bytes: .*does not load: type 7 is unknown", ALL),
    "folder record that does not load": (lambda c: c.append(b'<Type=1,Sid="D1">\r\n'),
                                         "i: at byte .*does not load: parse", ALL),
    "record without a size": (lambda c: c.edit(rb'(a.jpg",)Size=', rb"\g<1>"),
                              "i: at byte .*does not load: parse Size failed$", NO_A),
    "sizes beyond counting": (lambda c: c.edit(rb'(a.jpg",Size=)\d+', rb"\g<1>2147483647"),
                              "i: at byte .*does not load: its size, 2147483647, is more", NO_A),
    "total above the ceiling": (lambda c: [c.pad(name, 40 * MIB) for name in ALL],
                                "together: 125829120 bytes, more than the ceiling of 104857600",
                                NO_A),
    "unfinished index": (lambda c: (c.images / "../../i.new").write_bytes(b"<"),
                         "i.new: a new index that was not finished", ALL),
    "folder without a record": (lambda c: c.edit(FOLDER, b""), "/D1: the folder has thumb", ALL),
    "two records of a folder": (lambda c: c.append(re.findall(FOLDER, c.index.read_bytes())[0]),
                                "/D1: a second record of the folder", ALL),
    "folder with another id": (lambda c: c.edit(b'Sid="D1"', b'Sid="D2"'),
                               "/D1: a folder record of the id D2,", ALL),
    "missing folder": (lambda c: shutil.rmtree(c.images), "/D1: .*folder that is missing", []),
    "image of another folder": (lambda c: c.edit(rb'URL="[^"]*/a.jpg', b'URL="%b' % bytes(c.outside)),
                                "outside.jpg: .*not in its folder", NO_A),
    "image by a roundabout path": (lambda c: c.edit(b"D1/a.jpg", b"D1/../D1/a.jpg"),
                                   r"D1/\.\./D1/a.jpg: .*not in its folder", NO_A)}
STAYING = {  # what takes the place of a.jpg and is no image of the cache
    "text": (lambda file: file.write_text("text"), "not a JPEG"),
    "folder": (lambda file: file.mkdir(), "not a regular file"),
    "pipe": (os.mkfifo, "not a regular file"),
    "link": (lambda file: file.symlink_to(file.parent / "../../outside.jpg"), "not a regular file")}


class CheckTest(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.write({"outside.jpg": jpeg(6, 4, 1)})
        self.write({f"{name}.png": png(size, 7) for name, size in (("a", 9), ("b", 30), ("c", 99))})
        self.cache = Cache(self.folder)

    def make_cache(self):
        shutil.rmtree(self.folder / "c", ignore_errors=True)
        self.cache.index.unlink(missing_ok=True)
        self.make_thumbnails("a.png", "b.png", "c.png")

    def check(self, status, *options):
        run = self.run_command("check i", *options)
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.returncode, status, run.stdout)
        return run.stdout

    def check_findings(self, patterns):
        before = self.files()
        found = self.check(4)
        self.assertEqual(self.files(), before)
        for pattern in patterns:
            self.assertRegex(found, f"(?m){pattern}")
        return found

    def check_repair(self, thumbnails):
        self.assertRegex(self.check(1, "--repair"), r"\ni: \d+ findings?, all mended\n")
        self.assertEqual(self.cache.recorded(), sorted(set(thumbnails)))
        before = self.files()
        self.assertRegex(self.check(0), r"(?m)^i: sound, %d thumbnail" % len(set(thumbnails)))
        self.assertRegex(self.check(0, "--repair"), "(?m)^i: sound")
        self.assertEqual(self.files(), before)

    def test_what_saves_leave_is_sound(self):
        self.make_cache()
        self.assertRegex(self.check(0), r"^i: sound, 3 thumbnails, \d[\d.]* (B|KiB)\n$")
        self.cache.pad("a.jpg", 5000)  # a preset block, or a part of one, follows the image
        self.check(0)
        for name, size in zip(ALL, (40, 40, 20)):
            self.cache.pad(name, size * MIB)
        self.assertRegex(self.check(0), "^i: sound, 3 thumbnails, 100 MiB\n$")
        self.cache.index.write_bytes(b"")
        self.assertRegex(self.check(0), "^i: sound, 0 thumbnails, 0 B\n$")

    def test_images_of_every_build_are_sound(self):
        small = jpeg(64, 64)
        builds = {
            "bytes that fill": small[:2] + b"\xff" + small[2:],
            "restart markers": subprocess.run(["jpegtran", "-restart", "1"], input=small,
                                              capture_output=True, check=True).stdout,
            "large": jpeg(700, 700, data=random.Random(1).randbytes(700 * 700 * 3))}
        self.make_cache()
        for name, image in builds.items():
            with self.subTest(name):
                self.cache.put("a.jpg", image)
                self.cache.pad("a.jpg", len(image))
                self.check(0)

    def test_each_damage_is_found_and_mended(self):
        for name, (damage, pattern, thumbnails) in DAMAGES.items():
            with self.subTest(name):
                self.make_cache()
                damage(self.cache)
                found = self.check_findings([pattern])
                self.assertNotIn("sound", found)
                self.check_repair(thumbnails)
                self.assertEqual(self.cache.there(), sorted(set(thumbnails)))
                self.assertTrue(self.cache.outside.exists())

    def test_damages_together(self):
        self.make_cache()
        names = "missing image", "unnamed image", "text at the beginning", "unfinished index", \
            "folder without a record", "record of another type"
        for name in names:
            DAMAGES[name][0](self.cache)
        self.cache.edit(rb'(/b.jpg",Size=)\d+', rb"\g<1>7")
        found = self.check_findings([DAMAGES[name][1] for name in names] + ["/b.jpg: the image has"])
        self.assertEqual(len(found.splitlines()), len(names) + 2)
        self.check_repair(NO_A)
        self.assertEqual(self.cache.there(), NO_A)

    def test_repaired_index_is_as_the_library_writes_it(self):
        self.make_cache()
        before = self.cache.index.read_bytes()
        self.cache.append(b"text")
        self.check(1, "--repair")
        after = self.cache.index.read_bytes()
        self.assertEqual(sorted(after.splitlines(True)), sorted(before.splitlines(True)))
        self.assertTrue(after.startswith(b"<Type=1"))

    def test_what_is_no_image_of_the_cache_stays_and_is_named(self):
        for name, (make, pattern) in STAYING.items():
            with self.subTest(name):
                self.make_cache()
                self.cache.replace("a.jpg", make)
                for other in ".jpg", "notes":
                    self.cache.put(other, b"")
                self.check_findings([f"/a.jpg: .*{pattern}", r"/\.jpg: no image of the cache",
                                     "/notes: no image of the cache"])
                self.check_repair(NO_A)
                self.assertEqual(self.cache.there(), [".jpg", *ALL, "notes"])
                for options in (), ("--repair",):
                    self.assertRegex(self.check(0, *options), "/a.jpg: no image of the cache\n")
                self.assertTrue(self.cache.outside.exists())

    def test_what_cannot_be_mended_stays_and_is_told(self):
        self.make_cache()
        (self.folder / "c/D1").rename(self.folder / "c/D9")
        (self.folder / "c/D1").symlink_to("D9")
        found = self.check(4)
        self.assertEqual(found.count("/D1: the folder cannot be looked into"), 1)
        before = self.files()
        self.assertRegex(self.check(4, "--repair"), "i: not mended:\n.*/D1: the folder cannot")
        self.assertEqual(self.files(), before)
        self.cache.append(b"text")
        self.assertRegex(self.check(4, "--repair"), "(?m)^rewrote i ")
        self.assertEqual(self.cache.recorded(), ALL)

    def test_index_that_cannot_be_written_stays(self):
        self.make_cache()
        self.cache.append(b"text")
        self.cache.put("x.jpg", b"")
        before = self.files()
        run = self.run_command(
            "check i --repair", restore_signals=False,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (9, 9)))
        self.assertEqual(run.returncode, 8)
        self.assertIn("i cannot be rewritten", run.stderr)
        self.assertEqual(self.files(), before)

    def test_image_that_cannot_be_read_keeps_its_record(self):
        self.make_cache()
        (self.cache.images / "a.jpg").chmod(0)
        for options in "", "--repair":
            run = self.run_command(f"check i {options}", before=WITHOUT_PRIVILEGES)
            self.assertEqual(run.returncode, 4)
            self.assertIn("/a.jpg: the image cannot be read: Permission denied\n", run.stdout)
        self.assertEqual(self.cache.recorded(), ALL)

    def test_image_that_cannot_be_removed_stays_and_is_told(self):
        self.make_cache()
        self.cache.put("x.jpg", b"")
        run = self.run_command("check i --repair", before=self.with_mounts(
            "mount --bind c/D1 c/D1 && mount -o remount,bind,ro c/D1"))
        self.assertEqual(run.returncode, 4)
        self.assertRegex(run.stderr, "/x.jpg: it cannot be removed: Read-only file system\n$")
        self.assertRegex(run.stdout, "i: not mended:\n.*/x.jpg: an image that no record names\n$")

    def test_folder_of_a_camera_gets_the_record_of_one(self):
        self.make_cache()
        self.cache.edit(FOLDER, b"")
        index = self.cache.index.read_bytes()
        self.cache.index.write_bytes(index.replace(b"Devicetype=0", b"Devicetype=1"))
        self.check(1, "--repair")
        self.assertRegex(self.cache.index.read_bytes(), b"<Type=1[^>]*Devicetype=1>")

    def test_faults_come_in_the_order_of_the_index(self):
        self.make_cache()
        for name in "sizes beyond counting", "text at the beginning":
            DAMAGES[name][0](self.cache)
        self.assertRegex(self.check(4), "(?s)belongs to no record.*more than the cache can count")

    def test_unfinished_index_is_found_through_a_link_and_as_one(self):
        self.make_cache()
        (self.folder / "i.new").symlink_to("gone")
        (self.folder / "sub").mkdir()
        (self.folder / "sub/i").symlink_to("../i")
        run = self.run_command("check sub/i")
        self.assertEqual(run.returncode, 4)
        self.assertIn(f"{self.folder}/i.new: ", run.stdout)

    def test_folder_of_a_relative_path_is_looked_for_in_the_working_directory(self):
        self.make_cache()
        self.cache.index.write_bytes(
            self.cache.index.read_bytes().replace(bytes(self.folder) + b"/", b""))
        self.check(0)
        before = self.files()
        (self.folder / "sub").mkdir()
        run = self.run_command("check ../i --repair", cwd=self.folder / "sub")
        self.assertEqual(run.returncode, 4)
        self.assertRegex(run.stdout, "c/D1: the folder cannot.*working directory")
        before[self.folder / "sub"] = False
        self.assertEqual(self.files(), before)

    def test_folder_of_two_names_loses_nothing(self):
        self.make_cache()
        self.cache.append(b'<Type=1,Sid="D1",Path="%s/c/./D1",Devicetype=0>\r\n' % bytes(self.folder))
        self.check(0)
        self.assertEqual(self.cache.there(), ALL)
        for name in "zxvyw":
            self.cache.put(f"{name}.jpg", b"")
        self.assertEqual(re.findall(r"/(\w)\.jpg: an image", self.check(4)), list("vwxyz"))

    def test_one_command_at_a_time_mends(self):
        self.make_cache()
        watch = self.start_watch()
        self.check_refusal("check i --repair", 8, "in use by")
        run = self.run_command("check i")
        self.assertEqual(run.returncode, 0)
        self.assertRegex(run.stderr, "i: in use by .* of a moment")
        watch.terminate()
        self.assertEqual(watch.wait(), 0)
        self.addCleanup(os.close, folder := os.open(self.folder, os.O_RDONLY))
        fcntl.flock(folder, fcntl.LOCK_SH)  # as another check does
        self.check(0)

    def test_what_cannot_be_checked(self):
        self.make_cache()
        self.check_refusal("check gone", 8, "gone")
        self.check_refusal("check table", 8, "table")
        os.mkfifo(self.folder / "pipe")
        self.check_refusal("check pipe", 8, "pipe is not a regular file")
        self.check_refusal("check /proc/self/mem", 8, "/proc/self/mem: Input/output error")
        self.check_refusal("check i --repair=x", 2, "--repair")
        with open("/dev/full", "w", encoding="utf-8") as full:
            self.assertEqual(self.run_command("check i", stdout=full).returncode, 8)

    def test_killed_repair_can_be_taken_up_again(self):
        for delay in range(0, 24, 4):
            self.make_cache()
            self.cache.append(b"text")
            self.cache.put("x.jpg", b"")
            self.cache.cut("b.jpg", -9)
            repair = subprocess.Popen([*COMMAND, "check", "i", "--repair"], **self.settings,
                                      stdout=subprocess.DEVNULL)
            with self.subTest(delay), repair:
                try:
                    repair.wait(delay / 1000)
                except subprocess.TimeoutExpired:
                    repair.kill()
            self.assertIn(self.run_command("check i --repair").returncode, (0, 1))
            self.assertEqual(self.cache.recorded(), NO_B)
            self.assertEqual(self.cache.there(), NO_B)

    def test_names_do_no_harm_to_a_terminal(self):
        self.make_cache()
        self.cache.put("\x1b[31m\n.jpg", b"")
        for options, status in (("", 4), ("--repair", 1)):
            self.assertRegex(self.check(status, *options.split()), r"/\?\[31m\?\.jpg: an image")

    def test_nothing_outside_of_the_folders_goes_whatever_the_index_says(self):
        namespace = ["unshare", "--map-root-user", "--mount"]
        if subprocess.run([*namespace, "mount", "-t", "tmpfs", "none", "/opt"], check=False,
                          capture_output=True).returncode != 0:
            self.skipTest("not checked, since nothing may be mounted here")
        folders = "/", "/opt", "/opt/..", "/opt/c/..", "/opt/c/link", "/opt/c/.", "/opt/c/link/"
        index = "".join(f'<Type=1,Sid="{path.split("/")[-1] or "x"}",Path="{path}",Devicetype=0>\r\n'
                        for path in folders if path != "/opt")
        index += "".join(
            f'<Type=0,Path="{path}",URL="{path}/{name}",Size=1,Devicetype=0>\r\n'
            for path in folders for name in ("own.jpg", "../own.jpg", "..", "link.jpg", "c/own.jpg"))
        # All but the new file system is only read.
        self.write({"hostile": index.encode(), "script": b"""
            mount -t tmpfs none /opt || exit
            mkdir -p /opt/c/D1 /opt/out/deep /opt/index
            for folder in /opt /opt/c /opt/out /opt/out/deep; do cp outside.jpg $folder/own.jpg; done
            ln -s ../out /opt/c/link; ln -s ../out/own.jpg /opt/c/link.jpg
            cp hostile /opt/index/i
            awk '{ print $5 }' /proc/self/mountinfo | grep -v '^/opt$' |
                xargs -n 1 mount -o remount,bind,ro 2>/dev/null
            touch outside.jpg 2>/dev/null && exit 99
            before=$(ls -lR /opt/c /opt/out /opt/own.jpg)
            "$@" check /opt/index/i --repair; echo status $?
            [ "$before" = "$(ls -lR /opt/c /opt/out /opt/own.jpg)" ] && echo untouched"""})
        run = subprocess.run([*namespace, "sh", "script", *COMMAND], check=False,
                             capture_output=True, timeout=PATIENCE, **self.settings)
        self.assertRegex(run.stdout, r"(?m)^/opt/c/link: the folder cannot be looked into")
        self.assertRegex(run.stdout, r"(?m)^/opt: the folder has thumbnails, .*it gets none$")
        self.assertRegex(run.stdout, r"status 4\nuntouched\n$", run.stdout + run.stderr)


if __name__ == "__main__":
    unittest.main()
