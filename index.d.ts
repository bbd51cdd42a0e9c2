// Types of libvemora: the VemoraCore class and the plain objects it returns.
//
// Every byte count is a JavaScript number (exact up to 2^53 bytes). Every
// figure is asked of the operating system at the moment of the call; nothing
// is cached, so two calls in a row may differ.

/** Name of a status code, as written in every `Result`. */
export type ResultCodeName =
  | 'Unset'
  | 'Success'
  | 'Error'
  | 'NoDevicesFound'
  | 'InvalidDevice'
  | 'InitializationFailed'
  | 'LibraryLoadFailed'
  | 'FunctionNotAvailable'
  | 'NotImplemented'
  /** A code the add-on does not know. */
  | 'Unknown';

/** Instruction set of a CPU. */
export type CpuArchitectureName = 'x86_64' | 'ARM64' | 'Unknown';

/** Vector instruction-set extension of a CPU (Advanced SIMD is ARM's NEON). */
export type CpuInstructionSetExtensionName = 'AVX' | 'AVX2' | 'AdvSIMD';

/** Whether a GPU shares the CPU's memory (`Integrated`) or has its own (`Discrete`). */
export type GpuIntegrationTypeName = 'Unknown' | 'Integrated' | 'Discrete';

/**
 * The interface through which a GPU was found: `Metal` on macOS; on Linux
 * `CUDA` (NVIDIA's GPUs, through NVML) and `ROCm` (GPUs driven by amdgpu).
 */
export type GpuDetectionPlatformName =
  | 'Unknown'
  | 'ROCm'
  | 'CUDA'
  | 'OpenCl'
  | 'Metal'
  | 'DirectML'
  | 'Vulkan'
  | 'OpenVINO';

/** The kind of machine; `Other` when it cannot be placed. */
export type DeviceTypeName = 'Laptop' | 'Desktop' | 'MacMini' | 'MacStudio' | 'Other';

/** Outcome of a survey or report: a status code and a human-readable text. */
export interface Result {
  code: ResultCodeName;
  /** The reason on failure; a confirmation or the empty string on success. */
  message: string;
}

/**
 * Live memory of one GPU. Each key other than `result` is present only when
 * the platform gave that figure; an absent figure is left out, never set to
 * `undefined` or `null`.
 */
export interface GpuLiveMemory {
  /** `Success` with an empty message, or `Error` with why its figures could not be read. */
  result: Result;
  name?: string;
  /** The GPU's index, the same `deviceId` as in `surveyHardware()`. */
  deviceId?: number;
  /** The GPU's own memory, in bytes (NVML's total; amdgpu's `mem_info_vram_total`). */
  totalVramBytes?: number;
  /**
   * The GPU's free memory at the moment of the call, in bytes, whoever holds
   * the rest (NVML's free; amdgpu's total less `mem_info_vram_used`).
   */
  freeVramBytes?: number;
}

/** Per-device GPU memory report returned by `VemoraCore.getAvailableVRAMByDevice()`. */
export interface GpuLiveMemoryReport {
  /**
   * Overall outcome. Unified memory has no per-device figures: `{ code:
   * 'Error', message: 'Not implemented' }` on macOS. On Linux `Success` when
   * GPUs were found (each element then says whether its figures were read),
   * `NoDevicesFound` with what was tried when none was.
   */
  result: Result;
  /** One element per GPU, in survey order; empty when `result` is not a success. */
  deviceResults: GpuLiveMemory[];
}

/**
 * Further facts about a GPU that have no key of their own; all values are
 * text. The Metal survey fills the first two keys when it learns them; on
 * Linux a GPU has `pciBusId` and `pciDeviceId`, and `driverVersion` when the
 * driver publishes one, and an NVIDIA GPU its `uuid`.
 */
export interface GpuOtherInfo {
  /** N of the highest Apple GPU family (`MTLGPUFamilyAppleN`) the device supports, in decimal, e.g. `"9"`. */
  metalGpuFamilyNumeric?: string;
  /** The operating system's product version (`kern.osproductversion`), e.g. `"14.5"`. */
  osProductVersion?: string;
  /** The GPU's PCI address, e.g. `"00000000:65:00.0"` (NVML) or `"0000:03:00.0"` (amdgpu). */
  pciBusId?: string;
  /** The vendor and device PCI ids, e.g. `"10DE:2330"`. */
  pciDeviceId?: string;
  /** The NVIDIA driver's version (`"580.65.06"`), or the amdgpu DKMS driver's. */
  driverVersion?: string;
  /** NVML's UUID of an NVIDIA GPU, e.g. `"GPU-…"`. */
  uuid?: string;
  [key: string]: string | undefined;
}

/** One GPU as the hardware survey reports it. */
export interface GpuInfo {
  /**
   * The Metal device's name, or `"Apple Silicon"` when Metal gives none. On
   * Linux NVML's name; for amdgpu the board's `product_name`, else libdrm's
   * name for its PCI ids, else `"AMD GPU 1002:73BF"`.
   */
  name: string;
  /**
   * The GPU's index in the list: 0 for the one Apple-silicon GPU; on Linux
   * NVML's GPUs in NVML's order, then amdgpu's in PCI slot order.
   */
  deviceId: number;
  /**
   * Memory the GPU can reach, in bytes: on Apple silicon the machine's physical
   * RAM (unified memory); on Linux the GPU's own memory. A failed reading is
   * stored as 2^64 (18446744073709551616), not -1.
   */
  totalMemoryCapacityBytes: number;
  /**
   * Memory set aside for the GPU, in bytes: on Apple silicon Metal's
   * recommended working set; on Linux its own memory again (an APU's is the
   * firmware's carve-out). A failed reading is stored as 2^64, not -1.
   */
  dedicatedMemoryCapacityBytes: number;
  /**
   * `Integrated` on Apple silicon. On Linux `Discrete`; `Integrated` for an
   * amdgpu GPU with 512 MiB of its own or less (an APU's carve-out); `Unknown`
   * when that memory cannot be read.
   */
  integrationType: GpuIntegrationTypeName;
  detectionPlatform: GpuDetectionPlatformName;
  /**
   * Version of the detection platform: empty for Metal; for `CUDA` the
   * highest CUDA version the NVIDIA driver runs (`"12.4"`); for `ROCm` the
   * amdgpu DKMS driver's version, empty with the kernel's own driver.
   */
  detectionPlatformVersion: string;
  otherInfo: GpuOtherInfo;
}

/** The CPU as the hardware survey reports it. */
export interface CpuInfo {
  /** The CPU's brand string (`machdep.cpu.brand_string` on macOS); empty when unreadable. */
  name: string;
  architecture: CpuArchitectureName;
  /** Vector extensions the CPU offers, in no particular order. */
  supportedInstructionSetExtensions: CpuInstructionSetExtensionName[];
}

/** GPU half of the hardware survey. */
export interface GpuSurveyResult {
  /**
   * On macOS `Success` with one GPU on Apple silicon; `NoDevicesFound`
   * elsewhere, with the message "Error trying to query Apple gpus: No Apple
   * GPUs found or not an Apple ARM64 platform.". On Linux `Success` with every
   * GPU NVML or amdgpu lists ("Found 2 GPUs: 1 through NVML, 1 through
   * amdgpu."), or `NoDevicesFound` with what was tried ("No GPU found: NVML
   * could not be loaded (…); no card in /sys/class/drm is driven by amdgpu
   * (card0: nouveau).").
   */
  result: Result;
  /** The GPUs found, in survey order; empty unless `result.code` is `Success`. */
  gpuInfo: GpuInfo[];
}

/** CPU half of the hardware survey. */
export interface CpuSurveyResult {
  /** `Success` with an empty message, or `Error` with the reason. */
  result: Result;
  /** The CPU; empty name, `Unknown` architecture and no extensions when `result` is not a success. */
  cpuInfo: CpuInfo;
}

/** Returned by `VemoraCore.surveyHardware()`. The two halves fail independently. */
export interface HardwareSurveyResult {
  gpuSurveyResult: GpuSurveyResult;
  cpuSurveyResult: CpuSurveyResult;
}

/**
 * The add-on's one class. Everything is static; `new VemoraCore()` works but
 * gives an empty object. Each call runs synchronously on the calling thread.
 */
export declare class VemoraCore {
  /** Takes and keeps nothing: instances carry no state. */
  constructor();

  /** What `getCpuUsage` returns when it cannot measure: -1. */
  static readonly CPU_USAGE_ERROR_CODE: -1;
  /** What every byte-count method returns when its measurement fails: -1. */
  static readonly RAM_METER_ERROR_CODE: -1;

  /**
   * CPU usage of process `pid`; `second` is passed through unused.
   *
   * Not measurable on the supported platforms: for `pid` > 0 it throws an
   * `Error` "GetCpuUsage not yet implemented for Mac!"; for `pid` <= 0 it
   * returns -1 (`CPU_USAGE_ERROR_CODE`) and writes a line to stderr.
   *
   * @throws {TypeError} "Two arguments expected for GetCpuUsage" with fewer than two arguments.
   * @throws {TypeError} "Both GetCpuUsage arguments must be numbers!" when either is not a number.
   */
  static getCpuUsage(pid: number, second: number): number;

  /**
   * The machine's physical RAM in bytes: `hw.memsize` on macOS, `MemTotal` on
   * Linux. -1 (`RAM_METER_ERROR_CODE`) when it cannot be read; the reason goes
   * to stderr. Arguments are ignored.
   */
  static getMachinePhysicalRAM(): number;

  /**
   * RAM available for new allocations now, in bytes: (free + inactive +
   * purgeable pages) x page size on macOS, `MemAvailable` on Linux. -1 on
   * failure. Arguments are ignored.
   */
  static getAvailableRAM(): number;

  /**
   * The machine's "VRAM" in bytes: on Apple silicon the share of unified memory
   * that Metal recommends the GPU use at most (the default device's
   * `recommendedMaxWorkingSetSize`). -1 where there is no Metal device. On
   * Linux the memory of every GPU NVML or amdgpu lists, summed: what a model
   * split across them could use; -1 when there is none, or when one GPU's
   * figure cannot be read (`getAvailableVRAMByDevice()` tells which). The
   * reason goes to stderr. Arguments are ignored.
   */
  static getMachinePhysicalVRAM(): number;

  /**
   * GPU-usable memory now, in bytes: the kernel's global wire limit
   * (`vm.global_user_wire_limit`) minus the memory wired now, at least 0,
   * capped by the working set of `getMachinePhysicalVRAM()`. -1 when any of the
   * three readings fails. On Linux the free memory of every GPU, summed, read
   * at the moment of the call; -1 as for `getMachinePhysicalVRAM()`.
   * Arguments are ignored.
   */
  static getAvailableVRAM(): number;

  /**
   * Live memory per GPU. With unified memory there is no such figure: `result`
   * is `{ code: 'Error', message: 'Not implemented' }` and `deviceResults` is
   * empty. On Linux each GPU's total and free memory, asked at the moment of
   * the call. Never throws for a failed reading. Arguments are ignored.
   */
  static getAvailableVRAMByDevice(): GpuLiveMemoryReport;

  /**
   * Memory of process `pid` in bytes: the larger of resident size and physical
   * footprint on macOS, of `VmRSS` and `RssAnon` + `VmSwap` on Linux. -1 when
   * the process cannot be read (it does not exist, or no permission).
   * `pid` is truncated to a signed 32-bit integer.
   *
   * @throws {TypeError} "One argument expected for GetProcessUsedRAM" unless exactly one argument is passed.
   * @throws {TypeError} "GetProcessUsedRAM PID must be a non-negative number!" when `pid` is not a number or its 32-bit value is not above 0.
   */
  static getProcessUsedRAM(pid: number): number;

  /**
   * Whether allocating `bytes` is expected to fail: true only when `bytes`
   * exceeds the available RAM by more than the free swap. False when it fits,
   * and also when the figures cannot be read. `bytes` is truncated to a signed
   * 64-bit integer (NaN counts as 0; a negative size counts as huge).
   *
   * @throws {TypeError} when `bytes` is missing or not a number.
   */
  static willFailToAllocate(bytes: number): boolean;

  /**
   * Surveys the GPU and then the CPU, afresh on every call. Failures are
   * reported inside each half's `result`; the method does not throw for them.
   * Arguments are ignored.
   */
  static surveyHardware(): HardwareSurveyResult;

  /**
   * The kind of machine, from the model identifier (`hw.model`) and whether an
   * internal battery exists. Never fails: `Other` when nothing can be learned.
   * Arguments are ignored.
   */
  static getDeviceType(): DeviceTypeName;
}
