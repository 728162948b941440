#!/usr/bin/python3
"""test_page.py - the browser page (build/web/index.html) driven in headless Chromium.

Opened from disk (file://), the page is given files made here from examples/data/sample.navo: the
sample, a copy with findings (dropped on the page), a faulty copy, one whose document holds 120
records of a repeating block, one in CP1250. What it shows is read through its hooks (data-navo); its exports are
compared byte for byte with `navo convert` of the same file; the browser's request log must hold
no request but file:, data: and blob: URLs, and its console no error. Served over HTTP, the page
reads a file too and asks for nothing but itself. The screenshot of the page with a document open
is written on the way.

usage: test_page.py PAGE NAVO_TOOL WORK_DIR SCREENSHOT
"""
import functools
import http.server
import json
import os
import subprocess
import sys
import threading
import time

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import Select, WebDriverWait

page, navo_tool, work, screenshot = sys.argv[1:5]
root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
checks = 0


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass


def check(condition, what):
    global checks
    if not condition:
        raise AssertionError(what)
    checks += 1
    print("  ok  " + what)


# ---- the files ---------------------------------------------------------------------------------

with open(os.path.join(root, "examples", "data", "sample.navo"), "rb") as f:
    sample = f.read()
sample_lines = sample.split(b"\r\n")


def line_of(text, after=0):
    """The index of the first line holding exactly `text` from index `after` on."""
    return sample_lines.index(text, after)


def write(name, lines):
    path = os.path.join(work, name)
    with open(path, "wb") as f:
        f.write(b"\r\n".join(lines))
    return path


def padded(text, width, encoding="iso8859_2"):
    raw = text.encode(encoding)
    return raw + b" " * (width - len(raw))


second_dipl = line_of(b"<DIPL>", line_of(b"<TOBZBA>"))
nip_1 = line_of(b"9876543210")
surname_1 = line_of(padded("KOWALSKI", 31))

files = {"sample": os.path.join(root, "examples", "data", "sample.navo")}

# One line cut short: document 2's DIPL Nip.
lines = list(sample_lines)
lines[second_dipl + 1] = lines[second_dipl + 1][:-1]
files["faulty"] = write("faulty.navo", lines)

# Document 1's NIP with a wrong check digit: well formed, refused by its content rule.
lines = list(sample_lines)
lines[nip_1] = b"9876543211"
files["findings"] = write("findings.navo", lines)

# Document 2 with 120 records of IORB, record 77 holding an account number of its own.
lines = list(sample_lines)
first_iorb = line_of(b"<IORB>")
record = [b"<IORB>", b"2", padded("1" * 32, 36), b"</IORB>"]
records = []
for i in range(120):
    records += record if i != 77 else [b"<IORB>", b"2", padded("5" * 32, 36), b"</IORB>"]
end_iorb = line_of(b"<OPL1>", first_iorb)
lines[first_iorb:end_iorb] = records
files["many"] = write("many.navo", lines)

# The sample with a surname of Polish letters, the whole file in CP1250.
text = sample.decode("iso8859_2").replace("KOWALSKI" + " " * 23, "ŚLĄSKA" + " " * 25)
files["cp1250"] = os.path.join(work, "cp1250.navo")
with open(files["cp1250"], "wb") as f:
    f.write(text.encode("cp1250"))


def convert(path, to, encoding):
    out = os.path.join(work, "expected." + to)
    subprocess.run([navo_tool, "convert", "--no-progress", path, "--to", to, "--encoding", encoding, "-o", out],
                   check=True)
    with open(out, "rb") as f:
        return f.read()


# ---- the browser -------------------------------------------------------------------------------

downloads = os.path.join(work, "downloads")
os.makedirs(downloads, exist_ok=True)
options = webdriver.ChromeOptions()
options.binary_location = "/usr/bin/chromium"
for argument in ("--headless=new", "--disable-dev-shm-usage", "--window-size=1280,1000", "--lang=pl"):
    options.add_argument(argument)
if os.geteuid() == 0:
    options.add_argument("--no-sandbox")
# The request log: the page's own requests (Network events), and through a trace the requests of
# every thread of the renderer, the worker's among them.
options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
options.add_experimental_option("perfLoggingPrefs", {"enableNetwork": True, "traceCategories": "devtools.timeline"})
driver = webdriver.Chrome(service=Service(executable_path="/usr/bin/chromedriver"), options=options)
driver.execute_cdp_cmd("Page.setDownloadBehavior", {"behavior": "allow", "downloadPath": downloads})
wait = WebDriverWait(driver, 30)
requests = []         # URLs the page's frame or its workers asked for
frames = set()        # the page's frame
worker_requests = 0
console = []


def collect_logs():
    """Takes the logs so far. The trace also holds the browser's own pages (chrome:, other
    frames): only the page's frame and workers (no frame) count."""
    global worker_requests
    traced = []
    for entry in driver.get_log("performance"):
        message = json.loads(entry["message"])["message"]
        if message["method"] == "Network.requestWillBeSent":
            requests.append(message["params"]["request"]["url"])
            frames.add(message["params"].get("frameId"))
        elif message["method"] == "Tracing.dataCollected":
            event = message["params"]
            if event.get("name") == "ResourceSendRequest":
                traced.append(event["args"]["data"])
    for data in traced:
        if data.get("frame") in frames:
            requests.append(data["url"])
        elif not data.get("frame"):
            requests.append(data["url"])
            worker_requests += 1
    console.extend(entry for entry in driver.get_log("browser") if entry["level"] == "SEVERE")


def q(selector):
    return driver.find_elements(By.CSS_SELECTOR, selector)


def settled(_=None):
    """The page's work is done: a summary is shown and no progress bar runs."""
    return driver.execute_script(
        "return document.querySelector('[data-navo=summary]').hasAttribute('data-documents') &&"
        " document.getElementById('progress-box').hidden")


def open_file(name, encoding="iso8859-2"):
    select = Select(q("[data-navo=encoding]")[0])
    if select.first_selected_option.get_attribute("value") != encoding:
        select.select_by_value(encoding)
    driver.execute_script("document.querySelector('[data-navo=summary]').removeAttribute('data-documents')")
    q("input[type=file]")[0].send_keys(files[name])
    wait.until(settled)
    return q("[data-navo=summary]")[0]


def open_document(number):
    q("[data-navo=document][data-number='%d'] button" % number)[0].click()
    wait.until(lambda d: d.find_element(By.ID, "document-heading").is_displayed() and settled())


def cell(block, field, record=0):
    """The text of a field's cell in the open document: by row in a single block, by column in a
    repeating one."""
    return driver.execute_script("""
        const [tag, field, record] = arguments;
        const heading = document.getElementById('block-' + tag);
        if (!heading) return null;
        const table = heading.parentNode.querySelector('table');
        const column = Array.from(table.tHead.rows[0].cells, c => c.textContent).indexOf(field);
        for (const row of table.tBodies[0].rows) {
          if (column < 0 && row.cells[0].textContent === field) return row.cells[1].textContent;
          if (column >= 0 && row.cells[0].textContent === String(record)) return row.cells[column].textContent;
        }
        return null;""", block, field, record)


def export(kind):
    for name in os.listdir(downloads):
        os.remove(os.path.join(downloads, name))
    q("[data-navo=export-%s]" % kind)[0].click()
    deadline = time.time() + 30
    while time.time() < deadline:
        names = [n for n in os.listdir(downloads) if not n.endswith(".crdownload")]
        if names:
            time.sleep(0.2)
            with open(os.path.join(downloads, names[0]), "rb") as f:
                return names[0], f.read()
        time.sleep(0.1)
    raise AssertionError("no download of the %s export" % kind)


try:
    driver.get("file://" + os.path.abspath(page))

    print("sample.navo (ISO 8859-2)")
    summary = open_file("sample")
    check(summary.get_attribute("data-valid") == "true", "the sample is valid")
    check(summary.get_attribute("data-documents") == "2", "the sample has 2 documents")
    check([(d.get_attribute("data-number"), d.get_attribute("data-form")) for d in q("[data-navo=document]")] ==
          [("1", "TOBZWPA"), ("2", "TOBZBA")], "one [data-navo=document] per document, with number and form")
    check(q("[data-navo=fault]") == [], "no fault")
    wait.until(lambda d: q("[data-navo=finding]"))
    findings = q("[data-navo=finding]")
    check([(f.get_attribute("data-document"), f.get_attribute("data-block"), f.get_attribute("data-record"),
            f.get_attribute("data-field")) for f in findings] == [("2", "DIPL", "0", "Nip")],
          "the sample's one finding: document 2, DIPL record 0, Nip")
    check("1234567890" not in findings[0].text, "the finding's value is hidden")
    findings[0].find_element(By.XPATH, ".//button[@aria-pressed]").click()
    check("1234567890" in q("[data-navo=finding]")[0].text, "the finding's value shows when asked")

    driver.find_element(By.ID, "search-value").send_keys("KOWALSKI\n")
    wait.until(lambda d: d.find_element(By.ID, "search-results").text and settled())
    places = driver.find_elements(By.CSS_SELECTOR, "#search-results button")
    check([p.text for p in places] == ["DIPL rekord 0, pole Nazwisko"], "the search finds KOWALSKI in one field")
    check([d.get_attribute("class") for d in q("[data-navo=document]")] == ["hit", ""],
          "the document holding it is marked")
    places[0].click()
    wait.until(lambda d: q("#document td.hit") and settled())
    check(driver.find_element(By.ID, "document-heading").text == "Dokument 1: TOBZWPA" and
          q("#document td.hit")[0].text == "KOWALSKI", "the search jumps to the field in document 1")

    open_document(2)
    check(cell("DIPL", "NazwaSkrocona") == "PRZYKŁADOWA FIRMA", "document 2's values in UTF-8")
    check(cell("IORB", "NumerRachunku", 2) == "12345678901234567890123456789012",
          "document 2's repeating block, record 2")
    driver.find_element(By.CSS_SELECTOR, "[data-language=en]").click()
    check(driver.find_element(By.ID, "document-heading").text == "Document 2: TOBZBA" and
          driver.execute_script("return document.documentElement.lang") == "en", "the switch to English")
    driver.find_element(By.CSS_SELECTOR, "[data-language=pl]").click()
    driver.execute_script("window.scrollTo(0, 0)")
    time.sleep(0.3)
    driver.save_screenshot(screenshot)
    check(os.path.getsize(screenshot) > 10000, "the screenshot of document 2: " + screenshot)
    for kind, to in (("jsonl", "jsonl"), ("csv", "csv")):
        name, got = export(kind)
        check(name == "sample." + to and got == convert(files["sample"], to, "iso8859-2"),
              "%s export equals `navo convert --to %s` byte for byte" % (kind, to))

    print("findings.navo dropped on the page")
    driver.execute_script("document.querySelector('[data-navo=summary]').removeAttribute('data-documents')")
    with open(files["findings"], "rb") as f:
        dropped = list(f.read())
    driver.execute_script("""
        const transfer = new DataTransfer();
        transfer.items.add(new File([new Uint8Array(arguments[0])], 'dropped.navo'));
        const target = document.getElementById('drop');
        for (const type of ['dragenter', 'dragover', 'drop'])
          target.dispatchEvent(new DragEvent(type, { dataTransfer: transfer, bubbles: true, cancelable: true }));""",
        dropped)
    wait.until(settled)
    wait.until(lambda d: len(q("[data-navo=finding]")) == 2)
    check(q("[data-navo=summary]")[0].get_attribute("data-valid") == "true" and
          [(f.get_attribute("data-document"), f.get_attribute("data-field")) for f in q("[data-navo=finding]")] ==
          [("1", "Nip"), ("2", "Nip")], "a dropped file opens: two findings, the NIP of each document")

    print("faulty.navo (document 2's Nip cut short)")
    summary = open_file("faulty")
    check(summary.get_attribute("data-valid") == "false", "the faulty file is not valid")
    check(summary.get_attribute("data-documents") == "1", "its first document is read whole")
    faults = q("[data-navo=fault]")
    check(len(faults) == 1, "one fault")
    fault = {name: faults[0].get_attribute("data-" + name) for name in ("line", "document", "block", "record", "field")}
    check(fault["document"] == "2" and fault["block"] == "DIPL" and fault["record"] == "0" and fault["field"] == "Nip",
          "the fault's place: document 2, DIPL record 0, Nip")
    check(second_dipl + 1 <= int(fault["line"]) <= line_of(b"</DIPL>", second_dipl) + 1,
          "the fault's line (%s) lies in document 2's DIPL" % fault["line"])
    check("oczekiwano 171, jest 170" in faults[0].text, "the fault's lengths: 171 expected, 170 found")
    check(all(not b.is_enabled() for b in q("[data-navo=export-jsonl], [data-navo=export-csv]")),
          "no export of a faulty file")

    print("many.navo (120 records of a repeating block)")
    summary = open_file("many")
    check(summary.get_attribute("data-valid") == "true", "the file is valid")
    driver.find_element(By.ID, "search-value").clear()
    driver.find_element(By.ID, "search-value").send_keys("5" * 32 + "\n")
    wait.until(lambda d: d.find_elements(By.CSS_SELECTOR, "#search-results button") and settled())
    driver.find_element(By.CSS_SELECTOR, "#search-results button").click()
    wait.until(lambda d: q("#document td.hit") and settled())
    rows = driver.execute_script(
        "return Array.from(document.getElementById('block-IORB').parentNode.querySelector('tbody').rows,"
        " r => r.cells[0].textContent)")
    check(rows == [str(r) for r in range(50, 100)], "the records are shown 50 at a time: records 50-99")
    check(q("#document td.hit")[0].text == "5" * 32, "the search jumps to record 77")

    print("cp1250.navo (CP1250)")
    summary = open_file("cp1250", "cp1250")
    check(summary.get_attribute("data-valid") == "true", "the CP1250 file is valid")
    open_document(1)
    check(cell("DIPL", "Nazwisko") == "ŚLĄSKA", "its surname read as CP1250")
    for kind, to in (("jsonl", "jsonl"), ("csv", "csv")):
        name, got = export(kind)
        check(got == convert(files["cp1250"], to, "cp1250"), "%s export equals `navo convert --encoding cp1250`" % kind)
    Select(q("[data-navo=encoding]")[0]).select_by_value("iso8859-2")
    wait.until(lambda d: settled() and cell("DIPL", "Nazwisko") not in (None, "ŚLĄSKA"))
    check(cell("DIPL", "Nazwisko") == "\u008cLĽSKA", "the same bytes read as ISO 8859-2 after the switch")

    collect_logs()
    check(worker_requests > 0 and all(u.split(":", 1)[0] in ("file", "data", "blob") for u in requests),
          "%d requests (%d of the worker), all of them file:, data: or blob:" % (len(requests), worker_requests))
    check(console == [], "no error on the console")

    print("the page served over HTTP")
    server = http.server.ThreadingHTTPServer(
        ("127.0.0.1", 0), functools.partial(Quiet, directory=os.path.dirname(os.path.abspath(page))))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    url = "http://127.0.0.1:%d/%s" % (server.server_address[1], os.path.basename(page))
    requests.clear()
    driver.get(url)
    summary = open_file("sample")
    check(summary.get_attribute("data-valid") == "true" and summary.get_attribute("data-documents") == "2",
          "served, the page reads the sample")
    collect_logs()
    server.shutdown()
    check(all(u == url or u.split(":", 1)[0] in ("data", "blob") for u in requests),
          "served, it asks for nothing but itself")
    check(console == [], "no error on the console")
except (AssertionError, TimeoutException) as error:
    collect_logs()
    print("FAILED: %s" % (error or "timed out"), file=sys.stderr)
    for entry in console:
        print("  console: " + entry["message"], file=sys.stderr)
    others = [u for u in requests if u.split(":", 1)[0] not in ("file", "data", "blob")]
    for url in others:
        print("  request: " + url, file=sys.stderr)
    driver.save_screenshot(os.path.join(work, "failure.png"))
    print("  the page as it stood: " + os.path.join(work, "failure.png"), file=sys.stderr)
    driver.quit()
    sys.exit(1)
driver.quit()
print("the page passed %d checks" % checks)
