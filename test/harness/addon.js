'use strict';
// Where the tests find the add-on: the package's build, unless a test run
// points them at another build (a sanitizer build, say).
const path = require('node:path');

const root = path.resolve(__dirname, '..', '..');

exports.root = root;
exports.addonPath =
  process.env.VEMORA_TEST_ADDON || path.join(root, 'build', 'Release', 'libvemora_bindings.node');
exports.fakeAddonPath =
  process.env.VEMORA_TEST_FAKE_ADDON || path.join(root, 'build', 'fake-platform', 'libvemora_bindings.node');
exports.VemoraCore = () => require(exports.addonPath).VemoraCore;

// /proc/meminfo (or /proc/<pid>/status) as a map of key -> bytes.
exports.procBytes = (file) => {
  const out = {};
  for (const line of require('node:fs').readFileSync(file, 'utf8').split('\n')) {
    const m = /^([^:]+):\s+(\d+)(?: kB)?$/.exec(line);
    if (m) out[m[1]] = Number(m[2]) * (line.endsWith('kB') ? 1024 : 1);
  }
  return out;
};

// Runs a script in a child node with the add-on path, returning its status and
// output, so that a crash or an abort is a failure rather than the end of the run.
exports.runChild = (script, args = [], options = {}) =>
  require('node:child_process').spawnSync(process.execPath, [script, ...args], {
    encoding: 'utf8',
    timeout: 120000,
    maxBuffer: 256 * 2 ** 20, // the diagnostics of many failed GPU queries
    env: { ...process.env, VEMORA_TEST_ADDON: exports.addonPath },
    ...options,
  });
