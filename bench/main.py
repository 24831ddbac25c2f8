#!/usr/bin/python3
"""Compares keldothumb with other programs that make the same thumbnails; see
docs/performance.md."""

import argparse
import datetime
import os
import pathlib
import platform
import shutil
import signal
import subprocess
import sys
import tempfile

import converter as converter_runs
import peers
import report
from details import Details
from floor import DJPEG, Floor, djpeg_command
from keldothumb import Keldothumb
from photos import (JPEG_SUFFIXES, copy_photos, evenly_spread, find_photos, jpeg_size, read_kinds)
from usage import BenchError, Meter

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
IMAGEMAGICK = pathlib.Path("/usr/bin/convert")
QUICK_PHOTOS = 6
# Peers round sides differently.
TOLERATED_PIXELS = 1


def parse_arguments():
    cache = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or "~/.cache").expanduser()
    parser = argparse.ArgumentParser(
        prog="scripts/bench",
        description="Makes the thumbnails of the JPEG photos in each DIR with several programs, "
        "entirely in memory, and prints what each costs. It does not touch the photos or the "
        "installed keldothumb.")
    parser.add_argument("directories", metavar="DIR", nargs="+", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=5, metavar="N",
                        help="how often each program runs; they alternate (default: 5)")
    parser.add_argument("--quick", action="store_true",
                        help=f"one round, at most {QUICK_PHOTOS} of the photos")
    parser.add_argument("--details", action="store_true",
                        help="instead of the comparison, measure start-up, the parts of a run, "
                        "other formats and runs with nothing to do")
    parser.add_argument("--markdown", action="store_true", help="print the tables as Markdown")
    parser.add_argument("--cache", type=pathlib.Path, default=cache / "keldothumb-bench",
                        metavar="DIR",
                        help="where peers are installed (default: ~/.cache/keldothumb-bench)")
    parser.add_argument("--build", type=pathlib.Path, default=REPOSITORY / "build" / "release",
                        metavar="DIR", help="the build to measure (default: build/release)")
    arguments = parser.parse_args()
    for directory in arguments.directories:
        if not directory.is_dir():
            parser.error(f"not a folder: {directory}")
    if arguments.rounds < 1:
        parser.error("--rounds must be at least 1")
    if arguments.quick:
        arguments.rounds = 1
    return arguments


class Bench:
    """What all measurements share."""

    def __init__(self, arguments, scratch: pathlib.Path):
        self.build = arguments.build.resolve()
        self.scratch = scratch
        self.converter = self.build / "bin" / "convert-thumb"
        self.imagemagick = IMAGEMAGICK if IMAGEMAGICK.exists() else None
        self.policy = REPOSITORY / "config" / "convert-policy"
        self.profile = REPOSITORY / "config" / "thumb.conf"
        self.kinds = read_kinds(self.profile)
        self.meter = Meter(self.build / "bench" / "bench_measure", scratch)
        self.sources = find_photos(arguments.directories)
        # By name, as keldothumb does, and also by content, so that every program can read them.
        jpegs = [path for path in self.sources
                 if path.suffix.lower() in JPEG_SUFFIXES and jpeg_size(path)]
        if not jpegs:
            raise BenchError("no JPEG photos there")
        if arguments.quick:
            jpegs = evenly_spread(jpegs, QUICK_PHOTOS)
        directory = scratch / "photos"
        directory.mkdir()
        self.photos = [photo for photo in copy_photos(jpegs, directory) if self._is_sound(photo)]
        if not self.photos:
            raise BenchError("no JPEG photos there that djpeg reads")
        sizes = [jpeg_size(photo.copy) for photo in self.photos]
        self.megapixels = sum(width * height for width, height in sizes) / 1e6 / len(sizes)

    def _is_sound(self, photo):
        """Damaged photos are left out, since each program would handle them differently."""
        try:
            self.meter.run(djpeg_command(photo.copy, self.scratch / "sound.bmp",
                                         self.scratch / "sound.icc"))
        except BenchError:
            print(f"scripts/bench: left out, since djpeg reports an error: {photo.source}",
                  file=sys.stderr)
            photo.copy.unlink()
            return False
        return True

    def converters(self):
        yield "our converter", self.converter
        if self.imagemagick:
            yield "ImageMagick", self.imagemagick

    def keldothumb_ways(self):
        for name, program in self.converters():
            yield Keldothumb(f"keldothumb with {name}", program, self)

    def reference(self):
        """Finished thumbnails, for the floor and for checking sizes. The last converter makes them,
        which is ImageMagick if it is installed."""
        way = list(self.keldothumb_ways())[-1]
        way.clean(self.photos)
        way.run(self.photos)
        directory = self.scratch / "reference"
        directory.mkdir()
        paths = {}
        for photo in self.photos:
            for kind in self.kinds:
                path = directory / f"{photo.copy.stem}_{kind.file_name}"
                shutil.copyfile(way.thumbnail(photo, kind), path)
                paths[photo, kind] = path
        way.clean(self.photos)
        return paths

    def run(self, way, reference):
        """Measures one run, and checks its thumbnails before it counts."""
        way.clean(self.photos)
        usage = way.run(self.photos)
        if hasattr(way, "thumbnail"):
            tolerance = 0 if isinstance(way, Keldothumb) else TOLERATED_PIXELS
            for (photo, kind), expected in reference.items():
                check_size(way, photo, kind, jpeg_size(expected), tolerance)
                usage.file_bytes += way.thumbnail(photo, kind).stat().st_size
        way.clean(self.photos)
        return usage


def check_size(way, photo, kind, expected, tolerance):
    path = way.thumbnail(photo, kind)
    made = jpeg_size(path) if path.exists() else None
    if made is None or max(abs(a - b) for a, b in zip(made, expected)) > tolerance:
        raise BenchError(f"{way.name}: {kind.name} of {photo.source} is {made}, not {expected}")


def show_progress(progress):
    """Updates a line on a terminal; prints nothing elsewhere."""
    if sys.stderr.isatty():
        print(f"\r{progress:79}\r", end="", file=sys.stderr, flush=True)


def choose_ways(bench: Bench, cache, reference):
    """The programs to compare, by the keys of the verdicts, and notes to print below the table."""
    found, notes = peers.available(bench.meter, bench.scratch, bench.kinds, cache, reference)
    ways = {report.FLOOR: Floor(bench.build / "bench" / "bench_floor", bench.meter, bench.scratch,
                                reference, bench.kinds)}
    ways |= dict(zip(("ours", "imagemagick"), bench.keldothumb_ways()))
    sharps = [way for way in found if isinstance(way, peers.Sharp)]
    if sharps:
        best, note = best_sharps(bench, sharps, reference)
        ways |= best
        notes.append(note)
    ways |= {type(way).__name__: way for way in found if way not in sharps}
    return ways, notes


def run_rounds(bench: Bench, ways, rounds, reference):
    """The cost of each program in each round, and that of the second floor under the key "base"."""
    costs = {}
    for key in ways:
        costs[key] = []
        if key == report.FLOOR:
            costs["base"] = []
    for number in range(rounds):
        # The first one in a round is the last one in the next.
        keys = list(ways)
        for key in keys[number % len(keys):] + keys[:number % len(keys)]:
            show_progress(f"round {number + 1} of {rounds}: {ways[key].name}")
            costs[key].append(bench.run(ways[key], reference))
        costs["base"].append(costs[report.FLOOR][-1] + ways[report.FLOOR].base_decodes)
    show_progress("")
    return costs


def compare(bench: Bench, rounds, markdown, cache):
    reference = bench.reference()
    ways, notes = choose_ways(bench, cache, reference)
    costs = run_rounds(bench, ways, rounds, reference)
    names = {key: way.name for key, way in ways.items()}
    names["base"] = "floor, and the XL decoded twice"
    print(report.table(report.make_rows(costs, names, len(bench.photos)), markdown), end="\n\n")
    peaks = converter_peaks(bench)
    notes += [f"{name} alone, a JPEG of 24 megapixels: peak {peak:.1f} MiB"
              for name, peak in peaks.items()]
    # A list in Markdown, where plain lines would run together.
    bullet = "- " if markdown else ""
    verdicts = report.verdicts(costs, peaks.get("our converter"))
    for line in (*verdicts, *report.beside_the_fastest_sharp(costs), *notes):
        print(f"{bullet}{line}")


def best_sharps(bench, sharps, reference):
    """The arrangement that does the same work as keldothumb, and the one that took the least CPU
    time when each ran once."""
    show_progress("trying the arrangements of sharp")
    costs = {way: bench.run(way, reference).cpu_s for way in sharps}
    ordered = sorted(costs, key=costs.get)
    listed = ", ".join(f"{way.arrangement} {costs[way] * 1000 / len(bench.photos):.0f}"
                       for way in ordered)
    same_work = next(way for way in sharps if way.arrangement == "memory")
    return ({"sharp": same_work, "fast sharp": ordered[0]},
            f"sharp, CPU ms a photo, one run of each arrangement: {listed}")


def converter_peaks(bench):
    photo = converter_runs.large_photo(bench.photos, bench.scratch, bench.imagemagick)
    if photo is None:
        return {}
    return {name: converter_runs.peak_mib(bench.meter, program, photo, bench.kinds, bench.scratch)
            for name, program in bench.converters()}


def describe(bench: Bench, rounds):
    model = next((line.partition(":")[2].strip()
                  for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines()
                  if line.startswith("model name")), platform.machine())
    print(f"{datetime.date.today()}, {model}, {os.cpu_count()} processors, "
          f"Linux {platform.release()}; {len(bench.photos)} photos of {bench.megapixels:.1f} "
          f"megapixels on average; {rounds} round{'s' if rounds > 1 else ''}, "
          "medians\n", flush=True)


def main():
    arguments = parse_arguments()
    # On SIGTERM the folder in memory is still removed.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    try:
        for program in ("bwrap", DJPEG):
            if not shutil.which(program):
                raise BenchError(f"{program} is missing")
        arguments.cache.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(prefix="keldothumb-bench-", dir="/dev/shm") as scratch:
            bench = Bench(arguments, pathlib.Path(scratch))
            describe(bench, arguments.rounds)
            if arguments.details:
                return Details(bench, arguments.rounds, arguments.markdown).print_all()
            compare(bench, arguments.rounds, arguments.markdown, arguments.cache)
    except (BenchError, OSError, subprocess.CalledProcessError) as error:
        print(f"\nscripts/bench: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
