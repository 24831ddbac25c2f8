"""What a command costs."""

import dataclasses
import pathlib
import subprocess


class BenchError(Exception):
    """The measurement failed or cannot be trusted. The text is for the user."""


@dataclasses.dataclass
class Usage:
    wall_s: float = 0.0
    cpu_s: float = 0.0
    peak_mib: float = 0.0  # of the largest process
    file_bytes: int = 0  # of the thumbnails, if they were counted

    def __add__(self, other):
        return Usage(self.wall_s + other.wall_s, self.cpu_s + other.cpu_s,
                     max(self.peak_mib, other.peak_mib), self.file_bytes + other.file_bytes)


class Meter:
    """Runs commands through bench_measure."""

    def __init__(self, program: pathlib.Path, directory: pathlib.Path):
        self.program = program
        self._report = directory / "usage"
        self._messages = directory / "messages"

    def command(self, command, runs=1):
        """The command line that measures another one and writes the report."""
        return [self.program, self._report, str(runs), *command]

    def run(self, command, runs=1, environment=None) -> Usage:
        return self.run_wrapped(self.command(command, runs), environment)

    def run_wrapped(self, command, environment=None) -> Usage:
        """Runs the result of command(), perhaps with other words in front."""
        command = [str(word) for word in command]
        self._report.unlink(missing_ok=True)
        with open(self._messages, "wb") as messages:
            status = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=messages,
                                    stderr=messages, env=environment, check=False).returncode
        if status != 0:
            said = self._messages.read_text(errors="replace")[-2000:]
            raise BenchError(f"{' '.join(command)[:2000]}\nended with status {status}\n{said}")
        wall_us, cpu_us, peak_kib = map(int, self._report.read_text().split())
        return Usage(wall_us / 1e6, cpu_us / 1e6, peak_kib / 1024)
