// AMR-WB DTX histories (3GPP TS 26.193 fixed point): the eight-frame ring of ISF vectors and
// frame log energies from which the caller averages its SID parameters.  The log energy is
// log2 of the frame's energy in Q7, less log2 of the frame length (1024 = 8.0), and on the
// encoder side less a per-mode term that levels the codebook gains of the different rates.
#include <cstring>

#include "impl.h"
#include "numeric/arith.h"
#include "numeric/vector.h"

namespace kvo {
namespace {

constexpr int kFrame = 256, kOrder = 16, kHistory = 8;

// Log energy of a frame at the next place of the ring; the ISF vector goes there too.
void log_frame(const Kvo16s* pSrc, const Kvo16s* pIsf, Kvo16s* pHistIndex, Kvo16s* pIsfHistory,
               Kvo16s* pLogEnHistory, Kvo16s rateTerm) {
    Kvo16s at = static_cast<Kvo16s>(*pHistIndex + 1);
    if (at >= kHistory || at < 0) at = 0;
    *pHistIndex = at;
    std::memcpy(pIsfHistory + at * kOrder, pIsf, kOrder * sizeof(Kvo16s));
    Kvo32s energy = 0;
    kvosDotProd_16s32s_Sfs(pSrc, pSrc, kFrame, &energy, 0);
    Kvo16s e, f;
    ownLog2(energy, &e, &f);
    pLogEnHistory[at] = lo16((Kvo32s{e} << 7) + (f >> 8) - 1024 - rateTerm);
}

}  // namespace

namespace impl {

KvoStatus kvosEncDTXBuffer_AMRWB_16s(const Kvo16s* pSrc, const Kvo16s* pIsf, Kvo16s* pHistIndex,
                                     Kvo16s* pIsfHistory, Kvo16s* pLogEnHistory,
                                     KvoSpeechRate mode) {
    if (!pSrc || !pIsf || !pHistIndex || !pIsfHistory || !pLogEnHistory) return kvoErrNullPtr;
    Kvo16s rate;
    switch (mode) {
        case 5: rate = 230; break;
        case 9: rate = 179; break;
        case 13: rate = 141; break;
        case 15: rate = 128; break;
        case 16: rate = 122; break;
        case 18: case 19: case 20: case 21: case 25: rate = 115; break;
        default: return kvoErrRange;
    }
    log_frame(pSrc, pIsf, pHistIndex, pIsfHistory, pLogEnHistory, rate);
    return kvoOk;
}

KvoStatus kvosDecDTXBuffer_AMRWB_16s(const Kvo16s* pSrc, const Kvo16s* pIsf, Kvo16s* pHistIndex,
                                     Kvo16s* pIsfHistory, Kvo16s* pLogEnHistory) {
    if (!pSrc || !pIsf || !pHistIndex || !pIsfHistory || !pLogEnHistory) return kvoErrNullPtr;
    log_frame(pSrc, pIsf, pHistIndex, pIsfHistory, pLogEnHistory, 0);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
