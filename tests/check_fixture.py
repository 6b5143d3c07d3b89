"""A cache that can be damaged, and what `check` and --repair make of it."""
import os
import re
import shutil

from command_fixture import CommandTestCase, jpeg, png

MIB = 1 << 20
FOLDER = rb"<Type=1[^>]*>\r\n"
ALL, NO_A, NO_B, NO_C = (["a.jpg", "b.jpg", "c.jpg"], ["b.jpg", "c.jpg"], ["a.jpg", "c.jpg"],
                         ["a.jpg", "b.jpg"])


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


class CheckTestCase(CommandTestCase):
    def setUp(self):
        super().setUp()
        self.write({"outside.jpg": jpeg(6, 4, 1)})
        self.write({f"{name}.png": png(size, 7) for name, size in (("a", 9), ("b", 30), ("c", 99))})
        self.cache = Cache(self.folder)
        self.made = {}  # by path: what a cache consists of when it is made

    def make_cache(self):
        shutil.rmtree(self.folder / "c", ignore_errors=True)
        self.write(self.made)
        if not self.made:
            self.make_thumbnails("a.png", "b.png", "c.png")
            self.made = {path: path.read_bytes() for path in
                         (self.cache.index, *self.thumbnails("D1"))}

    def check(self, status, *options):
        """The output, with paths as from the folder of the test, and for each place in the index
        what stands there."""
        index = self.cache.index.read_bytes()
        run = self.run_command("check i", *options)
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.returncode, status, run.stdout)
        return self.shown(run.stdout, index)

    def shown(self, output, index):
        def text(place):
            begin, length = int(place[1]), int(place[2])
            self.assertEqual(place[3], "" if length == 1 else "s")
            found = index[begin:begin + length].decode("latin-1").replace(f"{self.folder}/", "")
            found = re.sub(r"\b\d{3,4}(?=,Device)", "N", found)  # the size of an image
            return "at %r:" % (found if len(found) < 120 else f"{found[:20]}...{found[-20:]}")
        return re.sub(r"at byte (\d+), (\d+) byte(s?):", text, output).replace(f"{self.folder}/", "")

    def sound(self):
        """What is said of the index and the images as they are now, if they are as they should be."""
        names = set(self.cache.recorded())
        size = sum(os.path.getsize(self.cache.images / name) for name in names)
        return f"i: sound, {count(len(names), 'thumbnail')}, {size_text(size)}\n"

    def check_findings(self, findings, notes=()):
        """Sees that nothing but these lines is found, and nothing changed."""
        before = self.files()
        self.assertEqual(self.check(4).splitlines(), [
            *findings, *notes,
            f"i: {count(len(findings), 'finding')}; --repair mends what can be mended"])
        self.assertEqual(self.files(), before)

    def check_repair(self, findings, thumbnails):
        """Sees that all is mended, what is said of it, and that then there is nothing to be done."""
        before = self.files()
        output = self.check(1, "--repair")
        after = self.files()
        self.assertEqual(self.cache.recorded(), sorted(thumbnails))
        kept = {path: data for path, data in before.items() if path in after}
        self.assertEqual({**after, self.cache.index: b""}, {**kept, self.cache.index: b""})
        rewrote = f"rewrote i with the records of {count(len(thumbnails), 'thumbnail')}"
        removed = sorted(f"removed c/D1/{path.name}" for path in before.keys() - after.keys()
                         if path.parent == self.cache.images)
        self.assertEqual(output.splitlines(True), [line + "\n" for line in (
            *findings, *([rewrote] if before[self.cache.index] != after[self.cache.index] else []),
            *removed, f"i: {count(len(findings), 'finding')}, all mended")] + [self.sound()])
        self.assertEqual(self.check(0, "--repair"), self.sound())
        self.assertEqual(self.files(), after)


def count(number, what):
    return f"{number} {what}" + ("" if number == 1 else "s")


def size_text(size):
    """A size as it is told for people; of 1000 MiB at most."""
    for unit in "B", "KiB", "MiB":
        if size < 1023.5:
            break
        size /= 1024
    return f"{size:.{1 if unit != 'B' and size < 9.95 else 0}f} {unit}"
