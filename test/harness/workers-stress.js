'use strict';
// Loads the add-on in the main thread and in four workers at once, calls every
// method everywhere, terminates the workers mid-flight, and repeats.
const { Worker, isMainThread } = require('node:worker_threads');
const callEverything = require('./call-everything');

const addon = process.env.VEMORA_TEST_ADDON;

if (!isMainThread) {
  const { VemoraCore } = require(addon);
  for (;;) callEverything(VemoraCore); // until terminated
}

async function main() {
  const rounds = Number(process.env.ROUNDS || 25);
  const { VemoraCore } = require(addon);
  for (let round = 0; round < rounds; round++) {
    const workers = Array.from({ length: 4 }, () => new Worker(__filename));
    await Promise.all(workers.map((w) => new Promise((resolve, reject) => {
      w.once('online', resolve);
      w.once('error', reject);
    })));
    callEverything(VemoraCore);
    await new Promise((resolve) => setTimeout(resolve, 5));
    await Promise.all(workers.map((w) => w.terminate()));
    callEverything(VemoraCore);
  }
  process.stdout.write(`${rounds} rounds\n`);
}

if (isMainThread) {
  main().catch((error) => {
    process.stderr.write(`${error.stack}\n`);
    process.exit(1);
  });
}
