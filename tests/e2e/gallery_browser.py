"""A headless browser for the test of the gallery page."""

import functools
import http.server
import os
import threading
import urllib.parse

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

PATIENCE_SECONDS = 15


class Browser:
    def __init__(self, home):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        # The browser's sandbox does not work as root, and containers have a small /dev/shm.
        for argument in ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage",
                         "--disable-gpu", "--lang=en"]:
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        environment = {"PATH": "/usr/bin:/bin", "HOME": home, "TMPDIR": home, "LC_ALL": "C.UTF-8"}
        service = Service("/usr/bin/chromedriver", env=environment)
        self.driver = webdriver.Chrome(service=service, options=options)

    def close(self):
        self.driver.quit()

    def js(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def wait(self, script, *arguments):
        """Waits until a condition holds in the page."""
        WebDriverWait(self.driver, PATIENCE_SECONDS, poll_frequency=0.02).until(
            lambda _: self.js("return Boolean(" + script + ")", *arguments), script)

    def screen(self, width, height, phone=False):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 2 if phone else 1,
            "mobile": phone})
        self.driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": phone})

    def prefer(self, **features):
        """prefer(color_scheme="dark") and the like."""
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-" + name.replace("_", "-"), "value": value}
            for name, value in features.items()]})

    def open(self, url):
        """Opens a page and waits until all its images have loaded or failed."""
        self.driver.get(url)
        self.wait("document.getElementById('count').textContent")
        self.wait_for_images()

    def wait_for_images(self):
        # Images far below the window load only after scrolling.
        self.wait("""[...document.querySelectorAll('.tile img, #sizes img')].every(
            (image) => image.complete || image.getBoundingClientRect().top > innerHeight)""")

    def press(self, *keys):
        """Presses keys in sequence in the focused element."""
        for key in keys:
            self.driver.switch_to.active_element.send_keys(key)

    def text(self, selector):
        return self.js("return document.querySelector(arguments[0]).innerText", selector)

    def texts(self, selector):
        return self.js("""return [...document.querySelectorAll(arguments[0])].map(
            (one) => one.textContent)""", selector)

    def choose(self, selector, value=None):
        """Selects a radio button, or sets the value of a field, as a person would."""
        self.js("""const field = document.querySelector(arguments[0]);
            if (arguments[1] === null) field.click();
            else {
              field.value = arguments[1];
              field.dispatchEvent(new Event('input', {bubbles: true}));
            }""", selector, value)

    def problems(self):
        """The messages on the browser's console."""
        return [entry["message"] for entry in self.driver.get_log("browser")]


class RawNames(http.server.SimpleHTTPRequestHandler):
    """Serves files with any bytes in their names, as web servers do."""

    def translate_path(self, path):
        name = urllib.parse.unquote_to_bytes(path.split("?")[0]).lstrip(b"/")
        return os.fsdecode(os.path.join(os.fsencode(self.directory), name))

    def log_message(self, *_):
        pass


class Server:
    """A web server for a directory, on this machine only."""

    def __init__(self, directory):
        handler = functools.partial(RawNames, directory=directory)
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        self.url = "http://127.0.0.1:%d" % self.server.server_address[1]
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.server.shutdown()
        self.server.server_close()
