'use strict';
// The class's static properties, and what the package's "exports" let a consumer reach by the package's name.
const test = require('node:test');
const assert = require('node:assert/strict');
const { VemoraCore: load, root } = require('../harness/addon');

const VemoraCore = load();
const STATICS = [
  'getCpuUsage', 'CPU_USAGE_ERROR_CODE', 'RAM_METER_ERROR_CODE', 'getMachinePhysicalRAM',
  'getAvailableRAM', 'getMachinePhysicalVRAM', 'getAvailableVRAM', 'getAvailableVRAMByDevice',
  'getProcessUsedRAM', 'willFailToAllocate', 'surveyHardware', 'getDeviceType',
];

test('twelve read-only, non-enumerable statics in order; the constants are -1', () => {
  const own = Object.getOwnPropertyNames(VemoraCore);
  assert.deepEqual(own.filter((n) => !['length', 'name', 'arguments', 'caller', 'prototype'].includes(n)), STATICS);
  for (const name of STATICS) {
    const { writable, enumerable, configurable, value } = Object.getOwnPropertyDescriptor(VemoraCore, name);
    assert.deepEqual([writable, enumerable, configurable, typeof value === 'function' ? value.name : value],
      [false, false, false, name.endsWith('_CODE') ? -1 : 'VemoraCore'], name);
  }
});

test('require and import of the name give one class; only it and package.json are exported', async () => {
  const required = require('libvemora');
  const imported = await import('libvemora');
  assert.deepEqual([Object.keys(required), Object.keys(imported)], [['VemoraCore'], ['VemoraCore']]);
  assert.equal(required, require(root));
  assert.equal(imported.VemoraCore, required.VemoraCore);
  assert.deepEqual((await import('libvemora/package.json', { with: { type: 'json' } })).default, require('libvemora/package.json'));
  assert.throws(() => require('libvemora/index.js'), { code: 'ERR_PACKAGE_PATH_NOT_EXPORTED' });
  await assert.rejects(import('libvemora/index.js'), { code: 'ERR_PACKAGE_PATH_NOT_EXPORTED' });
});
