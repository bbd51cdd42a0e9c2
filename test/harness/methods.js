'use strict';
// The one table of VemoraCore's methods: valid arguments, what a valid answer
// looks like, and which argument lists each must refuse with which error; for
// the fuzzer, the leak loop and the installed-package check.
const TWO = 'Two arguments expected for GetCpuUsage';
const BOTH = 'Both GetCpuUsage arguments must be numbers!';
const NOT_MEASURED = 'GetCpuUsage not yet implemented for Mac!';
const ONE = 'One argument expected for GetProcessUsedRAM';
const PID = 'GetProcessUsedRAM PID must be a non-negative number!';
const NUMBER = 'A number was expected'; // Node-API's own text for napi_number_expected
const NO_NEW = "Class constructors cannot be invoked without 'new'";

const int32 = (n) => n | 0; // what napi_get_value_int32 makes of a number
// getCpuUsage measures everywhere but on macOS, and on the fake Mac.
const measuresCpu = process.platform !== 'darwin' && process.env.VEMORA_TEST_ADDON !== require('./addon').fakeAddonPath;
const num = (v) => typeof v === 'number';
const bytes = (v) => Number.isInteger(v) && v >= -1;
const plain = (v) => v !== null && typeof v === 'object' && Object.getPrototypeOf(v) === Object.prototype;
const refuse = (message, error = TypeError) => ({ error, message });

// name: [valid arguments, answer check, refusal for an argument list (or
// null), the argument list actually passed]. 'new' and 'call' are the
// constructor with and without new.
const methods = {
  getCpuUsage: [[process.pid, 0], (v) => v === -1 || v >= 0, (a) => (a.length < 2 ? refuse(TWO)
    : !num(a[0]) || !num(a[1]) ? refuse(BOTH) : !measuresCpu && int32(a[0]) > 0 ? refuse(NOT_MEASURED, Error) : null),
  // A window of 5 ms at most, so that no call blocks for long; still a number.
  (a) => (num(a[0]) && num(a[1]) && int32(a[1]) > 5 ? [a[0], 5, ...a.slice(2)] : a)],
  getMachinePhysicalRAM: [[], bytes],
  getAvailableRAM: [[], bytes],
  getMachinePhysicalVRAM: [[], bytes],
  getAvailableVRAM: [[], bytes],
  getAvailableVRAMByDevice: [[], (v) => plain(v) && Object.keys(v).join() === 'result,deviceResults'],
  getProcessUsedRAM: [[process.pid], bytes, (a) => (a.length !== 1 ? refuse(ONE)
    : !num(a[0]) || int32(a[0]) <= 0 ? refuse(PID) : null)],
  willFailToAllocate: [[2 ** 20], (v) => typeof v === 'boolean', (a) => (num(a[0]) ? null : refuse(NUMBER))],
  surveyHardware: [[], plain],
  getDeviceType: [[], (v) => ['Laptop', 'Desktop', 'MacMini', 'MacStudio', 'Other'].includes(v)],
  new: [[], (v, VemoraCore) => v instanceof VemoraCore && Reflect.ownKeys(v).length === 0],
  call: [[], () => false, () => refuse(NO_NEW)],
};

// The table's names and every function-valued static: a method missing from
// either side fails the call made for it.
const names = (VemoraCore) => [...new Set(Object.keys(methods)
  .concat(Object.getOwnPropertyNames(VemoraCore).filter((n) => typeof VemoraCore[n] === 'function')))];

// Makes one call and throws unless its outcome is one the table allows.
function check(VemoraCore, name, args, self = VemoraCore, label = name) {
  if (!methods[name]) throw new Error(`no rule for VemoraCore.${name}: add one to ${__filename}`);
  const [, valid, refusal = () => null, passed = (a) => a] = methods[name];
  args = passed(args);
  const expected = refusal(args);
  let result;
  try {
    result = name === 'new' ? new VemoraCore(...args)
      : Reflect.apply(name === 'call' ? VemoraCore : VemoraCore[name], self, args);
  } catch (error) {
    if (expected && error?.constructor === expected.error && error.message === expected.message) return;
    throw new Error(`${label} threw ${error?.stack}, expected ${expected ? expected.message : 'an answer'}`);
  }
  if (expected || !valid(result, VemoraCore)) throw new Error(`${label} returned ${require('node:util').inspect(result)}`);
}

const callEverything = (VemoraCore) => names(VemoraCore).map((name) => check(VemoraCore, name, methods[name][0]) ?? name);

module.exports = { methods, names, check, callEverything };
