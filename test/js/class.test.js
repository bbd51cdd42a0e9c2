'use strict';
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load, root } = require('../harness/addon');

const VemoraCore = load();
const STATICS = [
  'getCpuUsage', 'CPU_USAGE_ERROR_CODE', 'RAM_METER_ERROR_CODE', 'getMachinePhysicalRAM',
  'getAvailableRAM', 'getMachinePhysicalVRAM', 'getAvailableVRAM', 'getAvailableVRAMByDevice',
  'getProcessUsedRAM', 'willFailToAllocate', 'surveyHardware', 'getDeviceType',
];
const present = STATICS.filter((name) => Object.hasOwn(VemoraCore, name));

test('the package root gives exactly { VemoraCore }', () => {
  const pkg = require(root);
  assert.deepEqual(Object.keys(pkg), ['VemoraCore']);
  assert.equal(pkg.VemoraCore.name, 'VemoraCore');
});

test('statics are read-only, hidden, fixed and in table order', () => {
  assert.deepEqual(Object.keys(VemoraCore), []);
  const own = Object.getOwnPropertyNames(VemoraCore).filter((n) => STATICS.includes(n));
  assert.deepEqual(own, present);
  assert.ok(present.length >= 10, `found only ${present}`);
  for (const name of present) {
    const d = Object.getOwnPropertyDescriptor(VemoraCore, name);
    assert.deepEqual([d.writable, d.enumerable, d.configurable], [false, false, false], name);
    if (typeof d.value === 'function') assert.equal(d.value.name, 'VemoraCore', name);
  }
});

test('the error constants are -1 and cannot change', () => {
  for (const name of ['CPU_USAGE_ERROR_CODE', 'RAM_METER_ERROR_CODE']) {
    assert.equal(VemoraCore[name], -1);
    assert.throws(() => { VemoraCore[name] = 5; }, TypeError);
    assert.throws(() => { delete VemoraCore[name]; }, TypeError);
    assert.equal(VemoraCore[name], -1);
  }
});

test('constructor: new works with any arguments, a plain call throws', () => {
  for (const args of [[], [1, 'x']]) {
    const instance = new VemoraCore(...args);
    assert.deepEqual(Reflect.ownKeys(instance), []);
    assert.equal(instance.getAvailableRAM, undefined);
  }
  assert.throws(() => VemoraCore(), {
    name: 'TypeError',
    message: "Class constructors cannot be invoked without 'new'",
  });
});

test('static methods ignore this and extra arguments', () => {
  const { getAvailableRAM, getMachinePhysicalRAM } = VemoraCore;
  assert.equal(typeof getAvailableRAM(), 'number');
  assert.equal(getMachinePhysicalRAM('anything'), VemoraCore.getMachinePhysicalRAM());
});
