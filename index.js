'use strict';
// Loads the native add-on and hands out its one class. node-gyp-build picks a
// local build (build/Release) when there is one, else the prebuilt binary for
// this platform and architecture under prebuilds/.
const loadBinding = require('node-gyp-build');

function load() {
  try {
    return loadBinding(__dirname);
  } catch (error) {
    const reason = error && error.message ? error.message.trim() : String(error);
    throw new Error(
      `libvemora: could not load its native add-on: ${reason}\n` +
        'Build it from source with `npm rebuild libvemora` (in this repository: `npm install`); ' +
        'that needs CMake 3.20+ and a C++17 compiler.',
      { cause: error },
    );
  }
}

const { VemoraCore } = load();

module.exports = { VemoraCore };
