#!/usr/bin/env node
'use strict';
// Prints this machine's report: memory figures, and the CPU, GPUs and kind of
// machine where the add-on can survey them. Readable by default, JSON with --json.
const { parseArgs } = require('node:util');

const { version } = require('../package.json');

const USAGE = `Usage: libvemora [--json]

Prints what this machine can hold and what it is, as measured now by the
libvemora add-on: physical, available and used RAM, GPU-usable memory, this
process's memory, whether allocations of a few sizes would fail, and where
available the CPU, the GPUs (each with its total and free memory) and the kind
of machine.

Options:
  --json         print the report as JSON (byte counts in bytes, -1 = unavailable)
  -h, --help     print this help and exit
  -v, --version  print the version and exit
`;

const OPTIONS = {
  json: { type: 'boolean' },
  help: { type: 'boolean', short: 'h' },
  version: { type: 'boolean', short: 'v' },
};

const UNITS = ['B', 'KiB', 'MiB', 'GiB', 'TiB', 'PiB'];

// Binary units, as the operating systems report memory. The failure values are
// "unavailable": -1, and 2^64, which is how the GPU survey's unsigned fields
// carry a failed reading.
function formatSize(bytes) {
  if (typeof bytes !== 'number' || !(bytes >= 0 && bytes < 2 ** 64)) return 'unavailable';
  let unit = 0;
  while (unit < UNITS.length - 1 && bytes >= 1024 ** (unit + 1)) unit++;
  if (unit === 0) return `${bytes} B`;
  return `${(bytes / 1024 ** unit).toFixed(2)} ${UNITS[unit]}`;
}

const ALLOCATION_SIZES_GB = [1, 8, 32, 128];

function collect(VemoraCore) {
  const physical = VemoraCore.getMachinePhysicalRAM();
  const available = VemoraCore.getAvailableRAM();
  const allocationWouldFail = {};
  for (const gb of ALLOCATION_SIZES_GB) {
    allocationWouldFail[`${gb} GB`] = VemoraCore.willFailToAllocate(gb * 1e9);
  }
  const report = {
    physicalRAM: physical,
    availableRAM: available,
    usedRAM: physical >= 0 && available >= 0 ? Math.max(physical - available, 0) : -1,
    physicalVRAM: VemoraCore.getMachinePhysicalVRAM(),
    availableVRAM: VemoraCore.getAvailableVRAM(),
    vramByDevice: VemoraCore.getAvailableVRAMByDevice(),
    processRAM: VemoraCore.getProcessUsedRAM(process.pid),
    allocationWouldFail,
    hardware: VemoraCore.surveyHardware(),
    deviceType: VemoraCore.getDeviceType(),
  };
  return report;
}

function failed(result) {
  return `${result.code}${result.message ? `: ${result.message}` : ''}`;
}

// Unified memory (a Metal GPU) has a working set and a headroom; GPUs with
// memory of their own have their VRAM, summed over them.
function memoryRows(report) {
  const unified = report.hardware?.gpuSurveyResult.gpuInfo.some((gpu) => gpu.detectionPlatform === 'Metal') ?? true;
  const rows = [
    ['Physical RAM', formatSize(report.physicalRAM)],
    ['Available RAM', formatSize(report.availableRAM)],
    ['Used RAM', formatSize(report.usedRAM)],
    [unified ? 'GPU working set (VRAM)' : 'VRAM, all GPUs', formatSize(report.physicalVRAM)],
    [unified ? 'GPU-usable memory now' : 'VRAM free now, all GPUs', formatSize(report.availableVRAM)],
  ];
  const { result, deviceResults } = report.vramByDevice;
  // The GPU section says why there is none, and shows each GPU's memory.
  if (result.code !== 'Success' && result.code !== 'NoDevicesFound') rows.push(['VRAM per device', failed(result)]);
  for (const device of report.hardware ? [] : deviceResults) {
    rows.push([`VRAM of ${device.name ?? `device ${device.deviceId ?? '?'}`}`, liveMemory(device)]);
  }
  rows.push(['This process', formatSize(report.processRAM)]);
  for (const [size, fails] of Object.entries(report.allocationWouldFail)) {
    rows.push([`Allocating ${size}`, fails ? 'would fail' : 'fits']);
  }
  return rows;
}

function liveMemory(device) {
  return device.result.code === 'Success'
    ? `${formatSize(device.freeVramBytes ?? -1)} free of ${formatSize(device.totalVramBytes ?? -1)}`
    : failed(device.result);
}

function cpuRows({ result, cpuInfo }) {
  if (result.code !== 'Success') return [['CPU', failed(result)]];
  const extensions = cpuInfo.supportedInstructionSetExtensions;
  return [
    ['CPU', cpuInfo.name || 'unknown'],
    ['Architecture', cpuInfo.architecture],
    ['Vector extensions', extensions.length ? [...extensions].sort().join(', ') : 'none'],
  ];
}

function gpuRows({ result, gpuInfo }, { deviceResults }) {
  if (gpuInfo.length === 0) return [['GPU', result.message || failed(result)]];
  const rows = [];
  for (const gpu of gpuInfo) {
    rows.push(['GPU', gpu.name || 'unknown']);
    rows.push(['  Kind', `${gpu.integrationType}, found through ${gpu.detectionPlatform}`]);
    if (gpu.detectionPlatform === 'Metal') {
      rows.push(['  Memory it can reach', formatSize(gpu.totalMemoryCapacityBytes)]);
      rows.push(['  Recommended working set', formatSize(gpu.dedicatedMemoryCapacityBytes)]);
    } else {
      const live = deviceResults.find((device) => device.deviceId === gpu.deviceId);
      rows.push(['  Memory', live ? liveMemory(live) : formatSize(gpu.totalMemoryCapacityBytes)]);
    }
    // amdgpu's version is its driver's, shown once.
    const version = gpu.detectionPlatformVersion;
    if (version && version !== gpu.otherInfo.driverVersion) rows.push([`  ${gpu.detectionPlatform} version`, version]);
    const { metalGpuFamilyNumeric, osProductVersion, ...other } = gpu.otherInfo;
    if (metalGpuFamilyNumeric !== undefined) rows.push(['  Metal GPU family', `Apple ${metalGpuFamilyNumeric}`]);
    if (osProductVersion !== undefined) rows.push(['  macOS', osProductVersion]);
    for (const [key, value] of Object.entries(other).sort()) rows.push([`  ${key}`, value]);
  }
  return rows;
}

function render(report) {
  const sections = [['Memory', memoryRows(report)]];
  if (report.hardware) {
    sections.push(['Processors', [...cpuRows(report.hardware.cpuSurveyResult),
      ...gpuRows(report.hardware.gpuSurveyResult, report.vramByDevice)]]);
  }
  if (report.deviceType !== undefined) sections.push(['Machine', [['Kind', report.deviceType]]]);
  const width = Math.max(...sections.flatMap(([, rows]) => rows.map(([label]) => label.length)));
  return sections
    .map(([title, rows]) => [title, ...rows.map(([label, value]) => `  ${label.padEnd(width)}  ${value}`)].join('\n'))
    .join('\n\n');
}

function main(argv, out = process.stdout, err = process.stderr) {
  let values;
  try {
    ({ values } = parseArgs({ args: argv, options: OPTIONS, strict: true, allowPositionals: false }));
  } catch (error) {
    err.write(`libvemora: ${error.message}\n\n${USAGE}`);
    return 2;
  }
  if (values.help) {
    out.write(USAGE);
    return 0;
  }
  if (values.version) {
    out.write(`${version}\n`);
    return 0;
  }
  let VemoraCore;
  try {
    ({ VemoraCore } = require('..'));
  } catch (error) {
    err.write(`${error.message}\n`);
    return 1;
  }
  const report = collect(VemoraCore);
  out.write(values.json ? `${JSON.stringify(report, null, 2)}\n` : `${render(report)}\n`);
  return 0;
}

module.exports = { formatSize, collect, render, main, USAGE };

if (require.main === module) process.exitCode = main(process.argv.slice(2));
