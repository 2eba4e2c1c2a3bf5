"""The conversion report page in a real browser: headless Chromium driven by Selenium.

Runs tesu-convert with --report on a sample that converts and on one that does not, opens both
pages and checks what a person would look at: no script errors, the support table, the node
search and the highlighted graph.

Usage: test_report_page.py TESU_CONVERT SAMPLES_DIR
Exits with 77 (skipped) when Chromium, chromedriver or Selenium is missing.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SKIPPED = 77
CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:  # reported in main(), before any test runs
    webdriver = None

CONVERT = ""
SAMPLES = ""


def missing_tools():
    missing = [path for path in (CHROMIUM, CHROMEDRIVER) if not os.access(path, os.X_OK)]
    if webdriver is None:
        missing.append("python3-selenium")
    return missing


def start_browser(profile_dir):
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    # This machine, like CI, has no network: keep Chromium from reaching for it.
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                 "--no-first-run", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync",
                 "--user-data-dir=" + profile_dir, "--window-size=1400,1000"):
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service(executable_path=CHROMEDRIVER), options=options)


class ReportPageTest(unittest.TestCase):
    """One browser for every page; each page is produced by a real conversion."""

    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp(prefix="tesu-report-")
        cls.browser = start_browser(os.path.join(cls.work, "profile"))

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(cls.work, ignore_errors=True)

    def convert(self, sample, expected_exit):
        model = os.path.join(self.work, sample + ".out.pb")
        report = os.path.join(self.work, sample + ".html")
        run = subprocess.run(
            [CONVERT, "--model", os.path.join(SAMPLES, sample + ".pb"), "--output", model,
             "--report", report, "--check_report", os.path.join(self.work, sample + ".check.json")],
            capture_output=True, text=True, check=False)
        self.assertEqual(run.returncode, expected_exit, run.stderr)
        self.assertTrue(os.path.isfile(report), "no report written: " + run.stderr)
        self.assertEqual(os.path.exists(model), expected_exit == 0,
                         "a converted model is written exactly when the conversion succeeds")
        return report

    def open(self, report):
        self.browser.get_log("browser")  # drop what earlier pages logged
        self.browser.get("file://" + report)
        WebDriverWait(self.browser, 10).until(
            lambda b: b.find_element(By.ID, "outcome").text != "")
        errors = [entry for entry in self.browser.get_log("browser")
                  if entry["level"] in ("SEVERE", "ERROR")]
        self.assertEqual(errors, [], "the page logged errors")

    def find(self, css):
        return self.browser.find_elements(By.CSS_SELECTOR, css)

    def search(self, name):
        box = self.browser.find_element(By.ID, "node-search")
        box.clear()
        box.send_keys(name)
        return self.browser.find_element(By.ID, "node-details")

    def test_converted_model(self):
        self.open(self.convert("mobile", 0))
        self.assertEqual(self.browser.find_element(By.ID, "outcome").text, "Converted")
        self.assertIn("Every operator is supported",
                      self.browser.find_element(By.ID, "support-body").text)
        self.assertTrue(self.find("#histogram-before svg rect.bar"))
        self.assertTrue(self.find("#histogram-after svg rect.bar"))

        # The node search shows a node's type and attributes before and after.
        details = self.search("conv0")
        self.assertIn("Conv2D \u2192 Convolution", details.text)
        rows = {row.find_elements(By.TAG_NAME, "td")[0].text: row
                for row in details.find_elements(By.CSS_SELECTOR, "table.attrs tr")[1:]}
        self.assertIn("strides", rows)
        self.assertIn("version", rows)
        self.assertEqual(rows["version"].find_elements(By.TAG_NAME, "td")[1].text, "\u2014")
        self.assertEqual(rows["version"].find_elements(By.TAG_NAME, "td")[2].text, "5")

        # Both graphs are drawn; the converted one highlights changed nodes, conv0 among them,
        # and the search jumps to it.
        self.assertTrue(self.find("#graph-source svg g.node"))
        changed = self.find("#graph-converted svg g.node.changed")
        self.assertTrue(changed)
        jump = details.find_element(By.CSS_SELECTOR, "button.jump-c")
        jump.click()
        focused = self.find("#graph-converted g.node.focus")
        self.assertEqual(len(focused), 1)
        self.assertIn("changed", focused[0].get_attribute("class"))
        self.assertIn("conv0", focused[0].text)

        # The change list filters by kind.
        self.assertTrue(self.find("#changes-table tbody tr"))
        replaced = [row.text for row in self.find("#changes-table tbody tr")
                    if "replaced" in row.text]
        self.assertTrue(any(text.startswith("bn0") for text in replaced), replaced)

    def test_failed_conversion(self):
        self.open(self.convert("unsupported", 1))
        self.assertTrue(self.browser.find_element(By.ID, "outcome").text.startswith("Failed"))
        table = self.browser.find_element(By.ID, "support-table")
        for node in ("gelu1", "gelu2", "norm", "probs"):
            self.assertIn(node, table.text)
        self.assertIn("not supported", table.text)

        details = self.search("norm")
        self.assertIn("LayerNorm", details.text)
        self.assertIn("not supported", details.text)
        self.assertEqual(len(self.find("#graph-source svg g.node.unsupported")), 4)
        self.assertFalse(self.find("#graph-converted svg"))

    # Names that try to pass for something else: an attribute name that would be extra rows, a
    # node name holding a record separator, attributes named like the
    # properties every JavaScript object has, and a name that an entity decoder turns into a tag.
    SPOOF_NODE = "spoof\x1eshift"
    SCRIPT_NODE = "&lt;script&gt;"

    def spoof_report(self, name, last_type, expected_exit):
        shape = {"shape": ["1", "4"]}

        def op(op_name, op_type, producer, attrs=None):
            entry = {"name": op_name, "type": op_type, "input_desc": [shape],
                     "output_desc": [shape]}
            if producer:
                entry["input"] = [producer + ":0"]
            if attrs:
                entry["attr"] = attrs
            return entry

        attrs = {"fake\nrow\tvalue": {"s": "x"}, "toString": {"i": "3"},
                 "constructor": {"s": "c"}}
        ops = [op("in", "Data", None), op(self.SPOOF_NODE, "Relu", "in", attrs),
               op(self.SCRIPT_NODE, "Abs", self.SPOOF_NODE),
               op("last", last_type, self.SCRIPT_NODE)]
        model = os.path.join(self.work, name + ".json")
        with open(model, "w", encoding="utf-8") as out:
            json.dump({"name": name, "graph": [{"name": "g", "op": ops}]}, out)
        report = os.path.join(self.work, name + ".html")
        run = subprocess.run(
            [CONVERT, "--model", model, "--output", os.path.join(self.work, name + ".pb"),
             "--report", report, "--check_report", os.path.join(self.work, name + ".check.json")],
            capture_output=True, text=True, check=False)
        self.assertEqual(run.returncode, expected_exit, run.stderr)
        return report

    def attribute_rows(self, details):
        return {row.find_elements(By.TAG_NAME, "td")[0].text:
                [cell.text for cell in row.find_elements(By.TAG_NAME, "td")[1:]]
                for row in details.find_elements(By.CSS_SELECTOR, "table.attrs tr")[1:]}

    def check_spoof_names(self, after):
        details = self.search("spoof\\x1eshift")
        self.assertEqual(details.find_element(By.TAG_NAME, "h3").text, "spoof\\x1eshift")
        rows = self.attribute_rows(details)
        self.assertEqual(rows["fake\\nrow\\tvalue"], ['"x"', after('"x"')])
        self.assertEqual(rows["toString"], ["3", after("3")])
        self.assertEqual(rows["constructor"], ['"c"', after('"c"')])
        self.assertNotIn("native code", self.browser.find_element(By.TAG_NAME, "body").text)
        self.assertEqual([name for name in rows if "row" in name or "value" in name],
                         ["fake\\nrow\\tvalue"])

        # The entity is drawn and listed as typed, and no element came of it.
        details = self.search(self.SCRIPT_NODE)
        self.assertEqual(details.find_element(By.TAG_NAME, "h3").text, self.SCRIPT_NODE)
        labels = [text.text for text in self.find("#graph-source svg g.node text")]
        self.assertIn(self.SCRIPT_NODE, labels)
        self.assertFalse(self.find(".svg-box script"))

        # A click on the picture shows the node clicked, not a neighbour.
        for box in ("#graph-source", "#graph-converted"):
            nodes = [g for g in self.find(box + " svg g.node")
                     if g.find_element(By.TAG_NAME, "text").text == "last"]
            if not nodes:
                continue
            nodes[0].click()
            heading = self.browser.find_element(By.CSS_SELECTOR, "#node-details h3")
            self.assertEqual(heading.text, "last")

    def test_spoofing_names_on_a_converted_page(self):
        self.open(self.spoof_report("spoof", "Relu", 0))
        self.check_spoof_names(lambda value: value)

    def test_spoofing_names_on_a_failed_page(self):
        self.open(self.spoof_report("spoof_failed", "NoSuchOp", 1))
        self.check_spoof_names(lambda value: "\u2014")
        # The support table links the unsupported node to its details.
        table = self.browser.find_element(By.ID, "support-table")
        table.find_element(By.CSS_SELECTOR, "button.link").click()
        self.assertEqual(self.browser.find_element(By.CSS_SELECTOR, "#node-details h3").text,
                         "last")


def main():
    global CONVERT, SAMPLES
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    CONVERT, SAMPLES = sys.argv[1], sys.argv[2]
    missing = missing_tools()
    if missing:
        print("skipped: the browser tests need " + ", ".join(missing) +
              " (apt-get install chromium chromium-driver python3-selenium)")
        sys.exit(SKIPPED)
    result = unittest.main(argv=[sys.argv[0], "-v"], exit=False).result
    sys.exit(0 if result.wasSuccessful() else 1)


if __name__ == "__main__":
    main()
