// Makes the six thumbnails with sharp in one node process, one photo after the other.
//
//   node sharp_six.js ARRANGEMENT JOBS
//
// JOBS is a JSON file: {"kinds": [{"name", "side", "fill", "sharpen", "quality"}...],
// "photos": [{"photo", "prefix"}...]}. Writes PREFIX_XL.jpg and so on. The first kind is the
// largest. The sharpening is sharp's own fast one, which is milder than the profile's.
'use strict';
const fs = require('node:fs');
const sharp = require(process.env.KELDO_BENCH_SHARP);

const [arrangement, jobs] = process.argv.slice(2);
const { kinds, photos } = JSON.parse(fs.readFileSync(jobs));
const [first, ...others] = kinds;
const standardTables = arrangement.endsWith(', standard tables');

sharp.cache(false);
sharp.concurrency(1);

const resized = (image, kind) =>
  image.resize(kind.side, kind.side, {
    fit: kind.fill ? 'outside' : 'inside',
    withoutEnlargement: true,
  });

const write = (image, kind, prefix) =>
  (kind.sharpen ? image.sharpen() : image)
    .jpeg({ quality: kind.quality, chromaSubsampling: '4:4:4', optimiseCoding: !standardTables })
    .toFile(`${prefix}_${kind.name}.jpg`);

const inMemory = ({ data, info }) => sharp(data, { raw: info });
const toMemory = (image) => image.raw().toBuffer({ resolveWithObject: true });

// Each one is awaited, because running several at once costs more CPU time.
const arrangements = {
  // One decode; the largest stays in memory as plain pixels.
  async memory(photo, prefix) {
    const base = await toMemory(resized(sharp(photo).rotate(), first));
    await write(inMemory(base), first, prefix);
    for (const kind of others) await write(resized(inMemory(base), kind), kind, prefix);
  },
  // The same, but each is made from the smallest before it that is large enough: one that fills its
  // box, before it is sharpened.
  async cascade(photo, prefix) {
    let base = await toMemory(resized(sharp(photo).rotate(), first));
    await write(inMemory(base), first, prefix);
    for (const kind of others) {
      const made = await toMemory(resized(inMemory(base), kind));
      await write(inMemory(made), kind, prefix);
      if (kind.fill) base = made;
    }
  },
  // The largest is written, and the others are decoded from its file.
  async file(photo, prefix) {
    await write(resized(sharp(photo).rotate(), first), first, prefix);
    for (const kind of others) {
      await write(resized(sharp(`${prefix}_${first.name}.jpg`), kind), kind, prefix);
    }
  },
  // Each from the photo, which the decoder reduces as far as it may.
  async photo(photo, prefix) {
    for (const kind of kinds) await write(resized(sharp(photo).rotate(), kind), kind, prefix);
  },
};

(async () => {
  const make = arrangements[arrangement.split(',')[0]];
  for (const { photo, prefix } of photos) await make(photo, prefix);
})();
