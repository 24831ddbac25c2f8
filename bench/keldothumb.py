"""Runs keldothumb with its real paths in bubblewrap, isolated from the machine: each run has its
own converter, queue, counters and index."""

import os
import pathlib
import shutil

from photos import Photo
from usage import BenchError, Usage

CONVERTER = "/usr/keldo/bin/convert-thumb"
# Our converter runs ImageMagick under this policy.
POLICY = "/usr/keldo/share/convert-thumb"
# The second run makes phase 2; one more is allowed.
MOST_RUNS = 3


def _host_tree():
    """The machine's programs and libraries, without /usr/keldo."""
    for entry in sorted(os.scandir("/usr"), key=lambda entry: entry.name):
        if entry.name != "keldo":
            yield entry.path
    yield from (path for path in ("/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32", "/etc")
                if os.path.lexists(path))


def _sandbox(bench, converter):
    command = ["bwrap", "--unshare-pid", "--unshare-net", "--die-with-parent", "--clearenv",
               "--setenv", "PATH", "/usr/bin", "--setenv", "HOME", "/tmp"]
    for path in _host_tree():
        if os.path.islink(path):
            command += ["--symlink", os.readlink(path), path]
        else:
            command += ["--ro-bind", path, path]
    command += ["--proc", "/proc", "--dev", "/dev", "--symlink", "/run", "/var/run"]
    for path in ("/run", "/tmp", "/var/spool", "/var/lib", "/var/packages", "/usr/keldo"):
        command += ["--tmpfs", path]
    for source, target in ((converter, CONVERTER), (bench.policy, POLICY), (bench.build,) * 2):
        command += ["--ro-bind", str(source), str(target)]
    return command + ["--bind", str(bench.scratch), str(bench.scratch), "--chdir", "/", "--"]


class Keldothumb:
    """keldothumb with one of the converters."""

    def __init__(self, name, converter, bench):
        self.name = name
        self._kinds = bench.kinds
        self._meter = bench.meter
        self._program = bench.build / "bin" / "keldothumb"
        self._sandbox = _sandbox(bench, pathlib.Path(converter).resolve())
        # The source tree is not visible in the sandbox.
        self._profile = bench.scratch / "profile"
        shutil.copyfile(bench.profile, self._profile)

    def thumbnail(self, photo: Photo, kind) -> pathlib.Path:
        return photo.thumbnails / kind.file_name

    def clean(self, photos):
        for directory in {photo.thumbnails.parent for photo in photos}:
            shutil.rmtree(directory, ignore_errors=True)

    def complete(self, photos):
        return all(self.thumbnail(photo, kind).exists() for photo in photos for kind in self._kinds)

    def run_once(self, folder: pathlib.Path, runs=1, prefix=()) -> Usage:
        """Runs keldothumb on a folder and keeps existing thumbnails. `prefix` precedes the
        command."""
        command = [*prefix, self._program, self._profile, folder]
        return self._meter.run_wrapped([*self._sandbox, *self._meter.command(command, runs)])

    def run(self, photos) -> Usage:
        """Makes all phases from scratch."""
        usage = Usage()
        for _ in range(MOST_RUNS):
            usage += self.run_once(photos[0].copy.parent)
            if self.complete(photos):
                return usage
        missing = [f"{photo.copy.name} ({photo.source}): {kind.name}" for photo in photos
                   for kind in self._kinds if not self.thumbnail(photo, kind).exists()]
        raise BenchError(f"{self.name} did not make\n" + "\n".join(missing[:10]))
