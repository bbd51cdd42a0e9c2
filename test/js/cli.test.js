'use strict';
// The command line: exit codes (from a copy of the package without its add-on
// too), --json against the add-on, the rows of an Apple-silicon Mac and of a
// Linux machine's GPUs.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { root } = require('../harness/addon');
const { render, USAGE } = require('../../bin/libvemora');

const { VemoraCore } = require(root);
const run = (args, dir = root) => spawnSync(process.execPath, [path.join(dir, 'bin', 'libvemora.js'), ...args], { encoding: 'utf8' });

test('exit codes and what goes where', (t) => {
  const copy = fs.mkdtempSync(path.join(os.tmpdir(), 'vemora-cli-'));
  t.after(() => fs.rmSync(copy, { recursive: true, force: true }));
  for (const file of ['package.json', 'index.js', 'bin/libvemora.js']) fs.cpSync(path.join(root, file), path.join(copy, file));
  // [args, exit status, stdout (text or pattern), stderr pattern, package]
  const invocations = [
    [['--help'], 0, USAGE, /^$/],
    [['-v'], 0, `${require('../../package.json').version}\n`, /^$/],
    [['--bogus'], 2, '', /^libvemora: Unknown option '--bogus'.*\n\nUsage: libvemora/s],
    [[], 0, /^Memory\n {2}Physical RAM +\S/, /^/],
    [['--json'], 1, '', /^libvemora: no prebuilt add-on for \S+: @libvemora\/\S+ is not installed.*\n {2}npx cmake-js compile/s, copy],
  ];
  for (const [args, status, stdout, stderr, dir] of invocations) {
    const child = run(args, dir);
    assert.equal(child.status, status, `${args}: ${child.stderr}`);
    if (typeof stdout === 'string') assert.equal(child.stdout, stdout, String(args));
    else assert.match(child.stdout, stdout);
    assert.match(child.stderr, stderr);
  }
});

test('--json reports what the add-on reports', () => {
  const report = JSON.parse(run(['--json']).stdout);
  assert.deepEqual([report.physicalRAM, report.physicalVRAM, report.vramByDevice, report.hardware, report.deviceType],
    [VemoraCore.getMachinePhysicalRAM(), VemoraCore.getMachinePhysicalVRAM(), VemoraCore.getAvailableVRAMByDevice(),
      VemoraCore.surveyHardware(), VemoraCore.getDeviceType()]);
  assert.ok(report.usedRAM <= report.physicalRAM && report.processRAM > 0);
});

// The rendered lines with each label's padding folded to ': '.
const fold = (text) => text.split('\n').map((line) => line.replace(/(\S) {2,}/, '$1: '));
const result = (code, message = '') => ({ code, message });
const gpu = (deviceId, name, detectionPlatform, detectionPlatformVersion, otherInfo, bytes = 2 ** 34, dedicated = bytes) => ({ name, deviceId,
  totalMemoryCapacityBytes: bytes, dedicatedMemoryCapacityBytes: dedicated, integrationType: deviceId ? 'Discrete' : 'Integrated', detectionPlatform, detectionPlatformVersion, otherInfo });

test('an Apple-silicon Mac: binary units, failures unavailable, one value column', () => {
  const text = render({
    physicalRAM: 2 ** 36, availableRAM: 1536, usedRAM: -1, physicalVRAM: 48 * 2 ** 30, availableVRAM: -1, processRAM: 1023,
    vramByDevice: { result: result('Error', 'Not implemented'), deviceResults: [] }, allocationWouldFail: { '8 GB': false, '128 GB': true },
    hardware: { gpuSurveyResult: { result: result('Success', 'ok'), gpuInfo: [gpu(0, 'Apple M2 Max', 'Metal', '', { metalGpuFamilyNumeric: '8' }, 2 ** 36, 2 ** 64)] },
      cpuSurveyResult: { result: result('Success'), cpuInfo: { name: 'Apple M2 Max', architecture: 'ARM64', supportedInstructionSetExtensions: ['AdvSIMD'] } } },
    deviceType: 'MacStudio',
  });
  assert.match(text, /^ {2}Physical RAM {15}64\.00 GiB$/m);
  assert.deepEqual(fold(text), ['Memory', '  Physical RAM: 64.00 GiB', '  Available RAM: 1.50 KiB', '  Used RAM: unavailable',
    '  GPU working set (VRAM): 48.00 GiB', '  GPU-usable memory now: unavailable', '  VRAM per device: Error: Not implemented',
    '  This process: 1023 B', '  Allocating 8 GB: fits', '  Allocating 128 GB: would fail', '', 'Processors', '  CPU: Apple M2 Max',
    '  Architecture: ARM64', '  Vector extensions: AdvSIMD', '  GPU: Apple M2 Max', '    Kind: Integrated, found through Metal',
    '    Memory it can reach: 64.00 GiB', '    Recommended working set: unavailable', '    Metal GPU family: Apple 8', '', 'Machine', '  Kind: MacStudio']);
});

test('the GPUs of a Linux machine: each with its memory, or why not, and its facts once', () => {
  const text = render({ physicalRAM: 0, availableRAM: 0, usedRAM: 0, physicalVRAM: 2 ** 35, availableVRAM: -1, processRAM: 0, allocationWouldFail: {},
    vramByDevice: { result: result('Success'), deviceResults: [{ result: result('Success'), deviceId: 1, totalVramBytes: 2 ** 34, freeVramBytes: 2 ** 33 },
      { result: result('Error', 'nvmlDeviceGetMemoryInfo_v2: GPU is lost'), deviceId: 2 }] },
    hardware: { cpuSurveyResult: { result: result('Error', 'x') }, gpuSurveyResult: { result: result('Success'), gpuInfo: [
      gpu(1, 'H100', 'CUDA', '12.4', { uuid: 'GPU-1', driverVersion: '580.65.06' }), gpu(2, 'RX 6800 XT', 'ROCm', '6.10.5', { driverVersion: '6.10.5' })] } } });
  assert.deepEqual(fold(text).filter((l) => /VRAM|^ {2}(GPU|CPU|  )/.test(l)), ['  VRAM, all GPUs: 32.00 GiB', '  VRAM free now, all GPUs: unavailable',
    '  CPU: Error: x', '  GPU: H100', '    Kind: Discrete, found through CUDA', '    Memory: 8.00 GiB free of 16.00 GiB',
    '    CUDA version: 12.4', '    driverVersion: 580.65.06', '    uuid: GPU-1', '  GPU: RX 6800 XT', '    Kind: Discrete, found through ROCm',
    '    Memory: Error: nvmlDeviceGetMemoryInfo_v2: GPU is lost', '    driverVersion: 6.10.5']);
});
