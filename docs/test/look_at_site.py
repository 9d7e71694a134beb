"""Shows every page of a site in Chromium, wide and narrow, light and dark, and measures that nothing is wider than its
window, that the search finds, and that no script complains. With PICTURES, leaves pictures of the pages there; with the
beginnings of names, looks at those pages alone.

    look_at_site.py SITE [PICTURES [NAME …]]
"""

import base64
import json
import os
import shutil
import subprocess
import sys
import tempfile

WINDOWS = {"wide": (1400, 900), "narrow": (400, 800)}
# What is wider than the text's column is to be moved within itself, and the page stays where it is.
MEASURE = """(() => {
  const content = document.getElementById('doc-content') || document.documentElement;
  const wide = [document.documentElement, content].filter(e => e.scrollWidth > e.clientWidth);
  return wide.map(e => (e.id || e.tagName) + ': ' + e.scrollWidth + ' > ' + e.clientWidth);
})()"""
SEARCH = """(async () => {
  while (!document.getElementById('MSearchField')) await new Promise(resolve => setTimeout(resolve, 50));
  const field = document.getElementById('MSearchField');
  field.focus();
  field.value = 'ComputeFrame';
  searchBox.OnSearchFieldChange({ keyCode: 0 });
  await new Promise(resolve => setTimeout(resolve, 1500));
  const frame = document.getElementById('MSearchResults');
  const shown = frame.contentDocument ? frame.contentDocument.body : frame;
  return shown.innerText;
})()"""


class Chromium:
    """Its debugging protocol, by two pipes."""

    def __init__(self, profile):
        to_browser, self.ours_out = os.pipe()
        self.ours_in, from_browser = os.pipe()

        def as_three_and_four():
            to, back = os.dup(to_browser), os.dup(from_browser)
            os.dup2(to, 3)
            os.dup2(back, 4)

        self.process = subprocess.Popen(
            ["chromium", "--headless=new", "--no-sandbox", "--disable-gpu", "--allow-file-access-from-files",
             "--remote-debugging-pipe", f"--user-data-dir={profile}"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, close_fds=False, preexec_fn=as_three_and_four)
        os.close(to_browser)
        os.close(from_browser)
        self.rest = b""
        self.number = 0
        self.complaints = []
        target = self.call("Target.createTarget", {"url": "about:blank"})["targetId"]
        self.session = None
        self.session = self.call("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
        for domain in ("Page", "Runtime"):
            self.call(f"{domain}.enable")

    def message(self):
        while b"\0" not in self.rest:
            self.rest += os.read(self.ours_in, 1 << 20)
        text, self.rest = self.rest.split(b"\0", 1)
        message = json.loads(text)
        if message.get("method") == "Runtime.exceptionThrown":
            self.complaints.append(message["params"]["exceptionDetails"].get("exception", {}).get("description", "?"))
        return message

    def call(self, method, parameters=None):
        self.number += 1
        request = {"id": self.number, "method": method, "params": parameters or {}}
        if getattr(self, "session", None):
            request["sessionId"] = self.session
        os.write(self.ours_out, json.dumps(request).encode() + b"\0")
        while True:
            message = self.message()
            if message.get("id") == self.number:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error']}")
                return message["result"]

    def show(self, path):
        self.call("Page.navigate", {"url": f"file://{path}"})
        while self.message().get("method") != "Page.loadEventFired":
            pass

    def value_of(self, script):
        result = self.call("Runtime.evaluate", {"expression": script, "returnByValue": True, "awaitPromise": True})
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"]["exception"]["description"])
        return result["result"]["value"]

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("Page.captureScreenshot")["data"]))


def look(browser, site, pictures, only):
    faults = []
    pages = sorted(name for name in os.listdir(site)
                   if name.endswith(".html") and name.startswith(tuple(only)) and not name.endswith("-members.html"))
    for window, (width, height) in WINDOWS.items():
        browser.call("Emulation.setDeviceMetricsOverride",
                     {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        for name in pages:
            browser.show(os.path.join(site, name))
            for scheme in ("light", "dark"):
                browser.call("Emulation.setEmulatedMedia",
                             {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
                faults += [f"{name}, {window}, {scheme}: {fault}" for fault in browser.value_of(MEASURE)]
                if pictures:
                    browser.picture(os.path.join(pictures, f"{name.removesuffix('.html')}_{window}_{scheme}.png"))
            faults += [f"{name}, {window}: {complaint}" for complaint in browser.complaints]
            browser.complaints = []
    browser.show(os.path.join(site, "index.html"))
    if "ComputeFrame" not in browser.value_of(SEARCH):
        faults.append("the search does not find ComputeFrame")
    return len(pages), faults


def main():
    site = os.path.abspath(sys.argv[1])
    pictures = sys.argv[2] if len(sys.argv) > 2 else None
    only = sys.argv[3:] or [""]
    if pictures:
        os.makedirs(pictures, exist_ok=True)
    profile = tempfile.mkdtemp()
    browser = Chromium(profile)
    try:
        pages, faults = look(browser, site, pictures, only)
    finally:
        browser.process.terminate()
        browser.process.wait()
        shutil.rmtree(profile, ignore_errors=True)
    print("\n".join([*faults, f"{pages} pages, each in {len(WINDOWS)} windows, light and dark: {len(faults)} faults"]))
    sys.exit(bool(faults) or not pages)


if __name__ == "__main__":
    main()
