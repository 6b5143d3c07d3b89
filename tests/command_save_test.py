#!/usr/bin/env python3
"""What becomes of pictures, folders and thumbnails that are saved from the command line."""
import os
import random
import re
import resource
import struct
import unittest

from command_fixture import (BLUE, COLOURS, GREEN, RED, SAVE, USB, WITHOUT_PRIVILEGES, YELLOW,
                             SaveTestCase, corners, decode, jpeg, png, table)


class PictureTest(SaveTestCase):
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
            "flat.svg": (svg.replace(b"30000", b"60000").replace(b"20000", b"90"),
                         (100, 1), [(255, 217, 217)] * 4),  # less than a pixel high
            "large.jpg": (jpeg(300, 170, 6), (57, 100), (BLUE, RED, YELLOW, GREEN)),
            **{f"turned{i}.jpg": (jpeg(60, 40, i), (60, 40) if i < 5 else (40, 60),
                                  [COLOURS[int(corner)] for corner in turn])
               for i, turn in enumerate(turns, 1)}}
        self.write({name: data for name, (data, _, _) in cases.items()})
        run = self.run_command(SAVE, *cases)
        rows = table(run.stdout)
        total = sum(int(rows[name][2]) for name in cases)
        self.assertRegex(run.stdout, rf"\n{len(cases)} saved, 0 kept, 0 failed, 0 evicted in .*\n"
                         rf"{len(cases)} thumbnails, {total} bytes.*\n$")
        self.rows(run.stdout)
        for name, (_, size, colours) in cases.items():
            with self.subTest(name):
                thumbnail, pixels, count, _ = rows[name]
                found_size, found = decode(thumbnail)
                self.assertEqual(found_size, size)
                self.assertEqual(pixels, "%dx%d" % size)
                self.assertEqual(int(count), os.path.getsize(thumbnail))
                self.assertLess(max(abs(a - b) for a, b in zip(found, sum(colours, ()))), 16, found)

    def test_colours_over_white_are_rounded_to_the_nearest(self):
        cases = {(10, 100): 159, (100, 100): 194, (0, 1): 254, (200, 254): 200, (255, 77): 255}
        names = [f"{colour}-{alpha}.png" for colour, alpha in cases]
        for name, (colour, alpha) in zip(names, cases):
            self.write({name: png(16, 16, bytes([colour] * 3 + [alpha]) * 256)})
        rows = self.save(*names)
        self.assertEqual([decode(rows[name][0])[1] for name in names],
                         [bytes([shade]) * 12 for shade in cases.values()])

    def test_failed_pictures_are_named_and_the_others_saved(self):
        small, huge = png(6, 4), png(60000, 60000, b"")
        icns = struct.pack(">4sI4sI", b"icns", len(huge) + 16, b"ic08", len(huge) + 8) + huge
        noise = png(64, 64, random.Random(1).randbytes(64 * 64 * 3))
        self.write({"blocked.png": small, "own.png": small})
        rows = self.save("blocked.png", "own.png")
        blocked, own = (self.folder / rows[name][0] for name in ("blocked.png", "own.png"))
        for path in blocked, own, self.folder / "i":
            path.unlink()
        own.hardlink_to(self.folder / "own.png")
        os.mkfifo(self.folder / "fifo.png")
        cases = {  # by name: what it holds, and the reason given
            "missing.png": (None, "^No such file or directory$"), "fifo.png": (None, "regular"),
            "text.png": (b"text", "."), "cut.png": (noise[:-99], "."),
            "cut-large.png": (png(300, 300)[:-99], "."),
            "blocked.png": (None, "not empty"), "own.png": (None, "replace"),
            "noise.png": (noise, "cache"),
            "most.png": (png(16384, 16384, b""), "^(?!.*megapixels)"),
            "wide.png": (png(16385, 16384, b""), "16385 x 16384.*megapixels"),
            "huge.png": (huge, "60000 x 60000.*megapixels"),
            "huge.icns": (icns, "recognize")}
        self.write({blocked / "file": b""})
        self.write({name: data for name, (data, _) in cases.items() if data is not None})
        # No file becomes as large as the thumbnail of noise.
        run = self.run_command(
            SAVE, "p.png", *cases, "large.png", restore_signals=False,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096)))
        self.assertEqual(run.returncode, 1)
        reasons = dict(re.findall(r"(?m)^[^:\n]*: (.*?): (.*)$", run.stderr))
        self.assertEqual(set(reasons), set(cases))
        for name, (_, reason) in cases.items():
            with self.subTest(name):
                self.assertRegex(reasons[name], reason)
        self.assertEqual(list(self.rows(run.stdout, len(cases))), ["p.png", "large.png"])
        self.assertEqual((self.folder / "own.png").read_bytes(), small)

    def test_names_that_no_file_or_index_can_hold_are_replaced(self):
        names = {  # by picture: what is left of it
            'a"b>c.png': "a_b_c", "line\nfeed\x1b[31m.png": "line_feed_[31m",
            "n" * 251 + ".png": "n" * 240, "ä" * 125 + ".png": "ä" * 120,
            "x" + "ä" * 125 + ".png": "x" + "ä" * 119, "\udcff.png": "\udcff", "\x7f.png": "_",
            "~ !\x1f.png": "~ !_"}
        self.write({f"odd/{name}": png(6, 4) for name in names})
        for state in "saved", "kept":
            run = self.run_command(SAVE, "odd")
            self.assertEqual(run.returncode, 0)
            self.assertIn(f"\n{len(names)} {state}" if state == "saved" else
                          f"\n0 saved, {len(names)} kept", run.stdout)
            self.assertNotIn("\x1b", run.stdout)
        self.assertEqual(sorted(path.name[:-15] for path in (self.folder / "c/D1").iterdir()),
                         sorted(names.values()))


class StateTest(SaveTestCase):
    def test_thumbnail_is_kept_until_its_picture_or_its_size_changes(self):
        first, = self.check_states("p.png", {"p.png": "saved"})
        before = self.files()
        self.check_states("p.png", {"p.png": "kept"})
        self.assertEqual(self.files(), before)
        made = (self.folder / "p.png").stat().st_mtime_ns
        os.utime(self.folder / "p.png", ns=(made, made + 1))
        self.check_states("p.png", {"p.png": "saved"})
        os.utime(self.folder / "p.png", ns=(made, made + 10**9))
        self.check_states("p.png", {"p.png": "saved"})
        self.write({"p.png": png(8, 2)})
        os.utime(self.folder / "p.png", ns=(made, made))
        last, = self.check_states("p.png", {"p.png": "saved"})
        self.assertEqual(decode(first)[0], (6, 4))
        self.assertEqual(decode(last)[0], (8, 2))
        self.check_states("p.png --size 4", {"p.png": "saved"})
        self.check_states("p.png --size 4", {"p.png": "kept"})
        self.check_states("p.png", {"p.png": "kept"})
        self.assertEqual(len(self.listed()), 5)

    def test_older_thumbnail_of_a_changed_picture_is_evicted_alone(self):
        self.save("p.png")
        self.write({"p.png": png(8, 2)})
        changed, = self.check_states("p.png", {"p.png": "saved"})
        index = (self.folder / "i").read_bytes()
        self.write({"i": re.sub(rb"Size=\d+", b"Size=104857000", index, count=1)})
        self.check_states("large.png", {"large.png": "saved"})
        self.assertIn(changed, self.listed())
        self.check_states("p.png", {"p.png": "kept"})

    def test_damaged_or_missing_thumbnail_is_made_again_under_another_name(self):
        first, = self.check_states("p.png", {"p.png": "saved"})
        self.write({first: b"damaged"})
        second, = self.check_states("p.png", {"p.png": "saved"})
        (self.folder / second).unlink()
        third, = self.check_states("p.png", {"p.png": "saved"})
        self.assertEqual(len({first, second, third}), 3)
        self.check_states("p.png", {"p.png": "kept"})

    def test_cache_whose_path_no_index_can_hold_is_refused(self):
        for folder in 'c"d', "c>d":
            with self.subTest(folder):
                run = self.run_command("save --index i --device D1 p.png --cache", folder)
                self.assertEqual(run.returncode, 1)
                self.assertIn("p.png: the cache cannot hold a path with", run.stderr)

    def test_file_without_a_record_is_replaced(self):
        thumbnail, = self.check_states("p.png", {"p.png": "saved"})
        (self.folder / "i").unlink()
        self.write({thumbnail: jpeg(9, 9)})
        self.check_states("p.png", {"p.png": "saved"})
        self.assertEqual(decode(thumbnail)[0], (6, 4))

    def test_pictures_of_one_name_keep_their_own_thumbnails(self):
        for folder, colour in (("a", RED), ("b", BLUE)):
            self.write({f"{folder}/p.png": png(8, 8, bytes(colour) * 64).ljust(200, b"\0")})
            os.utime(self.folder / folder / "p.png", ns=(0, 0))  # so that only the places differ
        red, = self.check_states("a/p.png", {"a/p.png": "saved"})
        blue, = self.check_states("b/p.png", {"b/p.png": "saved"})
        self.check_states("a b", {"a/p.png": "kept", "b/p.png": "kept"})
        self.assertGreater(decode(red)[1][0], 240)
        self.assertLess(decode(blue)[1][0], 16)
        self.check_states("a b --device C1 --camera", {"a/p.png": "saved", "b/p.png": "saved"})

    def test_picture_that_is_given_twice_has_one_thumbnail(self):
        run = self.run_command(SAVE, "p.png", "./p.png")
        self.assertIn("\n1 saved, 1 kept", run.stdout)
        self.assertEqual(len(self.listed()), 1)

    def test_name_does_not_depend_on_the_working_directory(self):
        self.save("p.png")
        run = self.run_command(f"save --index {self.folder}/i --cache {self.folder}/c --device D1 "
                               "--size 100 ../p.png", cwd=self.folder / "c")
        self.assertIn("\n0 saved, 1 kept", run.stdout)

    def test_thumbnail_that_makes_room_is_evicted(self):
        self.run_command(SAVE, "p.png")
        full = re.sub(rb"Size=\d+", b"Size=104857599", (self.folder / "i").read_bytes())
        self.write({"i": full})
        run = self.run_command(SAVE, "p.png", "large.png")
        rows = table(run.stdout)
        self.assertEqual(rows["p.png"][-2:], ["-", "evicted"])
        self.assertEqual(rows["large.png"][-1], "saved")
        self.assertRegex(run.stdout, r"\n1 saved, 0 kept, 0 failed, 1 evicted in .*\n"
                         rf"1 thumbnail, {rows['large.png'][-2]} bytes.*\n$")


class FolderTest(SaveTestCase):
    def test_pictures_of_a_folder_are_saved_in_the_order_of_their_names(self):
        small = png(6, 4)
        self.write({f"f/{name}": small for name in (
            "b.png", "a/z.PNG", "c/d/e.png", "B.png", ".hidden.png", ".trash/t.png", "c/._e.png")})
        self.write({"f/movie.mp4": b"", "f/notes.txt": b"", "f/png": small, "f/c.icns": b""})
        for link, target in (("f/link.png", "b.png"), ("f/folder", "c"), ("f/c/loop", "..")):
            (self.folder / link).symlink_to(target)
        os.mkfifo(self.folder / "f/fifo.png")
        pictures = "f/B.png", "f/a/z.PNG", "f/b.png", "f/c/d/e.png"
        thumbnails = self.check_states("f", dict.fromkeys(pictures, "saved"))
        self.assertEqual(self.listed(), thumbnails)
        self.check_states("f/folder f/link.png f/.trash/", {
            "f/folder/d/e.png": "kept", "f/link.png": "kept", "f/.trash/t.png": "saved"})

    def test_folder_of_the_cache_is_left_out(self):
        self.check_states(". --size 99", {"./large.png": "saved", "./p.png": "saved"})
        self.check_states(". --size 99", {"./large.png": "kept", "./p.png": "kept"})
        self.check_states("c/../c", {})

    def test_folder_without_pictures_is_no_failure(self):
        (self.folder / "empty").mkdir()
        self.assertEqual(self.save("empty"), {})

    def test_damaged_picture_in_a_folder_is_a_failure(self):
        self.write({"f/text.png": b"text", "f/p.png": png(6, 4)})
        run = self.run_command(SAVE, "f")
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stderr, "^zel-thumbnail-cache: f/text.png: .*\n$")
        self.assertIn("\n1 saved, 0 kept, 1 failed, 0 evicted ", run.stdout)

    def test_folder_that_cannot_be_read_is_a_failure(self):
        self.write({"f/p.png": png(6, 4)})
        deep = self.nest_folders(self.folder / "f")
        run = self.run_command(SAVE, "f")
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stderr, f"^zel-thumbnail-cache: f/{deep}: File name too long\n$")
        self.assertIn("\n1 saved, 0 kept, 1 failed, 0 evicted ", run.stdout)

    def test_folder_without_permission_is_a_failure(self):
        self.write({"f/p.png": png(6, 4), "f/closed/p.png": png(6, 4)})
        (self.folder / "f/closed").chmod(0)
        run = self.run_command(SAVE, "f", before=WITHOUT_PRIVILEGES)
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr, "zel-thumbnail-cache: f/closed: Permission denied\n")
        self.assertIn("\n1 saved, 0 kept, 1 failed, 0 evicted ", run.stdout)

    def test_mounted_file_systems_below_a_folder_are_left_out(self):
        sticks = self.with_sticks()
        self.write({"usb/D1/p.png": png(6, 4), "usb/D1/inner/p.png": png(6, 4), "mount": b"""
            mount -t tmpfs none /opt/storage/usb/D1/inner && cp p.png /opt/storage/usb/D1/inner &&
            exec "$@\""""})
        run = self.run_command("", *SAVE.split(), USB + "D1", before=[*sticks, "sh", "mount"])
        self.assertEqual(run.stderr, "")
        self.assertIn("\n1 saved,", run.stdout)

    def test_picture_belongs_to_the_innermost_storage_that_holds_it(self):
        sticks = self.with_sticks()
        self.attach("D1", "D1/D2", "D1b")
        pictures = outer, inner, neighbour = [USB + path for path in
                                              ("D1/..a.png", "D1/D2/b.png", "D3/c.png")]
        self.write({path.replace(USB, "usb/"): png(6, 4) for path in pictures})
        run = self.run_command("save --index i --cache c", *pictures, "p.png", before=sticks)
        rows = table(run.stdout)
        self.assertEqual(run.returncode, 1)
        self.assertRegex(rows[outer][0], f"^{self.folder}/c/D1/\\.\\.a-[0-9a-f]{{10}}\\.jpg$")
        self.assertRegex(rows[inner][0], f"^{self.folder}/c/D2/b-[0-9a-f]{{10}}\\.jpg$")
        self.assertRegex(run.stderr, rf"{neighbour}: on no storage.*\n.* p.png: on no storage")

    def test_thumbnails_are_kept_when_their_stick_is_mounted_elsewhere(self):
        sticks = self.with_sticks()
        for mount, state in (("sda1/D1", "1 saved"), ("sdb1/D1", "0 saved, 1 kept")):
            self.write({f"usb/{mount}/p.png": png(6, 4)})
            os.utime(self.folder / f"usb/{mount}/p.png", ns=(0, 0))
            self.attach(mount)
            run = self.run_command("save --index i --cache c", USB + mount, before=sticks)
            self.assertIn("\n" + state, run.stdout)


if __name__ == "__main__":
    unittest.main()
