// Processor features for the SIMD fast paths.
//
// The answer is fixed when the library is loaded: each query is an indirect
// function resolved once by the dynamic linker (an IFUNC), whose resolver
// reads CPUID and XGETBV.  The resolved address lives in read-only memory
// after relocation, so the library keeps no mutable state for dispatch.
#pragma once

namespace kvo {

// AVX2 usable: the processor has it and the operating system saves the YMM
// state.
bool cpuHasAvx2();

}  // namespace kvo
