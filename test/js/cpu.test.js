'use strict';
// getCpuUsage on busy and idle children: on Linux against /proc/<pid>/stat and
// /proc/uptime read just before and just after each call; on Windows (run here
// under Wine), which offers JavaScript no such peer, against what each child
// reads of itself. Those peers are the close checks; the bands are wide enough
// for a loaded 2-core machine (at a load average of 8, two spinning threads got
// a quarter of a core between them).
const test = require('node:test');
const assert = require('node:assert/strict');
const { execFileSync, spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const { setTimeout: sleep } = require('node:timers/promises');
const { VemoraCore: load, addonPath, runChild } = require('../harness/addon');

const VemoraCore = load();
const linux = process.platform === 'linux';
const skip = !linux && process.platform !== 'win32' && 'measured on Linux and Windows only';
const HZ = linux ? Number(execFileSync('getconf', ['CLK_TCK'], { encoding: 'utf8' })) : 100;
// The most `threads` spinning threads read over a window: each end of it may
// fall a tick of CPU time either way (Windows counts in ticks of 15.625 ms).
const most = (threads, windowMs) => 100 * threads * (1 + (2 * (linux ? 1000 / HZ : 15.625)) / windowMs);

// Each child, once started (its thread too) and idle for 300 ms, reads itself at
// once (under Wine from GetProcessTimes, not the process list the add-on reads
// for another process), idles 100 ms while the test reads it too, then spins or idles.
const SAY = `process.stdout.write(String(require(${JSON.stringify(addonPath)}).VemoraCore.getCpuUsage(process.pid, 0)))`;
const then = (next) => `setTimeout(() => { ${SAY}; setTimeout(() => { ${next} }, 100); }, 300);`;
const SPINNING = then('for (;;);');
const IDLE = then('setTimeout(() => {}, 60000);');
const TWO_SPINNING = `new (require('node:worker_threads').Worker)("require('node:worker_threads').parentPort.postMessage(0); for (;;);",
  { eval: true }).once('message', () => { ${SPINNING} });`;

// A process's CPU seconds, start and the uptime, from the files the add-on reads.
function peer(pid) {
  const fields = fs.readFileSync(`/proc/${pid}/stat`, 'utf8').replace(/^.*\) /s, '').split(' ');
  return { cpu: (Number(fields[11]) + Number(fields[12])) / HZ, start: Number(fields[19]) / HZ,
    uptime: Number(fs.readFileSync('/proc/uptime', 'utf8').split(' ')[0]) };
}
const between = (a, b) => (100 * (b.cpu - a.cpu)) / (b.uptime - a.uptime);
const lifetime = (p) => (100 * p.cpu) / (p.uptime - p.start);

async function child(script, t) {
  const c = spawn(process.execPath, ['-e', script], { stdio: ['ignore', 'pipe', 'ignore'] });
  t.after(() => c.kill('SIGKILL'));
  const [said] = await once(c.stdout, 'data');
  return [c.pid, Number(said)];
}

// The figure over a window, or at once (0): on Linux what /proc says of the
// same span, or of the lifetime.
function measure(pid, windowMs) {
  const before = linux && peer(pid);
  const started = process.hrtime.bigint();
  const figure = VemoraCore.getCpuUsage(pid, windowMs);
  const tookMs = Number(process.hrtime.bigint() - started) / 1e6;
  const after = linux && peer(pid);
  assert.ok(windowMs ? tookMs >= windowMs : tookMs < 100, `returned after ${tookMs} ms`);
  if (linux) {
    const expected = windowMs ? between(before, after) : (lifetime(before) + lifetime(after)) / 2;
    assert.ok(Math.abs(figure - expected) <= 10, `${figure}, /proc says ${expected}`);
  }
  return figure;
}

// The first call for a process answers its lifetime so far, as the child read it.
test('the first call answers at once; a spinning child reads near 100 and an idle one near 0 over 500 ms', { skip }, async (t) => {
  for (const [name, script, band] of [['spinning', SPINNING, [10, most(1, 500)]], ['idle', IDLE, [0, 5]]]) {
    const [pid, itself] = await child(script, t);
    const first = measure(pid, 0);
    assert.ok(Math.abs(first - itself) <= 10, `${name}, at once: ${first}, it read ${itself} of itself`);
    await sleep(200); // until it spins or idles for good
    const figure = measure(pid, 500);
    assert.ok(figure >= band[0] && figure <= band[1], `${name}: ${figure}`);
  }
});

// Above 100 where two cores are free; wherever they are not, still more than
// a one-thread child spinning beside it over the same span (from the history
// of its calls at once): every thread counts.
test('two spinning threads read their sum', { skip }, async (t) => {
  const [[one], [two]] = [await child(SPINNING, t), await child(TWO_SPINNING, t)];
  await sleep(200);
  VemoraCore.getCpuUsage(one, 0);
  const figure = measure(two, 1000);
  const single = VemoraCore.getCpuUsage(one, 0);
  assert.ok(figure <= most(2, 1000) && figure >= single + 10, `${figure}, one thread beside it ${single}`);
});

test('no such process: -1, and one line naming the file or call and the reason', { skip }, () => {
  const run = runChild('-e', ['process.stdout.write(String(require(process.env.VEMORA_TEST_ADDON).VemoraCore.getCpuUsage(2 ** 31 - 1, 1000)))']);
  assert.equal(run.stdout, '-1');
  assert.match(run.stderr, linux ? /^\/proc\/2147483647\/stat: No such file or directory\n$/ : /^OpenProcess\(2147483647\): [^\n]+ \(error \d+\)\n$/);
});
