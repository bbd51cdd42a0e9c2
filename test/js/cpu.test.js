'use strict';
// getCpuUsage on busy and idle children, against /proc/<pid>/stat and
// /proc/uptime read just before and just after each call. The bands are wide:
// the machine may be a loaded 2-core one.
const test = require('node:test');
const assert = require('node:assert/strict');
const { execFileSync, spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const { setTimeout: sleep } = require('node:timers/promises');
const { VemoraCore: load, runChild } = require('../harness/addon');

const VemoraCore = load();
const skip = process.platform !== 'linux';
const HZ = skip ? 100 : Number(execFileSync('getconf', ['CLK_TCK'], { encoding: 'utf8' }));

// Each child says when it has started (and its thread too), then spins or idles.
const SPINNING = "process.stdout.write('ready'); for (;;);";
const IDLE = "setTimeout(() => {}, 60000); process.stdout.write('ready');";
const TWO_SPINNING = `new (require('node:worker_threads').Worker)("require('node:worker_threads').parentPort.postMessage(0); for (;;);",
  { eval: true }).once('message', () => { ${SPINNING} });`;

// The CPU seconds and uptime of a process (or, with tid, one of its threads),
// from the files the add-on reads.
function peer(pid, tid) {
  const fields = fs.readFileSync(`/proc/${pid}${tid ? `/task/${tid}` : ''}/stat`, 'utf8').replace(/^.*\) /s, '').split(' ');
  return { cpu: (Number(fields[11]) + Number(fields[12])) / HZ, uptime: Number(fs.readFileSync('/proc/uptime', 'utf8').split(' ')[0]) };
}
const between = (a, b) => (100 * (b.cpu - a.cpu)) / (b.uptime - a.uptime);

async function child(script, t) {
  const c = spawn(process.execPath, ['-e', script], { stdio: ['ignore', 'pipe', 'ignore'] });
  t.after(() => c.kill('SIGKILL'));
  await once(c.stdout, 'data');
  await sleep(200); // past the last of Node's start-up work
  return c.pid;
}

// The figure over a window, what /proc says of the same span, and what it
// says of the main thread alone.
function overWindow(pid, windowMs) {
  const before = [peer(pid), peer(pid, pid)];
  const started = process.hrtime.bigint();
  const figure = VemoraCore.getCpuUsage(pid, windowMs);
  const tookMs = Number(process.hrtime.bigint() - started) / 1e6;
  const after = [peer(pid), peer(pid, pid)];
  assert.ok(tookMs >= windowMs, `returned after ${tookMs} ms`);
  const whole = between(before[0], after[0]);
  assert.ok(Math.abs(figure - whole) <= 10, `${figure}, /proc says ${whole}`);
  return { figure, mainThread: between(before[1], after[1]) };
}

// Bands wide enough for a loaded 2-core machine (at a load average of 8, two
// spinning threads got a quarter of a core between them); a tick of CPU
// (10 ms) may fall in a window that did not use all of it. The comparison with /proc is the
// close one.
test('a spinning child reads near 100 and an idle one near 0 over 500 ms', { skip }, async (t) => {
  const spinning = overWindow(await child(SPINNING, t), 500).figure;
  assert.ok(spinning >= 10 && spinning <= 103, `spinning: ${spinning}`);
  const idle = overWindow(await child(IDLE, t), 500).figure;
  assert.ok(idle >= 0 && idle <= 5, `idle: ${idle}`);
});

// Above 100 where two cores are free; wherever they are not, still more than
// the main thread alone: every thread counts.
test('two spinning threads read their sum', { skip }, async (t) => {
  const { figure, mainThread } = overWindow(await child(TWO_SPINNING, t), 1000);
  assert.ok(figure <= 202 && figure >= mainThread + 10, `${figure}, its main thread ${mainThread}`);
  if (figure <= 100) t.diagnostic(`${figure}: fewer than two cores were free`);
});

test('failures answer -1 with one line naming the file and the reason', { skip }, () => {
  // The sleep ends during the window and stays a zombie: this thread, which
  // would reap it, is inside the call.
  const script = `const { VemoraCore: V } = require(process.env.VEMORA_TEST_ADDON);
    const c = require('node:child_process').spawn('sleep', ['0.2']);
    process.stdout.write(JSON.stringify([c.pid, V.getCpuUsage(2 ** 31 - 1, 1000), V.getCpuUsage(c.pid, 1000)]));`;
  const run = runChild('-e', [script]);
  const [pid, ...figures] = JSON.parse(run.stdout);
  assert.deepEqual(figures, [-1, -1]);
  assert.match(run.stderr, new RegExp(`^/proc/2147483647/stat: No such file or directory\n` +
    `/proc/${pid}/stat: (No such process|No such file or directory)\n$`));
});
