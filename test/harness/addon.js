'use strict';
// Where the tests find the add-on: the package's build, unless a run points
// them at another (a sanitizer build, say).
const path = require('node:path');

const root = path.resolve(__dirname, '..', '..');
const addonPath = process.env.VEMORA_TEST_ADDON || path.join(root, 'build', 'Release', 'libvemora_bindings.node');
const fakeAddonPath = process.env.VEMORA_TEST_FAKE_ADDON || path.join(root, 'build', 'fake-platform', 'libvemora_bindings.node');
// Linux, with its GPUs from the test NVML (an H100 and an RTX 4090 unless
// VEMORA_FAKE_NVML_SCRIPT says otherwise, see test/fakes/nvml) and the fixture
// tree amdgpu-discrete-handmade.
const gpuFakeAddonPath = process.env.VEMORA_TEST_GPU_FAKE_ADDON || path.join(root, 'build', 'gpu-fake', 'libvemora_bindings.node');

// /proc/meminfo or /proc/<pid>/status as key -> bytes.
function procBytes(file) {
  const matches = require('node:fs').readFileSync(file, 'utf8').matchAll(/^([^:\n]+):\s+(\d+)( kB)?$/gm);
  return Object.fromEntries([...matches].map(([, key, n, kB]) => [key, Number(n) * (kB ? 1024 : 1)]));
}

// A script in a child node, so that a crash or an abort fails a test instead of ending the run.
const runChild = (script, args = [], options = {}) => require('node:child_process').spawnSync(process.execPath, [script, ...args], {
  encoding: 'utf8', timeout: 120000, maxBuffer: 256 * 2 ** 20, env: { ...process.env, VEMORA_TEST_ADDON: addonPath }, ...options,
});

module.exports = { root, addonPath, fakeAddonPath, gpuFakeAddonPath, procBytes, runChild, VemoraCore: () => require(addonPath).VemoraCore };
