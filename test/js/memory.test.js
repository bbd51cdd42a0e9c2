'use strict';
// The memory figures against what Linux reports at the same moment.
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load, procBytes } = require('../harness/addon');

const VemoraCore = load();
const skip = process.platform !== 'linux';

function near(read, measure, slack) {
  const [before, ours, after] = [read(), measure(), read()];
  assert.ok(ours >= Math.min(before, after) - slack && ours <= Math.max(before, after) + slack,
    `${ours} not near ${before}..${after}`);
}

test('physical RAM is MemTotal, available RAM MemAvailable, process RAM as its status says', { skip }, () => {
  assert.equal(VemoraCore.getMachinePhysicalRAM(), procBytes('/proc/meminfo').MemTotal);
  near(() => procBytes('/proc/meminfo').MemAvailable, () => VemoraCore.getAvailableRAM(), 64 * 2 ** 20);
  const status = () => procBytes('/proc/self/status');
  near(() => Math.max(status().VmRSS, status().RssAnon + (status().VmSwap || 0)),
    () => VemoraCore.getProcessUsedRAM(process.pid), 8 * 2 ** 20);
});

