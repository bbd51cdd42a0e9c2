'use strict';
// Random argument lists against every method, in a child process so that a
// crash is a failure that names the call that crashed. Replay a failure with
// the FUZZ_SEED it prints.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { addonPath, fakeAddonPath, runChild } = require('../harness/addon');

const child = path.join(__dirname, '..', 'harness', 'fuzz-child.js');

function fuzz(addon, mode) {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-fuzz-'));
  const trace = path.join(dir, 'trace');
  const run = runChild(child, mode === 'workers' ? ['--workers', trace] : [trace], {
    env: { ...process.env, VEMORA_TEST_ADDON: addon },
  });
  const lastCalls = fs.readdirSync(dir).map((f) => `${f}: ${fs.readFileSync(path.join(dir, f), 'utf8')}`);
  const report = `status=${run.status} signal=${run.signal}\nlast calls:\n${lastCalls.join('\n')}\n` +
    run.stderr.split('\n').filter((l) => !/^(Metal is not|sysctl vm|Failed to (get|retrieve))/.test(l))
      .slice(-40).join('\n');
  fs.rmSync(dir, { recursive: true, force: true });
  assert.equal(run.signal, null, report);
  assert.equal(run.status, 0, report);
  assert.match(run.stdout, /^\d+ calls, seed \d+\n$/);
}

for (const [name, addon] of [['this machine', addonPath], ['the fake Apple-silicon Mac', fakeAddonPath]]) {
  test(`random arguments and this values, on ${name}`, () => fuzz(addon, 'thread'));
}
test('random arguments in workers terminated mid-run', () => fuzz(addonPath, 'workers'));
