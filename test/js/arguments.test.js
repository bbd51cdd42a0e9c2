'use strict';
// Every argument rule of the methods that take arguments, as one table.
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load, procBytes } = require('../harness/addon');

const VemoraCore = load();
const TWO = 'Two arguments expected for GetCpuUsage';
const BOTH = 'Both GetCpuUsage arguments must be numbers!';
const ONE = 'One argument expected for GetProcessUsedRAM';
const PID = 'GetProcessUsedRAM PID must be a non-negative number!';
const NOT_MEASURED = 'GetCpuUsage not yet implemented for Mac!';
const NUMBER_EXPECTED = 'A number was expected'; // Node-API's own text for napi_number_expected

// [method, args, expected]: a TypeError message, { error } for a plain Error,
// or a value (or predicate) the call must return.
const rows = [
  ['getCpuUsage', [], TWO],
  ['getCpuUsage', [1], TWO],
  ['getCpuUsage', ['1', 2], BOTH],
  ['getCpuUsage', [1, '2'], BOTH],
  ['getCpuUsage', [1, null], BOTH],
  ['getCpuUsage', [1n, 2], BOTH],
  ['getCpuUsage', [Symbol('x'), 2], BOTH],
  ['getCpuUsage', [0, 1000], { value: -1 }],
  ['getCpuUsage', [-5, 1000], { value: -1 }],
  ['getCpuUsage', [2 ** 32, 0], { value: -1 }], // 2^32 converts to PID 0
  ['getCpuUsage', [1, 2], { error: NOT_MEASURED }],
  ['getCpuUsage', [1, 2, 3], { error: NOT_MEASURED }],
  ['getCpuUsage', [process.pid, 0], { error: NOT_MEASURED }],
  ['getProcessUsedRAM', [], ONE],
  ['getProcessUsedRAM', [1, 2], ONE],
  ...[0, -1, 0.9, -0.5, NaN, Infinity, 2 ** 32, 2 ** 31, '42', 42n, null, {}].map(
    (pid) => ['getProcessUsedRAM', [pid], PID]),
  ['getProcessUsedRAM', [2 ** 32 + 1], { value: (v) => v === VemoraCore.getProcessUsedRAM(1) }],
  ['getProcessUsedRAM', [1.7], { value: (v) => typeof v === 'number' }],
  ['getProcessUsedRAM', [2 ** 31 - 1], { value: -1 }], // no such process
  ['willFailToAllocate', [], NUMBER_EXPECTED],
  ['willFailToAllocate', ['1024'], NUMBER_EXPECTED],
  ['willFailToAllocate', [1024n], NUMBER_EXPECTED],
  ['willFailToAllocate', [1024.9], { value: false }],
  ['willFailToAllocate', [NaN], { value: false }], // asks about 0 bytes
  ['willFailToAllocate', [0, 'ignored'], { value: false }],
  ['getAvailableVRAMByDevice', [1, 'x'], { value: (v) => v.result.code === 'Error' }],
];

test('argument table', () => {
  for (const [method, args, expected] of rows) {
    const label = `${method}(${args.map((a) => (typeof a === 'bigint' ? `${a}n` : String(a))).join(', ')})`;
    const call = () => VemoraCore[method](...args);
    if (typeof expected === 'string') {
      assert.throws(call, (e) => e instanceof TypeError && e.message === expected, label);
    } else if (expected.error) {
      assert.throws(call, (e) => e.constructor === Error && e.message === expected.error, label);
    } else if (typeof expected.value === 'function') {
      assert.ok(expected.value(call()), label);
    } else {
      assert.equal(call(), expected.value, label);
    }
  }
});

test('a negative size is larger than any machine, unless swap cannot be read', () => {
  const { SwapTotal } = procBytes('/proc/meminfo');
  assert.equal(typeof SwapTotal, 'number');
  assert.equal(VemoraCore.willFailToAllocate(-1), true);
  assert.equal(VemoraCore.willFailToAllocate(2 ** 62), true);
});

test('the per-device report: keys, order and content', () => {
  const report = VemoraCore.getAvailableVRAMByDevice();
  assert.deepEqual(Object.keys(report), ['result', 'deviceResults']);
  assert.deepEqual(Object.keys(report.result), ['code', 'message']);
  assert.deepEqual(report, { result: { code: 'Error', message: 'Not implemented' }, deviceResults: [] });
  assert.notEqual(VemoraCore.getAvailableVRAMByDevice(), report);
});

test('process RAM of this process agrees with /proc/self/status', { skip: process.platform !== 'linux' }, () => {
  const before = procBytes('/proc/self/status');
  const ours = VemoraCore.getProcessUsedRAM(process.pid);
  const after = procBytes('/proc/self/status');
  const expected = (s) => Math.max(s.VmRSS, s.RssAnon + (s.VmSwap || 0));
  const slack = 8 * 2 ** 20;
  assert.ok(ours >= Math.min(expected(before), expected(after)) - slack &&
    ours <= Math.max(expected(before), expected(after)) + slack, `${ours}`);
});
