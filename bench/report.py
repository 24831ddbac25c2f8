"""Turns the cost of the rounds into the table and the verdicts."""

import dataclasses
import statistics

from usage import Usage

FLOOR = "floor"


@dataclasses.dataclass(frozen=True)
class Row:
    name: str
    wall_s: float
    cpu_ms_a_photo: float
    peak_mib: float
    photos_a_second: float
    file_kib_a_photo: float
    ratio: float  # of CPU time to the floor's


@dataclasses.dataclass(frozen=True)
class Verdict:
    target: str
    value: str
    met: bool | None  # None: not measured

    def __str__(self):
        state = {True: "met", False: "NOT MET", None: "not measured"}[self.met]
        return f"{self.target}: {self.value}{state}"


def ratio(rounds: list[Usage], to: list[Usage]) -> float:
    """The median ratio of CPU times. Each round gives one ratio, since its runs were close in
    time."""
    return statistics.median(ours.cpu_s / theirs.cpu_s
                             for ours, theirs in zip(rounds, to, strict=True))


def make_rows(costs: dict[str, list[Usage]], names: dict[str, str], photos: int) -> list[Row]:
    """A row for each program. `costs` has a list of rounds for each key, FLOOR among them."""
    rows = []
    for key, rounds in costs.items():
        wall = statistics.median(usage.wall_s for usage in rounds)
        cpu = statistics.median(usage.cpu_s for usage in rounds)
        peak = statistics.median(usage.peak_mib for usage in rounds)
        files = statistics.median(usage.file_bytes for usage in rounds)
        rows.append(Row(names[key], wall, cpu * 1000 / photos, peak, photos / wall,
                        files / 1024 / photos, ratio(rounds, costs[FLOOR])))
    return rows


HEADINGS = ("program", "wall s", "CPU ms a photo", "peak MiB", "photos/s", "files KiB",
            "ratio to floor")


def _cells(row: Row):
    return (row.name, f"{row.wall_s:.2f}", f"{row.cpu_ms_a_photo:.0f}", f"{row.peak_mib:.0f}",
            f"{row.photos_a_second:.1f}",
            f"{row.file_kib_a_photo:.0f}" if row.file_kib_a_photo else "", f"{row.ratio:.2f}")


def as_text(headings, lines) -> str:
    """A table for a terminal: the first column left-aligned, the others right-aligned."""
    lines = [tuple(headings), *lines]
    widths = [max(len(line[i]) for line in lines) for i in range(len(headings))]
    return "\n".join("  ".join(cell.ljust(width) if i == 0 else cell.rjust(width)
                               for i, (cell, width) in enumerate(zip(line, widths))).rstrip()
                     for line in lines)


def as_markdown(headings, lines) -> str:
    rule = ["---"] + ["---:"] * (len(headings) - 1)
    return "\n".join("| " + " | ".join(line) + " |" for line in (headings, rule, *lines))


def table(rows: list[Row], markdown: bool) -> str:
    return (as_markdown if markdown else as_text)(HEADINGS, [_cells(row) for row in rows])


def at_most(target, value, limit, unit=""):
    if value is None:
        return Verdict(target, "", None)
    return Verdict(target, f"{value:.2f}{unit}, ", value <= limit)


def at_least(target, value, limit):
    if value is None:
        return Verdict(target, "", None)
    return Verdict(target, f"{value:.2f}, ", value >= limit)


def verdicts(costs: dict[str, list[Usage]], converter_peak_mib: float | None) -> list[Verdict]:
    """The project's targets, from the keys "ours", "imagemagick" and "sharp"."""
    def of(key, other):
        return ratio(costs[key], costs[other]) if key in costs and other in costs else None

    return [
        at_most("CPU time at most 1.6 times the floor", of("ours", FLOOR), 1.6),
        at_least("at least 6 times faster than with ImageMagick", of("imagemagick", "ours"), 6),
        at_least("at least 1.9 times faster than sharp, 1280 first, then six from it",
                 of("sharp", "ours"), 1.9),
        at_most("the converter's peak at most 40 MiB for a JPEG of 24 megapixels",
                converter_peak_mib, 40, " MiB"),
    ]


def beside_the_fastest_sharp(costs: dict[str, list[Usage]]) -> list[str]:
    """How "ours" compares with "fast sharp", and how "base", the least that the command lines
    allow, would. This is not a target. Empty if it was not measured."""
    if "fast sharp" not in costs:
        return []
    return [f"the fastest arrangement of sharp takes {ratio(costs['fast sharp'], costs['ours']):.2f}"
            " times our CPU time; of the floor with the XL decoded twice it takes "
            f"{ratio(costs['fast sharp'], costs['base']):.2f} times"]
