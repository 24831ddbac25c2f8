"""Measures what the comparison leaves out: start-up, the parts of a run, other formats, and runs
with nothing to do."""

import math
import pathlib
import shutil
import statistics
import subprocess
import sys

import converter as converter_runs
import report
from photos import copy_photos
from usage import BenchError

START_UPS = 100
IDLE_RUNS = 50
# A bitmap of one white pixel, 24 bits, as djpeg writes them.
ONE_PIXEL_BMP = bytes.fromhex(
    "424d3a0000000000000036000000" "28000000010000000100000001001800" "00000000"
    "04000000" "00000000000000000000000000000000" "ffffff00")
OTHER_SUFFIXES = (".avif", ".gif", ".heic", ".png", ".tif", ".webp")
ONE_PIXEL_PPM = b"P6 1 1 255\n\xff\xff\xff"


class Details:
    """Prints each table as soon as it is measured."""

    def __init__(self, bench, rounds, markdown):
        self._bench = bench
        self._rounds = rounds
        self._format = report.as_markdown if markdown else report.as_text
        self._scratch = bench.scratch
        self._failed = False

    def print_all(self) -> int:
        """Returns the exit status: 1 if a format failed."""
        self._print("Start-up", ("program", "wall ms", "CPU ms", "peak MiB"), self._start_up())
        self._print("The parts of a run, ours", ("part", "CPU ms a photo", "peak MiB"),
                    self._parts())
        self._print("Other formats", ("photos", "wall s a photo", "CPU ms a photo", "peak MiB"),
                    self._formats())
        self._print("Nothing to do", ("keldothumb over", "wall ms", "CPU ms", "system calls"),
                    self._idle())
        return 1 if self._failed else 0

    def _print(self, title, headings, lines):
        print(f"\n{title}\n\n{self._format(headings, list(lines))}", flush=True)

    def _median(self, usages, attribute):
        return statistics.median(getattr(usage, attribute) for usage in usages)

    def _start_up(self):
        for name, words in self._start_up_programs():
            usages = [self._bench.meter.run(words, START_UPS) for _ in range(self._rounds)]
            yield (name, f"{self._median(usages, 'wall_s') * 1000 / START_UPS:.2f}",
                   f"{self._median(usages, 'cpu_s') * 1000 / START_UPS:.2f}",
                   f"{self._median(usages, 'peak_mib'):.1f}")

    def _start_up_programs(self):
        directory = self._scratch / "start-up"
        directory.mkdir()
        (directory / "empty.c").write_text("int main(void) { return 0; }\n")
        for name, flags in (("static", ["-static"]), ("dynamic", [])):
            program = directory / name
            subprocess.run(["cc", "-O2", *flags, directory / "empty.c", "-o", program], check=True)
            yield f"empty program, {name}", [program]
        pixel = directory / "pixel.bmp"
        pixel.write_bytes(ONE_PIXEL_BMP)
        kinds = converter_runs.phase(self._bench.kinds, 2)
        for name, program in self._bench.converters():
            yield (f"{name}, a bitmap of one pixel",
                   converter_runs.command(program, pixel, None, kinds, directory))
        # GraphicsMagick refuses that bitmap, and libvips does not read bitmaps.
        pixmap = directory / "pixel.ppm"
        pixmap.write_bytes(ONE_PIXEL_PPM)
        if shutil.which("gm"):
            yield ("GraphicsMagick, a pixmap of one pixel",
                   ["gm", "convert", pixmap, "-thumbnail", "120x120>", directory / "gm.jpg"])
        if shutil.which("vipsthumbnail"):
            yield ("vipsthumbnail, a pixmap of one pixel",
                   ["vipsthumbnail", "--size", "120x120", "-o", directory / "vips.jpg", pixmap])

    def _parts(self):
        bench = self._bench
        rounds = [converter_runs.parts(bench.meter, bench.converter, bench.photos, bench.kinds,
                                       self._scratch) for _ in range(self._rounds)]
        way = next(iter(bench.keldothumb_ways()))
        for costs in rounds:
            way.clean(bench.photos)
            costs["keldothumb with all it runs"] = way.run(bench.photos)
        for name in rounds[0]:
            usages = [costs[name] for costs in rounds]
            cpu_ms = self._median(usages, "cpu_s") * 1000 / len(bench.photos)
            yield name, f"{cpu_ms:.1f}", f"{self._median(usages, 'peak_mib'):.1f}"

    def _formats(self):
        for number, (label, sources) in enumerate(sorted(self._other_photos().items())):
            directory = self._scratch / f"format{number}"
            directory.mkdir()
            photos = copy_photos(sources, directory)
            for way in self._bench.keldothumb_ways():
                yield self._format_line(f"{label}, {way.name}", way, photos)

    def _format_line(self, label, way, photos):
        """If a format fails, the others are still measured."""
        usages = []
        try:
            for _ in range(self._rounds):
                way.clean(photos)
                usages.append(way.run(photos))
        except BenchError as error:
            self._failed = True
            print(f"scripts/bench: {error}", file=sys.stderr)
            return label, "failed", "", ""
        return (label, f"{self._median(usages, 'wall_s') / len(photos):.2f}",
                f"{self._median(usages, 'cpu_s') * 1000 / len(photos):.0f}",
                f"{self._median(usages, 'peak_mib'):.0f}")

    def _other_photos(self):
        """The other photos in the folders, by extension. Camera folders lack some formats, so the
        largest JPEG is converted to PNG, and to HEIC if there is none."""
        groups = {}
        for suffix in OTHER_SUFFIXES:
            sources = [path for path in self._bench.sources if path.suffix.lower() == suffix]
            if sources:
                groups[f"{len(sources)} {suffix}"] = sources
        largest = converter_runs.by_pixels(self._bench.photos)[0].copy
        if self._bench.imagemagick:
            made = self._scratch / "made.png"
            subprocess.run([self._bench.imagemagick, largest, made], check=True)
            groups["largest photo as .png"] = [made]
        if shutil.which("heif-enc") and not any(label.endswith(".heic") for label in groups):
            made = self._scratch / "made.heic"
            subprocess.run(["heif-enc", "-q", "60", "-o", made, largest], check=True,
                           stdout=subprocess.DEVNULL)
            groups["largest photo as .heic"] = [made]
        return groups

    def _idle(self):
        bench = self._bench
        way = next(iter(bench.keldothumb_ways()))
        way.clean(bench.photos)
        way.run(bench.photos)
        empty = self._scratch / "empty" / "photos"
        empty.mkdir(parents=True)
        costs = []
        for folder in (empty, bench.photos[0].copy.parent):
            usages = [way.run_once(folder, IDLE_RUNS) for _ in range(self._rounds)]
            costs.append((self._median(usages, "wall_s") * 1000 / IDLE_RUNS,
                          self._median(usages, "cpu_s") * 1000 / IDLE_RUNS,
                          self._system_calls(way, folder)))
        count = len(bench.photos)
        a_photo = [(full - nothing) / count for nothing, full in zip(*costs)]
        names = "an empty folder", f"{count} photos, all current", "hence each photo"
        for name, (wall_ms, cpu_ms, calls) in zip(names, [*costs, a_photo]):
            yield name, f"{wall_ms:.2f}", f"{cpu_ms:.2f}", f"{calls:.0f}"

    @staticmethod
    def _system_calls(way, folder: pathlib.Path):
        if not shutil.which("strace"):
            return math.nan
        counts = folder.parent / "strace"
        way.run_once(folder, prefix=["strace", "-f", "-c", "-o", counts])
        for line in counts.read_text().splitlines():
            if line.endswith("total"):
                # % time, seconds, µs a call, calls, perhaps errors, "total"
                return int(line.split()[3])
        raise BenchError("strace printed no total")
