#!/usr/bin/python3
"""A scripted browser on QtWebKit: opens a page with NPAPI plug-ins enabled, waits until a JavaScript
expression holds on the page (or the time-out passes), then prints what the page recorded (its `transcript`)
and the text of its element `status` as one line of JSON, {"page": [...], "status": TEXT}, can save
a screenshot, and leaves the page before it quits.

usage: browser_host.py URL UNTIL SECONDS [SCREENSHOT.png]
The plug-in is found through QTWEBKIT_PLUGIN_PATH, as QtWebKit does."""
import json
import sys
import time

from PyQt5.QtCore import QTimer, QUrl
from PyQt5.QtWebKit import QWebSettings
from PyQt5.QtWebKitWidgets import QWebView
from PyQt5.QtWidgets import QApplication


def main():
    url, until, seconds = sys.argv[1], sys.argv[2], float(sys.argv[3])
    screenshot = sys.argv[4] if len(sys.argv) > 4 else None
    app = QApplication([sys.argv[0]])
    QWebSettings.globalSettings().setAttribute(QWebSettings.PluginsEnabled, True)
    view = QWebView()
    view.resize(800, 500)
    view.load(QUrl(url))
    view.show()
    deadline = time.monotonic() + seconds
    condition = '(function () { try { return !!(%s); } catch (e) { return false; } })()' % until

    def finish():
        frame = view.page().mainFrame()
        print(json.dumps({'page': frame.evaluateJavaScript("typeof transcript == 'undefined' ? [] : transcript") or [],
                          'status': frame.evaluateJavaScript("document.getElementById('status') ? "
                                                             "document.getElementById('status').textContent : ''")}),
              flush=True)
        if screenshot:
            view.grab().save(screenshot)
        # Leaving the page destroys the plug-in instance; quit once the new page is in.
        view.loadFinished.connect(lambda ok: app.quit())
        view.setHtml("<html><body>left</body></html>")

    def check():
        if view.page().mainFrame().evaluateJavaScript(condition) or time.monotonic() > deadline:
            finish()
        else:
            QTimer.singleShot(100, check)

    QTimer.singleShot(100, check)
    app.exec_()


if __name__ == "__main__":
    main()
