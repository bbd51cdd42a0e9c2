'use strict';
// surveyHardware and getDeviceType: the shapes JavaScript sees, this machine's
// answers against /proc and /sys, and an Apple-silicon survey on the fake
// platform.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { VemoraCore: load, fakeAddonPath } = require('../harness/addon');

const VemoraCore = load();
const linux = process.platform === 'linux';
const DEVICE_TYPES = ['Laptop', 'Desktop', 'MacMini', 'MacStudio', 'Other'];
const GPU_KEYS = ['name', 'deviceId', 'totalMemoryCapacityBytes', 'dedicatedMemoryCapacityBytes',
  'integrationType', 'detectionPlatform', 'detectionPlatformVersion', 'otherInfo'];

// Keys, in order, at every level of a survey object.
function assertShape(survey) {
  const shape = [
    [survey, ['gpuSurveyResult', 'cpuSurveyResult']],
    [survey.gpuSurveyResult, ['result', 'gpuInfo']],
    [survey.gpuSurveyResult.result, ['code', 'message']],
    [survey.cpuSurveyResult, ['result', 'cpuInfo']],
    [survey.cpuSurveyResult.result, ['code', 'message']],
    [survey.cpuSurveyResult.cpuInfo, ['name', 'architecture', 'supportedInstructionSetExtensions']],
    ...survey.gpuSurveyResult.gpuInfo.map((gpu) => [gpu, GPU_KEYS]),
  ];
  for (const [object, keys] of shape) assert.deepEqual(Object.keys(object), keys);
  assert.ok(Array.isArray(survey.gpuSurveyResult.gpuInfo));
  assert.ok(Array.isArray(survey.cpuSurveyResult.cpuInfo.supportedInstructionSetExtensions));
}

const read = (file) => { try { return fs.readFileSync(file, 'latin1'); } catch { return null; } };

test('surveyHardware: keys in order at every level, a fresh object per call', () => {
  const first = VemoraCore.surveyHardware();
  assertShape(first);
  const second = VemoraCore.surveyHardware(123);
  assert.notEqual(first, second);
  first.cpuSurveyResult.cpuInfo.name = 'changed';
  assert.notEqual(second.cpuSurveyResult.cpuInfo.name, 'changed');
});

test('surveyHardware on Linux: no Apple GPU, the CPU as /proc/cpuinfo and uname say', {
  skip: !linux,
}, () => {
  const { gpuSurveyResult, cpuSurveyResult } = VemoraCore.surveyHardware();
  assert.deepEqual(gpuSurveyResult, {
    result: {
      code: 'NoDevicesFound',
      message: 'Error trying to query Apple gpus: ' +
        'No Apple GPUs found or not an Apple ARM64 platform.',
    },
    gpuInfo: [],
  });
  const cpuinfo = read('/proc/cpuinfo');
  const name = /^(?:model name|Model|Hardware)\s*:[ \t]*(\S.*?)[ \t]*$/m.exec(cpuinfo);
  const flags = (/^flags\s*:(.*)$/m.exec(cpuinfo) || ['', ''])[1].split(/\s+/);
  const expected = {
    x86_64: ['x86_64', flags.includes('avx2') ? ['AVX2'] : []],
    aarch64: ['ARM64', ['AdvSIMD']],
  }[os.machine()] || ['Unknown', []];
  assert.deepEqual(cpuSurveyResult, {
    result: { code: 'Success', message: '' },
    cpuInfo: {
      name: name ? name[1] : '',
      architecture: expected[0],
      supportedInstructionSetExtensions: expected[1],
    },
  });
});

test('surveyHardware on an Apple-silicon Mac (fake platform)', () => {
  const survey = require(fakeAddonPath).VemoraCore.surveyHardware();
  assertShape(survey);
  assert.deepEqual(survey.gpuSurveyResult, {
    result: { code: 'Success', message: 'Successfully queried Apple Silicon for GPU Info.' },
    gpuInfo: [{
      name: 'Apple M2 Max',
      deviceId: 0,
      totalMemoryCapacityBytes: 64 * 2 ** 30,
      dedicatedMemoryCapacityBytes: 48 * 2 ** 30,
      integrationType: 'Integrated',
      detectionPlatform: 'Metal',
      detectionPlatformVersion: '',
      otherInfo: { metalGpuFamilyNumeric: '8', osProductVersion: '14.5' },
    }],
  });
  assert.deepEqual(survey.cpuSurveyResult, {
    result: { code: 'Success', message: '' },
    cpuInfo: {
      name: 'Apple M2 Max', architecture: 'ARM64', supportedInstructionSetExtensions: ['AdvSIMD'],
    },
  });
});

// The machine's kind as the DMI product name (or the device tree's model) and
// its power supplies describe it.
function expectedDeviceType() {
  const dmi = (read('/sys/class/dmi/id/product_name') || '').split('\n')[0].trim();
  const tree = (read('/proc/device-tree/model') || '').replace(/\0+$/, '');
  const model = dmi || tree || null;
  const supplies = '/sys/class/power_supply';
  const battery = (fs.existsSync(supplies) ? fs.readdirSync(supplies) : []).some((supply) => {
    const attribute = (name) => (read(path.join(supplies, supply, name)) || '').trim();
    return attribute('type') === 'Battery' && attribute('scope') !== 'Device';
  });
  const minis = ['Mac14,3', 'Mac14,12', 'Mac16,10', 'Mac16,11', 'Macmini8,1', 'Macmini9,1'];
  const studios = ['Mac13,1', 'Mac13,2', 'Mac14,13', 'Mac14,14', 'Mac15,13', 'Mac15,14', 'Mac16,9'];
  if (model?.startsWith('MacBook')) return 'Laptop';
  if (model?.startsWith('Macmini') || minis.includes(model)) return 'MacMini';
  if (model?.startsWith('MacStudio') || studios.includes(model)) return 'MacStudio';
  if (battery) return 'Laptop';
  if (model === null) return 'Other';
  return model.startsWith('Mac') || model.startsWith('iMac') ? 'Desktop' : 'Other';
}

test('getDeviceType: one of the five names, as DMI and the power supplies say', () => {
  const type = VemoraCore.getDeviceType(123);
  assert.ok(DEVICE_TYPES.includes(type), type);
  if (linux) assert.equal(type, expectedDeviceType());
  assert.equal(require(fakeAddonPath).VemoraCore.getDeviceType(), 'Laptop'); // Mac14,6 on battery
});
