'use strict';
// Every argument rule of the methods that take arguments, as one table.
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load } = require('../harness/addon');
const { MESSAGES: { TWO, BOTH, NOT_MEASURED, ONE, PID, NUMBER } } = require('../harness/methods');

const VemoraCore = load();
const sameAsPid1 = (v) => v === VemoraCore.getProcessUsedRAM(1);
// macOS measures no process's CPU.
const measured = (expected) => (process.platform === 'darwin' ? { error: NOT_MEASURED } : expected);

// [method, argument lists, expected]: a TypeError's message, { error } for a
// plain Error's, or the value returned (or a predicate on it).
const rows = [
  ['getCpuUsage', [[], [1]], TWO],
  ['getCpuUsage', [['1', 2], [1, '2'], [1, null], [1n, 2], [Symbol('x'), 2]], BOTH],
  ['getCpuUsage', [[0, 1000], [-5, 1000], [2 ** 32, 0]], -1], // 2^32 converts to PID 0
  ['getCpuUsage', [[2 ** 31 - 1, 1000], [2 ** 31 - 1, 0]], measured(-1)], // no such process, and no waiting for it
  ['getCpuUsage', [[process.pid, 2], [process.pid, 2, 3], [process.pid, 0], [2 ** 32 + process.pid, -1]], measured((v) => v >= 0)],
  ['getProcessUsedRAM', [[], [1, 2]], ONE],
  ['getProcessUsedRAM', [0, -1, 0.9, -0.5, NaN, Infinity, 2 ** 32, 2 ** 31, '42', 42n, null, {}].map((p) => [p]), PID],
  ['getProcessUsedRAM', [[1.7], [2 ** 32 + 1]], sameAsPid1],
  ['getProcessUsedRAM', [[2 ** 31 - 1]], -1], // no such process
  ['willFailToAllocate', [[], ['1024'], [1024n]], NUMBER],
  ['willFailToAllocate', [[1024.9], [NaN], [0, 'ignored']], false], // NaN asks about 0 bytes
  ['willFailToAllocate', [[-1], [2 ** 62]], true], // a negative size is larger than any machine
  ['getAvailableVRAMByDevice', [[1, 'x']], (v) => v !== VemoraCore.getAvailableVRAMByDevice() && Object.keys(v.result).join() === 'code,message'],
];

test('argument table', () => {
  for (const [method, argLists, expected] of rows) {
    for (const args of argLists) {
      const label = `${method}(${args.map((a) => (typeof a === 'bigint' ? `${a}n` : String(a))).join(', ')})`;
      const call = () => VemoraCore[method](...args);
      if (typeof expected === 'string') assert.throws(call, (e) => e instanceof TypeError && e.message === expected, label);
      else if (expected.error) assert.throws(call, (e) => e.constructor === Error && e.message === expected.error, label);
      else if (typeof expected === 'function') assert.ok(expected(call()), label);
      else assert.equal(call(), expected, label);
    }
  }
});
