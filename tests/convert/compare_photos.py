#!/usr/bin/env python3
"""Compares the thumbnails of our converter with ImageMagick's, on folders of real photos.

Runs keldothumb on two copies of the photos, each in a sandbox with one of the converters, until all
six kinds are made. Then prints how alike the results are. With --sheets, also writes images that
show ImageMagick's thumbnail, ours, and their difference times eight, side by side.

The exit status is 1 if a target is missed: a median PSNR, a median SSIM, a median file size, or any
dimension.
"""

import argparse
import math
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
# The median PSNR in decibels that each kind must reach.
TARGETS = {"XL": 50, "B": 46, "M": 44, "L": 46, "SM": 44, "S": 40}
TARGET_SSIM = 0.99
TARGET_SIZE = 0.03  # of the reference's
PROGRAM_SECONDS = 1800
# Empty during a run, so that the machine's own index, queues and daemon are not used.
PRIVATE = ["/tmp", "/run", "/var/spool", "/var/lib", "/usr/keldo/bin"]


def arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("photos", nargs="+", type=pathlib.Path, help="folders of photos")
    parser.add_argument("--build", type=pathlib.Path, default=REPOSITORY / "build/release")
    parser.add_argument("--ours", type=pathlib.Path, help="default: bin/convert-thumb of the build")
    parser.add_argument("--reference", type=pathlib.Path, default=pathlib.Path("/usr/bin/convert"))
    parser.add_argument("--keldothumb", type=pathlib.Path, help="default: that of the build")
    parser.add_argument("--likeness", type=pathlib.Path, help="default: that of the build")
    parser.add_argument("--profile", type=pathlib.Path, default=REPOSITORY / "config/thumb.conf")
    parser.add_argument("--sheets", type=pathlib.Path, help="folder for side-by-side images")
    parser.add_argument(
        "--work",
        type=pathlib.Path,
        help="folder to work in, which is kept; reference thumbnails of an earlier run are reused",
    )
    parser.add_argument("--each", action="store_true", help="a line per thumbnail, worst first")
    given = parser.parse_args()
    given.ours = (given.ours or given.build / "bin/convert-thumb").resolve()
    given.keldothumb = (given.keldothumb or given.build / "bin/keldothumb").resolve()
    given.likeness = (given.likeness or given.build / "tests/likeness").resolve()
    given.profile = given.profile.resolve()
    for program in (given.ours, given.reference, given.keldothumb, given.likeness, given.profile):
        if not program.is_file():
            parser.error(f"{program} does not exist")
    if not pathlib.Path("/usr/keldo/bin").is_dir():
        parser.error("/usr/keldo/bin does not exist; run scripts/setup")
    return given


def copy_photos(folders, to):
    """Copies the photos that are not there yet. A number distinguishes folders of the same name."""
    for number, folder in enumerate(folders):
        target = to / f"{number}-{folder.resolve().name}"
        target.mkdir(parents=True, exist_ok=True)
        for photo in sorted(folder.iterdir()):
            if photo.is_file() and not (target / photo.name).exists():
                shutil.copy2(photo, target / photo.name)


def make_thumbnails(given, converter, photos):
    command = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc"]
    command += ["--unshare-pid", "--die-with-parent"]
    for directory in PRIVATE:
        command += ["--tmpfs", directory]
    # Mounted in an empty folder, since the machine's own converter may be a link.
    command += ["--ro-bind", str(converter), "/usr/keldo/bin/convert-thumb"]
    for path in (given.keldothumb, given.profile):
        command += ["--ro-bind", str(path), str(path)]
    command += ["--bind", str(photos), str(photos)]
    command += [str(given.keldothumb), str(given.profile)]
    command += [str(folder) for folder in sorted(photos.iterdir())]
    # The second run makes what the first one defers.
    for _ in range(2):
        messages = subprocess.run(
            command,
            stdin=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            timeout=PROGRAM_SECONDS,
            check=False,
        ).stderr.splitlines(keepends=True)
        # djpeg prints this for every photo without a profile.
        wanted = [line for line in messages if b"no ICC profile data" not in line]
        sys.stderr.buffer.write(b"".join(wanted))


def thumbnails(photos):
    """The thumbnails below a folder, as {(photo, kind): path}."""
    found = {}
    for path in photos.rglob("@eaDir/*/KELDOPHOTO_THUMB_*.jpg"):
        kind = path.stem.rpartition("_")[2]
        photo = str(path.parent.relative_to(photos)).replace("@eaDir/", "")
        found[photo, kind] = path
    return found


def compare(given, reference, ours):
    """A row for each thumbnail, (kind, photo, psnr, ssim, size ratio), and the errors."""
    rows, errors = [], []
    for key in sorted(reference.keys() ^ ours.keys()):
        missing = "ours" if key in reference else "the reference"
        errors.append(f"{key[0]} {key[1]}: {missing} made none")
    both = sorted(reference.keys() & ours.keys())
    pairs = [str(path) for key in both for path in (reference[key], ours[key])]
    if not pairs:
        return rows, errors + ["nothing to compare"]
    output = subprocess.run(
        [str(given.likeness), *pairs], stdout=subprocess.PIPE, text=True, check=False
    ).stdout.splitlines()
    for key, line in zip(both, output, strict=True):
        if line[0] in "us":
            errors.append(f"{key[0]} {key[1]}: {line}")
            continue
        psnr, ssim = map(float, line.split())
        ratio = ours[key].stat().st_size / reference[key].stat().st_size
        rows.append((key[1], key[0], psnr, ssim, ratio))
    return rows, errors


def print_each(rows):
    for kind, photo, psnr, ssim, ratio in sorted(rows, key=lambda row: row[2] - TARGETS[row[0]]):
        print(f"{kind:3} {psnr:7.2f} dB  SSIM {ssim:.4f}  size {ratio:.3f}  {photo}")
    print()


def summarise(rows):
    """Prints the table and returns the targets that were missed."""
    missed = []
    print("kind  photos  PSNR median (target)     min   SSIM median     min   size median     range")
    for kind, target in TARGETS.items():
        of_kind = [row for row in rows if row[0] == kind]
        if not of_kind:
            missed.append(f"{kind}: no thumbnail")
            continue
        psnrs, ssims, ratios = ([row[column] for row in of_kind] for column in (2, 3, 4))
        psnr, ssim, ratio = map(statistics.median, (psnrs, ssims, ratios))
        print(
            f"{kind:4}  {len(of_kind):6}  {psnr:11.2f} ({target})    {min(psnrs):8.2f}"
            f"   {ssim:11.5f} {min(ssims):.5f}   {ratio:11.4f}  {min(ratios):.3f}..{max(ratios):.3f}"
        )
        if psnr < target:
            missed.append(f"{kind}: PSNR {psnr:.2f} dB is below {target}")
        if ssim < TARGET_SSIM:
            missed.append(f"{kind}: SSIM {ssim:.4f} is below {TARGET_SSIM}")
        if math.fabs(ratio - 1) > TARGET_SIZE:
            missed.append(f"{kind}: the files have {ratio:.3f} times the size")
    return missed


def write_sheets(folder, reference, ours):
    """Writes a PNG file per photo, with a row for each of B, M, SM and S."""
    folder.mkdir(parents=True, exist_ok=True)
    for photo in sorted({key[0] for key in reference.keys() & ours.keys()}):
        command = ["convert", "-background", "gray20"]
        for kind in ("B", "M", "SM", "S"):
            if (photo, kind) not in reference or (photo, kind) not in ours:
                continue
            pair = [str(reference[photo, kind]), str(ours[photo, kind])]
            command += ["(", *pair, "(", *pair, "-compose", "difference", "-composite"]
            command += ["-evaluate", "multiply", "8", ")", "+append", ")"]
        command += ["-append", "+profile", "*", f"png:{folder / photo.replace('/', '-')}.png"]
        subprocess.run(command, check=False, stdin=subprocess.DEVNULL)
    print(f"Side by side (ImageMagick, ours, difference times 8): {folder}")


def run(given, work):
    found = {}
    for name, converter in (("reference", given.reference), ("ours", given.ours)):
        photos = work / name
        copy_photos(given.photos, photos)
        if name == "ours":
            for made in photos.rglob("@eaDir"):
                shutil.rmtree(made)
        make_thumbnails(given, converter, photos)
        found[name] = thumbnails(photos)
    rows, errors = compare(given, found["reference"], found["ours"])
    if given.each:
        print_each(rows)
    missed = summarise(rows)
    if given.sheets:
        write_sheets(given.sheets, found["reference"], found["ours"])
    for error in errors + missed:
        print(error)
    return 1 if errors or missed else 0


def main():
    given = arguments()
    if given.work:
        return run(given, given.work.resolve())
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="compare-photos-", dir=memory) as work:
        return run(given, pathlib.Path(work))


if __name__ == "__main__":
    sys.exit(main())
