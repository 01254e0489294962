"""The site that the demo installs, in a browser. The pictures are in build/screenshots/."""

import tempfile
import unittest

from browser import Browser
from shipping import BUILD, INSTALL_ROOT, SCRATCH

RESOURCE0 = BUILD / "demo/machine" / INSTALL_ROOT / "Resource0"
SCREENSHOTS = BUILD / "screenshots"


def address(name):
    return (RESOURCE0 / name).as_uri()


class Site(unittest.TestCase):
    def setUp(self):
        profile = tempfile.TemporaryDirectory(dir=SCRATCH, ignore_cleanup_errors=True)
        self.addCleanup(profile.cleanup)
        self.browser = Browser(profile.name)
        self.addCleanup(self.browser.close)

    def open(self, url):
        """Opens a page. Returns the addresses of its resources. Fails after an error of the page."""
        self.browser.open(url)
        self.assertEqual(self.browser.happened("Network.loadingFailed"), [], url)
        self.assertEqual(self.browser.happened("Log.entryAdded"), [], url)
        self.assertEqual(self.browser.happened("Runtime.exceptionThrown"), [], url)
        asked = {request["requestId"]: request["request"]["url"]
                 for request in self.browser.happened("Network.requestWillBeSent")}
        answered = {response["requestId"]
                    for response in self.browser.happened("Network.responseReceived")}
        self.assertLessEqual(asked.keys(), answered, url)
        return set(asked.values())

    def keep_screenshot(self, name):
        SCREENSHOTS.mkdir(exist_ok=True)
        picture = self.browser.screenshot(960, 900)
        self.assertTrue(picture.startswith(b"\x89PNG"))
        (SCREENSHOTS / name).write_bytes(picture)

    def test_every_resource_of_the_start_page_loads_from_the_installed_tree(self):
        loaded = self.open(address("index.html"))
        self.assertEqual(loaded, {address(name) for name in (
            "index.html", "style/site.css", "script/sort.js", "images/cloud.svg",
            "images/cumulus.svg", "images/stratus.svg", "images/cirrus.svg")})
        self.keep_screenshot("index.png")

    def test_every_page_that_is_linked_to_loads_from_the_installed_tree(self):
        waiting, seen = [address("index.html")], set()
        while waiting:
            page = waiting.pop()
            if page in seen:
                continue
            seen.add(page)
            for url in self.open(page):
                self.assertTrue(url.startswith(address("") + "/"), url)
            waiting += self.browser.evaluate(
                "Array.from(document.links, link => link.href.replace(/#.*/, ''))")
        files = {address(path.relative_to(RESOURCE0)) for path in RESOURCE0.rglob("*.html")}
        self.assertLessEqual(files, seen)
        self.assertGreater(len(files), 3)
        self.browser.open(address("clouds/cumulus.html"))
        self.keep_screenshot("cumulus.png")

    def test_style_image_and_script_take_effect(self):
        self.open(address("index.html"))
        self.assertGreater(self.browser.evaluate("document.images[0].naturalWidth"), 0)
        self.assertEqual(self.browser.evaluate("document.styleSheets.length"), 1)
        first = "document.querySelector('#clouds tbody tr').cells[0].textContent.trim()"
        self.assertEqual(self.browser.evaluate(first), "Cumulus")
        self.browser.evaluate("document.querySelectorAll('#clouds th')[1].click()")
        self.assertEqual(self.browser.evaluate(first), "Stratus")

    def test_missing_resource_would_be_noticed(self):
        self.browser.open(address("no-such-page.html"))
        self.assertNotEqual(self.browser.happened("Network.loadingFailed"), [])


if __name__ == "__main__":
    unittest.main()
