// The grid. Only the tiles near the window are in the document, so that a hundred thousand photos
// scroll as fast as a hundred. The position of every tile can be calculated.

const HEADING = 48;
const CAPTION = 28;
const GAP = 10;
const OVERSCAN = 700;  // Pixels above and below the window that are drawn too.

class Grid {
  constructor(library, canvas, onOpen) {
    this.library = library;
    this.canvas = canvas;
    this.onOpen = onOpen;
    this.shown = [];
    this.sections = [];
    this.parts = new Map();  // Drawn sections, by their index.
    this.tiles = new Map();  // Drawn tiles, by their index among the photos shown.
    this.current = 0;        // The tile that the Tab key reaches.
    this.columns = 1;
    canvas.addEventListener('keydown', (event) => this.onKey(event));
    canvas.addEventListener('focusin', (event) => this.onFocus(event));
    canvas.addEventListener('click', (event) => {
      const tile = event.target.closest('.tile');
      if (tile) this.onOpen(Number(tile.dataset.at));
    });
    window.addEventListener('scroll', () => this.drawSoon(), {passive: true});
    new ResizeObserver(() => this.onResize()).observe(canvas);
  }

  show(numbers) {
    this.shown = numbers;
    this.current = 0;
    this.arrange();
    this.draw();
  }

  // Calculates where everything goes at the current width.
  arrange() {
    this.clear();
    this.width = this.canvas.clientWidth;
    const least = this.width < 600 ? 104 : 168;
    this.columns = Math.max(2, Math.floor((this.width + GAP) / (least + GAP)));
    this.side = Math.floor((this.width - GAP * (this.columns - 1)) / this.columns);
    this.sections = [];
    let top = 0;
    for (let from = 0; from < this.shown.length;) {
      const folder = this.library.folderOf[this.shown[from]];
      let to = from;
      while (to < this.shown.length && this.library.folderOf[this.shown[to]] === folder) ++to;
      const rows = Math.ceil((to - from) / this.columns);
      const height = HEADING + rows * this.rowHeight;
      this.sections.push({folder, from, to, top, height});
      top += height;
      from = to;
    }
    this.canvas.style.height = top + 'px';
  }

  get rowHeight() {
    return this.side + CAPTION + GAP;
  }

  clear() {
    this.canvas.replaceChildren();
    this.parts.clear();
    this.tiles.clear();
  }

  onResize() {
    if (this.canvas.clientWidth === this.width) return;
    const anchor = this.places(0, 1)[0];
    const hadFocus = this.canvas.contains(document.activeElement);
    this.arrange();
    if (anchor > 0 && this.scrolledBy() > 0) {
      window.scrollBy(0, this.placeOf(anchor).top - this.scrolledBy());
    }
    this.draw();
    if (hadFocus) this.tiles.get(this.current)?.firstChild.focus({preventScroll: true});
  }

  drawSoon() {
    this.frame ??= requestAnimationFrame(() => {
      this.frame = undefined;
      this.draw();
    });
  }

  // How far the top of the window is below the top of the grid.
  scrolledBy() {
    return -this.canvas.getBoundingClientRect().top;
  }

  // The indexes of the photos between two heights, measured from the top of the window.
  places(above, below) {
    const top = this.scrolledBy() - above;
    const bottom = this.scrolledBy() + below;
    const places = [];
    for (let i = this.sectionAt(top); i < this.sections.length; ++i) {
      const section = this.sections[i];
      if (section.top > bottom) break;
      const first = Math.floor((top - section.top - HEADING) / this.rowHeight);
      const last = Math.floor((bottom - section.top - HEADING) / this.rowHeight);
      const from = section.from + Math.max(0, first) * this.columns;
      const to = Math.min(section.to, section.from + (last + 1) * this.columns);
      for (let at = from; at < to; ++at) places.push(at);
    }
    return places;
  }

  // The first section that ends below a height.
  sectionAt(height) {
    return firstWhere(this.sections.length, (i) => {
      return this.sections[i].top + this.sections[i].height > height;
    });
  }

  sectionOf(at) {
    return firstWhere(this.sections.length, (i) => this.sections[i].to > at);
  }

  placeOf(at) {
    const section = this.sections[this.sectionOf(at)];
    const inside = at - section.from;
    const left = (inside % this.columns) * (this.side + GAP);
    const inner = Math.floor(inside / this.columns) * this.rowHeight;
    return {left, inner, top: section.top + HEADING + inner};
  }

  draw() {
    const places = this.places(OVERSCAN, window.innerHeight + OVERSCAN);
    // The tile that Tab reaches stays in the document, or the focus would be lost.
    if (this.current < this.shown.length && !places.includes(this.current)) {
      places.push(this.current);
      places.sort((a, b) => a - b);
    }
    const wanted = new Set(places);
    for (const [at, tile] of this.tiles) {
      if (wanted.has(at)) continue;
      tile.remove();
      this.tiles.delete(at);
    }
    this.drawParts(new Set(places.map((at) => this.sectionOf(at))));
    // Backwards, so that each tile finds its successor and the document keeps their order.
    let after = null;
    for (const at of places.reverse()) {
      const list = this.parts.get(this.sectionOf(at)).lastChild;
      if (!this.tiles.has(at)) {
        const tile = this.makeTile(at);
        list.insertBefore(tile, after?.parentNode === list ? after : null);
        this.tiles.set(at, tile);
      }
      after = this.tiles.get(at);
    }
  }

  drawParts(wanted) {
    for (const [i, part] of this.parts) {
      if (wanted.has(i)) continue;
      part.remove();
      this.parts.delete(i);
    }
    let after = null;
    for (const i of [...wanted].sort((a, b) => b - a)) {
      if (!this.parts.has(i)) {
        const part = this.makePart(this.sections[i]);
        this.canvas.insertBefore(part, after);
        this.parts.set(i, part);
      }
      after = this.parts.get(i);
    }
  }

  makePart(section) {
    const name = this.library.folders[section.folder].name;
    const part = element('section', {className: 'folder', 'aria-label': name},
      element('h2', {},
        element('bdi', {textContent: name, title: name}),
        element('small', {textContent: counted(section.to - section.from, 'photo')})),
      element('ul', {role: 'list'}));
    part.style.top = section.top + 'px';
    return part;
  }

  makeTile(at) {
    const photo = this.library.photo(this.shown[at]);
    const tile = element('li', {className: 'tile ' + photo.state, 'aria-posinset': at + 1,
      'aria-setsize': this.shown.length});
    tile.dataset.at = at;
    const mark = markOf(photo);
    const label = [photo.name, mark, photo.reason].filter(Boolean).join(', ');
    const button = element('button', {type: 'button', tabIndex: at === this.current ? 0 : -1,
      'aria-label': label, title: photo.reason ? photo.name + ': ' + photo.reason : photo.name},
      this.makeImage(photo),
      makeCaption(photo.name));
    if (mark) {
      tile.classList.add('marked');
      button.firstChild.append(element('span', {className: 'mark', textContent: mark}));
    }
    const place = this.placeOf(at);
    tile.style.width = this.side + 'px';
    tile.style.height = this.side + CAPTION + 'px';
    tile.style.transform = `translate(${place.left}px, ${place.inner}px)`;
    tile.append(button);
    return tile;
  }

  makeImage(photo) {
    const frame = element('span', {className: 'image'});
    const kind = this.bestKind(photo);
    const blank = (text) => frame.prepend(
      element('span', {className: 'reason sentence', textContent: text}));
    if (kind < 0) {
      blank(photo.reason || 'No thumbnails are wanted here');
      return frame;
    }
    const image = element('img', {alt: '', loading: 'lazy', decoding: 'async', draggable: false,
      width: this.side, height: this.side});
    image.addEventListener('error', () => {
      image.remove();
      blank(photo.reason || 'The thumbnail cannot be shown');
    });
    image.src = thumbUrl(photo, this.library, kind);
    frame.append(image);
    return frame;
  }

  // The smallest kind that fills a tile on this screen, or the largest present if none does.
  bestKind(photo) {
    const needed = this.side * Math.min(window.devicePixelRatio, 2) * 0.85;
    let best = -1;
    for (let kind = 0; kind < this.library.kinds.length; ++kind) {
      if (!thumbUrl(photo, this.library, kind)) continue;
      best = kind;
      if (this.library.kinds[kind].box >= needed) break;
    }
    return best;
  }

  onFocus(event) {
    const tile = event.target.closest('.tile');
    if (tile) this.makeCurrent(Number(tile.dataset.at));
  }

  makeCurrent(at) {
    const button = (place) => this.tiles.get(place)?.firstChild;
    if (button(this.current)) button(this.current).tabIndex = -1;
    this.current = at;
    if (button(at)) button(at).tabIndex = 0;
  }

  // Scrolls a photo into the window and focuses it.
  focus(at) {
    if (at < 0 || at >= this.shown.length) return;
    this.makeCurrent(at);
    const place = this.placeOf(at);
    const bar = stickyHeight();
    const above = place.top - HEADING - this.scrolledBy() - bar;
    const below = place.top + this.rowHeight - this.scrolledBy() - window.innerHeight;
    if (above < 0) window.scrollBy(0, above);
    else if (below > 0) window.scrollBy(0, below);
    this.draw();
    this.tiles.get(at).firstChild.focus({preventScroll: true});
  }

  onKey(event) {
    if (event.ctrlKey || event.altKey || event.metaKey || !this.shown.length) return;
    const last = this.shown.length - 1;
    const screen = Math.max(1, Math.floor(window.innerHeight / this.rowHeight) - 1);
    const target = {
      ArrowLeft: () => this.current - 1,
      ArrowRight: () => this.current + 1,
      ArrowUp: () => this.rowsAway(-1),
      ArrowDown: () => this.rowsAway(1),
      PageUp: () => this.rowsAway(-screen),
      PageDown: () => this.rowsAway(screen),
      Home: () => 0,
      End: () => last,
    }[event.key];
    if (!target) return;
    event.preventDefault();
    this.focus(Math.min(last, Math.max(0, target())));
  }

  // The photo this many rows away in the same column, also across folders.
  rowsAway(rows) {
    let at = this.current;
    for (let step = 0; step < Math.abs(rows); ++step) at = this.nextRow(at, Math.sign(rows));
    return at;
  }

  nextRow(at, direction) {
    const index = this.sectionOf(at);
    const section = this.sections[index];
    const column = (at - section.from) % this.columns;
    const row = Math.floor((at - section.from) / this.columns) + direction;
    const lastRow = (part) => Math.floor((part.to - part.from - 1) / this.columns);
    if (row >= 0 && row <= lastRow(section)) {
      return Math.min(section.to - 1, section.from + row * this.columns + column);
    }
    const next = this.sections[index + direction];
    if (!next) return at;
    const start = next.from + (direction > 0 ? 0 : lastRow(next) * this.columns);
    return Math.min(next.to - 1, start + column);
  }
}

// The first number below `count` that passes the test. All numbers after it must pass, too.
function firstWhere(count, test) {
  let low = 0;
  let high = count;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (test(middle)) high = middle;
    else low = middle + 1;
  }
  return low;
}

function makeCaption(name) {
  const characters = [...name];
  const split = characters.length > 16 ? characters.length - 9 : characters.length;
  return element('bdi', {className: 'caption'},
    element('span', {className: 'start', textContent: characters.slice(0, split).join('')}),
    element('span', {className: 'end', textContent: characters.slice(split).join('')}));
}

// The badge on a tile; empty when nothing is wrong.
function markOf(photo) {
  const number = (letters) => [...photo.set].filter((one) => letters.includes(one)).length;
  if (photo.state === 'failed') return 'Failed';
  if (photo.state === 'complete') return '';
  return number('mM') > 0 ? number('mM') + ' missing' : number('sS') + ' stale';
}

// The height of the window that the filters cover while they stick to its top.
function stickyHeight() {
  const filters = document.getElementById('filters');
  return getComputedStyle(filters).position === 'sticky' ? filters.offsetHeight : 0;
}
