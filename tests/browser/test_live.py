"""The live view in a real browser (Debian's headless Chromium), against the
simulated camera through its web server. Checks what only a browser can
show: pointer and keyboard handling, the stops on every way of letting go,
the picture, and the layout on a phone. Packets are read from the camera
simulator's journal; screenshots go to $SCREENSHOTS for a person to look at.

Usage: /usr/bin/python3 tests/browser/test_live.py  (with WEB_HTTP_PORT,
CAMERA_RUN_DIR and SCREENSHOTS set, as scripts/e2e.sh does)
"""
import os
import re
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

BASE = f"http://127.0.0.1:{os.environ['WEB_HTTP_PORT']}/"
RUN = os.environ["CAMERA_RUN_DIR"]
SHOTS = os.environ.get("SCREENSHOTS", tempfile.mkdtemp())

PAN_TILT = re.compile(r"81 01 06 01 (..) (..) (..) (..) ff")
PT_STOP = re.compile(r"81 01 06 01 .. .. 03 03 ff")


def last_drive(lines):
    """The last pan-tilt drive packet among the lines (the page's position
    inquiries go on around it)."""
    drives = [line for line in lines if PAN_TILT.fullmatch(line)]
    return drives[-1] if drives else ""


class Journal:
    """The lines a journal gained since it was marked."""

    def __init__(self, name):
        self.path = os.path.join(RUN, name)
        self.mark()

    def mark(self):
        self.start = os.path.getsize(self.path)

    def lines(self):
        with open(self.path) as f:
            f.seek(self.start)
            return f.read().splitlines()

    def wait_for(self, pattern, timeout=5):
        """Waits until a line matches; the lines so far."""
        return self.wait_until(lambda lines: any(re.fullmatch(pattern, line) for line in lines), pattern, timeout)

    def wait_until(self, done, what, timeout=5):
        """Waits until done(lines) holds; the lines so far."""
        end = time.time() + timeout
        while time.time() < end:
            lines = self.lines()
            if done(lines):
                return lines
            time.sleep(0.05)
        raise AssertionError(f"never {what} in {self.path}: {self.lines()}")

    def wait_stopped(self):
        """Waits until a move was sent and the last pan-tilt drive is the stop."""
        return self.wait_until(lambda lines: any(PAN_TILT.fullmatch(l) and not PT_STOP.fullmatch(l) for l in lines)
                               and PT_STOP.fullmatch(last_drive(lines)), "a move, then the stop")


def browser():
    """Debian's Chromium, headless, with a profile of its own."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--window-size=1280,860", f"--user-data-dir={tempfile.mkdtemp()}"):
        options.add_argument(flag)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.implicitly_wait(0)
    os.makedirs(SHOTS, exist_ok=True)
    return driver


class LiveView(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.driver = browser()
        cls.visca = Journal("visca.log")

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()

    # ---- helpers ------------------------------------------------------------------------
    def el(self, id_):
        return self.driver.find_element(By.ID, id_)

    def until(self, what, timeout=5):
        return WebDriverWait(self.driver, timeout, 0.05).until(lambda d: what())

    def shot(self, name):
        self.driver.save_screenshot(os.path.join(SHOTS, f"live-{name}.png"))

    def login(self, password="admin"):
        d = self.driver
        d.get(BASE)
        d.execute_script("sessionStorage.clear()")
        d.get(BASE)
        form = self.until(lambda: self.el("login").is_displayed() and self.el("login"))
        form.find_element(By.NAME, "user").send_keys("admin")
        form.find_element(By.NAME, "password").send_keys(password, Keys.ENTER)

    def logged_in(self):
        self.login()
        self.until(lambda: self.el("live").is_displayed())
        self.until(lambda: self.driver.execute_script(
            "const i = document.getElementById('preview'); return i.complete && i.naturalWidth > 0"))

    def picture(self):
        return self.driver.execute_script("""
            const i = document.getElementById('preview'), c = document.createElement('canvas');
            c.width = i.naturalWidth; c.height = i.naturalHeight;
            c.getContext('2d').drawImage(i, 0, 0); return c.toDataURL();""")

    def drag(self, id_, *offsets, release=True):
        """Holds the pointer on the control's centre and moves it by each offset in turn."""
        chain = ActionChains(self.driver, duration=50).move_to_element(self.el(id_)).click_and_hold()
        for dx, dy in offsets:
            chain = chain.move_by_offset(dx, dy).pause(0.4)
        if release:
            chain = chain.release()
        chain.perform()

    def pan_tilt_moves(self, lines):
        return [m.groups() for m in map(PAN_TILT.fullmatch, lines) if m and m.group(3, 4) != ("03", "03")]

    # ---- the tests ----------------------------------------------------------------------
    def test_wrong_password_is_refused_with_a_message(self):
        self.login("wrong")
        self.until(lambda: self.el("message").is_displayed())
        self.assertIn("Wrong user name or password", self.el("message").text)
        self.assertFalse(self.el("live").is_displayed())
        self.shot("wrong-password")

    def test_joystick_speeds_grow_with_the_distance_and_release_stops(self):
        self.logged_in()
        before = self.picture()
        self.visca.mark()
        self.drag("joystick", (30, -30), (40, -40), (30, -30))
        lines = self.visca.wait_stopped()
        moves = self.pan_tilt_moves(lines)
        self.assertGreaterEqual(len(moves), 2, lines)
        self.assertTrue(all(m[2:] == ("02", "01") for m in moves), moves)  # right and up
        pan_speeds = [int(m[0], 16) for m in moves]
        self.assertEqual(pan_speeds, sorted(pan_speeds), moves)
        self.assertLess(pan_speeds[0], pan_speeds[-1], moves)
        self.assertRegex(last_drive(lines), PT_STOP)
        self.until(lambda: self.picture() != before, timeout=5)  # the test card followed the motors
        self.shot("after-move")

    def test_every_way_of_letting_go_stops(self):
        self.logged_in()
        ways = {
            "window blur": "window.dispatchEvent(new Event('blur'))",
            "hidden page": "Object.defineProperty(document, 'hidden', {value: true, configurable: true});"
                           "document.dispatchEvent(new Event('visibilitychange'));"
                           "delete document.hidden",
            "pointer leaves the window": "document.dispatchEvent(new MouseEvent('mouseout', {relatedTarget: null}))",
            "a failed request": "const real = window.fetch; window.fetch = (u, o) => String(u).includes('PTS5050')"
                                " ? real(u, o) : (window.fetch = real, Promise.reject(new TypeError('cut')))",
        }
        for way, script in ways.items():
            with self.subTest(way):
                self.visca.mark()
                self.drag("joystick", (60, 0), release=False)
                if way == "a failed request":
                    self.driver.execute_script(script)
                    ActionChains(self.driver, duration=50).move_by_offset(30, 0).pause(0.3).perform()
                else:
                    self.visca.wait_for(r"81 01 06 01 .. .. 02 03 ff")
                    self.driver.execute_script(script)
                lines = self.visca.wait_stopped()
                self.assertRegex(last_drive(lines), PT_STOP)
                ActionChains(self.driver).release().perform()
        self.assertIn("cannot be reached", self.el("message").text)

    def test_arrow_keys_move_while_held(self):
        self.logged_in()
        self.visca.mark()
        ActionChains(self.driver).key_down(Keys.ARROW_LEFT).pause(0.3).key_up(Keys.ARROW_LEFT).perform()
        lines = self.visca.wait_stopped()
        self.assertTrue(any(re.fullmatch(r"81 01 06 01 .. .. 01 03 ff", line) for line in lines), lines)

    def test_zoom_focus_presets_and_standby(self):
        self.logged_in()
        syscmd = Journal("syscmd.log")
        rows = [  # what the person does, and the packets it must send, in order
            ("zoom rocker", lambda: self.drag("rocker", (60, 0)), [r"81 01 04 07 2. ff", r"81 01 04 07 00 ff"]),
            ("mouse wheel", lambda: self.driver.execute_script(
                "document.getElementById('preview').dispatchEvent(new WheelEvent('wheel', {deltaY: 120, cancelable: true}))"),
             [r"81 01 04 07 3. ff", r"81 01 04 07 00 ff"]),
            ("focus near held", lambda: self.drag("focus-near"),
             [r"81 01 04 38 03 ff", r"81 01 04 08 2. ff", r"81 01 04 38 03 ff", r"81 01 04 08 00 ff"]),
            ("auto focus", lambda: self.el("autofocus").click(), [r"81 01 04 38 0[23] ff"]),
            ("store preset 5", lambda: self.preset("store", 5), [r"81 01 04 3f 00 00 05 ff"]),
            ("recall preset 5", lambda: self.preset(None, 5), [r"81 01 04 3f 01 00 05 ff"]),
            ("clear preset 5", lambda: self.preset("clear", 5), [r"81 01 04 3f 02 00 05 ff"]),
        ]
        for name, act, packets in rows:
            with self.subTest(name):
                self.visca.mark()
                act()
                lines = self.visca.wait_for(packets[-1])
                # In order, from the first to the last; a drag may send a
                # speed more than once on the way.
                sent = [line for line in lines if any(re.fullmatch(p, line) for p in packets)]
                self.assertRegex(sent[0], packets[0])
                self.assertRegex(sent[-1], packets[-1])
                at = iter(sent)
                self.assertTrue(all(any(re.fullmatch(p, line) for line in at) for p in packets), sent)
                if name == "store preset 5":
                    self.until(lambda: "stored" in self.preset_button(5).get_attribute("class"))
                    self.shot("preset-stored")
        for _ in range(2):  # standby and back, whichever comes first
            syscmd.mark()
            self.el("power").click()
            self.assertTrue(any(re.fullmatch(r"64 0[01]", line) for line in syscmd.wait_for(r"64 0[01]")))
            self.until(lambda: self.el("power").get_attribute("aria-pressed") == (
                "true" if "64 01" in syscmd.lines() else "false"))

    def preset_button(self, n):
        return self.driver.find_element(By.CSS_SELECTOR, f"#grid button[data-preset='{n}']")

    def preset(self, mode, n):
        if mode:
            self.el(mode).click()
        self.preset_button(n).click()
        if mode:
            dialog = self.until(lambda: self.el("confirm").is_displayed() and self.el("confirm"))
            dialog.find_element(By.CSS_SELECTOR, "button[value=yes]").click()

    def test_fits_a_phone(self):
        self.logged_in()
        ready = self.driver.execute_script(
            "return performance.getEntriesByType('navigation')[0].domContentLoadedEventEnd")
        print(f"\nlive view interactive after {ready:.0f} ms (a figure, not a check)")
        self.driver.set_window_size(360, 740)
        try:
            width = self.driver.execute_script("return document.documentElement.clientWidth")
            self.assertLessEqual(self.driver.execute_script("return document.documentElement.scrollWidth"), width)
            self.shot("phone")
        finally:
            self.driver.set_window_size(1280, 860)
        self.shot("desktop")


if __name__ == "__main__":
    unittest.main(verbosity=2)
