'use strict';
// Every argument rule of the methods that take arguments, as one table.
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load } = require('../harness/addon');
const { MESSAGES: { TWO, BOTH, NOT_MEASURED, ONE, PID, NUMBER } } = require('../harness/methods');

const VemoraCore = load();
const refused = (message, name = 'TypeError') => ({ name, message });
// macOS measures no process's CPU.
const measured = (expected) => (process.platform === 'darwin' ? refused(NOT_MEASURED, 'Error') : expected);

// [method, argument lists, expected]: what is thrown, or the value returned (or a predicate on it).
const rows = [
  ['getCpuUsage', [[], [1]], refused(TWO)],
  ['getCpuUsage', [['1', 2], [1, '2'], [1, null], [1n, 2], [Symbol('x'), 2]], refused(BOTH)],
  ['getCpuUsage', [[0, 1000], [-5, 1000]], -1],
  ['getCpuUsage', [[2 ** 31 - 1, 1000], [2 ** 31 - 1, 0]], measured(-1)], // no such process, and no waiting for it
  ['getCpuUsage', [[process.pid, 2], [process.pid, 2, 3], [process.pid, 0], [2 ** 32 + process.pid, -1]], measured((v) => v >= 0)],
  ['getProcessUsedRAM', [[], [1, 2]], refused(ONE)],
  ['getProcessUsedRAM', [0, -1, 0.9, -0.5, NaN, Infinity, 2 ** 32, 2 ** 31, '42', 42n, null, {}].map((p) => [p]), refused(PID)],
  ['getProcessUsedRAM', [[2 ** 31 - 1]], -1], // no such process
  ['willFailToAllocate', [[], ['1024'], [1024n]], refused(NUMBER)],
  ['willFailToAllocate', [[1024.9], [NaN], [0, 'ignored']], false], // NaN asks about 0 bytes
  ['willFailToAllocate', [[-1], [2 ** 62]], true], // a negative size is larger than any machine
  ['getAvailableVRAMByDevice', [[1, 'x']], (v) => v !== VemoraCore.getAvailableVRAMByDevice() && Object.keys(v.result).join() === 'code,message'],
];

test('argument table', () => {
  for (const [method, argLists, expected] of rows) {
    for (const args of argLists) {
      const label = `${method}(${args.map((a) => (typeof a === 'bigint' ? `${a}n` : String(a))).join(', ')})`;
      const call = () => VemoraCore[method](...args);
      if (expected.message) assert.throws(call, expected, label);
      else if (typeof expected === 'function') assert.ok(expected(call()), label);
      else assert.equal(call(), expected, label);
    }
  }
});
