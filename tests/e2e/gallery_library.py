"""Photo libraries with thumbnails, for the test of the gallery page."""

import os
import subprocess

KINDS = {"S": 120, "SM": 240, "M": 320, "B": 640, "L": 800, "XL": 1280}
PHOTO_TIME = 1_600_000_000

NOT_UTF8_NAME = b"caf\xe9\xff.jpg"
# Names that would break a careless page, URL or command.
SCRIPT_NAME = b"<img src=x onerror=hacked=1>.jpg"
HOSTILE_NAMES = [
    SCRIPT_NAME,
    b"<!--<script>.jpg",
    b"50% #1?&amp;.jpg",
    b"a\"b'c`\\d.jpg",
    b"line\nfeed\t.jpg",
    b"%41%2e.jpg",
    b"-rf.jpg",
    b"javascript:hacked=1.jpg",
    b" [space]* .jpg",
    "accent\u00e9 \u65e5\u672c \U0001f4f7\u202ecod.jpg".encode(),
    "line\u2028separator.jpg".encode(),
    NOT_UTF8_NAME,
]


class Library:
    """Photos below a directory; names are bytes."""

    def __init__(self, root):
        self.root = os.fsencode(root)
        self.thumbs = {}
        for kind, side in KINDS.items():
            path = os.path.join(root, f"model-{kind}.jpeg")
            # In landscape format.
            subprocess.run(
                ["/usr/bin/convert", "-size", f"{side}x{side * 3 // 4}", "gradient:teal-orange",
                 path], check=True)
            with open(path, "rb") as model:
                self.thumbs[kind] = model.read()
            os.remove(path)

    def path(self, name):
        return os.path.join(self.root, name)

    def photo(self, name, content=b"photo", kinds=(), older_names=False):
        """A photo with these kinds of thumbnails."""
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as photo:
            photo.write(content)
        os.utime(path, (PHOTO_TIME, PHOTO_TIME))
        for kind in kinds:
            separator = b":" if older_names else b"_"
            self._thumb(name, b"KELDOPHOTO" + separator + b"THUMB_" + kind.encode() + b".jpg",
                        self.thumbs[kind])

    def finished(self, name):
        self.photo(name, kinds=KINDS)

    def failed(self, name, content=b""):
        """A photo whose thumbnails could not be made."""
        self.photo(name, content)
        for kind in KINDS:
            self._thumb(name, b"KELDOPHOTO_THUMB_" + kind.encode() + b".fail", b"")

    def _thumb(self, name, file, content):
        folder, photo = os.path.split(self.path(name))
        metadata = os.path.join(folder, b"@eaDir", photo)
        os.makedirs(metadata, exist_ok=True)
        with open(os.path.join(metadata, file), "wb") as thumb:
            thumb.write(content)


def fill(library):
    """The library that most tests use: 34 photos in five folders."""
    for number in range(12):
        library.finished(b"photo/2023/beach-%02d.jpg" % number)
    for number in range(6):
        library.finished(b"photo/2024/winter/snow-%02d.jpg" % number)
    library.photo(b"photo/2024/older.jpg", kinds=KINDS, older_names=True)
    for name in HOSTILE_NAMES:
        library.finished(b"photo/odd #%1 <b>/" + name)
    library.failed(b"photo/broken/empty.jpg")
    library.photo(b"photo/broken/partly.jpg", kinds=["XL", "B", "M"])
    library.photo(b"photo/broken/undone.jpg")
