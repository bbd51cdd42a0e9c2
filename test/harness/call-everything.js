'use strict';
// Calls every method of VemoraCore once with valid arguments and checks the
// kind of each answer; returns the number of calls made.
const assert = require('node:assert/strict');

module.exports = function callEverything(VemoraCore) {
  const calls = {
    getMachinePhysicalRAM: [[], 'number'],
    getAvailableRAM: [[], 'number'],
    getMachinePhysicalVRAM: [[], 'number'],
    getAvailableVRAM: [[], 'number'],
    getAvailableVRAMByDevice: [[], 'object'],
    getProcessUsedRAM: [[process.pid], 'number'],
    willFailToAllocate: [[2 ** 20], 'boolean'],
    getCpuUsage: [[0, 0], 'number'],
    surveyHardware: [[], 'object'],
    getDeviceType: [[], 'string'],
  };
  let made = 0;
  for (const [name, [args, type]] of Object.entries(calls)) {
    if (typeof VemoraCore[name] !== 'function') continue;
    assert.equal(typeof VemoraCore[name](...args), type, name);
    made++;
  }
  assert.equal(VemoraCore.getProcessUsedRAM(process.pid) > 0, true);
  return made;
};
