#!/usr/bin/env python3
"""Watching storages come and go, with and without saving."""
import os
import re
import signal
import unittest

from command_fixture import (MOCK_DEVICES, RESERVES_MEMORY, SAVE, USB, CommandTestCase, decode,
                             png)


class WatchTest(CommandTestCase):
    def test_thumbnails_of_what_goes_are_removed(self):
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

    def test_mount_paths_reach_the_output_without_control_characters(self):
        watch = self.start_watch()
        for names, line in (("D1", r"E\033[31m"), "connected"), (("D1",), "removed"):
            self.attach(*names)
            self.assertEqual(watch.stdout.readline(), f"{line} {USB}E?[31m\n")

    def test_table_is_watched_by_its_name_alone(self):
        self.settings["cwd"] = self.folder / "table"
        self.settings["env"]["ZEL_MOUNTINFO"] = "now"
        watch = self.start_watch()
        self.attach("D1", "D2")
        self.assertEqual(watch.stdout.readline(), f"connected {USB}D2\n")

    def test_cache_hears_of_what_comes_and_goes(self):
        self.settings["env"]["ZEL_LOG_LEVEL"] = "info"
        watch = self.start_watch()
        for names, count in (("D1", "D2"), 1), (("D1",), 2):
            self.attach(*names)
            watch.stdout.readline()
            events = re.findall(r"ConnctedCallback event is", self.errors())
            self.assertEqual(len(events), count)


class SavingWatchTest(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.sticks = self.with_sticks()
        self.watch = None
        self.tells = False  # on standard error

    def tearDown(self):
        if self.watch is not None and not self.tells:
            self.assertEqual(self.errors(), "")

    def start(self, words, **settings):
        self.watch = super().start(words, **settings)
        return self.watch

    def start_saving(self, *words):
        self.start_watch("--cache", "c", "--size", "100", *words, before=self.sticks)

    def check_lines(self, *lines):
        for line in lines:
            self.assertEqual(self.watch.stdout.readline(), line + "\n")

    def stop(self, may_tell=""):
        self.watch.send_signal(signal.SIGTERM)
        self.assertEqual(self.watch.stdout.read(), "")
        self.assertEqual(self.watch.wait(), 0)
        self.assertRegex(self.errors(), rf"\A({may_tell})*\Z")

    def wait_for_thumbnails(self, device, count=1):
        self.wait_until(lambda: len(self.thumbnails(device)) >= count, self.watch)

    def made(self, device):
        """The thumbnails and when they were made."""
        return {(path, path.stat().st_mtime_ns) for path in self.thumbnails(device)}

    def names(self):
        """The names of the recorded thumbnails without their ends, oldest first."""
        return [os.path.basename(path)[:-15] for path in self.listed()]

    def test_pictures_are_saved_at_the_start_and_when_a_stick_is_mounted(self):
        self.write({"usb/D1/a.png": png(300, 100), "usb/D1/f/b.png": png(6, 4),
                    "usb/D1/.hidden/c.png": png(6, 4), "usb/D1/notes.txt": b""})
        self.start_saving()
        self.check_lines(f"saved 2 thumbnails of {USB}D1")
        self.assertEqual(decode(next(self.folder.glob("c/D1/a-*.jpg")))[0], (100, 33))
        self.write({"usb/D2/d.png": png(6, 4)})
        self.attach("D1", "D2")
        self.check_lines(f"connected {USB}D2", f"saved 1 thumbnails of {USB}D2")
        self.assertCountEqual(self.names(), ["a", "b", "d"])
        self.attach("D2")
        self.check_lines(f"removed {USB}D1")
        self.assertEqual(self.names(), ["d"])
        self.attach("D1", "D2")
        self.check_lines(f"connected {USB}D1", f"saved 2 thumbnails of {USB}D1")
        self.stop()

    def test_folder_that_was_modified_last_comes_first(self):
        for age, path in enumerate(("a/old/new", "b", ".", "a", "a/old")):
            self.write({f"usb/D1/{path}/{age}.png": png(6, 4)})
        for age, path in enumerate(("a/old/new", "b", ".", "a", "a/old")):
            os.utime(self.folder / "usb/D1" / path, ns=(0, 10**18 - age))
        self.start_saving("--jobs", "4")
        self.check_lines(f"saved 5 thumbnails of {USB}D1")
        self.assertEqual(self.names(), ["0", "1", "2", "3", "4"])

    def test_pictures_of_a_folder_come_in_the_order_of_their_names(self):
        names = [f"{number:02}" for number in range(40)]
        self.write({f"usb/D1/{name}.png": png(6, 4) for name in names})
        self.start_saving()
        self.check_lines(f"saved 40 thumbnails of {USB}D1")
        self.assertEqual(self.names(), names)

    @unittest.skipIf(RESERVES_MEMORY, "the library of the mock devices has to be loaded first")
    def test_cameras_are_left_alone(self):
        self.write({"usb/D1/p.png": png(6, 4)})
        self.sticks += ["umockdev-run", "--device", MOCK_DEVICES, "--"]
        self.start_saving()
        self.check_lines(f"saved 1 thumbnails of {USB}D1")
        self.stop()

    def test_restart_goes_on_where_it_stopped(self):
        self.write_many("usb/D1", 40)
        self.start_saving()
        self.wait_for_thumbnails("D1")
        self.watch.send_signal(signal.SIGTERM)
        self.assertEqual(self.watch.wait(), 0)
        before = self.made("D1")
        self.start_saving()
        self.check_lines(f"saved {40 - len(before)} thumbnails of {USB}D1")
        self.assertEqual(len(self.listed()), 40)
        self.assertLessEqual(before, self.made("D1"))
        self.stop()
        self.start_saving()
        self.check_lines(f"saved 0 thumbnails of {USB}D1")

    def test_nothing_is_left_of_a_stick_that_goes_while_its_pictures_are_saved(self):
        self.write_many("usb/D1")
        self.start_saving("--jobs", "4")
        self.wait_for_thumbnails("D1", 3)
        self.attach("D2")
        self.write({"usb/D2/p.png": png(6, 4)})
        self.assertEqual(self.watch.stdout.readline(), f"removed {USB}D1\n")
        self.assertFalse((self.folder / "c/D1").exists())
        self.check_lines(f"connected {USB}D2")
        self.assertIn("thumbnails of " + USB + "D2", self.watch.stdout.readline())
        self.assertFalse((self.folder / "c/D1").exists())
        self.assertLessEqual(len(self.listed()), 1)
        self.stop()
        self.assertEqual(self.run_command(f"{SAVE} --device D2 large.png").returncode, 0)

    def test_stick_that_vanishes_before_it_is_unmounted_does_no_harm(self):
        self.write_many("usb/D1")
        self.start_saving()
        self.wait_for_thumbnails("D1")
        (self.folder / "usb/D1").rename(self.folder / "gone")
        self.attach()
        self.check_lines(f"removed {USB}D1")
        self.assertEqual(self.listed(), [])
        self.tells = True  # of pictures that it tries to open before the stick is unmounted
        self.stop(rf"{USB}D1/.*: No such file or directory\n")

    def test_stick_that_comes_is_served_before_the_others(self):
        self.write_many("usb/D1")
        self.start_saving()
        self.wait_for_thumbnails("D1")
        self.write({"usb/D2/p.png": png(6, 4)})
        self.attach("D1", "D2")
        self.check_lines(f"connected {USB}D2", f"saved 1 thumbnails of {USB}D2")
        count = len(self.thumbnails("D1"))
        self.assertLess(count, 2000)
        self.wait_for_thumbnails("D1", count + 1)

    def test_thumbnails_do_not_take_the_place_of_one_another(self):
        self.write({f"usb/D1/{i}.png": png(60, 60) for i in range(3)})
        self.start_saving()
        self.check_lines(f"saved 3 thumbnails of {USB}D1")
        self.stop()
        kept = self.listed()
        os.truncate(kept[0], 104857600 - 10053 - sum(map(os.path.getsize, kept[1:])))
        self.start_saving()
        self.check_lines(f"saved 0 thumbnails of {USB}D1")
        self.stop()
        self.write({"usb/D1/older.png": png(50, 50), "usb/D1/small.png": png(6, 4)})
        os.utime(self.folder / "usb/D1", ns=(0, 0))
        self.start_saving()
        self.check_lines(f"saved 0 thumbnails of {USB}D1; the cache is full")
        self.assertEqual(self.listed(), kept)
        self.stop()
        self.write({"usb/D2/p.png": png(50, 50)})
        self.attach("D1", "D2")
        self.start_saving()
        self.check_lines(f"saved 0 thumbnails of {USB}D1; the cache is full",
                         f"saved 0 thumbnails of {USB}D2; the cache is full")
        self.assertEqual(self.listed(), kept)
        self.attach()
        self.check_lines(f"removed {USB}D1", f"removed {USB}D2")
        self.attach("D1")
        self.check_lines(f"connected {USB}D1", f"saved 5 thumbnails of {USB}D1")

    def test_names_reach_the_output_without_control_characters(self):
        self.write({"usb/E\x1b[31m/a\nb\x1b[31m.png": png(6, 4)})
        self.attach(r"E\033[31m")
        self.start_saving()
        self.check_lines(f"saved 1 thumbnails of {USB}E?[31m")
        self.assertEqual(self.names(), ["a_b_[31m"])

    def test_cache_that_takes_nothing_is_told_with_the_first_picture(self):
        self.tells = True
        self.write({"usb/D1/a.png": png(6, 4), "usb/D1/b.png": png(6, 4), "c/D1": b""})
        self.start_saving()
        self.check_lines(f"saved 0 thumbnails of {USB}D1")
        self.assertRegex(self.errors(), f"^{USB}D1/a.png: the folder {self.folder}/c/D1: .*\n$")

    def test_index_that_cannot_be_read_is_told_and_the_next_stick_served(self):
        self.tells = True
        self.write({f"usb/{stick}/p.png": png(6, 4) for stick in ("D1", "D2", "D3")})
        self.start_saving()
        self.check_lines(f"saved 1 thumbnails of {USB}D1")
        (self.folder / "i").rename(self.folder / "index")
        (self.folder / "i").mkdir()
        self.attach("D1", "D2")
        self.check_lines(f"connected {USB}D2")
        self.wait_until(self.errors, self.watch)
        self.assertEqual(self.errors(), "thumbnails of storages: i: Is a directory\n")
        (self.folder / "i").rmdir()
        (self.folder / "index").rename(self.folder / "i")
        self.attach("D1", "D2", "D3")
        self.check_lines(f"connected {USB}D3", f"saved 1 thumbnails of {USB}D3",
                         f"saved 1 thumbnails of {USB}D2")

    def test_what_cannot_be_read_is_reported_and_the_rest_saved(self):
        self.tells = True
        self.write({"usb/D1/a.png": b"text", "usb/D1/b.png": png(6, 4)})
        deep = self.nest_folders(self.folder / "usb/D1")
        self.attach("D1", "missing")
        self.start_saving()
        self.check_lines(f"saved 1 thumbnails of {USB}D1", f"saved 0 thumbnails of {USB}missing")
        self.assertRegex(self.errors(), rf"^{USB}D1/{deep}: File name too long\n{USB}D1/a\.png: [^\n]*\n"
                         f"{USB}missing: No such file or directory\n$")


if __name__ == "__main__":
    unittest.main()
