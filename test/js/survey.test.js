'use strict';
// surveyHardware and getDeviceType: this machine's answers against /proc, /sys and nvidia-smi, an Apple-silicon Mac
// on the fake platform, and Linux GPUs from the test NVML and an amdgpu fixture tree.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const { spawnSync } = require('node:child_process');
const { VemoraCore: load, fakeAddonPath, gpuFakeAddonPath, runChild } = require('../harness/addon');

const VemoraCore = load();
const linux = process.platform === 'linux';
const read = (file) => (fs.existsSync(file) ? fs.readFileSync(file, 'latin1') : '');
const success = (message = '') => ({ code: 'Success', message });

// The GPUs as the add-on's own sources list them here: NVML through its nvidia-smi (name, MiB), then the amdgpu
// cards of /sys/class/drm (bytes), or what the add-on says of a machine without any.
function machineGpus() {
  const smi = spawnSync('nvidia-smi', ['--query-gpu=name,memory.total', '--format=csv,noheader,nounits'], { encoding: 'utf8' });
  const nvidia = smi.status === 0 ? smi.stdout.trim().split('\n').map((l) => l.split(', ')) : [];
  const drm = '/sys/class/drm';
  if (!fs.existsSync(drm)) return { nvidia, amd: [], amdNote: `(${drm}: No such file or directory)` };
  const cards = fs.readdirSync(drm).filter((c) => /^card\d+$/.test(c) && fs.existsSync(`${drm}/${c}/device/uevent`))
    .map((c) => [c, /^DRIVER=(.*)$/m.exec(read(`${drm}/${c}/device/uevent`))?.[1] ?? 'no driver']);
  const others = cards.filter(([, d]) => d !== 'amdgpu').map(([c, d]) => `${c}: ${d}`).sort();
  const amd = cards.filter(([, d]) => d === 'amdgpu').map(([c]) => Number(read(`${drm}/${c}/device/mem_info_vram_total`)));
  return { nvidia, amd, amdNote: others.length ? `(${others.join(', ')})` : '' };
}

test('surveyHardware here: fresh objects; on Linux the GPUs NVML and amdgpu list, and the CPU of /proc/cpuinfo', () => {
  const survey = VemoraCore.surveyHardware(123);
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
  const avx2 = /^flags\s*:.*\bavx2\b/m.test(cpuinfo) ? ['AVX2'] : [];
  const [architecture, extensions] = { x86_64: ['x86_64', avx2], aarch64: ['ARM64', ['AdvSIMD']] }[os.machine()] ?? ['Unknown', []];
  const name = /^(?:model name|Model|Hardware)\s*:[ \t]*(\S.*?)[ \t]*$/m.exec(cpuinfo)?.[1] ?? '';
  assert.deepEqual(survey.cpuSurveyResult, { result: success(), cpuInfo: { name, architecture, supportedInstructionSetExtensions: extensions } });
  const { result, gpuInfo } = survey.gpuSurveyResult;
  const { nvidia, amd, amdNote } = machineGpus();
  if (nvidia.length + amd.length === 0) {
    const nvml = /^No GPU found: NVML (could not be loaded \(libnvidia-ml\.so\.1: .+\)|could not start \(.+\)|lists no GPU); /;
    assert.deepEqual([result.code, result.message.replace(nvml, '')],
      ['NoDevicesFound', `no card in /sys/class/drm is driven by amdgpu${amdNote && ` ${amdNote}`}.`]);
  }
  assert.deepEqual(gpuInfo.map((g) => [g.name, Math.floor(g.totalMemoryCapacityBytes / 2 ** 20), g.detectionPlatform]),
    nvidia.map(([n, mib]) => [n, Number(mib), 'CUDA']).concat(gpuInfo.slice(nvidia.length).map((g) => [g.name, 0, 'ROCm'])));
  assert.deepEqual(gpuInfo.slice(nvidia.length).map((g) => g.totalMemoryCapacityBytes).sort(), amd.sort());
});

// Every key's order (the same conversions as on any machine), the GPU half in full (the CPU half's is this machine's
// above), the kind, and macOS's answer for memory per device.
test('an Apple-silicon laptop on the fake platform', () => {
  const Fake = require(fakeAddonPath).VemoraCore;
  const survey = Fake.surveyHardware();
  const { gpuSurveyResult: gpu, cpuSurveyResult: cpu } = survey;
  assert.deepEqual([survey, gpu, gpu.result, cpu, cpu.result, cpu.cpuInfo, ...gpu.gpuInfo].map((o) => Object.keys(o).join()), [
    'gpuSurveyResult,cpuSurveyResult', 'result,gpuInfo', 'code,message', 'result,cpuInfo', 'code,message',
    'name,architecture,supportedInstructionSetExtensions', 'name,deviceId,totalMemoryCapacityBytes,dedicatedMemoryCapacityBytes,' +
      'integrationType,detectionPlatform,detectionPlatformVersion,otherInfo']);
  assert.deepEqual([gpu.gpuInfo, Fake.getDeviceType(), Fake.getAvailableVRAMByDevice()], [[{ name: 'Apple M2 Max', deviceId: 0,
    totalMemoryCapacityBytes: 64 * 2 ** 30, dedicatedMemoryCapacityBytes: 48 * 2 ** 30, integrationType: 'Integrated', detectionPlatform: 'Metal',
    detectionPlatformVersion: '', otherInfo: { metalGpuFamilyNumeric: '8', osProductVersion: '14.5' } }], 'Laptop', // Mac14,6 with a battery
  { result: { code: 'Error', message: 'Not implemented' }, deviceResults: [] }]);
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

// Every GPU method in a child process whose test NVML follows `script` (by default, its two GPUs), beside the fixture
// tree's RX 6800 XT; workers first race to start NVML, which the test NVML refuses to do twice.
function onTestNvml(script = '', workers = 0) {
  const child = runChild('-e', [`const { Worker } = require('node:worker_threads');
    const { VemoraCore: V } = require(process.env.VEMORA_TEST_ADDON);
    const gate = new Int32Array(new SharedArrayBuffer(4));
    const started = Array.from({ length: ${workers} }, () => new Worker(\`const { workerData: gate } = require('node:worker_threads');
      const { VemoraCore } = require(process.env.VEMORA_TEST_ADDON); Atomics.wait(gate, 0, 0); VemoraCore.surveyHardware();\`,
      { eval: true, workerData: gate }));
    setTimeout(() => { Atomics.store(gate, 0, 1); Atomics.notify(gate, 0); }, 200);
    Promise.all(started.map((w) => new Promise((done) => w.once('exit', done)))).then(() => process.stdout.write(JSON.stringify({
      first: V.getAvailableVRAMByDevice(), second: V.getAvailableVRAMByDevice(), total: V.getMachinePhysicalVRAM(),
      free: V.getAvailableVRAM(), survey: V.surveyHardware().gpuSurveyResult })));`],
  { env: { ...process.env, VEMORA_TEST_ADDON: gpuFakeAddonPath, ...(script && { VEMORA_FAKE_NVML_SCRIPT: script }) } });
  assert.equal(child.status, 0, child.stderr);
  return { ...JSON.parse(child.stdout), stderr: child.stderr };
}
const RX_6800_XT = { name: 'AMD Radeon RX 6800 XT', totalVramBytes: 17163091968, freeVramBytes: 16760438784 };
const live = (deviceId, device, result = success()) => ({ result, name: device.name, deviceId, ...device });

test('Linux GPUs from the test NVML and an amdgpu tree: every method, and figures asked afresh', { skip: !linux }, () => {
  const { first, second, total, free, survey, stderr } = onTestNvml();
  const h100 = { name: 'NVIDIA H100 80GB HBM3', totalVramBytes: 85520809984, freeVramBytes: 84900000000 };
  const rtx = { name: 'NVIDIA GeForce RTX 4090', totalVramBytes: 25757220864, freeVramBytes: 25000000000 };
  assert.deepEqual(first, { result: success('Read the memory of 3 GPUs.'), deviceResults: [live(0, h100), live(1, rtx), live(2, RX_6800_XT)] });
  assert.deepEqual(Object.keys(first.deviceResults[0]), ['result', 'name', 'deviceId', 'totalVramBytes', 'freeVramBytes']);
  assert.deepEqual(second.deviceResults.map((d) => d.freeVramBytes), [84000000000, 25000000000, 16760438784]);
  assert.deepEqual([total, free, stderr], [85520809984 + 25757220864 + 17163091968, 84000000000 + 25000000000 + 16760438784, '']);
  const gpu = (deviceId, name, bytes, detectionPlatform, version, otherInfo) => ({ name, deviceId, totalMemoryCapacityBytes: bytes,
    dedicatedMemoryCapacityBytes: bytes, integrationType: 'Discrete', detectionPlatform, detectionPlatformVersion: version, otherInfo });
  const nvml = (bus, id, n) => ({ driverVersion: '580.65.06', pciBusId: bus, pciDeviceId: id, uuid: `GPU-fa4e0000-0000-0000-0000-00000000000${n}` });
  assert.deepEqual(survey, { result: success('Found 3 GPUs: 2 through NVML, 1 through amdgpu.'), gpuInfo: [
    gpu(0, h100.name, h100.totalVramBytes, 'CUDA', '12.4', nvml('00000000:65:00.0', '10DE:2330', 0)),
    gpu(1, rtx.name, rtx.totalVramBytes, 'CUDA', '12.4', nvml('00000000:B3:00.0', '10DE:2684', 1)),
    gpu(2, RX_6800_XT.name, RX_6800_XT.totalVramBytes, 'ROCm', '6.10.5', { pciBusId: '0000:03:00.0', pciDeviceId: '1002:73BF', driverVersion: '6.10.5' }),
  ] });
});

test('Linux GPUs: a lost GPU carries its own failure, and NVML without its driver leaves amdgpu', { skip: !linux }, () => {
  const lost = onTestNvml('gpu|NVIDIA A100-SXM4-40GB|42949672960|40000000000|||0|15\n', 4);
  const why = 'nvmlDeviceGetMemoryInfo_v2: GPU is lost';
  assert.deepEqual([lost.first, lost.total, lost.free, lost.stderr], [
    { result: success('Read the memory of 1 of 2 GPUs; each device says why.'), deviceResults: [
      { result: { code: 'Error', message: why }, name: 'NVIDIA A100-SXM4-40GB', deviceId: 0 }, live(1, RX_6800_XT)] },
    -1, -1, `GPU memory: NVIDIA A100-SXM4-40GB (GPU 0): ${why}\n`.repeat(2)]);
  assert.equal(lost.survey.gpuInfo[0].totalMemoryCapacityBytes, 2 ** 64);
  const unloaded = onTestNvml('init|9\n');
  assert.deepEqual([unloaded.survey.result, unloaded.total, unloaded.free], [
    success('Found 1 GPU through amdgpu. Also: NVML could not start (nvmlInit_v2: Driver Not Loaded).'),
    RX_6800_XT.totalVramBytes, RX_6800_XT.freeVramBytes]);
});
