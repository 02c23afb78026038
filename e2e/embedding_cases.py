"""The ways a page embeds the plug-in (portal/embedding-cases.json), visited one by one in an engine: the
plug-in's instances, as its log shows them, and what the page heard must be what QtWebKit made of them."""
import json
import os
import re

from demo_setup import read
from engine_bridge import poll

NEW = re.compile(r"\[NS_NewPluginInstance\] vpnA:='(.*)'$")
DESTROY = re.compile(r'\[NS_DestroyPluginInstance\] doNotTerminate')
PID = re.compile(r'browser_pid=\d+&')


def load(source):
    with open(os.path.join(source, 'e2e', 'portal', 'embedding-cases.json')) as f:
        table = json.load(f)
    fill = lambda text: text.replace('$T', table['T'])
    return [dict(case, events=[fill(e) for e in case['events']]) for case in table['cases']]


def events(log_text):
    """The plug-in's instances in its log: 'new TEXT' (the browser's pid left out) and 'destroy', in order.
    (An instance ended while the log is closed leaves no line: see visit_cases.)"""
    found = []
    for line in log_text.splitlines():
        made = NEW.search(line)
        if made:
            found.append('new ' + PID.sub('', made.group(1)))
        elif DESTROY.search(line):
            found.append('destroy')
    return found


def visit_cases(run, check):
    """Visits every case; `check(condition, message)` fails the run."""
    log = os.path.join(run.home, '.Orvane', 'tunvo_plugin.log')
    for case in load(run.source):
        before = len(events(read(log)))
        since = lambda: events(read(log))[before:]
        made = sum(1 for e in case['events'] if e.startswith('new '))
        page = run.visit('case=' + case['name'], 'done', page='embeds.html',
                         ready=lambda: sum(1 for e in since() if e.startswith('new ')) >= made, lines=0)
        # Leaving the page ends what is left of its instances. The log shows the first of those ends only:
        # the plug-in closes its log as each instance ends and opens it again for the next one it makes.
        alive = made - case['events'].count('destroy')
        expected = case['events'] + (['destroy'] if alive else [])
        poll(lambda: len(since()) >= len(expected), 15)
        seen = since()
        print('   %-32s %s' % (case['name'], ' | '.join(seen) or '(no instance)'))
        check(seen == expected, 'embedding %s: the plug-in saw %r, not %r' % (case['name'], seen, expected))
        check(page == case['page'], 'embedding %s: the page heard %r, not %r' % (case['name'], page, case['page']))
