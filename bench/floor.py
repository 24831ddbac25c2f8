"""The floor: the work that remains if resizing costs nothing."""

import subprocess

from photos import jpeg_size
from usage import BenchError, Usage

DJPEG = "/bin/djpeg"
PRESCALE_BOX = 1280


def prescale_shift(size):
    """By how many powers of two djpeg reduces a photo under keldothumb."""
    return next((shift for shift in (3, 2, 1) if min(size) >> shift >= PRESCALE_BOX), 0)


def djpeg_command(photo, bitmap, icc):
    """The command that keldothumb runs. It does not run djpeg on photos too small to be reduced;
    here it stands for the converter's own decoding, which costs the same."""
    scale = f"1/{1 << prescale_shift(jpeg_size(photo))}"
    return [DJPEG, "-scale", scale, "-dct", "fast", "-fast", "-onepass", "-bmp", "-outfile", bitmap,
            "-icc", icc, photo]


class Floor:
    """djpeg, and the encoding of thumbnails that were made before."""
    name = "floor: djpeg, encoding"

    def __init__(self, program, meter, scratch, reference, kinds):
        self._program = program
        self._meter = meter
        self._scratch = scratch
        self._reference = reference  # (photo, kind) -> path of a finished thumbnail
        self._kinds = kinds
        self.base_decodes = Usage()  # of the last run

    def clean(self, _photos):
        pass

    def run(self, photos) -> Usage:
        usage, self.base_decodes = Usage(), Usage()
        for photo in photos:
            bitmap, icc = self._scratch / "floor.bmp", self._scratch / "floor.icc"
            usage += self._meter.run(djpeg_command(photo.copy, bitmap, icc))
            thumbnails = [self._reference[photo, kind] for kind in self._kinds]
            base_decode, encoding = self._jpeg_work(thumbnails)
            usage += Usage(encoding, encoding, 0)
            # Phases 1 and 2 start from the largest thumbnail of phase 0.
            self.base_decodes += Usage(2 * base_decode, 2 * base_decode, 0)
        return usage

    def _jpeg_work(self, thumbnails):
        """The seconds that decoding the first one takes, and encoding all of them."""
        run = subprocess.run([self._program, *thumbnails], stdin=subprocess.DEVNULL,
                             capture_output=True, text=True, check=False)
        lines = [tuple(map(int, line.split())) for line in run.stdout.splitlines()]
        if run.returncode != 0 or len(lines) != len(thumbnails):
            raise BenchError(f"bench_floor failed: {run.stderr}")
        return lines[0][0] / 1e6, sum(encoded for _, encoded in lines) / 1e6
