'use strict';
// Random arguments against every method, in a child process so that a crash
// fails the test and names the call that crashed. FUZZ_SEED replays a failure.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { addonPath, fakeAddonPath, gpuFakeAddonPath, runChild } = require('../harness/addon');

const rows = [
  ['random arguments and this values, on the fake Apple-silicon Mac', fakeAddonPath, []],
  ['random arguments and this values, here, also in workers terminated mid-run', addonPath, ['--workers']],
  ['random arguments in workers terminated mid-run, with GPUs on the test NVML', gpuFakeAddonPath, ['--workers']],
];

for (const [name, addon, mode] of rows) {
  test(name, { skip: addon === gpuFakeAddonPath && process.platform !== 'linux' }, (t) => {
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-fuzz-'));
    t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
    const run = runChild(path.join(__dirname, '..', 'harness', 'fuzz-child.js'), [...mode, path.join(dir, 'trace')],
      { env: { ...process.env, VEMORA_TEST_ADDON: addon } });
    const last = fs.readdirSync(dir).map((f) => `${f}: ${fs.readFileSync(path.join(dir, f), 'utf8')}`).join('\n');
    assert.deepEqual([run.signal, run.status], [null, 0], `last calls:\n${last}\n${run.stderr.split('\n').slice(-40).join('\n')}`);
    assert.match(run.stdout, /^\d+ calls, seed \d+\n$/);
  });
}
