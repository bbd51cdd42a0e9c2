#!/usr/bin/env node
'use strict';
// npm run bench: the cost of every VemoraCore method beside its floor (the
// cost of crossing into a no-op native method plus the method's own platform
// readings timed from C++) and beside the peers that give the same figures,
// all measured in one run on this machine; then the targets, met or missed,
// and resident memory over many calls of each method.
//
//   BENCH_ITERATIONS       timed samples per subject (default 20000)
//   BENCH_MEMORY_CALLS     calls of each method between the two memory readings
//                          (default 1000000)
//   BENCH_PEER_ITERATIONS  calls of each systeminformation peer (default 8;
//                          pidusage gets 25 times as many)
//   BENCH_STDERR=inherit   show the diagnostics the measured code writes
//
// Targets are reported, never asserted: the exit status says only whether the
// benchmark ran.
const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const root = path.resolve(__dirname, '..');
const buildDir = path.join(root, 'build');
const MiB = 2 ** 20;

function positiveInt(name, fallback) {
  const text = process.env[name];
  if (text === undefined || text === '') return fallback;
  const value = Number(text);
  if (!Number.isSafeInteger(value) || value < 1) {
    throw new Error(`${name} must be a positive integer, not ${JSON.stringify(text)}`);
  }
  return value;
}

// What each method does below the binding on Linux: the no-op method that
// crosses the same way and hands back the same kind of value, and the platform
// facts it asks for, each timed in C++ by platform_bench with its diagnostics.
const LINUX_FLOORS = {
  'getMachinePhysicalRAM()': ['noop()', ['physical_memory_bytes']],
  'getAvailableRAM()': ['noop()', ['available_memory_bytes']],
  'getMachinePhysicalVRAM()': ['noop()', ['gpu_memory_bytes']],
  'getAvailableVRAM()': ['noop()', ['gpu_available_memory_bytes']],
  'getAvailableVRAMByDevice()': ['object5()', ['gpu_memory_by_device']],
  'getProcessUsedRAM(pid)': ['noop()', ['process_memory']],
  'willFailToAllocate(1 GB)': ['noop()', ['allocatable_memory_bytes']],
  'willFailToAllocate(4 PiB)': ['noop()', ['allocatable_memory_bytes', 'swap_usage']],
  // The bare read of /proc/<pid>/stat, which any reader of the figure pays;
  // the fact itself (process_cpu_times) adds the parse and the clock.
  'getCpuUsage(child, 0)': ['noop()', ['read_proc_stat(other)']],
  'getCpuUsage(pid, 0)': ['noop()', ['read_proc_stat']],
  'surveyHardware()': ['object5()', ['survey_gpus', 'cpu_info']],
  'getDeviceType()': ['noop()', ['device_type']],
  // The test-only add-on, with GPUs from the test NVML and an amdgpu tree.
  'getAvailableVRAMByDevice(), test NVML + tree': ['object5()', ['gpu_memory_by_device/test_nvml+tree']],
  'surveyHardware(), test NVML + tree': ['object5()', ['survey_gpus/test_nvml+tree', 'cpu_info']],
};

// The peers that give the same figures or facts, and the targets against them
// (ours at most `max` times the peers' cost; several peers are summed).
const PEERS = {
  'getMachinePhysicalRAM()': [{ peers: ['os.totalmem()'], max: 0.2 }, { peers: ['si.mem()'] }],
  'getAvailableRAM()': [{ peers: ['os.freemem()'], max: 1.0 }, { peers: ['si.mem()'] }],
  'getMachinePhysicalVRAM()': [{ peers: ['si.graphics()'] }],
  'getAvailableVRAM()': [{ peers: ['si.graphics()'] }],
  'getAvailableVRAMByDevice()': [{ peers: ['si.graphics()'] }],
  'getProcessUsedRAM(pid)': [
    { peers: ['process.memoryUsage.rss()'], max: 1.5 },
    { peers: ['pidusage(pid)'] },
  ],
  'willFailToAllocate(1 GB)': [{ peers: ['os.freemem()'], max: 1.3 }, { peers: ['si.mem()'] }],
  'willFailToAllocate(4 PiB)': [{ peers: ['os.freemem()'], max: 1.3 }, { peers: ['si.mem()'] }],
  'getCpuUsage(child, 0)': [{ peers: ['pidusage(child)'], max: 0.1 }],
  'getCpuUsage(pid, 0)': [{ peers: ['process.cpuUsage()'] }],
  'surveyHardware()': [{ peers: ['si.cpu()', 'si.graphics()'], max: 0.001 }, { peers: ['os.cpus()'] }],
  'getDeviceType()': [{ peers: ['si.system()', 'si.battery()'], max: 0.001 }],
  'getAvailableVRAMByDevice(), test NVML + tree': [{ peers: ['si.graphics()'] }],
  'surveyHardware(), test NVML + tree': [{ peers: ['si.cpu()', 'si.graphics()'] }],
};
const FLOOR_MAX = 1.5;
const GROWTH_MAX = MiB;

// Rows shown even before the add-on has the method, so the table says "n/a".
const EXPECTED = Object.keys(LINUX_FLOORS);

function run(command, args, options = {}) {
  const result = spawnSync(command, args, { encoding: 'utf8', maxBuffer: 256 * MiB, ...options });
  if (result.error) throw result.error;
  return result;
}

// Configures the build with the benchmarks once, then brings it up to date.
function build() {
  const cmakeJs = path.join(root, 'node_modules', '.bin', 'cmake-js');
  const cache = path.join(buildDir, 'CMakeCache.txt');
  const steps = [['build', '--parallel', '2']];
  if (!fs.existsSync(cache) || !/^VEMORA_BUILD_BENCH:BOOL=ON$/m.test(fs.readFileSync(cache, 'utf8'))) {
    steps.unshift(['configure', '--CDVEMORA_BUILD_BENCH=ON']);
  }
  for (const step of steps) {
    const result = run(cmakeJs, step, { cwd: root });
    if (result.status !== 0) {
      throw new Error(`cmake-js ${step.join(' ')} failed:\n${result.stdout}${result.stderr}`);
    }
  }
}

function median(values) {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.floor(sorted.length / 2)];
}

function measure(config) {
  const result = run(process.execPath, ['--expose-gc', path.join(__dirname, 'measure.js')], {
    stdio: ['ignore', 'pipe', config.stderr],
    env: { ...process.env, VEMORA_BENCH_CONFIG: JSON.stringify(config) },
  });
  let report;
  try {
    report = JSON.parse(result.stdout);
  } catch {
    report = { error: `no report (status ${result.status}, signal ${result.signal})` };
  }
  if (report.error || result.status !== 0) {
    throw new Error(`measure.js failed: ${report.error}\n(run with BENCH_STDERR=inherit to see its stderr)`);
  }
  return report;
}

function time(ns) {
  if (ns === undefined || Number.isNaN(ns)) return 'n/a';
  if (ns < 1e3) return `${ns.toFixed(0)} ns`;
  if (ns < 1e6) return `${(ns / 1e3).toFixed(2)} µs`;
  return `${(ns / 1e6).toFixed(1)} ms`;
}

function ratio(r, digits = 2) {
  if (r === undefined || Number.isNaN(r)) return 'n/a';
  return r < 0.01 ? `1/${Math.round(1 / r)}` : `${r.toFixed(digits)}x`;
}

function bytes(n) {
  const sign = n < 0 ? '-' : '+';
  const a = Math.abs(n);
  return a < MiB ? `${sign}${(a / 1024).toFixed(0)} KiB` : `${sign}${(a / MiB).toFixed(2)} MiB`;
}

function machine() {
  let cpu = os.cpus()[0]?.model || 'unknown CPU';
  try {
    const m = /^model name\s*:\s*(.+)$/m.exec(fs.readFileSync('/proc/cpuinfo', 'utf8'));
    if (m) cpu = m[1];
  } catch {}
  return `${cpu}, ${os.cpus().length} cores, ${(os.totalmem() / 2 ** 30).toFixed(1)} GiB RAM, ` +
    `${os.type()} ${os.release()}, Node ${process.version}`;
}

function table(rows) {
  const widths = rows[0].map((_, c) => Math.max(...rows.map((r) => r[c].length)));
  const line = (r) => r.map((cell, c) => (c === 0 ? cell.padEnd(widths[c]) : cell.padStart(widths[c]))).join('  ');
  return [line(rows[0]), widths.map((w) => '-'.repeat(w)).join('  '), ...rows.slice(1).map(line)].join('\n');
}

function report(config, js) {
  const native = new Map(Object.entries(js.native));
  const timings = new Map(js.timings.map((t) => [t.label, t]));
  const nativeMedian = new Map([...native].map(([name, values]) => [name, median(values)]));
  const floors = process.platform === 'linux' ? LINUX_FLOORS : {};
  const ours = js.timings.filter((t) => t.kind === 'ours').map((t) => t.label);
  const labels = [...ours, ...EXPECTED.filter((l) => !ours.includes(l))];

  function floorOf(label) {
    const entry = floors[label];
    if (!entry || !timings.has(entry[0])) return { ns: undefined, text: 'n/a' };
    const [crossing, readings] = entry;
    if (readings.some((r) => !nativeMedian.has(r))) return { ns: undefined, text: 'n/a' };
    const ns = timings.get(crossing).median + readings.reduce((sum, r) => sum + nativeMedian.get(r), 0);
    return { ns, text: `${crossing} + ${readings.length ? readings.join(' + ') : 'nothing'}` };
  }

  const rows = [['method', 'median', 'p99', 'floor', 'x floor', 'peer', 'peer median', 'x peer']];
  const targets = [];
  const target = (met, text) => targets.push(`  ${met === undefined ? 'n/a   ' : met ? 'met   ' : 'MISSED'}  ${text}`);
  const floorNotes = [];
  for (const label of labels) {
    const t = timings.get(label);
    const floor = floorOf(label);
    const vsFloor = t && floor.ns ? t.median / floor.ns : undefined;
    if (floor.ns) floorNotes.push(`  ${label}: ${floor.text}`);
    target(vsFloor === undefined ? undefined : vsFloor <= FLOOR_MAX,
      `${label} median at most ${FLOOR_MAX}x its floor: ${ratio(vsFloor, 3)}${t ? '' : ' (no such method yet)'}`);
    const peerRows = (PEERS[label] || [{ peers: [] }]).map(({ peers, max }) => {
      const known = peers.length > 0 && peers.every((p) => timings.has(p));
      const peerNs = known ? peers.reduce((sum, p) => sum + timings.get(p).median, 0) : undefined;
      const vsPeer = t && peerNs ? t.median / peerNs : undefined;
      if (max !== undefined) {
        const wanted = max <= 0.1 ? `at least ${Math.round(1 / max)}x faster than` : `at most ${max}x`;
        target(vsPeer === undefined ? undefined : vsPeer <= max,
          `${label} ${wanted} ${peers.join(' + ')}: ${ratio(vsPeer, 3)}${t ? '' : ' (no such method yet)'}`);
      }
      return [peers.join(' + ') || '-', time(peerNs), ratio(vsPeer)];
    });
    peerRows.forEach((peer, i) => {
      rows.push(i === 0
        ? [label, time(t?.median), time(t?.p99), time(floor.ns), ratio(vsFloor), ...peer]
        : ['', '', '', '', '', ...peer]);
    });
  }

  const memoryRows = [['method', 'calls', 'RSS before', 'RSS after', 'growth']];
  for (const m of js.memory) {
    const growth = m.after - m.before;
    memoryRows.push([m.label, String(m.calls), `${(m.before / MiB).toFixed(1)} MiB`,
      `${(m.after / MiB).toFixed(1)} MiB`, bytes(growth)]);
    target(growth < GROWTH_MAX, `${m.label} resident memory grows less than 1 MiB over ${m.calls} calls: ${bytes(growth)}`);
  }
  for (const label of EXPECTED.filter((l) => !js.memory.some((m) => m.label === l))) {
    target(undefined, `${label} resident memory grows less than 1 MiB: n/a (no such method yet)`);
  }

  const crossingRows = [['no-op add-on', 'median', 'p99']];
  for (const t of js.timings.filter((x) => x.kind === 'crossing')) crossingRows.push([t.label, time(t.median), time(t.p99)]);
  const nativeRows = [['platform reading (C++)', 'median', 'samples']];
  for (const [name, values] of native) nativeRows.push([name, time(median(values)), String(values.length)]);
  const firstRows = [['first GPU call in a fresh process', 'time']];
  for (const [label, ns] of js.firstCalls) firstRows.push([label, time(ns)]);

  const out = [];
  out.push(`Machine: ${machine()}`);
  out.push(`Samples per subject: ${config.iterations} (p99 is per call where a sample is one call; ` +
    'cheaper calls are timed in batches of about 10 µs)');
  out.push('', table(rows), '', 'Targets', ...targets, '', 'Resident memory', table(memoryRows));
  out.push('', 'Floors (crossing + platform readings)', ...floorNotes);
  out.push('', table(crossingRows), '', table(nativeRows), '');
  if (js.firstCalls.length) out.push(table(firstRows), '');
  return out.join('\n');
}

function main() {
  const iterations = positiveInt('BENCH_ITERATIONS', 20000);
  const config = {
    iterations,
    memoryCalls: positiveInt('BENCH_MEMORY_CALLS', 1_000_000),
    peerIterations: positiveInt('BENCH_PEER_ITERATIONS', 8),
    warmupMs: iterations < 2000 ? 5 : 50,
    nativeBinary: path.join(buildDir, 'bench', 'vemora_platform_bench'),
    buildDir,
    stderr: process.env.BENCH_STDERR === 'inherit' ? 'inherit' : 'ignore',
  };
  build();
  const js = measure(config);
  js.memory = js.timings
    .filter((t) => t.kind === 'ours')
    .map((t) => measure({ ...config, memoryLabel: t.label }).memory);
  process.stdout.write(report(config, js));
}

if (require.main === module) {
  try {
    main();
  } catch (error) {
    process.stderr.write(`bench: ${error.message}\n`);
    process.exitCode = 1;
  }
}

module.exports = { report };
