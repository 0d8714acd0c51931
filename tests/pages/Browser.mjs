// Drives a headless Chromium over a pair of pipes: no port, no library.
import {spawn} from 'node:child_process';
import {mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';

const Limit = 60000; // for one answer of a browser on a busy machine

export class Browser {
  constructor(program) {
    this.folder = mkdtempSync(join(tmpdir(), 'browser-'));
    const options = ['--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--no-first-run', '--window-size=1200,800',
      '--disable-background-networking', '--disable-component-update', `--user-data-dir=${this.folder}`, '--remote-debugging-pipe', 'about:blank'];
    this.process = spawn(program, options, {stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe']});
    this.waiting = new Map();
    this.events = [];
    this.last = 0;
    let rest = '';
    this.process.stdio[4].setEncoding('utf8').on('data', (text) => {
      const messages = (rest + text).split('\0');
      rest = messages.pop();
      messages.forEach((message) => this.take(JSON.parse(message)));
    });
  }

  take(message) {
    const waiting = this.waiting.get(message.id);
    if (waiting) {
      this.waiting.delete(message.id);
      clearTimeout(waiting.timer);
      message.error ? waiting.reject(new Error(message.error.message)) : waiting.resolve(message.result);
    } else {
      this.events.push(message);
    }
  }

  call(method, params = {}) {
    const id = ++this.last;
    const isOfPage = this.session && !method.startsWith('Browser.');
    const request = {id, method, params, ...(isOfPage ? {sessionId: this.session} : {})};
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error(`no answer to ${method}`)), Limit);
      this.waiting.set(id, {resolve, reject, timer});
      this.process.stdio[3].write(JSON.stringify(request) + '\0');
    });
  }

  // Opens a page and waits until it has shown itself.
  async open(url) {
    if (!this.session) {
      const {targetId} = await this.call('Target.createTarget', {url: 'about:blank'});
      this.session = (await this.call('Target.attachToTarget', {targetId, flatten: true})).sessionId;
      for (const domain of ['Page', 'Runtime', 'Network', 'Log']) {
        await this.call(`${domain}.enable`);
      }
    }
    this.events = [];
    await this.call('Page.navigate', {url: 'about:blank'});
    await this.call('Page.navigate', {url});
    for (const end = Date.now() + Limit; Date.now() < end;) {
      if (await this.value('typeof page !== "undefined" && page.started.then(() => true)').catch(() => false)) {
        return;
      }
    }
    throw new Error('the page did not start');
  }

  async value(expression) {
    const {result, exceptionDetails} = await this.call('Runtime.evaluate', {expression, awaitPromise: true, returnByValue: true});
    if (exceptionDetails) {
      throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    }
    return result.value;
  }

  async key(key) {
    for (const type of ['keyDown', 'keyUp']) {
      await this.call('Input.dispatchKeyEvent', {type, key, ...(key.length === 1 && type === 'keyDown' ? {text: key} : {})});
    }
  }

  async mouse(x, y, click) {
    await this.call('Input.dispatchMouseEvent', {type: 'mouseMoved', x, y});
    for (const type of click ? ['mousePressed', 'mouseReleased'] : []) {
      await this.call('Input.dispatchMouseEvent', {type, x, y, button: 'left', clickCount: 1});
    }
  }

  async picture() {
    return Buffer.from((await this.call('Page.captureScreenshot', {format: 'png'})).data, 'base64');
  }

  async close() {
    const ended = new Promise((resolve) => this.process.on('exit', resolve));
    await Promise.race([this.call('Browser.close').catch(() => {}), ended]);
    await ended;
    rmSync(this.folder, {recursive: true, force: true, maxRetries: 5, retryDelay: 100});
  }
}
