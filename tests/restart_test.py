#!/usr/bin/env python3
"""The life of two sticks across processes of the command."""
import json
import signal
import unittest

from command_fixture import USB, CommandTestCase, decode, png, table


class RestartTest(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.thumbnails = {}  # by stick

    def save(self, stick):
        run = self.run_command(f"save --index i --cache c --size 100 --device {stick}",
                               "p.png", "wide.png")
        self.assertEqual(run.returncode, 0, run.stderr)
        rows = table(run.stdout)
        self.thumbnails[stick] = [rows[picture][0] for picture in ("p.png", "wide.png")]
        return [rows[picture][-1] for picture in ("p.png", "wide.png")]

    def listed(self):
        devices = json.loads(self.run_command("list i --json").stdout)["devices"]
        return {device["id"]: [thumbnail["file"] for thumbnail in device["thumbnails"]]
                for device in devices}

    def files_of(self, stick):
        return {path: data for path, data in self.files().items() if stick in path.parts}

    def test_thumbnails_outlive_a_restart_and_go_with_their_stick(self):
        self.write({"wide.png": png(300, 170)})
        self.attach("D1", "D2")
        self.assertEqual(self.save("D1"), ["saved", "saved"])
        self.assertEqual(self.save("D2"), ["saved", "saved"])
        self.assertEqual(self.listed(), self.thumbnails)
        self.assertEqual([decode(file)[0] for file in self.thumbnails["D1"]], [(6, 4), (100, 57)])

        before = self.files()
        self.assertEqual(self.save("D1"), ["kept", "kept"])
        self.assertEqual(self.files(), before)

        watch = self.start_watch()
        self.attach("D2")
        self.assertEqual(watch.stdout.readline(), f"removed {USB}D1\n")
        watch.send_signal(signal.SIGTERM)
        self.assertEqual(watch.wait(), 0)
        self.assertEqual(self.listed(), {"D2": self.thumbnails["D2"]})
        self.assertEqual(self.files_of("D1"), {})
        self.assertEqual(self.files_of("D2").items() - before.items(), set())

        self.attach("D1", "D2")
        self.assertEqual(self.save("D2"), ["kept", "kept"])
        self.assertEqual(self.save("D1"), ["saved", "saved"])


if __name__ == "__main__":
    unittest.main()
