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

test('GPU sums and the per-device report: as the survey finds GPUs; -1 with one line each without any', { skip }, () => {
  const child = runChild('-e', ['const { VemoraCore: V } = require(process.env.VEMORA_TEST_ADDON); process.stdout.write(JSON.stringify(' +
    '[V.getMachinePhysicalVRAM(), V.getAvailableVRAMByDevice(), V.getAvailableVRAM(), V.surveyHardware().gpuSurveyResult]))']);
  const [total, { result, deviceResults }, free, survey] = JSON.parse(child.stdout);
  assert.deepEqual(deviceResults.map((d) => [d.name, d.deviceId]), survey.gpuInfo.map((g) => [g.name, g.deviceId]));
  if (survey.result.code === 'NoDevicesFound') {
    assert.deepEqual([result, total, free, child.stderr], [survey.result, -1, -1, `GPU memory: ${result.message}\n`.repeat(2)]);
    return;
  }
  // Free memory moves between the calls; the totals do not. A GPU whose total is unread makes the sum -1.
  const totals = deviceResults.map((d) => d.totalVramBytes);
  assert.equal(total, totals.every(Number.isFinite) ? totals.reduce((a, b) => a + b, 0) : -1);
  assert.ok(free === -1 || (free >= 0 && free <= total), `${free} of ${total}`);
});
