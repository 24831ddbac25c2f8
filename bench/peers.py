"""Other programs that make the same six thumbnails: the same sizes, JPEG quality 90, colour at full
resolution, and the closest sharpening that each offers. All use one thread, which costs the least
CPU time, and may process any number of photos in a process."""

import json
import os
import pathlib
import shutil
import subprocess

from photos import Photo, jpeg_size
from usage import BenchError, Meter, Usage

ONE_THREAD = {"OMP_NUM_THREADS": "1", "VIPS_CONCURRENCY": "1"}
SHARP_ARRANGEMENTS = ("memory", "cascade", "file", "photo")
STANDARD_TABLES = ", standard tables"


class Peer:
    """A program that writes its thumbnails to a separate directory."""
    name = ""

    def __init__(self, meter: Meter, scratch: pathlib.Path, kinds):
        self._meter = meter
        self._output = scratch / type(self).__name__.lower()
        self._kinds = kinds
        self._environment = {**os.environ, **ONE_THREAD}

    def prefix(self, photo: Photo) -> pathlib.Path:
        return self._output / photo.copy.stem

    def thumbnail(self, photo: Photo, kind) -> pathlib.Path:
        return self._output / f"{photo.copy.stem}_{kind.name}.jpg"

    def clean(self, _photos):
        shutil.rmtree(self._output, ignore_errors=True)
        self._output.mkdir()

    def _measure(self, command) -> Usage:
        return self._meter.run(command, environment=self._environment)


class Sharp(Peer):
    """sharp, with one of several arrangements of the same work."""

    def __init__(self, meter, scratch, kinds, module, arrangement, standard_tables):
        super().__init__(meter, scratch, kinds)
        self.arrangement = arrangement + (STANDARD_TABLES if standard_tables else "")
        self.name = f"sharp, one process: {self.arrangement}"
        self._jobs = scratch / "sharp.json"
        self._environment["KELDO_BENCH_SHARP"] = str(module)

    def run(self, photos) -> Usage:
        kinds = [{"name": kind.name, "side": kind.side, "fill": kind.fill,
                  "sharpen": bool(kind.unsharp), "quality": kind.quality} for kind in self._kinds]
        jobs = [{"photo": str(photo.copy), "prefix": str(self.prefix(photo))} for photo in photos]
        self._jobs.write_text(json.dumps({"kinds": kinds, "photos": jobs}))
        script = pathlib.Path(__file__).with_name("sharp_six.js")
        return self._measure(["node", script, self.arrangement, self._jobs])


class VipsProgram(Peer):
    """A C program that uses libvips."""
    name = "libvips, one C process"

    def __init__(self, meter, scratch, kinds, program):
        super().__init__(meter, scratch, kinds)
        self._program = program

    def run(self, photos) -> Usage:
        words = [word for photo in photos for word in (photo.copy, self.prefix(photo))]
        return self._measure([self._program, *words])


class VipsThumbnail(Peer):
    """The command line tool of libvips: 1280 first, then five from that. It does not sharpen."""
    name = "vipsthumbnail, 1280 first"

    def __init__(self, meter, scratch, kinds, reference):
        super().__init__(meter, scratch, kinds)
        self._reference = reference

    def _run_kind(self, inputs, kind) -> Usage:
        """It only fits images inside a box. To fill the box, the longer side is left open."""
        usage = Usage()
        open_ended = {False: f"x{kind.side}", True: f"{kind.side}x"} if kind.fill else None
        for tall in (False, True):
            chosen = [path for path, is_tall in inputs if is_tall == tall]
            size = open_ended[tall] if open_ended else f"{kind.side}x{kind.side}"
            if chosen:
                usage += self._measure(["vipsthumbnail", "--size", f"{size}>", "-o",
                                        f"{self._output}/%s_{kind.name}.jpg[Q=90,strip]", *chosen])
        return usage

    def run(self, photos) -> Usage:
        first, *others = self._kinds
        tall = {photo: self._is_tall(self._reference[photo, first]) for photo in photos}
        usage = self._run_kind([(photo.copy, tall[photo]) for photo in photos], first)
        # A directory of links gives 0000_XL.jpg the name 0000.jpg, from which outputs get theirs.
        bases = self._output / "bases"
        bases.mkdir()
        for photo in photos:
            (bases / f"{photo.copy.stem}.jpg").symlink_to(self.thumbnail(photo, first))
        for kind in others:
            usage += self._run_kind(
                [(bases / f"{photo.copy.stem}.jpg", tall[photo]) for photo in photos], kind)
        return usage

    @staticmethod
    def _is_tall(thumbnail):
        width, height = jpeg_size(thumbnail)
        return height > width


class GraphicsMagick(Peer):
    """GraphicsMagick: one batch process, one decode at a reduced size, five from the first
    thumbnail in memory. It is given exact sizes, since it would enlarge small photos to fill a
    box."""
    name = "GraphicsMagick, one process"

    def __init__(self, meter, scratch, kinds, reference):
        super().__init__(meter, scratch, kinds)
        self._reference = reference

    def run(self, photos) -> Usage:
        script = self._output / "batch"
        script.write_text("".join(line for photo in photos for line in self._lines(photo)))
        return self._measure(["gm", "batch", "-stop-on-error", "on", script])

    def _lines(self, photo):
        first, *others = self._kinds
        yield (f"convert -size {first.side}x{first.side} {photo.copy} -auto-orient "
               f"{self._options(photo, first)} -write {self.thumbnail(photo, first)} mpr:first\n")
        for kind in others:
            yield (f"convert mpr:first {self._options(photo, kind)} "
                   f"{self.thumbnail(photo, kind)}\n")

    def _options(self, photo, kind):
        width, height = jpeg_size(self._reference[photo, kind])
        unsharp = f" -unsharp {kind.unsharp}" if kind.unsharp else ""
        return (f"-thumbnail {width}x{height}! -quality {kind.quality} "
                f"-sampling-factor 1x1 +profile !icm,*{unsharp}")


def _run_quietly(command, what):
    run = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if run.returncode != 0:
        raise BenchError(f"{what} failed:\n{run.stdout[-2000:]}")
    return run.stdout


def install_sharp(cache: pathlib.Path):
    """The module of sharp, installed in the cache if it is not there yet. None without npm."""
    directory = cache / "npm"
    module = directory / "node_modules" / "sharp"
    if not shutil.which("node"):
        return None
    if not module.exists():
        if not shutil.which("npm"):
            return None
        directory.mkdir(parents=True, exist_ok=True)
        # If the installation fails, the others are still measured.
        if subprocess.run(["npm", "install", "--prefix", directory, "--no-audit", "--no-fund",
                           "--loglevel=error", "sharp"], check=False,
                          stdin=subprocess.DEVNULL).returncode != 0:
            return None
    return module


def build_vips_program(cache: pathlib.Path):
    """vips_six, compiled in the cache. None without the headers of libvips."""
    if not shutil.which("pkg-config") or subprocess.run(
            ["pkg-config", "--exists", "vips"], check=False).returncode != 0:
        return None
    flags = _run_quietly(["pkg-config", "--cflags", "--libs", "vips"], "pkg-config").split()
    source = pathlib.Path(__file__).with_name("vips_six.c")
    program = cache / "vips_six"
    _run_quietly(["cc", "-O2", "-Wall", "-Wextra", source, *flags, "-o", program], str(source))
    return program


def available(meter, scratch, kinds, cache, reference):
    """The peers that are available, and a message for each one that is not."""
    peers, missing = [], []
    module = install_sharp(cache)
    if module:
        peers += [Sharp(meter, scratch, kinds, module, arrangement, standard_tables)
                  for arrangement in SHARP_ARRANGEMENTS for standard_tables in (False, True)]
    else:
        missing.append("sharp: missing; apt-get install nodejs npm (and a reachable npm registry)")
    program = build_vips_program(cache)
    if program:
        peers.append(VipsProgram(meter, scratch, kinds, program))
    else:
        missing.append("libvips program: missing; apt-get install libvips-dev")
    if shutil.which("gm"):
        peers.append(GraphicsMagick(meter, scratch, kinds, reference))
    else:
        missing.append("GraphicsMagick: missing; apt-get install graphicsmagick")
    if shutil.which("vipsthumbnail"):
        peers.append(VipsThumbnail(meter, scratch, kinds, reference))
    else:
        missing.append("vipsthumbnail: missing; apt-get install libvips-tools")
    return peers, missing
