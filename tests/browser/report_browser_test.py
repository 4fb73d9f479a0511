#!/usr/bin/python3
# Opens the report of the simulator's degraded server in headless Chromium and
# checks what only a browser shows: every section closed at first, a click
# opening a section to its full height and a second one closing it, a nested
# section growing its parent, the four status icons drawn, and a console
# without errors that logs each close. The report's bytes are the golden
# tests' business.
#
#     report_browser_test.py --zentrix BIN --agent-sim BIN [--break KIND] [--screenshots DIR]
#
# --break no-script|broken-script|no-style checks a spoiled copy instead and
# passes only when the checks that must notice that damage fail. --screenshots
# saves PNGs of what was checked. Exit status 77 (skipped) when Chromium, its
# driver, Selenium or PIL is missing.

import argparse, importlib.util, io, itertools, os, pathlib, re, select, shutil, socket, subprocess, sys
import tempfile, time, unittest

CHROMIUM, CHROMEDRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
PROFILE = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../tools/agent-sim/profiles/degraded.json")
CLOSED_ARROW, OPEN_ARROW = '"\u02c3"', '"\u02c5"'
driver = report = screenshots = None  # set by main()


def missing_tools():
    missing = [path for path in (CHROMIUM, CHROMEDRIVER) if not os.access(path, os.X_OK)]
    missing += [package for module, package in (("selenium", "python3-selenium"), ("PIL", "python3-pil"))
                if importlib.util.find_spec(module) is None]
    try:  # the driver is reached as "localhost"; a bare chroot may have no hosts file
        socket.getaddrinfo("localhost", None)
    except OSError:
        missing.append("a 'localhost' entry in /etc/hosts")
    return missing


def make_report(zentrix, agent_sim, workdir, damage):
    root, output = os.path.join(workdir, "root"), os.path.join(workdir, "report.html")
    env = dict(os.environ, ZENTRIX_ROOT=root)
    ready, ready_w = os.pipe()
    sim = subprocess.Popen([agent_sim, "--root", root, "--profile", PROFILE, "--ready-fd", str(ready_w)],
                           env=env, pass_fds=(ready_w,), stdout=subprocess.DEVNULL)
    os.close(ready_w)
    try:
        # One byte once every socket accepts; none when the simulator dies first.
        if not select.select([ready], [], [], 10)[0] or not os.read(ready, 1):
            raise RuntimeError("agent simulator did not start")
        subprocess.run([zentrix, "-output", output], cwd=workdir, env=env, check=True, stdout=subprocess.DEVNULL,
                       timeout=60)
    finally:
        os.close(ready)
        sim.terminate()
        sim.wait(timeout=10)
    if damage:
        html = pathlib.Path(output)
        html.write_text(BREAKS[damage](html.read_text(encoding="utf-8")), encoding="utf-8")
    return output


# Damage to the report as an editing slip in the document would do it, and
# the checks that must notice it.
BREAKS = {"no-script": lambda html: re.sub(r"<script>.*?</script>", "", html, flags=re.S),
          "no-style": lambda html: re.sub(r"<style>.*?</style>", "", html, flags=re.S),
          "broken-script": lambda html: html[:(html.index("<script>") + html.index("</script>")) // 2] +
          html[html.index("</script>"):]}
SCRIPT_CHECKS = {"test_click_opens_and_second_click_closes", "test_opening_nested_section_grows_parent"}
MUST_FAIL = {"no-script": SCRIPT_CHECKS, "broken-script": SCRIPT_CHECKS,
             "no-style": {"test_every_section_is_closed_at_first", "test_each_status_icon_is_drawn"}}


def start_browser(workdir):
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    # This machine has no network: without these Chromium waits on connections.
    for flag in ("headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run", "disable-sync",
                 "disable-background-networking", "disable-component-update", "window-size=1280,900",
                 "user-data-dir=" + os.path.join(workdir, "chromium")):
        options.add_argument("--" + flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)


def js(script, *args):
    return driver.execute_script(script, *args)


# Everything a check needs to know about one section, in one round trip; with
# settle, once its slide (0.2 s) has ended: a shared machine may be slow.
def state(button, settle=False):
    deadline = time.monotonic() + 3
    while True:
        s = js("var button = arguments[0], content = button.nextElementSibling, box = content.getBoundingClientRect();"
               "return {inline: content.style.maxHeight, computed: getComputedStyle(content).maxHeight,"
               "  height: box.height, bottom: box.bottom, scrollHeight: content.scrollHeight,"
               "  active: button.classList.contains('active'), sliding: content.getAnimations().length > 0,"
               "  arrow: getComputedStyle(button, '::after').content};", button)
        if not (settle and s["sliding"] and time.monotonic() < deadline):
            return s
        time.sleep(0.03)


def screenshot(name):
    if screenshots:
        os.makedirs(screenshots, exist_ok=True)
        driver.save_screenshot(os.path.join(screenshots, name))


def far(a, b):
    return sum(abs(x - y) for x, y in zip(a, b)) > 60


class ReportTest(unittest.TestCase):
    def setUp(self):
        driver.get_log("browser")  # drop what earlier checks logged
        driver.get("file://" + report)

    def tearDown(self):  # whatever a check did, the console shows no error
        self.assertEqual([], [entry["message"] for entry in driver.get_log("browser") if entry["level"] == "SEVERE"])

    def test_every_section_is_closed_at_first(self):
        screenshot("browser-closed.png")
        for button in driver.find_elements("css selector", "button.collapsible"):
            with self.subTest(section=button.get_attribute("textContent")):
                s = state(button)
                self.assertEqual(("", "0px", 0, False, CLOSED_ARROW),
                                 (s["inline"], s["computed"], s["height"], s["active"], s["arrow"]))
        for body in driver.find_elements("css selector", ".panel-body, .data-table"):
            self.assertFalse(body.is_displayed(), "content of a closed section is visible")

    def test_click_opens_and_second_click_closes(self):
        top = driver.find_elements("css selector", ".content-main > button.collapsible")
        self.assertTrue(top)
        for button in top:
            with self.subTest(section=button.text):
                button.click()
                s = state(button)
                self.assertEqual(("%dpx" % s["scrollHeight"], True, OPEN_ARROW), (s["inline"], s["active"], s["arrow"]))
                s = state(button, settle=True)
                self.assertGreater(s["height"], 0)
                self.assertAlmostEqual(s["scrollHeight"], s["height"], delta=1)
                if button.text == "System":
                    screenshot("browser-open.png")
                button.click()
                s = state(button)
                self.assertEqual(("", False, CLOSED_ARROW), (s["inline"], s["active"], s["arrow"]))
                self.assertEqual(0, state(button, settle=True)["height"])
        # One console line per close, with the height it closed from.
        closes = [entry["message"] for entry in driver.get_log("browser") if entry.get("source") == "console-api"]
        self.assertEqual(len(top), len(closes), closes)
        self.assertTrue(all(re.search(r'"\d+px"$', message) for message in closes), closes)

    def test_opening_nested_section_grows_parent(self):
        found = js("for (const b of document.querySelectorAll('button.collapsible')) {"
                   "  const inner = b.nextElementSibling.querySelectorAll(':scope > button.collapsible');"
                   "  if (inner.length >= 2) return [b, [inner[0], inner[1]]]; }")
        self.assertIsNotNone(found, "no section holds two nested sections")
        parent, children = found
        parent.click()
        # Opening both children, then closing the first: the parent grows by
        # the child's height each time and is never shrunk.
        for child in children + children[:1]:
            before = state(parent, settle=True)["inline"]
            self.assertRegex(before, r"^\d+px$", "the parent is not open")
            grown = int(before[:-2]) + state(child)["scrollHeight"]
            child.click()
            self.assertEqual("%dpx" % grown, state(parent)["inline"])
            state(child, settle=True)
            if child is children[1]:  # both open: shown whole, not clipped by the parent
                outer = state(parent, settle=True)
                for shown in map(state, children):
                    self.assertAlmostEqual(shown["scrollHeight"], shown["height"], delta=1)
                    self.assertLessEqual(shown["bottom"], outer["bottom"] + 0.5)
                js("arguments[0].scrollIntoView()", parent)
                screenshot("browser-nested.png")
        self.assertEqual("", state(children[0])["inline"])

    def test_each_status_icon_is_drawn(self):
        from PIL import Image
        colour = {}  # the mean colour of each icon's ink
        for status in ("normal", "warning", "error", "not-present"):
            with self.subTest(status=status):
                cell = driver.find_element("css selector", "td.status-%s.icon" % status)
                # Open the sections around the cell, outermost first.
                for button in js("var found = [];"
                                 "for (var e = arguments[0]; e; e = e.parentElement)"
                                 "  if (e.matches('.content:not([style])')) found.unshift(e.previousElementSibling);"
                                 "return found;", cell):
                    js("arguments[0].click()", button)
                    state(button, settle=True)
                self.assertTrue(cell.is_displayed(), "the %s cell cannot be shown" % status)
                js("arguments[0].scrollIntoView({block: 'center'})", cell)
                # The icon sits in the cell's left padding.
                shot = Image.open(io.BytesIO(cell.screenshot_as_png)).convert("RGB")
                padding = float(js("return getComputedStyle(arguments[0]).paddingLeft", cell)[:-2])
                icon = shot.crop((0, 0, int(padding * shot.width / cell.size["width"]), shot.height))
                background = max(shot.getcolors(shot.width * shot.height))[1]
                ink = [pixel for pixel in icon.getdata() if far(pixel, background)]
                self.assertGreater(len(ink), 30, "the %s icon cell is blank" % status)
                colour[status] = [sum(channel) / len(ink) for channel in zip(*ink)]
        for first, second in itertools.combinations(colour, 2):
            self.assertTrue(far(colour[first], colour[second]), "the %s and %s icons look alike" % (first, second))
        js("window.scrollTo(0, 0)")
        screenshot("browser-icons.png")


def main(argv):
    parser = argparse.ArgumentParser(description="The report as a reader sees it, in headless Chromium.")
    parser.add_argument("--zentrix", required=True)
    parser.add_argument("--agent-sim", required=True)
    parser.add_argument("--screenshots")
    parser.add_argument("--break", dest="damage", choices=sorted(BREAKS))
    arguments = parser.parse_args(argv)
    missing = missing_tools()
    if missing:
        print("browser test skipped: %s missing" % ", ".join(missing))
        return 77
    global driver, report, screenshots
    screenshots, workdir = arguments.screenshots, tempfile.mkdtemp(prefix="zx-browser-")
    try:
        report = make_report(os.path.abspath(arguments.zentrix), os.path.abspath(arguments.agent_sim), workdir,
                             arguments.damage)
        driver = start_browser(workdir)
        suite = unittest.defaultTestLoader.loadTestsFromTestCase(ReportTest)
        result = unittest.TextTestRunner(verbosity=2, stream=sys.stdout).run(suite)
    finally:
        if driver:
            driver.quit()
        shutil.rmtree(workdir, ignore_errors=True)
    if not arguments.damage:
        return 0 if result.wasSuccessful() else 1
    # A spoiled report must fail the right checks, by assertion, not by a
    # crash; a failed sub-test names its case with the parameters appended.
    failed = {getattr(test, "test_case", test).id().rsplit(".", 1)[-1] for test, _ in result.failures}
    unnoticed = MUST_FAIL[arguments.damage] - failed
    print("%s noticed by: %s; missed by: %s%s" % (arguments.damage, ", ".join(sorted(failed)) or "-",
          ", ".join(sorted(unnoticed)) or "-", "; checks crashed" if result.errors else ""))
    return 1 if result.errors or unnoticed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
