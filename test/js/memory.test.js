'use strict';
// The memory figures against what Linux reports at the same moment.
const test = require('node:test');
const assert = require('node:assert/strict');
const path = require('node:path');
const { VemoraCore: load, procBytes, runChild } = require('../harness/addon');

const VemoraCore = load();
const linux = process.platform === 'linux';

test('physical RAM is MemTotal', { skip: !linux }, () => {
  assert.equal(VemoraCore.getMachinePhysicalRAM(), procBytes('/proc/meminfo').MemTotal);
});

test('available RAM is MemAvailable, read between two readings of the file', { skip: !linux }, () => {
  const before = procBytes('/proc/meminfo').MemAvailable;
  const ours = VemoraCore.getAvailableRAM();
  const after = procBytes('/proc/meminfo').MemAvailable;
  const slack = 64 * 2 ** 20; // other processes allocate meanwhile
  assert.ok(ours >= Math.min(before, after) - slack && ours <= Math.max(before, after) + slack,
    `${ours} not near ${before}..${after}`);
});

test('GPU figures are -1 with their diagnostics where there is no Metal', { skip: !linux }, () => {
  const child = runChild(path.join(__dirname, '..', 'harness', 'print-vram.js'));
  assert.equal(child.status, 0, child.stderr);
  assert.deepEqual(JSON.parse(child.stdout), { physicalVRAM: -1, availableVRAM: -1 });
  assert.equal(child.stderr,
    'Metal is not supported on this device\n'.repeat(2) +
    'sysctl vm.global_user_wire_limit: No such file or directory\n');
});
