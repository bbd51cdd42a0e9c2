'use strict';
// Under valgrind (scripts/valgrind.sh): every method of VemoraCore on its success and refusal paths, CALLS times
// over (2000), so that anything lost per call shows as thousands of lost blocks; then WORKERS workers (2) load the
// add-on, call everything and exit, each giving back what it took.
const { Worker, isMainThread } = require('node:worker_threads');
const { once } = require('node:events');
const { check, names, methods } = require('./methods');

const { VemoraCore } = require(process.env.VEMORA_TEST_ADDON || require('./addon').addonPath);

// Between them these reach every refusal, the no-such-process paths, a CPU window and a CPU figure at once, and the
// swap reading of the allocation check; methods that refuse nothing get two.
const ARGS = [[], [1], ['1', 2], [0, 0], [1, 2], [-1], [process.pid], [process.pid, 0], [2 ** 31 - 1],
  [2 ** 31 - 1, 1], [2 ** 62], [1, 'x', {}]];
const callEverything = () => names(VemoraCore).forEach((name) =>
  (methods[name][2] ? ARGS : [[], [1, 'x', {}]]).forEach((args) => check(VemoraCore, name, args)));

// A failure rejects, which ends node with status 1 and the stack on stderr.
if (isMainThread) {
  (async () => {
    const [calls, workers] = [Number(process.env.CALLS || 2000), Number(process.env.WORKERS || 2)];
    for (let i = 0; i < calls; i++) callEverything();
    for (let i = 0; i < workers; i++) {
      const [code] = await once(new Worker(__filename), 'exit');
      if (code !== 0) throw new Error(`worker exited with ${code}`);
    }
    callEverything();
    process.stdout.write(`${calls} rounds, ${workers} workers\n`);
  })();
} else {
  for (let i = 0; i < 10; i++) callEverything();
}
