// The page of a flame graph in a real browser: its numbers are those of the report, and names do no
// harm. usage: node check.mjs CHROMIUM PAGE REPORT
import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import {Browser} from './Browser.mjs';

const [program, file, reportFile] = process.argv.slice(2);
const report = JSON.parse(readFileSync(reportFile, 'utf8'));
const browser = new Browser(program);
const evaluate = (expression) => browser.value(expression);

// Own time, total and the list's cells, by name; names as the page shows them.
const rowsOfPage = () => evaluate('Object.fromEntries(listRows().map((row) => [row.label, [row.own, row.total]]))');
const rowsOf = (methods) => Object.fromEntries(methods.map((method) => [method.name, [method.ownNs, method.totalNs]]));

try {
  await browser.open('file://' + file);
  const isLarge = report.methods.length > 1000;
  assert.equal(await evaluate('page.ready'), true, await evaluate('element("status").textContent'));
  const shown = await rowsOfPage();
  assert.equal(Object.keys(shown).length, report.methods.length);
  for (const [name, values] of Object.entries(rowsOf(report.methods))) {
    assert.deepEqual(shown[name], values, name);
  }

  // Search: the outermost frames that match, which of one method is its total.
  const {name, totalNs} = report.methods.find((method) => method.name.endsWith('.work'));
  await browser.key('/');
  await browser.call('Input.insertText', {text: name.replaceAll('.', '\\.') + '$'});
  assert.match(await evaluate('element("found").title'), new RegExp(`^${totalNs} in `));
  await evaluate('element("search").value = ""; element("search").oninput({target: element("search")}); element("graph").focus()');

  // A click fills the width, the tip tells the numbers, Escape goes back.
  const box = await evaluate(`(() => {
    const layer = page.view.layers[0];
    const node = page.tree.children(0)[0];
    const area = element('canvas').getBoundingClientRect();
    const box = page.view.boxOf(layer, node);
    return {x: area.left + box.x + Math.min(box.width / 2, 5), y: area.top + box.y + 9, name: nameOf(page.tree.name[node]), node};
  })()`);
  await browser.mouse(box.x, box.y, false);
  assert.ok((await evaluate('element("tip").textContent')).startsWith(box.name));
  if (!isLarge) {
    const tips = await evaluate("Array.from(page.tree.own, (_, i) => (i > 0 ? facts({tree: page.tree}, i) : [])).flat().filter((text) => text.startsWith('lines'))");
    assert.equal(tips.length, 1);
    assert.equal(tips[0], 'lines 17 (75.0 %), 19 (25.0 %)');
  }
  await browser.mouse(box.x, box.y, true);
  assert.equal(await evaluate('page.zoom'), box.node);
  await browser.key('Escape');
  assert.equal(await evaluate('page.zoom'), 0);

  // The sandwich of a method has its total at both sides.
  await evaluate(`openSandwich(page.view.labels.findIndex(([full]) => full === ${JSON.stringify(name)}))`);
  assert.deepEqual(await evaluate('page.view.layers.map((layer) => layer.tree.total[layer.root])'), [totalNs, totalNs]);
  await browser.key('Escape');

  // One thread alone.
  if (report.thread) {
    await evaluate(`element('threads').value = ${JSON.stringify('thread:' + report.thread)}; element('threads').onchange({target: element('threads')})`);
    const own = (rows) => Object.fromEntries(Object.entries(rows).filter(([, [, total]]) => total > 0));
    assert.deepEqual(own(await rowsOfPage()), own(rowsOf(report.ofThread)));
    await evaluate(`element('threads').value = ''; element('threads').onchange({target: element('threads')})`);
  }

  // Keys: list, arrows, theme, direction.
  await browser.key('m');
  assert.equal(await evaluate('element("list").querySelectorAll("tbody tr").length'), Math.min(report.methods.length, 1000));
  await browser.key('m');
  await browser.key('ArrowUp');
  await browser.key('ArrowUp');
  assert.equal(await evaluate('page.view.selected.node === page.tree.children(0)[0]'), true);
  await browser.key('d');
  assert.equal(await evaluate('document.documentElement.classList.contains("dark")'), true);
  await browser.key('i');
  assert.equal(await evaluate('page.view.layers[0].direction'), 1);
  const drawn = await evaluate(`(() => {
    const begin = performance.now();
    for (let i = 0; i < 20; i++) { page.view.layOut(); }
    return (performance.now() - begin) / 20;
  })()`);
  console.log(`${await evaluate('page.tree.size')} frames: a drawing took ${drawn.toFixed(1)} ms`);
  assert.ok(!isLarge || drawn < 500, `${drawn} ms for a drawing`);

  // Nothing was fetched, nothing failed, and no name became a part of the page.
  const requests = browser.events.filter((event) => event.method === 'Network.requestWillBeSent').map((event) => event.params.request.url);
  assert.deepEqual(requests.filter((url) => url.startsWith('file:') ? !url.split('#')[0].endsWith(file) : !url.startsWith('about:') && !url.startsWith('blob:')), []);
  const failures = browser.events.filter((event) => event.method === 'Runtime.exceptionThrown' || event.method === 'Log.entryAdded');
  assert.deepEqual(failures.map((event) => event.params), []);
  assert.equal(await evaluate('typeof window.harmed'), 'undefined');
  assert.equal(await evaluate('document.querySelectorAll("img, iframe, script:not([nonce])").length'), 0);
} finally {
  await browser.close();
}
