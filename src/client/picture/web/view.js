'use strict';
// Draws trees on the canvas, as much of them as can be seen.

const RowHeight = 18;
const LeastWidth = 0.6; // pixels: what is narrower, and all that is beside it, is left out
const AllocatedClass = '<<init>>'; // in place of a method, below the one that allocated
const Font = '12px ui-monospace, monospace';

function hashed(text) {
  let hash = 0;
  for (let i = 0; i < text.length; i++) {
    hash = (hash * 31 + text.charCodeAt(i)) | 0;
  }
  return hash >>> 0;
}

// The color of a method by its package; the JDK's are apart from the program's, and what is no
// method is grey.
function colorOf(name, dark) {
  const [className, method] = name;
  const light = dark ? 34 : 72;
  if (className === '' || method.startsWith('[')) {
    return `hsl(0 0% ${dark ? 38 : 78}%)`;
  }
  const dot = className.lastIndexOf('.');
  const hash = hashed(dot < 0 ? className : className.slice(0, dot));
  const isPlatform = /^(java|javax|jdk|sun|com\.sun)\./.test(className);
  const hue = isPlatform ? 150 + (hash % 60) : 8 + (hash % 48);
  return `hsl(${hue} ${isPlatform ? 38 : 78}% ${light + (hashed(className) % 8)}%)`;
}

// From blue for what shrank by way of grey to red for what grew.
function colorOfChange(now, base, dark) {
  const most = Math.max(now, base);
  const change = most > 0 ? (now - base) / most : 0;
  const strength = Math.round(Math.min(Math.abs(change), 1) * 85);
  const light = dark ? 40 : 80 - strength / 4;
  return `hsl(${change > 0 ? 4 : 214} ${strength}% ${light}%)`;
}

// What a drawing is made of: rectangles of one tree from a node on, whose children are below it where
// `direction` is 1, above it where it is -1.
class Layer {
  constructor(tree, root, direction) {
    this.tree = tree;
    this.root = root;
    this.direction = direction;
    this.deepest = 0;
    this.rects = []; // per row: x, width, node
  }

  layOut(pixels) {
    const {tree, root} = this;
    const whole = tree.width[root];
    this.rects = [];
    this.deepest = 0;
    if (!(whole > 0)) {
      return;
    }
    const stack = [root, 0, 0];
    while (stack.length > 0) {
      const depth = stack.pop();
      const x = stack.pop();
      const node = stack.pop();
      (this.rects[depth] = this.rects[depth] || []).push(x, (tree.width[node] / whole) * pixels, node);
      this.deepest = Math.max(this.deepest, depth);
      let at = x;
      for (let i = tree.start[node]; i < tree.start[node + 1]; i++) {
        const child = tree.child[i];
        const width = (tree.width[child] / whole) * pixels;
        if (width < LeastWidth) {
          break; // the rest is narrower still
        }
        stack.push(child, at, depth + 1);
        at += width;
      }
    }
    // Children were taken last first.
    this.rects = this.rects.map(reversed);
  }

  // The node at a place, -1 if there is none.
  nodeAt(depth, x) {
    const row = this.rects[depth];
    for (let low = 0, high = row ? row.length / 3 - 1 : -1; low <= high;) {
      const middle = (low + high) >> 1;
      if (x < row[middle * 3]) {
        high = middle - 1;
      } else if (x >= row[middle * 3] + row[middle * 3 + 1]) {
        low = middle + 1;
      } else {
        return row[middle * 3 + 2];
      }
    }
    return -1;
  }

  rectOf(node) {
    for (let depth = 0; depth < this.rects.length; depth++) {
      const row = this.rects[depth];
      for (let i = 0; i < row.length; i += 3) {
        if (row[i + 2] === node) {
          return {depth, x: row[i], width: row[i + 1]};
        }
      }
    }
    return null;
  }
}

// The rectangles of a row from the left on.
function reversed(row) {
  const turned = [];
  for (let i = row.length - 3; i >= 0; i -= 3) {
    turned.push(row[i], row[i + 1], row[i + 2]);
  }
  return turned;
}

class View {
  constructor(graph, canvas, spacer, names) {
    Object.assign(this, {graph, canvas, spacer, names});
    this.layers = [];
    this.isMatch = null;
    this.selected = null; // {layer, node}
    this.labels = names.map(([className, method]) => {
      if (method === AllocatedClass) {
        return [className, className.slice(className.lastIndexOf('.') + 1)];
      }
      const simple = className.slice(className.lastIndexOf('.') + 1);
      return [className ? className + '.' + method : method, simple ? simple + '.' + method : method];
    });
    this.setTheme(false, false);
  }

  setTheme(dark, compared) {
    this.dark = dark;
    this.compared = compared;
    this.colors = this.names.map((name) => colorOf(name, dark));
    const style = getComputedStyle(document.documentElement);
    this.text = style.getPropertyValue('--text').trim();
    this.edge = style.getPropertyValue('--edge').trim();
    this.mark = style.getPropertyValue('--mark').trim();
  }

  // Layers one below the other: rows count from the top of the first.
  show(layers, baseFactor) {
    this.layers = layers;
    this.baseFactor = baseFactor;
    this.layOut();
  }

  layOut() {
    this.pixels = this.graph.clientWidth;
    let top = 0;
    for (const layer of this.layers) {
      layer.layOut(this.pixels);
      layer.top = top;
      top += layer.deepest + 1;
    }
    // A flame stands on the ground.
    const free = Math.floor(this.graph.clientHeight / RowHeight) - top;
    if (this.layers.length === 1 && this.layers[0].direction < 0 && free > 0) {
      this.layers[0].top = free;
      top += free;
    }
    this.rows = top;
    this.spacer.style.height = Math.max(0, top * RowHeight + 4 - this.graph.clientHeight) + 'px';
    this.draw();
  }

  rowOf(layer, depth) {
    return layer.top + (layer.direction > 0 ? depth : layer.deepest - depth);
  }

  // A frame's box in the coordinates of the canvas.
  boxOf(layer, node) {
    const rect = layer.rectOf(node);
    return rect && {x: rect.x, width: rect.width, y: this.rowOf(layer, rect.depth) * RowHeight - this.graph.scrollTop};
  }

  draw() {
    const {canvas, graph} = this;
    const scale = window.devicePixelRatio || 1;
    const height = graph.clientHeight;
    canvas.width = Math.round(this.pixels * scale);
    canvas.height = Math.round(height * scale);
    canvas.style.height = height + 'px';
    const paint = canvas.getContext('2d');
    paint.scale(scale, scale);
    paint.clearRect(0, 0, this.pixels, height);
    paint.font = Font;
    paint.textBaseline = 'middle';
    this.letter = this.letter || paint.measureText('0').width;
    for (const layer of this.layers) {
      for (let depth = 0; depth < layer.rects.length; depth++) {
        const y = this.rowOf(layer, depth) * RowHeight - graph.scrollTop;
        if (y > -RowHeight && y < height) {
          this.drawRow(paint, layer, layer.rects[depth], y);
        }
      }
    }
    this.drawSelected(paint);
  }

  drawRow(paint, layer, row, y) {
    const {tree} = layer;
    for (let i = 0; i < row.length; i += 3) {
      const [x, width, node] = [row[i], row[i + 1], row[i + 2]];
      const name = tree.name[node];
      paint.fillStyle = this.fill(tree, node, name);
      paint.fillRect(x, y, width > 2 ? width - 0.5 : width, RowHeight - 1);
      if (width > 3 * this.letter) {
        paint.fillStyle = this.text;
        paint.fillText(this.label(name, width - 6), x + 3, y + RowHeight / 2);
      }
    }
  }

  fill(tree, node, name) {
    if (name < 0) {
      return this.dark ? '#45464a' : '#dddddd';
    }
    if (this.isMatch && this.isMatch[name]) {
      return this.dark ? '#8e24aa' : '#e58aef';
    }
    return this.compared
      ? colorOfChange(tree.total[node], tree.baseTotal[node] * this.baseFactor, this.dark)
      : this.colors[name];
  }

  // The part of a name that fits. Letters have one width but for those beyond ASCII, which are
  // taken for wide ones.
  label(name, room) {
    const letters = Math.floor(room / this.letter);
    if (name < 0) {
      return 'all'.slice(0, letters);
    }
    const [full, short] = this.labels[name];
    const text = full.length <= letters ? full : short;
    const cut = text.length <= letters ? text : text.slice(0, Math.max(letters - 2, 1)) + '..';
    return /^[\x20-\x7e]*$/.test(cut) ? cut : cut.slice(0, Math.max(letters >> 1, 1));
  }

  drawSelected(paint) {
    const box = this.selected && this.boxOf(this.selected.layer, this.selected.node);
    if (box) {
      paint.strokeStyle = this.mark;
      paint.lineWidth = 2;
      paint.strokeRect(box.x + 1, box.y + 1, Math.max(box.width - 2, 1), RowHeight - 3);
    }
  }

  at(clientX, clientY) {
    const area = this.canvas.getBoundingClientRect();
    const row = Math.floor((clientY - area.top + this.graph.scrollTop) / RowHeight);
    for (const layer of this.layers) {
      const depth = layer.direction > 0 ? row - layer.top : layer.top + layer.deepest - row;
      const node = depth >= 0 && depth <= layer.deepest ? layer.nodeAt(depth, clientX - area.left) : -1;
      if (node >= 0) {
        return {layer, node};
      }
    }
    return null;
  }

  // Scrolls so that the row of the selected frame is seen.
  reveal() {
    const box = this.selected && this.boxOf(this.selected.layer, this.selected.node);
    if (box && (box.y < 0 || box.y > this.graph.clientHeight - RowHeight)) {
      this.graph.scrollTop += box.y - this.graph.clientHeight / 2;
    }
  }
}
