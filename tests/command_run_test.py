#!/usr/bin/env python3
"""A run of `save`: its threads, signals and output."""
import contextlib
import os
import pty
import random
import re
import resource
import shutil
import signal
import subprocess
import time
import unittest

from command_fixture import (COMMAND, RESERVES_MEMORY, SAVE, SaveTestCase, jpeg, png,
                             read_terminal)


class RunTest(SaveTestCase):
    def test_results_come_in_the_order_given_however_many_are_decoded_at_once(self):
        self.write({f"{i}.jpg": jpeg(*((2000, 1500) if i % 3 == 0 else (8, 8))) for i in range(50)})
        names = [f"{i}.jpg" for i in random.Random(1).sample(range(50), 50)]
        for jobs in "1", "4", "200":
            with self.subTest(jobs):
                rows = self.save("--jobs", jobs, *names)
                self.assertEqual(list(rows), names)
                self.assertEqual(self.listed(), [thumbnail for thumbnail, _ in rows.values()])
            (self.folder / "i").unlink()

    def test_more_than_a_screenful_is_summed_up(self):
        names = [f"{i}.png" for i in range(21)]
        self.write(dict.fromkeys(names, png(6, 4)))
        run = self.run_command(SAVE, *names)
        self.assertRegex(run.stdout, r"^21 saved, 0 kept, 0 failed, 0 evicted in .* seconds\n"
                         r"21 thumbnails, \d+ bytes.*\n$")
        for words, count in (names[1:], 20), (["--verbose", *names], 21):
            self.assertEqual(self.run_command(SAVE, *words).stdout.count(" kept\n"), count)

    def test_interrupted_run_says_how_far_it_came_and_goes_on_later(self):
        self.write_many("f")
        for number in (signal.SIGINT, signal.SIGTERM):
            kept = len(self.thumbnails("D1"))
            save = self.start([*COMMAND, *SAVE.split(), "f"], stderr=subprocess.PIPE)
            self.addCleanup(save.stderr.close)
            self.wait_until(lambda: len(self.thumbnails("D1")) > kept, save)
            save.send_signal(number)
            output, errors = save.communicate()
            self.assertEqual(save.returncode, 128 + number)
            done, = re.findall(r"^zel-thumbnail-cache: stopped: (\d+) of 2000 pictures are done\n$",
                               errors)
            self.assertEqual(len(self.listed()), int(done))
            self.assertRegex(output, rf"(?m)^{int(done) - kept} saved, {kept} kept, 0 failed")

    def full_pipe(self):
        """The end of a pipe that stops who writes to it."""
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        self.addCleanup(os.close, writer)
        os.set_blocking(writer, False)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(writer, bytes(4096))
        os.set_blocking(writer, True)
        return writer

    def test_second_signal_ends_it_at_once(self):
        save = self.start([*COMMAND, *SAVE.split(), "p.png", "missing.png"],
                          stderr=self.full_pipe())
        self.wait_until(lambda: self.thumbnails("D1"), save)
        while save.poll() is None:
            save.send_signal(signal.SIGINT)
            time.sleep(0.01)
        self.assertEqual(save.returncode, -signal.SIGINT)

    def test_signal_ends_it_when_the_pictures_are_done(self):
        names = [f"{number:060}.png" for number in range(100)]
        self.write(dict.fromkeys(names, png(6, 4)))
        for other, number in ("INT", signal.SIGTERM), ("TERM", signal.SIGINT):
            save = self.start(["sh", "-c", f'trap "" {other}; exec "$@"', "sh", *COMMAND,
                               *SAVE.split(), "--verbose", *names], pipesize=4096)
            save.stdout.readline()  # the rest does not fit
            save.send_signal(number)
            save.stdout.read()
            self.assertEqual(save.wait(), -number)

    @unittest.skipIf(RESERVES_MEMORY, "a sanitizer or an emulator has threads of its own")
    def test_as_many_threads_decode_as_asked_for(self):
        self.write_many("f")
        processors = os.sched_getaffinity(0)
        one_processor = ["taskset", "-c", str(min(processors))]
        for before, option, jobs in (([], "--jobs=1", 1), ([], "--jobs=3", 3),
                                     ([], "--", len(processors)), (one_processor, "--", 1)):
            save = self.start([*before, *COMMAND, *SAVE.split(), option, "f"])
            self.wait_until(lambda: self.thumbnails("D1"), save)
            self.wait_until(lambda: len(os.listdir(f"/proc/{save.pid}/task")) == 1 + jobs, save)
            save.kill()
            save.wait()
            shutil.rmtree(self.folder / "c")
            # It may have been killed before the first record.
            (self.folder / "i").unlink(missing_ok=True)

    @unittest.skipIf(RESERVES_MEMORY, "memory is not limited")
    def test_fewer_threads_than_asked_for_do_as_well(self):
        names = [f"{i}.png" for i in range(8)]
        self.write(dict.fromkeys(names, png(6, 4)))
        run = self.run_command(SAVE, "--jobs=8", *names, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_STACK, (512 << 20, 512 << 20)))  # for each thread, of 2 GiB in all
        self.assertEqual(run.stderr, "")
        self.assertIn("\n8 saved, 0 kept, 0 failed", run.stdout)

    def test_signal_that_is_ignored_at_the_start_stays_ignored(self):
        self.write_many("f")
        save = self.start(["sh", "-c", 'trap "" INT; exec "$@"', "sh", *COMMAND, *SAVE.split(), "f"],
                          stderr=subprocess.DEVNULL)
        self.wait_until(lambda: self.thumbnails("D1"), save)
        save.send_signal(signal.SIGINT)
        count = len(self.thumbnails("D1"))
        self.wait_until(lambda: len(self.thumbnails("D1")) > count + 1, save)
        save.send_signal(signal.SIGTERM)
        save.communicate()
        self.assertEqual(save.returncode, 128 + signal.SIGTERM)

    def test_reader_that_has_gone_ends_it_quietly(self):
        for restore_signals, status in ((True, -signal.SIGPIPE), (False, 1)):
            reader, writer = os.pipe()
            os.close(reader)
            run = self.run_command(SAVE, "p.png", stdout=writer, restore_signals=restore_signals)
            os.close(writer)
            self.assertEqual(run.returncode, status)
            self.assertEqual(run.stderr, "")
            self.assertEqual(len(self.listed()), 1)

    def test_progress_is_shown_on_a_terminal_and_erased(self):
        terminal, other_end = pty.openpty()
        self.addCleanup(os.close, terminal)
        self.run_command(SAVE, "p.png", "no\x1b.png", stderr=other_end)
        os.close(other_end)
        line = r"\r\x1b\[K\x1b\[\?7l{}\x1b\[\?7h"
        self.assertRegex(read_terminal(terminal), line.format(r"1/2 \(\d+ per second\) p\.png") +
                         line.format(r"2/2 \(\d+ per second\) no\?\.png") +
                         r"\r\x1b\[K[^\r]*no\?\.png: .*\r\n\r\x1b\[K$")


if __name__ == "__main__":
    unittest.main()
