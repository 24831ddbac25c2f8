#!/usr/bin/python3
"""The page of `keldothumbctl gallery` in a real browser.

usage: gallery_browser_test.py KELDOTHUMBCTL PROFILE [unittest's arguments]
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

from selenium.webdriver.common.keys import Keys

from gallery_browser import Browser, Server
from gallery_library import HOSTILE_NAMES, KINDS, NOT_UTF8_NAME, SCRIPT_NAME, Library, fill

program = profile = None

# Counts the texts of the page and lists those whose contrast is too low for accessible text.
CONTRAST = """
const context = document.createElement('canvas').getContext('2d', {willReadFrequently: true});
const rgb = (colour) => {
  context.clearRect(0, 0, 1, 1);
  context.fillStyle = colour;
  context.fillRect(0, 0, 1, 1);
  return [...context.getImageData(0, 0, 1, 1).data];
};
const light = (colour) => {
  const [r, g, b] = rgb(colour).map((value) => value / 255).map(
    (value) => value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const behind = (one) => {
  for (; one; one = one.parentElement) {
    const colour = getComputedStyle(one).backgroundColor;
    if (rgb(colour)[3] === 255) return colour;
  }
  return 'white';
};
const poor = [];
let looked = 0;
for (const one of document.querySelectorAll('body *')) {
  const has_text = [...one.childNodes].some((node) => node.nodeType === 3 && node.data.trim());
  if (!has_text || !one.checkVisibility() || one.disabled || one.tagName === 'OPTION') continue;
  const pair = [light(getComputedStyle(one).color), light(behind(one))].sort((a, b) => b - a);
  const ratio = (pair[0] + 0.05) / (pair[1] + 0.05);
  ++looked;
  if (ratio < 4.5) poor.push(`${one.tagName}.${one.className} ${ratio.toFixed(2)}`);
}
return [looked, poor];
"""

SMALL_TARGETS = """
return [...document.querySelectorAll('button, a, input, select')]
  .filter((one) => one.checkVisibility())
  .map((one) => [one.id || one.className || one.tagName, one.getBoundingClientRect()])
  .filter(([, box]) => box.width > 0 && (box.width < 44 || box.height < 44))
  .map(([name, box]) => `${name} ${box.width} x ${box.height}`);
"""

TILES = """return [...document.querySelectorAll('.tile')].map((tile) => ({
  name: tile.querySelector('.caption').textContent,
  state: tile.className,
  mark: tile.querySelector('.mark')?.textContent ?? '',
  reason: tile.querySelector('.reason')?.textContent ?? '',
  width: tile.querySelector('img')?.naturalWidth ?? 0,
}))"""


def shown(name):
    """A name as the page shows it."""
    text = name.replace(b"\\", b"\\\\").decode("utf-8", "backslashreplace")
    return text.replace("\n", "\\n").replace("\t", "\\t")


def write_page(page, *directories, status=0):
    result = subprocess.run(
        [program, "gallery", "-o", page, "--profile", profile, "--title", "Our <b>photos</b>",
         *directories], capture_output=True, check=False)
    assert result.returncode == status, result.stderr
    return page


class GalleryPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.mkdtemp(prefix="keldotest-gallery-")
        cls.addClassCleanup(shutil.rmtree, cls.directory)
        cls.library = Library(cls.directory)
        fill(cls.library)
        cls.page = write_page(cls.directory + "/pages.html", cls.library.path(b"photo"))
        cls.url = pathlib.Path(cls.page).as_uri()
        cls.browser = Browser(cls.directory)
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        self.browser.screen(1280, 2600)
        self.browser.prefer(color_scheme="light")
        self.browser.open(self.url)

    def tearDown(self):
        self.assertEqual(self.browser.problems(), [])

    def tiles(self):
        return {tile["name"]: tile for tile in self.browser.js(TILES)}

    def open_viewer(self, name):
        self.browser.js("""[...document.querySelectorAll('.tile')].find((tile) =>
            tile.querySelector('.caption').textContent === arguments[0]).firstChild.click()""",
            name)
        self.browser.wait_for_images()

    def focused(self):
        """The name of the photo whose tile has the focus."""
        return self.browser.js(
            "return document.activeElement.querySelector('.caption')?.textContent ?? ''")

    def test_every_finished_photo_shows_its_thumbnail(self):
        tiles = self.tiles()
        self.assertEqual(len(tiles), 34)
        for name, tile in tiles.items():
            if "complete" in tile["state"]:
                self.assertGreater(tile["width"], 0, name)
                self.assertEqual(tile["mark"] + tile["reason"], "")
        self.assertEqual(self.browser.texts(".folder h2 bdi"), [
            "photo/2023", "photo/2024", "photo/2024/winter", "photo/broken",
            "photo/odd #%1 <b>"])
        self.assertIn("34 photos in 5 folders", self.browser.text("#summary"))

    def test_hostile_names_are_text_and_their_images_load(self):
        tiles = self.tiles()
        for name in HOSTILE_NAMES:
            self.assertGreater(tiles[shown(name)]["width"], 0, name)
        self.open_viewer(SCRIPT_NAME.decode())
        self.assertEqual(self.browser.text("#viewer-name"), SCRIPT_NAME.decode())
        self.assertEqual(self.browser.text("h1"), "Our <b>photos</b>")
        self.assertEqual(self.browser.js("""return [typeof hacked,
            document.querySelectorAll('img[src=x], h1 b, h2 b').length]"""), ["undefined", 0])

    def test_images_load_when_they_are_near_and_their_space_is_reserved(self):
        images = self.browser.js("""return [...document.querySelectorAll('.tile img')].map(
            (image) => [image.loading, image.decoding, image.width > 0, image.height > 0])""")
        self.assertEqual({tuple(image) for image in images}, {("lazy", "async", True, True)})

    def test_filters_by_folder_state_and_name(self):
        browser = self.browser
        options = browser.texts("#folder option")
        self.assertEqual(options[:4], ["All folders (34)", "photo (34)", "photo/2023 (12)",
                                       "photo/2024 (7)"])
        browser.choose("#folder", "photo/2024")
        self.assertEqual(len(self.tiles()), 7)
        self.assertEqual(browser.text("#count"), "Showing 7 of 34 photos")
        browser.choose("#search", "SNOW-0")
        self.assertEqual(len(self.tiles()), 6)
        browser.choose("#folder", "")
        browser.choose("#search", "")
        for state, names in [("failed", {"empty.jpg"}),
                             ("unfinished", {"partly.jpg", "undone.jpg"})]:
            browser.choose(f"#states input[value={state}]")
            self.assertEqual(set(self.tiles()), names)
        browser.choose("#states input[value=complete]")
        self.assertEqual(len(self.tiles()), 31)
        self.assertEqual(browser.texts("#states b"), ["34", "31", "2", "1"])

    def test_says_that_nothing_matches_and_offers_a_way_back(self):
        browser = self.browser
        browser.choose("#search", "no such photo")
        self.assertIn("No photo matches", browser.text("#nothing"))
        self.assertEqual(self.tiles(), {})
        browser.choose("#show-all")
        self.assertEqual(len(self.tiles()), 34)
        self.assertFalse(browser.js("return document.getElementById('nothing').checkVisibility()"))

    def test_unfinished_and_failed_photos_are_marked_with_the_reason(self):
        tiles = self.tiles()
        self.assertEqual(tiles["empty.jpg"]["mark"], "Failed")
        self.assertEqual(tiles["empty.jpg"]["reason"], "is empty")
        self.assertEqual(tiles["undone.jpg"]["mark"], "6 missing")
        self.assertNotEqual(tiles["undone.jpg"]["reason"], "")
        self.assertEqual(tiles["partly.jpg"]["mark"], "3 missing")
        self.assertGreater(tiles["partly.jpg"]["width"], 0)
        self.open_viewer("empty.jpg")
        self.assertEqual(self.browser.text("#viewer-reason"), "Failed: is empty")
        self.assertEqual(self.browser.texts("#sizes .state"), ["failed"] * 6)

    def test_the_viewer_shows_six_sizes_and_the_photo(self):
        browser = self.browser
        for name in ["beach-00.jpg", "older.jpg"]:
            self.open_viewer(name)
            browser.wait("document.querySelectorAll('.pixels:not(:empty)').length === 6")
            captions = [f"{kind}box {side} × {side}present{side} × {side * 3 // 4}"
                        for kind, side in KINDS.items()]
            self.assertEqual(browser.texts("#sizes figcaption"), captions)
            browser.press(Keys.ESCAPE)
        self.open_viewer("partly.jpg")
        self.assertEqual(browser.texts("#sizes .state"),
                         ["missing", "missing", "present", "present", "missing", "present"])
        self.assertEqual(browser.js("return document.getElementById('original').href"),
                         pathlib.Path(self.directory + "/photo/broken/partly.jpg").as_uri())

    def test_the_keyboard_does_everything(self):
        browser = self.browser
        browser.js("document.querySelector('#states input').focus()")
        browser.press(Keys.TAB)
        self.assertEqual(self.focused(), "beach-00.jpg")
        browser.press(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        self.assertEqual(self.focused(), "beach-02.jpg")
        self.assertEqual(browser.js("""return getComputedStyle(
            document.activeElement.querySelector('.image')).outline"""),
            "rgb(11, 87, 194) solid 3px")
        browser.press(Keys.ARROW_DOWN)
        self.assertEqual(self.focused(), "beach-08.jpg")
        browser.press(Keys.ARROW_DOWN, Keys.ARROW_UP, Keys.ARROW_LEFT)
        self.assertNotIn(self.focused(), ["", "beach-08.jpg"])
        browser.press(Keys.END)
        self.assertEqual(self.focused(), self.browser.js(TILES)[-1]["name"])
        browser.press(Keys.HOME, Keys.ENTER)
        self.assertTrue(browser.js("return document.getElementById('viewer').open"))
        browser.press(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT, Keys.ARROW_LEFT)
        self.assertEqual(browser.text("#viewer-name"), "beach-01.jpg")
        browser.press(Keys.END, Keys.ARROW_RIGHT)
        self.assertIn("34 of 34", browser.text("#viewer-facts"))
        browser.press(Keys.HOME, Keys.ARROW_RIGHT, Keys.ESCAPE)
        self.assertFalse(browser.js("return document.getElementById('viewer').open"))
        # The page learns a moment later that the viewer was closed.
        browser.wait("""document.activeElement.querySelector('.caption')?.textContent ===
            'beach-01.jpg'""")

    def test_tiles_and_buttons_have_names_for_screen_readers(self):
        labels = self.browser.js("""return [...document.querySelectorAll('.tile button')].map(
            (one) => one.getAttribute('aria-label'))""")
        self.assertIn("empty.jpg, Failed, is empty", labels)
        self.assertIn("beach-00.jpg", labels)
        self.open_viewer("beach-01.jpg")
        nameless = self.browser.js("""return [
            ...document.querySelectorAll('button, a, input, select')].filter((one) =>
            one.checkVisibility() && !one.getAttribute('aria-label') &&
            !one.textContent.trim() && !one.labels?.length && !one.querySelector('img[alt]'))
            .map((one) => one.outerHTML)""")
        self.assertEqual(nameless, [])

    def test_follows_the_systems_colour_scheme_until_one_is_chosen(self):
        browser = self.browser
        background = "return getComputedStyle(document.body).backgroundColor"
        light = browser.js(background)
        browser.prefer(color_scheme="dark")
        dark = browser.js(background)
        self.assertEqual([light, dark], ["rgb(246, 246, 244)", "rgb(20, 21, 23)"])
        browser.choose("#theme")
        self.assertEqual(browser.js(background), light)
        browser.open(self.url)
        self.assertEqual(browser.js(background), light)
        browser.choose("#theme")
        self.assertEqual(browser.js(background), dark)
        browser.js("localStorage.clear()")

    def test_texts_have_enough_contrast_in_both_schemes(self):
        for scheme in ["light", "dark"]:
            self.browser.prefer(color_scheme=scheme, reduced_motion="reduce")
            self.open_viewer("empty.jpg")
            looked, poor = self.browser.js(CONTRAST)
            self.assertGreater(looked, 40)
            self.assertEqual(poor, [], scheme)
            self.browser.press(Keys.ESCAPE)

    def test_nothing_moves_if_reduced_motion_is_preferred(self):
        duration = "return getComputedStyle(document.getElementById('theme')).transitionDuration"
        self.assertNotEqual(self.browser.js(duration), "0s")
        self.browser.prefer(reduced_motion="reduce")
        self.assertEqual(self.browser.js(duration), "0s")

    def test_fits_a_phone(self):
        browser = self.browser
        browser.screen(390, 844, phone=True)
        browser.open(self.url)
        for name in ["", "empty.jpg"]:
            if name:
                self.open_viewer(name)
            self.assertEqual(browser.js("""return [document.documentElement.scrollWidth,
                document.getElementById('viewer').scrollWidth <= innerWidth]"""), [390, True])
            self.assertEqual(browser.js(SMALL_TARGETS), [])

    def test_works_on_a_web_server_with_names_of_any_bytes(self):
        self.library.finished(b"bytes/" + NOT_UTF8_NAME)
        write_page(self.directory + "/bytes.html", self.library.path(b"bytes"))
        server = Server(self.directory)
        self.addCleanup(server.close)
        self.browser.open(server.url + "/bytes.html")
        tile = self.tiles()[shown(NOT_UTF8_NAME)]
        self.assertGreater(tile["width"], 0)
        self.browser.problems()  # The server has no icon for the tab.

    def test_a_large_library_is_drawn_in_pieces(self):
        for number in range(3000):
            self.library.photo(b"large/%03d/p%04d.jpg" % (number // 100, number))
        write_page(self.directory + "/large.html", self.library.path(b"large"))
        browser = self.browser
        browser.screen(1280, 800)
        browser.open(pathlib.Path(self.directory + "/large.html").as_uri())
        self.assertLess(len(self.tiles()), 100)
        browser.js("window.scrollTo(0, document.documentElement.scrollHeight / 2)")
        browser.wait("!document.querySelector('.tile[data-at=\"1\"]')")
        self.assertLess(len(self.tiles()), 100)
        browser.js("document.querySelector('.tile button[tabindex=\"0\"]').focus()")
        browser.press(Keys.END)
        self.assertEqual(self.focused(), "p2999.jpg")
        order = browser.js("""return [...document.querySelectorAll('.tile')].map(
            (tile) => Number(tile.dataset.at))""")
        self.assertEqual(order, sorted(order))
        self.assertTrue(browser.js("""const box = document.activeElement.getBoundingClientRect();
            return box.top >= 0 && box.bottom <= innerHeight"""))

    def test_an_empty_library_says_so(self):
        os.makedirs(self.directory + "/none", exist_ok=True)
        write_page(self.directory + "/none.html", self.directory + "/none")
        self.browser.open(pathlib.Path(self.directory + "/none.html").as_uri())
        text = self.browser.text("#nothing")
        self.assertIn("There are no photos here yet", text)
        self.assertIn(self.directory + "/none", text)


if __name__ == "__main__":
    program, profile = sys.argv[1:3]
    # If the page does not load, every test would wait for long, so stop after the first failure.
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2, failfast=True)
