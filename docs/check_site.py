#!/usr/bin/env python3
"""Looks at build/docs in a headless browser: the search, every page in a narrow window, the dark theme, the console."""

import contextlib
import functools
import http.server
import sys
import threading
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

SITE = Path(__file__).resolve().parent.parent / "build" / "docs"

# What is typed into the search box, and where its first result leads.
SEARCHES = {
    "symmetrize": "operators/symmetrise.html",
    "472": "kernels/stack-multiply_by_matrix.html#kernel-472",
    "write_sparse_product": "kernels/stack-multiply_by_matrix.html#kernel-472",
    "sum along an axis": "operators/sum_axis.html",
    "stack along": "operators/stack.html",
    "transpose": "operators/permute.html",
    "concatenate": "operators/stack.html",
    "gather": "operators/pick.html",
    "dual": "operators/solution.html",
    "linear form": "concepts/record.html",
}

# The least contrast of the texts of a page that are seen, against what is painted behind each.
CONTRAST = """
const canvas = document.createElement('canvas').getContext('2d', {willReadFrequently: true});
const rgba = color => {
  canvas.clearRect(0, 0, 1, 1); canvas.fillStyle = color; canvas.fillRect(0, 0, 1, 1);
  return [...canvas.getImageData(0, 0, 1, 1).data];
};
const light = color => {
  const [r, g, b] = color.map(c => c / 255).map(c => c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4);
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const behind = node => {
  for (; node; node = node.parentElement) {
    const color = rgba(getComputedStyle(node).backgroundColor);
    if (color[3] > 200) return color;
  }
  return [255, 255, 255, 255];
};
let least = [99, ''];
const texts = 'article p, article td, article th, article code, article h1, article svg text, article pre .c1';
for (const node of document.querySelectorAll(texts)) {
  if (!node.textContent.trim()) continue;
  const style = getComputedStyle(node);
  const [a, b] = [light(rgba(node.ownerSVGElement ? style.fill : style.color)), light(behind(node))];
  const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
  if (contrast < least[0]) least = [contrast, node.textContent.slice(0, 40)];
}
return least;
"""
BROKEN_PICTURES = """
return [...document.querySelectorAll('article img, article .picture svg')].filter(
  p => p.tagName == 'IMG' ? !p.naturalWidth : p.getBoundingClientRect().width < 100 || !p.querySelector('text')).length
"""


@contextlib.contextmanager
def served():
    """The address of the site on a server of its own, since pages from files may not fetch one another."""
    class Quiet(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Quiet, directory=str(SITE)))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    yield f"http://127.0.0.1:{server.server_port}/"
    server.shutdown()


@contextlib.contextmanager
def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(options=options)
    yield driver
    driver.quit()


def set_width(driver, width):
    metrics = {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False}
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)


def search_faults(driver, address):
    """Types each search into the box of the first page."""
    for words, expected in SEARCHES.items():
        driver.get(address)
        box = driver.find_element(By.CSS_SELECTOR, "input.sidebar-search")
        box.send_keys(words)
        box.submit()
        WebDriverWait(driver, 20).until(lambda d: d.find_elements(By.CSS_SELECTOR, "ul.search li a"))
        found = driver.find_element(By.CSS_SELECTOR, "ul.search li a").get_attribute("href")
        if "#" not in expected:
            found = found.split("#")[0]
        if found.split("?")[0] != address + expected:
            yield f"a search for {words} leads to {found.removeprefix(address)}, not {expected}"
        yield from console_faults(driver, f"the search for {words}")


def page_faults(driver, address):
    """Every page at 400 pixels: in the light theme its width and pictures, in the dark one that it can be read."""
    set_width(driver, 400)
    for file in sorted(SITE.rglob("*.html")):
        page = str(file.relative_to(SITE))
        driver.get(address + page)
        wide = driver.execute_script("return document.documentElement.scrollWidth")
        if wide > 400:
            yield f"{page}: {wide} pixels wide in a window of 400"
        if driver.execute_script(BROKEN_PICTURES):
            yield f"{page}: a picture is broken"
        backgrounds = {}
        for theme, system in (("light", "light"), ("dark", "light"), ("auto", "dark")):
            scheme = {"name": "prefers-color-scheme", "value": system}
            driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [scheme]})
            driver.execute_script("document.body.dataset.theme = arguments[0]", theme)
            backgrounds[theme] = driver.execute_script("return getComputedStyle(document.body).backgroundColor")
            if theme != "auto":
                contrast, text = driver.execute_script(CONTRAST)
                if contrast < 3:
                    yield f"{page}: contrast {contrast:.1f} of {text!r} in the {theme} theme"
        if not backgrounds["light"] != backgrounds["dark"] == backgrounds["auto"]:
            yield f"{page}: the dark theme is not that of a dark system: {backgrounds}"
        yield from console_faults(driver, page)


def console_faults(driver, place):
    for entry in driver.get_log("browser"):
        if entry["level"] in ("SEVERE", "WARNING"):
            yield f"{place}: console: {entry['message']}"


def main():
    with served() as address, browser() as driver:
        set_width(driver, 1200)
        faults = [*search_faults(driver, address), *page_faults(driver, address)]
    print("\n".join(faults) or "the site is sound", file=sys.stderr if faults else sys.stdout)
    raise SystemExit(bool(faults))


if __name__ == "__main__":
    main()
