#!/usr/bin/python3
"""web_bench.py - the browser page reading one file in headless Chromium, timed by the page's own
clock: from the file input's change event to the summary shown (data-documents set), and on to
the content checks shown (no progress bar left). The file is chosen 2 s after the page opens. Meanwhile a timer on the page's thread ticks
every 10 ms; the longest gap between two ticks is how long the page stopped responding.

usage: web_bench.py PAGE FILE RUNS
prints one line per run: "summary-seconds checks-seconds longest-pause-seconds documents steps", steps
being the progress bar's values shown while the file was read
"""
import os
import sys
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

page, path, runs = sys.argv[1], os.path.abspath(sys.argv[2]), int(sys.argv[3])

options = webdriver.ChromeOptions()
options.binary_location = "/usr/bin/chromium"
for argument in ("--headless=new", "--disable-dev-shm-usage", "--window-size=1280,1000"):
    options.add_argument(argument)
if os.geteuid() == 0:
    options.add_argument("--no-sandbox")
driver = webdriver.Chrome(service=Service(executable_path="/usr/bin/chromedriver"), options=options)
try:
    driver.get("file://" + os.path.abspath(page))
    # A user takes a moment to choose a file; the page's worker spends it compiling its code at
    # its best (web/worker.js, the warm-up).
    time.sleep(2)
    for _ in range(runs):
        driver.execute_script("""
            const input = document.querySelector('input[type=file]');
            const summary = document.querySelector('[data-navo=summary]');
            const progress = document.getElementById('progress-box');
            input.value = '';
            summary.removeAttribute('data-documents');
            const bar = document.getElementById('progress');
            const bench = window.navoBench = { start: 0, summary: 0, checks: 0, pause: 0, steps: 0 };
            let step = -1;
            let tick = 0;
            const ticking = setInterval(function () {
              const now = performance.now();
              if (tick > 0 && bench.start > 0) bench.pause = Math.max(bench.pause, now - tick);
              tick = now;
            }, 10);
            document.addEventListener('change', function () { bench.start = performance.now(); },
                                      { capture: true, once: true });
            const watch = new MutationObserver(function () {
              const now = performance.now();
              if (bench.start && !bench.summary && !progress.hidden && bar.value !== step) {
                step = bar.value;
                bench.steps++;
              }
              if (!bench.summary && summary.hasAttribute('data-documents')) bench.summary = now;
              if (bench.summary && !bench.checks && progress.hidden) {
                bench.checks = now;
                clearInterval(ticking);
                watch.disconnect();
              }
            });
            watch.observe(document.body, { attributes: true, childList: true, subtree: true });""")
        driver.find_element(By.CSS_SELECTOR, "input[type=file]").send_keys(path)
        bench = WebDriverWait(driver, 300, poll_frequency=0.05).until(
            lambda d: d.execute_script("return window.navoBench.checks ? window.navoBench : null"))
        documents = driver.find_element(By.CSS_SELECTOR, "[data-navo=summary]").get_attribute("data-documents")
        print("%.3f %.3f %.3f %s %d" % ((bench["summary"] - bench["start"]) / 1000,
                                        (bench["checks"] - bench["start"]) / 1000, bench["pause"] / 1000, documents,
                                        bench["steps"]), flush=True)
finally:
    driver.quit()
