'use strict';
// surveyHardware and getDeviceType: keys and their order, this machine's
// answers against /proc and /sys, and an Apple-silicon Mac on the fake platform.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const { VemoraCore: load, fakeAddonPath } = require('../harness/addon');

const VemoraCore = load();
const linux = process.platform === 'linux';
const read = (file) => (fs.existsSync(file) ? fs.readFileSync(file, 'latin1') : '');
const success = (message = '') => ({ code: 'Success', message });

function assertKeys(survey) {
  const { gpuSurveyResult: gpu, cpuSurveyResult: cpu } = survey;
  assert.deepEqual([survey, gpu, gpu.result, cpu, cpu.result, cpu.cpuInfo, ...gpu.gpuInfo].map((o) => Object.keys(o).join()), [
    'gpuSurveyResult,cpuSurveyResult', 'result,gpuInfo', 'code,message', 'result,cpuInfo', 'code,message',
    'name,architecture,supportedInstructionSetExtensions', ...gpu.gpuInfo.map(() => 'name,deviceId,totalMemoryCapacityBytes,' +
      'dedicatedMemoryCapacityBytes,integrationType,detectionPlatform,detectionPlatformVersion,otherInfo')]);
}

test('surveyHardware here: keys in order, fresh objects; the CPU as /proc/cpuinfo or os.cpus() names it', () => {
  const survey = VemoraCore.surveyHardware(123);
  assertKeys(survey);
  assert.notEqual(VemoraCore.surveyHardware(), survey);
  if (process.platform === 'win32') {
    // Windows records the name it reads from cpuid in the registry, where os.cpus() reads it.
    const { name, architecture, supportedInstructionSetExtensions: extensions } = survey.cpuSurveyResult.cpuInfo;
    assert.deepEqual([name, architecture], [os.cpus()[0].model.trim(), { x64: 'x86_64', arm64: 'ARM64' }[os.arch()]]);
    assert.ok(['', 'AVX2', 'AdvSIMD'].includes(extensions.join()), extensions.join());
    assert.ok(survey.gpuSurveyResult.gpuInfo.every((gpu, i) => gpu.deviceId === i && gpu.detectionPlatform === 'DirectML'));
  }
  if (!linux) return;
  const cpuinfo = read('/proc/cpuinfo');
  const avx2 = /^flags\s*:.*\bavx2\b/m.test(cpuinfo);
  const [architecture, extensions] =
    { x86_64: ['x86_64', avx2 ? ['AVX2'] : []], aarch64: ['ARM64', ['AdvSIMD']] }[os.machine()] ?? ['Unknown', []];
  const name = /^(?:model name|Model|Hardware)\s*:[ \t]*(\S.*?)[ \t]*$/m.exec(cpuinfo)?.[1] ?? '';
  assert.deepEqual(survey, {
    gpuSurveyResult: { result: { code: 'NoDevicesFound', message: 'No GPU source is read on Linux yet' }, gpuInfo: [] },
    cpuSurveyResult: { result: success(), cpuInfo: { name, architecture, supportedInstructionSetExtensions: extensions } },
  });
});

test('surveyHardware and getDeviceType on an Apple-silicon laptop (fake platform)', () => {
  const Fake = require(fakeAddonPath).VemoraCore;
  const survey = Fake.surveyHardware();
  assertKeys(survey);
  assert.deepEqual(survey, {
    gpuSurveyResult: { result: success('Successfully queried Apple Silicon for GPU Info.'), gpuInfo: [{
      name: 'Apple M2 Max', deviceId: 0, totalMemoryCapacityBytes: 64 * 2 ** 30, dedicatedMemoryCapacityBytes: 48 * 2 ** 30,
      integrationType: 'Integrated', detectionPlatform: 'Metal', detectionPlatformVersion: '',
      otherInfo: { metalGpuFamilyNumeric: '8', osProductVersion: '14.5' },
    }] },
    cpuSurveyResult: { result: success(),
      cpuInfo: { name: 'Apple M2 Max', architecture: 'ARM64', supportedInstructionSetExtensions: ['AdvSIMD'] } },
  });
  assert.equal(Fake.getDeviceType(), 'Laptop'); // Mac14,6 with an internal battery
});

test('getDeviceType here: as the DMI product name and the power supplies say', { skip: !linux }, () => {
  const model = read('/sys/class/dmi/id/product_name').split('\n')[0].trim() || read('/proc/device-tree/model').replace(/\0+$/, '');
  const supplies = '/sys/class/power_supply';
  const battery = (fs.existsSync(supplies) ? fs.readdirSync(supplies) : []).some((s) =>
    read(`${supplies}/${s}/type`).trim() === 'Battery' && read(`${supplies}/${s}/scope`).trim() !== 'Device');
  const type = VemoraCore.getDeviceType(123);
  // Which Mac a model identifier names is for the native tests; here, that it is read.
  if (/^i?Mac/.test(model)) assert.notEqual(type, 'Other', model);
  else assert.equal(type, battery ? 'Laptop' : 'Other', model);
});
