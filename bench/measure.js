'use strict';
// The measuring half of the benchmark, run by bench/run.js in child Nodes
// with --expose-gc and the standard error stream sent to /dev/null (where
// there is no Metal, some methods write a diagnostic on every call). Either
// times every method of VemoraCore side by side with the no-op add-on's
// methods, the C++ platform readings and the peers that give the same figures,
// or measures resident memory over many calls of one method; writes the
// results as JSON on stdout.
const { spawn, spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const root = path.resolve(__dirname, '..');
const config = JSON.parse(process.env.VEMORA_BENCH_CONFIG);
const { VemoraCore } = require(root);

const pid = process.pid;

// The test-only add-on whose GPUs come from the test NVML (its two GPUs) and
// an amdgpu fixture tree:
// the GPU methods on machines this one is not. Its first call loads and
// starts the test NVML, timed here before anything else calls it.
const GPU_FAKE = path.join(config.buildDir, 'gpu-fake', 'libvemora_bindings.node');
const GPU_FAKE_METHODS = ['getAvailableVRAMByDevice', 'surveyHardware'];
const GpuFake = fs.existsSync(GPU_FAKE) ? require(GPU_FAKE).VemoraCore : undefined;
function firstCall(obj, name) {
  const start = process.hrtime.bigint();
  obj[name]();
  return Number(process.hrtime.bigint() - start);
}
const firstCalls = GpuFake && !config.memoryLabel ? [
  ['getAvailableVRAMByDevice(), test NVML + tree', firstCall(GpuFake, 'getAvailableVRAMByDevice')],
  ['getAvailableVRAMByDevice() here', firstCall(VemoraCore, 'getAvailableVRAMByDevice')],
] : [];
// Another process, an idle Node, whose CPU getCpuUsage and pidusage measure.
const child = spawn(process.execPath, ['-e', 'setInterval(() => {}, 2 ** 30)'], { stdio: 'ignore' });
child.unref(); // it must not keep this process alive
process.on('exit', () => child.kill('SIGKILL'));
// Arguments for the methods that take some; any other method is called with
// none. willFailToAllocate is timed both where the request fits (one reading)
// and where it exceeds RAM (the free swap is read as well). getCpuUsage is
// timed at once (a window only waits), for another process and for this one.
const CALLS = {
  getProcessUsedRAM: [['getProcessUsedRAM(pid)', [pid]]],
  willFailToAllocate: [
    ['willFailToAllocate(1 GB)', [1e9]],
    ['willFailToAllocate(4 PiB)', [2 ** 52]],
  ],
  getCpuUsage: [
    ['getCpuUsage(child, 0)', [child.pid, 0]],
    ['getCpuUsage(pid, 0)', [pid, 0]],
  ],
};

// A call of obj[name](...args) as a closure of its own, so that each subject's
// call site stays monomorphic; a call that throws here is timed with its
// throw caught.
function caller(obj, name, args) {
  const f = obj[name];
  const [a, b] = args;
  const call =
    args.length === 0 ? () => f.call(obj) : args.length === 1 ? () => f.call(obj, a) : () => f.call(obj, a, b);
  try {
    call();
    return { call, throws: false };
  } catch {
    return {
      call: () => {
        try {
          call();
        } catch {}
      },
      throws: true,
    };
  }
}

function ourSubjects() {
  const names = Object.getOwnPropertyNames(VemoraCore).filter((n) => typeof VemoraCore[n] === 'function');
  const out = [];
  for (const name of names) {
    for (const [label, args] of CALLS[name] || [[`${name}()`, []]]) {
      out.push({ label, method: name, kind: 'ours', ...caller(VemoraCore, name, args) });
    }
  }
  for (const name of GpuFake ? GPU_FAKE_METHODS : []) {
    out.push({ label: `${name}(), test NVML + tree`, method: name, kind: 'ours', ...caller(GpuFake, name, []) });
  }
  return out;
}

function syncSubjects() {
  const { NoopCore } = require(path.join(config.buildDir, 'bench', 'vemora_bench_noop.node'));
  return [
    ...ourSubjects(),
    { label: 'noop()', kind: 'crossing', ...caller(NoopCore, 'noop', []) },
    { label: 'object5()', kind: 'crossing', ...caller(NoopCore, 'object5', []) },
    { label: 'throwError()', kind: 'crossing', ...caller(NoopCore, 'throwError', []) },
    { label: 'os.totalmem()', kind: 'peer', ...caller(os, 'totalmem', []) },
    { label: 'os.freemem()', kind: 'peer', ...caller(os, 'freemem', []) },
    { label: 'process.memoryUsage.rss()', kind: 'peer', ...caller(process.memoryUsage, 'rss', []) },
    { label: 'os.cpus()', kind: 'peer', ...caller(os, 'cpus', []) },
    { label: 'process.cpuUsage()', kind: 'peer', ...caller(process, 'cpuUsage', []) },
  ];
}

function summary(samples) {
  const sorted = Float64Array.from(samples).sort();
  const at = (q) => sorted[Math.min(sorted.length - 1, Math.floor(q * sorted.length))];
  return { median: at(0.5), p99: at(0.99), samples: sorted.length };
}

let sink;
function timeBatch(call, batch) {
  const start = process.hrtime.bigint();
  for (let i = 0; i < batch; i++) sink = call();
  return Number(process.hrtime.bigint() - start) / batch;
}

// Warm the subject up (so the JIT has settled) and choose how many calls make
// one sample: about 10 µs' worth, so that the clock's own cost stays small for
// the cheapest calls; 1 for anything slower, so p99 is per call.
function calibrate(subject) {
  const until = process.hrtime.bigint() + BigInt(config.warmupMs * 1e6);
  let calls = 0;
  while (calls < 100 || process.hrtime.bigint() < until) {
    timeBatch(subject.call, 16);
    calls += 16;
  }
  const estimate = summary(Array.from({ length: 21 }, () => timeBatch(subject.call, 16))).median;
  subject.batch = Math.max(1, Math.round(10_000 / Math.max(estimate, 1)));
}

const NS_PER_UNIT = { ns: 1, us: 1e3, ms: 1e6, s: 1e9 };

// One run of platform_bench, which times the platform readings from C++ in
// samples as here: each repetition is one sample of at least 100 µs (long
// enough that its own clock readings cost under 1%; the first repetition
// fixes the number of calls). Each sample's time per call (ns) is added to
// `into`.
function timeNative(into, samples) {
  const result = spawnSync(
    config.nativeBinary,
    ['--benchmark_format=json', '--benchmark_min_time=0.0001', `--benchmark_repetitions=${samples}`],
    {
      encoding: 'utf8',
      maxBuffer: 64 * 2 ** 20,
      stdio: ['ignore', 'pipe', config.stderr],
      // Its process readings read this process's files and the child's, as
      // the add-on does.
      env: { ...process.env, VEMORA_BENCH_PID: String(pid), VEMORA_BENCH_OTHER_PID: String(child.pid) },
    },
  );
  if (result.error) throw result.error;
  if (result.status !== 0) {
    throw new Error(`${config.nativeBinary} exited with ${result.status} ${result.signal || ''}`);
  }
  for (const b of JSON.parse(result.stdout).benchmarks) {
    if (b.run_type !== 'iteration' || b.error_occurred) continue;
    if (!into[b.run_name]) into[b.run_name] = [];
    into[b.run_name].push(b.real_time * NS_PER_UNIT[b.time_unit]);
  }
}

// All subjects take turns, a slice of samples each per round, and the C++
// readings are timed between rounds, so that the machine's other load falls
// on all of them alike.
function timeSync(subjects, native) {
  for (const s of subjects) calibrate(s);
  const rounds = Math.min(20, config.iterations);
  const perRound = Math.ceil(config.iterations / rounds);
  const samples = new Map(subjects.map((s) => [s, []]));
  for (let r = 0; r < rounds; r++) {
    timeNative(native, Math.ceil(perRound / 10));
    for (let k = 0; k < subjects.length; k++) {
      const s = subjects[(k + r) % subjects.length];
      const into = samples.get(s);
      for (let i = 0; i < perRound; i++) into.push(timeBatch(s.call, s.batch));
    }
  }
  return subjects.map((s) => ({
    label: s.label,
    method: s.method,
    kind: s.kind,
    throws: s.throws,
    batch: s.batch,
    ...summary(samples.get(s)),
  }));
}

// Peers that answer through a promise, timed one awaited call at a time; they
// cost milliseconds, so few calls are made.
async function timeAsync() {
  const si = require('systeminformation');
  const pidusage = require('pidusage');
  const peers = [
    ['si.mem()', () => si.mem(), 1],
    ['si.cpu()', () => si.cpu(), 1],
    ['si.graphics()', () => si.graphics(), 1],
    ['si.system()', () => si.system(), 1],
    ['si.battery()', () => si.battery(), 1],
    ['pidusage(pid)', () => pidusage(pid), 25],
    ['pidusage(child)', () => pidusage(child.pid), 25],
  ];
  const samples = new Map(peers.map(([label]) => [label, []]));
  for (const [, call] of peers) await call();
  for (let r = 0; r < config.peerIterations; r++) {
    for (const [label, call, times] of peers) {
      for (let i = 0; i < times; i++) {
        const start = process.hrtime.bigint();
        await call();
        samples.get(label).push(Number(process.hrtime.bigint() - start));
      }
    }
  }
  pidusage.clear();
  return peers.map(([label]) => ({ label, kind: 'peer', batch: 1, ...summary(samples.get(label)) }));
}

function settledRss() {
  global.gc();
  global.gc();
  return process.memoryUsage.rss();
}

// Resident memory before and after many calls of one method, in a process of
// its own so that no other work's heap is still settling. A first round of
// calls lets the JIT, the heap and the allocator reach their working size: in
// a fresh Node, whatever is called, some MiB arrive with the optimising
// compiler after a few thousand calls, and the heap keeps growing a little
// for about a hundred thousand.
function measureMemory(label) {
  const subject = ourSubjects().find((s) => s.label === label);
  const warmup = Math.max(20_000, Math.min(config.memoryCalls, 100_000));
  for (let i = 0; i < warmup; i++) sink = subject.call();
  const before = settledRss();
  for (let i = 0; i < config.memoryCalls; i++) sink = subject.call();
  const after = settledRss();
  return { label, calls: config.memoryCalls, before, after };
}

async function main() {
  if (config.memoryLabel) {
    process.stdout.write(JSON.stringify({ memory: measureMemory(config.memoryLabel) }));
    return;
  }
  const native = {};
  const sync = timeSync(syncSubjects(), native);
  const peers = await timeAsync();
  process.stdout.write(JSON.stringify({ timings: [...sync, ...peers], native, firstCalls }));
}

main().catch((error) => {
  process.stdout.write(JSON.stringify({ error: String((error && error.stack) || error) }));
  process.exitCode = 1;
});
