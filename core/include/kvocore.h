/* libkvocore: processor feature queries and aligned allocation, the four
 * services that libkvoscmx takes from its core library. */
#ifndef KVOCORE_H
#define KVOCORE_H

#include "kvosc_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Feature mask bits reported by the two queries. */
#define KVO_CPU_MMX      0x0001ULL
#define KVO_CPU_SSE      0x0002ULL
#define KVO_CPU_SSE2     0x0004ULL
#define KVO_CPU_SSE3     0x0008ULL
#define KVO_CPU_SSSE3    0x0010ULL
#define KVO_CPU_SSE41    0x0020ULL
#define KVO_CPU_SSE42    0x0040ULL
#define KVO_CPU_AVX      0x0080ULL
#define KVO_CPU_AES      0x0100ULL
#define KVO_CPU_CLMUL    0x0200ULL
#define KVO_CPU_F16C     0x0400ULL
#define KVO_CPU_FMA      0x0800ULL
#define KVO_CPU_AVX2     0x1000ULL
#define KVO_CPU_BMI1     0x2000ULL
#define KVO_CPU_BMI2     0x4000ULL
#define KVO_CPU_POPCNT   0x8000ULL
#define KVO_CPU_AVX512F  0x10000ULL

/* Features the processor has (CPUID).  Either argument may be null;
 * pCpuidRegs, when given, receives EAX..EDX of leaf 1. */
KvoStatus kvoGetCpuFeatures(Kvo64u* pFeatureMask, Kvo32u* pCpuidRegs);
/* Features the processor has and the operating system enables: the AVX
 * family only when XGETBV shows the YMM (and ZMM) state saved. */
Kvo64u kvoGetEnabledCpuFeatures(void);
/* 64-byte aligned block of len bytes, or null for len < 1 or no memory. */
void* kvoMalloc(Kvo32s len);
/* Releases a block from kvoMalloc; null is ignored. */
void kvoFree(void* ptr);

#ifdef __cplusplus
}
#endif

#endif /* KVOCORE_H */
