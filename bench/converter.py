"""Measures the converter alone, with the command lines that keldothumb uses."""

import pathlib
import subprocess

from floor import djpeg_command
from photos import Photo, jpeg_size
from usage import Usage

# The memory target is for 24 megapixels, which camera makers round.
LARGE_PIXELS = 23_500_000
MOST_PIXELS = 25_000_000
LARGE_SIZE = "6000x4000!"


def command(converter, source, icc, kinds, output: pathlib.Path):
    """One phase: the first thumbnail from the source, the others from the first."""
    words = [converter, "-define", f"registry:temporary-path={output}", source]
    if icc is not None and icc.exists() and icc.stat().st_size > 0:
        words += ["-profile", icc]
    for i, kind in enumerate(kinds):
        box = f"{kind.side}x{kind.side}"
        options = ["-define", f"jpeg:size={box}", "-thumbnail", box + (">^" if kind.fill else ">"),
                   "-quality", str(kind.quality)]
        options += ["+profile", "!icc,*"] if kind.phase == 0 else []
        options += ["-flatten", "-auto-orient"]
        options += ["-unsharp", kind.unsharp] if kind.unsharp else []
        options += ["-colorspace", "sRGB"]
        target = output / kind.file_name
        if i == len(kinds) - 1:
            words += [*options, target]
        elif i == 0:
            words += ["(", "-clone", "0", *options, "-write", target, ")", "-delete", "0"]
        else:
            words += ["(", "+clone", *options, "-write", target, "+delete", ")"]
    return words


def phase(kinds, number):
    return [kind for kind in kinds if kind.phase == number]


def parts(meter, converter, photos: list[Photo], kinds, scratch: pathlib.Path):
    """The cost of each step of making the thumbnails, without keldothumb: name to Usage."""
    output = scratch / "parts"
    output.mkdir(exist_ok=True)
    bitmap, icc = output / "bitmap", output / "icc"
    base = output / phase(kinds, 0)[0].file_name
    costs = {}
    for photo in photos:
        icc.unlink(missing_ok=True)
        steps = {
            "djpeg": djpeg_command(photo.copy, bitmap, icc),
            "converter, phase 0 from djpeg's bitmap":
                lambda: command(converter, bitmap, icc, phase(kinds, 0), output),
            "converter, phase 0 from the photo itself":
                lambda: command(converter, photo.copy, None, phase(kinds, 0), output),
            "converter, phase 1": lambda: command(converter, base, None, phase(kinds, 1), output),
            "converter, phase 2": lambda: command(converter, base, None, phase(kinds, 2), output),
        }
        for name, step in steps.items():
            # Built late, since the profile exists only after djpeg has run.
            words = step() if callable(step) else step
            costs[name] = costs.get(name, Usage()) + meter.run(words)
    return costs


def large_photo(photos, scratch: pathlib.Path, imagemagick):
    """A photo of 24 megapixels: one of those given, or else the largest, enlarged. None if there is
    neither one nor ImageMagick."""
    fitting = [photo for photo in photos if LARGE_PIXELS <= _pixels(photo.copy) <= MOST_PIXELS]
    if fitting:
        return fitting[0]
    if imagemagick is None:
        return None
    made = scratch / "large.jpg"
    largest = by_pixels(photos)[0].copy
    subprocess.run([imagemagick, largest, "-resize", LARGE_SIZE, "-quality", "92", made],
                   check=True, stdin=subprocess.DEVNULL)
    return Photo(made, made)


def peak_mib(meter, converter, photo, kinds, scratch):
    """The converter's own peak over all its runs for a photo, through djpeg and directly."""
    costs = parts(meter, converter, [photo], kinds, scratch)
    return max(usage.peak_mib for name, usage in costs.items() if name != "djpeg")


def by_pixels(photos):
    """The largest first."""
    return sorted(photos, key=lambda photo: -_pixels(photo.copy))


def _pixels(path):
    width, height = jpeg_size(path)
    return width * height
