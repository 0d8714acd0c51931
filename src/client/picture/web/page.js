'use strict';
// The page: what is chosen, and what keys and clicks do.

const element = (id) => document.getElementById(id);
const MostRows = 1000; // of the list
const MostLines = 5; // of a frame

const page = {
  head: JSON.parse(element('head').textContent),
  recorded: [],
  weight: 0,
  threads: '', // "", "thread:NAME" or "group:NAME"
  query: '',
  mode: 'flame', // "flame", "icicle", "methods" or "sandwich"
  upright: true,
  zoom: 0,
  history: [],
  method: -1, // of the sandwich
  width: 'total',
  order: {by: 'own', falling: true},
};

async function unpacked(id) {
  const text = element(id).textContent.trim();
  const bytes = Uint8Array.from(atob(text), (letter) => letter.charCodeAt(0));
  element(id).remove();
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

function option(value, text) {
  const made = document.createElement('option');
  made.value = value;
  made.textContent = text;
  return made;
}

const current = () => page.recorded[page.weight];
const nameOf = (name) => (name < 0 ? 'all' : page.view.labels[name][0]);
const inUnit = (value) => formatted(value, current().info.unit);

function fillThreads() {
  const {threads} = page.head;
  const sums = current().byThread(threads.length);
  const all = sums.reduce((sum, value) => sum + value, 0);
  const add = (prefix, index, label) => {
    const by = new Map();
    threads.forEach((thread, i) => by.set(thread[index], (by.get(thread[index]) || 0) + sums[i]));
    const sorted = [...by].filter(([name]) => name !== '').sort((a, b) => b[1] - a[1]);
    const group = document.createElement('optgroup');
    group.label = label;
    for (const [name, sum] of sorted.slice(0, 2000)) {
      group.append(option(prefix + name, `${name} (${percent(sum, all)})`));
    }
    return group;
  };
  const known = page.threads;
  element('threads').replaceChildren(option('', `all (${inUnit(all)})`), add('group:', 1, 'groups'), add('thread:', 0, 'threads'));
  element('threads').value = known;
  if (element('threads').selectedIndex < 0) {
    page.threads = '';
    element('threads').value = '';
  }
}

function chosenThreads() {
  if (page.threads === '') {
    return null;
  }
  const isGroup = page.threads.startsWith('group:');
  const name = page.threads.slice(page.threads.indexOf(':') + 1);
  return page.head.threads.map((thread) => (thread[isGroup ? 1 : 0] === name ? 1 : 0));
}

// What is searched for: a regular expression, or else the text itself.
function matcher(text) {
  try {
    const expression = new RegExp(text, 'i');
    return (name) => expression.test(name);
  } catch {
    const lower = text.toLowerCase();
    return (name) => name.toLowerCase().includes(lower);
  }
}

function chooseData() {
  page.tree = current().choose(chosenThreads(), page.width);
  page.zoom = 0;
  page.history = [];
  page.view.selected = null;
  applySearch();
}

function applySearch() {
  const {view, query} = page;
  const output = element('found');
  if (query === '') {
    view.isMatch = null;
    output.textContent = '';
    return;
  }
  const matches = matcher(query);
  view.isMatch = Uint8Array.from(page.head.names, (_, i) => (matches(view.labels[i][0]) ? 1 : 0));
  const {sum, nodes} = search(page.tree, view.isMatch);
  output.textContent = `${inUnit(sum)}, ${percent(sum, page.tree.width[0])}`;
  output.title = `${Math.round(sum)} in ${nodes} frames`;
}

function showGraph() {
  const {view, tree} = page;
  if (page.mode === 'sandwich') {
    const {callers, callees} = sandwich(tree, page.head.names.length, page.method, page.width);
    // The method stands between its callers and its callees.
    const below = callees.start[1] > callees.start[0] ? callees.child[callees.start[0]] : 0;
    const above = callers.start[1] > callers.start[0] ? callers.child[callers.start[0]] : 0;
    view.show([new Layer(callers, above, -1), new Layer(callees, below, 1)], current().info.baseFactor);
    return;
  }
  view.show([new Layer(tree, page.zoom, page.upright ? -1 : 1)], current().info.baseFactor);
}

function render() {
  const isList = page.mode === 'methods';
  element('graph').hidden = isList;
  element('list').hidden = !isList;
  element('back').disabled = page.history.length === 0 && page.mode !== 'sandwich' && !isList;
  element('flame').textContent = page.upright ? 'Icicle' : 'Flame';
  if (isList) {
    showList();
  } else {
    showGraph();
    if (page.upright && page.mode === 'flame') {
      element('graph').scrollTop = page.view.rows * RowHeight;
    } else {
      element('graph').scrollTop = 0;
    }
    page.view.draw();
  }
  showCrumbs();
  keepInAddress();
}

function showCrumbs() {
  const {tree, mode} = page;
  const parts = [];
  if (mode === 'sandwich') {
    parts.push('callers and callees of ' + nameOf(page.method));
  } else if (page.zoom > 0) {
    parts.push(...tree.path(page.zoom).reverse().map((node) => nameOf(tree.name[node])));
  }
  element('crumbs').textContent = parts.slice(-6).join('  \u203a  ');
}

function facts(layer, node) {
  const {tree} = layer;
  const whole = page.tree.width[0];
  const {info} = current();
  const name = tree.name[node];
  const isCaller = page.mode === 'sandwich' && layer.direction < 0;
  const lines = [nameOf(name), `total ${inUnit(tree.total[node])} (${percent(tree.total[node], page.tree.total[0])})`];
  if (!isCaller) {
    lines.push(`own ${inUnit(tree.own[node])} (${percent(tree.own[node], page.tree.total[0])})`);
    const known = tree === page.tree ? current().linesOf(node, chosenThreads()) : [];
    if (known.length > 0) {
      const first = known.slice(0, MostLines).map(([line, own]) => `${line} (${percent(own, tree.own[node])})`);
      lines.push('lines ' + first.join(', ') + (known.length > MostLines ? ', ...' : ''));
    }
    if (info.countTitle && tree.count[node] > 0) {
      lines.push(`${info.countTitle} ${Math.round(tree.count[node]).toLocaleString('en')}`);
    }
  }
  if (info.compared) {
    const before = tree.baseTotal[node] * current().info.baseFactor;
    const change = tree.total[node] - before;
    lines.push(`before ${inUnit(before)}, ${change >= 0 ? '+' : ''}${inUnit(change)}` + (before > 0 ? ` (${change >= 0 ? '+' : ''}${percent(change, before)})` : ', new'));
  }
  if (name >= 0 && page.head.names[name][0]) {
    lines.push('class ' + page.head.names[name][0]);
  }
  return whole > 0 ? lines : [];
}

function tell(at) {
  element('status').textContent = at ? facts(at.layer, at.node).join('   ') : page.head.notes;
}

function showTip(event, at) {
  const tip = element('tip');
  tip.hidden = !at;
  if (at) {
    tip.textContent = facts(at.layer, at.node).join('\n');
    tip.style.left = Math.max(0, Math.min(event.clientX + 12, innerWidth - tip.offsetWidth - 8)) + 'px';
    tip.style.top = Math.max(0, Math.min(event.clientY + 16, innerHeight - tip.offsetHeight - 8)) + 'px';
  }
}

// The list of methods.
function columns() {
  const {info} = current();
  const all = page.tree.total[0];
  const made = [
    ['own', 'OWN', (row) => inUnit(row.own)],
    ['own', 'OWN%', (row) => percent(row.own, all)],
    ['total', 'TOTAL', (row) => inUnit(row.total)],
    ['total', 'TOTAL%', (row) => percent(row.total, all)],
  ];
  if (info.countTitle) {
    made.push(['count', info.countTitle.toUpperCase(), (row) => Math.round(row.count).toLocaleString('en')]);
  }
  if (info.compared) {
    made.push(['change', 'OWN CHANGE', (row) => (row.change >= 0 ? '+' : '') + inUnit(row.change)]);
  }
  made.push(['label', 'METHOD', (row) => row.label]);
  return made;
}

function listRows() {
  const {by, falling} = page.order;
  let rows = sumsByName(page.tree, page.head.names.length);
  for (const row of rows) {
    row.label = nameOf(row.name);
    row.change = row.own - row.baseOwn * current().info.baseFactor;
  }
  if (page.view.isMatch) {
    rows = rows.filter((row) => page.view.isMatch[row.name]);
  }
  if (by !== 'own' || !falling) {
    const sign = falling ? -1 : 1;
    rows.sort((a, b) => (by === 'label' ? sign * (a.label < b.label ? -1 : 1) : sign * (a[by] - b[by])));
  }
  return rows;
}

function showList() {
  const shown = columns();
  const rows = listRows();
  const head = document.createElement('tr');
  for (const [by, title] of shown) {
    const cell = document.createElement('th');
    cell.textContent = title;
    cell.onclick = () => {
      page.order = {by, falling: page.order.by === by ? !page.order.falling : by !== 'label'};
      showList();
    };
    head.append(cell);
  }
  element('list').querySelector('thead').replaceChildren(head);
  const lines = rows.slice(0, MostRows).map((row) => {
    const line = document.createElement('tr');
    line.tabIndex = 0;
    for (const [by, , text] of shown) {
      const cell = document.createElement('td');
      cell.textContent = text(row);
      if (by === 'change') {
        cell.className = row.change > 0 ? 'grown' : row.change < 0 ? 'shrunk' : '';
      } else if (by !== 'label') {
        cell.title = String(row[by]);
      }
      line.append(cell);
    }
    line.onclick = () => openSandwich(row.name);
    line.onkeydown = (event) => {
      if (event.key === 'Enter') {
        openSandwich(row.name);
      }
    };
    return line;
  });
  element('list').querySelector('tbody').replaceChildren(...lines);
  element('status').textContent = rows.length > MostRows ? `the first ${MostRows} of ${rows.length} methods; search for others` : `${rows.length} methods`;
}

// What can be gone back from.
function remember() {
  page.history.push({zoom: page.zoom, mode: page.mode, method: page.method});
}

function back() {
  const before = page.history.pop() || {zoom: 0, mode: page.upright ? 'flame' : 'icicle', method: -1};
  Object.assign(page, before);
  page.view.selected = null;
  render();
}

function zoomTo(node) {
  if (node === page.zoom) {
    return;
  }
  remember();
  page.zoom = node;
  render();
  tell(page.view.selected);
}

function openSandwich(name) {
  if (name < 0) {
    return;
  }
  remember();
  page.mode = 'sandwich';
  page.method = name;
  page.view.selected = null;
  render();
}

// A click or Enter: a frame of the graph fills the width, one of the sandwich is looked at next.
function open(at) {
  const name = at.layer.tree.name[at.node];
  if (page.mode === 'sandwich') {
    if (name !== page.method) {
      openSandwich(name);
    }
    return;
  }
  const selected = at.node;
  zoomTo(at.node);
  page.view.selected = {layer: page.view.layers[0], node: selected};
  page.view.draw();
}

function select(layer, node) {
  page.view.selected = {layer, node};
  page.view.reveal();
  page.view.draw();
  tell(page.view.selected);
}

// Arrows: outwards is towards the root, whatever side that is on.
function move(key) {
  const {view} = page;
  if (!view.selected || !view.layers.includes(view.selected.layer)) {
    const layer = view.layers[view.layers.length - 1];
    select(layer, layer.root);
    return;
  }
  const {layer, node} = view.selected;
  const {tree} = layer;
  const towardsRoot = (key === 'ArrowUp') === layer.direction > 0;
  if (key === 'ArrowUp' || key === 'ArrowDown') {
    if (!towardsRoot) {
      const children = tree.children(node);
      if (children.length > 0 && tree.width[children[0]] > 0) {
        select(layer, children[0]);
      }
    } else if (node !== layer.root) {
      select(layer, tree.parent[node]);
    }
    return;
  }
  if (node === layer.root) {
    return;
  }
  const beside = tree.children(tree.parent[node]);
  const next = beside[beside.indexOf(node) + (key === 'ArrowRight' ? 1 : -1)];
  if (next !== undefined && layer.rectOf(next)) {
    select(layer, next);
  }
}

function toggleMethods() {
  if (page.mode === 'methods') {
    back();
    return;
  }
  remember();
  page.mode = 'methods';
  render();
}

function turn() {
  page.upright = !page.upright;
  if (page.mode === 'flame' || page.mode === 'icicle') {
    page.mode = page.upright ? 'flame' : 'icicle';
  }
  render();
}

function setTheme(dark) {
  document.documentElement.classList.toggle('dark', dark);
  element('theme').textContent = dark ? 'Light' : 'Dark';
  page.view.setTheme(dark, Boolean(current().info.compared));
}

function sandwichOfSelected() {
  const {selected} = page.view;
  if (selected) {
    openSandwich(selected.layer.tree.name[selected.node]);
  } else {
    element('status').textContent = 'choose a frame with the arrow keys first, or a line of Methods';
  }
}

const Keys = {
  'arrow keys': 'go from frame to frame',
  Enter: 'let the chosen frame fill the width',
  'Escape, Backspace': 'back',
  '/': 'search, as text or regular expression',
  s: 'callers and callees of the chosen frame',
  m: 'list of methods',
  i: 'flame or icicle',
  w: 'next weight',
  d: 'dark or light',
  '?': 'this help',
};

const Actions = {
  '/': () => element('search').focus(),
  s: sandwichOfSelected,
  m: toggleMethods,
  i: turn,
  w: () => setWeight((page.weight + 1) % page.recorded.length),
  d: () => {
    setTheme(!page.view.dark);
    page.view.draw();
  },
  '?': () => element('keys').showModal(),
  Escape: back,
  Backspace: back,
  Enter: () => page.view.selected && open(page.view.selected),
};

function onKey(event) {
  const inField = /^(INPUT|SELECT|BUTTON|TR)$/.test(event.target.tagName);
  if (event.ctrlKey || event.altKey || event.metaKey || element('keys').open) {
    return;
  }
  if (inField) {
    if (event.key === 'Escape') {
      event.target.blur();
    }
    return;
  }
  if (event.key.startsWith('Arrow') && page.mode !== 'methods') {
    move(event.key);
  } else if (Actions[event.key]) {
    Actions[event.key]();
  } else {
    return;
  }
  event.preventDefault();
}

function setWeight(weight) {
  page.weight = weight;
  element('weight').value = String(weight);
  fillThreads();
  chooseData();
  if (page.mode === 'sandwich') {
    page.mode = page.upright ? 'flame' : 'icicle';
  }
  render();
  tell(null);
}

// The address tells what is looked at, so that it can be kept and sent.
function keepInAddress() {
  const parts = new URLSearchParams();
  if (page.weight > 0) parts.set('w', current().info.id);
  if (page.threads) parts.set('t', page.threads);
  if (page.query) parts.set('q', page.query);
  if (!page.upright) parts.set('up', '0');
  if (page.mode === 'methods') parts.set('v', 'methods');
  if (page.mode === 'sandwich') {
    parts.set('v', 'callers');
    parts.set('m', nameOf(page.method));
  }
  try {
    history.replaceState(null, '', '#' + parts);
  } catch {
    // A page that was opened from nowhere has no address.
  }
}

function readAddress() {
  const parts = new URLSearchParams(location.hash.slice(1));
  const weight = page.recorded.findIndex((recorded) => recorded.info.id === parts.get('w'));
  page.weight = Math.max(weight, 0);
  page.threads = parts.get('t') || '';
  page.query = parts.get('q') || '';
  page.upright = parts.get('up') !== '0';
  page.mode = page.upright ? 'flame' : 'icicle';
  if (parts.get('v') === 'methods') {
    page.mode = 'methods';
  }
  if (parts.get('v') === 'callers') {
    page.method = page.view.labels.findIndex(([full]) => full === parts.get('m'));
    page.mode = page.method < 0 ? page.mode : 'sandwich';
  }
}

function listen() {
  const graph = element('graph');
  const canvas = element('canvas');
  element('weight').onchange = (event) => setWeight(Number(event.target.value));
  element('threads').onchange = (event) => {
    page.threads = event.target.value;
    chooseData();
    render();
  };
  element('size').onchange = (event) => {
    page.width = event.target.value === 'base' ? 'baseTotal' : 'total';
    chooseData();
    render();
  };
  element('search').oninput = (event) => {
    page.query = event.target.value;
    applySearch();
    page.mode === 'methods' ? showList() : page.view.draw();
    keepInAddress();
  };
  element('flame').onclick = turn;
  element('methods').onclick = toggleMethods;
  element('sandwich').onclick = sandwichOfSelected;
  element('back').onclick = back;
  element('theme').onclick = Actions.d;
  element('help').onclick = Actions['?'];
  canvas.onmousemove = (event) => {
    const at = page.view.at(event.clientX, event.clientY);
    showTip(event, at);
    tell(at || page.view.selected);
  };
  canvas.onmouseleave = () => {
    element('tip').hidden = true;
  };
  canvas.onclick = (event) => {
    const at = page.view.at(event.clientX, event.clientY);
    graph.focus();
    if (at) {
      open(at);
    }
  };
  graph.onscroll = () => page.view.draw();
  window.onresize = () => page.mode !== 'methods' && page.view.layOut();
  document.onkeydown = onKey;
}

function fillPage() {
  const {head} = page;
  document.title = head.title;
  element('title').textContent = head.title;
  element('title').title = head.source;
  element('weight').replaceChildren(...page.recorded.map((recorded, i) => option(String(i), recorded.info.title)));
  element('weight').value = String(page.weight);
  element('search').value = page.query;
  element('sizeLabel').hidden = !head.compared;
  const list = element('keys').querySelector('dl');
  for (const [key, what] of Object.entries(Keys)) {
    const term = document.createElement('dt');
    term.textContent = key;
    const text = document.createElement('dd');
    text.textContent = what;
    list.append(term, text);
  }
}

async function start() {
  const {head} = page;
  page.view = new View(element('graph'), element('canvas'), element('spacer'), head.names);
  for (let i = 0; i < head.trees.length; i++) {
    page.recorded.push(new Recorded(await unpacked('data' + i), head.trees[i]));
  }
  if (page.recorded.length === 0) {
    element('title').textContent = head.title;
    element('status').textContent = 'nothing was recorded. ' + head.notes;
    return;
  }
  readAddress();
  fillPage();
  setTheme(matchMedia('(prefers-color-scheme: dark)').matches);
  fillThreads();
  chooseData();
  listen();
  render();
  tell(null);
  page.ready = true;
}

page.started = start().catch((error) => {
  element('status').textContent = 'this page cannot be shown: ' + error.message;
});
