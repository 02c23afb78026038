#!/usr/bin/python3
"""A scripted browser on QtWebKit: opens a page with NPAPI plug-ins enabled, waits, then prints what the
page recorded (its `transcript`) as JSON lines, one string each, then {"status": TEXT} with the text of the
page's element `status`, and can save a screenshot.

usage: browser_host.py URL SECONDS [SCREENSHOT.png]
The plug-in is found through QTWEBKIT_PLUGIN_PATH, as QtWebKit does."""
import json
import sys

from PyQt5.QtCore import QTimer, QUrl
from PyQt5.QtWebKit import QWebSettings
from PyQt5.QtWebKitWidgets import QWebView
from PyQt5.QtWidgets import QApplication


def main():
    url, seconds = sys.argv[1], float(sys.argv[2])
    screenshot = sys.argv[3] if len(sys.argv) > 3 else None
    app = QApplication([sys.argv[0]])
    settings = QWebSettings.globalSettings()
    settings.setAttribute(QWebSettings.PluginsEnabled, True)
    settings.setAttribute(QWebSettings.JavascriptEnabled, True)
    view = QWebView()
    view.resize(800, 500)
    view.load(QUrl(url))
    view.show()

    def finish():
        frame = view.page().mainFrame()
        transcript = frame.evaluateJavaScript("transcript") or []
        for line in transcript:
            print(json.dumps(line), flush=True)
        status = frame.evaluateJavaScript(
            "document.getElementById('status') ? document.getElementById('status').textContent : ''") or ''
        print(json.dumps({"status": status}), flush=True)
        if screenshot:
            view.grab().save(screenshot)
        # Leaving the page destroys the plug-in instance.
        view.setHtml("<html><body>left</body></html>")
        QTimer.singleShot(500, app.quit)

    QTimer.singleShot(int(seconds * 1000), finish)
    app.exec_()


if __name__ == "__main__":
    main()
