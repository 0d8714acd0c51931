'use strict';
// Stacks as typed arrays, and what is computed from them. Knows no page.

// Numbers of 7 bits a byte, the low ones first; up to 2^53.
class Bytes {
  constructor(bytes) {
    this.bytes = bytes;
    this.at = 0;
  }
  next() {
    let value = 0;
    let scale = 1;
    for (;;) {
      const byte = this.bytes[this.at++];
      value += (byte & 127) * scale;
      if (!(byte & 128)) {
        return value;
      }
      scale *= 128;
    }
  }
}

// A tree of calls: node 0 is the root, parents stand ahead of their children. `own`, `count`,
// `total` and, of a comparison, `baseOwn`, `baseCount` and `baseTotal` are its values.
class Tree {
  constructor(size) {
    this.size = size;
    this.parent = new Int32Array(size);
    this.name = new Int32Array(size).fill(-1);
    this.clearValues();
  }

  clearValues() {
    for (const field of ['own', 'count', 'total', 'baseOwn', 'baseCount', 'baseTotal']) {
      this[field] = new Float64Array(this.size);
    }
  }

  // From own values to totals, and children by falling width. `size` names the totals that are the
  // widths: "total" or "baseTotal".
  sumUp(width) {
    const {size, parent, own, total, baseOwn, baseTotal} = this;
    total.set(own);
    baseTotal.set(baseOwn);
    for (let i = size - 1; i > 0; i--) {
      total[parent[i]] += total[i];
      baseTotal[parent[i]] += baseTotal[i];
    }
    this.width = this[width];
    this.orderChildren();
  }

  orderChildren() {
    const {size, parent, width} = this;
    const start = new Int32Array(size + 1);
    for (let i = 1; i < size; i++) {
      start[parent[i] + 1]++;
    }
    for (let i = 0; i < size; i++) {
      start[i + 1] += start[i];
    }
    const child = new Int32Array(Math.max(size - 1, 0));
    const next = start.slice();
    for (let i = 1; i < size; i++) {
      child[next[parent[i]]++] = i;
    }
    for (let i = 0; i < size; i++) {
      if (start[i + 1] - start[i] > 1) {
        child.subarray(start[i], start[i + 1]).sort((a, b) => width[b] - width[a] || a - b);
      }
    }
    this.start = start;
    this.child = child;
  }

  children(node) {
    return this.child.subarray(this.start[node], this.start[node + 1]);
  }

  // Nodes from one on outwards, the root left out.
  path(node) {
    const nodes = [];
    for (let i = node; i > 0; i = this.parent[i]) {
      nodes.push(i);
    }
    return nodes;
  }
}

// One of the file's trees, with what each thread spent in each node.
class Recorded {
  constructor(bytes, info) {
    const input = new Bytes(bytes);
    this.info = info;
    this.tree = new Tree(input.next());
    for (let i = 1; i < this.tree.size; i++) {
      this.tree.parent[i] = i - input.next();
      this.tree.name[i] = input.next();
    }
    const count = input.next();
    this.node = new Int32Array(count);
    this.thread = new Int32Array(count);
    const fields = info.compared ? ['own', 'count', 'baseOwn', 'baseCount'] : ['own', 'count'];
    this.fields = fields;
    this.lines = []; // pairs of line and own value, by entry
    for (const field of fields) {
      this[field] = new Float64Array(count);
    }
    for (let i = 0, node = 0; i < count; i++) {
      node += input.next();
      this.node[i] = node;
      this.thread[i] = input.next();
      for (const field of fields) {
        this[field][i] = input.next();
      }
      for (let lines = input.next(); lines > 0; lines--) {
        this.lines[i] = this.lines[i] || [];
        this.lines[i].push([input.next(), input.next()]);
      }
    }
  }

  // Lines in which a node's own time was spent, and how much of it, the largest first.
  linesOf(node, isChosen) {
    const sums = new Map();
    for (let i = this.node.indexOf(node); i >= 0 && this.node[i] === node; i++) {
      if (!isChosen || isChosen[this.thread[i]]) {
        for (const [line, own] of this.lines[i] || []) {
          sums.set(line, (sums.get(line) || 0) + own);
        }
      }
    }
    return [...sums].sort((a, b) => b[1] - a[1] || a[0] - b[0]);
  }

  // Values of the threads that are chosen (an array of flags; null takes all).
  choose(isChosen, width) {
    const tree = this.tree;
    tree.clearValues();
    for (const field of this.fields) {
      const from = this[field];
      const to = tree[field];
      for (let i = 0; i < from.length; i++) {
        if (!isChosen || isChosen[this.thread[i]]) {
          to[this.node[i]] += from[i];
        }
      }
    }
    tree.sumUp(width);
    return tree;
  }

  // What each thread spent.
  byThread(threads) {
    const sums = new Float64Array(threads);
    for (let i = 0; i < this.own.length; i++) {
      sums[this.thread[i]] += this.own[i];
    }
    return sums;
  }
}

// Calls visit(node, isOutermost) for each node, outermost meaning that no node above has its name.
function eachOutermost(tree, names, visit) {
  const open = new Int32Array(names);
  const stack = [];
  let depth = 0;
  stack[depth++] = 0;
  while (depth > 0) {
    const node = stack[--depth];
    if (node < 0) {
      open[tree.name[~node]]--;
      continue;
    }
    if (node > 0) {
      visit(node, open[tree.name[node]]++ === 0);
      stack[depth++] = ~node;
    }
    for (let i = tree.start[node]; i < tree.start[node + 1]; i++) {
      stack[depth++] = tree.child[i];
    }
  }
}

// One row a method, as lists of hot methods have them: a recursive call's total counts once.
function sumsByName(tree, names) {
  const rows = new Map();
  eachOutermost(tree, names, (node, isOutermost) => {
    const name = tree.name[node];
    let row = rows.get(name);
    if (!row) {
      row = {name, own: 0, total: 0, count: 0, baseOwn: 0, baseTotal: 0, baseCount: 0};
      rows.set(name, row);
    }
    for (const field of ['own', 'count', 'baseOwn', 'baseCount']) {
      row[field] += tree[field][node];
    }
    if (isOutermost) {
      row.total += tree.total[node];
      row.baseTotal += tree.baseTotal[node];
    }
  });
  return [...rows.values()].sort((a, b) => b.own - a.own || b.total - a.total || a.name - b.name);
}

// The nodes of a search: which names match, and what their outermost nodes sum up to.
function search(tree, isMatch) {
  let sum = 0;
  let nodes = 0;
  const inside = new Uint8Array(tree.size);
  for (let i = 1; i < tree.size; i++) {
    const above = inside[tree.parent[i]];
    const match = isMatch[tree.name[i]];
    nodes += match;
    if (match && !above) {
      sum += tree.width[i];
    }
    inside[i] = above | match;
  }
  return {sum, nodes};
}

// A tree that grows by its paths.
class Grower {
  constructor() {
    this.parents = [0];
    this.names = [-1];
    this.own = [0];
    this.count = [0];
    this.baseOwn = [0];
    this.baseCount = [0];
    this.known = new Map();
  }
  child(parent, name) {
    const key = parent * 4294967296 + name;
    let node = this.known.get(key);
    if (node === undefined) {
      node = this.parents.push(parent) - 1;
      this.names.push(name);
      for (const field of ['own', 'count', 'baseOwn', 'baseCount']) {
        this[field].push(0);
      }
      this.known.set(key, node);
    }
    return node;
  }
  tree(width) {
    const tree = new Tree(this.parents.length);
    tree.parent.set(this.parents);
    tree.name.set(this.names);
    for (const field of ['own', 'count', 'baseOwn', 'baseCount']) {
      tree[field].set(this[field]);
    }
    tree.sumUp(width);
    return tree;
  }
}

// Who calls a method, and what it calls: two trees whose first node is the method. Each stack counts
// once, for the outermost call.
function sandwich(tree, names, method, width) {
  const callers = new Grower();
  const callees = new Grower();
  const inCallees = new Int32Array(tree.size); // 0: not below an outermost call
  eachOutermost(tree, names, (node, isOutermost) => {
    const name = tree.name[node];
    const above = inCallees[tree.parent[node]];
    if (above === 0 && !(name === method && isOutermost)) {
      return;
    }
    const copy = callees.child(above, name);
    inCallees[node] = copy;
    for (const field of ['own', 'count', 'baseOwn', 'baseCount']) {
      callees[field][copy] += tree[field][node];
    }
    if (above === 0) {
      let at = 0;
      for (let i = node; i > 0; i = tree.parent[i]) {
        at = callers.child(at, tree.name[i]);
      }
      callers.own[at] += tree.total[node];
      callers.baseOwn[at] += tree.baseTotal[node];
    }
  });
  return {callers: callers.tree(width), callees: callees.tree(width)};
}

const Units = {
  ns: [[1e9, 's', 2], [1e6, 'ms', 1], [1e3, 'us', 0], [1, 'ns', 0]],
  bytes: [[1073741824, 'GB', 1], [1048576, 'MB', 1], [1024, 'KB', 1], [1, 'bytes', 0]],
};
function formatted(value, unit) {
  const sizes = Units[unit];
  if (!sizes) {
    return Math.round(value).toLocaleString('en');
  }
  const [size, word, digits] = sizes.find(([least]) => Math.abs(value) >= least) || sizes[sizes.length - 1];
  return (value / size).toFixed(digits) + ' ' + word;
}
function percent(part, whole) {
  return (whole > 0 ? (part / whole) * 100 : 0).toFixed(1) + ' %';
}
