import assert from 'node:assert/strict';
import { test } from 'node:test';
import { deviceFrom, frameFrom } from '../console/src/records.js';

// What a device sends reaches the console as is: a frame it cannot place is not drawn at all.
test('the console reads whole frames and changed regions only when every region fits its picture', () => {
  const image = new Uint8Array([0xff, 0xd8, 1]);
  const region = (fields = {}) => ({ x: 32, y: 0, width: 32, height: 32, image, ...fields });
  const regions = (fields = {}, list = [region()]) => ({ type: 'Frame', id: 7, base: 6, width: 64, height: 40, regions: list, ...fields });
  const cases = [
    ['a whole frame', { id: 3, image, mime_type: 'image/jpeg' }, { whole: true, id: 3, bytes: 3 }],
    ['a whole frame without an id', { image }, { whole: true, id: undefined }],
    ['no picture', { id: 3 }, undefined],
    ['an empty picture', { image: new Uint8Array(0) }, undefined],
    ['regions', regions(), { whole: false, id: 7, base: 6, width: 64, height: 40, bytes: 3 }],
    ['a region past the right edge', regions({}, [region({ x: 33 })]), undefined],
    ['a region past the bottom', regions({}, [region({ height: 41 })]), undefined],
    ['a negative place', regions({}, [region({ y: -1 })]), undefined],
    ['a fractional size', regions({}, [region({ width: 31.5 })]), undefined],
    ['a region without a picture', regions({}, [region({ image: 'text' })]), undefined],
    ['no regions', regions({}, []), undefined],
    ['too many regions', regions({}, Array.from({ length: 257 }, () => region())), undefined],
    ['no base', regions({ base: undefined }), undefined],
    ['no id', regions({ id: 'x' }), undefined],
    ['a huge picture', regions({ width: 1e6 }), undefined],
  ];
  for (const [name, record, expected] of cases) {
    const read = frameFrom(record);
    if (expected === undefined) assert.equal(read, undefined, name);
    else for (const [key, value] of Object.entries(expected)) assert.equal(read?.[key], value, `${name}: ${key}`);
  }
});

// A desktop is shown by its system's name and version and its model, as the device describes them;
// older devices that name only their platform still read as before.
test('the console names a device\'s system by its name where the device gives one', () => {
  const device = (about) => deviceFrom({ id: 'd1', device: about });
  const cases = [
    ['a Linux desktop', { platform: 'linux', os_name: 'Debian GNU/Linux', os_version: '12', device: 'ThinkPad X1' },
      { system: 'Debian GNU/Linux 12', model: 'ThinkPad X1' }],
    ['a platform only', { platform: 'ios', os_version: '17.1' }, { system: 'ios 17.1' }],
    ['a name that is not text', { platform: 'linux', os_name: { a: 1 }, os_version: '12' }, { system: 'linux 12' }],
    ['nothing', {}, { system: undefined, model: undefined }],
  ];
  for (const [name, about, expected] of cases) {
    for (const [key, value] of Object.entries(expected)) assert.equal(device(about)?.[key], value, `${name}: ${key}`);
  }
});
