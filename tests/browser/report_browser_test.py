#!/usr/bin/python3
"""Opens Zentrix reports in headless Chromium and checks what a reader sees:
every section heading, sections closed at first, opening and closing by
click, nested sections growing their parent, the four status icons drawn,
and a console without errors.

    report_browser_test.py --zentrix BIN --agent-sim BIN [--profiles DIR]
    report_browser_test.py --report FILE       (check one given report)
    report_browser_test.py --index DIR         (check a fleet index and its links)
    ... --break no-script|broken-script|no-style
        checks a spoiled copy instead; passes only when the checks that must
        notice that damage fail
    ... --screenshots DIR                      (PNGs of what was checked)

Exit status 77 (skipped) when Chromium, its driver, Selenium or PIL is missing.
"""

import argparse
import base64
import collections
import glob
import io
import itertools
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

SKIPPED = 77
CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
SOURCE_DIR = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
STATUSES = ("normal", "warning", "error", "not-present")
CLOSED_ARROW = '"\u02c3"'
OPEN_ARROW = '"\u02c5"'
# The sections slide for 0.2 s; allow for a slow, shared machine.
TRANSITION_TIMEOUT = 3.0

# Filled in by main() before the tests run.
settings = argparse.Namespace(typical=None, degraded=None, all_statuses=True, screenshots=None, index=None)
browser = None


def missing_tools():
    missing = [path for path in (CHROMIUM, CHROMEDRIVER) if not os.access(path, os.X_OK)]
    for module, package in (("selenium", "python3-selenium"), ("PIL", "python3-pil")):
        try:
            __import__(module)
        except ImportError:
            missing.append(package)
    # The driver is reached as "localhost"; a bare chroot may have no hosts file.
    try:
        socket.getaddrinfo("localhost", None)
    except OSError:
        missing.append("a 'localhost' entry in /etc/hosts")
    return missing


# ---- what the pages build -------------------------------------------------

def titles_built_by_pages(pages_dir):
    """Section titles and page title lines, read from the page builders."""
    sections, pages = collections.Counter(), collections.Counter()
    for path in glob.glob(os.path.join(pages_dir, "*.cpp")):
        # The document's own title is the heading, not a page's title line.
        if path.endswith("_test.cpp") or os.path.basename(path) == "Zentrix.cpp":
            continue
        with open(path, encoding="utf-8") as source:
            text = source.read()
        sections.update(re.findall(r'\b(?:addSection|newSection|addCategory)\(\s*"([^"]+)"', text))
        pages.update(re.findall(r'\bsetTitle\(\s*"([^"]+)"\s*\)', text))
    if not sections or not pages:
        raise RuntimeError("no section titles found in " + pages_dir)
    return sections, pages


# ---- making reports -------------------------------------------------------

def make_report(zentrix, agent_sim, profile, workdir):
    """Runs Zentrix against the simulator serving PROFILE; returns the file."""
    name = os.path.splitext(os.path.basename(profile))[0]
    root = os.path.join(workdir, name + "-root")
    os.makedirs(root)
    output = os.path.join(workdir, name + ".html")
    env = dict(os.environ, ZENTRIX_ROOT=root)
    sim = subprocess.Popen([agent_sim, "--root", root, "--profile", profile], env=env,
                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    try:
        # The pid file appears once every socket accepts connections.
        deadline = time.monotonic() + 10
        while not os.path.exists(os.path.join(root, "var/run/omad.pid")):
            if sim.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError("agent simulator did not start: " + sim.stderr.read().decode())
            time.sleep(0.05)
        run = subprocess.run([zentrix, "-output", output], cwd=workdir, env=env,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
        if run.returncode != 0 or not os.path.exists(output):
            raise RuntimeError("Zentrix failed (%d): %s" % (run.returncode, run.stdout.decode()))
    finally:
        sim.terminate()
        sim.wait(timeout=10)
    return output


# Damage a copy of a report the way an editing slip in the document would.
def _without(tag):
    return lambda html: re.sub(r"<%s>.*?</%s>" % (tag, tag), "", html, count=1, flags=re.S)


def _truncated_script(html):
    start = html.index("<script>") + len("<script>")
    end = html.index("</script>")
    return html[:start] + html[start:(start + end) // 2] + html[end:]


BREAKS = {
    "no-script": _without("script"),
    "broken-script": _truncated_script,
    "no-style": _without("style"),
}

# The checks that must notice each kind of damage.
MUST_FAIL = {
    "no-script": {"test_click_opens_and_second_click_closes", "test_opening_nested_section_grows_parent",
                  "test_each_close_is_logged"},
    "broken-script": {"test_click_opens_and_second_click_closes", "test_opening_nested_section_grows_parent",
                      "test_no_console_errors", "test_each_close_is_logged"},
    "no-style": {"test_every_section_is_closed_at_first", "test_each_status_icon_is_drawn"},
}


def spoiled_copy(path, kind, workdir):
    with open(path, encoding="utf-8") as report:
        html = report.read()
    spoiled = BREAKS[kind](html)
    if spoiled == html:
        raise RuntimeError("could not apply %s to %s" % (kind, path))
    copy = os.path.join(workdir, kind + "-" + os.path.basename(path))
    with open(copy, "w", encoding="utf-8") as out:
        out.write(spoiled)
    return copy


# ---- the browser ----------------------------------------------------------

# Everything a check needs to know about one section, read in one round trip.
SECTION_STATE_JS = """
var button = arguments[0], content = button.nextElementSibling;
var box = content.getBoundingClientRect();
return {inline: content.style.maxHeight, computed: getComputedStyle(content).maxHeight,
        height: box.height, top: box.top, bottom: box.bottom, scrollHeight: content.scrollHeight,
        active: button.classList.contains("active"), sliding: content.getAnimations().length > 0,
        arrow: getComputedStyle(button, "::after").content};
"""


class Browser:
    def __init__(self, workdir):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        # This machine has no network: without these Chromium waits on connections.
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--window-size=1280,900", "--user-data-dir=" + os.path.join(workdir, "chromium")):
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)

    def quit(self):
        self.driver.quit()

    def open(self, path):
        self.driver.get_log("browser")  # drop what earlier pages logged
        self.driver.get("file://" + os.path.abspath(path))

    def js(self, script, *args):
        return self.driver.execute_script(script, *args)

    def buttons(self):
        return self.driver.find_elements("css selector", "button.collapsible")

    def titles(self):
        # textContent, not .text: the titles of closed nested sections are hidden.
        return self.js("return Array.from(document.querySelectorAll('button.collapsible'))"
                       ".map(function(b){ return b.textContent; })")

    def state(self, button):
        return self.js(SECTION_STATE_JS, button)

    def wait_until(self, condition, timeout=TRANSITION_TIMEOUT):
        """Polls CONDITION (a callable) until it holds; returns whether it did."""
        deadline = time.monotonic() + timeout
        while True:
            if condition():
                return True
            if time.monotonic() > deadline:
                return False
            time.sleep(0.03)

    def wait_settled(self, button):
        """Waits for the section's slide to end; returns its final state."""
        self.wait_until(lambda: not self.state(button)["sliding"])
        return self.state(button)

    def click(self, button):
        """A real mouse click; a section the reader cannot click fails the check."""
        from selenium.common.exceptions import ElementClickInterceptedException, ElementNotInteractableException
        try:
            button.click()
        except (ElementClickInterceptedException, ElementNotInteractableException) as error:
            raise AssertionError("cannot click section %r: %s" % (self.title(button), error.msg)) from None

    def title(self, button):
        return button.get_attribute("textContent")

    def open_section(self, button):
        """Opens a closed section and waits for its slide."""
        self.click(button)
        return self.wait_settled(button)

    def screenshot(self, name):
        if settings.screenshots:
            os.makedirs(settings.screenshots, exist_ok=True)
            self.driver.save_screenshot(os.path.join(settings.screenshots, name))


def png(data):
    from PIL import Image
    return Image.open(io.BytesIO(data)).convert("RGB")


def _far(a, b):
    return sum(abs(x - y) for x, y in zip(a, b)) > 60


def inked_pixels(image, background):
    return sum(1 for pixel in image.getdata() if _far(pixel, background))


def ink_box(image, background):
    """The part of IMAGE that differs from BACKGROUND."""
    inked = [(i % image.width, i // image.width) for i, pixel in enumerate(image.getdata())
             if _far(pixel, background)]
    if not inked:
        return image
    xs, ys = [x for x, _ in inked], [y for _, y in inked]
    return image.crop((min(xs), min(ys), max(xs) + 1, max(ys) + 1))


def differing_pixels(first, second):
    """Pixels that differ between two drawn icons, each cut to its own ink:
    rows sit at fractional heights, so the same icon may be a pixel apart."""
    size = (max(first.width, second.width), max(first.height, second.height))
    first, second = first.resize(size), second.resize(size)
    return sum(1 for a, b in zip(first.getdata(), second.getdata()) if _far(a, b))


# ---- the checks -----------------------------------------------------------

class ReportTestCase(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.b = browser


class SectionsTest(ReportTestCase):
    def setUp(self):
        super().setUp()
        self.b.open(settings.typical)

    def test_every_section_heading_is_present(self):
        sections, pages = titles_built_by_pages(os.path.join(SOURCE_DIR, "pages"))
        shown = collections.Counter(self.b.titles())
        self.assertEqual(sections, shown)
        lines = self.b.driver.find_elements("css selector", "button.title-line")
        self.assertEqual(pages, collections.Counter(line.text for line in lines))

    def test_every_section_is_closed_at_first(self):
        self.b.screenshot("browser-closed.png")
        for button, title in zip(self.b.buttons(), self.b.titles()):
            with self.subTest(section=title):
                state = self.b.state(button)
                self.assertEqual("", state["inline"])
                self.assertEqual("0px", state["computed"])
                self.assertEqual(0, state["height"])
                self.assertFalse(state["active"])
                self.assertEqual(CLOSED_ARROW, state["arrow"])
        for body in self.b.driver.find_elements("css selector", ".panel-body, .data-table"):
            self.assertFalse(body.is_displayed(), "content of a closed section is visible")


class ToggleTest(ReportTestCase):
    def setUp(self):
        super().setUp()
        self.b.open(settings.typical)

    def top_level_buttons(self):
        return self.b.driver.find_elements("css selector", ".content-main > button.collapsible")

    def test_click_opens_and_second_click_closes(self):
        top = self.top_level_buttons()
        self.assertGreater(len(top), 0)
        for button in top:
            with self.subTest(section=button.text):
                self.b.click(button)
                state = self.b.state(button)
                self.assertEqual("%dpx" % state["scrollHeight"], state["inline"])
                self.assertTrue(state["active"])
                self.assertEqual(OPEN_ARROW, state["arrow"])
                state = self.b.wait_settled(button)
                self.assertGreater(state["height"], 0)
                self.assertAlmostEqual(state["scrollHeight"], state["height"], delta=1)
                first_child = self.b.js("return arguments[0].nextElementSibling.firstElementChild", button)
                self.assertTrue(first_child.is_displayed())
                if button.text == "System":
                    self.b.screenshot("browser-open.png")

                self.b.click(button)
                state = self.b.state(button)
                self.assertEqual("", state["inline"])
                self.assertFalse(state["active"])
                self.assertEqual(CLOSED_ARROW, state["arrow"])
                state = self.b.wait_settled(button)
                self.assertEqual(0, state["height"])
                self.assertFalse(first_child.is_displayed())

    def test_opening_nested_section_grows_parent(self):
        # The first section that holds two or more sections of its own.
        found = self.b.js(
            "var all = document.querySelectorAll('button.collapsible');"
            "for (var i = 0; i < all.length; i++) {"
            "  var inner = Array.from(all[i].nextElementSibling.children)"
            "      .filter(function(e){ return e.matches('button.collapsible'); });"
            "  if (inner.length >= 2) return [all[i], inner];"
            "}"
            "return null;")
        self.assertIsNotNone(found, "no section holds two nested sections")
        parent, children = found
        parent_state = self.b.open_section(parent)
        for child in children:
            with self.subTest(section=self.b.title(child)):
                self.assertRegex(parent_state["inline"], r"^\d+px$", "the parent did not open")
                before = int(parent_state["inline"].replace("px", ""))
                grows_by = self.b.state(child)["scrollHeight"]
                self.b.click(child)
                parent_state = self.b.state(parent)
                self.assertEqual("%dpx" % (before + grows_by), parent_state["inline"])
                self.b.wait_settled(child)
                parent_state = self.b.wait_settled(parent)
        # Both children are shown whole: the grown parent does not clip them.
        for child in children:
            state = self.b.state(child)
            self.assertAlmostEqual(state["scrollHeight"], state["height"], delta=1, msg=self.b.title(child))
            self.assertLessEqual(state["bottom"], parent_state["bottom"] + 0.5, self.b.title(child))
        self.b.js("arguments[0].scrollIntoView()", parent)
        self.b.screenshot("browser-nested.png")

        # Closing a child grows the parent once more; the parent is never shrunk.
        before = int(parent_state["inline"].replace("px", ""))
        grows_by = self.b.state(children[0])["scrollHeight"]
        self.b.click(children[0])
        self.assertEqual("%dpx" % (before + grows_by), self.b.state(parent)["inline"])
        self.assertEqual("", self.b.state(children[0])["inline"])


class IconsTest(ReportTestCase):
    def setUp(self):
        super().setUp()
        self.b.open(settings.degraded)

    def reveal(self, cell):
        """Opens the sections around CELL, outermost first."""
        buttons = self.b.js(
            "var found = [];"
            "for (var e = arguments[0]; e; e = e.parentElement)"
            "  if (e.classList.contains('content')) found.unshift(e.previousElementSibling);"
            "return found;", cell)
        for button in buttons:
            if not self.b.state(button)["active"]:
                self.b.open_section(button)

    def icon_area(self, cell):
        """The rendered cell's padding, where the icon sits, as an image."""
        self.b.js("arguments[0].scrollIntoView({block: 'center'})", cell)
        shot = png(cell.screenshot_as_png)
        padding = float(self.b.js("return getComputedStyle(arguments[0]).paddingLeft", cell).replace("px", ""))
        scale = shot.width / cell.size["width"]
        return shot, shot.crop((0, 0, int(padding * scale), shot.height))

    def test_each_status_icon_is_drawn(self):
        required = STATUSES if settings.all_statuses else [
            s for s in STATUSES if self.b.driver.find_elements("css selector", "td.status-%s.icon" % s)]
        self.assertTrue(required, "no status cells in the report")
        embedded, drawn = {}, {}
        for status in required:
            with self.subTest(status=status):
                cells = self.b.driver.find_elements("css selector", "td.status-%s.icon" % status)
                self.assertTrue(cells, "no row with status " + status)
                cell = cells[0]
                image = self.b.js("return getComputedStyle(arguments[0]).backgroundImage", cell)
                match = re.fullmatch(r'url\("data:image/png;base64,([A-Za-z0-9+/=]+)"\)', image)
                self.assertIsNotNone(match, "background of %s: %.60s" % (status, image))
                icon = png(base64.b64decode(match.group(1)))
                self.assertEqual((16, 16), icon.size)
                embedded[status] = icon.tobytes()

                self.reveal(cell)
                shot, area = self.icon_area(cell)
                background = max(shot.getcolors(shot.width * shot.height))[1]
                self.assertGreater(inked_pixels(area, background), 30, "the %s icon cell is blank" % status)
                drawn[status] = ink_box(area, background)
        self.assertEqual(len(embedded), len(set(embedded.values())), "two statuses embed the same icon")
        for first, second in itertools.combinations(drawn, 2):
            self.assertGreater(differing_pixels(drawn[first], drawn[second]), 30,
                               "the %s and %s icons look the same" % (first, second))
        if settings.all_statuses:
            self.b.js("window.scrollTo(0, 0)")
            self.b.screenshot("browser-icons.png")


class IndexTest(IconsTest):
    """The fleet index: its icons are drawn (the inherited check) and each
    host's link opens the report fetched for that host."""
    def setUp(self):
        self.b = browser
        self.b.open(os.path.join(settings.index, "index.html"))

    def test_each_link_opens_its_hosts_report(self):
        rows = self.b.js("return Array.from(document.querySelectorAll('tr[data-host] a')).map(function(a){"
                         "  var row = a.closest('tr'); return [row.dataset.host, a.href, row.cells[3].textContent]; })")
        self.assertTrue(rows, "no links in the index")
        for host, href, attention in rows:
            with self.subTest(host=host):
                self.b.driver.get(href)
                path = urllib.parse.unquote(urllib.parse.urlparse(self.b.driver.current_url).path)
                self.assertEqual(os.path.join(settings.index, host), os.path.dirname(path))
                self.assertTrue(os.path.isfile(path), path)
                # The categories the report itself colours warning or error.
                shown = self.b.js("return Array.from(document.querySelectorAll('.content-main > button.status-warning,"
                                  " .content-main > button.status-error')).map(function(b){ return b.textContent; })")
                self.assertEqual(attention, ", ".join(shown))


class ConsoleTest(ReportTestCase):
    def exercise(self, report):
        """Opens every section in page order, closes them all again; returns
        the number of sections and what the console got."""
        self.b.open(report)
        count = self.b.js(
            "var all = Array.from(document.getElementsByClassName('collapsible'));"
            "all.forEach(function(b){ b.click(); });"
            "all.slice().reverse().forEach(function(b){ b.click(); });"
            "return all.length;")
        return count, self.b.driver.get_log("browser")

    def test_no_console_errors(self):
        for report in (settings.typical, settings.degraded):
            with self.subTest(report=os.path.basename(report)):
                _, log = self.exercise(report)
                self.assertEqual([], [entry["message"] for entry in log if entry["level"] == "SEVERE"])

    def test_each_close_is_logged(self):
        for report in (settings.typical, settings.degraded):
            with self.subTest(report=os.path.basename(report)):
                count, log = self.exercise(report)
                closes = [entry["message"] for entry in log if entry.get("source") == "console-api"]
                self.assertEqual(count, len(closes), "one console line per closed section")
                for message in closes:
                    self.assertRegex(message, r'"\d+px"$')


# ---- running --------------------------------------------------------------

def parse_arguments(argv):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--zentrix", help="the Zentrix program")
    parser.add_argument("--agent-sim", help="the agent simulator")
    parser.add_argument("--profiles", default=os.path.join(SOURCE_DIR, "tools", "agent-sim", "profiles"))
    parser.add_argument("--report", help="check this report file instead of making reports")
    parser.add_argument("--index", help="check the fleet index in this reports directory instead")
    parser.add_argument("--break", dest="break_kind", choices=sorted(BREAKS),
                        help="check a spoiled copy; pass only when the checks notice it")
    parser.add_argument("--screenshots", help="save PNGs of the checked pages into this directory")
    parser.add_argument("-v", "--verbose", action="store_true")
    arguments = parser.parse_args(argv)
    for name in ("zentrix", "agent_sim", "report", "index"):
        if getattr(arguments, name):
            setattr(arguments, name, os.path.abspath(getattr(arguments, name)))
    if not (arguments.report or arguments.index) and not (arguments.zentrix and arguments.agent_sim):
        parser.error("give --report FILE, --index DIR, or --zentrix and --agent-sim")
    return arguments


def run_checks(verbose):
    classes = [IndexTest] if settings.index else ReportTestCase.__subclasses__()
    suite = unittest.TestSuite(unittest.defaultTestLoader.loadTestsFromTestCase(c) for c in classes)
    return unittest.TextTestRunner(verbosity=2 if verbose else 1, stream=sys.stdout).run(suite)


def failed_checks(result):
    # A failed sub-test reports its case with the parameters appended.
    return {getattr(test, "test_case", test).id().rsplit(".", 1)[-1] for test, _ in result.failures}


def main(argv):
    arguments = parse_arguments(argv)
    missing = missing_tools()
    if missing:
        print("browser test skipped: %s missing" % ", ".join(missing))
        return SKIPPED
    if arguments.index and not os.path.isfile(os.path.join(arguments.index, "index.html")):
        print("browser test skipped: no index.html in %s (no fleet run)" % arguments.index)
        return SKIPPED

    global browser
    workdir = tempfile.mkdtemp(prefix="zx-browser-")
    started = time.monotonic()
    try:
        if arguments.index:
            settings.index, settings.all_statuses = arguments.index, False
        elif arguments.report:
            settings.typical = settings.degraded = arguments.report
            settings.all_statuses = False
        else:
            for name in ("typical", "degraded"):
                profile = os.path.join(arguments.profiles, name + ".json")
                setattr(settings, name, make_report(arguments.zentrix, arguments.agent_sim, profile, workdir))
        if arguments.break_kind:
            settings.typical = spoiled_copy(settings.typical, arguments.break_kind, workdir)
            settings.degraded = spoiled_copy(settings.degraded, arguments.break_kind, workdir)
        settings.screenshots = arguments.screenshots
        browser = Browser(workdir)
        try:
            result = run_checks(arguments.verbose)
        finally:
            browser.quit()
    finally:
        shutil.rmtree(workdir, ignore_errors=True)
    print("browser checks took %.1f s" % (time.monotonic() - started))

    if not arguments.break_kind:
        return 0 if result.wasSuccessful() else 1
    # A spoiled report must fail the right checks, by assertion, not by a crash.
    unnoticed = MUST_FAIL[arguments.break_kind] - failed_checks(result)
    if result.errors or unnoticed:
        print("%s: not noticed by %s%s" % (arguments.break_kind, ", ".join(sorted(unnoticed)) or "-",
                                           "; checks crashed" if result.errors else ""))
        return 1
    print("%s noticed by: %s" % (arguments.break_kind, ", ".join(sorted(failed_checks(result)))))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
