'use strict';
// Calls every static method of VemoraCore on its success and error paths,
// CALLS times over (default 2000), plus the constructor, so that anything
// lost per call shows up under valgrind as thousands of lost blocks. Then a
// few workers load the add-on, call everything and exit: each environment
// must give back what the add-on's initialisation took.
const { Worker, isMainThread } = require('node:worker_threads');

const { VemoraCore } = require(process.env.VEMORA_TEST_ADDON || require('./addon').addonPath);

// Argument lists per method: valid ones, and each kind of refusal. A method
// not listed here gets the fallback, so a new one is never skipped.
const shapes = {
  getCpuUsage: [[], [1], ['1', 2], [0, 0], [-1, 0], [process.pid, 0]],
  getProcessUsedRAM: [[], [1, 2], ['1'], [0], [process.pid], [2 ** 31 - 1]],
  willFailToAllocate: [[], ['1'], [0], [2 ** 20], [2 ** 62], [-1]],
};
const fallback = [[], [1, 'x', {}]];

function callEverything() {
  for (const name of Object.getOwnPropertyNames(VemoraCore)) {
    const method = VemoraCore[name];
    if (typeof method !== 'function') continue;
    for (const args of shapes[name] || fallback) {
      try {
        method(...args);
      } catch {
        // Refusals are part of what is being checked for leaks.
      }
    }
  }
  new VemoraCore(1, 'x');
  try {
    VemoraCore();
  } catch {
    // The constructor refuses a call without new.
  }
}

async function main() {
  const calls = Number(process.env.CALLS || 2000);
  for (let i = 0; i < calls; i++) callEverything();
  const workers = Number(process.env.WORKERS || 2);
  for (let i = 0; i < workers; i++) {
    await new Promise((resolve, reject) => {
      new Worker(__filename).once('error', reject).once('exit', (code) =>
        code === 0 ? resolve() : reject(new Error(`worker exited with ${code}`)));
    });
  }
  process.stdout.write(`${calls} rounds, ${workers} workers\n`);
}

if (isMainThread) {
  main().catch((error) => {
    process.stderr.write(`${error.stack}\n`);
    process.exit(1);
  });
} else {
  for (let i = 0; i < 10; i++) callEverything();
}
