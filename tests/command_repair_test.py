#!/usr/bin/env python3
"""How `check --repair` mends a cache, and what it leaves alone."""
import fcntl
import os
import re
import resource
import subprocess
import unittest

from check_fixture import ALL, FOLDER, NO_B, CheckTestCase
from command_fixture import COMMAND, PATIENCE, WITHOUT_PRIVILEGES


class RepairTest(CheckTestCase):
    def test_repaired_index_is_as_the_library_writes_it(self):
        self.make_cache()
        before = self.cache.index.read_bytes()
        self.cache.append(b"text")
        self.check(1, "--repair")
        after = self.cache.index.read_bytes()
        self.assertEqual(sorted(after.splitlines(True)), sorted(before.splitlines(True)))
        self.assertTrue(after.startswith(b"<Type=1"))

    def test_what_cannot_be_mended_stays_and_is_told(self):
        self.make_cache()
        (self.folder / "c/D1").rename(self.folder / "c/D9")
        (self.folder / "c/D1").symlink_to("D9")
        finding = "c/D1: the folder cannot be looked into: Not a directory"
        self.check_findings([finding])
        before = self.files()
        self.assertEqual(self.check(4, "--repair"), f"{finding}\ni: not mended:\n{finding}\n")
        self.assertEqual(self.files(), before)
        self.cache.append(b"text")
        self.assertEqual(self.check(4, "--repair"), "".join(f"{line}\n" for line in (
            "i: at 'text': text that belongs to no record", finding,
            "rewrote i with the records of 3 thumbnails", "i: not mended:", finding)))
        self.assertEqual(self.cache.recorded(), ALL)
        self.cache.index.write_bytes(re.findall(FOLDER, self.cache.index.read_bytes())[0])
        self.check_findings([finding])

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

    def test_folder_that_has_taken_the_place_of_the_examined_one_loses_nothing(self):
        self.make_cache()
        for number in range(500):
            self.cache.put(f"{number:03}.jpg", b"")
        repair = self.start([*COMMAND, "check", "i", "--repair"], stderr=subprocess.DEVNULL,
                            pipesize=4096)
        repair.stdout.readline()  # the rest does not fit, and is told before anything is removed
        self.cache.images.rename(self.folder / "c/D9")
        self.write({"c/D1/000.jpg": b""})
        repair.stdout.read()
        self.assertEqual(repair.wait(), 4)
        self.assertEqual(self.cache.there(), ["000.jpg"])

    def test_folder_of_a_camera_gets_the_record_of_one(self):
        self.make_cache()
        self.cache.edit(FOLDER, b"")
        index = self.cache.index.read_bytes()
        self.cache.index.write_bytes(index.replace(b"Devicetype=0", b"Devicetype=1"))
        self.check(1, "--repair")
        self.assertRegex(self.cache.index.read_bytes(), b"<Type=1[^>]*Devicetype=1>")

    def test_one_command_at_a_time_mends(self):
        self.make_cache()
        watch = self.start_watch()
        self.check_refusal("check i --repair", 8, "in use by")
        run = self.run_command("check i")
        self.assertEqual(run.returncode, 0)
        self.assertRegex(run.stderr, "^zel-thumbnail-cache: i: in use by (.* \\(process \\d+\\)|another "
                         "process), so that what was found may be of a moment\n$")
        self.assertEqual(run.stdout, self.sound())
        watch.terminate()
        self.assertEqual(watch.wait(), 0)
        self.addCleanup(os.close, folder := os.open(self.folder, os.O_RDONLY))
        fcntl.flock(folder, fcntl.LOCK_SH)  # as another check does
        self.check(0)

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
