"""The photos that are measured, their thumbnails, and the folder in memory that holds both."""

import configparser
import dataclasses
import pathlib
import shutil
import struct

from usage import BenchError

JPEG_SUFFIXES = (".jpg", ".jpeg", ".jpe")
# For copies of the photos, the thumbnails of every program, and djpeg's bitmaps.
SPACE_PER_PHOTO = 64 * 1024 * 1024
# keldothumb stops below 1 GiB.
SPACE_TO_SPARE = 3 * 1024 * 1024 * 1024 // 2


@dataclasses.dataclass(frozen=True)
class Kind:
    """One thumbnail of the profile."""
    name: str  # "XL"
    file_name: str
    side: int
    fill: bool
    quality: int
    unsharp: str
    phase: int


@dataclasses.dataclass(frozen=True)
class Photo:
    source: pathlib.Path
    copy: pathlib.Path

    @property
    def thumbnails(self) -> pathlib.Path:
        """The directory where keldothumb puts them."""
        return self.copy.parent / "@eaDir" / self.copy.name


def read_kinds(profile: pathlib.Path):
    """The thumbnails of a profile file, the largest first."""
    parser = configparser.ConfigParser()
    parser.read(profile)
    kinds = []
    for section in map(parser.__getitem__, parser.sections()):
        name = pathlib.Path(section["filename"]).stem.rpartition("_")[2]
        kinds.append(Kind(name, section["filename"], int(section["size"]), name not in ("B", "S"),
                          int(section["quality"]), section.get("unsharp", ""),
                          int(section["phase"])))
    return sorted(kinds, key=lambda kind: -kind.side)


def jpeg_size(path: pathlib.Path):
    """(width, height) from the JPEG's header; None if the file is not a JPEG."""
    content = path.read_bytes()
    at = 2
    while content[:2] == b"\xff\xd8" and at + 9 <= len(content) and content[at] == 0xFF:
        marker = content[at + 1]
        if 0xC0 <= marker <= 0xCF and marker not in (0xC4, 0xC8, 0xCC):
            height, width = struct.unpack_from(">HH", content, at + 5)
            return width, height
        # Fill bytes may precede a marker.
        at += 1 if marker == 0xFF else 2 + int.from_bytes(content[at + 2:at + 4], "big")
    return None


def find_photos(directories):
    return sorted((path for directory in directories for path in pathlib.Path(directory).iterdir()
                   if path.is_file()), key=lambda path: path.name)


def evenly_spread(items, most):
    if len(items) <= most:
        return items
    return [items[i * len(items) // most] for i in range(most)]


def copy_photos(sources, directory: pathlib.Path):
    """Copies the photos under plain names, so that no peer has to handle the real ones."""
    free = shutil.disk_usage(directory).free
    needed = SPACE_TO_SPARE + len(sources) * SPACE_PER_PHOTO
    if free < needed:
        raise BenchError(f"{directory} has {free >> 20} MiB free but needs {needed >> 20}")
    photos = []
    for source in sources:
        copy = directory / f"{len(photos):04}{source.suffix.lower()}"
        shutil.copyfile(source, copy)
        photos.append(Photo(source, copy))
    return photos
