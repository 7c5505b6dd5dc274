/* kvosc: speech-coding and voice-enhancement primitives (libkvoscmx).
 *
 * Every export returns a KvoStatus unless noted: kvoOk, a negative error
 * with nothing written, or a positive warning with outputs written.  The
 * caller owns all vectors and state records.  C99 and C++ compatible. */
#ifndef KVOSC_H
#define KVOSC_H

#include "kvosc_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Library frame ---------------------------------------------------- */

/* Constant version record; never null, never freed. */
const KvoLibraryVersion* kvoscGetLibVersion(void);

/* ---- Fixed-point arithmetic ------------------------------------------- */

/* dst = sat16((a*b + round) >> scaleFactor), round = half of the last kept bit. */
KvoStatus kvosMul_NR_16s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                             Kvo32s len, Kvo32s scaleFactor);
/* In-place form of kvosMul_NR_16s_Sfs. */
KvoStatus kvosMul_NR_16s_ISfs(const Kvo16s* pSrc, Kvo16s* pSrcDst, Kvo32s len,
                              Kvo32s scaleFactor);
/* dst = sat16((src*val + round) >> scaleFactor). */
KvoStatus kvosMulC_NR_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                              Kvo32s scaleFactor);
/* In-place form of kvosMulC_NR_16s_Sfs. */
KvoStatus kvosMulC_NR_16s_ISfs(Kvo16s val, Kvo16s* pSrcDst, Kvo32s len, Kvo32s scaleFactor);
/* dst[i] = src[i] * val^i (weighted LPC vector). */
KvoStatus kvosMulPowerC_NR_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                                   Kvo32s scaleFactor);
/* Block normalisation to 15 bits less the caller's extra shift *pScale. */
KvoStatus kvosAutoScale_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s* pScale);
/* In-place form of kvosAutoScale_16s. */
KvoStatus kvosAutoScale_16s_I(Kvo16s* pSrcDst, Kvo32s len, Kvo32s* pScale);
/* Fractional dot product, inputs scaled down until the sum fits 32 bits. */
KvoStatus kvosDotProdAutoScale_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                          Kvo32s* pDst, Kvo32s* pSfs);
/* G.729A dot product over the even indices, doubled; kvoWarnOverflow if saturated. */
KvoStatus kvosDotProd_G729A_16s32s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo32s* pDst);
/* Inverse square root of each element, G.729 table method. */
KvoStatus kvosInvSqrt_32s_I(Kvo32s* pSrcDst, Kvo32s len);
/* dst = (a >> 1) + (b >> 1): G.729 mid-point interpolation. */
KvoStatus kvosInterpolate_G729_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                   Kvo32s len);
/* dst = sat16(((a*val1) >> sf) + ((b*val2) >> sf)). */
KvoStatus kvosInterpolateC_G729_16s_Sfs(const Kvo16s* pSrc1, Kvo16s val1, const Kvo16s* pSrc2,
                                        Kvo16s val2, Kvo16s* pDst, Kvo32s len,
                                        Kvo32s scaleFactor);
/* dst = sat16((a*val1 + b*val2 + round) >> sf). */
KvoStatus kvosInterpolateC_NR_G729_16s_Sfs(const Kvo16s* pSrc1, Kvo16s val1,
                                           const Kvo16s* pSrc2, Kvo16s val2, Kvo16s* pDst,
                                           Kvo32s len, Kvo32s scaleFactor);
/* G.729 lag window on the autocorrelation from lag 1 (len at most 12). */
KvoStatus kvosLagWindow_G729_32s_I(Kvo32s* pSrcDst, Kvo32s len);
/* G.729B comfort-noise excitation: sums of twelve draws of the 16-bit LCG. */
KvoStatus kvosRandomNoiseExcitation_G729B_16s(Kvo16s* pSeed, Kvo16s* pDst, Kvo32s len);

/* ---- Correlation kernels ---------------------------------------------- */

/* Energy-normalised autocorrelation (G.729), 32-bit; kvoWarnOverflow if too loud. */
KvoStatus kvosAutoCorr_NormE_16s32s(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst,
                                    Kvo32s lagCount, Kvo32s* pNorm);
/* Energy-normalised autocorrelation rounded to 16 bits. */
KvoStatus kvosAutoCorr_NormE_NR_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pDst,
                                    Kvo32s lagCount, Kvo32s* pNorm);
/* Plain 32-bit autocorrelation, no doubling. */
KvoStatus kvosAutoCorr_16s32s(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst, Kvo32s lagCount);
/* G.723.1 autocorrelation of 180 samples, white-noise correction and lag window. */
KvoStatus kvosAutoCorr_NormE_G723_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s* pNorm);
/* G.723.1 subframe: scale, Hamming window and correlate (11 values). */
KvoStatus kvosAutoCorr_G723_16s(const Kvo16s* pSrc, Kvo16s* pScale, Kvo16s* pDst);
/* G.729B windowed autocorrelation of 240 samples (13 values). */
KvoStatus kvosAutoCorr_G729B(const Kvo16s* pSrc, Kvo16s* pNorm, Kvo32s* pDst);
/* Cross-correlation rounded by 15 bits, low 16 bits kept. */
KvoStatus kvosCrossCorr_NR_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                               Kvo16s* pDst, Kvo32s lagCount);
/* Cross-correlation rounded by scaleFactor and saturated. */
KvoStatus kvosCrossCorr_NR_16s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo16s* pDst, Kvo32s lagCount, Kvo32s scaleFactor);
/* Cross-correlation in 64 bits, saturated to 32. */
KvoStatus kvosCrossCorr_NR_16s32s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                  Kvo32s* pDst, Kvo32s lagCount);
/* Triangular cross-correlation, shifted by scaleFactor (negative: left). */
KvoStatus kvosCrossCorr_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo32s* pDst, Kvo32s scaleFactor);
/* Triangular cross-correlation normalised to 14 bits (algebraic searches). */
KvoStatus kvosCrossCorr_NormM_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                  Kvo16s* pDst);
/* Partial convolution, shifted, low 16 bits kept. */
KvoStatus kvosConvPartial_16s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                  Kvo32s len, Kvo32s scaleFactor);
/* Partial convolution in 32 bits. */
KvoStatus kvosConvPartial_16s32s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s* pDst,
                                 Kvo32s len);
/* Partial convolution, doubled and saturated per term, rounded to 16 bits. */
KvoStatus kvosConvPartial_NR_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                 Kvo32s len);
/* Partial convolution rounded by 15 bits without saturation. */
KvoStatus kvosConvPartial_NR_Low_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                     Kvo32s len);

/* ---- LPC recursion and spectral conversions --------------------------- */

/* G.729 Levinson-Durbin, order 1..30; kvoWarnOverflow with nothing written if unstable. */
KvoStatus kvosLevinsonDurbin_G729_32s16s(const Kvo32s* pSrcAutoCorr, Kvo32s order,
                                         Kvo16s* pDstLPC, Kvo16s* pDstRC,
                                         Kvo16s* pResultResidualEnergy);
/* G.729B order-10 recursion keeping the first two reflection coefficients. */
KvoStatus kvosLevinsonDurbin_G729B(const Kvo32s* pSrcAutoCorr, Kvo16s* pDstLPC, Kvo16s* pDstRC,
                                   Kvo16s* pResultResidualEnergy);
/* G.723.1 order-10 recursion (Q13 output) with the sine-detector history bit. */
KvoStatus kvosLevinsonDurbin_G723_16s(const Kvo16s* pSrcAutoCorr, Kvo16s* pSineDetect,
                                      Kvo16s* pResultResidualEnergy, Kvo16s* pDstLPC);
/* G.729 LP (Q12) to LSP (Q15) root search; the previous LSPs if ten roots are not found. */
KvoStatus kvosLPCToLSP_G729_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrcPrevLSP,
                                Kvo16s* pDstLSP);
/* G.729A LP to LSP root search on the 50-point grid with two bisections. */
KvoStatus kvosLPCToLSP_G729A_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrcPrevLSP,
                                 Kvo16s* pDstLSP);
/* G.729 LSP (Q15) to LP coefficients (Q12, 11 values, a[0] = 4096). */
KvoStatus kvosLSPToLPC_G729_16s(const Kvo16s* pSrcLSP, Kvo16s* pDstLPC);
/* G.729 LSF (radians, Q13) to LSP by table interpolation; kvoErrNegativeFreq if negative. */
KvoStatus kvosLSFToLSP_G729_16s(const Kvo16s* pLSF, Kvo16s* pLSP);
/* GSM AMR normalised LSF (Q15) to LSP by table interpolation; kvoErrNegativeFreq if negative. */
KvoStatus kvosLSFToLSP_GSMAMR_16s(const Kvo16s* pLSF, Kvo16s* pLSP);
/* G.729 LSP (Q15) to LSF in radians (Q13). */
KvoStatus kvosLSPToLSF_G729_16s(const Kvo16s* pLSP, Kvo16s* pLSF);
/* G.729 LSP (Q15) to normalised LSF (Q15, 0.5 = Nyquist). */
KvoStatus kvosLSPToLSF_Norm_G729_16s(const Kvo16s* pLSP, Kvo16s* pLSF);
/* G.723.1 LSF (Q7 grid index) to LP coefficients (Q13), in place. */
KvoStatus kvosLSFToLPC_G723_16s_I(Kvo16s* pSrcDst);
/* G.723.1 LSF to LP coefficients (Q13). */
KvoStatus kvosLSFToLPC_G723_16s(const Kvo16s* pSrc, Kvo16s* pDst);
/* G.723.1 LP (Q13) to LSF (Q7 grid index); the previous LSFs if ten roots are not found. */
KvoStatus kvosLPCToLSF_G723_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrcPrevLSF,
                                Kvo16s* pDstLSF);

/* ---- Filter kernels --------------------------------------------------- */

/* Order-10 synthesis 1/A(z), Q12 coefficients, rounded shift by 12 or 13; saturating with
 * kvoWarnOverflow when pMem holds the 10 past outputs, zero history and wrapping when null. */
KvoStatus kvosSynthesisFilter_NR_16s_Sfs(const Kvo16s* pLPC, const Kvo16s* pSrc, Kvo16s* pDst,
                                         Kvo32s len, Kvo32s scaleFactor, const Kvo16s* pMem);
/* In-place form of kvosSynthesisFilter_NR_16s_Sfs. */
KvoStatus kvosSynthesisFilter_NR_16s_ISfs(const Kvo16s* pLPC, Kvo16s* pSrcDst, Kvo32s len,
                                          Kvo32s scaleFactor, const Kvo16s* pMem);
/* In-place order-10 synthesis for in-range data: no saturation, no overflow status. */
KvoStatus kvosSynthesisFilterLow_NR_16s_ISfs(const Kvo16s* pLPC, Kvo16s* pSrcDst, Kvo32s len,
                                             Kvo32s scaleFactor, const Kvo16s* pMem);
/* Synthesis of any order (G.729E), Q12, pMem[order-j] = output j steps back or null. */
KvoStatus kvosSynthesisFilter_G729E_16s(const Kvo16s* pLPC, Kvo32s order, const Kvo16s* pSrc,
                                        Kvo16s* pDst, Kvo32s len, const Kvo16s* pMem);
/* In-place form of kvosSynthesisFilter_G729E_16s. */
KvoStatus kvosSynthesisFilter_G729E_16s_I(const Kvo16s* pLPC, Kvo32s order, Kvo16s* pSrcDst,
                                          Kvo32s len, const Kvo16s* pMem);
/* Impulse response of 1/A(z), order 10, from zero state; low 16 bits kept. */
KvoStatus kvosSynthesisFilterZeroStateResponse_NR_16s(const Kvo16s* pLPC, Kvo16s* pDst,
                                                      Kvo32s len, Kvo32s scaleFactor);
/* G.729 residual A(z) over 40 samples (10 history samples before pSrc), saturated. */
KvoStatus kvosResidualFilter_G729_16s(const Kvo16s* pSrc, const Kvo16s* pLPC, Kvo16s* pDst);
/* Residual filter of any order (G.729E), order history samples before pSrc. */
KvoStatus kvosResidualFilter_G729E_16s(const Kvo16s* pLPC, Kvo32s order, const Kvo16s* pSrc,
                                       Kvo16s* pDst, Kvo32s len);
/* G.729 weighting filter A(z/g1)/A(z/g2): 22 coefficients, 10+40 inputs, 10 outputs of memory. */
KvoStatus kvosIIR16s_G729_16s(const Kvo16s* pCoeffs, const Kvo16s* pSrc, Kvo16s* pDst,
                              Kvo16s* pMem);
/* kvosIIR16s_G729_16s for in-range data: low 16 bits kept, no saturation. */
KvoStatus kvosIIR16sLow_G729_16s(const Kvo16s* pCoeffs, const Kvo16s* pSrc, Kvo16s* pDst,
                                 Kvo16s* pMem);
/* dst[n] = round15((src[n] << 15) + val*src[n-lag]), low 16 bits; not recursive. */
KvoStatus kvosHarmonicFilter_NR_16s(Kvo16s val, Kvo32s lag, const Kvo16s* pSrc, Kvo16s* pDst,
                                    Kvo32s len);
/* In order of n: x[n] = sat16(x[n] + mulQ15(val, x[n-lag])), recursive once n >= lag. */
KvoStatus kvosHarmonicFilter_16s_I(Kvo16s val, Kvo32s lag, Kvo16s* pSrcDst, Kvo32s len);
/* Size in bytes of KvoHighPassState_G729. */
KvoStatus kvosHighPassFilterSize_G729(Kvo32s* pSize);
/* Clears the high-pass history and stores the coefficients a0, a1, a2, b0, b1, b2. */
KvoStatus kvosHighPassFilterInit_G729(const Kvo16s* pCoeffs, KvoHighPassState_G729* pMem);
/* G.729 second-order high-pass: scale 12 pre-processing, 13 post-processing (output doubled). */
KvoStatus kvosHighPassFilter_G729_16s_ISfs(Kvo16s* pSrcDst, Kvo32s len, Kvo32s scaleFactor,
                                           KvoHighPassState_G729* pMem);
/* G.729E tilt compensation of 40 samples; pSrc points one sample before the subframe. */
KvoStatus kvosTiltCompensation_G729E_16s(Kvo16s val, const Kvo16s* pSrc, Kvo16s* pDst);

/* ---- G.729 ------------------------------------------------------------- */

/* -- G.729 LSP quantisation (LSF Q13 radians; pPrevFreq: 4 rows of 10, row 0 newest) -- */

/* Switched-MA two-stage LSF quantiser; four indices, decoded LSF and history push. */
KvoStatus kvosLSFQuant_G729_16s(const Kvo16s* pSrcLSF, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF,
                                Kvo16s* pDstIdx);
/* LSP (Q15) to LSF, kvosLSFQuant_G729_16s, packed code, quantised LSP. */
KvoStatus kvosLSPQuant_G729_16s(const Kvo16s* pSrcLSP, Kvo16s* pPrevFreq, Kvo16s* pDstQLSP,
                                Kvo16s* pDstCode);
/* LSF decoder from four indices; history push; stability warnings 13, 14, 15. */
KvoStatus kvosLSFDecode_G729_16s(const Kvo16s* pIdx, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF);
/* History update of an erased frame from the previous LSF and predictor number. */
KvoStatus kvosLSFDecodeErased_G729_16s(Kvo32s maIndex, Kvo16s* pPrevFreq,
                                       const Kvo16s* pSrcPrevLSF);
/* G.729E form: history read only, the new history row goes to pDstFreq. */
KvoStatus kvosLSPQuant_G729E_16s(const Kvo16s* pSrcLSP, const Kvo16s* pSrcPrevFreq,
                                 Kvo16s* pDstFreq, Kvo16s* pDstQLSP, Kvo16s* pDstCode);
/* G.729.1 LSF decoder: no predictor range check, saturated codebook sums. */
KvoStatus kvosLSFDecode_G7291_16s(const Kvo16s* pIdx, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF);
/* G.729B silence-descriptor LSF quantiser; three indices, decoded LSF and history push. */
KvoStatus kvosLSFQuant_G729B_16s(const Kvo16s* pSrcLSF, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF,
                                 Kvo16s* pDstIdx);
/* G.729B silence-descriptor LSF decoder from three indices; history push; warnings. */
KvoStatus kvosLSFDecode_G729B_16s(const Kvo16s* pIdx, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF);
/* -- G.729 post-processing (40-sample subframes; residual and speech Q0, LP Q12) -- */

/* Long-term post filter at 1/8 resolution; 152 residual samples of history before pSrc.
 * gammaFactor Q15 (0..16384); *pResultVoice = delay used, 0 when not applied. */
KvoStatus kvosLongTermPostFilter_G729_16s(Kvo16s gammaFactor, Kvo32s delay, const Kvo16s* pSrc,
                                          Kvo16s* pDst, Kvo16s* pResultVoice);
/* G.729A: residual of the speech into pSrcDstResidual[154..193], then the harmonic filter
 * searched around delay (taken as 16 bits, 18..145). */
KvoStatus kvosLongTermPostFilter_G729A_16s(Kvo32s delay, const Kvo16s* pSrcSpch,
                                           const Kvo16s* pSrcLPC, Kvo16s* pSrcDstResidual,
                                           Kvo16s* pDst);
/* G.729B: A(z/0.55) residual into pSrcDstResidual[154..193]; frame type 1 runs the 1/8
 * resolution filter (gamma 0.5), types 0 and 2 copy the residual; *pVoice = 1 if filtered. */
KvoStatus kvosLongTermPostFilter_G729B_16s(Kvo32s delay, const Kvo16s* pSrcSpch,
                                           const Kvo16s* pSrcLPC, Kvo16s* pSrcDstResidual,
                                           Kvo16s* pDst, Kvo16s* pVoice, Kvo16s frameType);
/* Short-term post filter A(z/0.55)/A(z/0.7) with gain normalisation; pDst[-10..-1] is the
 * filter memory; 20 samples of impulse response out; kvoWarnOverflow if the output saturated. */
KvoStatus kvosShortTermPostFilter_G729_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrc,
                                           Kvo16s* pDst, Kvo16s* pDstImpulseResponse);
/* G.729 tilt compensation from the first reflection coefficient of a 20-sample impulse
 * response; pSrcDst[-1] is the memory of the first sample. */
KvoStatus kvosTiltCompensation_G729_16s(const Kvo16s* pSrcImpulseResponse, Kvo16s* pSrcDst);
/* G.729A tilt compensation: impulse response of the two LP sets in pSrcLPC (22 values),
 * then first-order preemphasis in place with pSrcDst[-1] as its memory. */
KvoStatus kvosTiltCompensation_G729A_16s(const Kvo16s* pSrcLPC, Kvo16s* pSrcDst);
/* G.729 adaptive gain control (smoothing 0.9875), *pGain Q14 in and out. */
KvoStatus kvosGainControl_G729_16s_I(const Kvo16s* pSrc, Kvo16s* pSrcDst, Kvo16s* pGain);
/* G.729A adaptive gain control on energies (smoothing 0.9), *pGain Q12 in and out. */
KvoStatus kvosGainControl_G729A_16s_I(const Kvo16s* pSrc, Kvo16s* pSrcDst, Kvo16s* pGain);
/* dst[n] = src[n] - gamma src[n-1] (Q15), src[-1] = *pMem; *pMem takes the last input. */
KvoStatus kvosPreemphasize_G729A_16s(Kvo16s gamma, const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                     Kvo16s* pMem);
/* In-place form of kvosPreemphasize_G729A_16s. */
KvoStatus kvosPreemphasize_G729A_16s_I(Kvo16s gamma, Kvo16s* pSrcDst, Kvo32s len,
                                       Kvo16s* pMem);
/* G.729D anti-sparseness: the innovation (Q13) is dispersed in place and the excitation
 * rebuilt with it; cbGain Q1, pitchGain Q14. */
KvoStatus kvosPhaseDispersion_G729D_16s(const Kvo16s* pSrcExcSignal, Kvo16s* pDstFltExcSignal,
                                        Kvo16s cbGain, Kvo16s pitchGain,
                                        Kvo16s* pSrcDstInnovation,
                                        KvoPhaseDispersionState_G729D* pState);
/* History update of the phase dispersion for a subframe that skipped it. */
KvoStatus kvosPhaseDispersionUpdate_G729D_16s(Kvo16s pitchGain, Kvo16s cbGain,
                                              KvoPhaseDispersionState_G729D* pState);
/* Clears the phase dispersion record. */
KvoStatus kvosPhaseDispersionInit_G729D_16s(KvoPhaseDispersionState_G729D* pState);
/* Size in bytes of KvoPhaseDispersionState_G729D (20). */
KvoStatus kvosPhaseDispersionGetStateSize_G729D_16s(Kvo32s* pSize);
/* -- G.729 adaptive codebook and pitch -- */
/* Excitation buffers hold 154 past samples, then the 40 of the subframe (index 154). */

/* Open-loop pitch lag (20..143) of an 80-sample frame; 143 samples before pSrc are read. */
KvoStatus kvosOpenLoopPitchSearch_G729_16s(const Kvo16s* pSrc, Kvo16s* pDstOpenLoopDelay);
/* Open-loop pitch lag of the reduced-complexity coder (annex A, even samples). */
KvoStatus kvosOpenLoopPitchSearch_G729A_16s(const Kvo16s* pSrc, Kvo16s* pDstOpenLoopDelay);
/* Lag of the largest 32-bit autocorrelation sum(x[n] x[n-lag]); pMax is that sum doubled. */
KvoStatus kvosAutoCorrLagMax_Inv_16s(const Kvo16s* pSrc, Kvo32s len, Kvo32s lowerLag,
                                     Kvo32s upperLag, Kvo32s* pMax, Kvo32s* pMaxLag);
/* Lag of the largest 32-bit autocorrelation sum(x[n] x[n+lag]); pMax is that sum doubled. */
KvoStatus kvosAutoCorrLagMax_Fwd_16s(const Kvo16s* pSrc, Kvo32s len, Kvo32s lowerLag,
                                     Kvo32s upperLag, Kvo32s* pMax, Kvo32s* pMaxLag);
/* Closed-loop lag and 1/3 fraction around valOpenDelay (18..145); writes the adaptive vector. */
KvoStatus kvosAdaptiveCodebookSearch_G729_16s(Kvo32s valOpenDelay, const Kvo16s* pSrcAdptTarget,
                                              const Kvo16s* pSrcImpulseResponse,
                                              Kvo16s* pSrcDstPrevExc, Kvo16s* pDstDelay,
                                              Kvo16s* pDstAdptVector, Kvo16s subFrame);
/* Closed-loop search of annex A (backward-filtered target, three fractions). */
KvoStatus kvosAdaptiveCodebookSearch_G729A_16s(Kvo32s valOpenDelay, const Kvo16s* pSrcAdptTarget,
                                               const Kvo16s* pSrcImpulseResponse,
                                               Kvo16s* pSrcDstPrevExc, Kvo16s* pDstDelay,
                                               Kvo16s* pDstAdptVector, Kvo16s subFrame);
/* Closed-loop search of annex D (6.4 kbit/s lag resolution); builds no vector. */
KvoStatus kvosAdaptiveCodebookSearch_G729D_16s(Kvo32s valOpenDelay, const Kvo16s* pSrcAdptTarget,
                                               const Kvo16s* pSrcImpulseResponse,
                                               const Kvo16s* pSrcDstPrevExc, Kvo16s subFrame,
                                               Kvo16s* pDstDelay);
/* Adaptive vector of lag pDelay[0] (18..144) and fraction pDelay[1] (-1..1), written at 154. */
KvoStatus kvosDecodeAdaptiveVector_G729_16s_I(const Kvo16s* pDelay, Kvo16s* pSrcDstPrevExc);
/* As kvosDecodeAdaptiveVector_G729_16s_I, then the 40 samples copied to pDst. */
KvoStatus kvosDecodeAdaptiveVector_G729_16s(const Kvo16s* pDelay, Kvo16s* pSrcDstPrevExc,
                                            Kvo16s* pDst);
/* Filters the vector by the Q12 impulse response; pitch gain Q14 (at most 1.2). */
KvoStatus kvosAdaptiveCodebookGain_G729_16s(const Kvo16s* pSrcAdptTarget,
                                            const Kvo16s* pSrcImpulseResponse,
                                            const Kvo16s* pSrcAdptVector,
                                            Kvo16s* pDstFltAdptVector, Kvo16s* pResultAdptGain);
/* Filters the vector by 1/A(z) (11 Q12 coefficients, zero history); pitch gain Q14. */
KvoStatus kvosAdaptiveCodebookGain_G729A_16s(const Kvo16s* pSrcAdptTarget, const Kvo16s* pSrcLPC,
                                             const Kvo16s* pSrcAdptVector,
                                             Kvo16s* pDstFltAdptVector, Kvo16s* pResultAdptGain);
/* Target update dst = target - filtered vector * gain (Q14), saturated. */
KvoStatus kvosAdaptiveCodebookContribution_G729_16s(Kvo16s gain, const Kvo16s* pFltAdptVector,
                                                    const Kvo16s* pSrcAdptTarget,
                                                    Kvo16s* pDstAdptTarget);

/* -- G.729 gain quantisation -- */
/* Past quantised energies: four Q10 values, newest first, started at -14336. */

/* Joint pitch/code gain quantiser at 8 kbit/s: gains (Q14, Q1) and raw stage indices. */
KvoStatus kvosGainQuant_G729_16s(const Kvo16s* pSrcAdptTarget, const Kvo16s* pSrcFltAdptVector,
                                 const Kvo16s* pSrcFixedVector, const Kvo16s* pSrcFltFixedVector,
                                 Kvo16s* pSrcDstEnergyErr, Kvo16s* pDstQGain,
                                 Kvo16s* pDstQGainIndex, Kvo16s tameFlag);
/* Joint gain quantiser at 6.4 kbit/s (annex D codebooks). */
KvoStatus kvosGainQuant_G729D_16s(const Kvo16s* pSrcAdptTarget, const Kvo16s* pSrcFltAdptVector,
                                  const Kvo16s* pSrcFixedVector, const Kvo16s* pSrcFltFixedVector,
                                  Kvo16s* pSrcDstEnergyErr, Kvo16s* pDstQGain,
                                  Kvo16s* pDstQGainIndex, Kvo16s tameFlag);
/* Gain decoder at 8 kbit/s from coded indices; null pIdx decodes an erased frame. */
KvoStatus kvosDecodeGain_G729_16s(Kvo32s energy, Kvo16s* pSrcDstEnergyErr, const Kvo16s* pIdx,
                                  Kvo16s* pSrcDstQGain);
/* Gain decoder at 6.4 kbit/s; an erased frame scales both gains by gainAttenuation (Q15). */
KvoStatus kvosDecodeGain_G729I_16s(Kvo32s energy, Kvo16s gainAttenuation,
                                   Kvo16s* pSrcDstEnergyErr, const Kvo16s* pIdx,
                                   Kvo16s* pSrcDstQGain);

/* -- G.729 fixed codebook search (h Q12; 616-element correlation matrix; d = target
      correlation from kvosCrossCorr_NormM_16s; code vectors Q13, annex E Q12) -- */

/* Scales h and builds the track-ordered correlation matrix (plain sums). */
KvoStatus kvosToeplizMatrix_G729_16s32s(const Kvo16s* pSrcImpulse, Kvo32s* pDstMatrix);
/* The same matrix at the 16-bit scale (>> 15, saturated). */
KvoStatus kvosToeplizMatrix_G729_16s(const Kvo16s* pSrcImpulse, Kvo16s* pDstMatrix);
/* G.729 four-pulse search on a 32-bit matrix (shifted in place); budget in pSearchTimes. */
KvoStatus kvosFixedCodebookSearch_G729_32s16s(const Kvo16s* pSrcFixedCorr, Kvo32s* pSrcDstMatrix,
                                              Kvo16s* pDstFixedVector, Kvo16s* pDstFixedIndex,
                                              Kvo16s* pSearchTimes, Kvo32s subFrame);
/* G.729 four-pulse search on a 16-bit matrix; subFrame 0 or 1. */
KvoStatus kvosFixedCodebookSearch_G729_16s(const Kvo16s* pSrcFixedCorr, Kvo16s* pSrcDstMatrix,
                                           Kvo16s* pDstFixedVector, Kvo16s* pDstFixedIndex,
                                           Kvo16s* pSearchTimes, Kvo32s subFrame);
/* G.729A depth-first four-pulse search on a 32-bit matrix (shifted in place). */
KvoStatus kvosFixedCodebookSearch_G729A_32s16s(const Kvo16s* pSrcFixedCorr,
                                               Kvo32s* pSrcDstMatrix, Kvo16s* pDstFixedVector,
                                               Kvo16s* pDstFixedIndex);
/* G.729A depth-first four-pulse search on a 16-bit matrix. */
KvoStatus kvosFixedCodebookSearch_G729A_16s(const Kvo16s* pSrcFixedCorr, Kvo16s* pSrcDstMatrix,
                                            Kvo16s* pDstFixedVector, Kvo16s* pDstFixedIndex);
/* G.729D two-pulse 11-bit search; code, filtered code, sign word and Gray position index. */
KvoStatus kvosFixedCodebookSearch_G729D_16s(const Kvo16s* pSrcFixedCorr,
                                            const Kvo16s* pSrcImpulse, Kvo16s* pDstFixedVector,
                                            Kvo16s* pDstFltFixedVector, Kvo16s* pDstSign,
                                            Kvo16s* pDstIndex);
/* G.729E search: mode 0 ten pulses in 35 bits, otherwise twelve in 44; five index words. */
KvoStatus kvosFixedCodebookSearch_G729E_16s(Kvo16s mode, const Kvo16s* pSrcTarget,
                                            const Kvo16s* pSrcLtpResidual,
                                            const Kvo16s* pSrcImpulse, Kvo16s* pDstFixedVector,
                                            Kvo16s* pDstFltFixedVector, Kvo16s* pDstFixedIndex);

/* -- G.729 hybrid window (annex E backward LPC, order 30) -- */
/* Size of the fixed-point hybrid-window record. */
KvoStatus kvosWinHybridGetStateSize_G729E_16s(Kvo32s* pSize);
/* Clears the recursive part. */
KvoStatus kvosWinHybridInit_G729E_16s(KvoG729EHybridState* pState);
/* 145 synthesis samples (oldest first; 80 new ones enter the recursion) to 31 autocorrelations. */
KvoStatus kvosWinHybrid_G729E_16s32s(const Kvo16s* pSrc, Kvo32s* pDst,
                                     KvoG729EHybridState* pState);

/* ---- G.723.1 excitation search ------------------------------------------ */

/* Open-loop pitch of 120 weighted samples (142 samples before pSrc read): lag 18..142. */
KvoStatus kvosOpenLoopPitchSearch_G723_16s(const Kvo16s* pSrc, Kvo16s* pDstLag);
/* Harmonic noise weighting: best lag within pitchLag +- 3 and its gain (0..10240, Q15). */
KvoStatus kvosHarmonicSearch_G723_16s(Kvo16s pitchLag, const Kvo16s* pSrc, Kvo16s* pDstLag,
                                      Kvo16s* pDstGain);
/* Closed-loop 5-tap adaptive codebook search of one subframe: lag index and gain row
   (pErrorBuffer: 5 values; even subframes take lag 18 as 19 and lags above 140 as 140). */
KvoStatus kvosAdaptiveCodebookSearch_G723(Kvo16s pitchLag, const Kvo16s* pTarget,
                                          const Kvo16s* pImpulse, const Kvo16s* pPrevExcitation,
                                          const Kvo32s* pErrorBuffer, Kvo16s* pDstLagDelta,
                                          Kvo16s* pDstGainIndex, Kvo16s subframe,
                                          Kvo16s sineDetector, KvoSpeechRate rate);
/* Decoder's 5-tap adaptive vector of one subframe (lags above 143 read up to 2 samples
   before pPrevExcitation). */
KvoStatus kvosDecodeAdaptiveVector_G723_16s(Kvo16s pitchLag, Kvo16s lagDelta, Kvo16s gainIndex,
                                            const Kvo16s* pPrevExcitation, Kvo16s* pDst,
                                            KvoSpeechRate rate);
/* ACELP correlation matrix of the scaled impulse response: 416 raw 32-bit sums. */
KvoStatus kvosToeplizMatrix_G723_16s32s(const Kvo16s* pImpulse, Kvo32s* pDst);
/* The same matrix shifted right by 15 and saturated to 16 bits. */
KvoStatus kvosToeplizMatrix_G723_16s(const Kvo16s* pImpulse, Kvo16s* pDst);
/* 5.3 kbit/s ACELP search of one subframe on a 32-bit matrix (sign-folded on return). */
KvoStatus kvosACELPFixedCodebookSearch_G723_32s16s(const Kvo16s* pCorr, Kvo32s* pMatrix,
                                                   Kvo16s* pDstSigns, Kvo16s* pDstPositions,
                                                   Kvo16s* pDstGrid, Kvo16s* pCode,
                                                   Kvo16s* pSearchBudget);
/* 5.3 kbit/s ACELP search of one subframe on a 16-bit matrix (left unchanged). */
KvoStatus kvosACELPFixedCodebookSearch_G723_16s(const Kvo16s* pCorr, const Kvo16s* pMatrix,
                                                Kvo16s* pDstSigns, Kvo16s* pDstPositions,
                                                Kvo16s* pDstGrid, Kvo16s* pCode,
                                                Kvo16s* pSearchBudget);
/* 6.3 kbit/s multipulse search of one subframe with the pitch-train option. */
KvoStatus kvosMPMLQFixedCodebookSearch_G723(Kvo16s pitchLag, const Kvo16s* pImpulse,
                                            const Kvo16s* pTarget, Kvo16s* pCode,
                                            Kvo16s* pDstGrid, Kvo16s* pDstTrainFlag,
                                            Kvo16s* pDstAmpIndex, Kvo16s* pDstSignMask,
                                            Kvo32s* pDstPosition, Kvo16s subframe);
/* Multipulse placement and amplitude choice on both grids; keeps the best criterion. */
KvoStatus kvosGainQuant_G723_16s(const Kvo16s* pImpulse, const Kvo16s* pTarget,
                                 Kvo16s* pDstPositions, Kvo16s* pDstAmplitudes,
                                 Kvo32s* pMaxError, Kvo16s* pDstGrid, Kvo16s* pDstAmpIndex,
                                 Kvo32s pulses, Kvo32s* pImproved);

/* -- G.723.1 LP, filters and gain (frames of 240, subframes of 60 samples) -- */
/* LSP decoder: three band indices in bits 23-16, 15-8, 7-0, predictor and stability passes;
 * the previous LSFs and kvoWarnLsfLow when ten passes do not settle. */
KvoStatus kvosLSFDecode_G723_16s(Kvo32s index, const Kvo16s* pPrevLSF, Kvo32s erasure,
                                 Kvo16s* pLSF);
/* Input high-pass filter of 240 samples (DC removal); pMem cleared by the caller. */
KvoStatus kvosHighPassFilter_G723_16s(const Kvo16s* pSrc, Kvo16s* pDst,
                                      KvoHighPassStateG723* pMem);
/* Weighted split VQ of the LSFs against the predicted previous ones: band indices 23-16, 15-8, 7-0. */
KvoStatus kvosLSFQuant_G723_16s32s(const Kvo16s* pLSF, const Kvo16s* pPrevLSF, Kvo32s* pIndex);
/* Ten-tap pole-zero filter (Q13: zeros then poles) of 60 samples to 32-bit outputs (8 S). */
KvoStatus kvosIIR16s_G723_16s32s(const Kvo16s* pCoef, const Kvo16s* pSrc, Kvo32s* pDst,
                                 KvoIIRMemG723* pMem);
/* In-place pole-zero filter, the rounded result kept in 16 bits. */
KvoStatus kvosIIR16s_G723_16s_I(const Kvo16s* pCoef, Kvo16s* pSrcDst, KvoIIRMemG723* pMem);
/* Pole-zero filter of 32-bit inputs with the input part shifted left by scaleFactor. */
KvoStatus kvosIIR16s_G723_32s16s_Sfs(const Kvo16s* pCoef, const Kvo32s* pSrc, Kvo32s scaleFactor,
                                     Kvo16s* pDst, KvoIIRMemG723* pMem);
/* Synthesis filter 1/A(z) of 60 samples; pMem holds ten outputs, newest first. */
KvoStatus kvosSynthesisFilter_G723_16s(const Kvo16s* pLPC, const Kvo16s* pSrc, Kvo16s* pMem,
                                       Kvo16s* pDst);
/* Synthesis with eleven coefficients to 32-bit sums; pMem holds ten outputs, oldest first. */
KvoStatus kvosSynthesisFilter_G723_16s32s(const Kvo16s* pCoef, const Kvo16s* pSrc, Kvo32s* pDst,
                                          Kvo16s* pMem);
/* Harmonic noise shaping of 60 samples: pSrcDst - (pSrc - val * pSrc[-lag]). */
KvoStatus kvosHarmonicNoiseSubtract_G723_16s_I(Kvo16s val, Kvo32s lag, const Kvo16s* pSrc,
                                               Kvo16s* pSrcDst);
/* Pitch post-filter decision of one subframe: offset, gain and scale (pSrc at the frame). */
KvoStatus kvosPitchPostFilter_G723_16s(Kvo16s lag, const Kvo16s* pSrc, Kvo16s* pDelay,
                                       Kvo16s* pGain, Kvo16s* pScale, Kvo32s subframe,
                                       KvoSpeechRate rate);
/* Tilt compensation of the post filter: 61 32-bit sums (previous last first) to 60 samples. */
KvoStatus kvosTiltCompensation_G723_32s16s(Kvo16s val, const Kvo32s* pSrc, Kvo16s* pDst);
/* Post-filter gain scaling of 60 samples to the given energy, smoothed by 1/16 per sample. */
KvoStatus kvosGainControl_G723_16s_I(Kvo32s energy, Kvo16s* pSrcDst, Kvo16s* pGain);

/* ---- GSM full rate ------------------------------------------------------ */

/* GSM 06.10 offset compensation of 13-bit left-justified samples; in place allowed. */
KvoStatus kvosHighPassFilter_GSMFR_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                       KvoHighPassState_GSMFR* pState);
/* Preemphasis y = sat(x + mult_r(x[-1], -28180)); *pMem holds x[-1]; in place allowed. */
KvoStatus kvosPreemphasize_GSMFR_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo16s* pMem);
/* Deemphasis, upscaling by 2 and truncation to the 13-bit grid; *pMem the filter memory. */
KvoStatus kvosDeemphasize_GSMFR_16s_I(Kvo16s* pSrcDst, Kvo32s len, Kvo16s* pMem);
/* Reflection coefficients (Q15) from order + 1 autocorrelations by the Schur recursion. */
KvoStatus kvosSchur_GSMFR_32s16s(const Kvo32s* pSrc, Kvo16s* pDst, Kvo32s order);
/* Short-term analysis lattice, 8 reflection coefficients, 8 words of memory. */
KvoStatus kvosShortTermAnalysisFilter_GSMFR_16s_I(const Kvo16s* pRc, Kvo16s* pSrcDst, Kvo32s len,
                                                  Kvo16s* pMem);
/* Short-term synthesis lattice, 8 reflection coefficients, 9 words of memory. */
KvoStatus kvosShortTermSynthesisFilter_GSMFR_16s(const Kvo16s* pRc, const Kvo16s* pSrc,
                                                 Kvo16s* pDst, Kvo32s len, Kvo16s* pMem);
/* RPE weighting filter (11 taps); 5 samples readable on each side of pSrc. */
KvoStatus kvosWeightingFilter_GSMFR_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len);
/* APCM inverse quantisation of 13 RPE codes (0..7) with a mantissa and a right shift. */
KvoStatus kvosRPEQuantDecode_GSMFR_16s(const Kvo16s* pSrc, Kvo16s mantissa, Kvo16s exponent,
                                       Kvo16s* pDst);
/* Lag in 0..maxLag of the largest positive correlation of pSrc1 with pSrc2[lag..]. */
KvoStatus kvosCrossCorrLagMax_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                  Kvo32s maxLag, Kvo32s* pMax, Kvo32s* pLag);
/* ---- GSM AMR VAD, DTX, LP analysis and LSP ------------------------------- */

/* Filter-bank VAD (option 1) on pSrc[40..199]; frame power over pSrc[0..159]. */
KvoStatus kvosVAD1_GSMAMR_16s(const Kvo16s* pSrc, KvoVAD1State_GSMAMR* pState, Kvo16s* pVadFlag,
                              Kvo16s bestCorrHp, Kvo16s toneRegister);
/* Spectral VAD (option 2) on 160 samples, two half frames; ltpFlag 1 for a high LTP gain. */
KvoStatus kvosVAD2_GSMAMR_16s(const Kvo16s* pSrc, KvoVAD2State_GSMAMR* pState, Kvo16s* pVadFlag,
                              Kvo16s ltpFlag);
/* Stores the LSP vector and the halved log energy of 160 samples in the next history row. */
KvoStatus kvosEncDTXBuffer_GSMAMR_16s(const Kvo16s* pSpeech, const Kvo16s* pLsp,
                                      Kvo16s* pHistIndex, Kvo16s* pLspHistory,
                                      Kvo16s* pLogEnHistory);
/* Decoder history: stores the quantised LSF vector (pLsf) and the log energy of 160 samples. */
KvoStatus kvosDecDTXBuffer_GSMAMR_16s(const Kvo16s* pSpeech, const Kvo16s* pLsf,
                                      Kvo16s* pHistIndex, Kvo16s* pLsfHistory,
                                      Kvo16s* pLogEnHistory);
/* DTX hangover: switches *pMode to 25 (SID) after seven non-speech frames. */
KvoStatus kvosEncDTXHandler_GSMAMR_16s(Kvo16s* pHangover, Kvo16s* pAnaElapsed,
                                       KvoSpeechRate* pMode, Kvo16s* pSidUpdate, Kvo16s vadFlag);
/* SID parameters from the DTX history: energy index, start residual index, 3 LSF indices. */
KvoStatus kvosEncDTXSID_GSMAMR_16s(const Kvo16s* pLspHistory, const Kvo16s* pLogEnHistory,
                                   Kvo16s* pLogEnergyIndex, Kvo16s* pInitLsfIndex,
                                   Kvo16s* pLsfIndices, Kvo16s* pPredErr, Kvo16s* pPredErrMR122,
                                   Kvo16s sidUpdate);
/* Windowed, lag-windowed autocorrelation of 240 samples: 11 values, 22 in mode 12. */
KvoStatus kvosAutoCorr_GSMAMR_16s32s(const Kvo16s* pSrc, Kvo32s* pDst, KvoSpeechRate mode);
/* Order-10 Levinson-Durbin recursion to LP coefficients (Q12). */
KvoStatus kvosLevinsonDurbin_GSMAMR_32s16s(const Kvo32s* pSrc, Kvo16s* pDst);
/* LP (Q12) to LSP (Q15); the previous LSPs if ten roots are not found. */
KvoStatus kvosLPCToLSP_GSMAMR_16s(const Kvo16s* pLpc, const Kvo16s* pPrevLsp, Kvo16s* pLsp);
/* LSP (Q15) to LP coefficients (Q12, 11 values). */
KvoStatus kvosLSPToLPC_GSMAMR_16s(const Kvo16s* pLsp, Kvo16s* pLpc);
/* Predictive split VQ of the LSPs (20 values and 5 indices in mode 12, else 10 and 3). */
KvoStatus kvosLSPQuant_GSMAMR_16s(const Kvo16s* pLsp, Kvo16s* pPastResid, Kvo16s* pLspQ,
                                  Kvo16s* pIndices, KvoSpeechRate mode);
/* LSP decoder with bad-frame concealment; four subframe LSP vectors.  Mode 25 reads four
 * index words: the start residual index (0..7), then the three split indices. */
KvoStatus kvosQuantLSPDecode_GSMAMR_16s(const Kvo16s* pIndices, Kvo16s* pPastResid,
                                        Kvo16s* pPrevLsf, Kvo16s* pPrevLsp, Kvo16s* pLspQ,
                                        Kvo16s badFrame, KvoSpeechRate mode);
/* dst = (a >> 2) + b - (b >> 2): a quarter of a and three quarters of b. */
KvoStatus kvosInterpolate_GSMAMR_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                     Kvo32s len);
/* y = sat16(x + ((gamma x[-1]) >> 15)); *pMem holds x[-1]; in place allowed. */
KvoStatus kvosPreemphasize_GSMAMR_16s(Kvo16s gamma, const Kvo16s* pSrc, Kvo16s* pDst,
                                      Kvo32s len, Kvo16s* pMem);
/* Adaptive-codebook gain (Q14, at most 19661) of a 40-sample subframe. */
KvoStatus kvosAdaptiveCodebookGain_GSMAMR_16s(const Kvo16s* pTarget, const Kvo16s* pFiltered,
                                              Kvo16s* pGain);
/* The same, with the energy and correlation terms (mantissa, exponent pairs) in pCoeffs. */
KvoStatus kvosAdaptiveCodebookGainCoeffs_GSMAMR_16s(const Kvo16s* pTarget,
                                                    const Kvo16s* pFiltered, Kvo16s* pGain,
                                                    Kvo16s* pCoeffs);
/* 128-point real FFT of VAD option 2, scaled by 1/64, Perm order (DC, Nyquist, re/im pairs). */
KvoStatus kvosFFTFwd_RToPerm_GSMAMR_16s_I(Kvo16s* pSrcDst);

/* ---- G.722 SB-ADPCM --------------------------------------------------------
 * Vectors interleave one low-band and one high-band element per pair; len
 * counts elements.  pMem is the caller's state block; the KvoG722State record
 * lives at its first 16-byte boundary. */

/* 24-tap QMF analysis: 16 kHz samples to (low, high) subband pairs; 24-word delay line. */
KvoStatus kvosQMFEncode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo16s* pDelay);
/* 24-tap QMF synthesis: (low, high) subband pairs to 16 kHz samples; 24-word delay line. */
KvoStatus kvosQMFDecode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo16s* pDelay);
/* Bytes for an encoder state block: sizeof(KvoG722State) plus 16 of alignment slack. */
KvoStatus kvosSBADPCMEncodeStateSize_G722_16s(Kvo32s* pSize);
/* Bytes for a decoder state block (same record as the encoder's). */
KvoStatus kvosSBADPCMDecodeStateSize_G722_16s(Kvo32s* pSize);
/* Writes the encoder start state (DETL 32, DETH 8, all else 0). */
KvoStatus kvosSBADPCMEncodeInit_G722_16s(Kvo8u* pMem);
/* Writes the decoder start state. */
KvoStatus kvosSBADPCMDecodeInit_G722_16s(Kvo8u* pMem);
/* Subband pairs to code pairs (IL 6 bits, IH 2 bits); len even. */
KvoStatus kvosSBADPCMEncode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo8u* pMem);
/* Code pairs to subband pairs; mode 0 or 1: 64 kbit/s, 2: 56, any other: 48. */
KvoStatus kvosSBADPCMDecode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s mode,
                                     Kvo8u* pMem);
/* Restarts the low-band predictor from two synthesized samples and val after a lost frame. */
KvoStatus kvosSBADPCMDecodeStateUpdate_G722_16s(const Kvo16s* pSrc, Kvo32s val, Kvo32s reset,
                                                Kvo8u* pMem);
/* Concealment class update from NBH > NBL, and peak limiting one period ahead. */
KvoStatus kvosClassifyFrame_G722_16s_I(Kvo16s* pSrcDst, Kvo32s period, Kvo32s* pClass,
                                       const Kvo8u* pMem);
/* First-order DC removal of the high-band elements of subband pairs; 2-word state. */
KvoStatus kvosFilterHighband_G722_16s_I(Kvo16s* pSrcDst, Kvo32s len, Kvo16s* pFilterState);
/* Nine-tap low-pass and decimation by 4; 5 history samples before pSrc. */
KvoStatus kvosDownsampleFilter_G722_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pDst);

/* ---- GSM AMR algebraic codebook, pitch and post filter ------------------ */
/* -- GSM AMR algebraic codebook (40-sample subframes; modes 0, 1, 3, 6, 7, 8, 11, 12, 25) -- */
/* Fixed-codebook search of one subframe: sharpened impulse response in place, code vector,
 * filtered code vector and index words; pitchGain Q14, pitchLag 17..144. */
KvoStatus kvosAlgebraicCodebookSearch_GSMAMR_16s(Kvo16s pitchLag, Kvo16s pitchGain,
                                                 const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                                                 Kvo16s* pImpulse, Kvo16s* pCode,
                                                 Kvo16s* pFilteredCode, Kvo16s* pIndices,
                                                 Kvo16s subframe, KvoSpeechRate mode);
/* kvosAlgebraicCodebookSearch_GSMAMR_16s with a caller scratch buffer (tested, not used). */
KvoStatus kvosAlgebraicCodebookSearchEX_GSMAMR_16s(Kvo16s pitchLag, Kvo16s pitchGain,
                                                   const Kvo16s* pTarget,
                                                   const Kvo16s* pLtpResidual, Kvo16s* pImpulse,
                                                   Kvo16s* pCode, Kvo16s* pFilteredCode,
                                                   Kvo16s* pIndices, Kvo16s subframe,
                                                   KvoSpeechRate mode, Kvo8u* pBuffer);
/* Index words of one subframe back to the 40-sample code vector. */
KvoStatus kvosFixedCodebookDecode_GSMAMR_16s(const Kvo16s* pIndices, Kvo16s* pCode,
                                             Kvo16s subframe, KvoSpeechRate mode);
/* -- GSM AMR pitch and post filter (frames of 160 = 4 x 40; LP sets of 11, Q12) -- */
/* Open-loop lags of the two half frames; weighted speech memory (143) updated. */
KvoStatus kvosOpenLoopPitchSearchNonDTX_GSMAMR_16s(const Kvo16s* pWeighted1,
                                                   const Kvo16s* pWeighted2,
                                                   const Kvo16s* pSpeech, Kvo16s* pMedianLag,
                                                   Kvo16s* pWeightGain, Kvo16s* pLagHistory,
                                                   Kvo16s* pOldWeighted, Kvo16s* pDstLags,
                                                   Kvo16s* pDstGainFlags, KvoSpeechRate mode);
/* The open-loop search with VAD option 1's tone register and high-pass correlation. */
KvoStatus kvosOpenLoopPitchSearchDTXVAD1_GSMAMR_16s(
    const Kvo16s* pWeighted1, const Kvo16s* pWeighted2, const Kvo16s* pSpeech,
    Kvo16s* pToneRegister, Kvo16s* pMedianLag, Kvo16s* pWeightGain, Kvo16s* pLagHistory,
    Kvo16s* pOldWeighted, Kvo16s* pDstBestCorrHp, Kvo16s* pDstLags, Kvo16s* pDstGainFlags,
    KvoSpeechRate mode);
/* The open-loop search with VAD option 2's correlation and energy sums. */
KvoStatus kvosOpenLoopPitchSearchDTXVAD2_GSMAMR_16s32s(
    const Kvo16s* pWeighted1, const Kvo16s* pWeighted2, const Kvo16s* pSpeech,
    Kvo16s* pMedianLag, Kvo16s* pWeightGain, Kvo16s* pLagHistory, Kvo16s* pOldWeighted,
    Kvo32s* pCorrSum, Kvo32s* pEnergySum, Kvo16s* pDstLags, Kvo16s* pDstGainFlags,
    KvoSpeechRate mode);
/* Impulse response, LP residual and target of one subframe (10 history samples before pSpeech). */
KvoStatus kvosImpulseResponseTarget_GSMAMR_16s(const Kvo16s* pSpeech, const Kvo16s* pWeighted1,
                                               const Kvo16s* pWeighted2, const Kvo16s* pLpc,
                                               const Kvo16s* pErrorMem,
                                               const Kvo16s* pWeightedMem, Kvo16s* pDstImpulse,
                                               Kvo16s* pDstResidual, Kvo16s* pDstTarget);
/* Closed-loop lag, fraction and index; adaptive vector written at pExcitation[154]. */
KvoStatus kvosAdaptiveCodebookSearch_GSMAMR_16s(const Kvo16s* pTarget, const Kvo16s* pImpulse,
                                                const Kvo16s* pOpenLoopLags, Kvo16s* pLag,
                                                Kvo16s* pExcitation, Kvo16s* pDstFraction,
                                                Kvo16s* pDstIndex, Kvo16s* pDstVector,
                                                Kvo16s subframe, KvoSpeechRate mode);
/* Lag index back to the adaptive vector, with the bad-frame handling of the lag. */
KvoStatus kvosAdaptiveCodebookDecode_GSMAMR_16s(Kvo32s index, Kvo16s* pPrevGoodLag,
                                                Kvo16s* pLagBuffer, Kvo16s* pExcitation,
                                                Kvo16s* pLag, Kvo16s* pDstVector,
                                                Kvo16s subframe, Kvo16s badFrame,
                                                Kvo16s inBackgroundNoise, Kvo16s voicedHangover,
                                                KvoSpeechRate mode);
/* Formant and tilt post filter of a 160-sample frame with adaptive gain control. */
KvoStatus kvosPostFilter_GSMAMR_16s(const Kvo16s* pLpc, const Kvo16s* pSynth, Kvo16s* pTiltMem,
                                    Kvo16s* pPastGain, Kvo16s* pSpeechHistory, Kvo16s* pSynthMem,
                                    Kvo16s* pDst, KvoSpeechRate mode);
/* ---- G.726 ------------------------------------------------------------- */

/* Size in bytes of KvoG726EncodeState. */
KvoStatus kvosEncodeGetStateSize_G726_16s8u(Kvo32s* pSize);
/* Starts a G.726 encoder at rate 17, 22, 23 or 24 (16, 24, 32, 40 kbit/s). */
KvoStatus kvosEncodeInit_G726_16s8u(KvoG726EncodeState* pState, KvoSpeechRate rate);
/* G.726 encoder: 14-bit linear samples to one right-justified code per byte. */
KvoStatus kvosEncode_G726_16s8u(KvoG726EncodeState* pState, const Kvo16s* pSrc, Kvo8u* pDst,
                                Kvo32s len);
/* Size in bytes of KvoG726DecodeState. */
KvoStatus kvosDecodeGetStateSize_G726_8u16s(Kvo32s* pSize);
/* Starts a G.726 decoder at a rate as the encoder's; law 0 mu-law, 1 A-law, 2 linear output. */
KvoStatus kvosDecodeInit_G726_8u16s(KvoG726DecodeState* pState, KvoSpeechRate rate, Kvo32s law);
/* G.726 decoder: codes to 14-bit linear samples or G.711 bytes with tandem adjustment. */
KvoStatus kvosDecode_G726_8u16s(KvoG726DecodeState* pState, const Kvo8u* pSrc, Kvo16s* pDst,
                                Kvo32s len);

/* ---- G.169 level control ----------------------------------------------- */

/* Size in bytes of KvoALCState (124). */
KvoStatus kvosALCGetStateSize_G169_16s(Kvo32s* pSize);
/* Starts the level control: target -26.1 dBov, ceiling 0 dBov, maximum gain 11.6 dB. */
KvoStatus kvosALCInit_G169_16s(KvoALCState* pState);
/* Sets the target and the ceiling, both in dB below full scale (32768). */
KvoStatus kvosALCSetLevel_G169_16s(KvoALCState* pState, Kvo32f targetDb, Kvo32f maxDb);
/* Sets the highest gain in dB. */
KvoStatus kvosALCSetGain_G169_16s(KvoALCState* pState, Kvo32f maxGainDb);
/* G.169 level control on blocks of 8 samples; len a multiple of 8; pDst may be pSrc. */
KvoStatus kvosALC_G169_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, KvoALCState* pState);

/* ---- G.722.1 transform coder ----------------------------------------------
 * Frames of len = 320 (7 kHz, 16 kHz sampling) or 640 samples (14 kHz, 32 kHz
 * sampling) in the MLT domain.  The block-floating shift between windowing and
 * transform is the caller's, in both directions.  The _G722_16s members are
 * the same steps fixed at 320 samples. */
/* MLT windowing and folding of len new samples against the len in pMem; pMem := pSrc. */
KvoStatus kvosDecomposeMLTToDCT_G7221_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst,
                                          Kvo32s len);
/* Inverse windowing with overlap-add against pMem (len/2); pMem := pSrc[len/2..len-1]. */
KvoStatus kvosDecomposeDCTToMLT_G7221_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst,
                                          Kvo32s len);
/* Forward fixed-point DCT-IV; the analysis bias is added first at 320 samples. */
KvoStatus kvosDCTFwd_G7221_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len);
/* Inverse fixed-point DCT-IV with dither; the synthesis bias is added at 320 samples. */
KvoStatus kvosDCTInv_G7221_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len);
/* kvosDecomposeMLTToDCT_G7221_16s at 320 samples. */
KvoStatus kvosDecomposeMLTToDCT_G722_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst);
/* kvosDecomposeDCTToMLT_G7221_16s at 320 samples. */
KvoStatus kvosDecomposeDCTToMLT_G722_16s(const Kvo16s* pSrc, Kvo16s* pMem, Kvo16s* pDst);
/* kvosDCTFwd_G7221_16s at 320 samples. */
KvoStatus kvosDCTFwd_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst);
/* kvosDCTInv_G7221_16s at 320 samples. */
KvoStatus kvosDCTInv_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst);
/* Quantizes one region of 20 coefficients (category 0..6, power index 0..63) and
 * packs its vector Huffman code into pDst, first code in the high bits (room for
 * 6 words); *pBits receives the bit count. */
KvoStatus kvosHuffmanEncode_G722_16s32u(Kvo32s category, Kvo32s powerIndex, const Kvo16s* pSrc,
                                        Kvo32u* pDst, Kvo32s* pBits);
/* ---- G.728 LD-CELP ---------------------------------------------------- */

/* Bytes of a hybrid-window state for order M, L new samples, N non-recursive, blocks of blockLen. */
KvoStatus kvosWinHybridGetStateSize_G728_16s(Kvo32s order, Kvo32s frameLen, Kvo32s nonRecLen,
                                             Kvo32s blockLen, Kvo32s* pSize);
/* Starts a hybrid-window state; keeps pWindow (M+L+N Q15); decay 12288 (3/4) or 8192 (1/2). */
KvoStatus kvosWinHybridInit_G728_16s(const Kvo16s* pWindow, Kvo32s order, Kvo32s frameLen,
                                     Kvo32s nonRecLen, Kvo32s blockLen, Kvo32s decay,
                                     Kvo8u* pState);
/* Hybrid window over L new samples: normalised autocorrelation, lags 0..M (0..10 if shortLags 1). */
KvoStatus kvosWinHybrid_G728_16s(Kvo32s shortLags, const Kvo16s* pSrc, Kvo16s* pDst,
                                 Kvo8u* pState);
/* Same, for samples carrying one exponent per block of 5 (order-50 analysis). */
KvoStatus kvosWinHybridBlock_G728_16s(Kvo32s shortLags, const Kvo16s* pSrc, const Kvo16s* pExp,
                                      Kvo16s* pDst, Kvo8u* pState);
/* Levinson-Durbin recursion in block floating point, order 0..order; pScale: fraction bits. */
KvoStatus kvosLevinsonDurbin_G728_16s_Sfs(const Kvo16s* pSrc, Kvo32s order, Kvo16s* pDstLPC,
                                          Kvo16s* pDstRC, Kvo16s* pResidual, Kvo16s* pScale);
/* Continues a recursion from startOrder to endOrder. */
KvoStatus kvosLevinsonDurbin_G728_16s_ISfs(const Kvo16s* pSrc, Kvo32s startOrder,
                                           Kvo32s endOrder, Kvo16s* pSrcDstLPC,
                                           Kvo16s* pResidual, Kvo16s* pScale);
/* Energies of the 128 filtered shape code vectors for an impulse response (Q13). */
KvoStatus kvosImpulseResponseEnergy_G728_16s(const Kvo16s* pSrc, Kvo16s* pDst);
/* Shape, gain and sign search; rate 17 (16 kbit/s), 14 (12.8) or 10 (9.6). */
KvoStatus kvosCodebookSearch_G728_16s(const Kvo16s* pSrc, const Kvo16s* pEnergy, Kvo32s* pShape,
                                      Kvo32s* pGain, Kvo16s* pCode, Kvo32s rate);
/* 40 kbit/s four-state trellis-coded quantisation of one 5-sample vector. */
KvoStatus kvosCodebookSearchTCQ_G728_16s8u(const Kvo16s* pSrc, const Kvo16s* pCoef, Kvo8u* pDst,
                                           Kvo16s* pMem, Kvo16s* pQuant, Kvo32s* pState,
                                           KvoG728ScaledValue invGain, KvoG728ScaledValue gain);
/* Record sizes and Init of the filter states. */
KvoStatus kvosSynthesisFilterGetStateSize_G728_16s(Kvo32s* pSize);
KvoStatus kvosSynthesisFilterInit_G728_16s(KvoG728SynthesisState* pState);
KvoStatus kvosCombinedFilterGetStateSize_G728_16s(Kvo32s* pSize);
KvoStatus kvosCombinedFilterInit_G728_16s(KvoG728CombinedState* pState);
KvoStatus kvosIIR16sGetStateSize_G728_16s(Kvo32s* pSize);
KvoStatus kvosIIR16sInit_G728_16s(KvoG728IIRState* pState);
KvoStatus kvosPostFilterGetStateSize_G728_16s(Kvo32s* pSize);
KvoStatus kvosPostFilterInit_G728_16s(KvoG728PostFilterState* pState);
KvoStatus kvosPostFilterAdapterGetStateSize_G728(Kvo32s* pSize);
KvoStatus kvosPostFilterAdapterStateInit_G728(KvoG728PostFilterAdapterState* pState);
/* Order-50 synthesis of 5 samples: zero-input response plus the excitation's; output with exponent. */
KvoStatus kvosSyntesisFilterZeroInput_G728_16s(const Kvo16s* pCoef, Kvo16s* pSrcDst, Kvo32s srcExp,
                                               Kvo16s* pDst, Kvo16s* pDstExp,
                                               KvoG728SynthesisState* pState);
/* Zero-input response of synthesis and weighting filters, 5 samples at exponent 2. */
KvoStatus kvosCombinedFilterZeroInput_G728_16s(const Kvo16s* pCoef, const Kvo16s* pWeight,
                                               Kvo16s* pDst, KvoG728CombinedState* pState);
/* Adds the chosen excitation's response to the combined filter memory. */
KvoStatus kvosCombinedFilterZeroState_G728_16s(const Kvo16s* pCoef, const Kvo16s* pWeight,
                                               Kvo16s* pSrcDst, Kvo32s srcExp, Kvo16s* pDst,
                                               Kvo16s* pDstExp, KvoG728CombinedState* pState);
/* Order-10 pole-zero filter; pWeight: 10 zero then 10 pole coefficients, Q14. */
KvoStatus kvosIIR16s_G728_16s(const Kvo16s* pWeight, const Kvo16s* pSrc, Kvo16s* pDst,
                              Kvo32s len, KvoG728IIRState* pState);
/* Adaptive post filter of 5 samples: long-term, short-term and tilt stages. */
KvoStatus kvosPostFilter_G728_16s(Kvo16s gain, Kvo16s gainLag, Kvo16s lag, Kvo16s tilt,
                                  const Kvo16s* pCoef, const Kvo16s* pSrc, Kvo16s* pDst,
                                  KvoG728PostFilterState* pState);
/* Order-10 LPC inverse filter of 5 samples (post-filter residual). */
KvoStatus kvosLPCInverseFilter_G728_16s(const Kvo16s* pSrc, const Kvo16s* pCoef, Kvo16s* pDst,
                                        KvoG728PostFilterAdapterState* pState);
/* Pitch period from 100 residual samples (140 before them); pPitch in and out. */
KvoStatus kvosPitchPeriodExtraction_G728_16s(const Kvo16s* pSrc, Kvo32s* pPitch,
                                             KvoG728PostFilterAdapterState* pState);
/* ---- AMR-WB ISF and ISP ---------------------------------------------------
 * ISP Q15 cosines; ISF Q15 of 0..6400 Hz (last entry at half scale); LP Q12. */
/* Split multistage ISF quantiser with MA prediction (46-bit form; 36-bit for modes 5, 25). */
KvoStatus kvosISFQuant_AMRWB_16s(const Kvo16s* pIsf, Kvo16s* pPredMem, Kvo16s* pIsfQ,
                                 Kvo16s* pIndices, KvoSpeechRate mode);
/* ISF decoder with erasure concealment (3 x 16 history of quantised vectors). */
KvoStatus kvosISFQuantDecode_AMRWB_16s(const Kvo16s* pIndices, Kvo16s* pIsfQ, Kvo16s* pPredMem,
                                       const Kvo16s* pPrevIsf, Kvo16s* pHistory, Kvo32s badFrame,
                                       KvoSpeechRate mode);
/* The 46-bit decoder with stage-2 parts marked lost (bit k of lostMask) left out. */
KvoStatus kvosISFQuantDecode_AMRWBE_16s(const Kvo16s* pIndices, Kvo16s* pIsfQ, Kvo16s* pPredMem,
                                        const Kvo16s* pPrevIsf, Kvo16s* pHistory,
                                        Kvo32s badFrame, Kvo32s lostMask);
/* Comfort-noise ISF quantiser (5 indices). */
KvoStatus kvosISFQuantDTX_AMRWB_16s(const Kvo16s* pIsf, Kvo16s* pIsfQ, Kvo16s* pIndices);
/* Comfort-noise ISF decoder. */
KvoStatus kvosISFQuantDecodeDTX_AMRWB_16s(const Kvo16s* pIndices, Kvo16s* pIsfQ);
/* ISP (cosines) to ISF. */
KvoStatus kvosISPToISF_Norm_AMRWB_16s(const Kvo16s* pIsp, Kvo16s* pIsf, Kvo32s len);
/* ISF to ISP (cosines). */
KvoStatus kvosISFToISP_AMRWB_16s(const Kvo16s* pIsf, Kvo16s* pIsp, Kvo32s len);
/* LP coefficients to ISP of any even or odd order; the previous ISP when roots are missing. */
KvoStatus kvosLPCToISP_AMRWBE_16s(const Kvo16s* pLpc, const Kvo16s* pOldIsp, Kvo16s* pIsp,
                                  Kvo32s order);
/* The same at order 16. */
KvoStatus kvosLPCToISP_AMRWB_16s(const Kvo16s* pLpc, Kvo16s* pIsp, const Kvo16s* pOldIsp);
/* ISP to LP coefficients (len 1..20; len + 1 coefficients out). */
KvoStatus kvosISPToLPC_AMRWB_16s(const Kvo16s* pIsp, Kvo16s* pLpc, Kvo32s len);

/* ---- AMR-WB VAD and DTX ---------------------------------------------------- */
/* Bytes of KvoVADState_AMRWB (172). */
KvoStatus kvosVADGetSize_AMRWB_16s(Kvo32s* pSize);
/* Start values of the detector. */
KvoStatus kvosVADInit_AMRWB_16s(KvoVADState_AMRWB* pState);
/* One 256-sample frame at 12.8 kHz: VAD flag; clears bits 13-15 of the tone register on
 * quiet frames. */
KvoStatus kvosVAD_AMRWB_16s(const Kvo16s* pSrc, KvoVADState_AMRWB* pState, Kvo16s* pToneRegister,
                            Kvo16s* pVadFlag);
/* The 12 band energies of the last frame. */
KvoStatus kvosVADGetEnergyLevel_AMRWB_16s(const KvoVADState_AMRWB* pState, Kvo16s* pDst);
/* Encoder DTX history: ISF vector and frame log energy (Q7, less the mode's rate term) at the
 * next place of the eight-frame ring. */
KvoStatus kvosEncDTXBuffer_AMRWB_16s(const Kvo16s* pSrc, const Kvo16s* pIsf, Kvo16s* pHistIndex,
                                     Kvo16s* pIsfHistory, Kvo16s* pLogEnHistory,
                                     KvoSpeechRate mode);
/* Decoder DTX history: the same without the rate term. */
KvoStatus kvosDecDTXBuffer_AMRWB_16s(const Kvo16s* pSrc, const Kvo16s* pIsf, Kvo16s* pHistIndex,
                                     Kvo16s* pIsfHistory, Kvo16s* pLogEnHistory);

/* ---- AMR-WB filters ------------------------------------------------------
 * Sample-level filters of AMR-WB and AMR-WB+ on 12.8 kHz subframes; the
 * caller gives every coefficient.  Outputs saturate; no warnings. */
/* 1/A(z) with a 32-bit output history (order values before pSrcDst). */
KvoStatus kvosSynthesisFilter_AMRWB_16s32s_I(const Kvo16s* pCoef, Kvo32s order, const Kvo16s* pSrc,
                                             Kvo32s* pSrcDst, Kvo32s len);
/* The same, saturating after every term in the AMR-WB+ order. */
KvoStatus kvosSynthesisFilter_AMRWBE_16s32s_I(const Kvo16s* pCoef, Kvo32s order,
                                              const Kvo16s* pSrc, Kvo32s* pSrcDst, Kvo32s len);
/* Bytes of KvoHighPassStateAMRWB (order 2 or 3). */
KvoStatus kvosHighPassFilterGetSize_AMRWB_16s(Kvo32s order, Kvo32s* pSize);
/* Stores a[0..order], b[0..order] and clears the history. */
KvoStatus kvosHighPassFilterInit_AMRWB_16s(const Kvo16s* pCoefA, const Kvo16s* pCoefB,
                                           Kvo32s order, KvoHighPassStateAMRWB* pState);
/* Order-3 high-pass; the history follows scaleFactor when it changes. */
KvoStatus kvosHighPassFilter_AMRWB_16s_Sfs(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                           KvoHighPassStateAMRWB* pState, Kvo32s scaleFactor);
/* Order-2 high-pass in place; output scaled by 2^(15 - scaleFactor). */
KvoStatus kvosHighPassFilter_AMRWB_16s_ISfs(Kvo16s* pSrcDst, Kvo32s len,
                                            KvoHighPassStateAMRWB* pState, Kvo32s scaleFactor);
/* History to the exchange order (6 values for order 2, 9 for order 3). */
KvoStatus kvosHighPassFilterGetDlyLine_AMRWB_16s(const KvoHighPassStateAMRWB* pState,
                                                 Kvo16s* pDlyLine, Kvo32s order);
/* History from the exchange order. */
KvoStatus kvosHighPassFilterSetDlyLine_AMRWB_16s(const Kvo16s* pDlyLine,
                                                 KvoHighPassStateAMRWB* pState, Kvo32s order);
/* Symmetric three-tap filter c0, -c1 (mode 0: centre 1.0, one-sided ends). */
KvoStatus kvosHighPassFilter_Direct_AMRWB_16s(const Kvo16s* pCoef, const Kvo16s* pSrc,
                                              Kvo16s* pDst, Kvo32s len, Kvo32s mode);
/* De-emphasis of a 32-bit synthesis to 16 bits; val is the factor in Q14. */
KvoStatus kvosDeemphasize_AMRWB_32s16s(Kvo16s val, const Kvo32s* pSrc, Kvo16s* pDst, Kvo32s len,
                                       Kvo16s* pMem);
/* De-emphasis in place, rounded; val in Q15. */
KvoStatus kvosDeemphasize_AMRWB_NR_16s_I(Kvo16s val, Kvo16s* pSrcDst, Kvo32s len, Kvo16s* pMem);
/* De-emphasis in place of input scaled up by 2^s (s 0..15). */
KvoStatus kvosDeemphasize_AMRWBE_NR_16s_I(Kvo16s val, Kvo32s s, Kvo16s* pSrcDst, Kvo32s len,
                                          Kvo16s* pMem);
/* Pre-emphasis in place, from the last sample back; output scaled by 2^-scaleFactor. */
KvoStatus kvosPreemphasize_AMRWB_16s_ISfs(Kvo16s val, Kvo16s* pSrcDst, Kvo32s len,
                                          Kvo32s scaleFactor, Kvo16s* pMem);
/* A(z) residual (order samples of history before pSrc), saturated, scaled by 2^(15 - sf). */
KvoStatus kvosResidualFilter_AMRWB_16s_Sfs(const Kvo16s* pCoef, Kvo16s order, const Kvo16s* pSrc,
                                           Kvo16s* pDst, Kvo32s len, Kvo32s scaleFactor);
/* The same residual rounded and shifted right by scaleFactor. */
KvoStatus kvosResidualFilter_Low_16s_Sfs(const Kvo16s* pCoef, Kvo16s order, const Kvo16s* pSrc,
                                         Kvo16s* pDst, Kvo32s len, Kvo32s scaleFactor);
/* val1 2^-scale1 pSrc1 + val2 2^-scale2 pSrc2, rounded at the finer scale. */
KvoStatus kvosInterpolateC_NR_16s(const Kvo16s* pSrc1, Kvo16s val1, Kvo32s scale1,
                                  const Kvo16s* pSrc2, Kvo16s val2, Kvo32s scale2, Kvo16s* pDst,
                                  Kvo32s len);
/* ---- Echo canceller controllers -------------------------------------------
 * Once per frame of the subband canceller the controller compares the errors of
 * the adaptive and the fixed coefficient sets, copies per subband the better set
 * over the other and gives an output gain (1 while the filter is untrusted, toward
 * 0 once it cancels); the update gives the normalised step per subband.  The
 * fullband pair does the same on one real FIR pair.  sampleFreq 8000 or 16000
 * (else kvoErrRange).  Records: see kvosc_types.h. */

/* Bytes of the float subband controller record: 16*numSubbands + 112. */
KvoStatus kvosSubbandControllerGetSize_EC_32f(Kvo32s numSubbands, Kvo32s frameSize,
                                              Kvo32s numSegments, Kvo32s sampleFreq,
                                              Kvo32s* pSize);
/* Start state: zero powers, gain and convergence state 1, smoothing from the frame rate. */
KvoStatus kvosSubbandControllerInit_EC_32f(KvoSubbandController32fState* pState,
                                           Kvo32s numSubbands, Kvo32s frameSize,
                                           Kvo32s numSegments, Kvo32s sampleFreq);
/* Clears the error and coefficient powers; reference sum, gain and convergence stay. */
KvoStatus kvosSubbandControllerReset_EC_32f(KvoSubbandController32fState* pState);
/* Per-subband save/restore between the coefficient sets, and the frame's output gain. */
KvoStatus kvosSubbandController_EC_32f(const Kvo32fc* pErrAdaptive, const Kvo32fc* pErrFixed,
                                       Kvo32fc** ppAdaptiveCoefs, Kvo32fc** ppFixedCoefs,
                                       Kvo32f* pGain, KvoSubbandController32fState* pState);
/* Step per subband learningRate / reference energy over the rows (0..1); pMicSubbands may
 * be null. */
KvoStatus kvosSubbandAPControllerUpdate_EC_32f(const Kvo32fc* const* ppRefRows,
                                               const Kvo32fc* pMicSubbands, Kvo64f* pStep,
                                               KvoSubbandController32fState* pState,
                                               Kvo32f learningRate);
/* The update with learning rate 0.5; the two blocks are tested for null only. */
KvoStatus kvosSubbandControllerUpdate_EC_32f(const Kvo32f* pRefBlock, const Kvo32f* pMicBlock,
                                             const Kvo32fc* const* ppRefRows,
                                             const Kvo32fc* pMicSubbands, Kvo64f* pStep,
                                             KvoSubbandController32fState* pState);
/* Bytes of the 16-bit subband controller record: 5*roundUp16(4*numSubbands) + 128. */
KvoStatus kvosSubbandControllerGetSize_EC_16s(Kvo32s numSubbands, Kvo32s frameSize,
                                              Kvo32s numSegments, Kvo32s sampleFreq,
                                              Kvo32s* pSize);
/* Start state of the 16-bit controller (Q14 factors, Q15 gain). */
KvoStatus kvosSubbandControllerInit_EC_16s(KvoSubbandController16sState* pState,
                                           Kvo32s numSubbands, Kvo32s frameSize,
                                           Kvo32s numSegments, Kvo32s sampleFreq);
/* Clears the error and coefficient powers. */
KvoStatus kvosSubbandControllerReset_EC_16s(KvoSubbandController16sState* pState);
/* 16-bit controller; *pGain Q15. */
KvoStatus kvosSubbandController_EC_16s(const Kvo32sc* pErrAdaptive, const Kvo32sc* pErrFixed,
                                       Kvo32sc** ppAdaptiveCoefs, Kvo32sc** ppFixedCoefs,
                                       Kvo16s* pGain, KvoSubbandController16sState* pState);
/* 16-bit update: step 0.5 / reference energy as mantissa and exponent per subband. */
KvoStatus kvosSubbandControllerUpdate_EC_16s(const Kvo16s* pRefBlock, const Kvo16s* pMicBlock,
                                             const Kvo32sc* const* ppRefRows,
                                             const Kvo32sc* pMicSubbands, KvoStepPair* pStep,
                                             KvoSubbandController16sState* pState);
/* Bytes of the fullband controller record: 72 (float), 96 (16-bit). */
KvoStatus kvosFullbandControllerGetSize_EC_32f(Kvo32s frameSize, Kvo32s tapLen,
                                               Kvo32s sampleFreq, Kvo32s* pSize);
KvoStatus kvosFullbandControllerGetSize_EC_16s(Kvo32s frameSize, Kvo32s tapLen,
                                               Kvo32s sampleFreq, Kvo32s* pSize);
/* Start state of the fullband controller. */
KvoStatus kvosFullbandControllerInit_EC_32f(KvoFullbandController32fState* pState,
                                            Kvo32s frameSize, Kvo32s tapLen, Kvo32s sampleFreq);
KvoStatus kvosFullbandControllerInit_EC_16s(KvoFullbandController16sState* pState,
                                            Kvo32s frameSize, Kvo32s tapLen, Kvo32s sampleFreq);
/* Clears the error and coefficient powers; gain and convergence stay. */
KvoStatus kvosFullbandControllerReset_EC_32f(KvoFullbandController32fState* pState);
KvoStatus kvosFullbandControllerReset_EC_16s(KvoFullbandController16sState* pState);
/* NLMS step per sample, 0.5 / energy of the last tapLen reference samples (tapLen of
 * history before pRef). */
KvoStatus kvosFullbandControllerUpdate_EC_32f(const Kvo32f* pRef, const Kvo32f* pMic,
                                              Kvo32f* pStep,
                                              KvoFullbandController32fState* pState);
/* 16-bit form; the step suits kvosNLMS_EC_16s. */
KvoStatus kvosFullbandControllerUpdate_EC_16s(const Kvo16s* pRef, const Kvo16s* pMic,
                                              Kvo32s* pStep,
                                              KvoFullbandController16sState* pState);
/* Save/restore between the adaptive and the fixed taps, and the frame's output gain. */
KvoStatus kvosFullbandController_EC_32f(const Kvo32f* pErrAdaptive, const Kvo32f* pErrFixed,
                                        Kvo32f* pAdaptiveCoefs, Kvo32f* pFixedCoefs,
                                        Kvo32f* pGain, KvoFullbandController32fState* pState);
/* 16-bit form; Q15 taps and gain. */
KvoStatus kvosFullbandController_EC_16s(const Kvo16s* pErrAdaptive, const Kvo16s* pErrFixed,
                                        Kvo16s* pAdaptiveCoefs, Kvo16s* pFixedCoefs,
                                        Kvo16s* pGain, KvoFullbandController16sState* pState);
/* Bytes of the double-talk controller record. */
KvoStatus kvosSubbandControllerDTGetSize_EC_16s(Kvo32s numSubbands, Kvo32s frameSize,
                                                Kvo32s numSegments, Kvo32s sampleFreq,
                                                Kvo32s* pSize);
/* Start state of the double-talk controller (numSubbands * numSegments below 21475). */
KvoStatus kvosSubbandControllerDTInit_EC_16s(KvoSubbandControllerDT16sState* pState,
                                             Kvo32s numSubbands, Kvo32s frameSize,
                                             Kvo32s numSegments, Kvo32s sampleFreq);
/* Back to the start state. */
KvoStatus kvosSubbandControllerDTReset_EC_16s(KvoSubbandControllerDT16sState* pState);
/* Steps per subband from startSubband up, per-subband double-talk flags, frame flags. */
KvoStatus kvosSubbandControllerDTUpdate_EC_16s(const Kvo32sc* const* ppRefRows,
                                               const Kvo32sc* pMicSubbands,
                                               const Kvo32sc* pErrSubbands, KvoStepPair* pStep,
                                               Kvo32s* pDoubleTalk, Kvo32s* pLowDoubleTalk,
                                               Kvo32s startSubband,
                                               KvoSubbandControllerDT16sState* pState);
/* Saves or restores the whole filter; *pAction -1 saved, 1 restored, 0 nothing. */
KvoStatus kvosSubbandControllerDT_EC_16s(const Kvo32sc* pErrAdaptive, const Kvo32sc* pErrFixed,
                                         Kvo32sc** ppAdaptiveCoefs, Kvo32sc** ppFixedCoefs,
                                         Kvo64s* pTrackedPower, Kvo32s* pAction,
                                         Kvo64s testPower, Kvo32s errorsValid,
                                         Kvo32s keepChanges, Kvo32s startSubband,
                                         KvoSubbandControllerDT16sState* pState);

/* ---- AMR-WB algebraic codebook, pitch and gain ----------------------------
 * Codebook, pitch and gain steps of AMR-WB and of the ACELP modes of AMR-WB+
 * on subframes of 64 samples at 12.8 kHz.  mode is the bit-rate code (5, 9,
 * 13, 15, 16, 18, 19, 20, 21, 25; the codebook and the AMR-WB+ pitch forms
 * also 22 and 26 to 32); lags in 12.8 kHz samples, fractions in quarters. */
/* Algebraic codebook search: code vector (Q9), its filtered form, index words. */
KvoStatus kvosAlgebraicCodebookSearch_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                                                const Kvo16s* pImpulse, Kvo16s* pDstCode,
                                                Kvo16s* pDstFiltered, KvoSpeechRate mode,
                                                Kvo16s* pDstIndices);
/* Code vector (pulses of +-512) from the index words of the mode. */
KvoStatus kvosAlgebraicCodebookDecode_AMRWB_16s(const Kvo16s* pSrcIndices, Kvo16s* pDstCode,
                                                KvoSpeechRate mode);
/* Open-loop lag on the 6.4 kHz weighted speech (115 history samples before it). */
KvoStatus kvosOpenLoopPitchSearch_AMRWB_16s(const Kvo16s* pWsp, const Kvo16s* pHpWsp,
                                            Kvo16s* pMedianLag, Kvo16s* pWeightGain,
                                            Kvo32s* pDstLag, Kvo16s* pToneRegister,
                                            Kvo16s* pDstNormCorr, Kvo16s* pLagHistory,
                                            Kvo16s* pWeightFlag, Kvo32s len);
/* Closed-loop quarter-sample lag with lag adjustment adj (-17..17); writes the
 * 65-sample adaptive vector at pExcitation. */
KvoStatus kvosAdaptiveCodebookSearch_AMRWBE_16s(const Kvo16s* pTarget, const Kvo16s* pImpulse,
                                                const Kvo32s* pOpenLoopLags, Kvo32s* pDstLag,
                                                Kvo32s* pLagBounds, Kvo16s* pExcitation,
                                                Kvo32s* pDstFraction, Kvo32s* pDstIndex,
                                                Kvo32u subframe, KvoSpeechRate mode, Kvo16s adj);
/* The same at adj 0. */
KvoStatus kvosAdaptiveCodebookSearch_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pImpulse,
                                               const Kvo32s* pOpenLoopLags, Kvo32s* pDstLag,
                                               Kvo32s* pLagBounds, Kvo16s* pExcitation,
                                               Kvo32s* pDstFraction, Kvo32s* pDstIndex,
                                               Kvo32u subframe, KvoSpeechRate mode);
/* Bytes of KvoAdaptiveDecodeState_AMRWB (24). */
KvoStatus kvosAdaptiveCodebookDecodeGetSize_AMRWB_16s(Kvo32s* pSize);
/* Start values of the decoder's lag and gain history. */
KvoStatus kvosAdaptiveCodebookDecodeInit_AMRWB_16s(KvoAdaptiveDecodeState_AMRWB* pState);
/* Lag from the index (or by concealment) and the adaptive vector. */
KvoStatus kvosAdaptiveCodebookDecode_AMRWB_16s(Kvo32u index, Kvo32s* pDstFraction,
                                               Kvo16s* pExcitation, Kvo32s* pDstLag,
                                               Kvo32s* pLagBounds, Kvo64s subframe,
                                               Kvo32s badFrame, Kvo32s unusableFrame,
                                               KvoSpeechRate mode,
                                               KvoAdaptiveDecodeState_AMRWB* pState);
/* AMR-WB+ form: no history; a bad frame steps the lag in and out of pLag, pFraction. */
KvoStatus kvosAdaptiveCodebookDecode_AMRWBE_16s(Kvo32u index, Kvo16s* pExcitation, Kvo32s* pLag,
                                                Kvo32s* pFraction, Kvo32s* pLagBounds,
                                                Kvo32s subframe, Kvo32s badFrame, Kvo16s adj);
/* Pushes a subframe's pitch gain and lag into the decoder's history. */
KvoStatus kvosAdaptiveCodebookDecodeUpdate_AMRWB_16s(Kvo32s gain, Kvo32s lag,
                                                     KvoAdaptiveDecodeState_AMRWB* pState);
/* Adaptive gain (Q14, at most 1.2) and the energy/correlation terms. */
KvoStatus kvosAdaptiveCodebookGainCoeff_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pFiltered,
                                                  Kvo16s* pCoeffs, Kvo16s* pDstGain, Kvo32s len);
/* Joint 6- or 7-bit quantiser of the pitch gain and the code gain. */
KvoStatus kvosGainQuant_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pFiltered, Kvo32u qTarget,
                                  const Kvo16s* pCode, const Kvo16s* pFilteredCode,
                                  const Kvo16s* pCoeffs, Kvo16s* pPastEnergy,
                                  Kvo16s* pGainPitch, Kvo32s* pDstGainCode, Kvo32s clipFlag,
                                  Kvo32s* pDstIndex, Kvo32s len, KvoSpeechRate mode);
/* Gain decoder with its bad-frame path. */
KvoStatus kvosDecodeGain_AMRWB_16s(Kvo32s index, Kvo32u gainInnovation, Kvo16s* pDstGainPitch,
                                   Kvo32s* pDstGainCode, Kvo32s badFrame, Kvo32s previousBad,
                                   Kvo16s* pPastEnergy, Kvo16s* pPreviousCodeGain,
                                   Kvo16s* pCodeGain, KvoSpeechRate mode);

/* ---- Noise filter (echo path) ---------------------------------------------
 * One stream at 8000, 16000, 22050 or 32000 Hz (other rates: kvoErrRange), in
 * frames of 16 float samples at 16-bit amplitude.  pState is the caller's
 * block of the size the query gives, set up by the Init function. */

/* Bytes of the noise filter block for the rate. */
KvoStatus kvosFilterNoiseGetStateSize_EC_32f(Kvo32s sampleFreq, Kvo32s* pSize);
/* Writes the start state: empty histories, no noise known, level 5, no smoothing. */
KvoStatus kvosFilterNoiseInit_EC_32f(Kvo32s sampleFreq, KvoFilterNoise32fState* pState);
/* Suppression level 0 (off) to 4 (deepest), or 5 (2, or 0 for quiet noise). */
KvoStatus kvosFilterNoiseLevel_EC_32f(Kvo32s level, KvoFilterNoise32fState* pState);
/* Output smoothing: -1 adaptive length, 0 fixed 17-tap FIR, 1 none. */
KvoStatus kvosFilterNoiseSetMode_EC_32f(Kvo32s smoothMode, KvoFilterNoise32fState* pState);
/* Analyses one frame and takes it as the noise spectrum when it ends a stationary noise run. */
KvoStatus kvosFilterNoiseDetect_EC_32f64f(const Kvo32f* pSrc, Kvo64f* pNoisePower,
                                          Kvo32f* pNoiseMean, Kvo32s* pNoiseFlag,
                                          KvoFilterNoise32fState* pState);
/* The detector with a gate on a second signal (pRefSrc, 16 samples) standing above the first. */
KvoStatus kvosFilterNoiseDetectModerate_EC_32f64f(const Kvo32f* pSrc, const Kvo32f* pRefSrc,
                                                  Kvo64f* pNoisePower, Kvo32f* pNoiseMean,
                                                  Kvo32s* pNoiseFlag,
                                                  KvoFilterNoise32fState* pState);
/* Suppresses noise in one frame (56 samples of delay); noiseFlag -1: analysed by a detector,
 * 1: the frame is noise, other: the frame is not noise. */
KvoStatus kvosFilterNoise_EC_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s noiseFlag,
                                 KvoFilterNoise32fState* pState);
/* The same in place. */
KvoStatus kvosFilterNoise_EC_32f_I(Kvo32f* pSrcDst, Kvo32s noiseFlag,
                                   KvoFilterNoise32fState* pState);

/* ---- Echo cancellation: filter bank, adaptive filters, tone detection ------
 * Rows: arrays of row pointers, one complex element per subband; row 0 the
 * newest.  Aligned records are used from the first 16-byte boundary of the
 * caller's block, which must be passed unchanged at every call. */

/* Bytes of the float filter-bank record, of the init scratch and of the per-call scratch. */
KvoStatus kvosSubbandProcessGetSize_32f(Kvo32s order, Kvo32s windowLen, Kvo32s* pSize,
                                        Kvo32s* pInitBufSize, Kvo32s* pWorkBufSize);
/* The same for the 16-bit filter bank. */
KvoStatus kvosSubbandProcessGetSize_16s(Kvo32s order, Kvo32s windowLen, Kvo32s* pSize,
                                        Kvo32s* pInitBufSize, Kvo32s* pWorkBufSize);
/* Sets up the float filter bank; a null pWindow takes the prototype of (5,24,128) or (6,44,256). */
KvoStatus kvosSubbandProcessInit_32f(KvoSubbandProcess32fState* pState, Kvo32s order,
                                     Kvo32s blockLen, Kvo32s windowLen, const Kvo32f* pWindow,
                                     Kvo8u* pInitBuf);
/* Sets up the 16-bit filter bank; pWindow Q13 or null. */
KvoStatus kvosSubbandProcessInit_16s(KvoSubbandProcess16sState* pState, Kvo32s order,
                                     Kvo32s blockLen, Kvo32s windowLen, const Kvo16s* pWindow,
                                     Kvo8u* pInitBuf);
/* blockLen samples to one vector of 2^(order-1)+1 subband samples. */
KvoStatus kvosSubbandAnalysis_32f32fc(const Kvo32f* pSrc, Kvo32fc* pDst,
                                      KvoSubbandProcess32fState* pState, Kvo8u* pWorkBuf);
/* The same in integers; scaleFactor goes to the forward FFT. */
KvoStatus kvosSubbandAnalysis_16s32sc_Sfs(const Kvo16s* pSrc, Kvo32sc* pDst,
                                          KvoSubbandProcess16sState* pState, Kvo32s scaleFactor,
                                          Kvo8u* pWorkBuf);
/* One subband vector to blockLen samples by overlap-add. */
KvoStatus kvosSubbandSynthesis_32fc32f(const Kvo32fc* pSrc, Kvo32f* pDst,
                                       KvoSubbandProcess32fState* pState, Kvo8u* pWorkBuf);
/* The same in integers; scaleFactor goes to the inverse FFT. */
KvoStatus kvosSubbandSynthesis_32sc16s_Sfs(const Kvo32sc* pSrc, Kvo16s* pDst,
                                           KvoSubbandProcess16sState* pState, Kvo32s scaleFactor,
                                           Kvo8u* pWorkBuf);
/* Echo estimate per subband: sum over rows of X_r[k] * H_r[k]. */
KvoStatus kvosFIRSubband_EC_32fc(const Kvo32fc** ppRefRows, const Kvo32fc** ppCoefRows,
                                 Kvo32fc* pDst, Kvo32s numSegments, Kvo32s numSubbands);
/* The same with 64-bit saturating sums, scaled by 2^-scaleFactor (-31..31) toward zero. */
KvoStatus kvosFIRSubband_EC_32sc_Sfs(const Kvo32sc** ppRefRows, const Kvo32sc** ppCoefRows,
                                     Kvo32sc* pDst, Kvo32s numSegments, Kvo32s numSubbands,
                                     Kvo32s scaleFactor);
/* Wrapping form for subbands startSubband..numSubbands-1. */
KvoStatus kvosFIRSubbandLow_EC_32sc_Sfs(const Kvo32sc** ppRefRows, const Kvo32sc** ppCoefRows,
                                        Kvo32s numSegments, Kvo32sc* pDst, Kvo32s startSubband,
                                        Kvo32s numSubbands, Kvo32s scaleFactor);
/* H_r[k] += step[k] * E[k] * conj(X_r[k]). */
KvoStatus kvosFIRSubbandCoeffUpdate_EC_32fc_I(const Kvo64f* pStep, const Kvo32fc** ppRefRows,
                                              const Kvo32fc* pErr, Kvo32fc** ppCoefRows,
                                              Kvo32s numSegments, Kvo32s numSubbands);
/* The same in integers, step mantissa * 2^-exponent, coefficients scaled by 2^scaleFactor. */
KvoStatus kvosFIRSubbandCoeffUpdate_EC_32sc_I(const KvoStepPair* pStep, const Kvo32sc** ppRefRows,
                                              const Kvo32sc* pErr, Kvo32sc** ppCoefRows,
                                              Kvo32s numSegments, Kvo32s numSubbands,
                                              Kvo32s scaleFactor);
/* Cheap form for subbands startSubband..numSubbands-1; writes the scaled errors. */
KvoStatus kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(const Kvo32sc** ppRefRows, const Kvo32sc* pErr,
                                                 Kvo32sc** ppCoefRows, Kvo32s numSegments,
                                                 Kvo32sc* pScaledErr, const KvoStepPair* pStep,
                                                 Kvo32s startSubband, Kvo32s numSubbands,
                                                 Kvo32s scaleFactor);
/* Affine-projection form: mean of apOrder steps along the last apOrder reference frames. */
KvoStatus kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(const Kvo64f** ppStep, const Kvo32fc** ppRefRows,
                                                const Kvo32fc** ppErr, Kvo32fc** ppCoefRows,
                                                Kvo32u numSegments, Kvo32u numSubbands,
                                                Kvo32u apOrder);
/* pDst = pMic - FIR(pRef); pRef has tapLen-1 samples of history before it. */
KvoStatus kvosFIR_EC_32f(const Kvo32f* pRef, const Kvo32f* pMic, Kvo32f* pDst, Kvo32s len,
                         const Kvo32f* pCoefs, Kvo32s tapLen);
/* The same in 16 bits, Q15 coefficients. */
KvoStatus kvosFIR_EC_16s(const Kvo16s* pRef, const Kvo16s* pMic, Kvo16s* pDst, Kvo32s len,
                         const Kvo16s* pCoefs, Kvo32s tapLen);
/* NLMS filter and update per sample; pRef has tapLen samples of history; *pMuErr carries over. */
KvoStatus kvosNLMS_EC_32f(const Kvo32f* pRef, const Kvo32f* pMic, const Kvo32f* pStep,
                          Kvo32f* pDst, Kvo32s len, Kvo32f* pCoefs, Kvo32s tapLen,
                          Kvo32f* pMuErr);
/* The same in 16 bits, Q15 coefficients. */
KvoStatus kvosNLMS_EC_16s(const Kvo16s* pRef, const Kvo16s* pMic, const Kvo32s* pStep,
                          Kvo16s* pDst, Kvo32s len, Kvo16s* pCoefs, Kvo32s tapLen,
                          Kvo16s* pMuErr);
/* Bytes of the float tone detector block (8000 or 16000 Hz). */
KvoStatus kvosToneDetectGetStateSize_EC_32f(Kvo32s sampleFreq, Kvo32s* pSize);
/* Bytes of the 16-bit tone detector block. */
KvoStatus kvosToneDetectGetStateSize_EC_16s(Kvo32s sampleFreq, Kvo32s* pSize);
/* Start state of the float detector. */
KvoStatus kvosToneDetectInit_EC_32f(KvoToneDetect32fState* pState, Kvo32s sampleFreq);
/* Start state of the 16-bit detector. */
KvoStatus kvosToneDetectInit_EC_16s(KvoToneDetect16sState* pState, Kvo32s sampleFreq);
/* Watches len samples for 2100 Hz with phase reversals; *pResult 1 on a detection. */
KvoStatus kvosToneDetect_EC_32f(const Kvo32f* pSrc, Kvo32s len, Kvo32s* pResult,
                                KvoToneDetect32fState* pState);
/* The same in 16 bits. */
KvoStatus kvosToneDetect_EC_16s(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pResult,
                                KvoToneDetect16sState* pState);

#ifdef __cplusplus
}
#endif

#endif /* KVOSC_H */
