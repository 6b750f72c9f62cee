#!/usr/bin/env python3
"""Checks a page in headless Chromium, as somebody would see it on a telephone and on a wide screen, light and dark.

usage: gallery_check.py PAGE [--shots DIRECTORY]

Fails on pictures that do not load, ids that occur twice, sections and figures without content, pictures without a text
that stands for them, links that lead nowhere, text too faint to read, anything fetched from elsewhere, messages on the
browser's console, and whatever reaches beyond the window's sides. Each of these is then broken on purpose in the open
page, and the check fails too when it does not notice. --shots writes a picture of every section at each width.
"""

import argparse
import base64
import json
import os
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.parse

VIEWS = [(400, 'light'), (400, 'dark'), (1400, 'light'), (1400, 'dark')]
PATIENCE = 60  # seconds for one answer of the browser

# What is wrong with the open page, one line each.
INSPECT = r"""
(async () => {
  const wrong = [];
  const name = e => e.id ? '#' + e.id : e.tagName.toLowerCase() + (e.className ? '.' + e.className : '') +
      (e.getAttribute('src') ? ' ' + e.getAttribute('src') : '');
  const wait = image => image.complete ? null :
      new Promise(done => { image.onload = image.onerror = done; setTimeout(done, 20000); });
  for (const image of document.images) image.loading = 'eager';
  await Promise.all([...document.images].map(wait));
  for (const image of document.images) {
    if (!image.complete || image.naturalWidth === 0) wrong.push('broken picture: ' + name(image));
    if (!image.hasAttribute('alt') || (image.closest('figure') && !image.alt.trim()))
      wrong.push('no alt: ' + name(image));
    const [w, h] = [image.getAttribute('width'), image.getAttribute('height')];
    if (image.naturalWidth && image.closest('figure') && w * image.naturalHeight !== h * image.naturalWidth)
      wrong.push(`said to be ${w} x ${h} and is not: ` + name(image));
  }
  const ids = [...document.querySelectorAll('[id]')].map(e => e.id);
  for (const id of new Set(ids.filter((id, at) => ids.indexOf(id) !== at))) wrong.push('id occurs twice: ' + id);
  if (document.querySelectorAll('h1').length !== 1) wrong.push('not one h1');
  const sections = document.querySelectorAll('section');
  if (sections.length < 2) wrong.push('no sections');
  for (const section of sections) {
    if (!section.querySelector('h2')?.textContent.trim()) wrong.push('section without a title: ' + name(section));
    if (!section.querySelector('img, tbody tr, pre')) wrong.push('empty section: ' + name(section));
    if (!document.querySelector(`nav a[href="#${section.id}"]`)) wrong.push('not in the contents: ' + name(section));
  }
  for (const figure of document.querySelectorAll('figure'))
    if (!figure.querySelector('img, code, pre')) wrong.push('empty figure: ' + name(figure));
  for (const heading of document.querySelectorAll('h2, h3')) {
    const next = heading.nextElementSibling;
    if (!next || /^H[1-6]$/.test(next.tagName)) wrong.push('nothing below: ' + heading.textContent);
  }
  for (const target of [...document.querySelectorAll('a[href^="#"]')].map(link => link.getAttribute('href')))
    if (!document.getElementById(target.slice(1))) wrong.push('leads nowhere: ' + target);

  // Beyond the sides: what scrolls by itself may be wider inside.
  const width = document.documentElement.clientWidth;
  if (document.documentElement.scrollWidth > width) wrong.push(`page is ${document.documentElement.scrollWidth} wide`);
  const scrolls = e => { for (; e; e = e.parentElement) if (/auto|scroll|hidden/.test(getComputedStyle(e).overflowX) &&
      e !== document.body && e !== document.documentElement) return true; return false; };
  for (const e of document.body.querySelectorAll('*')) {
    const box = e.getBoundingClientRect();
    if (box.width && (box.right > width + 1 || box.left < -1) && !scrolls(e.parentElement))
      wrong.push('too wide: ' + name(e));
  }

  // Contrast of text, by the formula of WCAG 2: 4.5 to 1.
  const parts = text => (text.match(/[\d.]+/g) || [0, 0, 0, 0]).map(Number);
  const linear = v => v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4;
  const light = ([r, g, b]) => 0.2126 * linear(r / 255) + 0.7152 * linear(g / 255) + 0.0722 * linear(b / 255);
  const ground = e => { for (; e; e = e.parentElement) { const c = parts(getComputedStyle(e).backgroundColor);
      if (c.length < 4 || c[3] > 0) return c; } return [255, 255, 255]; };
  const faint = new Set();
  for (const e of document.body.querySelectorAll('*')) {
    if (![...e.childNodes].some(n => n.nodeType === 3 && n.data.trim())) continue;
    const [a, b] = [light(parts(getComputedStyle(e).color)), light(ground(e))].sort((x, y) => y - x);
    if ((a + 0.05) / (b + 0.05) < 4.5) faint.add('faint text: ' + name(e));
  }
  return wrong.concat([...faint]);
})()
"""

# Ways to break the page, each with the word that the check must then say.
BREAK = [
    ('broken picture', "const i = document.querySelector('main img'); i.src = 'no-such-picture.png'"),
    ('no alt', "document.querySelector('main figure img').alt = ''"),
    ('is not', "document.querySelector('main figure img').setAttribute('width', '7')"),
    ('id occurs twice', "document.querySelectorAll('section')[1].id = document.querySelector('section').id"),
    ('empty section', "document.querySelectorAll('section')[1].innerHTML = '<h2>Nothing</h2><p>Text</p>'"),
    ('nothing below', "document.querySelector('main').insertAdjacentHTML('beforeend', '<h3>Alone</h3>')"),
    ('leads nowhere', "document.querySelector('nav a').setAttribute('href', '#nowhere')"),
    ('page is', "document.querySelector('main').insertAdjacentHTML('beforeend', '<div style=width:2000px>x</div>')"),
    ('faint text', "document.querySelector('h1').style.color = getComputedStyle(document.body).backgroundColor"),
]


class Browser:
    """Chromium on two pipes; one page at a time."""

    def __init__(self, program, profile):
        to_read, self.to = os.pipe()
        self.source, from_write = os.pipe()

        def pipes():  # the browser reads from descriptor 3 and writes to 4
            spare = [os.dup(to_read), os.dup(from_write)]
            high = [os.dup2(fd, 50 + at) for at, fd in enumerate(spare)]
            for at, fd in enumerate(high):
                os.dup2(fd, 3 + at)

        arguments = [program, '--headless', '--remote-debugging-pipe', '--disable-gpu', '--hide-scrollbars',
                     '--no-first-run', '--disable-extensions', '--disable-dev-shm-usage', f'--user-data-dir={profile}']
        if hasattr(os, 'geteuid') and os.geteuid() == 0:
            arguments.append('--no-sandbox')  # its sandbox refuses to run as root; the page is our own
        self.process = subprocess.Popen(arguments, close_fds=False, preexec_fn=pipes, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(from_write)
        self.buffer, self.number, self.session, self.events = b'', 0, None, []
        target = self.call('Target.createTarget', url='about:blank')['targetId']
        self.session = self.call('Target.attachToTarget', targetId=target, flatten=True)['sessionId']
        for domain in ('Page', 'Network', 'Runtime', 'Log'):
            self.call(domain + '.enable')

    def message(self):
        end = time.monotonic() + PATIENCE
        while b'\0' not in self.buffer:
            ready, _, _ = select.select([self.source], [], [], max(0, end - time.monotonic()))
            more = os.read(self.source, 1 << 20) if ready else b''
            if not more:
                raise SystemExit('gallery_check: the browser does not answer')
            self.buffer += more
        text, self.buffer = self.buffer.split(b'\0', 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self.number += 1
        request = {'id': self.number, 'method': method, 'params': parameters}
        if self.session:
            request['sessionId'] = self.session
        os.write(self.to, json.dumps(request).encode() + b'\0')
        while True:
            answer = self.message()
            if answer.get('id') == self.number:
                if 'error' in answer:
                    raise SystemExit(f"gallery_check: {method}: {answer['error']['message']}")
                return answer['result']
            self.events.append(answer)

    def open(self, url, width, scheme):
        self.call('Emulation.setDeviceMetricsOverride', width=width, height=900, deviceScaleFactor=1, mobile=False)
        self.call('Emulation.setEmulatedMedia', features=[{'name': 'prefers-color-scheme', 'value': scheme}])
        self.events = []
        self.call('Page.navigate', url=url)
        while not any(event.get('method') == 'Page.loadEventFired' for event in self.events):
            self.events.append(self.message())

    def run(self, script):
        result = self.call('Runtime.evaluate', expression=script, awaitPromise=True, returnByValue=True)
        if 'exceptionDetails' in result:
            raise SystemExit('gallery_check: ' + json.dumps(result['exceptionDetails'])[:500])
        return result['result'].get('value')

    def heard(self):
        """Requests to elsewhere and messages of the console since the page was opened."""
        found = set()
        for event in self.events:
            parameters = event.get('params', {})
            if event.get('method') == 'Network.requestWillBeSent':
                url = parameters['request']['url']
                if not url.startswith(('file:', 'data:')):
                    found.add('fetched from elsewhere: ' + url)
            elif event.get('method') == 'Log.entryAdded' and parameters['entry']['level'] in ('error', 'warning'):
                found.add('console: ' + parameters['entry']['text'])
            elif event.get('method') in ('Runtime.exceptionThrown', 'Runtime.consoleAPICalled'):
                found.add('console: ' + json.dumps(parameters)[:200])
        return sorted(found)

    def shot(self, selector, name):
        box = self.run(f"""(r => [r.x + scrollX, r.y + scrollY, r.width, Math.min(r.height, 12000)])
            (document.querySelector({json.dumps(selector)}).getBoundingClientRect())""")
        clip = dict(zip(('x', 'y', 'width', 'height'), box), scale=1)
        data = self.call('Page.captureScreenshot', format='png', captureBeyondViewport=True, clip=clip)['data']
        name.write_bytes(base64.b64decode(data))

    def close(self):
        os.close(self.to)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def missing_files(browser, page):
    """Links to files that are not there."""
    links = browser.run("[...document.querySelectorAll('a[href]')].map(a => a.getAttribute('href'))")
    for link in links:
        if not link.startswith('#') and not (page.parent / urllib.parse.unquote(link)).is_file():
            yield 'leads nowhere: ' + link


def check(browser, page, shots):
    faults = []
    for width, scheme in VIEWS:
        browser.open(page.as_uri(), width, scheme)
        wrong = browser.run(INSPECT) + browser.heard() + list(missing_files(browser, page))
        faults += [f'{width} px, {scheme}: {line}' for line in wrong]
        if shots:
            sections = browser.run("[...document.querySelectorAll('section')].map(s => '#' + s.id)")
            for part in ['header', 'nav', *sections]:
                browser.shot(part, shots / f'{width}-{scheme}-{part.strip("#")}.png')
    for expected, damage in BREAK:
        browser.open(page.as_uri(), 400, 'light')
        browser.run('{' + damage + '}')
        if not any(expected in line for line in browser.run(INSPECT)):
            faults.append(f'the check does not notice "{expected}"')
    return faults


def main():
    parser = argparse.ArgumentParser(description='Checks a page in headless Chromium.')
    parser.add_argument('page', type=pathlib.Path)
    parser.add_argument('--shots', type=pathlib.Path, metavar='DIRECTORY', help='write pictures of its sections there')
    given = parser.parse_args()
    if not given.page.is_file():
        parser.error(f'{given.page} is not there')
    program = next(filter(None, map(shutil.which, ('chromium', 'chromium-browser', 'google-chrome'))), None)
    if not program:
        parser.error('Chromium is not installed')
    if given.shots:
        given.shots.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(program, profile)
        try:
            faults = check(browser, given.page.resolve(), given.shots)
        finally:
            browser.close()
    for line in faults[:60]:
        print(line)
    print(f'{given.page}: ' + (f'{len(faults)} faults' if faults else
                               f'no fault at {" and ".join(str(w) for w in sorted({w for w, _ in VIEWS}))} px; '
                               f'{len(BREAK)} kinds of damage noticed'))
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
