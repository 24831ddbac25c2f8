// The page: its filters, its colour scheme, and what a click does.

class Page {
  constructor(library) {
    this.library = library;
    this.search = document.getElementById('search');
    this.folder = document.getElementById('folder');
    this.viewer = new Viewer(library, (at) => this.grid.focus(at));
    this.grid = new Grid(library, document.getElementById('canvas'),
      (at) => this.viewer.open(this.grid.shown, at));
    this.fillSummary();
    this.fillFolders();
    this.fillStates();
    document.getElementById('filters').addEventListener('input', () => this.filter());
    document.getElementById('filters').addEventListener('submit', (event) => {
      event.preventDefault();
      this.grid.focus(0);
    });
    document.getElementById('show-all').addEventListener('click', () => this.showAll());
    this.filter();
  }

  fillSummary() {
    const {library} = this;
    const made = library.made.toLocaleString(undefined, {dateStyle: 'medium', timeStyle: 'short'});
    document.getElementById('summary').textContent = counted(library.total, 'photo') + ' in ' +
      counted(library.folders.length, 'folder') + ' · as of ' + made;
    const notice = document.getElementById('notice');
    notice.textContent = 'Some folders could not be read; their photos are not shown.';
    notice.hidden = !library.isPartial;
  }

  fillFolders() {
    const options = [new Option(`All folders (${this.library.total.toLocaleString('en')})`, '')];
    for (const [name, count] of this.library.foldersWithCounts()) {
      options.push(new Option(`${name} (${count.toLocaleString('en')})`, name));
    }
    this.folder.replaceChildren(...options);
  }

  fillStates() {
    const counts = this.library.countsByState();
    const shown = [this.library.total, ...counts];
    document.querySelectorAll('#states b').forEach((number, index) => {
      number.textContent = shown[index].toLocaleString('en');
    });
  }

  filter() {
    const state = STATES.indexOf(document.querySelector('#states input:checked').value);
    const within = this.folder.value;
    const matches = this.library.nameTest(this.search.value);
    const shown = [];
    this.library.folders.forEach((folder, index) => {
      if (within && folder.name !== within && !folder.name.startsWith(within + '/')) return;
      for (let at = 0; at < folder.names.length; ++at) {
        const number = folder.first + at;
        if (state >= 0 && this.library.stateOf(number) !== state) continue;
        if (matches(index, at)) shown.push(number);
      }
    });
    this.grid.show(shown);
    this.showCount(shown.length);
  }

  showCount(count) {
    const {total, roots} = this.library;
    const all = counted(total, 'photo');
    document.getElementById('count').textContent =
      count === total ? `Showing all ${all}` : `Showing ${count.toLocaleString('en')} of ${all}`;
    document.getElementById('nothing').hidden = count > 0;
    document.getElementById('filters').hidden = total === 0;
    document.getElementById('show-all').hidden = total === 0;
    document.getElementById('nothing-text').textContent = total > 0 ?
      'No photo matches. Try another name, folder or state.' :
      'There are no photos here yet. Copy some in, make their thumbnails and write this page ' +
      'again.\n\nLooked in: ' + roots.join(', ');
  }

  showAll() {
    this.search.value = '';
    this.folder.value = '';
    document.querySelector('#states input').checked = true;
    this.filter();
    this.search.focus();
  }
}

// The colour scheme follows the system until somebody presses the button. The page remembers the
// choice if the browser lets it.
class Scheme {
  constructor() {
    this.button = document.getElementById('theme');
    this.system = matchMedia('(prefers-color-scheme: dark)');
    this.chosen = this.remembered();
    this.system.addEventListener('change', () => this.apply());
    this.button.addEventListener('click', () => {
      this.chosen = this.isDark() ? 'light' : 'dark';
      this.remember();
      this.apply();
    });
    this.apply();
  }

  isDark() {
    return this.chosen ? this.chosen === 'dark' : this.system.matches;
  }

  apply() {
    if (this.chosen) document.documentElement.dataset.theme = this.chosen;
    this.button.textContent = this.isDark() ? 'Light' : 'Dark';
    this.button.setAttribute('aria-label', this.isDark() ? 'Light colours' : 'Dark colours');
  }

  // Storage can be forbidden; some browsers forbid it for pages opened from files.
  remembered() {
    try {
      const scheme = localStorage.getItem('gallery-scheme');
      return ['light', 'dark'].includes(scheme) ? scheme : '';
    } catch {
      return '';
    }
  }

  remember() {
    try {
      localStorage.setItem('gallery-scheme', this.chosen);
    } catch {
      // The choice then lasts until the page is closed.
    }
  }
}

new Scheme();
new Page(new Library(JSON.parse(document.getElementById('data').textContent)));
