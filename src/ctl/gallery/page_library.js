'use strict';

// The photos, as the program wrote them into the page. Photos are numbered across all folders, in
// the order of the grid.

const STATES = ['complete', 'unfinished', 'failed'];

// The states of a photo's thumbnails are a string with one letter per kind, from the smallest to
// the largest. A capital letter means that the thumbnail's name has the older spelling.
const WORDS = {p: 'present', m: 'missing', s: 'stale', f: 'failed', '-': 'unwanted'};

class Library {
  constructor(data) {
    this.made = new Date(data.made * 1000);
    this.isPartial = data.partial;
    this.roots = data.roots;
    this.kinds = data.kinds;
    this.folders = data.folders;
    this.sets = data.sets;
    this.reasons = data.reasons;
    this.stateOfSet = data.sets.map((set) => (/f/i.test(set) ? 2 : /[ms]/i.test(set) ? 1 : 0));
    let total = 0;
    for (const folder of this.folders) {
      folder.first = total;
      total += folder.names.length;
    }
    this.total = total;
    this.folderOf = new Int32Array(total);
    this.folders.forEach((folder, index) => {
      this.folderOf.fill(index, folder.first, folder.first + folder.names.length);
    });
  }

  stateOf(number) {
    const folder = this.folders[this.folderOf[number]];
    return this.stateOfSet[folder.sets[number - folder.first]];
  }

  photo(number) {
    const folder = this.folders[this.folderOf[number]];
    const at = number - folder.first;
    const name = folder.names[at];
    const reason = folder.why[at];
    return {
      number,
      folder,
      name,
      path: folder.urls[at] ?? name,
      set: this.sets[folder.sets[at]],
      state: STATES[this.stateOf(number)],
      reason: reason === undefined ? '' : this.reasons[reason],
      bytes: folder.bytes[at],
      changed: new Date(folder.changed[at] * 1000),
    };
  }

  // Returns a test for photos whose name contains the text. The names are folded only once.
  nameTest(text) {
    const wanted = fold(text.trim());
    if (!wanted) return () => true;
    this.folded ??= this.folders.map((folder) => folder.names.map(fold));
    return (folder, at) => this.folded[folder][at].includes(wanted);
  }

  // The number of photos in and below each folder, and in the folders above: a Map from name to
  // number, parents first.
  foldersWithCounts() {
    const counts = new Map();
    for (const folder of this.folders) {
      for (const name of pathsTo(folder.name)) {
        counts.set(name, (counts.get(name) ?? 0) + folder.names.length);
      }
    }
    return counts;
  }

  countsByState() {
    const counts = [0, 0, 0];
    for (let number = 0; number < this.total; ++number) ++counts[this.stateOf(number)];
    return counts;
  }
}

// Makes upper and lower case equal, and the two encodings of an accented letter.
function fold(text) {
  return text.normalize('NFC').toLowerCase();
}

// "a/b/c" gives "a", "a/b" and "a/b/c".
function pathsTo(name) {
  const paths = [];
  for (let at = name.indexOf('/'); at > 0; at = name.indexOf('/', at + 1)) {
    paths.push(name.slice(0, at));
  }
  paths.push(name);
  return paths;
}

function photoUrl(photo) {
  return photo.folder.url + photo.path;
}

// The address of a photo's thumbnail, by the kind's index in the list; empty when there is none to
// show.
function thumbUrl(photo, library, kind) {
  const letter = photo.set[kind];
  if (!'pPsS'.includes(letter)) return '';
  const names = library.kinds[kind];
  const file = letter === letter.toLowerCase() ? names.file : names.older;
  return photo.folder.url + '@eaDir/' + photo.path + '/' + file;
}

function thumbState(photo, kind) {
  return WORDS[photo.set[kind].toLowerCase()];
}

function counted(number, word) {
  return number.toLocaleString('en') + ' ' + word + (number === 1 ? '' : 's');
}

// An element with properties and children. Text is only ever set as text.
function element(tag, properties = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name in made) made[name] = value;
    else made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}
