"""The settings pages in a real browser, against the simulated camera through
its web server: every writable key of the API description has a control, a
change on each page reaches the camera (its journals) and is shown as read
back, a refused value is marked at its control, the firmware update arrives
whole with a moving progress bar, and a change of address is followed.

Usage: /usr/bin/python3 tests/browser/test_settings.py  (with WEB_HTTP_PORT,
CAMERA_RUN_DIR and SCREENSHOTS set, as scripts/e2e.sh does)
"""
import json
import os
import tempfile
import time
import unittest
import urllib.request

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from test_live import BASE, RUN, SHOTS, Journal, browser

PAGES = "image encoder streams network audio record gb28181 freed ntp tracking system firmware".split()

# Writable keys the settings pages leave to others, on purpose: the drives and
# presets are the live view's, the update companion serves other update tools.
ELSEWHERE = {"image.zoom", "image.focus", "image.ptz", "image.abs ctrl", "image.preset", "system.update"}

# page, control, new value, journal, the line the change must add there
CHANGES = [
    ("image", "image.brightness", "9", "visca.log", "81 01 04 a4 00 00 00 09 ff"),
    ("encoder", "venc.main.bitrate", "8192", "syscmd.log", r"35 00 00 00 00 .* 00 20 00 00 .*"),
    ("streams", "rtmp.main.url", "rtmp://10.0.0.1/x", "syscmd.log", "37 72 74 6d 70 3a 2f 2f 31 30 2e 30 2e 30 2e 31 2f 78"),
    ("network", "ethernet.eth0.viscaPort", "52382", "syscmd.log", "11 9e cc"),
    ("audio", "audio.volume", "33", "syscmd.log", "58 21 00 00 00"),
    ("record", "record.loopRec", "1", "syscmd.log", r"32( ..){4} 01( ..)*"),
    ("gb28181", "gb28181.sip port", "5061", "syscmd.log", r"30( ..){4} c5 13( ..)*"),
    ("freed", "FreeD.port", "40001", "syscmd.log", r"31( ..)* 41 9c( ..)*"),
    ("ntp", "NTP.port", "124", "syscmd.log", r"70( ..)*"),
    ("tracking", "ai.zoomLock", "1", "visca.log", "81 01 04 d6 00 01 ff"),
    ("system", "system.TZ", "CST-8", "syscmd.log", "69 43 53 54 2d 38"),
]


def control_api():
    """The JSON API with a fresh key, straight to the web server (to put the
    camera back after a test moved it)."""
    def post(route, body):
        req = urllib.request.Request(f"{BASE}cgi-bin/web.fcgi?path={route}", data=json.dumps(body).encode(), method="POST")
        return json.loads(urllib.request.urlopen(req, timeout=10).read())
    key = post("get", {"system": {"login": "admin:admin"}})["system"]["login"]
    return lambda request: post("set", {"key": key - 2**32 if key > 2**31 - 1 else key, **request})


class Settings(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.driver = browser()
        cls.driver.get(BASE + "settings.html")
        form = cls.driver.find_element(By.ID, "login")
        form.find_element(By.NAME, "user").send_keys("admin")
        form.find_element(By.NAME, "password").send_keys("admin", Keys.ENTER)

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()

    def until(self, what, timeout=5):
        end = time.time() + timeout
        while time.time() < end:
            value = what()
            if value:
                return value
            time.sleep(0.05)
        raise AssertionError(f"never: {what.__doc__ or what}")

    def page(self, name):
        self.driver.get(f"{BASE}settings.html#{name}")
        self.driver.refresh()
        self.until(lambda: self.driver.execute_script("return document.getElementById('page').ariaBusy === 'false'"),
                   timeout=10)

    def control(self, path):
        return self.driver.find_element(By.CSS_SELECTOR, f'[data-path="{path}"]')

    def set_value(self, path, value):
        c = self.control(path)
        if c.tag_name == "select":
            self.driver.execute_script("arguments[0].value = arguments[1]", c, value)
        else:
            c.clear()
            c.send_keys(value)

    def apply(self, path):
        self.control(path).find_element(By.XPATH, "ancestor::form").find_element(By.CSS_SELECTOR, "button[type=submit]").click()

    def confirm(self):
        self.until(lambda: self.driver.execute_script("return document.getElementById('confirm').open"))
        self.driver.find_element(By.CSS_SELECTOR, "#confirm button[value=yes]").click()

    def test_every_writable_key_has_a_control(self):
        with open(os.path.join(os.path.dirname(__file__), "../../src/www/api.json")) as f:
            described = json.load(f)
        writable = {".".join(filter(None, (s["name"], k.get("path"), k["key"])))
                    for s in described["sections"] for k in s["keys"] if k["write"]}
        shown = set()
        for name in PAGES:
            self.page(name)
            shown |= set(self.driver.execute_script(
                "return [...document.querySelectorAll('[data-path]')].map((c) => c.dataset.path)"
                ".concat(...[...document.querySelectorAll('[data-handles]')].map((c) => c.dataset.handles.split(' ')))"))
            self.driver.save_screenshot(os.path.join(SHOTS, f"settings-{name}.png"))
        self.assertEqual(writable - shown, ELSEWHERE)

    def test_a_change_on_each_page_reaches_the_camera_and_is_read_back(self):
        for page, path, value, journal_name, line in CHANGES:
            with self.subTest(page=page, key=path):
                self.page(page)
                if self.control(path).get_attribute("value") == value:  # an earlier test left it so
                    other = str(int(value) + 1) if value.isdigit() else value + "2"
                    self.set_value(path, other)
                    self.apply(path)
                    self.until(lambda: self.control(path).get_attribute("value") == other)
                journal = Journal(journal_name)
                self.set_value(path, value)
                self.apply(path)
                journal.wait_for(line)
                if self.control(path).get_attribute("data-write-only") is None:  # read back
                    self.until(lambda: self.control(path).get_attribute("value") == value)

    def test_a_refused_value_is_marked_at_its_control(self):
        self.page("network")
        self.set_value("ethernet.eth0.webPort", "80")  # only the HTTP port may be 80
        self.apply("ethernet.eth0.webPort")
        field = self.control("ethernet.eth0.webPort").find_element(By.XPATH, "..")
        self.until(lambda: "refused" in field.get_attribute("class"))
        self.assertIn("refused", field.text)
        self.assertFalse("refused" in self.control("ethernet.eth0.rtspPort").find_element(By.XPATH, "..").get_attribute("class"))
        self.driver.save_screenshot(os.path.join(SHOTS, "settings-refused.png"))

    def test_firmware_update_arrives_whole(self):
        image = os.urandom(300 * 1024 + 123)
        with tempfile.NamedTemporaryFile(suffix=".bin", delete=False) as f:
            f.write(image)
        shell = Journal("shell.log")
        self.page("firmware")
        self.driver.execute_script("""  // a slow link: every piece waits a little
            const real = window.fetch;
            window.fetch = (u, o) => new Promise((r) => setTimeout(r, String(u).includes('path=update') ? 150 : 0)).then(() => real(u, o));""")
        self.driver.find_element(By.ID, "firmware-file").send_keys(f.name)
        self.driver.find_element(By.ID, "firmware-go").click()
        self.confirm()
        bar = lambda: float(self.driver.find_element(By.ID, "firmware-progress").get_attribute("value"))
        self.until(lambda: 0 < bar() < len(image))  # the bar moves before the end
        self.driver.save_screenshot(os.path.join(SHOTS, "settings-firmware-progress.png"))
        self.until(lambda: "took all" in self.driver.find_element(By.ID, "firmware-status").text, timeout=30)
        self.assertEqual(bar(), len(image))
        shell.wait_for(r".*/opt/ipnc/sys_update.*")
        with open(os.path.join(RUN, "root/tmp/update.bin"), "rb") as got:
            self.assertEqual(got.read(), image)
        self.driver.save_screenshot(os.path.join(SHOTS, "settings-firmware-done.png"))

    def test_zz_a_new_address_is_followed(self):  # last: the camera moves
        self.page("network")
        self.set_value("ethernet.eth0.ip", "192.168.1.150")
        self.apply("ethernet.eth0.ip")
        self.confirm()
        try:
            self.until(lambda: self.driver.current_url.startswith("http://192.168.1.150"), timeout=10)
            self.assertTrue(self.driver.current_url.endswith("/settings.html#network"), self.driver.current_url)
        finally:
            control_api()({"ethernet": {"eth0": {"ip": "192.168.1.100"}}})


if __name__ == "__main__":
    unittest.main(verbosity=2)
