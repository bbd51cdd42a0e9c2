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

// Each child says when it has started (and its threads too), then spins or idles.
const SPIN = 'for (;;);';
const READY = "process.stdout.write('ready');";
const SPINNING = `${READY} ${SPIN}`;
const IDLE = `setTimeout(() => {}, 60000); ${READY}`;
const TWO_SPINNING = `new (require('node:worker_threads').Worker)(${JSON.stringify(`require('node:worker_threads')
  .parentPort.postMessage(0); ${SPIN}`)}, { eval: true }).once('message', () => { ${READY} ${SPIN} });`;

// The CPU seconds, start and uptime of a process (or, with tid, one of its
// threads), from the files the add-on reads.
function peer(pid, tid) {
  const file = tid ? `/proc/${pid}/task/${tid}/stat` : `/proc/${pid}/stat`;
  const fields = fs.readFileSync(file, 'utf8').replace(/^.*\) /s, '').split(' ');
  const uptime = Number(fs.readFileSync('/proc/uptime', 'utf8').split(' ')[0]);
  return { cpu: (Number(fields[11]) + Number(fields[12])) / HZ, start: Number(fields[19]) / HZ, uptime };
}
const between = (a, b) => (100 * (b.cpu - a.cpu)) / (b.uptime - a.uptime);
const lifetime = (p) => (100 * p.cpu) / (p.uptime - p.start);

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

test('at once: the lifetime average first, then the average since that call', { skip }, async (t) => {
  const pid = await child(SPINNING, t);
  const started = process.hrtime.bigint();
  const first = [peer(pid), VemoraCore.getCpuUsage(pid, 0), peer(pid)];
  const tookMs = Number(process.hrtime.bigint() - started) / 1e6;
  assert.ok(tookMs < 250, `took ${tookMs} ms`); // no window waited
  assert.ok(Math.abs(first[1] - lifetime(first[0])) <= 10, `${first[1]}, /proc says ${lifetime(first[0])}`);
  await sleep(400);
  const before = peer(pid);
  const since = VemoraCore.getCpuUsage(pid, 0);
  assert.ok(since >= 10 && since <= 105, `${since}`);
  assert.ok(Math.abs(since - between(first[2], before)) <= 10, `${since}, /proc says ${between(first[2], before)}`);
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
