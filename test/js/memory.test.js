'use strict';
// The memory figures against what Linux reports at the same moment.
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load, procBytes, runChild } = require('../harness/addon');

const VemoraCore = load();
const skip = process.platform !== 'linux';

// The figure lies within `slack` of what /proc said just before and just after.
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

test('GPU sums: -1 with one line each where there is no GPU, else the per-device figures summed', { skip }, () => {
  const child = runChild('-e', ['const { VemoraCore: V } = require(process.env.VEMORA_TEST_ADDON);' +
    'process.stdout.write(JSON.stringify([V.getMachinePhysicalVRAM(), V.getAvailableVRAMByDevice(), V.getAvailableVRAM()]))']);
  const [total, { result, deviceResults }, free] = JSON.parse(child.stdout);
  if (result.code === 'NoDevicesFound') {
    assert.deepEqual([child.status, total, free, child.stderr], [0, -1, -1, `GPU memory: ${result.message}\n`.repeat(2)]);
    return;
  }
  // Free memory moves between the calls; the totals do not.
  assert.equal(total, deviceResults.reduce((sum, d) => sum + d.totalVramBytes, 0));
  assert.ok(free >= 0 && free <= total, `${free} of ${total}`);
});
