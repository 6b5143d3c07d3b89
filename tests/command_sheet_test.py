#!/usr/bin/env python3
"""The page that `sheet` makes, read back by a parser."""
import base64
import html.parser
import os
import pathlib
import re
import resource
import shutil
import unittest
import urllib.parse

from command_fixture import SAVE, CommandTestCase, jpeg, png

HOSTILE = ("%41?b#c&amp;.jpg", "<script>alert(1)<script>.jpg", "\x1b[31m\n.jpg", "'\\.jpg", ":a.jpg",
           "javascript:x.jpg", "\x1f\x7f~.jpg", "\u202e\u00e4.jpg", "\udcff.jpg", " .jpg")
PAGE_OF_TWO_DEVICES = pathlib.Path(__file__).parent / "sheet-of-two-devices.html"
VOID = {"meta", "link", "img"}


class Page(html.parser.HTMLParser):
    """The images of a page, and the captions; fails when tags do not match."""
    def __init__(self, text):
        super().__init__()
        self.images, self.names, self.absent, self.open = [], [], [], []
        self.tags, self.links, self.facts, self.summary, self.bar = set(), [], [], [], []
        self.titles, self.paths = [], []
        self.feed(text)
        self.close()
        assert not self.open, self.open

    def handle_starttag(self, tag, attrs):
        self.tags.add(tag)
        attributes = dict(attrs)
        if tag not in VOID:
            self.open.append((tag, attributes))
        if "width:" in attributes.get("style", ""):
            self.bar.append(attributes["style"].split("width:")[1])
        if tag == "figure":
            self.titles.append(attributes["title"])
        if tag == "img":
            self.images.append(attributes)
        self.links += [attributes[key] for key in ("src", "href") if key in attributes]

    def handle_endtag(self, tag):
        assert self.open.pop()[0] == tag

    def handle_data(self, data):
        classes = [attributes.get("class") for _, attributes in self.open]
        if classes[-1:] == ["name"]:
            self.names.append(data)
        if classes[-1:] == ["path"]:
            self.paths.append(data)
        if classes[-1:] == ["facts"]:
            self.facts.append(data)
        if self.open and self.open[-1][0] in ("dt", "dd"):
            self.summary.append(data)
        if classes[-2:] == ["absent", "frame"]:
            self.absent.append(data)


class SheetTest(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.write({"a.png": png(60, 40), "b.png": png(40, 60)})
        self.make_thumbnails("a.png", "b.png")
        self.images = self.folder / "c/D1"

    def sheet(self, options="", **settings):
        run = self.run_command(f"sheet i {options}", **settings)
        self.assertEqual(run.returncode, 0)
        self.assertEqual(run.stderr, "")
        return run.stdout

    def target(self, link, page):
        return page / urllib.parse.unquote(link, errors="surrogateescape")

    def test_page_shows_every_thumbnail(self):
        page = Page(self.sheet())
        self.assertEqual(page.names, ["a.jpg", "b.jpg"])
        self.assertEqual(page.summary[:4], ["thumbnails", "2", "device", "1"])
        self.assertEqual([image["src"] for image in page.images], ["c/D1/a.jpg", "c/D1/b.jpg"])
        self.assertEqual([(image["width"], image["height"], image["loading"])
                          for image in page.images], [("60", "40", "lazy"), ("40", "60", "lazy")])

    def test_facts_of_two_devices(self):
        self.assertEqual(self.run_command(f"{SAVE} --device D2 a.png").returncode, 0)
        self.write({"i": re.sub(rb"Size=\d+", b"Size=10485760", (self.folder / "i").read_bytes())})
        (self.images / "b.jpg").unlink()
        page = Page(self.sheet())
        self.assertEqual([os.path.dirname(image["src"]) for image in page.images], ["c/D1", "c/D2"])
        self.assertEqual(page.summary, ["thumbnails", "3", "devices", "2", "of 100 MiB", "30 MiB",
                                        "full", "30.00 %"])
        self.assertEqual(page.bar, ["20.00%", "10.00%"])
        devices = ["2 thumbnails \u00b7 20 MiB", "1 thumbnail \u00b7 10 MiB"]
        image = "60 \u00d7 40 \u00b7 10 MiB"
        self.assertEqual(page.facts, [*devices, devices[0], image, "recorded 10 MiB",
                                      devices[1], image])

    def test_page_of_two_devices(self):
        record = b'<Type=0,Path="c/%b",URL="c/%b/%b",Size=%d,Devicetype=%d>\r\n'
        self.write({"c/D1/a.jpg": jpeg(60, 40), "i": b"".join(record % (device, device, *rest) for (
            device, *rest) in ((b"D1", b"a.jpg", 10 << 20, 0), (b"C&1", b"c'd.jpg", 1 << 20, 1),
                               (b"D1", b"b.jpg", 10 << 20, 0)))})
        (self.images / "b.jpg").unlink()
        page = re.sub("(?s)<style>.*</style>", "<style></style>", self.sheet())
        self.assertEqual(page, PAGE_OF_TWO_DEVICES.read_text(encoding="utf-8"))

    def test_links_lead_from_the_page_to_the_images(self):
        (self.folder / "sub/deep").mkdir(parents=True)
        (self.folder / "link").symlink_to("sub/deep")
        for output in ("page.html", "c/page.html", "sub/deep/page.html", "link/page.html",
                       f"{self.folder}/page.html"):
            with self.subTest(output):
                self.assertEqual(self.sheet(f"--output {output}"), "")
                file = (self.folder / output).resolve()
                page = Page(file.read_text(encoding="utf-8"))
                for image, name in zip(page.images, ("a.jpg", "b.jpg"), strict=True):
                    self.assertFalse(image["src"].startswith("/"))
                    self.assertTrue(self.target(image["src"], file.parent).samefile(
                        self.images / name))

    def test_index_with_relative_paths(self):
        index = (self.folder / "i").read_bytes()
        self.write({"i": index.replace(bytes(self.folder) + b"/", b"")})
        (self.folder / "sub").mkdir()
        self.sheet("--output sub/page.html")
        page = Page((self.folder / "sub/page.html").read_text(encoding="utf-8"))
        self.assertEqual([image["src"] for image in page.images],
                         ["../c/D1/a.jpg", "../c/D1/b.jpg"])

    def test_links_do_not_depend_on_links_in_the_index(self):
        (self.folder / "sub/deep").mkdir(parents=True)
        for link, target in ("link", "sub/deep"), ("out", "c"):
            (self.folder / link).symlink_to(target)
        index = (self.folder / "i").read_bytes()
        for path in b"/link/../../c/D1", b"/out/D1":
            self.write({"i": index.replace(b"/c/D1", path)})
            self.assertEqual([image["src"] for image in Page(self.sheet()).images],
                             ["c/D1/a.jpg", "c/D1/b.jpg"])

    def test_embedded_images_are_in_the_page(self):
        os.truncate(self.images / "b.jpg", 200000)
        page = Page(self.sheet("--embed"))
        data = [base64.b64decode(image["src"].removeprefix("data:image/jpeg;base64,"),
                                 validate=True) for image in page.images]
        self.assertEqual(data, [(self.images / name).read_bytes() for name in ("a.jpg", "b.jpg")])

    def test_nothing_else_is_fetched_and_nothing_runs(self):
        page = Page(self.sheet())
        self.assertNotIn("script", page.tags)
        others = [link for link in page.links if not link.startswith(("c/D1/", "#device-"))]
        self.assertEqual(others, ["data:,"])
        self.assertNotIn("url(", self.sheet())
        self.assertIn("default-src 'none'", self.sheet())

    def test_what_is_missing_shows_as_such(self):
        (self.images / "a.jpg").unlink()
        for other in b"text", jpeg(6, 4).replace(b"\x08\0\4", b"\x08\0\0"):  # 0 pixels high
            (self.images / "b.jpg").write_bytes(other)
            page = Page(self.sheet())
            self.assertEqual(page.images, [])
            self.assertEqual(page.names, ["a.jpg", "b.jpg"])
            self.assertEqual(page.absent, ["missing", "no image"])
        shutil.rmtree(self.images)
        self.assertEqual(Page(self.sheet()).absent, ["missing", "missing"])

    def test_size_is_told_as_soon_as_the_image_has_said_it(self):
        whole = (self.images / "a.jpg").read_bytes()
        frame = whole.index(b"\xff\xc0")
        behind = frame + 2 + int.from_bytes(whole[frame + 2:frame + 4], "big")
        for end in range(frame, behind + 2):
            (self.images / "a.jpg").write_bytes(whole[:end])
            page = Page(self.sheet())
            self.assertEqual([(image["width"], image["height"]) for image in page.images[:-1]],
                             [("60", "40")] if end >= behind else [])
            self.assertEqual(page.absent, [] if end >= behind else ["no image"])

    def test_preset_block_behind_an_image_is_harmless(self):
        with open(self.images / "a.jpg", "ab") as image:
            image.write(b"<preset>".ljust(4096, b"\0"))
        self.assertEqual(len(Page(self.sheet()).images), 2)
        self.assertEqual(len(Page(self.sheet("--embed")).images), 2)

    def test_hostile_names(self):
        folder = self.folder / "c" / "D&'<b> %"
        folder.mkdir()
        record = '<Type=0,Path="%s",URL="%s/%s",Size=5,Devicetype=0>\r\n'
        names = [name for name in HOSTILE if ">" not in name]
        for name in names:
            (folder / name).write_bytes(jpeg(6, 4, 1))
        # The index cannot hold a ">", but a folder's name as it is in the record may hold the rest.
        path = str(folder).replace(">", "")
        folder.rename(path)
        (self.folder / "i").write_bytes(b"".join(
            os.fsencode(record % (path, path, name)) for name in names))
        (self.folder / "i").rename(self.folder / "<u>")
        self.run_command("sheet <u> --output", f"{path}/page.html")  # its links begin with the names
        pages = {self.folder: self.run_command("sheet <u>").stdout,
                 pathlib.Path(path): pathlib.Path(path, "page.html").read_text("utf-8")}
        for place, page in ((place, Page(text)) for place, text in pages.items()):
            self.assertEqual(page.tags & {"b", "u"}, set())
            for image, name in zip(page.images, names, strict=True):
                self.assertEqual(self.target(image["src"], place), pathlib.Path(path, name))
                self.assertEqual(urllib.parse.urlsplit(image["src"])[:2], ("", ""))
                self.assertTrue(image["src"].isascii())
        shown = [name.translate(dict.fromkeys((0x1b, 10, 0x1f, 0x7f, 0xdcff), "\ufffd"))
                 for name in names]
        self.assertEqual(page.names, shown)
        self.assertEqual(page.titles, [f"{path}/{name}" for name in shown])
        self.assertEqual(page.paths, ["<u>", path])

    def test_page_is_replaced_as_a_whole_or_not_at_all(self):
        self.write({"page.html": b"old"})
        self.assertEqual(self.run_command("sheet gone --output page.html").returncode, 1)
        run = self.run_command("sheet i --output page.html", restore_signals=False,
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (9, 9)))
        self.assertEqual(run.returncode, 1)
        self.assertIn("page.html: File too large", run.stderr)
        self.assertEqual((self.folder / "page.html").read_bytes(), b"old")
        self.sheet("--output page.html")
        self.assertTrue((self.folder / "page.html").read_text("utf-8").endswith("</html>\n"))
        self.assertEqual(list(self.folder.glob("page.html?*")), [])

    def test_page_that_cannot_be_written_is_told(self):
        for line in ("sheet i --output no/page.html", "sheet i --output c"):
            self.check_refusal(line, 1, "no/page|no'?\"?|: c:|c: ")

    def test_empty_cache(self):
        self.write({"i": b""})
        page = self.sheet()
        self.assertIn('<p class="empty">The cache holds no thumbnails.</p>\n</body></html>\n', page)
        self.assertEqual(Page(page).summary, ["thumbnails", "0", "devices", "0", "of 100 MiB", "0 B",
                                              "full", "0.00 %"])
        self.write({"i": b'<Type=0,Path="c/D1",URL="c/D1/a.jpg",Size=1,Devicetype=0>\r\n'})
        self.assertEqual(Page(self.sheet()).summary[:4], ["thumbnail", "1", "device", "1"])


if __name__ == "__main__":
    unittest.main()
