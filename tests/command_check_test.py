#!/usr/bin/env python3
"""What `check` finds in a cache, and that --repair mends it."""
import os
import random
import re
import shutil
import struct
import subprocess
import unittest

from check_fixture import ALL, FOLDER, MIB, NO_A, NO_B, NO_C, CheckTestCase
from command_fixture import jpeg

SMALL = jpeg(6, 4)
SCAN = SMALL.index(b"\xff\xda")
A, B, C, X = (f"c/D1/{name}.jpg: " for name in "abcx")
MISSING, CUT_SHORT, UNNAMED = "the image is missing", "the image is cut short", \
    "an image that no record names"
OTHERWISE = "a record that the library would write otherwise"
RECORD = '<Type=0,Path="c/D1",URL="c/D1/%s.jpg",'
DAMAGES = {  # by name: the damage, what is found, and the thumbnails that are left
    "missing image": (lambda c: (c.images / "a.jpg").unlink(), [A + MISSING], NO_A),
    "empty image": (lambda c: c.put("a.jpg", b""), [A + "the image is empty"], NO_A),
    "image without its end": (lambda c: c.cut("a.jpg", -2), [A + CUT_SHORT], NO_A),
    "image without its picture": (lambda c: c.cut("a.jpg", 30), [A + CUT_SHORT], NO_A),
    "image without a scan": (lambda c: c.put("a.jpg", SMALL[:SCAN] + b"\xff\xd9"),
                             [A + CUT_SHORT], NO_A),
    "image without height": (lambda c: c.put("a.jpg", SMALL.replace(b"\x08\0\4", b"\x08\0\0")),
                             [A + CUT_SHORT], NO_A),
    "image without width": (lambda c: c.put("a.jpg", SMALL.replace(b"\0\4\0\6", b"\0\4\0\0")),
                            [A + CUT_SHORT], NO_A),
    "bytes between two segments": (
        lambda c: c.put("a.jpg", SMALL.replace(b"\xff\xdb", b"\x58\0\2\xff\xdb", 1)),
        [A + CUT_SHORT], NO_A),
    "image without two bytes": (lambda c: c.cut("a.jpg", 3), [A + CUT_SHORT], NO_A),
    "marker without its segment": (lambda c: c.put("a.jpg", SMALL[:-2] + b"\xff\xfe\xff\xd9"),
                                   [A + CUT_SHORT], NO_A),
    "wrong size": (lambda c: [c.put("a.jpg", SMALL), c.edit(rb'(/a.jpg",Size=)\d+', rb"\g<1>7")],
                   [A + f"the image has {len(SMALL)} bytes, its record says 7"], ALL),
    "wrong size of a large number": (
        lambda c: [c.put("a.jpg", SMALL), c.edit(rb'(/a.jpg",Size=)\d+', rb"\g<1>70000")],
        [A + f"the image has {len(SMALL)} bytes, its record says 70000"], ALL),
    "unnamed image": (lambda c: c.put("x.jpeg", SMALL), ["c/D1/x.jpeg: " + UNNAMED], ALL),
    "unnamed images": (lambda c: [c.put(f"{name}.jpg", b"") for name in "zxvyw"],
                       [f"c/D1/{name}.jpg: {UNNAMED}" for name in "vwxyz"], ALL),
    "part of an unnamed image": (lambda c: c.put("x.jpg", SMALL[:20]), [X + UNNAMED], ALL),
    "two records": (lambda c: c.append(c.record("a.jpg")),
                    [A + "a newer record names the same image"], ALL),
    "text at the beginning": (lambda c: c.edit(b"^", b"text\r\n"),
                              ["i: at 'text': text that belongs to no record"], ALL),
    "line feeds": (lambda c: c.edit(b"^", b"\n>\r\n\r\n"),
                   ["i: at '>': text that belongs to no record"], ALL),
    "ends of lines": (lambda c: c.edit(b"^", b"\r\n\r\r\n") or c.append(b"text\n\r"),
                      ["i: at 'text': text that belongs to no record"], ALL),
    "lost end of the index": (lambda c: [c.put("c.jpg", SMALL), c.cut("../../i", -9)],
                              [f"i: at '{RECORD % 'c'}Size=N,Device': text that belongs to no record",
                               C + UNNAMED], NO_C),
    "zeros at the end": (lambda c: c.append(bytes(30)), [
        "i: at %r: text that belongs to no record" % ("\0" * 30)], ALL),
    "text behind a mebibyte": (
        lambda c: [c.edit(b"^", b"\r\n" * 500000), c.edit(rb"(?=<[^>]*b.jpg)", b"\r\n" * 300000),
                   c.edit(rb"\r\n\Z", b"text")], ["i: at 'text': text that belongs to no record"], ALL),
    "zeros in the middle": (lambda c: c.edit(rb"(<[^>]*b.jpg)", rb"\0\g<1>"), [
        f"i: at '\\x00{RECORD % 'b'}Size=N,Devicetype=0>\\r\\n{RECORD % 'c'}Size=N,Devicetype=0>': "
        "text that belongs to no record",
        B + UNNAMED, C + UNNAMED], ["a.jpg"]),
    "record that joins two": (lambda c: c.edit(rb">\r\n(?=[^>]*b.jpg)", b""), [
        f"i: at '<Type=1,Sid=\"D1\",Path=\"c/D1\",Devicetype=0{RECORD % 'b'}Size=N,Devicetype=0>': "
        + OTHERWISE, B + UNNAMED], NO_B),
    "record that is too long": (lambda c: c.edit(rb"=0(?=>\r\n<[^>]*b.jpg)", b"=0" + b" " * 1023), [
        "i: at '<Type=1,Sid=\"D1\",Pat...                   >': " + OTHERWISE], ALL),
    "record with a blank": (lambda c: c.edit(rb"(/a.jpg\",Size=)", rb"\g<1> "),
                            [f"i: at '{RECORD % 'a'}Size= N,Devicetype=0>': " + OTHERWISE], ALL),
    "record of names that are too long": (
        lambda c: c.append(b'<Type=0,Path="/%b",URL="/%b",Size=7,Devicetype=0>\r\n' % (
            b"p" * 500, b"u" * 510)), [
                "i: at '<Type=0,Path=\"/ppppp...Size=7,Devicetype=0>': " + OTHERWISE,
                f"/{'u' * 510}: the record of an image that is not in its folder, /{'p' * 500}"], ALL),
    "record of another type": (
        lambda c: c.append(b"<Type=7,>\r\n"),
        ["i: at '<Type=7,>': a record that does not load: type 7 is unknown"], ALL),
    "record of a negative type": (
        lambda c: c.append(b"<Type=-1,>\r\n"),
        ["i: at '<Type=-1,>': a record that does not load: type -1 is unknown"], ALL),
    "record without a type": (lambda c: c.append(b"<Typ=0,>\r\n"), [
        "i: at '<Typ=0,>': a record that does not load: parse Type failed"], ALL),
    "folder record that does not load": (lambda c: c.append(b'<Type=1,Sid="D1">\r\n'), [
        "i: at '<Type=1,Sid=\"D1\">': a record that does not load: parse folder path failed"], ALL),
    "record of an unknown kind of device": (
        lambda c: c.edit(rb'(a.jpg",Size=\d+,Devicetype=)\d', rb"\g<1>7"), [
            f"i: at '{RECORD % 'a'}Size=N,Devicetype=7>': a record that does not load: unknown device "
            "type", A + UNNAMED], NO_A),
    "record without a size": (lambda c: c.edit(rb'(a.jpg",)Size=', rb"\g<1>"), [
        f"i: at '{RECORD % 'a'}N,Devicetype=0>': a record that does not load: parse Size failed",
        A + UNNAMED], NO_A),
    "record of a negative size": (
        lambda c: [c.put("a.jpg", SMALL), c.edit(rb'(a.jpg",Size=)\d+', rb"\g<1>-999")],
        [f"i: at '{RECORD % 'a'}Size=-N,Devicetype=0>': " + OTHERWISE,
         A + f"the image has {len(SMALL)} bytes, its record says 0"], ALL),
    "sizes beyond counting": (lambda c: c.edit(rb'(a.jpg",Size=)\d+', rb"\g<1>2147483647"),
                              [f"i: at '{RECORD % 'a'}Size=2147483647,Devicetype=0>': a record that "
                               "does not load: its size, 2147483647, is more than the cache can count",
                               A + UNNAMED], NO_A),
    "faults in the order of the index": (
        lambda c: [c.edit(rb'(a.jpg",Size=)\d+', rb"\g<1>2147483647"), c.append(b"<Typ=0,>\r\n")],
        [f"i: at '{RECORD % 'a'}Size=2147483647,Devicetype=0>': a record that "
         "does not load: its size, 2147483647, is more than the cache can count",
         "i: at '<Typ=0,>': a record that does not load: parse Type failed", A + UNNAMED], NO_A),
    "total above the ceiling": (
        lambda c: [c.pad(name, 40 * MIB) for name in ALL],
        ["all thumbnails together: 125829120 bytes, more than the ceiling of 104857600 bytes"], NO_A),
    "total far above the ceiling": (
        lambda c: [c.pad(name, 90 * MIB) for name in ALL],
        ["all thumbnails together: 283115520 bytes, more than the ceiling of 104857600 bytes"],
        ["c.jpg"]),
    "unfinished index": (lambda c: c.put("../../i.new", b"<"),
                         ["i.new: a new index that was not finished"], ALL),
    "folder without a record": (lambda c: c.edit(FOLDER, b""),
                                ["c/D1: the folder has thumbnails, and no record"], ALL),
    "two records of a folder": (lambda c: c.append(re.findall(FOLDER, c.index.read_bytes())[0]),
                                ["c/D1: a second record of the folder"], ALL),
    "folder with another id": (lambda c: c.edit(b'Sid="D1"', b'Sid="D2"'), [
        "c/D1: a folder record of the id D2, which the path does not end in",
        "c/D1: the folder has thumbnails, and no record"], ALL),
    "missing folder": (lambda c: shutil.rmtree(c.images), [
        "c/D1: the record of a folder that is missing", A + MISSING, B + MISSING, C + MISSING], []),
    "image of another folder": (lambda c: c.edit(rb'URL="[^"]*/a.jpg', b'URL="%b' % bytes(c.outside)),
                                ["outside.jpg: the record of an image that is not in its folder, c/D1",
                                 A + UNNAMED], NO_A),
    **{f"image by the path {path}": (
        lambda c, path=path: c.edit(b"D1/a.jpg", path.encode()),
        [f"c/{path}: the record of an image that is not in its folder, c/D1", A + UNNAMED], NO_A)
       for path in ("D1/../D1/a.jpg", "D1/.", "D1/..", "D1/", "D1")}}
STAYING = {  # what takes the place of a.jpg and is no image of the cache
    "text": (lambda file: file.write_text("text"), "it is not a JPEG image"),
    "beginning": (lambda file: file.write_bytes(b"\xff\xd8"), "it is not a JPEG image"),
    "almost": (lambda file: file.write_bytes(b"\xff\xd8" + SMALL[3:]), "it is not a JPEG image"),
    "folder": (lambda file: file.mkdir(), "it is not a regular file"),
    "pipe": (os.mkfifo, "it is not a regular file"),
    "link": (lambda file: file.symlink_to(file.parent / "../../outside.jpg"),
             "it is not a regular file")}


def segment(marker, content=b""):
    return struct.pack(">BBH", 0xff, marker, len(content) + 2) + content


class CheckTest(CheckTestCase):
    def test_what_saves_leave_is_sound(self):
        self.make_cache()
        self.assertEqual(self.check(0), self.sound())
        self.cache.pad("a.jpg", 5000)  # a preset block, or a part of one, follows the image
        self.assertEqual(self.check(0), self.sound())
        for name, size in zip(ALL, (40, 40, 20)):
            self.cache.pad(name, size * MIB)
        self.assertEqual(self.check(0), "i: sound, 3 thumbnails, 100 MiB\n")
        self.cache.index.write_bytes(b"")
        self.assertEqual(self.check(0), "i: sound, 0 thumbnails, 0 B\n")

    def check_images(self, images):
        """What is found when these are in the cache, without what is said at the end."""
        self.make_cache()
        for name, image in images.items():
            self.cache.put(f"{name}.jpg", image)
        self.cache.index.write_bytes(re.findall(FOLDER, self.cache.index.read_bytes())[0] + b"".join(
            re.sub(rb"/a.jpg\",Size=\d+", b'/%b.jpg",Size=%d' % (name.encode(), len(image)),
                   self.cache.record("a.jpg")) for name, image in images.items()))
        for name in set(ALL) - {f"{name}.jpg" for name in images}:
            (self.cache.images / name).unlink()
        return self.run_command("check i").stdout.replace(f"{self.folder}/", "").splitlines()[:-1]

    def test_images_of_every_build_are_sound(self):
        small = jpeg(64, 64)
        frame = small.index(b"\xff\xc0")
        behind = frame + 2 + int.from_bytes(small[frame + 2:frame + 4], "big")
        self.assertEqual(self.check_images({
            "bytes that fill": small[:2] + b"\xff" + small[2:],
            "empty segment": small[:2] + segment(0xfe) + small[2:],
            "other segments": small[:behind] + segment(0xcc, b"\0\x10") + segment(0xc8, bytes(9)) +
                              small[behind:],
            "restart markers": subprocess.run(["jpegtran", "-restart", "1"], input=small,
                                              capture_output=True, check=True).stdout,
            **{f"{side} pixels wide": jpeg(side, side, data=random.Random(1).randbytes(side * side * 3))
               for side in (700, 1500)},
            **{f"frame {marker}": small[:frame + 1] + bytes([marker]) + small[frame + 2:]
               for marker in range(0xc0, 0xd0) if marker not in (0xc4, 0xc8, 0xcc)}}), [])

    def test_image_that_is_cut_anywhere_is_found(self):
        cuts = range(3, len(SMALL))
        self.assertEqual(self.check_images({f"{cut:04}": SMALL[:cut] for cut in cuts}),
                         [f"c/D1/{cut:04}.jpg: {CUT_SHORT}" for cut in cuts])

    def test_each_damage_is_found_and_mended(self):
        for name, (damage, findings, thumbnails) in DAMAGES.items():
            with self.subTest(name):
                self.make_cache()
                damage(self.cache)
                self.check_findings(findings)
                self.check_repair(findings, thumbnails)
                self.assertEqual(self.cache.there(), thumbnails)
                self.assertTrue(self.cache.outside.exists())

    def test_damages_together(self):
        self.make_cache()
        names = "text at the beginning", "record of another type", "unfinished index", "missing image"
        for name in (*names, "folder without a record", "unnamed image"):
            DAMAGES[name][0](self.cache)
        self.cache.edit(rb'(/b.jpg",Size=)\d+', rb"\g<1>7")
        size = (self.cache.images / "b.jpg").stat().st_size
        findings = [finding for name in names for finding in DAMAGES[name][1]] + [
            B + f"the image has {size} bytes, its record says 7",
            *DAMAGES["folder without a record"][1], *DAMAGES["unnamed image"][1]]
        self.check_findings(findings)
        self.check_repair(findings, NO_A)
        self.assertEqual(self.cache.there(), NO_A)

    def test_faults_come_in_the_order_of_the_index(self):
        self.make_cache()
        for name in "sizes beyond counting", "text at the beginning":
            DAMAGES[name][0](self.cache)
        self.assertRegex(self.check(4), "(?s)belongs to no record.*more than the cache can count")

    def test_what_is_no_image_of_the_cache_stays_and_is_named(self):
        others = [".jpg", "notes", "x.jpg.old", "xjpg"]
        for name, (make, reason) in STAYING.items():
            with self.subTest(name):
                self.make_cache()
                self.cache.replace("a.jpg", make)
                for other in others:
                    self.cache.put(other, b"")
                notes = [f"c/D1/{other}: no image of the cache" for other in others]
                a_note = A + "no image of the cache"
                self.check_findings([A + reason], notes)
                before = self.check(1, "--repair")
                self.assertIn(A + reason, before)
                self.assertEqual(self.cache.recorded(), NO_A)
                self.assertEqual(self.cache.there(), sorted([*others, *ALL]))
                for options in (), ("--repair",):
                    self.assertEqual(self.check(0, *options), "".join(
                        f"{note}\n" for note in sorted([*notes, a_note])) + self.sound())
                self.assertTrue(self.cache.outside.exists())

    def test_unfinished_index_is_found_through_a_link_and_as_one(self):
        self.make_cache()
        (self.folder / "i.new").symlink_to("gone")
        (self.folder / "sub").mkdir()
        (self.folder / "sub/i").symlink_to("../i")
        run = self.run_command("check sub/i")
        self.assertEqual(run.returncode, 4)
        self.assertEqual(run.stdout, f"{self.folder}/i.new: a new index that was not finished\n"
                         "sub/i: 1 finding; --repair mends what can be mended\n")

    def test_folder_of_a_relative_path_is_looked_for_in_the_working_directory(self):
        self.make_cache()
        self.cache.index.write_bytes(
            self.cache.index.read_bytes().replace(bytes(self.folder) + b"/", b""))
        self.check(0)
        before = self.files()
        (self.folder / "sub").mkdir()
        run = self.run_command("check ../i --repair", cwd=self.folder / "sub")
        self.assertEqual(run.returncode, 4)
        finding = ("c/D1: the folder cannot be looked into: No such file or directory; its path is "
                   "relative to the working directory of the host\n")
        self.assertEqual(run.stdout, f"{finding}../i: not mended:\n{finding}")
        before[self.folder / "sub"] = False
        self.assertEqual(self.files(), before)
        self.cache.edit(FOLDER, b"")  # its thumbnails are enough
        run = self.run_command("check ../i --repair", cwd=self.folder / "sub")
        self.assertEqual(run.stdout, f"{finding}../i: not mended:\n{finding}")

    def test_folder_of_two_names_loses_nothing(self):
        self.make_cache()
        self.cache.append(b'<Type=1,Sid="D1",Path="%s/c/./D1",Devicetype=0>\r\n' % bytes(self.folder))
        self.assertEqual(self.check(0), self.sound())
        self.assertEqual(self.cache.there(), ALL)
        self.cache.put("x.jpg", b"")
        self.check_findings([X + UNNAMED])

    def test_what_cannot_be_checked(self):
        self.make_cache()
        self.check_refusal("check gone", 8, "^zel-thumbnail-cache: gone: No such file or directory\n$")
        self.check_refusal("check table", 8, "^zel-thumbnail-cache: table: Is a directory\n$")
        os.mkfifo(self.folder / "pipe")
        self.check_refusal("check pipe", 8, "pipe is not a regular file")
        self.check_refusal("check /proc/self/mem", 8, "/proc/self/mem: Input/output error")
        self.check_refusal("check i --repair=x", 2, "--repair")
        with open("/dev/full", "w", encoding="utf-8") as full:
            self.assertEqual(self.run_command("check i", stdout=full).returncode, 8)


if __name__ == "__main__":
    unittest.main()
