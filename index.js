'use strict';
// Loads the native add-on and hands out its one class.
const path = require('node:path');

const addonPath = path.join(__dirname, 'build', 'Release', 'libvemora_bindings.node');

function load() {
  try {
    return require(addonPath);
  } catch (error) {
    const reason = error && error.message ? error.message : String(error);
    throw new Error(
      `libvemora: could not load its native add-on (${addonPath}): ${reason}\n` +
        'Build it with `npm install` (needs cmake and a C++17 compiler) and try again.',
      { cause: error },
    );
  }
}

const { VemoraCore } = load();

module.exports = { VemoraCore };
