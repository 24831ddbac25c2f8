#!/usr/bin/python3
"""Tests the arithmetic of scripts/bench and the files that it parses."""

import pathlib
import tempfile
import unittest

import floor
import photos
import report
from usage import Usage


def cpu(*seconds):
    return [Usage(wall_s=2 * one, cpu_s=one, peak_mib=10 * one, file_bytes=2 << 20)
            for one in seconds]


class ReportTest(unittest.TestCase):
    def test_a_row_holds_medians_over_the_rounds(self):
        costs = {"floor": cpu(1, 1, 1), "ours": cpu(2, 9, 3)}
        row = report.make_rows(costs, {"floor": "the floor", "ours": "us"}, photos=4)[1]
        self.assertEqual(row, report.Row("us", 6, 750, 30, 4 / 6, 512, 3))

    def test_a_ratio_is_taken_within_each_round(self):
        # The quotient of the medians would be 2.
        self.assertEqual(report.ratio(cpu(3, 8, 12), cpu(2, 4, 12)), 1.5)

    def test_verdicts_at_and_beyond_their_limits(self):
        costs = {"floor": cpu(10), "ours": cpu(16), "imagemagick": cpu(96), "sharp": cpu(30.4)}
        self.assertEqual([one.met for one in report.verdicts(costs, 40)], [True] * 4)
        costs = {"floor": cpu(10), "ours": cpu(17), "imagemagick": cpu(96), "sharp": cpu(30.4)}
        self.assertEqual([one.met for one in report.verdicts(costs, 41)], [False] * 4)

    def test_targets_that_were_not_measured_say_so(self):
        lines = list(map(str, report.verdicts({"floor": cpu(1), "ours": cpu(1)}, None)))
        self.assertIn("1.00, met", lines[0])
        for line in lines[1:]:
            self.assertTrue(line.endswith(": not measured"), line)

    def test_the_fastest_sharp_is_compared_with_us_and_the_floor(self):
        costs = {"base": cpu(10, 10), "ours": cpu(15, 15), "fast sharp": cpu(30, 30)}
        line, = report.beside_the_fastest_sharp(costs)
        self.assertIn("takes 2.00 times our CPU time", line)
        self.assertTrue(line.endswith("it takes 3.00 times"), line)
        self.assertEqual(report.beside_the_fastest_sharp({"ours": cpu(1)}), [])

    def test_tables(self):
        lines = [("a", "10"), ("long", "2")]
        self.assertEqual(report.as_text(("way", "ms"), lines), "way   ms\na     10\nlong   2")
        self.assertEqual(report.as_markdown(("way", "ms"), lines),
                         "| way | ms |\n| --- | ---: |\n| a | 10 |\n| long | 2 |")


class PhotosTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.path = pathlib.Path(directory.name) / "file"

    def size_of(self, content):
        self.path.write_bytes(content)
        return photos.jpeg_size(self.path)

    def test_the_size_of_a_jpeg_is_found_after_other_segments(self):
        segment = b"\xff\xe1\x00\x06\xff\xc0\x00\x00"
        frame = b"\xff\xc2\x00\x11\x08\x01\x00\x02\x00\x03"
        self.assertEqual(self.size_of(b"\xff\xd8" + segment + b"\xff" + frame), (512, 256))

    def test_other_files_and_truncated_jpegs_have_no_size(self):
        for content in (b"", b"\x89PNG\r\n\x1a\n" + bytes(30), b"\xff\xd8\xff\xe1\x00\x40"):
            self.assertIsNone(self.size_of(content))

    def test_kinds_come_from_the_profile_file(self):
        profile = pathlib.Path(__file__).parent.parent / "config" / "thumb.conf"
        kinds = photos.read_kinds(profile)
        self.assertEqual([kind.name for kind in kinds], ["XL", "L", "B", "M", "SM", "S"])
        self.assertEqual([kind.name for kind in kinds if not kind.fill], ["B", "S"])
        self.assertEqual(kinds[2].unsharp, "0.5x0.5+1.25+0")

    def test_a_quick_run_picks_photos_from_all_over_the_folder(self):
        self.assertEqual(photos.evenly_spread(list(range(10)), 4), [0, 2, 5, 7])
        self.assertEqual(photos.evenly_spread([1, 2], 4), [1, 2])

    def test_djpeg_reduces_as_far_as_both_sides_allow(self):
        for size, shift in (((10240, 10240), 3), ((5760, 3840), 1), ((2559, 9000), 0)):
            self.assertEqual(floor.prescale_shift(size), shift)


if __name__ == "__main__":
    unittest.main()
