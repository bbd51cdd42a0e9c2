'use strict';
// Loads the native add-on and hands out its one class: a build from source in
// build/Release when there is one, else the prebuilt binary in the optional
// package @libvemora/<platform>-<arch> that npm installed for this machine.
const fs = require('node:fs');
const path = require('node:path');

const target = `${process.platform}-${process.arch}`;
const prebuilt = `@libvemora/${target}`;
const local = path.join(__dirname, 'build', 'Release', 'libvemora_bindings.node');
const fromSource =
  'To build it from source (CMake 3.20+ and a C++17 compiler), run in your project:\n' +
  '  npm install --no-save cmake-js@8.0.0 node-addon-api@8.9.2\n' +
  '  npx cmake-js compile -d node_modules/libvemora';

// process.report names the glibc a process runs on; musl has none to name.
function isMusl() {
  try {
    return process.platform === 'linux' && !process.report.getReport().header.glibcVersionRuntime;
  } catch {
    return false;
  }
}

function load() {
  const file = fs.existsSync(local) ? local : prebuilt;
  try {
    return require(file);
  } catch (error) {
    const missing = file === prebuilt && error.code === 'MODULE_NOT_FOUND' && error.message.includes(prebuilt);
    const reason = missing
      ? `no prebuilt add-on for ${target}${isMusl() ? ' with musl' : ''}: ${prebuilt} is not installed ` +
        '(npm installs it with libvemora where one exists, unless optional dependencies are left out)'
      : `could not load ${file}: ${String(error && error.message).trim()}`;
    throw new Error(`libvemora: ${reason}\n${fromSource}`, { cause: error });
  }
}

const { VemoraCore } = load();

module.exports = { VemoraCore };
