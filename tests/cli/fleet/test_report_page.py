# SPDX-License-Identifier: Apache-2.0
"""report.html in a real browser: what it shows, and that nothing of a BMC's gets out of its place.

Pictures of it are left in $REPORT_PICTURES.
"""

import base64
import csv
import json
import os
import pathlib
import subprocess
import urllib.parse

import pytest

import json_contract
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

PICTURES = pathlib.Path(os.environ.get("REPORT_PICTURES", "."))
COUNTS = (3, 400, 2000)
HOSTILE = "</script><script>document.title='owned'</script>\"><img src=x onerror=alert(1)>"
TALLEST = 2600  # of a picture, in pixels


@pytest.fixture(scope="session")
def reports(tmp_path_factory):
    """Folders with the reports of so many hosts."""
    folders = {}
    for count in COUNTS:
        folders[count] = tmp_path_factory.mktemp(f"run{count}")
        subprocess.run([os.environ["SAMPLE_REPORTS"], folders[count], str(count)], check=True, timeout=120)
    return folders


class Browser:
    def __init__(self, profile):
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                         "--disable-dev-shm-usage", "--disable-background-networking", "--no-first-run",
                         "--window-size=1360,1000", f"--user-data-dir={profile}"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.driver.set_page_load_timeout(60)
        self.driver.set_script_timeout(60)

    def command(self, name, **arguments):
        return self.driver.execute_cdp_cmd(name, arguments)

    def look(self, dark=False, media="", scripts=True, width=1360):
        """How the pages that are opened next are looked at."""
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.command("Emulation.setEmulatedMedia", media=media, features=[scheme])
        self.command("Emulation.setScriptExecutionDisabled", value=not scripts)
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=1000, deviceScaleFactor=1,
                     mobile=False)

    def open(self, folder):
        self.driver.get_log("browser")
        self.driver.get_log("performance")
        self.driver.get((folder / "report.html").as_uri())
        return self

    def js(self, code, *arguments):
        return self.driver.execute_script(code, *arguments)

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def picture(self, name):
        size = self.command("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": min(size["height"], TALLEST), "scale": 1}
        shot = self.command("Page.captureScreenshot", captureBeyondViewport=True, clip=clip)
        PICTURES.mkdir(parents=True, exist_ok=True)
        (PICTURES / name).write_bytes(base64.b64decode(shot["data"]))

    def console(self):
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def requests(self):
        """The addresses that the page has asked for."""
        events = [json.loads(entry["message"])["message"] for entry in self.driver.get_log("performance")]
        return [event["params"]["request"]["url"] for event in events
                if event["method"] == "Network.requestWillBeSent"]

    def rows(self):
        """The names of the hosts in the table that are to be seen, in their order."""
        return self.js("return [...document.querySelectorAll('#table tbody tr:not([hidden])')]"
                       ".map(row => row.cells[0].textContent)")


@pytest.fixture(scope="session")
def browser(tmp_path_factory):
    opened = Browser(tmp_path_factory.mktemp("profile"))
    yield opened
    opened.driver.quit()


@pytest.fixture
def page(browser, reports):
    """The page of 400 hosts."""
    browser.look()
    return browser.open(reports[400])


@pytest.mark.parametrize("count", COUNTS)
def test_the_report_for_programs_is_as_its_schema_has_it(reports, count):
    report = json_contract.check_report((reports[count] / "report.json").read_text(encoding="utf-8"))
    assert len(report["hosts"]) == count == report["totals"]["hosts"]


def hosts_of(folder):
    return json.loads((folder / "report.json").read_text())["hosts"]


# --- what is seen -----------------------------------------------------------------------------


@pytest.mark.parametrize("dark", [False, True])
@pytest.mark.parametrize("count", COUNTS)
def test_the_page_is_whole_and_says_nothing_on_the_console(browser, reports, count, dark):
    browser.look(dark=dark)
    browser.open(reports[count])
    browser.picture(f"report-{count}-{'dark' if dark else 'light'}.png")

    hosts = hosts_of(reports[count])
    done = sum(host["state"] == "done" for host in hosts)
    assert browser.find("h1").text == f"{done} of {count} hosts collected"
    assert browser.rows() == [host["name"] for host in hosts]
    assert browser.console() == []
    own = (reports[count] / "report.html").as_uri()
    assert [url for url in browser.requests() if url != own and not url.startswith("data:")] == []


def test_failures_are_counted_by_reason_with_what_to_do(page, reports):
    failures = json.loads((reports[400] / "report.json").read_text())["failures"]
    items = page.all(".failures li")
    assert len(items) == len(failures) == 5
    for item, failure in zip(items, failures):
        assert str(failure["count"]) in item.text.splitlines()
        assert failure["hosts"] in item.text
        assert failure["advice"] in item.text


@pytest.mark.parametrize("count", COUNTS)
def test_every_host_has_its_line_in_the_timeline(browser, reports, count):
    browser.look()
    browser.open(reports[count])
    tops = browser.js("""
        const places = new Set();
        for (const path of document.querySelectorAll('.chart .phase')) {
            for (const piece of path.getAttribute('d').split('M').slice(1)) {
                const [x, y] = piece.split(/[ H]/);
                const geometry = JSON.parse(document.getElementById('data').textContent).timeline;
                places.add(Math.floor(x / (geometry.column + geometry.gap)) + ' ' + y);
            }
        }
        return places.size""")
    assert tops == count
    smallest = browser.js("return Math.min(...[...document.querySelectorAll('.chart text')]"
                          ".map(text => text.getBoundingClientRect().height))")
    assert smallest >= 9
    assert browser.js("""
        const names = [...document.querySelectorAll('.chart .name')].map(t => t.getBoundingClientRect());
        return names.some((a, i) => names.slice(i + 1).some(b =>
            a.left < b.right && b.left < a.right && a.top + 1 < b.bottom && b.top + 1 < a.bottom))""") is False


# --- filter and sort --------------------------------------------------------------------------


def test_words_narrow_the_table(page, reports):
    page.find("#find").send_keys("tv70001 RACK1")
    wanted = [host["name"] for host in hosts_of(reports[400])
              if (host["bmc"]["serial"] or "").startswith("TV70001") and host["group"] == "rack1"]
    assert page.rows() == wanted and wanted
    assert page.find("#shown").text == f"{len(wanted)} of 400 hosts"
    page.find("#all").click()
    page.driver.execute_async_script("setTimeout(arguments[0], 50)")
    assert len(page.rows()) == 400


def test_results_and_groups_narrow_the_table(page, reports):
    Select(page.find("#result")).select_by_value("failed")
    assert page.rows() == [host["name"] for host in hosts_of(reports[400]) if host["state"] == "failed"]
    Select(page.find("#group")).select_by_value("rack2")
    assert page.rows() == [host["name"] for host in hosts_of(reports[400])
                           if host["state"] == "failed" and host["group"] == "rack2"]


def test_a_reason_leads_to_its_hosts(page, reports):
    page.all(".failures button")[0].click()
    assert page.rows() == [host["name"] for host in hosts_of(reports[400]) if host["outcome"] == "login-refused"]


def test_columns_sort_both_ways(page, reports):
    def head(title):
        return next(cell for cell in page.all("#table thead th") if cell.text == title)

    by_time = sorted((host for host in hosts_of(reports[400]) if host["seconds"] > 0),
                     key=lambda host: host["seconds"])
    head("Time").find_element(By.TAG_NAME, "button").click()
    assert head("Time").get_attribute("aria-sort") == "ascending"
    assert page.rows()[0] == by_time[0]["name"]
    head("Time").find_element(By.TAG_NAME, "button").send_keys(Keys.ENTER)
    assert head("Time").get_attribute("aria-sort") == "descending"
    assert page.rows()[0] == by_time[-1]["name"]
    assert page.rows()[-1] in [host["name"] for host in hosts_of(reports[400]) if host["seconds"] == 0]
    head("Serial number").find_element(By.TAG_NAME, "button").click()
    assert head("Time").get_attribute("aria-sort") is None
    assert page.rows()[0] == "bmc0001.example"


def test_the_timeline_leads_to_the_row_of_a_host(page):
    place = page.js("""
        const svg = document.querySelector('.timeline');
        svg.scrollIntoView();
        const geometry = JSON.parse(document.getElementById('data').textContent).timeline;
        const box = svg.getBoundingClientRect();
        const scale = box.width / geometry.width;
        const at = {clientX: box.left + 100 * scale, bubbles: true,
                    clientY: box.top + (geometry.top + 6.5 * geometry.row) * scale};
        svg.dispatchEvent(new PointerEvent('pointermove', at));
        const tip = document.querySelector('.tip').textContent;
        svg.dispatchEvent(new MouseEvent('click', at));
        return [tip, document.querySelector('tr.found').cells[0].textContent]""")
    assert place == ["bmc0007.example, wrong password, 0:00", "bmc0007.example"]


# --- a page for everybody ---------------------------------------------------------------------


def test_it_can_be_used_without_scripts(browser, reports):
    browser.look(scripts=False)
    browser.open(reports[3])
    browser.picture("report-3-without-scripts.png")
    assert not browser.find("#filter").is_displayed()
    assert [row.text.split()[0] for row in browser.all("#table tbody tr")] == [
        "bmc0001.example", "bmc0002.example", "bmc0003.example"]
    assert len(browser.all("#table a")) == 4
    browser.look()


@pytest.mark.parametrize("dark", [False, True])
def test_texts_stand_out_from_their_ground(browser, reports, dark):
    browser.look(dark=dark)
    browser.open(reports[400])
    weakest = browser.js("""
        const light = (c) => {
            const [r, g, b] = c.match(/[\\d.]+/g).slice(0, 3).map((v) => v / 255)
                .map((v) => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
            return 0.2126 * r + 0.7152 * g + 0.0722 * b;
        };
        const ground = light(getComputedStyle(document.documentElement).backgroundColor);
        let weakest = [99, ''];
        for (const e of document.querySelectorAll('h1,h2,h3,p,b,span,small,th,td,dt,dd,a,li,label,footer,.chart text')) {
            const style = getComputedStyle(e);
            const own = light(e.tagName === 'text' ? style.fill : style.color);
            const ratio = (Math.max(own, ground) + 0.05) / (Math.min(own, ground) + 0.05);
            if (ratio < weakest[0]) weakest = [ratio, e.tagName + ' ' + e.className];
        }
        return weakest""")
    assert weakest[0] >= 4.5, weakest


def test_programs_that_read_aloud_find_their_way(page):
    assert page.js("return document.documentElement.lang") == "en"
    levels = page.js("return [...document.querySelectorAll('h1,h2,h3')].map(h => +h.tagName[1])")
    assert levels[0] == 1 and levels.count(1) == 1
    assert all(after - before <= 1 for before, after in zip(levels, levels[1:]))
    assert page.js("return [...document.querySelectorAll('th')].every(th => ['col', 'row'].includes(th.scope))")
    assert page.js("return document.querySelector('.timeline').getAttribute('aria-label')").startswith(
        "A line for each of 400 hosts")
    ids = page.js("return [...document.querySelectorAll('[id]')].map(e => e.id)")
    assert len(ids) == len(set(ids))
    names = page.js("return [...document.querySelectorAll('#table a')].map(a => a.textContent)")
    assert names[:2] == ["archive of bmc0001.example", "record of bmc0001.example"]


def test_a_narrow_window_scrolls_the_table_and_not_the_page(browser, reports):
    browser.look(width=400)
    browser.open(reports[400])
    browser.picture("report-400-narrow.png")
    assert browser.js("return document.documentElement.scrollWidth") <= 400
    assert browser.js("const box = document.querySelector('#hosts .scroll'); return box.scrollWidth > box.clientWidth")


def test_print_has_every_row_and_no_controls(browser, reports):
    browser.look(dark=True, media="print", width=760)
    browser.open(reports[400])
    browser.picture("report-400-print.png")
    assert not browser.find("#filter").is_displayed()
    assert len(browser.rows()) == 400
    assert browser.js("return getComputedStyle(document.documentElement).backgroundColor") == "rgb(255, 255, 255)"


# --- what a BMC says stays a text -------------------------------------------------------------


def test_hostile_words_of_a_bmc_are_shown_and_not_run(page):
    assert page.driver.title == "Fleet run 12: 379 of 400 hosts collected"
    assert page.js("return document.querySelector('#table td.machine').textContent") == "Tavrin " + HOSTILE
    assert page.js("return document.images.length") == 0


def test_no_other_script_runs(page):
    page.js("""
        const script = document.createElement('script');
        script.textContent = 'window.owned = true';
        document.body.append(script);
        document.body.setAttribute('onclick', 'window.owned = true');
        document.body.click();""")
    assert page.js("return window.owned") is None
    assert any("Content Security Policy" in line for line in page.console())


def test_links_lead_to_archives_and_records_from_where_the_page_lies(page, reports):
    links = page.js("return [...document.querySelectorAll('#table a')].map(a => a.getAttribute('href'))")
    wanted = []
    for host in hosts_of(reports[400]):
        wanted += [path for path in (host["archive"], host["record"]) if path]
    assert [str(reports[400] / urllib.parse.unquote(link)) for link in links] == wanted
    assert not any(link.startswith("/") or ":" in link for link in links)


def test_the_table_for_spreadsheets_has_the_same_hosts(reports):
    with open(reports[400] / "report.csv", newline="", encoding="utf-8") as file:
        rows = list(csv.DictReader(file, strict=True))
    hosts = hosts_of(reports[400])
    assert [row["name"] for row in rows] == [host["name"] for host in hosts]
    assert [row["archive"] or None for row in rows] == [host["archive"] for host in hosts]
    assert rows[0]["model"] == HOSTILE
