'use strict';
// Feeds random argument lists (and random `this` values) to every
// function-valued static of VemoraCore and to its constructor, and checks each
// outcome against the rules of the JavaScript interface: a value of the right
// kind, or exactly the TypeError (or Error) those rules name. Run by
// test/js/fuzz.test.js in a child process, so that a crash fails the test
// instead of ending the run.
//
//   node fuzz-child.js <trace file>               fuzz in this thread
//   node fuzz-child.js --workers <trace prefix>   fuzz in workers, terminated mid-run
//
// Env: VEMORA_TEST_ADDON (the add-on), FUZZ_SEED, FUZZ_RUNS (per method),
// FUZZ_ROUNDS (worker rounds). Before each call the call is written to the
// trace file, so after a crash the file holds the call that crashed.
const fs = require('node:fs');
const fc = require('fast-check');
const { Worker, isMainThread, workerData } = require('node:worker_threads');

const { VemoraCore } = require(process.env.VEMORA_TEST_ADDON);

const TWO = 'Two arguments expected for GetCpuUsage';
const BOTH = 'Both GetCpuUsage arguments must be numbers!';
const ONE = 'One argument expected for GetProcessUsedRAM';
const PID = 'GetProcessUsedRAM PID must be a non-negative number!';
const NUMBER_EXPECTED = 'A number was expected';
const NOT_MEASURED = 'GetCpuUsage not yet implemented for Mac!';
const NO_NEW = "Class constructors cannot be invoked without 'new'";
const DEVICE_TYPES = ['Laptop', 'Desktop', 'MacMini', 'MacStudio', 'Other'];

const int32 = (n) => n | 0; // what napi_get_value_int32 makes of a number
const refuse = (message) => ({ error: TypeError, message });
const answer = (check) => ({ check });
const byteCount = answer((v) => Number.isInteger(v) && v >= -1);
const plainObject = (v) => v !== null && typeof v === 'object' && Object.getPrototypeOf(v) === Object.prototype;

// What each method must do with a given argument list. A method missing here
// fails the run: a new method needs its rule.
const rules = {
  getCpuUsage(args) {
    if (args.length < 2) return refuse(TWO);
    if (typeof args[0] !== 'number' || typeof args[1] !== 'number') return refuse(BOTH);
    if (int32(args[0]) > 0) return { error: Error, message: NOT_MEASURED };
    return answer((v) => v === -1);
  },
  getMachinePhysicalRAM: () => byteCount,
  getAvailableRAM: () => byteCount,
  getMachinePhysicalVRAM: () => byteCount,
  getAvailableVRAM: () => byteCount,
  getAvailableVRAMByDevice: () =>
    answer((v) => plainObject(v) && Object.keys(v).join() === 'result,deviceResults' &&
      Array.isArray(v.deviceResults)),
  getProcessUsedRAM(args) {
    if (args.length !== 1) return refuse(ONE);
    if (typeof args[0] !== 'number' || int32(args[0]) <= 0) return refuse(PID);
    return byteCount;
  },
  willFailToAllocate: (args) =>
    typeof args[0] === 'number' ? answer((v) => typeof v === 'boolean') : refuse(NUMBER_EXPECTED),
  surveyHardware: () => answer(plainObject),
  getDeviceType: () => answer((v) => DEVICE_TYPES.includes(v)),
  'new VemoraCore': () => answer((v) => v instanceof VemoraCore && Reflect.ownKeys(v).length === 0),
  VemoraCore: () => refuse(NO_NEW),
};

const targets = Object.getOwnPropertyNames(VemoraCore)
  .filter((name) => typeof VemoraCore[name] === 'function')
  .map((name) => [name, (self, args) => Reflect.apply(VemoraCore[name], self, args)])
  .concat([
    ['new VemoraCore', (self, args) => new VemoraCore(...args)],
    ['VemoraCore', (self, args) => Reflect.apply(VemoraCore, self, args)],
  ]);

// Objects that throw at any look inside them. fast-check inspects what it
// generates, so it generates stand-ins that are swapped in just before a call.
const trap = () => {
  throw new Error('trap');
};
const revoked = Proxy.revocable({}, {});
revoked.revoke();
const hostile = new Map([
  ['<proxy that throws>', new Proxy({}, { get: trap, has: trap, ownKeys: trap, getPrototypeOf: trap })],
  ['<revoked proxy>', revoked.proxy],
  ['<valueOf and toString throw>', { valueOf: trap, toString: trap }],
]);
const standIns = [...hostile.keys()].map((name) => ({ [name]: true }));
const swapIn = (v) => (standIns.includes(v) ? hostile.get(Object.keys(v)[0]) : v);
const show = (v) => {
  try {
    return fc.stringify(v);
  } catch {
    return '<unprintable>';
  }
};

const value = fc.oneof(
  fc.constantFrom(NaN, Infinity, -Infinity, -0, 0, 1, -1, 0.5, -0.5, 2 ** 31, -(2 ** 31),
    2 ** 31 - 1, 2 ** 32, 2 ** 32 - 1, 2 ** 32 + 1, 2 ** 53, -(2 ** 53), 2 ** 63, 2 ** 64,
    Number.MAX_VALUE, -Number.MAX_VALUE, Number.MIN_VALUE, Number.EPSILON, process.pid),
  fc.double(),
  fc.integer(),
  fc.bigInt(),
  fc.string(),
  fc.boolean(),
  fc.constantFrom(null, undefined, Symbol('s'), Object(5), ...standIns),
  fc.object(),
  fc.array(fc.anything()),
  fc.func(fc.anything()),
);

function fuzz(seed, runs, traceFile) {
  const trace = fs.openSync(traceFile, 'w');
  let calls = 0;
  try {
    for (const [name, call] of targets) {
      const rule = rules[name];
      if (!rule) throw new Error(`no rule for VemoraCore.${name}: add one to ${__filename}`);
      fc.assert(fc.property(value, fc.array(value, { maxLength: 5 }), (self, args) => {
        const line = `${name}(${args.map(show).join(', ')})`.replace(/\s+/g, ' ');
        fs.writeSync(trace, line, 0);
        fs.ftruncateSync(trace, Buffer.byteLength(line));
        calls++;
        const expected = rule(args);
        let result;
        try {
          result = call(swapIn(self), args.map(swapIn));
        } catch (error) {
          if (!expected.error) throw new Error(`${line} threw ${error && error.stack}`);
          if (error.constructor !== expected.error || error.message !== expected.message) {
            throw new Error(`${line} threw ${error && error.stack}, expected ` +
              `${expected.error.name}: ${expected.message}`);
          }
          return;
        }
        if (expected.error) {
          throw new Error(`${line} returned ${show(result)}, expected ` +
            `${expected.error.name}: ${expected.message}`);
        }
        if (!expected.check(result)) throw new Error(`${line} returned ${show(result)}`);
      }), { seed, numRuns: runs });
    }
  } finally {
    fs.closeSync(trace);
  }
  return calls;
}

// Workers fuzz with fresh seeds until they are terminated; the main thread
// fuzzes meanwhile and again after each round.
async function fuzzInWorkers(seed, runs, tracePrefix) {
  const rounds = Number(process.env.FUZZ_ROUNDS || 6);
  let calls = 0;
  for (let round = 0; round < rounds; round++) {
    const workers = Array.from({ length: 3 }, (_, i) => new Worker(__filename, {
      workerData: { seed: seed + 1000 * (round * 3 + i + 1), runs, trace: `${tracePrefix}.worker${i}` },
    }));
    const failures = workers.map((w) => new Promise((resolve) => w.once('error', resolve)));
    await Promise.all(workers.map((w) => new Promise((resolve) => w.once('online', resolve).once('error', resolve))));
    calls += fuzz(seed + round, Math.ceil(runs / 10), `${tracePrefix}.main`);
    await new Promise((resolve) => setTimeout(resolve, 20 + 40 * (round % 4)));
    await Promise.all(workers.map((w) => w.terminate()));
    const error = await Promise.race([...failures, Promise.resolve(null)]);
    if (error) throw error;
    calls += fuzz(seed - round, Math.ceil(runs / 10), `${tracePrefix}.main`);
  }
  return calls;
}

if (!isMainThread) {
  for (let seed = workerData.seed; ; seed++) fuzz(seed, workerData.runs, workerData.trace);
} else {
  const seed = Number(process.env.FUZZ_SEED || Date.now() % 2 ** 31);
  const runs = Number(process.env.FUZZ_RUNS || 300);
  const inWorkers = process.argv[2] === '--workers';
  const traceFile = process.argv[inWorkers ? 3 : 2];
  Promise.resolve()
    .then(() => (inWorkers ? fuzzInWorkers(seed, runs, traceFile) : fuzz(seed, runs, traceFile)))
    .then((calls) => process.stdout.write(`${calls} calls, seed ${seed}\n`))
    .catch((error) => {
      process.stderr.write(`FUZZ_SEED=${seed}\n${error && error.stack}\n`);
      process.exit(1);
    });
}
