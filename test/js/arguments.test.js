'use strict';
// What the methods that take arguments answer where the rules of ../harness/methods.js leave the value open. Which
// argument lists each refuses, and with which error, the fuzzer checks against those rules (fuzz.test.js).
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load } = require('../harness/addon');

const VemoraCore = load();

// [method, argument lists, the value returned (or a predicate on it)]
const rows = [
  ['getProcessUsedRAM', [[2 ** 31 - 1]], -1], // no such process
  ['willFailToAllocate', [[NaN]], false], // NaN asks about 0 bytes
  ['willFailToAllocate', [[-1], [2 ** 62]], true], // a negative size is larger than any machine
];
// The PID as a 32-bit integer, measured at once. macOS measures no process's CPU.
if (process.platform !== 'darwin') rows.push(['getCpuUsage', [[2 ** 32 + process.pid, -1]], (v) => v >= 0]);

test('answers the argument rules leave open', () => {
  for (const [method, argLists, expected] of rows) {
    for (const args of argLists) {
      const value = VemoraCore[method](...args);
      if (typeof expected === 'function') assert.ok(expected(value), `${method}(${args}): ${value}`);
      else assert.equal(value, expected, `${method}(${args})`);
    }
  }
});
