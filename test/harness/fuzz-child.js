'use strict';
// Random argument lists and `this` values for every method of VemoraCore and
// its constructor, each outcome checked against ./methods.js, each call first
// written to the trace file so that after a crash the file names it.
//   node fuzz-child.js [--workers] <trace>: with workers, also in workers terminated mid-run
// Env: VEMORA_TEST_ADDON, FUZZ_SEED, FUZZ_RUNS (per method), FUZZ_ROUNDS.
const fs = require('node:fs');
const { once } = require('node:events');
const { setTimeout: sleep } = require('node:timers/promises');
const fc = require('fast-check');
const { Worker, isMainThread, workerData } = require('node:worker_threads');
const { check, names } = require('./methods');

const { VemoraCore } = require(process.env.VEMORA_TEST_ADDON);

// Objects that throw at any look inside. fast-check inspects what it
// generates, so it generates stand-ins, swapped in just before a call.
const trap = () => { throw new Error('trap'); };
const revoked = Proxy.revocable({}, {});
revoked.revoke();
const hostile = [new Proxy({}, { get: trap, has: trap, ownKeys: trap, getPrototypeOf: trap }), revoked.proxy, { valueOf: trap, toString: trap }];
const standIns = hostile.map((_, i) => ({ [`<hostile ${i}>`]: true }));
const swapIn = (v) => (standIns.includes(v) ? hostile[standIns.indexOf(v)] : v);
const show = (v) => { try { return fc.stringify(v); } catch { return '<unprintable>'; } };

const value = fc.oneof(
  fc.constantFrom(NaN, Infinity, -Infinity, -0, 0, 1, -1, 0.5, -0.5, 2 ** 31, -(2 ** 31), 2 ** 31 - 1,
    2 ** 32, 2 ** 32 - 1, 2 ** 32 + 1, 2 ** 53, -(2 ** 53), 2 ** 63, 2 ** 64, Number.MAX_VALUE,
    -Number.MAX_VALUE, Number.MIN_VALUE, Number.EPSILON, process.pid),
  fc.double(), fc.integer(), fc.bigInt(), fc.string(), fc.boolean(),
  fc.constantFrom(null, undefined, Symbol('s'), Object(5), ...standIns),
  fc.object(), fc.array(fc.anything()), fc.func(fc.anything()),
);

function fuzz(seed, runs, traceFile) {
  const trace = fs.openSync(traceFile, 'w');
  for (const name of names(VemoraCore)) {
    fc.assert(fc.property(value, fc.array(value, { maxLength: 5 }), (self, args) => {
      const line = `${name}(${args.map(show).join(', ')})`.replace(/\s+/g, ' ');
      fs.ftruncateSync(trace, fs.writeSync(trace, line, 0));
      check(VemoraCore, name, args.map(swapIn), swapIn(self), line);
    }), { seed, numRuns: runs });
  }
  fs.closeSync(trace);
  return names(VemoraCore).length * runs;
}

// Four workers fuzz until terminated while the main thread fuzzes, and the
// main thread fuzzes again once they are gone. Enough rounds for a class
// reference shared between environments to crash.
async function fuzzInWorkers(seed, runs, prefix) {
  let calls = 0;
  for (let round = 0; round < Number(process.env.FUZZ_ROUNDS || 25); round++) {
    let error;
    const workers = [0, 1, 2, 3].map((i) => new Worker(__filename, {
      workerData: { seed: seed + 1000 * (round * 4 + i + 1), runs, trace: `${prefix}.worker${i}` },
    }).on('error', (e) => { error ??= e; }));
    await Promise.all(workers.map((w) => once(w, 'online')));
    calls += fuzz(seed + round, Math.ceil(runs / 10), `${prefix}.main`);
    await sleep(20 + 40 * (round % 4));
    await Promise.all(workers.map((w) => w.terminate()));
    if (error) throw error;
    calls += fuzz(seed - round, Math.ceil(runs / 10), `${prefix}.main`);
  }
  return calls;
}

if (!isMainThread) {
  for (let seed = workerData.seed; ; seed++) fuzz(seed, workerData.runs, workerData.trace);
} else {
  const [seed, runs] = [Number(process.env.FUZZ_SEED || Date.now() % 2 ** 31), Number(process.env.FUZZ_RUNS || 300)];
  (async () => (process.argv[2] === '--workers' ? fuzzInWorkers : fuzz)(seed, runs, process.argv.at(-1)))()
    .then((calls) => process.stdout.write(`${calls} calls, seed ${seed}\n`))
    .catch((error) => {
      process.stderr.write(`FUZZ_SEED=${seed}\n${error?.stack}\n`);
      process.exit(1);
    });
}
