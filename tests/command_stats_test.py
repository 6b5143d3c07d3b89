#!/usr/bin/env python3
"""What `stats` and `list` say of a cache."""
import json
import os
import pathlib
import re
import subprocess
import unittest

from command_fixture import COMMAND, PATIENCE, RESERVES_MEMORY, CommandTestCase, jpeg, table

MIB = 1 << 20
MANUAL = pathlib.Path(__file__).parent.parent / "tools/zel-thumbnail-cache.1"


def record(device, name, size, kind=0):
    return b'<Type=0,Path="c/%b",URL="c/%b/%b",Size=%d,Devicetype=%d>\r\n' % (
        device, device, name, size, kind)


class StatsTest(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.write({"i": b"".join((
            2 * b'<Type=1,Sid="D1",Path="c/D1",Devicetype=0>\r\n', record(b"D1", b"a.jpg", 10 * MIB),
            record(b"D\x1b[31m", b"\n\xff.jpg", 1000, 1), record(b"D1", b"b.jpg", 20 * MIB))),
                    "c/D1/a.jpg": jpeg(6, 4, 1), "c/D1/b.jpg": jpeg(6, 4, 1)})
        os.utime(self.folder / "c/D1/b.jpg", (86400, 86400))
        os.utime(self.folder / "c/D1/a.jpg", (10 * 86400, 10 * 86400))
        self.settings["env"]["TZ"] = "EAST-2"  # two hours before UTC

    def test_statistics(self):
        lines = self.run_command("stats i").stdout.splitlines()
        self.assertEqual([line.rstrip() for line in lines], [
            "thumbnails  3",
            "in all      30 MiB of 100 MiB",
            "            " + "\u2588" * 13 + "\u2591" * 27 + " 30.00 %",
            "size        median 10 MiB, largest 20 MiB",
            "room        6 more of the median size",
            "index       5 records",
            "",
            "KIND   ID     THUMBNAILS   SIZE OLDEST           NEWEST",
            "usb    D1              2 30 MiB 1970-01-02 02:00 1970-01-11 02:00",
            "camera D?[31m          1 1000 B -                -"])

    def test_statistics_as_json(self):
        self.assertEqual(json.loads(self.run_command("stats i --json").stdout), {
            "thumbnails": 3, "bytes": 30 * MIB + 1000, "ceiling": 100 * MIB, "records": 5,
            "median": 10 * MIB, "largest": 20 * MIB, "room": 6, "devices": [
                {"kind": "usb", "id": "D1", "thumbnails": 2, "bytes": 30 * MIB,
                 "oldest": "1970-01-02T00:00:00Z", "newest": "1970-01-11T00:00:00Z"},
                {"kind": "camera", "id": "D\x1b[31m", "thumbnails": 1, "bytes": 1000,
                 "oldest": None, "newest": None}]})

    def test_cache_that_holds_too_much_has_no_room(self):
        self.write({"i": record(b"D1", b"a.jpg", 60 * MIB) + record(b"D1", b"b.jpg", 70 * MIB)})
        statistics = json.loads(self.run_command("stats i --json").stdout)
        self.assertEqual([statistics[key] for key in ("bytes", "median", "room")],
                         [130 * MIB, 70 * MIB, 0])
        self.assertIn("\u2588" * 40 + " 130.00 %\n", self.run_command("stats i").stdout)

    def test_times_are_of_the_files_that_are_there(self):
        (self.folder / "c/D1/a.jpg").unlink()
        device, _ = json.loads(self.run_command("stats i --json").stdout)["devices"]
        self.assertEqual([device["oldest"], device["newest"]], ["1970-01-02T00:00:00Z"] * 2)
        (self.folder / "c/D1/a.jpg").symlink_to("b.jpg")  # which has a time of its own
        os.utime(self.folder / "c/D1/a.jpg", (0, 4 * 86400), follow_symlinks=False)
        device, _ = json.loads(self.run_command("stats i --json").stdout)["devices"]
        self.assertEqual(device["newest"], "1970-01-05T00:00:00Z")

    def test_folders_of_one_name_are_told_apart(self):
        other = record(b"D1.0", b"a.jpg", 9).replace(b"c/D", b"d/D")
        self.write({"i": other + record(b"D1.0", b"a.jpg", 7)})
        devices = json.loads(self.run_command("list i --json").stdout)["devices"]
        self.assertEqual([(device["id"], device["path"], device["bytes"]) for device in devices],
                         [("D1.0", "d/D1.0", 9), ("D1.0", "c/D1.0", 7)])

    def test_names_reach_the_output_without_control_characters(self):
        for line in "list i", "stats i":
            self.assertNotIn("\x1b", self.run_command(line).stdout)

    def test_empty_cache(self):
        self.write({"i": b""})
        self.assertEqual(self.run_command("stats i").stdout,
                         "thumbnails  0\nin all      0 B of 100 MiB\n"
                         "            " + "\u2591" * 40 + " 0.00 %\nsize        median 0 B, largest 0 B\n"
                         "room        0 more of the median size\nindex       0 records\n\n")
        self.assertEqual(self.run_command("list i").stdout, "0 thumbnails, 0 B, 0.00 % of 100 MiB\n")
        statistics = json.loads(self.run_command("stats i --json").stdout)
        self.assertEqual([statistics[key] for key in ("thumbnails", "median", "largest", "devices")],
                         [0, 0, 0, []])

    def test_sizes_are_told_for_people(self):
        sizes = {0: "0 B", 1023: "1023 B", 1024: "1.0 KiB", 10188: "9.9 KiB", 10189: "10 KiB",
                 1048063: "1023 KiB", 1048064: "1.0 MiB", 104857600: "100 MiB",
                 1073217535: "1023 MiB", 1073217536: "1.0 GiB", 2000000000: "1.9 GiB"}
        for size, text in sizes.items():
            with self.subTest(size):
                self.write({"i": record(b"D1", b"a.jpg", size)})
                self.assertRegex(self.run_command("list i").stdout,
                                 rf"THUMBNAIL +SIZE\nc/D1/a.jpg +{text}\n1 thumbnail, {text}, ")
                self.assertEqual(table(self.run_command("list i --bytes").stdout)["c/D1/a.jpg"],
                                 [str(size)])

    def test_other_locale_does_no_harm(self):
        for verb in ("stats i", "list i", "check i", "sheet i"):
            with self.subTest(verb):
                run = self.run_command(verb, env={**self.settings["env"], "LC_ALL": "C"})
                self.assertEqual(run.stderr, "")
        run = self.run_command("stats i", env={**self.settings["env"], "LC_ALL": "C"})
        self.assertRegex(run.stdout, r"(?m)^ +#{13}\.{27} 30.00 %$")

    @unittest.skipIf(RESERVES_MEMORY, "what is made here may be no locale for an emulated machine")
    def test_numbers_have_a_point_where_people_write_a_comma(self):
        self.write({"definition": b'LC_NUMERIC\ndecimal_point "<U002C>"\nthousands_sep ""\n'
                                  b'grouping -1\nEND LC_NUMERIC\n'})
        subprocess.run(["localedef", "-c", "-i", "./definition", "./comma"], check=False,
                       capture_output=True, **self.settings)  # which warns of what it lacks
        self.assertTrue((self.folder / "comma/LC_NUMERIC").exists())
        for verb in ("stats i", "list i", "sheet i"):
            with self.subTest(verb):
                run = self.run_command(verb, env={
                    **self.settings["env"], "LOCPATH": str(self.folder), "LC_ALL": "comma"})
                self.assertRegex(run.stdout, r"\b30\.00 ?%")

    def test_reader_that_goes_away_ends_it_quietly(self):
        self.write({"i": b"".join(record(b"D1", b"%d.jpg" % i, 1) for i in range(5000))})
        for verb in ("list", "list --json", "check", "sheet"):
            with self.subTest(verb):
                run = subprocess.run(["sh", "-c", '"$@" | head -n 1', "sh", *COMMAND, *verb.split(),
                                      "i"], check=True, capture_output=True, timeout=PATIENCE,
                                     **self.settings)
                self.assertEqual(run.stderr, "")
                self.assertEqual(len(run.stdout.splitlines()), 1)

    def test_every_verb_explains_itself(self):
        synopses = dict(re.findall(r"(?s)\.B zel-thumbnail-cache (\w+)\n(.*?)(?=\.br|\.SH)",
                                   MANUAL.read_text(encoding="utf-8")))
        verbs = re.search("first argument is (.*)", self.run_command("").stderr)[1]
        for verb in re.findall(r"\w+", verbs.split(" (")[0].replace(" or ", " ")):
            with self.subTest(verb):
                run = self.run_command(f"{verb} --help")
                self.assertEqual(run.returncode, 0)
                self.assertIn(f"zel-thumbnail-cache {verb} ", run.stdout)
                self.assertIn("--help", run.stdout)
                self.assertEqual(set(re.findall(r"(?m)^ +--([a-z]+)", run.stdout)),
                                 {"help", *re.findall(r"\\-\\-([a-z]+)", synopses[verb])})


if __name__ == "__main__":
    unittest.main()
