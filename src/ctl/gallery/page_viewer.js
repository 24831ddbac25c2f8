// The viewer: one photo in all its sizes.

class Viewer {
  constructor(library, onClose) {
    this.library = library;
    this.dialog = document.getElementById('viewer');
    this.sizes = document.getElementById('sizes');
    document.getElementById('previous').addEventListener('click', () => this.go(this.at - 1));
    document.getElementById('next').addEventListener('click', () => this.go(this.at + 1));
    document.getElementById('close').addEventListener('click', () => this.dialog.close());
    this.dialog.addEventListener('keydown', (event) => this.onKey(event));
    this.dialog.addEventListener('close', () => {
      // The event comes a moment later; by then somebody may have opened the next photo.
      if (this.dialog.open) return;
      this.sizes.replaceChildren();
      onClose(this.at);
    });
    // A click outside the content hits the dialog itself: its backdrop.
    this.dialog.addEventListener('click', (event) => {
      if (event.target === this.dialog) this.dialog.close();
    });
  }

  open(numbers, at) {
    this.numbers = numbers;
    this.dialog.showModal();
    this.go(at);
    document.getElementById('viewer-name').focus();
  }

  go(at) {
    if (at < 0 || at >= this.numbers.length) return;
    this.at = at;
    const photo = this.library.photo(this.numbers[at]);
    const name = document.getElementById('viewer-name');
    name.replaceChildren(element('bdi', {textContent: photo.name}));
    document.getElementById('viewer-facts').textContent = this.factsOf(photo);
    document.getElementById('original').href = photoUrl(photo);
    this.enable('previous', at > 0);
    this.enable('next', at + 1 < this.numbers.length);
    this.showReason(photo);
    this.sizes.replaceChildren(...this.library.kinds.map((_, kind) => this.makeSize(photo, kind)));
    this.dialog.scrollTop = 0;
  }

  // Disabling a focused button would move the focus out of the dialog.
  enable(id, isEnabled) {
    const button = document.getElementById(id);
    if (!isEnabled && button === document.activeElement) {
      document.getElementById('viewer-name').focus();
    }
    button.disabled = !isEnabled;
  }

  factsOf(photo) {
    const order = (this.at + 1).toLocaleString('en') + ' of ' +
      this.numbers.length.toLocaleString('en');
    const date = photo.changed.toLocaleString(undefined, {dateStyle: 'medium', timeStyle: 'short'});
    return [order, photo.folder.name, bytesText(photo.bytes), date].join(' · ');
  }

  showReason(photo) {
    const reason = document.getElementById('viewer-reason');
    reason.hidden = !photo.reason;
    reason.className = photo.state;
    reason.replaceChildren(
      element('b', {textContent: photo.state === 'failed' ? 'Failed: ' : 'Not finished: '}),
      photo.reason);
  }

  makeSize(photo, kind) {
    const {name, box} = this.library.kinds[kind];
    const state = thumbState(photo, kind);
    const frame = element('div', {className: 'frame ' + state});
    const pixels = element('span', {className: 'pixels'});
    const url = thumbUrl(photo, this.library, kind);
    if (url) this.fillFrame(frame, pixels, url, {photo, name, box});
    else frame.append(element('span', {textContent: blankText(state)}));
    return element('figure', {className: 'size', role: 'listitem'}, frame,
      element('figcaption', {},
        element('b', {textContent: name}),
        element('span', {textContent: `box ${box} × ${box}`}),
        element('span', {className: 'state sentence ' + state, textContent: stateText(state)}),
        pixels));
  }

  fillFrame(frame, pixels, url, {photo, name, box}) {
    const image = element('img', {alt: `${photo.name}, thumbnail ${name}`, decoding: 'async',
      width: box, height: box});
    image.addEventListener('load', () => {
      pixels.textContent = `${image.naturalWidth} × ${image.naturalHeight}`;
    });
    image.addEventListener('error', () => {
      frame.replaceChildren(element('span', {textContent: 'The file cannot be shown'}));
    });
    image.src = url;
    frame.append(element('a', {href: url, target: '_blank', rel: 'noopener'}, image));
  }

  onKey(event) {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const target = {
      ArrowLeft: this.at - 1,
      ArrowRight: this.at + 1,
      Home: 0,
      End: this.numbers.length - 1,
    }[event.key];
    if (target === undefined) return;
    event.preventDefault();
    this.go(target);
  }
}

function stateText(state) {
  return {stale: 'older than the photo', unwanted: 'not wanted'}[state] ?? state;
}

function blankText(state) {
  return {
    missing: 'Not made yet',
    failed: 'Could not be made',
    unwanted: 'Not wanted in this folder',
  }[state];
}

function bytesText(bytes) {
  const units = ['bytes', 'KB', 'MB', 'GB'];
  let unit = 0;
  while (bytes >= 1000 && unit + 1 < units.length) {
    bytes /= 1000;
    ++unit;
  }
  return (unit && bytes < 10 ? bytes.toFixed(1) : Math.round(bytes)) + ' ' + units[unit];
}
