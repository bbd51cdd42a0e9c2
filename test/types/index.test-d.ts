// A CommonJS consumer of the types: every static, the returned shapes, and the
// calls that must not compile.
import { expectAssignable, expectError, expectNotAssignable, expectType } from 'tsd';
import {
  VemoraCore,
  type CpuInfo,
  type DeviceTypeName,
  type GpuInfo,
  type GpuLiveMemory,
  type GpuLiveMemoryReport,
  type HardwareSurveyResult,
  type Result,
  type ResultCodeName,
} from 'libvemora';

expectType<-1>(VemoraCore.CPU_USAGE_ERROR_CODE);
expectType<-1>(VemoraCore.RAM_METER_ERROR_CODE);
expectError((VemoraCore.RAM_METER_ERROR_CODE = -1));

expectType<number>(VemoraCore.getMachinePhysicalRAM());
expectType<number>(VemoraCore.getAvailableRAM());
expectType<number>(VemoraCore.getMachinePhysicalVRAM());
expectType<number>(VemoraCore.getAvailableVRAM());
expectType<number>(VemoraCore.getProcessUsedRAM(1));
expectType<boolean>(VemoraCore.willFailToAllocate(8e9));
expectType<number>(VemoraCore.getCpuUsage(0, 1000));
expectType<DeviceTypeName>(VemoraCore.getDeviceType());

expectError(VemoraCore.getProcessUsedRAM());
expectError(VemoraCore.getProcessUsedRAM('42'));
expectError(VemoraCore.willFailToAllocate());
expectError(VemoraCore.willFailToAllocate(8n));
expectError(VemoraCore.getCpuUsage(1));

// A class to construct, not to call; instances have nothing on them.
expectType<VemoraCore>(new VemoraCore());
expectError(VemoraCore());
// @ts-expect-error the statics are not on instances
new VemoraCore().getAvailableRAM();

// Per-device report: optional keys are absent, never undefined.
const report = VemoraCore.getAvailableVRAMByDevice();
expectType<GpuLiveMemoryReport>(report);
expectType<ResultCodeName>(report.result.code);
const device: GpuLiveMemory | undefined = report.deviceResults[0];
if (device) {
  expectType<string | undefined>(device.name);
  expectType<number | undefined>(device.freeVramBytes);
}
const notImplemented: Result = { code: 'Error', message: 'Not implemented' };
expectAssignable<GpuLiveMemory>({ result: notImplemented });
expectNotAssignable<GpuLiveMemory>({ result: notImplemented, name: undefined });
expectNotAssignable<ResultCodeName>('Failed');

// Survey: two halves, enumeration names as literal unions.
const survey = VemoraCore.surveyHardware();
expectType<HardwareSurveyResult>(survey);
expectType<CpuInfo>(survey.cpuSurveyResult.cpuInfo);
expectType<'x86_64' | 'ARM64' | 'Unknown'>(survey.cpuSurveyResult.cpuInfo.architecture);
expectType<('AVX' | 'AVX2' | 'AdvSIMD')[]>(survey.cpuSurveyResult.cpuInfo.supportedInstructionSetExtensions);
const gpu: GpuInfo | undefined = survey.gpuSurveyResult.gpuInfo[0];
if (gpu) {
  expectType<'Unknown' | 'Integrated' | 'Discrete'>(gpu.integrationType);
  expectType<string | undefined>(gpu.otherInfo.metalGpuFamilyNumeric);
  expectType<string | undefined>(gpu.otherInfo['anything else']);
  expectNotAssignable<GpuInfo['detectionPlatform']>('OpenCL');
}
expectNotAssignable<DeviceTypeName>('Mac mini');
