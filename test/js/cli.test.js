'use strict';
// The command line: options and exit codes, the report against the add-on,
// the rendering of survey sections, and a package whose add-on cannot load.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { root } = require('../harness/addon');
const { formatSize, render, USAGE } = require('../../bin/libvemora');

const { VemoraCore } = require(root);
const { version } = require('../../package.json');
const cli = path.join(root, 'bin', 'libvemora.js');
const surveys = typeof VemoraCore.surveyHardware === 'function';

const run = (args, options = {}) =>
  spawnSync(process.execPath, [options.script || cli, ...args], { encoding: 'utf8', ...options });

// [args, exit status, stdout (string, RegExp or null for "not checked"), stderr RegExp or '']
const invocations = [
  [['--help'], 0, USAGE, ''],
  [['-h'], 0, USAGE, ''],
  [['--version'], 0, `${version}\n`, ''],
  [['-v'], 0, `${version}\n`, ''],
  [['--json', '--help'], 0, USAGE, ''],
  [['--bogus'], 2, '', /^libvemora: Unknown option '--bogus'.*\n\nUsage: libvemora/s],
  [['report'], 2, '', /Unexpected argument 'report'.*\n\nUsage: libvemora/s],
  [['--json=yes'], 2, '', /does not take an argument.*\n\nUsage: libvemora/s],
  [[], 0, /^Memory\n {2}Physical RAM +\S/, null],
  [['--json'], 0, /^\{\n {2}"physicalRAM": \d+,/, null],
];

for (const [args, status, stdout, stderr] of invocations) {
  test(`libvemora ${args.join(' ') || '(no options)'} exits ${status}`, () => {
    const child = run(args);
    assert.equal(child.status, status, child.stderr);
    if (stdout instanceof RegExp) assert.match(child.stdout, stdout);
    else assert.equal(child.stdout, stdout);
    if (stderr instanceof RegExp) assert.match(child.stderr, stderr);
    else if (stderr !== null) assert.equal(child.stderr, stderr);
  });
}

test('--json reports what the add-on reports', () => {
  const report = JSON.parse(run(['--json']).stdout);
  assert.equal(report.physicalRAM, VemoraCore.getMachinePhysicalRAM());
  assert.equal(report.physicalVRAM, VemoraCore.getMachinePhysicalVRAM());
  assert.deepEqual(report.vramByDevice, VemoraCore.getAvailableVRAMByDevice());
  assert.deepEqual(Object.keys(report.allocationWouldFail), ['1 GB', '8 GB', '32 GB', '128 GB']);
  assert.equal(report.usedRAM <= report.physicalRAM, true);
  assert.ok(report.processRAM > 0);
  assert.equal('hardware' in report, surveys);
  assert.equal('deviceType' in report, surveys);
  if (surveys) {
    assert.deepEqual(Object.keys(report.hardware), ['gpuSurveyResult', 'cpuSurveyResult']);
    assert.equal(report.deviceType, VemoraCore.getDeviceType());
  }
});

test('the table shows sizes in binary units and sections only where surveyed', () => {
  const table = run([]).stdout;
  assert.match(table, new RegExp(`^ {2}Physical RAM +${formatSize(VemoraCore.getMachinePhysicalRAM())}$`, 'm'));
  assert.equal(/^Processors$/m.test(table), surveys);
  assert.equal(/^Machine$/m.test(table), surveys);
});

test('npm start prints the table', () => {
  const child = spawnSync('npm', ['start', '--silent'], { cwd: root, encoding: 'utf8' });
  assert.equal(child.status, 0, child.stderr);
  assert.match(child.stdout, /^Memory\n/);
});

test('sizes: binary units, two decimals, failures unavailable', () => {
  const rows = [
    [0, '0 B'], [1023, '1023 B'], [1024, '1.00 KiB'], [1536, '1.50 KiB'],
    [2 ** 20 - 1, '1024.00 KiB'], [2 ** 20, '1.00 MiB'], [25276514304, '23.54 GiB'],
    [2 ** 50 * 3, '3.00 PiB'], [2 ** 60, '1024.00 PiB'],
    [-1, 'unavailable'], [2 ** 64, 'unavailable'], [NaN, 'unavailable'], [undefined, 'unavailable'],
  ];
  for (const [bytes, text] of rows) assert.equal(formatSize(bytes), text, String(bytes));
});

const result = (code, message = '') => ({ code, message });
const memory = {
  physicalRAM: 2 ** 36, availableRAM: 2 ** 35, usedRAM: 2 ** 35, physicalVRAM: 48 * 2 ** 30,
  availableVRAM: -1, processRAM: 2 ** 26, allocationWouldFail: { '8 GB': false, '128 GB': true },
  vramByDevice: { result: result('Error', 'Not implemented'), deviceResults: [] },
};
const appleGpu = {
  name: 'Apple M2 Max', deviceId: 0, totalMemoryCapacityBytes: 2 ** 36,
  dedicatedMemoryCapacityBytes: 2 ** 64, integrationType: 'Integrated', detectionPlatform: 'Metal',
  detectionPlatformVersion: '', otherInfo: { metalGpuFamilyNumeric: '8', osProductVersion: '14.5' },
};
const arm = { name: 'Apple M2 Max', architecture: 'ARM64', supportedInstructionSetExtensions: ['AdvSIMD'] };
const noCpu = { name: '', architecture: 'Unknown', supportedInstructionSetExtensions: [] };

// [name, report, lines that must appear, lines that must not]
const renderings = [
  ['memory only, before the surveys exist', memory,
    ['Memory', 'Physical RAM 64.00 GiB', 'GPU working set (VRAM) 48.00 GiB', 'GPU-usable memory now unavailable',
      'VRAM per device Error: Not implemented', 'This process 64.00 MiB', 'Allocating 128 GB would fail'],
    ['Processors', 'Machine']],
  ['an Apple-silicon Mac', {
    ...memory, deviceType: 'MacStudio',
    vramByDevice: { result: result('Success'), deviceResults: [
      { result: result('Success'), name: 'gpu0', totalVramBytes: 2 ** 33, freeVramBytes: 2 ** 32 },
      { result: result('Error', 'lost') }] },
    hardware: { gpuSurveyResult: { result: result('Success', 'ok'), gpuInfo: [appleGpu] },
      cpuSurveyResult: { result: result('Success'), cpuInfo: arm } } },
    ['CPU Apple M2 Max', 'Architecture ARM64', 'Vector extensions AdvSIMD', 'GPU Apple M2 Max',
      'Kind Integrated, found through Metal', 'Memory it can reach 64.00 GiB',
      'Recommended working set unavailable', 'Metal GPU family Apple 8', 'macOS 14.5', 'Machine', 'Kind MacStudio',
      'VRAM of gpu0 4.00 GiB free of 8.00 GiB', 'VRAM of device ? Error: lost'],
    ['VRAM per device']],
  ['a PC whose surveys fail', {
    ...memory, deviceType: 'Other',
    hardware: {
      gpuSurveyResult: { result: result('NoDevicesFound', 'Error trying to query Apple gpus: none'), gpuInfo: [] },
      cpuSurveyResult: { result: result('Error', 'boom'), cpuInfo: noCpu } } },
    ['GPU Error trying to query Apple gpus: none', 'CPU Error: boom', 'Kind Other'],
    ['Architecture']],
];

for (const [name, report, present, absent] of renderings) {
  test(`table of ${name}`, () => {
    const lines = render(report).split('\n');
    const squeezed = lines.map((line) => line.trim().replace(/ {2,}/g, ' '));
    for (const line of present) assert.ok(squeezed.includes(line), `missing "${line}" in\n${lines.join('\n')}`);
    for (const word of absent) assert.ok(!squeezed.some((l) => l.startsWith(word)), `unexpected "${word}"`);
    // One column for the values across all sections.
    const starts = new Set(lines.filter((l) => l.startsWith('  ')).map((l) => /^ *\S.*? {2,}(?=\S)/.exec(l)[0].length));
    assert.equal(starts.size, 1, lines.join('\n'));
  });
}

test('a copy of the package without its add-on exits 1 and says why', (t) => {
  const copy = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-cli-'));
  t.after(() => fs.rmSync(copy, { recursive: true, force: true }));
  for (const file of ['package.json', 'index.js', 'bin/libvemora.js']) {
    fs.cpSync(path.join(root, file), path.join(copy, file));
  }
  const child = run(['--json'], {
    script: path.join(copy, 'bin', 'libvemora.js'),
    env: { ...process.env, NODE_PATH: path.join(root, 'node_modules') },
  });
  assert.equal(child.status, 1);
  assert.equal(child.stdout, '');
  assert.match(child.stderr, /^libvemora: could not load its native add-on: No native build was found/);
  assert.match(child.stderr, /npm rebuild libvemora/);
});
